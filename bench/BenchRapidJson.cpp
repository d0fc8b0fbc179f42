// RapidJSON, twice for parsing: with UTF-8 validation and full-precision
// numbers (what our parse does), and with its default flags (its best case).
// Writes and copies are of the validated, full-precision document.
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "BenchLibraries.h"

namespace {

constexpr unsigned kLikeOurs =
    rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;

template <unsigned kFlags>
bool Parse(rapidjson::Document& doc, const std::string& text) {
  doc.Parse<kFlags>(text.data(), text.size());
  return !doc.HasParseError();
}

std::string Compact(const rapidjson::Document& doc) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  doc.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::vector<TimedCase> RapidJsonCases(const BenchDoc& doc) {
  std::vector<TimedCase> cases;
  const std::string* text = &doc.text;
  cases.push_back(MakeCase(doc, "parse", "rapidjson-validating", [text] {
    rapidjson::Document parsed;
    bool ok = Parse<kLikeOurs>(parsed, *text);
    benchmark::DoNotOptimize(&parsed);
    return ok;
  }));
  cases.push_back(MakeCase(doc, "parse", "rapidjson", [text] {
    rapidjson::Document parsed;
    bool ok = Parse<rapidjson::kParseDefaultFlags>(parsed, *text);
    benchmark::DoNotOptimize(&parsed);
    return ok;
  }));

  auto parsed = std::make_shared<rapidjson::Document>();
  if (!Parse<kLikeOurs>(*parsed, doc.text)) return cases;
  cases.push_back(MakeCase(doc, "write", "rapidjson", [parsed] {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    bool ok = parsed->Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
    return ok;
  }));
  cases.push_back(MakeCase(doc, "pretty", "rapidjson", [parsed] {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);  // the indentation our pretty write uses
    bool ok = parsed->Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
    return ok;
  }));
  cases.push_back(MakeCase(doc, "copy", "rapidjson", [parsed] {
    rapidjson::Document copy;
    copy.CopyFrom(*parsed, copy.GetAllocator());  // a parsed document: strings copied too
    benchmark::DoNotOptimize(&copy);
    return copy.IsObject() || copy.IsArray();
  }));
  return cases;
}

}  // namespace

Library RapidJsonLibrary() {
  Library lib;
  lib.name = "rapidjson";
  lib.cases = RapidJsonCases;
  lib.hold = [](const std::string& text) -> std::shared_ptr<void> {
    auto doc = std::make_shared<rapidjson::Document>();
    if (!Parse<kLikeOurs>(*doc, text)) return nullptr;
    return doc;
  };
  lib.textRoundTrip = [](const std::string& text) {
    rapidjson::Document doc;
    return Parse<kLikeOurs>(doc, text) ? Compact(doc) : std::string();
  };
  return lib;
}
