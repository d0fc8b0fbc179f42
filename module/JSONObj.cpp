#include "JSONObj.h"

#include <cstring>

const std::string kJSONName = "JSON";

namespace {

JsonValue* EmptyValue(JsonValue::EJsonValueType type) {
  switch (type) {
    case JsonValue::String:
      return new JsonString(std::string());
    case JsonValue::Integer:
      return new JsonInteger(0LL);
    case JsonValue::Real:
      return new JsonReal(0.0, 0);
    case JsonValue::Object:
      return new JsonObject(false);
    case JsonValue::Array:
      return new JsonArray();
    case JsonValue::True:
      return new JsonTrue();
    case JsonValue::False:
      return new JsonFalse();
    default:
      return new JsonNull();
  }
}

}  // namespace

JSONObj::JSONObj(unsigned int typeId, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(new JsonNull()) {}

JSONObj::JSONObj(unsigned int typeId, JsonValue::EJsonValueType type, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(EmptyValue(type)) {}

JSONObj::JSONObj(const JSONObj& other)
    : CustomType(other),
      fRoot(other.fRoot ? JsonValue::Copy(*other.fRoot) : JsonAutoRefPtr<JsonValue>()) {}

JSONObj::~JSONObj() = default;

bool JSONObj::Interface_LessThan(const Zentor::IUserDefinedType* other) const {
  const auto* that = dynamic_cast<const JSONObj*>(other);
  if (!that) return false;
  const std::string mine = fRoot ? fRoot->GetAsString() : std::string();
  const std::string theirs = that->fRoot ? that->fRoot->GetAsString() : std::string();
  return mine < theirs;
}

// The native JSON interface is implemented by the wrapper, which provides
// the conversion both ways; until it does, a JSON value neither serialises
// nor deserialises.
bool JSONObj::Interface_Deserialize(const Zentor::IJSON*, Zentor::IContext*) {
  return false;
}

Zentor::IJSON* JSONObj::Interface_Serialize(Zentor::IContext*) const {
  return nullptr;
}

unsigned long long JSONObj::Interface_ToBinaryData(void** out, unsigned long long format) const {
  if (!fRoot || format != kBinaryHandleFormat || !out) return 0;
  *out = const_cast<JsonAutoRefPtr<JsonValue>*>(&fRoot);
  return sizeof(void*);
}

bool JSONObj::Interface_FromBinaryData(const void* data, unsigned long long size,
                                       unsigned long long format) {
  if (format != kBinaryHandleFormat || !data || size != sizeof(void*)) return false;
  fRoot = *static_cast<const JsonAutoRefPtr<JsonValue>*>(data);
  return true;
}

unsigned int FindJSONTypeId(Zentor::IContext* context) {
  return context ? context->FindType(kJSONName) : Zentor::kTypeInvalid;
}

Zentor::AutoRefPtr<JSONObj> NewJSONObj(unsigned int typeId, Zentor::IContext* context) {
  return Zentor::AutoRefPtr<JSONObj>(new JSONObj(typeId, context));
}

Zentor::AutoRefPtr<JSONObj> NewJSONObj(unsigned int typeId, JsonValue::EJsonValueType type,
                                       Zentor::IContext* context) {
  return Zentor::AutoRefPtr<JSONObj>(new JSONObj(typeId, type, context));
}

Zentor::AutoRefPtr<JSONObj> NewJSONObj(const JSONObj& other) {
  return Zentor::AutoRefPtr<JSONObj>(new JSONObj(other));
}
