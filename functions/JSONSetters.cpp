// Script functions that write nodes by path (JSON.SetSubNode) and members
// by key (JSON.Set, JSON.SetNull), and the nodes they make from script
// values.
#include <cstdint>
#include <string>

#include "JSONFunctions.h"
#include "zentorMacros.h"

namespace JSONFunctions {

// ---------------------------------------------------------------------------
// Making nodes from script values, and writing them as object members.

ValuePtr CreateJSONObject_internal(bool value) {
  return value ? ValuePtr(new JsonTrue()) : ValuePtr(new JsonFalse());
}
ValuePtr CreateJSONObject_internal(double value) {
  return ValuePtr(new JsonReal(value, 0));
}
ValuePtr CreateJSONObject_internal(long long value) {
  return ValuePtr(new JsonInteger(value));
}
ValuePtr CreateJSONObject_internal(unsigned long long value) {
  return ValuePtr(new JsonInteger(value, false));
}
ValuePtr CreateJSONObject_internal(const std::string& value) {
  return ValuePtr(new JsonString(value));
}
ValuePtr CreateJSONObject_internal(const JSONObjRef& value) {
  return value->fRoot;
}

namespace {

ValuePtr ArrayFromVector(const auto& vector) {
  auto* array = new JsonArray();
  ValuePtr result(array);
  AppendVector(*array, vector, false);
  return result;
}

}  // namespace

ValuePtr CreateJSONObject_internal(const BoolVector& value) {
  return ArrayFromVector(value);
}
ValuePtr CreateJSONObject_internal(const NumberVector& value) {
  return ArrayFromVector(value);
}
ValuePtr CreateJSONObject_internal(const StringVector& value) {
  return ArrayFromVector(value);
}

bool InsertValue_internal(JsonObject* object, const std::string& key, bool value) {
  return object->InsertBool(key, value, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, double value) {
  return object->InsertReal(key, value, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, long long value) {
  return object->InsertInteger(key, value, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, unsigned long long value) {
  return object->InsertInteger(key, value, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, const std::string& value) {
  return object->InsertString(key, value, false, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, const JSONObjRef& value) {
  return object->InsertValue(key, value->fRoot, false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, const BoolVector& value) {
  return object->InsertValue(key, ArrayFromVector(value), false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, const NumberVector& value) {
  return object->InsertValue(key, ArrayFromVector(value), false);
}
bool InsertValue_internal(JsonObject* object, const std::string& key, const StringVector& value) {
  return object->InsertValue(key, ArrayFromVector(value), false);
}

}  // namespace JSONFunctions

using namespace JSONFunctions;

namespace {

const std::string kFormatDouble = "double";
const std::string kFormatInt64 = "int64";
const std::string kFormatUInt64 = "uint64";
const std::string kFormatInt32 = "int32";
const std::string kFormatUInt32 = "uint32";

// The host's number as a signed 64-bit integer, truncated toward zero.
// NaN, both infinities and values outside the range give the smallest
// integer, which is what the hardware conversion gives, instead of
// undefined behaviour.
long long NumberToInt64(double value) {
  if (!(value >= -Zentor::kTwo63 && value < Zentor::kTwo63)) return INT64_MIN;
  return static_cast<long long>(value);
}

// Picks the number kind named by a format text and hands the converted
// number to `write`; null after reporting an unknown format. "int32" and
// "uint32" are neither narrowed nor range-checked: they are the 64-bit kinds.
template <class Write>
JSONObjRef WithNumberFormat(double value, const std::string& format, Zentor::IContext* context,
                            Write&& write) {
  if (format == kFormatDouble) return write(value);
  if (format == kFormatInt64 || format == kFormatInt32) return write(NumberToInt64(value));
  if (format == kFormatUInt64 || format == kFormatUInt32)
    return write(static_cast<unsigned long long>(Zentor::NumberToUInt64(value)));
  Report(context, kSeverityWarning, kErrorNoObject, "Unknown number format!");
  return JSONObjRef();
}

}  // namespace

// ---------------------------------------------------------------------------
// JSON.SetSubNode

#define ZENTOR_SET_SUBNODE_PAIR(Kind, ParamType)                                                 \
  JSONObjRef SetNodePath##Kind(const JSONObjRef& json, const std::string& path, ParamType value, \
                               Zentor::IContext* context) {                                      \
    return SetNodePath(json, path, value, context);                                              \
  }                                                                                              \
  JSONObjRef SetNodeVector##Kind(const JSONObjRef& json, const StringVector& path,               \
                                 ParamType value, Zentor::IContext* context) {                   \
    return SetNodeVector(json, path, value, context);                                            \
  }

ZENTOR_SET_SUBNODE_PAIR(Boolean, bool)
ZENTOR_SET_SUBNODE_PAIR(Number, double)
ZENTOR_SET_SUBNODE_PAIR(String, const std::string&)
ZENTOR_SET_SUBNODE_PAIR(Json, const JSONObjRef&)
ZENTOR_SET_SUBNODE_PAIR(BooleanArray, const BoolVector&)
ZENTOR_SET_SUBNODE_PAIR(NumberArray, const NumberVector&)
ZENTOR_SET_SUBNODE_PAIR(StringArray, const StringVector&)
#undef ZENTOR_SET_SUBNODE_PAIR

JSONObjRef SetNodePathNumberToFormat(const JSONObjRef& json, const std::string& path, double value,
                                     const std::string& format, Zentor::IContext* context) {
  return WithNumberFormat(value, format, context,
                          [&](auto number) { return SetNodePath(json, path, number, context); });
}

JSONObjRef SetNodeVectorNumberToFormat(const JSONObjRef& json, const StringVector& path,
                                       double value, const std::string& format,
                                       Zentor::IContext* context) {
  return WithNumberFormat(value, format, context,
                          [&](auto number) { return SetNodeVector(json, path, number, context); });
}

// ---------------------------------------------------------------------------
// JSON.Set and JSON.SetNull

namespace {

const std::string kSetFailed = "Can't set key/value pair into JSON";
const std::string kNotAnObject =
    "Can't set key/value pair into JSON, JSON element is not a JSON object";
const std::string kKeyNotUTF8 =
    "Can't set key/value pair into JSON, JSON key is not a valid UTF8-string";

// The setters treat a null document as an empty object.
void NullToObject(ValuePtr& root) {
  if (IsType(root, JsonValue::Null)) root = ValuePtr(new JsonObject(false));
}

template <class T>
JSONObjRef SetValue(const JSONObjRef& json, const std::string& key, const T& value,
                    Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  ValuePtr& root = result->fRoot;
  if (!root) {
    Report(context, kSeverityError, kErrorException, kSetFailed);
    return result;
  }
  NullToObject(root);
  if (root->Type() != JsonValue::Object) {
    Report(context, kSeverityError, kErrorException, kNotAnObject);
    return result;
  }
  if (!InsertValue_internal(static_cast<JsonObject*>(root.get()), key, value)) {
    // A refused insert is blamed on the value whenever the key itself is
    // fine, whatever the kind of the value.
    Report(context, kSeverityError, kErrorException,
           JsonValue::IsUTF8(key) ? "Can't set key/value pair into JSON, value for key \"" + key +
                                        "\" is not a valid UTF8-string"
                                  : kKeyNotUTF8);
  }
  return result;
}

template <class Vector>
JSONObjRef SetArray(const JSONObjRef& json, const std::string& key, const Vector& vector,
                    Zentor::IContext* context) {
  if (!vector) {
    Report(context, kSeverityWarning, kErrorNoObject, "No value given!");
    return JSONObjRef();
  }
  JSONObjRef result = CopyOf(json);
  ValuePtr& root = result->fRoot;
  NullToObject(root);
  if (!IsType(root, JsonValue::Object)) {
    Report(context, kSeverityWarning, kErrorException, kNotAnObject);
    return JSONObjRef();
  }
  auto* array = new JsonArray();
  ValuePtr node(array);
  // A string that is not UTF-8 stops the array, and the call gives up
  // without a message.
  if (!AppendVector(*array, vector, true)) return JSONObjRef();
  if (!static_cast<JsonObject*>(root.get())->InsertValue(key, node, false)) {
    Report(context, kSeverityWarning, kErrorException, kKeyNotUTF8);
    return JSONObjRef();
  }
  return result;
}

}  // namespace

JSONObjRef SetBoolean(const JSONObjRef& json, const std::string& key, bool value,
                      Zentor::IContext* context) {
  return SetValue(json, key, value, context);
}
JSONObjRef SetNumber(const JSONObjRef& json, const std::string& key, double value,
                     Zentor::IContext* context) {
  return SetValue(json, key, value, context);
}
JSONObjRef SetNumberToFormat(const JSONObjRef& json, const std::string& key, double value,
                             const std::string& format, Zentor::IContext* context) {
  return WithNumberFormat(value, format, context,
                          [&](auto number) { return SetValue(json, key, number, context); });
}
JSONObjRef SetString(const JSONObjRef& json, const std::string& key, const std::string& value,
                     Zentor::IContext* context) {
  return SetValue(json, key, value, context);
}
JSONObjRef SetJson(const JSONObjRef& json, const std::string& key, const JSONObjRef& value,
                   Zentor::IContext* context) {
  return SetValue(json, key, value, context);
}
JSONObjRef SetBooleanArray(const JSONObjRef& json, const std::string& key, const BoolVector& value,
                           Zentor::IContext* context) {
  return SetArray(json, key, value, context);
}
JSONObjRef SetNumberArray(const JSONObjRef& json, const std::string& key, const NumberVector& value,
                          Zentor::IContext* context) {
  return SetArray(json, key, value, context);
}
JSONObjRef SetStringArray(const JSONObjRef& json, const std::string& key, const StringVector& value,
                          Zentor::IContext* context) {
  return SetArray(json, key, value, context);
}

JSONObjRef SetNull(const JSONObjRef& json, const std::string& key, Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  ValuePtr& root = result->fRoot;
  if (!root) {
    Report(context, kSeverityError, kErrorException, kSetFailed);
    return result;
  }
  NullToObject(root);
  if (root->Type() != JsonValue::Object) {
    Report(context, kSeverityError, kErrorException, kNotAnObject);
    return JSONObjRef();
  }
  if (!static_cast<JsonObject*>(root.get())->InsertNull(key, false)) {
    Report(context, kSeverityError, kErrorException, kKeyNotUTF8);
    return JSONObjRef();
  }
  return result;
}
