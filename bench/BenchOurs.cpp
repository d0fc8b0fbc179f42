// Our library, used the way the script functions use it: text parsed with a
// fresh context that keeps member order (UTF-8 validated), MessagePack read
// with no context.
#include "BenchLibraries.h"
#include "Mjson.h"

namespace {

JsonAutoRefPtr<JsonValue> ParseOurs(const std::string& text, std::string* error = nullptr) {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromString(text, &ctx, nullptr);
  if (!value && error) *error = "line " + std::to_string(ctx.fLine) + ": " + ctx.fError;
  return value;
}

std::vector<TimedCase> OurCases(const BenchDoc& doc) {
  std::vector<TimedCase> cases;
  const std::string* text = &doc.text;
  const std::string* msgpack = &doc.msgpack;
  cases.push_back(MakeCase(doc, "parse", "ours", [text] {
    JsonAutoRefPtr<JsonValue> value = ParseOurs(*text);
    benchmark::DoNotOptimize(value.get());
    return bool(value);
  }));

  JsonAutoRefPtr<JsonValue> parsed = ParseOurs(doc.text);
  if (!parsed) return cases;  // the driver's cross-check has already said why
  cases.push_back(MakeCase(doc, "write", "ours", [parsed] {
    std::string out;
    parsed->WriteToString(out);
    benchmark::DoNotOptimize(out.data());
    return !out.empty();
  }));
  cases.push_back(MakeCase(doc, "pretty", "ours", [parsed] {
    std::string out;
    parsed->WriteToStringPretty(out, "  ", "\n");
    benchmark::DoNotOptimize(out.data());
    return !out.empty();
  }));
  // Writing MessagePack reads every real, which settles the ones that still
  // hold their source text; the text writers then write those from the
  // double instead of copying their text. Its own document keeps the other
  // rows measuring a document as parsed, whatever order the cases run in.
  JsonAutoRefPtr<JsonValue> packed = ParseOurs(doc.text);
  cases.push_back(MakeCase(doc, "msgpack-write", "ours", [packed] {
    std::string out;
    bool ok = packed->WriteToMsgPack(out);
    benchmark::DoNotOptimize(out.data());
    return ok;
  }));
  cases.push_back(MakeCase(doc, "msgpack-read", "ours", [msgpack] {
    JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromMsgPack(*msgpack, nullptr, nullptr);
    benchmark::DoNotOptimize(value.get());
    return bool(value);
  }));
  // What every changing script function pays first: a copy of its argument.
  cases.push_back(MakeCase(doc, "copy", "ours", [parsed] {
    JsonAutoRefPtr<JsonValue> copy = JsonValue::Copy(*parsed);
    benchmark::DoNotOptimize(copy.get());
    return bool(copy);
  }));
  return cases;
}

// Our equality tells the integer 33 from the real 33.0. A peer's encoder may
// turn one into the other (msgpack-cxx packs integral floats as integers),
// which for what is measured here is still the same document.
bool SameDocument(const JsonValue& a, const JsonValue& b) {
  auto numeric = [](const JsonValue& v) {
    return v.Type() == JsonValue::Integer || v.Type() == JsonValue::Real;
  };
  if (a.Type() != b.Type()) return numeric(a) && numeric(b) && a.GetAsReal() == b.GetAsReal();
  if (a.Type() == JsonValue::Object) {
    const auto& x = static_cast<const JsonObject&>(a);
    const auto& y = static_cast<const JsonObject&>(b);
    bool same = x.Size() == y.Size();
    x.ForEach([&](const std::string& key, const JsonAutoRefPtr<JsonValue>& value) {
      if (!same) return;
      JsonAutoRefPtr<JsonValue> other = y.At(key);
      same = other && SameDocument(*value, *other);
    });
    return same;
  }
  if (a.Type() == JsonValue::Array) {
    const auto& x = static_cast<const JsonArray&>(a);
    const auto& y = static_cast<const JsonArray&>(b);
    if (x.Size() != y.Size()) return false;
    for (size_t i = 0; i < x.Size(); ++i)
      if (!SameDocument(*x.AtIndex(i), *y.AtIndex(i))) return false;
    return true;
  }
  return a == b;
}

}  // namespace

Library OurLibrary() {
  Library lib;
  lib.name = "ours";
  lib.cases = OurCases;
  lib.hold = [](const std::string& text) -> std::shared_ptr<void> {
    JsonAutoRefPtr<JsonValue> value = ParseOurs(text);
    if (!value) return nullptr;
    return std::shared_ptr<void>(value.release(),
                                 [](void* p) { static_cast<JsonValue*>(p)->Release(); });
  };
  lib.textRoundTrip = [](const std::string& text) {
    std::string out;
    if (JsonAutoRefPtr<JsonValue> value = ParseOurs(text)) value->WriteToString(out);
    return out;
  };
  lib.msgpackRoundTrip = [](const std::string& bytes) {
    std::string out;
    if (JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr))
      value->WriteToMsgPack(out);
    return out;
  };
  return lib;
}

std::string OurMsgPack(const std::string& text, std::string& error) {
  std::string out;
  JsonAutoRefPtr<JsonValue> value = ParseOurs(text, &error);
  if (value && !value->WriteToMsgPack(out)) error = "the MessagePack writer failed";
  return out;
}

bool OurDocumentsEqual(const std::string& text, const std::string& actual, bool actualIsMsgPack,
                       std::string& why) {
  std::string error;
  JsonAutoRefPtr<JsonValue> expected = ParseOurs(text, &error);
  if (!expected) {
    why = "we cannot parse the document (" + error + ")";
    return false;
  }
  JsonAutoRefPtr<JsonValue> got;
  if (actualIsMsgPack) {
    ParserContext ctx;
    got = JsonValue::ReadFromMsgPack(actual, &ctx, nullptr);
    if (!got) error = "at byte " + std::to_string(ctx.fPosition) + ": " + ctx.fError;
  } else {
    got = ParseOurs(actual, &error);
  }
  if (!got) {
    why = actual.empty() ? "the library failed" : "its output does not read back (" + error + ")";
    return false;
  }
  if (!SameDocument(*expected, *got)) {
    why = "its output reads back as a different document";
    return false;
  }
  return true;
}
