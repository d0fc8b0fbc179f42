// Script functions on arrays: elements, appending, removing and replacing,
// searching, and arrays to and from host vectors.
#include <string>
#include <type_traits>

#include "JSONFunctions.h"

using namespace JSONFunctions;

namespace {

void PushBack(JsonArray* array, bool value) {
  array->AddBool(value);
}
void PushBack(JsonArray* array, double value) {
  array->AddReal(value);
}
void PushBack(JsonArray* array, const std::string& value) {
  array->AddString(value);
}
void PushBack(JsonArray* array, const ValuePtr& value) {
  array->AddValue(value);
}

}  // namespace

JSONObjRef JsonArrayAt(const JSONObjRef& json, unsigned long long index,
                       Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  const JsonArray* array = AsArray(json->fRoot);
  if (!array) return result;
  const auto& values = array->Values();
  if (index >= values.size()) {
    Report(context, kSeverityError, kErrorException, "Index is out of bounds");
  } else if (JsonValue* element = values[index]) {
    result->fRoot = mjson::JsonShare(element);
  } else {
    Report(context, kSeverityError, kErrorException,
           "Error while accessing element at given index");
  }
  return result;
}

template <class T>
JSONObjRef JsonArrayAppend(const JSONObjRef& json, const T& value, Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  if (JsonArray* array = AsArray(result->fRoot))
    PushBack(array, value);
  else
    Report(context, kSeverityWarning, kErrorException,
           "Couldn't push back to JSON array, JSON object is not an array");
  return result;
}

JSONObjRef JsonArrayAppendBoolean(const JSONObjRef& json, bool value, Zentor::IContext* context) {
  return JsonArrayAppend(json, value, context);
}
JSONObjRef JsonArrayAppendNumber(const JSONObjRef& json, double value, Zentor::IContext* context) {
  return JsonArrayAppend(json, value, context);
}
JSONObjRef JsonArrayAppendString(const JSONObjRef& json, const std::string& value,
                                 Zentor::IContext* context) {
  return JsonArrayAppend(json, value, context);
}
JSONObjRef JsonArrayAppendJSON(const JSONObjRef& json, const JSONObjRef& value,
                               Zentor::IContext* context) {
  return JsonArrayAppend<ValuePtr>(json, value->fRoot, context);
}

JSONObjRef JsonArrayRemove(const JSONObjRef& json, unsigned long long position,
                           Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  if (JsonArray* array = AsArray(result->fRoot)) {
    if (array->Erase(position, 1) != 1)
      Report(context, kSeverityWarning, kErrorException,
             "Couldn't remove element at position " + std::to_string(position));
  } else {
    Report(context, kSeverityWarning, kErrorException,
           "Couldn't remove element at position " + std::to_string(position) +
               ", JSON object is not an array");
  }
  return result;
}

// Positions past the end follow the array's own rules (insert ignores them,
// replace too); only a non-array is reported.
template <void (JsonArray::*Store)(size_t, const JsonAutoRefPtr<JsonValue>&)>
JSONObjRef StoreAtPosition(const JSONObjRef& json, unsigned long long position,
                           const JSONObjRef& value, Zentor::IContext* context, const char* verb) {
  JSONObjRef result = CopyOf(json);
  if (JsonArray* array = AsArray(result->fRoot))
    (array->*Store)(position, value->fRoot);
  else
    Report(context, kSeverityWarning, kErrorException,
           std::string("Couldn't ") + verb + " element at position " + std::to_string(position) +
               ", JSON object is not an array");
  return result;
}

JSONObjRef JsonArrayInsertAtJSON(const JSONObjRef& json, unsigned long long position,
                                 const JSONObjRef& value, Zentor::IContext* context) {
  return StoreAtPosition<&JsonArray::InsertValueAtIndex>(json, position, value, context, "insert");
}

JSONObjRef JsonArrayReplaceAtJSON(const JSONObjRef& json, unsigned long long position,
                                  const JSONObjRef& value, Zentor::IContext* context) {
  return StoreAtPosition<&JsonArray::SetValueAtIndex>(json, position, value, context, "replace");
}

// A concatenation, not a set union: duplicates stay.
JSONObjRef UnionArrays(const JSONObjRef& first, const JSONObjRef& second,
                       Zentor::IContext* context) {
  if (!IsArray(first) || !IsArray(second)) {
    Report(context, kSeverityError, kErrorException, "Given JSON is not a JSON array");
    return JSONObjRef();
  }
  JSONObjRef result = CopyOf(first);
  JsonArray* array = AsArray(result->fRoot);
  for (JsonValue* element : AsArray(second->fRoot)->Values())
    array->AddValue(mjson::JsonShare(element));
  return result;
}

namespace {

// Unlike JSON.Set, a string that is not UTF-8 neither stops nor fails the
// array here; the array's own rule drops it.
JSONObjRef ArrayFromVector(const auto& vector, Zentor::IContext* context) {
  JSONObjRef result = CreateEmptyArray(context);
  if (vector) AppendVector(*AsArray(result->fRoot), vector, false);
  return result;
}

}  // namespace

JSONObjRef JSONArrayFromBooleanVector(const BoolVector& vector, Zentor::IContext* context) {
  return ArrayFromVector(vector, context);
}

JSONObjRef JSONArrayFromNumberVector(const NumberVector& vector, Zentor::IContext* context) {
  return ArrayFromVector(vector, context);
}

JSONObjRef JSONArrayFromStringVector(const StringVector& vector, Zentor::IContext* context) {
  return ArrayFromVector(vector, context);
}

namespace {

// The elements of the array member `key` of an object root, each read as
// T, in a new host vector; empty when the member is missing or no array,
// null only without a context.
template <class T>
Zentor::AutoRefPtr<Zentor::IVector<T> const> MemberArrayAs(const JSONObjRef& json,
                                                           const std::string& key,
                                                           Zentor::IContext* context) {
  auto result = NewVector<T>(context);
  const JsonValue* member = result ? PeekMember(json->fRoot.get(), key) : nullptr;
  if (!member || member->Type() != JsonValue::Array) return result;
  const auto* array = static_cast<const JsonArray*>(member);
  for (size_t i = 0; i < array->Size(); ++i) {
    if constexpr (std::is_same_v<T, bool>)
      result->PushBack(array->AtIndexAsBool(i));
    else if constexpr (std::is_same_v<T, double>)
      result->PushBack(array->AtIndexAsReal(i));
    else
      result->PushBack(array->AtIndexAsString(i));
  }
  return result;
}

}  // namespace

BoolVector GetAsBoolVector(const JSONObjRef& json, const std::string& key,
                           Zentor::IContext* context) {
  return MemberArrayAs<bool>(json, key, context);
}

NumberVector GetAsNumberVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context) {
  return MemberArrayAs<double>(json, key, context);
}

StringVector GetAsStringVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context) {
  return MemberArrayAs<std::string>(json, key, context);
}

namespace {

// The first object element of an array root whose member `key` passes
// `matches`; null when there is none.
template <class Match>
JSONObjRef FindElement(const JSONObjRef& json, const std::string& key, unsigned int jsonTypeId,
                       Zentor::IContext* context, Match&& matches) {
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  const JsonArray* array = AsArray(json->fRoot);
  if (!array) return result;
  for (JsonValue* element : array->Values()) {
    if (!element) continue;
    const JsonValue* member = PeekMember(element, key);
    if (member && matches(*member)) {
      result->fRoot = mjson::JsonShare(element);
      break;
    }
  }
  return result;
}

}  // namespace

JSONObjRef ElementMatchingString(const JSONObjRef& json, const std::string& key,
                                 const std::string& value, Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  std::string text;
  return FindElement(json, key, jsonTypeId, context, [&](const JsonValue& member) {
    member.GetAsString(text);
    return text == value;
  });
}

JSONObjRef ElementMatchingNumber(const JSONObjRef& json, const std::string& key, double value,
                                 Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  std::string text;
  return FindElement(json, key, jsonTypeId, context, [&](const JsonValue& member) {
    double real;
    if (member.GetAsReal(real)) return real == value;
    // Text that does not begin with a number makes std::stoi throw; the
    // exception leaves the function on purpose.
    member.GetAsString(text);
    return static_cast<double>(std::stoi(text)) == value;
  });
}
