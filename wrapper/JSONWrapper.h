// The module's implementation of the host's native JSON interface
// Zentor::IJSON, through which other native modules build, query and
// serialise documents backed by this module's value tree. The host
// functions that the wrapper imports to reach "JSON" values that may belong
// to another JSON implementation are declared in JSONWrapperImports.h.
//
// Sharing rules, which callers rely on:
// - a wrapper changes its tree in place, and that tree may be shared with a
//   host "JSON" value or with other wrappers (FromMJson, member wrappers);
// - copy construction copies deeply, assignment shares the document state;
// - only the error state is locked; one document must not be changed from
//   two threads at once.
#pragma once

#include <memory>
#include <shared_mutex>
#include <string>
#include <utility>

#include "JSONObj.h"
#include "JSONWrapperImports.h"
#include "JsonAutoRefPtr.h"
#include "Mjson.h"
#include "ZentorSDK.h"

namespace Zentor {

// Appends "Item '<item + 1>' has error '<text>'" to the zero-terminated
// `buffer` of `size` bytes, after ", " when the buffer already holds text.
// An entry that does not fit whole is dropped; nothing happens for a null
// buffer or text.
void AppendToErrorStr(char* buffer, unsigned int size, const char* text, unsigned long long item);

namespace JSON {

// The lock of a document's error pair, a shared mutex. On Windows it is the
// system's slim reader/writer lock: MinGW's std::shared_mutex is the rwlock
// of its pthreads library, which sets each lock up and tears it down under
// one process-wide lock; with wrappers made and dropped on several threads
// at once that cost milliseconds per wrapper, and under Wine it left
// threads waiting for each other for good.
#if defined(_WIN32)
class ErrorLock {
 public:
  ErrorLock() = default;
  ErrorLock(const ErrorLock&) = delete;
  ErrorLock& operator=(const ErrorLock&) = delete;
  void lock();
  void unlock();
  void lock_shared();
  void unlock_shared();

 private:
  void* fState = nullptr;  // the system lock: one pointer, null when free
};
#else
using ErrorLock = std::shared_mutex;
#endif

class JSONData;

class JSONWrapper : public InterfaceImpl<IJSON> {
 public:
  // What a new document starts as.
  enum EJsonStartType : int {
    kStartNull = 0,
    kStartObject = 1,
    kStartArray = 2,
  };

  explicit JSONWrapper(EJsonStartType type);
  // Shares `root`; an empty pointer gives null.
  explicit JSONWrapper(const JsonAutoRefPtr<JsonValue>& root);
  explicit JSONWrapper(JsonAutoRefPtr<JsonValue>&& root);
  // Parses `text` keeping member order; on failure the document is null and
  // the parse error is the wrapper's error state.
  explicit JSONWrapper(const std::string& text);
  // Deep copy of the other's document and error state.
  JSONWrapper(const JSONWrapper& other);
  // Shares the other's document state (no copy). Deliberately unlike the
  // copy constructor.
  JSONWrapper& operator=(const JSONWrapper& other);
  ~JSONWrapper() override;

  static AutoRefPtr<JSONWrapper> Create();  // empty object
  static AutoRefPtr<JSONWrapper> CreateEmptyArray();
  static AutoRefPtr<JSONWrapper> CreateNull();
  // Empty on empty text or a parse failure.
  static AutoRefPtr<JSONWrapper> Create(const std::string& text, bool keepOrder);
  // Keeps member order; empty on a null or empty text or a parse failure.
  static AutoRefPtr<JSONWrapper> Create(const char* text);

  // Replaces the document by the parsed `text`; on failure keeps it and
  // sets the parse error.
  bool ParseDirect(const std::string& text, bool keepOrder);

  // Compact text when `indent` is null or empty, else indented by it.
  static void ToJSONString(const JSONWrapper& json, std::string& out, const char* indent);
  static void ToJSONString(const AutoRefPtr<JSONWrapper>& json, std::string& out,
                           const char* indent);
  static std::string ToJSONString(const JSONWrapper& json, const char* indent);
  static std::string ToJSONString(const AutoRefPtr<JSONWrapper>& json, const char* indent);

  static AutoRefPtr<IDataRef> ToMsgPack(const JSONWrapper& json);
  // A failed decoding leaves the document without a root.
  bool FromMsgPack(const AutoRefPtr<IDataRef>& data);

  // A new wrapper sharing `root`.
  static AutoRefPtr<JSONWrapper> FromMJson(const JsonAutoRefPtr<JsonValue>& root);
  // The root behind `json` (shared); empty for null or a foreign IJSON.
  static JsonAutoRefPtr<JsonValue> ToMJson(const IJSON* json);
  static JsonAutoRefPtr<JsonValue> ToMJson(const AutoRefPtr<IJSON>& json);

  // This module's wrapper behind `json`, or null for null or a foreign one.
  static JSONWrapper* CastFromIJSON(IJSON* json);
  static const JSONWrapper* CastFromIJSON(const IJSON* json);
  // A deep copy; empty for null or a foreign IJSON.
  static AutoRefPtr<JSONWrapper> CloneJSON(const AutoRefPtr<IJSON>& json);
  static AutoRefPtr<JSONWrapper> CloneJSON(const IJSON* json);

  // Conversion to and from the host's "JSON" type. Both first try the
  // in-process handle (sharing, no serialisation) and fall back to text
  // through the host when another JSON implementation owns the type.
  static AutoRefPtr<IUserDefinedType> ToJSONObj(const AutoRefPtr<const IJSON>& json, IContext* ctx);
  static AutoRefPtr<IUserDefinedType> ToJSONObj(const AutoRefPtr<IJSON>& json, IContext* ctx);
  static AutoRefPtr<IUserDefinedType> ToJSONObj(const AutoRefPtr<JSONWrapper>& json, IContext* ctx);
  static AutoRefPtr<IUserDefinedType> ToJSONObj(const JsonAutoRefPtr<JsonValue>& root,
                                                IContext* ctx);
  static AutoRefPtr<JSONWrapper> FromJSONObj(const AutoRefPtr<IUserDefinedType>& obj,
                                             IContext* ctx);
  static JsonAutoRefPtr<JsonValue> JSONObjToMJson(const AutoRefPtr<IUserDefinedType>& obj,
                                                  IContext* ctx);

  // Logs once per process that the slow text path is in use.
  static void ShowEffectivityWarning(IContext* ctx);

  const std::shared_ptr<JSONData>& GetJSONData() const { return fData; }

  // -- IJSON slots, in the interface's order ---------------------------------

  bool Interface_Parse(const char* text) override;
  bool Interface_LessThan(const IJSON* other) const override;
  bool Interface_Equals(const IJSON* other) const override;
  unsigned long long Interface_ToString(const char* indent, char* buffer,
                                        unsigned long long size) const override;
  unsigned long long Interface_ToCachedString(const char* indent, char* buffer,
                                              unsigned long long size) override;
  IJSON* Interface_FindNodePath(const char* path) const override;
  IJSON* Interface_ElementMatchingString(const char* key, const char* value) const override;
  IJSON* Interface_ElementMatchingDouble(const char* key, double value) const override;
  unsigned long long Interface_Size() const override;
  bool Interface_Empty() const override;
  unsigned long long Interface_GetString(const char* key, char* buffer, unsigned long long size,
                                         unsigned char* complete) const override;
  bool Interface_GetDouble(const char* key, double* out) const override;
  bool Interface_GetInt(const char* key, int* out) const override;
  bool Interface_GetUInt(const char* key, unsigned int* out) const override;
  bool Interface_GetInt64(const char* key, long long* out) const override;
  bool Interface_GetUInt64(const char* key, unsigned long long* out) const override;
  bool Interface_GetBoolean(const char* key, unsigned char* out) const override;
  IJSON* Interface_Get(const char* key) const override;
  bool Interface_Has(const char* key) const override;
  IJSON* Interface_At(unsigned long long index) const override;
  bool Interface_PushBackBool(unsigned char value) override;
  bool Interface_PushBackString(const char* text) override;
  bool Interface_PushBackDouble(double value) override;
  bool Interface_PushBackJSON(const IJSON* other) override;
  IJSON* Interface_RemoveIndex(unsigned long long index) override;
  IJSON* Interface_RemoveKey(const char* key) override;
  bool Interface_AsBool(unsigned char* out) const override;
  bool Interface_AsDouble(double* out) const override;
  bool Interface_AsInt(int* out) const override;
  bool Interface_AsUInt(unsigned int* out) const override;
  bool Interface_AsInt64(long long* out) const override;
  bool Interface_AsUInt64(unsigned long long* out) const override;
  unsigned long long Interface_AsString(char* buffer, unsigned long long size,
                                        unsigned char* complete) const override;
  bool Interface_IsNull() const override;
  bool Interface_IsBool() const override;
  bool Interface_IsNumber() const override;
  bool Interface_IsDouble() const override;
  bool Interface_IsInt() const override;
  bool Interface_IsUInt() const override;
  bool Interface_IsInt64() const override;
  bool Interface_IsUInt64() const override;
  bool Interface_IsString() const override;
  bool Interface_IsArray() const override;
  bool Interface_IsObject() const override;
  bool Interface_SetBool(const char* key, unsigned char value) override;
  bool Interface_SetDouble(const char* key, double value) override;
  bool Interface_SetInt(const char* key, int value) override;
  bool Interface_SetUInt(const char* key, unsigned int value) override;
  bool Interface_SetInt64(const char* key, long long value) override;
  bool Interface_SetUInt64(const char* key, unsigned long long value) override;
  bool Interface_SetString(const char* key, const char* value) override;
  bool Interface_SetJSON(const char* key, const IJSON* value) override;
  bool Interface_SetNull(const char* key) override;
  bool Interface_ReplaceIndex(unsigned long long index, const IJSON* value) override;
  bool Interface_ForEach(ForEachCallback callback, void* user) const override;
  bool Interface_ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
                         unsigned int errorBufferSize) const override;
  bool Interface_ForEach(ForEachContextCallback callback, void* user,
                         IContext* context) const override;
  IJSON* Interface_Clone() const override;
  unsigned long long Interface_SerializedSize() override;
  unsigned long long Interface_Deserialize(const char* data, unsigned long long size) override;
  unsigned long long Interface_Serialize(char* buffer, unsigned long long size) override;
  Status Interface_GetErrorStatus() const override;
  unsigned long long Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                               unsigned char* complete) const override;

 private:
  const JsonAutoRefPtr<JsonValue>& Root() const;
  // The type slots: a fresh error state, then whether the root is of `type`
  // or of `other`.
  bool RootIs(JsonValue::EJsonValueType type) const { return RootIs(type, type); }
  bool RootIs(JsonValue::EJsonValueType type, JsonValue::EJsonValueType other) const;
  JsonArray* ArrayTakingFrom(const IJSON* other, const JSONWrapper*& that);
  JSONData& State() const { return *fData; }
  // The member `key` of an object root for the typed reads, or empty after
  // reporting why. `notFoundEnd` closes the not-found warning.
  JsonAutoRefPtr<JsonValue> MemberForRead(const char* key, const char* notFoundEnd) const;
  JsonAutoRefPtr<JsonValue> TypedMemberForRead(const char* key, const void* out) const;
  // The common frame of the setters; `insert` stores into the object root.
  template <class Insert>
  bool SetMember(const char* key, Insert&& insert);
  // Calls `visit(key, member, position)` for every member or element until
  // it returns false; false when the root cannot be walked.
  template <class Visit>
  bool WalkMembers(Visit&& visit) const;

  std::shared_ptr<JSONData> fData;
};

// The state of one document: the root and the outcome of the last
// operation.
class JSONData {
 public:
  using Error = std::pair<IJSON::Status, std::string>;

  explicit JSONData(JSONWrapper::EJsonStartType type);
  explicit JSONData(const JsonAutoRefPtr<JsonValue>& root);
  explicit JSONData(JsonAutoRefPtr<JsonValue>&& root);
  // Deep copy of value and error state; a null `other` gives null with an
  // error.
  explicit JSONData(const JSONData* other);

  void SetError(std::string message) { SetStatus(IJSON::kStatusError, std::move(message)); }
  void SetWarning(std::string message) { SetStatus(IJSON::kStatusWarning, std::move(message)); }
  void ClearError();
  IJSON::Status GetErrorStatus() const;
  std::string GetErrorMessage() const;
  Error GetError() const;

  // Typed reads of a non-empty value; true on success.
  static bool AsBool(const JsonAutoRefPtr<JsonValue>& value, bool& out);
  static bool AsString(const JsonAutoRefPtr<JsonValue>& value, std::string& out);
  static bool AsDouble(const JsonAutoRefPtr<JsonValue>& value, double& out);
  static bool AsInt64(const JsonAutoRefPtr<JsonValue>& value, long long& out);
  static bool AsInt(const JsonAutoRefPtr<JsonValue>& value, int& out);
  static bool AsUInt(const JsonAutoRefPtr<JsonValue>& value, unsigned int& out);
  static bool AsUInt64(const JsonAutoRefPtr<JsonValue>& value, unsigned long long& out);

  // Compact text when `indent` is null or empty; nothing for an empty root.
  void ToString(std::string& out, const char* indent) const;
  // Serialises anew on every call: a cache would go stale, because the tree
  // may be shared and changed through other wrappers.
  void ToCachedString(std::string& out, const char* indent) const;

  // The node at `path` below `start`, or empty with a warning or error.
  JsonAutoRefPtr<JsonValue> FindNodePath(const JsonAutoRefPtr<JsonValue>& start, const char* path);

  JsonAutoRefPtr<JsonValue> fRoot;

 private:
  void SetStatus(IJSON::Status status, std::string&& message);

  Error fError{IJSON::kStatusNone, std::string()};
  mutable ErrorLock fLock;
};

// A new wrapper over `node` as a slot result (+1 for the caller), or null.
inline IJSON* NewNodeWrapper(const JsonAutoRefPtr<JsonValue>& node) {
  return node ? new JSONWrapper(node) : nullptr;
}

}  // namespace JSON

}  // namespace Zentor
