// The state of one document behind the native JSON interface: its root,
// the outcome of the last operation, typed reads and the path walk.
#include <climits>
#include <cstdlib>
#include <mutex>

#include "JSONCommon.h"
#include "JSONWrapper.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace Zentor {
namespace JSON {

#if defined(_WIN32)
static_assert(sizeof(SRWLOCK) == sizeof(void*), "the lock is kept as one pointer");

void ErrorLock::lock() {
  AcquireSRWLockExclusive(reinterpret_cast<PSRWLOCK>(&fState));
}
void ErrorLock::unlock() {
  ReleaseSRWLockExclusive(reinterpret_cast<PSRWLOCK>(&fState));
}
void ErrorLock::lock_shared() {
  AcquireSRWLockShared(reinterpret_cast<PSRWLOCK>(&fState));
}
void ErrorLock::unlock_shared() {
  ReleaseSRWLockShared(reinterpret_cast<PSRWLOCK>(&fState));
}
#endif

namespace {

JsonValue::EJsonValueType ValueTypeOf(JSONWrapper::EJsonStartType type) {
  switch (type) {
    case JSONWrapper::kStartObject:
      return JsonValue::Object;
    case JSONWrapper::kStartArray:
      return JsonValue::Array;
    default:
      return JsonValue::Null;
  }
}

}  // namespace

JSONData::JSONData(JSONWrapper::EJsonStartType type)
    : fRoot(mjson::NewEmptyValue(ValueTypeOf(type))) {}

JSONData::JSONData(const JsonAutoRefPtr<JsonValue>& root)
    : fRoot(root ? root : ValuePtr(new JsonNull())) {}

JSONData::JSONData(JsonAutoRefPtr<JsonValue>&& root)
    : fRoot(root ? std::move(root) : ValuePtr(new JsonNull())) {}

JSONData::JSONData(const JSONData* other) {
  if (!other) {
    fRoot = ValuePtr(new JsonNull());
    fError = {IJSON::kStatusError, "Can't copy NULL object"};
    return;
  }
  if (other->fRoot) fRoot = ValuePtr(JsonValue::CopyNoARefPtr(*other->fRoot));
  fError = other->GetError();
}

void JSONData::SetStatus(IJSON::Status status, std::string&& message) {
  std::unique_lock lock(fLock);
  fError.first = status;
  fError.second = std::move(message);
}

void JSONData::ClearError() {
  std::unique_lock lock(fLock);
  if (fError.first != IJSON::kStatusNone) {
    fError.first = IJSON::kStatusNone;
    fError.second.clear();
  }
}

IJSON::Status JSONData::GetErrorStatus() const {
  std::shared_lock lock(fLock);
  return fError.first;
}

std::string JSONData::GetErrorMessage() const {
  std::shared_lock lock(fLock);
  return fError.second;
}

JSONData::Error JSONData::GetError() const {
  std::shared_lock lock(fLock);
  return fError;
}

bool JSONData::AsBool(const JsonAutoRefPtr<JsonValue>& value, bool& out) {
  return value->GetAsBool(out);
}

bool JSONData::AsString(const JsonAutoRefPtr<JsonValue>& value, std::string& out) {
  out.clear();
  return value->GetAsString(out);
}

bool JSONData::AsDouble(const JsonAutoRefPtr<JsonValue>& value, double& out) {
  out = 0;
  return value->GetAsReal(out);
}

bool JSONData::AsInt64(const JsonAutoRefPtr<JsonValue>& value, long long& out) {
  out = 0;
  return value->GetAsInteger(out);
}

bool JSONData::AsInt(const JsonAutoRefPtr<JsonValue>& value, int& out) {
  out = 0;
  long long number = 0;
  if (!value->GetAsInteger(number) || number < INT_MIN || number > INT_MAX) return false;
  out = static_cast<int>(number);
  return true;
}

bool JSONData::AsUInt(const JsonAutoRefPtr<JsonValue>& value, unsigned int& out) {
  out = 0;
  long long number = 0;
  if (!value->GetAsInteger(number) || number < 0 || number > static_cast<long long>(UINT_MAX))
    return false;
  out = static_cast<unsigned int>(number);
  return true;
}

bool JSONData::AsUInt64(const JsonAutoRefPtr<JsonValue>& value, unsigned long long& out) {
  out = 0;
  long long number = 0;
  if (!value->GetAsInteger(number) || number < 0) return false;
  out = static_cast<unsigned long long>(number);
  return true;
}

void JSONData::ToString(std::string& out, const char* indent) const {
  if (fRoot) WriteText(*fRoot, indent ? indent : "", out);
}

void JSONData::ToCachedString(std::string& out, const char* indent) const {
  ToString(out, indent);
}

JsonAutoRefPtr<JsonValue> JSONData::FindNodePath(const JsonAutoRefPtr<JsonValue>& start,
                                                 const char* path) {
  if (!path) return ValuePtr();
  PathSteps steps(path);
  std::string_view step;
  ValuePtr node = start;
  while (steps.Next(step)) {
    const std::string segment(step);
    if (JsonArray* array = AsArray(node)) {
      if (!StartsWithDigit(segment)) {
        SetWarning("Couldn't find JSON node, array index is not a number");
        return ValuePtr();
      }
      // Read as 64 bits on every platform (a C long is 32 bits on some).
      const long long index = std::strtoll(segment.c_str(), nullptr, 10);
      if (index < 0 || static_cast<unsigned long long>(index) >= array->Size()) {
        SetWarning("Couldn't find JSON node, array index out of bounds");
        return ValuePtr();
      }
      ValuePtr element = array->AtIndex(static_cast<size_t>(index));
      if (!element) {
        SetError("Error while fetching array subnode");
        return ValuePtr();
      }
      node = std::move(element);
      continue;
    }
    if (!IsType(node, JsonValue::Object)) {
      SetWarning("Couldn't find JSON node, JSON subnode not found");
      return ValuePtr();
    }
    const auto* object = static_cast<const JsonObject*>(node.get());
    ValuePtr member = object->At(segment);
    if (!member) {
      // A key that exists yet yields no value is a broken tree, not a miss.
      if (object->HasKey(segment))
        SetError("Error while fetching subnode");
      else
        SetWarning("Couldn't find JSON node, JSON subnode not found");
      return ValuePtr();
    }
    node = std::move(member);
  }
  return node;
}

}  // namespace JSON
}  // namespace Zentor
