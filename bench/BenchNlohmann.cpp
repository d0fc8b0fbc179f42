// nlohmann's JSON in its order-keeping form, ordered_json, since our parse
// keeps member order too.
#include <nlohmann/json.hpp>

#include "BenchLibraries.h"

namespace {

using Json = nlohmann::ordered_json;

// Parse and MessagePack read report failure by a discarded value rather
// than by exception, so that a failing document costs no unwinding.
Json Parse(const std::string& text) {
  return Json::parse(text, nullptr, false);
}
Json FromMsgPack(const std::string& bytes) {
  return Json::from_msgpack(bytes, true, false);
}

std::vector<TimedCase> NlohmannCases(const BenchDoc& doc) {
  std::vector<TimedCase> cases;
  const std::string* text = &doc.text;
  const std::string* msgpack = &doc.msgpack;
  cases.push_back(MakeCase(doc, "parse", "nlohmann", [text] {
    Json parsed = Parse(*text);
    benchmark::DoNotOptimize(&parsed);
    return !parsed.is_discarded();
  }));

  auto parsed = std::make_shared<Json>(Parse(doc.text));
  if (!parsed->is_discarded()) {
    cases.push_back(MakeCase(doc, "write", "nlohmann", [parsed] {
      std::string out = parsed->dump();
      benchmark::DoNotOptimize(out.data());
      return !out.empty();
    }));
    cases.push_back(MakeCase(doc, "pretty", "nlohmann", [parsed] {
      std::string out = parsed->dump(2);
      benchmark::DoNotOptimize(out.data());
      return !out.empty();
    }));
    cases.push_back(MakeCase(doc, "copy", "nlohmann", [parsed] {
      Json copy = *parsed;
      benchmark::DoNotOptimize(&copy);
      return !copy.is_discarded();
    }));
    cases.push_back(MakeCase(doc, "msgpack-write", "nlohmann", [parsed] {
      std::vector<uint8_t> out = Json::to_msgpack(*parsed);
      benchmark::DoNotOptimize(out.data());
      return !out.empty();
    }));
  }
  cases.push_back(MakeCase(doc, "msgpack-read", "nlohmann", [msgpack] {
    Json read = FromMsgPack(*msgpack);
    benchmark::DoNotOptimize(&read);
    return !read.is_discarded();
  }));
  return cases;
}

}  // namespace

Library NlohmannLibrary() {
  Library lib;
  lib.name = "nlohmann";
  lib.cases = NlohmannCases;
  lib.hold = [](const std::string& text) -> std::shared_ptr<void> {
    auto doc = std::make_shared<Json>(Parse(text));
    if (doc->is_discarded()) return nullptr;
    return doc;
  };
  lib.textRoundTrip = [](const std::string& text) {
    Json doc = Parse(text);
    return doc.is_discarded() ? std::string() : doc.dump();
  };
  lib.msgpackRoundTrip = [](const std::string& bytes) {
    Json doc = FromMsgPack(bytes);
    if (doc.is_discarded()) return std::string();
    std::vector<uint8_t> out = Json::to_msgpack(doc);
    return std::string(out.begin(), out.end());
  };
  return lib;
}
