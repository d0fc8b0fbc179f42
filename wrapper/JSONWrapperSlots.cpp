// The slots of the native JSON interface that read, walk and serialise a
// document, in the interface's order; the slots that change a document are
// in JSONWrapperEditSlots.cpp.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "JSONCommon.h"
#include "JSONWrapper.h"

namespace Zentor {

namespace {

// One entry of a collected error list; `item` counts from zero.
std::string ErrorEntry(bool first, unsigned long long item, const std::string& text) {
  std::string entry = first ? "" : ", ";
  entry += "Item '" + std::to_string(item + 1) + "' has error '" + text + "'";
  return entry;
}

}  // namespace

void AppendToErrorStr(char* buffer, unsigned int size, const char* text, unsigned long long item) {
  if (!buffer || !text) return;
  const size_t used = std::strlen(buffer);
  const std::string entry = ErrorEntry(used == 0, item, text);
  if (used + entry.size() + 1 < size) std::strncat(buffer, entry.c_str(), entry.size());
}

namespace JSON {

namespace {

std::string NotObjectMessage(const char* key, const ValuePtr& root) {
  return std::string("Error while searching member '") + key + "'. Type is " +
         root->TypeAsString() + " but should be Object.";
}

bool IntegerIn(const ValuePtr& value, long long low, long long high) {
  long long number = 0;
  return IsType(value, JsonValue::Integer) && value->GetAsInteger(number) && number >= low &&
         number <= high;
}

constexpr size_t kForEachErrorBufferSize = 1024;
constexpr unsigned int kMaxCollectedErrors = 20;
constexpr size_t kMaxCollectedErrorText = 10241;

}  // namespace

bool JSONWrapper::Interface_Parse(const char* text) {
  if (!text) {
    State().ClearError();
    return true;
  }
  return ParseDirect(text, true);
}

bool JSONWrapper::Interface_LessThan(const IJSON* other) const {
  State().ClearError();
  const JSONWrapper* that = CastFromIJSON(other);
  if (!that) return false;
  const std::string mine = Root() ? Root()->GetAsString() : std::string();
  const std::string theirs = that->Root() ? that->Root()->GetAsString() : std::string();
  return mine < theirs;
}

bool JSONWrapper::Interface_Equals(const IJSON* other) const {
  State().ClearError();
  const JSONWrapper* that = CastFromIJSON(other);
  if (!that) return false;
  const ValuePtr mine = Root();
  const ValuePtr theirs = that->Root();
  if (!mine || !theirs) return !mine && !theirs;
  return *mine == *theirs;
}

unsigned long long JSONWrapper::Interface_ToString(const char* indent, char* buffer,
                                                   unsigned long long size) const {
  State().ClearError();
  const std::string text = ToJSONString(*this, indent);
  if (buffer && text.size() < size) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return text.size() + 1;
}

unsigned long long JSONWrapper::Interface_ToCachedString(const char* indent, char* buffer,
                                                         unsigned long long size) {
  return Interface_ToString(indent, buffer, size);
}

IJSON* JSONWrapper::Interface_FindNodePath(const char* path) const {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root) return nullptr;
  return NewNodeWrapper(State().FindNodePath(root, path));
}

namespace {

// The first element of `array` that is an object with a member `key` for
// which `matches` holds.
template <class Matches>
IJSON* FirstMatchingElement(const JsonArray& array, const std::string& key, Matches&& matches) {
  for (size_t i = 0; i < array.Size(); ++i) {
    ValuePtr element = array.AtIndex(i);
    if (!IsObjectLike(element)) continue;
    ValuePtr member = MemberOf(element, key);
    if (member && matches(*member)) return NewNodeWrapper(element);
  }
  return nullptr;
}

}  // namespace

IJSON* JSONWrapper::Interface_ElementMatchingString(const char* key, const char* value) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!key || !value || !array) {
    State().SetWarning("JSON object is not an array");
    return nullptr;
  }
  return FirstMatchingElement(
      *array, key, [value](const JsonValue& member) { return member.GetAsString() == value; });
}

IJSON* JSONWrapper::Interface_ElementMatchingDouble(const char* key, double value) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!key || !array) {
    State().SetWarning("JSON object is not an array");
    return nullptr;
  }
  return FirstMatchingElement(*array, key, [value](const JsonValue& member) {
    double real = 0;
    if (member.GetAsReal(real)) return real == value;
    return static_cast<double>(std::strtoll(member.GetAsString().c_str(), nullptr, 10)) == value;
  });
}

unsigned long long JSONWrapper::Interface_Size() const {
  State().ClearError();
  const ValuePtr& root = Root();
  return root ? mjson::ContainerSize(*root) : 0;
}

bool JSONWrapper::Interface_Empty() const {
  State().ClearError();
  return mjson::IsEmptyValue(Root().get());
}

JsonAutoRefPtr<JsonValue> JSONWrapper::MemberForRead(const char* key,
                                                     const char* notFoundEnd) const {
  const ValuePtr& root = Root();
  if (!IsObjectLike(root)) {
    State().SetError(NotObjectMessage(key, root));
    return ValuePtr();
  }
  ValuePtr member = MemberOf(root, key);
  if (!member) State().SetWarning(std::string("Could not find member '") + key + notFoundEnd);
  return member;
}

unsigned long long JSONWrapper::Interface_GetString(const char* key, char* buffer,
                                                    unsigned long long size,
                                                    unsigned char* complete) const {
  State().ClearError();
  if (!Root() || !key) return 0;
  const ValuePtr member = MemberForRead(key, "'.");
  if (!member) return 0;
  std::string text;
  if (!member->GetAsString(text)) return 0;
  if (complete) *complete = 1;
  // The caller's buffer has room for the zero byte at index `size`.
  if (buffer && text.size() <= size) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return text.size() + 1;
}

namespace {

std::string MemberWarning(const char* key, const char* what) {
  return std::string("Member '") + key + what;
}

}  // namespace

// The common start of the typed member reads: a fresh error state, then the
// member, with nothing to read (and no message) when the document, the key
// or the output is missing.
JsonAutoRefPtr<JsonValue> JSONWrapper::TypedMemberForRead(const char* key, const void* out) const {
  State().ClearError();
  if (!Root() || !key || !out) return {};
  return MemberForRead(key, "'");
}

bool JSONWrapper::Interface_GetDouble(const char* key, double* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  double value = 0;
  if (!member->GetAsReal(value)) {
    State().SetWarning(MemberWarning(key, "' is no double"));
    return false;
  }
  *out = value;
  return true;
}

bool JSONWrapper::Interface_GetInt(const char* key, int* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value)) {
    State().SetWarning(MemberWarning(key, "' is no 32 bit integer"));
    return false;
  }
  if (value < INT_MIN || value > INT_MAX) {
    // Zero, not a clamped value: an integer type has no infinity.
    *out = std::numeric_limits<int>::infinity();
    State().SetWarning(MemberWarning(key, "' is no integer"));
    return false;
  }
  *out = static_cast<int>(value);
  return true;
}

bool JSONWrapper::Interface_GetUInt(const char* key, unsigned int* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value) || value < 0 || value > static_cast<long long>(UINT_MAX)) {
    *out = 0;
    State().SetWarning(MemberWarning(key, "' is no 32 bit unsigned integer"));
    return false;
  }
  *out = static_cast<unsigned int>(value);
  return true;
}

bool JSONWrapper::Interface_GetInt64(const char* key, long long* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value)) {
    State().SetWarning(MemberWarning(key, "' is no integer"));
    return false;
  }
  *out = value;
  return true;
}

bool JSONWrapper::Interface_GetUInt64(const char* key, unsigned long long* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value) || value < 0) {
    State().SetWarning(MemberWarning(key, "' is no unsigned integer"));
    return false;
  }
  *out = static_cast<unsigned long long>(value);
  return true;
}

bool JSONWrapper::Interface_GetBoolean(const char* key, unsigned char* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  bool value = false;
  if (!member->GetAsBool(value)) {
    State().SetWarning(MemberWarning(key, "' is no boolean"));
    return false;
  }
  *out = value ? 1 : 0;
  return true;
}

IJSON* JSONWrapper::Interface_Get(const char* key) const {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root || !key) return nullptr;
  if (!IsObjectLike(root)) {
    State().SetError(NotObjectMessage(key, root));
    return nullptr;
  }
  return NewNodeWrapper(MemberOf(root, key));
}

bool JSONWrapper::Interface_Has(const char* key) const {
  State().ClearError();
  const ValuePtr root = Root();
  return root && key && HasKeyOrElement(*root, key);
}

IJSON* JSONWrapper::Interface_At(unsigned long long index) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!array) return nullptr;
  if (index >= array->Size()) {
    State().SetError("Index is out of bounds");
    return nullptr;
  }
  ValuePtr element = array->AtIndex(static_cast<size_t>(index));
  if (!element) {
    State().SetError("Error while accessing element at given index");
    return nullptr;
  }
  return NewNodeWrapper(element);
}

bool JSONWrapper::Interface_AsBool(unsigned char* out) const {
  State().ClearError();
  if (!Root() || !out) return false;
  bool value = false;
  const bool ok = JSONData::AsBool(Root(), value);
  *out = value ? 1 : 0;
  return ok;
}

bool JSONWrapper::Interface_AsDouble(double* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsDouble(Root(), *out);
}

bool JSONWrapper::Interface_AsInt(int* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsInt(Root(), *out);
}

bool JSONWrapper::Interface_AsUInt(unsigned int* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsUInt(Root(), *out);
}

bool JSONWrapper::Interface_AsInt64(long long* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsInt64(Root(), *out);
}

bool JSONWrapper::Interface_AsUInt64(unsigned long long* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsUInt64(Root(), *out);
}

unsigned long long JSONWrapper::Interface_AsString(char* buffer, unsigned long long size,
                                                   unsigned char* complete) const {
  State().ClearError();
  if (complete) *complete = 0;
  if (!Root()) return 0;
  std::string text;
  if (!JSONData::AsString(Root(), text)) return 0;
  if (buffer && text.size() < size) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    if (complete) *complete = 1;
  }
  return text.size() + 1;
}

bool JSONWrapper::RootIs(JsonValue::EJsonValueType type, JsonValue::EJsonValueType other) const {
  State().ClearError();
  return IsType(Root(), type) || IsType(Root(), other);
}

bool JSONWrapper::Interface_IsNull() const {
  return RootIs(JsonValue::Null);
}

bool JSONWrapper::Interface_IsBool() const {
  return RootIs(JsonValue::True, JsonValue::False);
}

bool JSONWrapper::Interface_IsNumber() const {
  return RootIs(JsonValue::Integer, JsonValue::Real);
}

bool JSONWrapper::Interface_IsDouble() const {
  return RootIs(JsonValue::Real);
}

bool JSONWrapper::Interface_IsInt() const {
  State().ClearError();
  return IntegerIn(Root(), INT_MIN, INT_MAX);
}

bool JSONWrapper::Interface_IsUInt() const {
  State().ClearError();
  return IntegerIn(Root(), 0, UINT_MAX);
}

bool JSONWrapper::Interface_IsInt64() const {
  return RootIs(JsonValue::Integer);
}

bool JSONWrapper::Interface_IsUInt64() const {
  State().ClearError();
  return IntegerIn(Root(), 0, LLONG_MAX);
}

bool JSONWrapper::Interface_IsString() const {
  return RootIs(JsonValue::String);
}

bool JSONWrapper::Interface_IsArray() const {
  return RootIs(JsonValue::Array);
}

bool JSONWrapper::Interface_IsObject() const {
  return RootIs(JsonValue::Object);
}

template <class Visit>
bool JSONWrapper::WalkMembers(Visit&& visit) const {
  // Held for the walk, so a callback that replaces the root cannot free the
  // container under it; sizes are read anew each step for callbacks that
  // change it.
  const ValuePtr root = Root();
  if (!root) return false;
  switch (root->Type()) {
    case JsonValue::Object: {
      const auto* object = static_cast<const JsonObject*>(root.get());
      for (size_t i = 0; i < object->Size(); ++i) {
        const JsonObject::Member& member = object->Members()[i];
        const std::string key = member.key.Str();
        const AutoRefPtr<JSONWrapper> value = FromMJson(mjson::JsonShare(member.value));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    case JsonValue::CompiledObject: {
      const auto* object = static_cast<const JsonCompiledObject*>(root.get());
      for (size_t i = 0; i < object->SlotCount(); ++i) {
        const std::string key = object->KeyName(i);
        const AutoRefPtr<JSONWrapper> value = FromMJson(object->At(i));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    case JsonValue::Array: {
      const auto* array = static_cast<const JsonArray*>(root.get());
      for (size_t i = 0; i < array->Size(); ++i) {
        const std::string key = std::to_string(i);
        const AutoRefPtr<JSONWrapper> value = FromMJson(array->AtIndex(i));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    default:
      return false;
  }
}

bool JSONWrapper::Interface_ForEach(ForEachCallback callback, void* user) const {
  if (!callback) return false;
  bool result = true;
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t) {
    if (callback(key, value, user) != 0) return true;
    result = false;
    return false;
  });
  return walked && result;
}

bool JSONWrapper::Interface_ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
                                    unsigned int errorBufferSize) const {
  if (!callback) return false;
  bool result = true;
  unsigned long long item = 0;
  unsigned int appended = 0;
  // One byte more than offered, which stays zero, so a callback that fills
  // the whole buffer still leaves a terminated text.
  char callbackError[kForEachErrorBufferSize + 1];
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t) {
    std::memset(callbackError, 0, sizeof(callbackError));
    if (callback(key, value, user, callbackError, kForEachErrorBufferSize) != 0) {
      ++item;
      return true;
    }
    result = false;
    if (!errorBuffer || callbackError[0] == '\0') return false;
    AppendToErrorStr(errorBuffer, errorBufferSize, callbackError, item);
    ++item;
    return ++appended < kMaxCollectedErrors;
  });
  return walked && result;
}

bool JSONWrapper::Interface_ForEach(ForEachContextCallback callback, void* user,
                                    IContext* context) const {
  if (!callback) return false;
  bool result = true;
  std::string collected;
  unsigned int added = 0;
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t position) {
    if (callback(key, value, user, context) != 0) return true;
    result = false;
    if (context && context->HasError()) {
      const std::string message = context->GetErrorMessage();
      if (!message.empty()) {
        const std::string entry = ErrorEntry(collected.empty(), position, message);
        context->ClearError();
        if (collected.size() + entry.size() + 1 >= kMaxCollectedErrorText) return false;
        collected += entry;
        ++added;
      }
    }
    return added < kMaxCollectedErrors;
  });
  if (!collected.empty() && context) {
    context->TriggerErrorHandler(ErrorSeverity::Error, "Zentor", ZentorError::FunctionError(),
                                 collected);
  }
  return walked && result;
}

IJSON* JSONWrapper::Interface_Clone() const {
  return new JSONWrapper(*this);
}

unsigned long long JSONWrapper::Interface_SerializedSize() {
  return ToJSONString(*this, "").size() + 8;
}

namespace {

constexpr unsigned long long kLengthPrefixSize = 8;

}  // namespace

unsigned long long JSONWrapper::Interface_Deserialize(const char* data, unsigned long long size) {
  State().ClearError();
  if (!data || size < kLengthPrefixSize) return kInvalidSize;
  unsigned long long length = 0;
  for (int i = 7; i >= 0; --i) length = (length << 8) | static_cast<unsigned char>(data[i]);
  if (size - kLengthPrefixSize < length) return kInvalidSize;
  if (!Parse(std::string(data + kLengthPrefixSize, static_cast<size_t>(length))))
    return kInvalidSize;
  return length + kLengthPrefixSize;
}

unsigned long long JSONWrapper::Interface_Serialize(char* buffer, unsigned long long size) {
  State().ClearError();
  const std::string text = ToJSONString(*this, "");
  const unsigned long long length = text.size();
  if (!buffer || size < length + kLengthPrefixSize) return kInvalidSize;
  // Little-endian whatever the machine: this is a wire format.
  for (unsigned long long i = 0; i < kLengthPrefixSize; ++i)
    buffer[i] = static_cast<char>((length >> (8 * i)) & 0xFF);
  std::memcpy(buffer + kLengthPrefixSize, text.data(), text.size());
  return length + kLengthPrefixSize;
}

IJSON::Status JSONWrapper::Interface_GetErrorStatus() const {
  return fData ? fData->GetErrorStatus() : kStatusNone;
}

unsigned long long JSONWrapper::Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                                          unsigned char* complete) const {
  const std::string message = fData ? fData->GetErrorMessage() : std::string();
  const unsigned long long needed = message.size() + 1;
  const bool fits = buffer && needed <= size;
  if (fits) std::memcpy(buffer, message.c_str(), needed);
  if (complete) *complete = fits ? 1 : 0;
  return needed;
}

}  // namespace JSON

}  // namespace Zentor
