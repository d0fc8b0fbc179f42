// Proxies that name one member or element of a container, for reading and
// assignment: ObjectRef, ArrayRef and CompObjectRef, one template over the
// rules of each kind of container.
#pragma once

#include <string>
#include <utility>

#include "Mjson.h"

namespace mjson::detail {

// How a proxy (below) reads and stores for each kind of container. Stores
// adopt the reference they are given. Strings differ on purpose: an object
// or compiled object refuses bytes that are not UTF-8, an array stores the
// empty string instead.
template <class Container>
struct JsonRefRules;

template <>
struct JsonRefRules<JsonObject> {
  using Key = std::string;
  static JsonAutoRefPtr<JsonValue> Read(const JsonObject& o, const Key& key) { return o.At(key); }
  static void Store(JsonObject& o, const Key& key, JsonValue* v) {
    o.InsertValueInternal(key, v, false);
  }
  static void StoreString(JsonObject& o, const Key& key, const std::string& s) {
    o.InsertString(key, s, false, false);
  }
};

template <>
struct JsonRefRules<JsonArray> {
  using Key = size_t;
  static JsonAutoRefPtr<JsonValue> Read(const JsonArray& a, Key index) { return a.AtIndex(index); }
  static void Store(JsonArray& a, Key index, JsonValue* v) { a.SetValueAtIndexInternal(index, v); }
  static void StoreString(JsonArray& a, Key index, const std::string& s) {
    a.SetValueAtIndexInternal(index, new JsonString(s));
  }
};

template <>
struct JsonRefRules<JsonCompiledObject> {
  using Key = size_t;
  static JsonAutoRefPtr<JsonValue> Read(const JsonCompiledObject& o, Key index) {
    return o.At(index);
  }
  static void Store(JsonCompiledObject& o, Key index, JsonValue* v) {
    o.InsertValueInternal(index, v);
  }
  static void StoreString(JsonCompiledObject& o, Key index, const std::string& s) {
    o.InsertString(index, s);
  }
};

// A proxy naming one member or element, for reading and assignment. It
// captures the value as it was when the proxy was made; assignments store
// into the container and do not refresh that capture. A proxy without a
// container ignores assignments, and so does the container for an index
// past its end.
template <class Container>
class JsonRef {
  using Rules = JsonRefRules<Container>;

 public:
  using Key = typename Rules::Key;

  JsonRef(Container* container, Key key)
      : fContainer(mjson::JsonShare(container)), fKey(std::move(key)) {
    if (fContainer) fValue = Rules::Read(*fContainer, fKey);
  }
  JsonRef(const JsonRef& other) = default;

  const JsonAutoRefPtr<JsonValue>& Value() const { return fValue; }

  JsonRef& operator=(const JsonAutoRefPtr<JsonValue>& value) {
    if (fContainer) Rules::Store(*fContainer, fKey, mjson::JsonShare(value.get()).release());
    return *this;
  }
  JsonRef& operator=(const std::string& value) {
    if (fContainer) Rules::StoreString(*fContainer, fKey, value);
    return *this;
  }
  JsonRef& operator=(long long value) {
    if (fContainer) Rules::Store(*fContainer, fKey, new JsonInteger(value));
    return *this;
  }
  JsonRef& operator=(unsigned long long value) {
    if (fContainer) Rules::Store(*fContainer, fKey, new JsonInteger(value, true));
    return *this;
  }
  JsonRef& operator=(int value) { return *this = static_cast<long long>(value); }
  JsonRef& operator=(double value) {
    if (fContainer) Rules::Store(*fContainer, fKey, new JsonReal(value, 0));
    return *this;
  }
  // Stores the value the other proxy captured; self-assignment does nothing.
  JsonRef& operator=(const JsonRef& other) {
    if (this != &other) *this = other.fValue;
    return *this;
  }

 private:
  JsonAutoRefPtr<Container> fContainer;
  Key fKey;
  JsonAutoRefPtr<JsonValue> fValue;
};

}  // namespace mjson::detail

using ObjectRef = mjson::detail::JsonRef<JsonObject>;
using ArrayRef = mjson::detail::JsonRef<JsonArray>;
using CompObjectRef = mjson::detail::JsonRef<JsonCompiledObject>;
