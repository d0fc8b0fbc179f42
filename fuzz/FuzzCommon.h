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
  mjson::detail::Arena::SetMinInput((options & 0x80) ? 0 : mjson::detail::Arena::kDefaultMinInput);
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
  JsonAutoRefPtr<JsonValue> held = mjson::JsonShare(const_cast<JsonValue*>(child));
  JsonAutoRefPtr<JsonValue> expected = JsonValue::Copy(*child);
  value = nullptr;
  FUZZ_CHECK(*held == *expected);
}

// The container a change of `doc` works on: the root, or with `deeper` its
// first child that is a container, when it has one.
inline JsonValue* ChangeTarget(JsonValue& doc, bool deeper) {
  if (!deeper) return &doc;
  JsonValue* found = nullptr;
  AnyNode(doc, [&](const JsonValue& v) {
    const auto t = v.Type();
    if (&v == &doc ||
        (t != JsonValue::Array && t != JsonValue::Object && t != JsonValue::CompiledObject))
      return false;
    found = const_cast<JsonValue*>(&v);
    return true;
  });
  return found ? found : &doc;
}

// One change of the kind script functions and native callers make, chosen
// by `how`, storing `outside` (a node of other memory) where it stores one.
inline void ApplyChange(JsonValue& doc, unsigned char how,
                        const JsonAutoRefPtr<JsonValue>& outside) {
  JsonValue* target = ChangeTarget(doc, how & 1);
  const int kind = (how >> 1) & 3;
  switch (target->Type()) {
    case JsonValue::Array: {
      auto& array = static_cast<JsonArray&>(*target);
      if (kind == 0)
        for (int i = 0; i < 1 + (how >> 3); ++i) array.AddValue(outside);
      else if (kind == 1)
        array.SetValueAtIndex(0, outside);
      else if (kind == 2)
        array.EraseAtIndex(0);
      else
        array.InsertValueAtIndex(0, outside);
      break;
    }
    case JsonValue::Object: {
      auto& object = static_cast<JsonObject&>(*target);
      const std::string first = object.Empty() ? std::string("k") : object.Members()[0].key.Str();
      if (kind == 0)
        for (int i = 0; i < 1 + (how >> 3); ++i)
          object.InsertValue("a key longer than inline " + std::to_string(i), outside, true);
      else if (kind == 1)
        object.InsertValue(first, outside, true);
      else if (kind == 2)
        object.Erase(first);
      else
        object.InsertNull(first, true);
      break;
    }
    case JsonValue::CompiledObject: {
      auto& object = static_cast<JsonCompiledObject&>(*target);
      if (kind & 1)
        object.Erase(size_t(0));
      else
        object.InsertValue(size_t(0), outside);
      break;
    }
    default:
      break;
  }
}

// A copy made to be changed, once changed, equals a plain copy changed the
// same way, leaves its source as it was, and lets go of what it stored
// when it dies (the one-step death of a recorded arena; AddressSanitizer
// sees what it misses or frees twice).
inline void CheckChangedCopy(const JsonValue& value, unsigned char how) {
  if (HasNaN(value)) return;
  JsonAutoRefPtr<JsonValue> outside(new JsonString(
      std::string("a value from elsewhere, longer than inline"), JsonString::Trusted{}));
  const JsonAutoRefPtr<JsonValue> before = JsonValue::Copy(value);
  JsonAutoRefPtr<JsonValue> copy = JsonValue::CopyToChange(value);
  JsonAutoRefPtr<JsonValue> plain = JsonValue::Copy(value);
  ApplyChange(*copy, how, outside);
  ApplyChange(*plain, how, outside);
  FUZZ_CHECK(*copy == *plain);
  copy = nullptr;
  plain = nullptr;
  FUZZ_CHECK(*before == value);
  FUZZ_CHECK(outside->UseCount() == 1);
}
