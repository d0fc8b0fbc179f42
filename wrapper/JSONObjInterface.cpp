// The "JSON" type's conversion to and from the host's native JSON
// interface. It lives with the interface's implementation, which the type
// itself does not depend on.
#include "JSONObj.h"
#include "JSONWrapper.h"

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
