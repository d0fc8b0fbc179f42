// Script functions that read, test and remove the members of an object.
#include <string>

#include "JSONFunctions.h"

JsonValue* JSONFunctions::PeekMember(const JsonValue* container, const std::string& key) {
  return container ? mjson::MemberOf(*container, key) : nullptr;
}

using namespace JSONFunctions;

JSONObjRef RemoveMember(const JSONObjRef& json, const std::string& key) {
  JSONObjRef result = CopyOf(json);
  // Erasing a missing member does nothing, which is all that is wanted.
  if (result->fRoot) EraseMember(*result->fRoot, key);
  return result;
}

JSONObjRef JsonObjectGet(const JSONObjRef& json, const std::string& key,
                         Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  // A missing member reads as the empty string; JSON.HasMember tells the two apart.
  JSONObjRef result = NewJSONObj(jsonTypeId, JsonValue::String, context);
  if (JsonValue* member = PeekMember(json->fRoot.get(), key))
    result->fRoot = mjson::JsonShare(member);
  return result;
}

bool GetAsBool(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  bool result = false;
  bool converted;
  if (const JsonValue* member = PeekMember(json->fRoot.get(), key))
    if (member->GetAsBool(converted)) result = converted;
  return result;
}

double GetAsNumber(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  double result = 0.0;
  double converted;
  if (const JsonValue* member = PeekMember(json->fRoot.get(), key))
    if (member->GetAsReal(converted)) result = converted;
  return result;
}

std::string GetAsString(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  std::string result;
  if (const JsonValue* member = PeekMember(json->fRoot.get(), key)) member->GetAsString(result);
  return result;
}

bool HasMember(const JSONObjRef& json, const std::string& key) {
  return json->fRoot && !key.empty() && HasKeyOrElement(*json->fRoot, key);
}

StringVector GetKeys(const JSONObjRef& json, Zentor::IContext* context) {
  auto keys = NewVector<std::string>(context);
  if (keys && IsType(json->fRoot, JsonValue::Object)) {
    for (ObjectStepper it = static_cast<const JsonObject*>(json->fRoot.get())->StartTraversal();
         !it.AtEnd(); ++it)
      keys->PushBack(it.Key());
  }
  return keys;
}
