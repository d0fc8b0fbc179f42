// Script functions that tell the kind, size and value of a whole document.
#include <string>

#include "JSONFunctions.h"

using namespace JSONFunctions;

unsigned long long JsonSize(const JSONObjRef& json, Zentor::IContext* context) {
  const ValuePtr& root = json->fRoot;
  if (!root) {
    Report(context, kSeverityWarning, kErrorNoObject, "No JSON object given!");
    return 0;
  }
  return mjson::ContainerSize(*root);
}

bool IsEmpty(const JSONObjRef& json) {
  return mjson::IsEmptyValue(json->fRoot.get());
}

bool Empty(const JSONObjRef& json) {
  return IsEmpty(json);
}

bool IsNull(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Null);
}
bool IsBool(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::True) || IsType(json->fRoot, JsonValue::False);
}
bool IsNumber(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Integer) || IsType(json->fRoot, JsonValue::Real);
}
bool IsDouble(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Real);
}
bool IsInt64(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Integer);
}
bool IsString(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::String);
}
bool IsArray(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Array);
}
bool IsObject(const JSONObjRef& json) {
  return IsType(json->fRoot, JsonValue::Object);
}

bool AsBool(const JSONObjRef& json) {
  return json->fRoot && json->fRoot->GetAsBool();
}
double AsDouble(const JSONObjRef& json) {
  return json->fRoot ? json->fRoot->GetAsReal() : 0.0;
}
double AsNumber(const JSONObjRef& json) {
  return AsDouble(json);
}

long long AsInt64(const JSONObjRef& json) {
  long long result = 0;
  long long converted;
  if (json->fRoot && json->fRoot->GetAsInteger(converted)) result = converted;
  return result;
}

std::string AsString(const JSONObjRef& json) {
  std::string result;
  if (json->fRoot) json->fRoot->GetAsString(result);
  return result;
}

bool Equals(const JSONObjRef& first, const JSONObjRef& second) {
  if (!first->fRoot || !second->fRoot) return false;
  return *first->fRoot == *second->fRoot;
}
