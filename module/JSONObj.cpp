#include "JSONObj.h"

const std::string kJSONName = "JSON";

JSONObj::JSONObj(unsigned int typeId, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(new JsonNull()) {}

JSONObj::JSONObj(unsigned int typeId, JsonValue::EJsonValueType type, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(mjson::NewEmptyValue(type)) {}

// The script functions make their changed copies this way, so the copy is
// made to be changed (it stays cheap to free after the change).
JSONObj::JSONObj(const JSONObj& other)
    : CustomType(other),
      fRoot(other.fRoot ? JsonValue::CopyToChange(*other.fRoot) : JsonAutoRefPtr<JsonValue>()) {}

JSONObj::~JSONObj() = default;

bool JSONObj::Interface_LessThan(const Zentor::IUserDefinedType* other) const {
  const auto* that = dynamic_cast<const JSONObj*>(other);
  if (!that) return false;
  const std::string mine = fRoot ? fRoot->GetAsString() : std::string();
  const std::string theirs = that->fRoot ? that->fRoot->GetAsString() : std::string();
  return mine < theirs;
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
