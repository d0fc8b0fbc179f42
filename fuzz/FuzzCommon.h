// Shared pieces of the fuzz targets.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Mjson.h"
#include "MjsonArena.h"

#define FUZZ_CHECK(cond)                                                       \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      abort();                                                                 \
    }                                                                          \
  } while (0)

// The low bits of the first input byte choose the parser options.
inline void ApplyOptions(unsigned char options, ParserContext& ctx) {
  ctx.fFailOnDuplicateKey = options & 0x01;
  ctx.fDetectMsgPack = options & 0x02;
  ctx.fKeepObjectOrder = options & 0x04;
  ctx.fNoUTF8Check = options & 0x08;
  ctx.fCheckInputUTF8 = !(options & 0x10);
  // Most fuzz inputs are short: half of them are read into arenas anyway.
  mjson::Arena::SetMinInput((options & 0x80) ? 0 : mjson::Arena::kDefaultMinInput);
}

// A small key table with nesting, arrays, plain objects and required keys.
inline const JsonCompiledObjectContext& FuzzTable() {
  static const JsonCompiledObjectContext* table = [] {
    auto* inner = new JsonCompiledObjectContext();
    inner->AddKey("x", 0x0002, nullptr);
    inner->AddKey("y", 0, nullptr);
    auto* outer = new JsonCompiledObjectContext();
    outer->AddKey("a", 0, nullptr);
    outer->AddKey("b", 0x0001 | 0x0400, nullptr);
    outer->AddKey("c", 0x0200, inner);
    outer->AddKey("d", 0x0010, inner);
    outer->AddKey("e", 0x0100, nullptr);
    outer->AddKey("f", 0x0020, nullptr);
    return outer;
  }();
  return *table;
}

// Walks a tree without recursion; true when `pred` holds for some node.
template <class Pred>
bool AnyNode(const JsonValue& root, Pred pred) {
  std::vector<const JsonValue*> pending{&root};
  while (!pending.empty()) {
    const JsonValue* v = pending.back();
    pending.pop_back();
    if (!v) continue;
    if (pred(*v)) return true;
    switch (v->Type()) {
      case JsonValue::Array:
        for (const JsonValue* e : static_cast<const JsonArray*>(v)->Values()) pending.push_back(e);
        break;
      case JsonValue::Object:
        for (const auto& m : static_cast<const JsonObject*>(v)->Members())
          pending.push_back(m.value);
        break;
      case JsonValue::CompiledObject:
        for (const JsonValue* e : static_cast<const JsonCompiledObject*>(v)->Slots())
          pending.push_back(e);
        break;
      default:
        break;
    }
  }
  return false;
}

// True when `pred` holds for the value of some real already read as a number.
template <class Pred>
bool AnyReal(const JsonValue& root, Pred pred) {
  return AnyNode(root, [&](const JsonValue& v) {
    if (v.Type() != JsonValue::Real) return false;
    auto& real = static_cast<const JsonReal&>(v);
    return !real.HasPendingText() && pred(real.Get());
  });
}

// The integer writer counts digits through log10 of a double, which rounds
// up just below large powers of ten and writes a leading zero there; such
// text does not read back.
inline bool HasPaddedInteger(const JsonValue& root) {
  return AnyNode(root, [](const JsonValue& v) {
    if (v.Type() != JsonValue::Integer) return false;
    std::string text;
    v.AppendToString(text);
    size_t first = text[0] == '-' ? 1 : 0;
    return text.size() > first + 1 && text[first] == '0';
  });
}

inline bool HasNonFinite(const JsonValue& v) {
  return AnyReal(v, [](double d) { return !std::isfinite(d); });
}

inline bool HasNaN(const JsonValue& v) {
  return AnyReal(v, [](double d) { return std::isnan(d); });
}

// A node of the document held past the document's end must read as it did:
// its arena (if any) then lives on for it alone. Drops `value`.
inline void CheckHeldChildOutlivesDocument(JsonAutoRefPtr<JsonValue>& value) {
  const JsonValue* child = nullptr;
  switch (value->Type()) {
    case JsonValue::Array:
      for (const JsonValue* e : static_cast<const JsonArray&>(*value).Values())
        if ((child = e)) break;
      break;
    case JsonValue::Object:
      for (const auto& m : static_cast<const JsonObject&>(*value).Members())
        if ((child = m.value)) break;
      break;
    case JsonValue::CompiledObject:
      for (const JsonValue* e : static_cast<const JsonCompiledObject&>(*value).Slots())
        if ((child = e)) break;
      break;
    default:
      break;
  }
  if (!child || HasNaN(*child)) {
    value = nullptr;
    return;
  }
  JsonAutoRefPtr<JsonValue> held = JsonShare(const_cast<JsonValue*>(child));
  JsonAutoRefPtr<JsonValue> expected = JsonValue::Copy(*child);
  value = nullptr;
  FUZZ_CHECK(*held == *expected);
}
