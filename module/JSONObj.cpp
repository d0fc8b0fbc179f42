#include "JSONObj.h"

#include <cstring>

#include "JSONWrapper.h"

const std::string kJSONName = "JSON";

JSONObj::JSONObj(unsigned int typeId, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(new JsonNull()) {}

JSONObj::JSONObj(unsigned int typeId, JsonValue::EJsonValueType type, Zentor::IContext*)
    : CustomType(typeId, kJSONName), fRoot(NewEmptyValue(type)) {}

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

// Accepts both the envelope {"type": "JSON", "value": ...} and a bare
// document. A document of this module is copied directly; any other goes
// through its text. Failures leave the root unchanged and report nothing.
bool JSONObj::Interface_Deserialize(const Zentor::IJSON* json, Zentor::IContext*) {
  if (!json) return false;
  const Zentor::IJSON* source = json;
  Zentor::AutoRefPtr<Zentor::IJSON> enveloped;
  std::string type;
  if (json->GetString("type", type) && type == kJSONName) {
    enveloped = json->Get("value");
    source = enveloped.get();
  }
  if (JsonAutoRefPtr<JsonValue> value = Zentor::JSON::JSONWrapper::ToMJson(source)) {
    fRoot = JsonValue::Copy(*value);
    return true;
  }
  ParserContext context;
  JsonAutoRefPtr<JsonValue> parsed =
      JsonValue::ReadFromString(json->ToString(std::string()), &context, nullptr);
  if (!parsed) return false;
  fRoot = std::move(parsed);
  return true;
}

// Shares the root with the new wrapper: no copy, no envelope.
Zentor::IJSON* JSONObj::Interface_Serialize(Zentor::IContext*) const {
  return Zentor::JSON::JSONWrapper::FromMJson(fRoot).release();
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
