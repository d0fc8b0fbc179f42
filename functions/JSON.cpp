// The script functions of the JSON module.
//
// Every function here is a plain C++ function with typed parameters; the
// declaration table at the end of this file turns each into an exported
// entry point whose frame converts the host's variants (see zentorMacros.h).
//
// Ownership rules that every function keeps:
// - a function that changes a document works on a deep copy of its argument
//   and returns the copy; the argument is never changed;
// - a function that reads returns a new JSON value whose root is the found
//   node itself, shared with the argument;
// - JSON values passed in to be stored (setters, array functions) are stored
//   as shared nodes, not copied. This is safe because no function ever
//   changes a node in place.
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "JSONCommon.h"
#include "JSONObj.h"
#include "Mjson.h"
#include "ZentorData.h"
#include "zentorMacros.h"

using JSONObjRef = Zentor::AutoRefPtr<JSONObj>;
using BoolVector = Zentor::AutoRefPtr<Zentor::IVector<bool> const>;
using NumberVector = Zentor::AutoRefPtr<Zentor::IVector<double> const>;
using StringVector = Zentor::AutoRefPtr<Zentor::IVector<std::string> const>;

namespace {

// Constants built once at load time, next to the declaration table, so that
// no call has to build them again.
const std::string kReasonNoObject = "No JSON object given!";
const std::string kFormatDouble = "double";
const std::string kFormatInt64 = "int64";
const std::string kFormatUInt64 = "uint64";
const std::string kFormatInt32 = "int32";
const std::string kFormatUInt32 = "uint32";
const std::string kKeyType = "type";
const std::string kKeyJSON = "JSON";
const std::string kKeyValue = "value";

const std::string kErrorParse = "Error.JSON.Parse";
const std::string kErrorNoObject = "Error.JSON.NoObject";
const std::string kErrorWrongPath = "Error.JSON.WrongPath";
const std::string kErrorException = "Error.JSON.Exception";

constexpr Zentor::ErrorSeverity kSeverityWarning = Zentor::ErrorSeverity::Warning;
constexpr Zentor::ErrorSeverity kSeverityError = Zentor::ErrorSeverity::Error;

void Report(Zentor::IContext* context, Zentor::ErrorSeverity severity, const std::string& code,
            const std::string& message) {
  if (context) context->TriggerErrorHandler(severity, kJSONName, code, message);
}

// A new owner of a node that somebody else already owns.
ValuePtr Share(JsonValue* node) {
  if (node) node->AddRef();
  return ValuePtr(node);
}

// The member `key` of an object or compiled object root, without a new
// reference; null for any other root or a missing member.
const JsonValue* PeekMember(const ValuePtr& root, const std::string& key) {
  if (!root) return nullptr;
  if (root->Type() == JsonValue::Object)
    return static_cast<const JsonObject*>(root.get())->Peek(key);
  if (root->Type() == JsonValue::CompiledObject) return root->GetSubNode(key);
  return nullptr;
}

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

// A changed copy: a new JSON value whose root is a deep copy of the argument's.
JSONObjRef CopyOf(const JSONObjRef& json) {
  return NewJSONObj(*json);
}

// The host's number as a signed 64-bit integer, truncated toward zero.
// NaN, both infinities and values outside the range give the smallest
// integer, which is what the hardware conversion gives, instead of
// undefined behaviour.
long long NumberToInt64(double value) {
  if (!(value >= -Zentor::kTwo63 && value < Zentor::kTwo63)) return INT64_MIN;
  return static_cast<long long>(value);
}

// Decimal text to int, as the index of an array step. std::stoi raises
// std::out_of_range for "99999999999" and std::invalid_argument for text
// that does not start with a number; both are left to the caller's caller.
int StepToIndex(std::string_view step) {
  return std::stoi(std::string(step));
}

}  // namespace

// ---------------------------------------------------------------------------
// Conversion functions

std::string JsonToFormattedString(const JSONObjRef& json, const std::string& indent) {
  std::string result;
  if (!json->fRoot) return result;
  if (indent.empty())
    json->fRoot->WriteToString(result);
  else
    json->fRoot->WriteToStringPretty(result, indent, "\n");
  return result;
}

std::string JsonToString(const JSONObjRef& json) {
  return JsonToFormattedString(json, std::string());
}

JSONObjRef StringToJsonImpl(const std::string& text, bool ignoreErrors, Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  ParserContext parserContext;
  parserContext.fKeepObjectOrder = true;
  ValuePtr value = JsonValue::ReadFromString(text, &parserContext, nullptr);
  if (value) {
    result->fRoot = std::move(value);
    return result;
  }
  if (ignoreErrors) return result;
  Report(context, kSeverityError, kErrorParse,
         "JSON parse error in line " + std::to_string(parserContext.fLine) + ": " +
             parserContext.fError);
  return JSONObjRef();
}

JSONObjRef StringToJson(const std::string& text, Zentor::IContext* context) {
  return StringToJsonImpl(text, false, context);
}

JSONObjRef StringToJsonIgnoreErrors(const std::string& text, Zentor::IContext* context) {
  return StringToJsonImpl(text, true, context);
}

// Validity is decided by exactly the parse that JSON.FromString makes; the
// parsed value is dropped at once.
bool IsValid(const std::string& text, Zentor::IContext*) {
  ParserContext parserContext;
  parserContext.fKeepObjectOrder = true;
  return static_cast<bool>(JsonValue::ReadFromString(text, &parserContext, nullptr));
}

JSONObjRef MsgPackToJson(const Zentor::AutoRefPtr<Zentor::IDataRef>& data,
                         Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  if (!data) return result;
  std::string bytes;
  const unsigned long long size = data->GetSize();
  if (const char* direct = static_cast<const char*>(data->GetData())) {
    bytes.assign(direct, size);
  } else {
    bytes.resize(size);
    if (data->Read(bytes.data(), size, 0) != size) return result;
  }
  // A failed decoding leaves the document without any value, on purpose:
  // it then reads as nothing at all rather than as null.
  result->fRoot = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr);
  return result;
}

Zentor::AutoRefPtr<Zentor::IDataRef> JsonToMsgPack(const JSONObjRef& json) {
  if (json->fRoot) {
    std::string buffer;
    if (json->fRoot->WriteToMsgPack(buffer)) return NewData(std::move(buffer));
  }
  return NewData(std::string());
}

// ---------------------------------------------------------------------------
// Inspection and typed reads

JSONObjRef CreateEmptyArray(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Array, context);
}

JSONObjRef CreateEmptyObject(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Object, context);
}

JSONObjRef CreateNull(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Null, context);
}

unsigned long JsonSize(const JSONObjRef& json, Zentor::IContext* context) {
  const ValuePtr& root = json->fRoot;
  if (!root) {
    Report(context, kSeverityWarning, kErrorNoObject, kReasonNoObject);
    return 0;
  }
  return ContainerSize(*root);
}

bool IsEmpty(const JSONObjRef& json) {
  return IsEmptyValue(json->fRoot.get());
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

// ---------------------------------------------------------------------------
// Making nodes from script values, and writing them as object members.
// One overload per value kind, so that every template family below serves
// all kinds with one body.

ValuePtr CreateJSONObject_internal(bool value) {
  return value ? ValuePtr(new JsonTrue()) : ValuePtr(new JsonFalse());
}
ValuePtr CreateJSONObject_internal(double value) {
  return ValuePtr(new JsonReal(value, 0));
}
ValuePtr CreateJSONObject_internal(long long value) {
  return ValuePtr(new JsonInteger(value));
}
ValuePtr CreateJSONObject_internal(int value) {
  return ValuePtr(new JsonInteger(static_cast<long long>(value)));
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

template <class T>
ValuePtr ArrayFromVector(const Zentor::AutoRefPtr<Zentor::IVector<T> const>& vector) {
  auto* array = new JsonArray();
  ValuePtr result(array);
  const size_t size = vector->GetSize();
  for (size_t i = 0; i < size; ++i) {
    if constexpr (std::is_same_v<T, bool>)
      array->AddBool(vector->At(i));
    else if constexpr (std::is_same_v<T, double>)
      array->AddReal(vector->At(i));
    else
      array->AddString(vector->At(i));
  }
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
bool InsertValue_internal(JsonObject* object, const std::string& key, int value) {
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

// ---------------------------------------------------------------------------
// Node paths.
//
// A path is one text ("a/0/b", one leading "/" ignored, no escaping) or a
// host vector of steps taken as they stand. Both forms are read through the
// same small step source so that one walk serves both; they differ only in
// the messages of the writing walk.

namespace {

class TextPath {
 public:
  explicit TextPath(const std::string& path) : fPath(path), fSteps(path) {}
  bool Empty() const { return fSteps.Done(); }
  // Cuts the next step off; `last` tells whether nothing remains after it.
  bool Next(std::string_view& step, bool& last) {
    if (!fSteps.Next(step)) return false;
    last = fSteps.Done();
    return true;
  }

  std::string EmptyPath() const { return "JSON path " + fPath + " doesn't exist!"; }
  std::string DoesNotExist(std::string_view) const {
    return "JSON path " + fPath + " doesn't exist!";
  }
  std::string OutOfBounds() const {
    return "JSON path " + fPath + " with array index which is out of bounds!";
  }
  std::string LastOutOfBounds() const { return OutOfBounds(); }
  std::string CannotRetrieve(std::string_view) const {
    return "Couldn't retrieve JSON element from path " + fPath;
  }

 private:
  const std::string& fPath;
  PathSteps fSteps;
};

class VectorPath {
 public:
  explicit VectorPath(const StringVector& path) : fPath(path), fSize(path ? path->GetSize() : 0) {}
  bool Empty() const { return fSize == 0; }
  bool Next(std::string_view& step, bool& last) {
    if (fIndex >= fSize) return false;
    fStep = fPath->At(fIndex++);
    step = fStep;
    last = fIndex == fSize;
    return true;
  }

  std::string EmptyPath() const { return "JSON path vector is empty. Path doesn't exist!"; }
  std::string DoesNotExist(std::string_view) const { return "JSON path vector doesn't exist!"; }
  std::string OutOfBounds() const {
    return "JSON path vector with array index which is out of bounds!";
  }
  // The users know this text without the word "vector"; it stays as it is.
  std::string LastOutOfBounds() const {
    return "JSON path with array index which is out of bounds!";
  }
  std::string CannotRetrieve(std::string_view step) const {
    return "Couldn't retrieve JSON element from path " + std::string(step);
  }

 private:
  const StringVector& fPath;
  size_t fSize;
  size_t fIndex = 0;
  std::string fStep;
};

// The reading walk: no copy, no report; a failed walk gives null.
template <class Path>
JSONObjRef FindNode(const JSONObjRef& json, Path path, unsigned int jsonTypeId,
                    Zentor::IContext* context) {
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  if (path.Empty()) return result;
  JsonValue* current = json->fRoot.get();
  std::string_view step;
  bool last = false;
  while (path.Next(step, last)) {
    if (!current) return result;
    if (current->Type() == JsonValue::Array) {
      if (step.empty()) continue;
      if (!StartsWithDigit(step)) return result;
      const int index = StepToIndex(step);
      const auto& values = static_cast<const JsonArray*>(current)->Values();
      if (index < 0 || index >= static_cast<int>(values.size())) return result;
      current = values[static_cast<size_t>(index)];
    } else if (current->Type() == JsonValue::Object) {
      current = const_cast<JsonValue*>(static_cast<const JsonObject*>(current)->Peek(step));
    } else {
      return result;
    }
  }
  if (current) result->fRoot = Share(current);
  return result;
}

// Marks the removal instantiation of the writing walk.
using Removal = void*;

// The writing walk on a deep copy of the argument. Every step but the last
// must exist; the last one removes (T = void*) or writes the value.
// Intermediate nodes are never created.
template <class T, class Path>
JSONObjRef WriteNode(const JSONObjRef& json, Path path, const T& value, Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  auto fail = [&](const std::string& message) {
    Report(context, kSeverityWarning, kErrorWrongPath, message);
    return result;
  };
  if (path.Empty()) return fail(path.EmptyPath());
  JsonValue* current = result->fRoot.get();
  std::string_view step;
  bool last = false;
  while (path.Next(step, last)) {
    if (current && current->Type() == JsonValue::Array) {
      auto* array = static_cast<JsonArray*>(current);
      if (step.empty()) continue;
      if (!StartsWithDigit(step)) return fail(path.DoesNotExist(step));
      const int index = StepToIndex(step);
      const size_t size = array->Size();
      // index == size passes: the setters append there.
      if (index < 0 || static_cast<size_t>(index) > size) return fail(path.OutOfBounds());
      const size_t at = static_cast<size_t>(index);
      if (last) {
        if constexpr (std::is_same_v<T, Removal>) {
          if (at >= size) return fail(path.LastOutOfBounds());
          array->EraseAtIndex(at);
        } else {
          ValuePtr node = CreateJSONObject_internal(value);
          if (at == size)
            array->AddValue(std::move(node));
          else
            array->SetValueAtIndex(at, node);
        }
        return result;
      }
      current = at < size ? array->Values()[at] : nullptr;
      if (!current) return fail(path.CannotRetrieve(step));
    } else if (current && current->Type() == JsonValue::Object) {
      auto* object = static_cast<JsonObject*>(current);
      if (last) {
        const std::string key(step);
        if constexpr (std::is_same_v<T, Removal>) {
          if (!object->Erase(key)) return fail(path.DoesNotExist(step));
        } else {
          // A member that the insert refuses (a key that is not UTF-8) is
          // dropped without a message.
          InsertValue_internal(object, key, value);
        }
        return result;
      }
      current = const_cast<JsonValue*>(object->Peek(step));
      if (!current) return fail(path.CannotRetrieve(step));
    } else {
      return fail(path.DoesNotExist(step));
    }
  }
  return result;
}

}  // namespace

template <class T>
JSONObjRef SetNodePath(const JSONObjRef& json, const std::string& path, const T& value,
                       Zentor::IContext* context) {
  return WriteNode<T>(json, TextPath(path), value, context);
}

template <class T>
JSONObjRef SetNodeVector(const JSONObjRef& json, const StringVector& path, const T& value,
                         Zentor::IContext* context) {
  return WriteNode<T>(json, VectorPath(path), value, context);
}

JSONObjRef FindNodePath(const JSONObjRef& json, const std::string& path,
                        Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return FindNode(json, TextPath(path), jsonTypeId, context);
}

JSONObjRef GetFromNodePath(const JSONObjRef& json, const std::string& path,
                           Zentor::IContext* context) {
  return FindNodePath(json, path, context);
}

JSONObjRef GetFromNodeVector(const JSONObjRef& json, const StringVector& path,
                             Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return FindNode(json, VectorPath(path), jsonTypeId, context);
}

JSONObjRef RemoveNodePath(const JSONObjRef& json, const std::string& path,
                          Zentor::IContext* context) {
  return SetNodePath<Removal>(json, path, nullptr, context);
}

JSONObjRef RemoveNodeVector(const JSONObjRef& json, const StringVector& path,
                            Zentor::IContext* context) {
  return SetNodeVector<Removal>(json, path, nullptr, context);
}

// ---------------------------------------------------------------------------
// Setting sub-nodes

namespace {

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

#define ZENTOR_SET_SUBNODE_PAIR(Kind, ParamType, ValueExpr)                                      \
  JSONObjRef SetNodePath##Kind(const JSONObjRef& json, const std::string& path, ParamType value, \
                               Zentor::IContext* context) {                                      \
    return SetNodePath(json, path, ValueExpr, context);                                          \
  }                                                                                              \
  JSONObjRef SetNodeVector##Kind(const JSONObjRef& json, const StringVector& path,               \
                                 ParamType value, Zentor::IContext* context) {                   \
    return SetNodeVector(json, path, ValueExpr, context);                                        \
  }

ZENTOR_SET_SUBNODE_PAIR(Boolean, bool, value)
ZENTOR_SET_SUBNODE_PAIR(Number, double, value)
ZENTOR_SET_SUBNODE_PAIR(String, const std::string&, value)
ZENTOR_SET_SUBNODE_PAIR(Json, const JSONObjRef&, value)
ZENTOR_SET_SUBNODE_PAIR(BooleanArray, const BoolVector&, value)
ZENTOR_SET_SUBNODE_PAIR(NumberArray, const NumberVector&, value)
ZENTOR_SET_SUBNODE_PAIR(StringArray, const StringVector&, value)
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
// Object members

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

}  // namespace

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

namespace {

// Fills a new array from a host vector. Strings stop at the first one that
// is not UTF-8; the caller then gives up without a message.
template <class T>
bool SetArray_internal(JsonArray* array,
                       const Zentor::AutoRefPtr<Zentor::IVector<T> const>& vector) {
  const size_t size = vector->GetSize();
  for (size_t i = 0; i < size; ++i) {
    if constexpr (std::is_same_v<T, bool>) {
      array->AddBool(vector->At(i));
    } else if constexpr (std::is_same_v<T, double>) {
      array->AddReal(vector->At(i));
    } else {
      bool added = false;
      array->AddString(vector->At(i), &added);
      if (!added) return false;
    }
  }
  return true;
}

}  // namespace

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
  if (!SetArray_internal(array, vector)) return JSONObjRef();
  if (!static_cast<JsonObject*>(root.get())->InsertValue(key, node, false)) {
    Report(context, kSeverityWarning, kErrorException, kKeyNotUTF8);
    return JSONObjRef();
  }
  return result;
}

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

JSONObjRef RemoveMember(const JSONObjRef& json, const std::string& key) {
  JSONObjRef result = CopyOf(json);
  ValuePtr& root = result->fRoot;
  // Erasing a missing member does nothing, which is all that is wanted.
  if (IsType(root, JsonValue::Object))
    static_cast<JsonObject*>(root.get())->Erase(key);
  else if (IsType(root, JsonValue::CompiledObject))
    static_cast<JsonCompiledObject*>(root.get())->Erase(key);
  return result;
}

JSONObjRef JsonObjectGet(const JSONObjRef& json, const std::string& key,
                         Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  // A missing member reads as the empty string; JSON.HasMember tells the two apart.
  JSONObjRef result = NewJSONObj(jsonTypeId, JsonValue::String, context);
  if (const JsonValue* member = PeekMember(json->fRoot, key))
    result->fRoot = Share(const_cast<JsonValue*>(member));
  return result;
}

bool GetAsBool(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  bool result = false;
  bool converted;
  if (const JsonValue* member = PeekMember(json->fRoot, key))
    if (member->GetAsBool(converted)) result = converted;
  return result;
}

double GetAsNumber(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  double result = 0.0;
  double converted;
  if (const JsonValue* member = PeekMember(json->fRoot, key))
    if (member->GetAsReal(converted)) result = converted;
  return result;
}

std::string GetAsString(const JSONObjRef& json, const std::string& key, Zentor::IContext*) {
  std::string result;
  if (const JsonValue* member = PeekMember(json->fRoot, key)) member->GetAsString(result);
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

// ---------------------------------------------------------------------------
// Arrays

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

JSONObjRef JsonArrayAt(const JSONObjRef& json, unsigned long index, Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  if (!IsType(json->fRoot, JsonValue::Array)) return result;
  const auto& values = static_cast<const JsonArray*>(json->fRoot.get())->Values();
  if (index >= values.size()) {
    Report(context, kSeverityError, kErrorException, "Index is out of bounds");
  } else if (JsonValue* element = values[index]) {
    result->fRoot = Share(element);
  } else {
    Report(context, kSeverityError, kErrorException,
           "Error while accessing element at given index");
  }
  return result;
}

template <class T>
JSONObjRef JsonArrayAppend(const JSONObjRef& json, const T& value, Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  if (IsType(result->fRoot, JsonValue::Array))
    PushBack(static_cast<JsonArray*>(result->fRoot.get()), value);
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

JSONObjRef JsonArrayRemove(const JSONObjRef& json, unsigned long position,
                           Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  if (IsType(result->fRoot, JsonValue::Array)) {
    if (static_cast<JsonArray*>(result->fRoot.get())->Erase(position, 1) != 1)
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
  if (IsType(result->fRoot, JsonValue::Array))
    (static_cast<JsonArray*>(result->fRoot.get())->*Store)(position, value->fRoot);
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
  auto* array = static_cast<JsonArray*>(result->fRoot.get());
  for (JsonValue* element : static_cast<const JsonArray*>(second->fRoot.get())->Values())
    array->AddValue(Share(element));
  return result;
}

JSONObjRef JSONArrayFromBooleanVector(const BoolVector& vector, Zentor::IContext* context) {
  JSONObjRef result = CreateEmptyArray(context);
  if (vector) SetArray_internal(static_cast<JsonArray*>(result->fRoot.get()), vector);
  return result;
}

JSONObjRef JSONArrayFromNumberVector(const NumberVector& vector, Zentor::IContext* context) {
  JSONObjRef result = CreateEmptyArray(context);
  if (vector) SetArray_internal(static_cast<JsonArray*>(result->fRoot.get()), vector);
  return result;
}

JSONObjRef JSONArrayFromStringVector(const StringVector& vector, Zentor::IContext* context) {
  JSONObjRef result = CreateEmptyArray(context);
  if (!vector) return result;
  // Unlike JSON.Set, a string that is not UTF-8 neither stops nor fails the
  // array here; the array's own rule drops it.
  auto* array = static_cast<JsonArray*>(result->fRoot.get());
  const size_t size = vector->GetSize();
  for (size_t i = 0; i < size; ++i) array->AddString(vector->At(i));
  return result;
}

namespace {

// The member `key` of an object root as an array; null when it is missing
// or is not an array.
const JsonArray* MemberArray(const JSONObjRef& json, const std::string& key) {
  const JsonValue* member = PeekMember(json->fRoot, key);
  if (!member || member->Type() != JsonValue::Array) return nullptr;
  return static_cast<const JsonArray*>(member);
}

}  // namespace

BoolVector GetAsBoolVector(const JSONObjRef& json, const std::string& key,
                           Zentor::IContext* context) {
  auto result = NewVector<bool>(context);
  if (const JsonArray* array = result ? MemberArray(json, key) : nullptr)
    for (size_t i = 0; i < array->Size(); ++i) result->PushBack(array->AtIndexAsBool(i));
  return result;
}

NumberVector GetAsNumberVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context) {
  auto result = NewVector<double>(context);
  if (const JsonArray* array = result ? MemberArray(json, key) : nullptr)
    for (size_t i = 0; i < array->Size(); ++i) result->PushBack(array->AtIndexAsReal(i));
  return result;
}

StringVector GetAsStringVector(const JSONObjRef& json, const std::string& key,
                               Zentor::IContext* context) {
  auto result = NewVector<std::string>(context);
  if (const JsonArray* array = result ? MemberArray(json, key) : nullptr)
    for (size_t i = 0; i < array->Size(); ++i) result->PushBack(array->AtIndexAsString(i));
  return result;
}

namespace {

// The first object element of an array root whose member `key` passes
// `matches`; null when there is none.
template <class Match>
JSONObjRef FindElement(const JSONObjRef& json, const std::string& key, unsigned int jsonTypeId,
                       Zentor::IContext* context, Match&& matches) {
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  if (!IsType(json->fRoot, JsonValue::Array)) return result;
  for (JsonValue* element : static_cast<const JsonArray*>(json->fRoot.get())->Values()) {
    if (!element) continue;
    const JsonValue* member = nullptr;
    if (element->Type() == JsonValue::Object)
      member = static_cast<const JsonObject*>(element)->Peek(key);
    else if (element->Type() == JsonValue::CompiledObject)
      member = element->GetSubNode(key);
    if (member && matches(*member)) {
      result->fRoot = Share(element);
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

// ---------------------------------------------------------------------------
// The declaration table, in the order in which the host lists the
// functions. Each line appends one declaration to the module definition at
// load time and defines the exported entry point.

ZENTOR_DECLARE_TYPE(JSONObj, "JSON", "THREADSAFE")
ZENTOR_CONST_FUNCTION(0, "ToString", JsonToString)
ZENTOR_CONST_FUNCTION(1, "ToFormattedString", JsonToFormattedString)
ZENTOR_CONST_FUNCTION(2, "JSON.FromString", StringToJson)
ZENTOR_CONST_FUNCTION(3, "JSON.FromStringIgnoreErrors", StringToJsonIgnoreErrors)
ZENTOR_CONST_FUNCTION(4, "JSON.IsValid", IsValid)
ZENTOR_CONST_FUNCTION(5, "JSON.FromMsgPack", MsgPackToJson)
ZENTOR_CONST_FUNCTION(6, "JSON.ToMsgPack", JsonToMsgPack)
ZENTOR_CONST_FUNCTION(7, "JSON.SubNode", FindNodePath)
ZENTOR_CONST_FUNCTION(8, "JSON.GetSubNode", GetFromNodePath)
ZENTOR_CONST_FUNCTION(9, "JSON.GetSubNode", GetFromNodeVector)
ZENTOR_CONST_FUNCTION(10, "JSON.SetSubNode", SetNodePathBoolean)
ZENTOR_CONST_FUNCTION(11, "JSON.SetSubNode", SetNodePathNumber)
ZENTOR_CONST_FUNCTION(12, "JSON.SetSubNode", SetNodePathNumberToFormat)
ZENTOR_CONST_FUNCTION(13, "JSON.SetSubNode", SetNodePathString)
ZENTOR_CONST_FUNCTION(14, "JSON.SetSubNode", SetNodePathJson)
ZENTOR_CONST_FUNCTION(15, "JSON.SetSubNode", SetNodePathBooleanArray)
ZENTOR_CONST_FUNCTION(16, "JSON.SetSubNode", SetNodePathNumberArray)
ZENTOR_CONST_FUNCTION(17, "JSON.SetSubNode", SetNodePathStringArray)
ZENTOR_CONST_FUNCTION(18, "JSON.SetSubNode", SetNodeVectorBoolean)
ZENTOR_CONST_FUNCTION(19, "JSON.SetSubNode", SetNodeVectorNumber)
ZENTOR_CONST_FUNCTION(20, "JSON.SetSubNode", SetNodeVectorNumberToFormat)
ZENTOR_CONST_FUNCTION(21, "JSON.SetSubNode", SetNodeVectorString)
ZENTOR_CONST_FUNCTION(22, "JSON.SetSubNode", SetNodeVectorJson)
ZENTOR_CONST_FUNCTION(23, "JSON.SetSubNode", SetNodeVectorBooleanArray)
ZENTOR_CONST_FUNCTION(24, "JSON.SetSubNode", SetNodeVectorNumberArray)
ZENTOR_CONST_FUNCTION(25, "JSON.SetSubNode", SetNodeVectorStringArray)
ZENTOR_CONST_FUNCTION(26, "JSON.RemoveSubNode", RemoveNodePath)
ZENTOR_CONST_FUNCTION(27, "JSON.RemoveSubNode", RemoveNodeVector)
ZENTOR_CONST_FUNCTION(28, "JSON.ElementMatching", ElementMatchingString)
ZENTOR_CONST_FUNCTION(29, "JSON.ElementMatching", ElementMatchingNumber)
ZENTOR_CONST_FUNCTION(30, "JSON.Set", SetBoolean)
ZENTOR_CONST_FUNCTION(31, "JSON.Set", SetNumber)
ZENTOR_CONST_FUNCTION(32, "JSON.Set", SetNumberToFormat)
ZENTOR_CONST_FUNCTION(33, "JSON.Set", SetString)
ZENTOR_CONST_FUNCTION(34, "JSON.Set", SetJson)
ZENTOR_CONST_FUNCTION(35, "JSON.Set", SetBooleanArray)
ZENTOR_CONST_FUNCTION(36, "JSON.Set", SetNumberArray)
ZENTOR_CONST_FUNCTION(37, "JSON.Set", SetStringArray)
ZENTOR_CONST_FUNCTION(38, "JSON.SetNull", SetNull)
ZENTOR_CONST_FUNCTION(39, "JSON.Remove", RemoveMember)
ZENTOR_CONST_FUNCTION(40, "JSON.Size", JsonSize)
ZENTOR_CONST_FUNCTION(41, "JSON.IsEmpty", IsEmpty)
ZENTOR_CONST_FUNCTION(42, "JSON.Empty", Empty)
ZENTOR_CONST_FUNCTION(43, "JSON.At", JsonArrayAt)
ZENTOR_CONST_FUNCTION(44, "JSON.CreateEmptyArray", CreateEmptyArray)
ZENTOR_CONST_FUNCTION(45, "JSON.CreateEmptyObject", CreateEmptyObject)
ZENTOR_CONST_FUNCTION(46, "JSON.CreateNull", CreateNull)
ZENTOR_CONST_FUNCTION(47, "JSON.ArrayAppend", JsonArrayAppendBoolean)
ZENTOR_CONST_FUNCTION(48, "JSON.ArrayAppend", JsonArrayAppendNumber)
ZENTOR_CONST_FUNCTION(49, "JSON.ArrayAppend", JsonArrayAppendString)
ZENTOR_CONST_FUNCTION(50, "JSON.ArrayAppend", JsonArrayAppendJSON)
ZENTOR_CONST_FUNCTION(51, "JSON.ArrayRemove", JsonArrayRemove)
ZENTOR_CONST_FUNCTION(52, "JSON.ArrayInsertAt", JsonArrayInsertAtJSON)
ZENTOR_CONST_FUNCTION(53, "JSON.ArrayReplaceAt", JsonArrayReplaceAtJSON)
ZENTOR_CONST_FUNCTION(54, "JSON.UnionArrays", UnionArrays)
ZENTOR_CONST_FUNCTION(55, "JSON.ArrayFromBooleanVector", JSONArrayFromBooleanVector)
ZENTOR_CONST_FUNCTION(56, "JSON.ArrayFromNumberVector", JSONArrayFromNumberVector)
ZENTOR_CONST_FUNCTION(57, "JSON.ArrayFromStringVector", JSONArrayFromStringVector)
ZENTOR_CONST_FUNCTION(58, "JSON.Get", JsonObjectGet)
ZENTOR_CONST_FUNCTION(59, "JSON.GetAsBool", GetAsBool)
ZENTOR_CONST_FUNCTION(60, "JSON.GetAsNumber", GetAsNumber)
ZENTOR_CONST_FUNCTION(61, "JSON.GetAsString", GetAsString)
ZENTOR_CONST_FUNCTION(62, "JSON.GetAsBoolVector", GetAsBoolVector)
ZENTOR_CONST_FUNCTION(63, "JSON.GetAsNumberVector", GetAsNumberVector)
ZENTOR_CONST_FUNCTION(64, "JSON.GetAsStringVector", GetAsStringVector)
ZENTOR_CONST_FUNCTION(65, "JSON.AsBool", AsBool)
ZENTOR_CONST_FUNCTION(66, "JSON.AsNumber", AsNumber)
ZENTOR_CONST_FUNCTION(67, "JSON.AsDouble", AsDouble)
ZENTOR_CONST_FUNCTION(68, "JSON.AsInt64", AsInt64)
ZENTOR_CONST_FUNCTION(69, "JSON.AsString", AsString)
ZENTOR_CONST_FUNCTION(70, "JSON.HasMember", HasMember)
ZENTOR_CONST_FUNCTION(71, "JSON.IsNull", IsNull)
ZENTOR_CONST_FUNCTION(72, "JSON.IsBool", IsBool)
ZENTOR_CONST_FUNCTION(73, "JSON.IsNumber", IsNumber)
ZENTOR_CONST_FUNCTION(74, "JSON.IsDouble", IsDouble)
ZENTOR_CONST_FUNCTION(75, "JSON.IsInt64", IsInt64)
ZENTOR_CONST_FUNCTION(76, "JSON.IsString", IsString)
ZENTOR_CONST_FUNCTION(77, "JSON.IsArray", IsArray)
ZENTOR_CONST_FUNCTION(78, "JSON.IsObject", IsObject)
ZENTOR_CONST_FUNCTION(79, "JSON.Equals", Equals)
ZENTOR_CONST_FUNCTION(80, "JSON.Keys", GetKeys)
