// The script functions of the JSON module and what their families share.
//
// Every script function is a plain C++ function with typed parameters; the
// declaration table in JSON.cpp turns each into an exported entry point whose
// frame converts the host's variants (see zentorMacros.h). The functions are
// defined by family: JSONConversion.cpp, JSONInspection.cpp, JSONPaths.cpp,
// JSONSetters.cpp, JSONMembers.cpp and JSONArrays.cpp.
//
// Ownership rules that every function keeps:
// - a function that changes a document works on a deep copy of its argument
//   and returns the copy; the argument is never changed;
// - a function that reads returns a new JSON value whose root is the found
//   node itself, shared with the argument;
// - JSON values passed in to be stored (setters, array functions) are stored
//   as shared nodes, not copied. This is safe because no function ever
//   changes a node in place.
#pragma once

#include <string>
#include <type_traits>

#include "JSONCommon.h"
#include "JSONObj.h"
#include "Mjson.h"
#include "ZentorSDK.h"

using JSONObjRef = Zentor::AutoRefPtr<JSONObj>;
using BoolVector = Zentor::AutoRefPtr<Zentor::IVector<bool> const>;
using NumberVector = Zentor::AutoRefPtr<Zentor::IVector<double> const>;
using StringVector = Zentor::AutoRefPtr<Zentor::IVector<std::string> const>;

// ---------------------------------------------------------------------------
// What the families share.

namespace JSONFunctions {

// Error codes and severities of the reports; the codes are part of what
// scripts see.
inline const std::string kErrorParse = "Error.JSON.Parse";
inline const std::string kErrorNoObject = "Error.JSON.NoObject";
inline const std::string kErrorWrongPath = "Error.JSON.WrongPath";
inline const std::string kErrorException = "Error.JSON.Exception";

constexpr Zentor::ErrorSeverity kSeverityWarning = Zentor::ErrorSeverity::Warning;
constexpr Zentor::ErrorSeverity kSeverityError = Zentor::ErrorSeverity::Error;

// Reports to the host under the module's name; nothing without a context.
inline void Report(Zentor::IContext* context, Zentor::ErrorSeverity severity,
                   const std::string& code, const std::string& message) {
  if (context) context->TriggerErrorHandler(severity, kJSONName, code, message);
}

// A changed copy: a new JSON value whose root is a deep copy of the argument's.
inline JSONObjRef CopyOf(const JSONObjRef& json) {
  return NewJSONObj(*json);
}

// The member `key` of an object or compiled object, without a new
// reference; null for any other value, no value or a missing member.
JsonValue* PeekMember(const JsonValue* container, const std::string& key);

// A new empty host vector for a result; null only without a context.
template <class T>
Zentor::AutoRefPtr<Zentor::IVector<T>> NewVector(Zentor::IContext* context) {
  if (!context) return nullptr;
  if constexpr (std::is_same_v<T, bool>)
    return context->CreateBooleanVector();
  else if constexpr (std::is_same_v<T, double>)
    return context->CreateNumberVector();
  else
    return context->CreateStringVector();
}

// Appends the elements of a host vector to `array`. With
// `stopAtInvalidString`, a string that is not UTF-8 stops the filling and
// gives false; otherwise the array's own rule drops such a string.
template <class T>
bool AppendVector(JsonArray& array, const Zentor::AutoRefPtr<Zentor::IVector<T> const>& vector,
                  bool stopAtInvalidString) {
  const size_t size = vector->GetSize();
  for (size_t i = 0; i < size; ++i) {
    if constexpr (std::is_same_v<T, bool>) {
      array.AddBool(vector->At(i));
    } else if constexpr (std::is_same_v<T, double>) {
      array.AddReal(vector->At(i));
    } else {
      bool added = false;
      array.AddString(vector->At(i), &added);
      if (!added && stopAtInvalidString) return false;
    }
  }
  return true;
}

// A node for a script value, one overload per value kind, so that the
// setter templates serve all kinds with one body. A JSON value gives its
// root, shared.
ValuePtr CreateJSONObject_internal(bool value);
ValuePtr CreateJSONObject_internal(double value);
ValuePtr CreateJSONObject_internal(long long value);
ValuePtr CreateJSONObject_internal(unsigned long long value);
ValuePtr CreateJSONObject_internal(const std::string& value);
ValuePtr CreateJSONObject_internal(const JSONObjRef& value);
ValuePtr CreateJSONObject_internal(const BoolVector& value);
ValuePtr CreateJSONObject_internal(const NumberVector& value);
ValuePtr CreateJSONObject_internal(const StringVector& value);

// Writes a script value as the member `key` of `object`; false when the
// object refuses it (a key or string value that is not UTF-8).
bool InsertValue_internal(JsonObject* object, const std::string& key, bool value);
bool InsertValue_internal(JsonObject* object, const std::string& key, double value);
bool InsertValue_internal(JsonObject* object, const std::string& key, long long value);
bool InsertValue_internal(JsonObject* object, const std::string& key, unsigned long long value);
bool InsertValue_internal(JsonObject* object, const std::string& key, const std::string& value);
bool InsertValue_internal(JsonObject* object, const std::string& key, const JSONObjRef& value);
bool InsertValue_internal(JsonObject* object, const std::string& key, const BoolVector& value);
bool InsertValue_internal(JsonObject* object, const std::string& key, const NumberVector& value);
bool InsertValue_internal(JsonObject* object, const std::string& key, const StringVector& value);

// The writing walks of JSON.SetSubNode and JSON.RemoveSubNode, on a deep
// copy of `json`: every step but the last must exist; the last one writes
// `value`, or removes the node for T = Removal. Defined in JSONPaths.cpp
// for every value kind of the setters.
using Removal = void*;
template <class T>
JSONObjRef SetNodePath(const JSONObjRef& json, const std::string& path, const T& value,
                       Zentor::IContext* context);
template <class T>
JSONObjRef SetNodeVector(const JSONObjRef& json, const StringVector& path, const T& value,
                         Zentor::IContext* context);

}  // namespace JSONFunctions

// ---------------------------------------------------------------------------
// The script functions, by family, as the declaration table names them.

// JSONConversion.cpp: text, MessagePack and new documents.
std::string JsonToString(const JSONObjRef& json);
std::string JsonToFormattedString(const JSONObjRef& json, const std::string& indent);
JSONObjRef StringToJson(const std::string& text, Zentor::IContext* context);
JSONObjRef StringToJsonIgnoreErrors(const std::string& text, Zentor::IContext* context);
bool IsValid(const std::string& text, Zentor::IContext* context);
JSONObjRef MsgPackToJson(const Zentor::AutoRefPtr<Zentor::IDataRef>& data,
                         Zentor::IContext* context);
Zentor::AutoRefPtr<Zentor::IDataRef> JsonToMsgPack(const JSONObjRef& json);
JSONObjRef CreateEmptyArray(Zentor::IContext* context);
JSONObjRef CreateEmptyObject(Zentor::IContext* context);
JSONObjRef CreateNull(Zentor::IContext* context);

// JSONInspection.cpp: the kind, size and value of a whole document.
unsigned long long JsonSize(const JSONObjRef& json, Zentor::IContext* context);
bool IsEmpty(const JSONObjRef& json);
bool Empty(const JSONObjRef& json);
bool IsNull(const JSONObjRef& json);
bool IsBool(const JSONObjRef& json);
bool IsNumber(const JSONObjRef& json);
bool IsDouble(const JSONObjRef& json);
bool IsInt64(const JSONObjRef& json);
bool IsString(const JSONObjRef& json);
bool IsArray(const JSONObjRef& json);
bool IsObject(const JSONObjRef& json);
bool AsBool(const JSONObjRef& json);
double AsNumber(const JSONObjRef& json);
double AsDouble(const JSONObjRef& json);
long long AsInt64(const JSONObjRef& json);
std::string AsString(const JSONObjRef& json);
bool Equals(const JSONObjRef& first, const JSONObjRef& second);

// JSONPaths.cpp: finding and removing nodes by path.
JSONObjRef FindNodePath(const JSONObjRef& json, const std::string& path, Zentor::IContext* context);
JSONObjRef GetFromNodePath(const JSONObjRef& json, const std::string& path,
                           Zentor::IContext* context);
JSONObjRef GetFromNodeVector(const JSONObjRef& json, const StringVector& path,
                             Zentor::IContext* context);
JSONObjRef RemoveNodePath(const JSONObjRef& json, const std::string& path,
                          Zentor::IContext* context);
JSONObjRef RemoveNodeVector(const JSONObjRef& json, const StringVector& path,
                            Zentor::IContext* context);

// JSONSetters.cpp: writing nodes by path (JSON.SetSubNode) and members by
// key (JSON.Set, JSON.SetNull).
JSONObjRef SetNodePathBoolean(const JSONObjRef& json, const std::string& path, bool value,
                              Zentor::IContext* context);
JSONObjRef SetNodePathNumber(const JSONObjRef& json, const std::string& path, double value,
                             Zentor::IContext* context);
JSONObjRef SetNodePathNumberToFormat(const JSONObjRef& json, const std::string& path, double value,
                                     const std::string& format, Zentor::IContext* context);
JSONObjRef SetNodePathString(const JSONObjRef& json, const std::string& path,
                             const std::string& value, Zentor::IContext* context);
JSONObjRef SetNodePathJson(const JSONObjRef& json, const std::string& path, const JSONObjRef& value,
                           Zentor::IContext* context);
JSONObjRef SetNodePathBooleanArray(const JSONObjRef& json, const std::string& path,
                                   const BoolVector& value, Zentor::IContext* context);
JSONObjRef SetNodePathNumberArray(const JSONObjRef& json, const std::string& path,
                                  const NumberVector& value, Zentor::IContext* context);
JSONObjRef SetNodePathStringArray(const JSONObjRef& json, const std::string& path,
                                  const StringVector& value, Zentor::IContext* context);
JSONObjRef SetNodeVectorBoolean(const JSONObjRef& json, const StringVector& path, bool value,
                                Zentor::IContext* context);
JSONObjRef SetNodeVectorNumber(const JSONObjRef& json, const StringVector& path, double value,
                               Zentor::IContext* context);
JSONObjRef SetNodeVectorNumberToFormat(const JSONObjRef& json, const StringVector& path,
                                       double value, const std::string& format,
                                       Zentor::IContext* context);
JSONObjRef SetNodeVectorString(const JSONObjRef& json, const StringVector& path,
                               const std::string& value, Zentor::IContext* context);
JSONObjRef SetNodeVectorJson(const JSONObjRef& json, const StringVector& path,
                             const JSONObjRef& value, Zentor::IContext* context);
JSONObjRef SetNodeVectorBooleanArray(const JSONObjRef& json, const StringVector& path,
                                     const BoolVector& value, Zentor::IContext* context);
JSONObjRef SetNodeVectorNumberArray(const JSONObjRef& json, const StringVector& path,
                                    const NumberVector& value, Zentor::IContext* context);
JSONObjRef SetNodeVectorStringArray(const JSONObjRef& json, const StringVector& path,
                                    const StringVector& value, Zentor::IContext* context);
JSONObjRef SetBoolean(const JSONObjRef& json, const std::string& key, bool value,
                      Zentor::IContext* context);
JSONObjRef SetNumber(const JSONObjRef& json, const std::string& key, double value,
                     Zentor::IContext* context);
JSONObjRef SetNumberToFormat(const JSONObjRef& json, const std::string& key, double value,
                             const std::string& format, Zentor::IContext* context);
JSONObjRef SetString(const JSONObjRef& json, const std::string& key, const std::string& value,
                     Zentor::IContext* context);
JSONObjRef SetJson(const JSONObjRef& json, const std::string& key, const JSONObjRef& value,
                   Zentor::IContext* context);
JSONObjRef SetBooleanArray(const JSONObjRef& json, const std::string& key, const BoolVector& value,
                           Zentor::IContext* context);
JSONObjRef SetNumberArray(const JSONObjRef& json, const std::string& key, const NumberVector& value,
                          Zentor::IContext* context);
JSONObjRef SetStringArray(const JSONObjRef& json, const std::string& key, const StringVector& value,
                          Zentor::IContext* context);
JSONObjRef SetNull(const JSONObjRef& json, const std::string& key, Zentor::IContext* context);

// JSONMembers.cpp: reading, testing and removing object members.
JSONObjRef RemoveMember(const JSONObjRef& json, const std::string& key);
JSONObjRef JsonObjectGet(const JSONObjRef& json, const std::string& key, Zentor::IContext* context);
bool GetAsBool(const JSONObjRef& json, const std::string& key, Zentor::IContext* context);
double GetAsNumber(const JSONObjRef& json, const std::string& key, Zentor::IContext* context);
std::string GetAsString(const JSONObjRef& json, const std::string& key, Zentor::IContext* context);
bool HasMember(const JSONObjRef& json, const std::string& key);
StringVector GetKeys(const JSONObjRef& json, Zentor::IContext* context);

// JSONArrays.cpp: elements, array changes, searches, and arrays to and from
// host vectors.
JSONObjRef JsonArrayAt(const JSONObjRef& json, unsigned long long index, Zentor::IContext* context);
JSONObjRef JsonArrayAppendBoolean(const JSONObjRef& json, bool value, Zentor::IContext* context);
JSONObjRef JsonArrayAppendNumber(const JSONObjRef& json, double value, Zentor::IContext* context);
JSONObjRef JsonArrayAppendString(const JSONObjRef& json, const std::string& value,
                                 Zentor::IContext* context);
JSONObjRef JsonArrayAppendJSON(const JSONObjRef& json, const JSONObjRef& value,
                               Zentor::IContext* context);
JSONObjRef JsonArrayRemove(const JSONObjRef& json, unsigned long long position,
                           Zentor::IContext* context);
JSONObjRef JsonArrayInsertAtJSON(const JSONObjRef& json, unsigned long long position,
                                 const JSONObjRef& value, Zentor::IContext* context);
JSONObjRef JsonArrayReplaceAtJSON(const JSONObjRef& json, unsigned long long position,
                                  const JSONObjRef& value, Zentor::IContext* context);
JSONObjRef UnionArrays(const JSONObjRef& first, const JSONObjRef& second,
                       Zentor::IContext* context);
JSONObjRef JSONArrayFromBooleanVector(const BoolVector& vector, Zentor::IContext* context);
JSONObjRef JSONArrayFromNumberVector(const NumberVector& vector, Zentor::IContext* context);
JSONObjRef JSONArrayFromStringVector(const StringVector& vector, Zentor::IContext* context);
BoolVector GetAsBoolVector(const JSONObjRef& json, const std::string& key,
                           Zentor::IContext* context);
NumberVector GetAsNumberVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context);
StringVector GetAsStringVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context);
JSONObjRef ElementMatchingString(const JSONObjRef& json, const std::string& key,
                                 const std::string& value, Zentor::IContext* context);
JSONObjRef ElementMatchingNumber(const JSONObjRef& json, const std::string& key, double value,
                                 Zentor::IContext* context);
