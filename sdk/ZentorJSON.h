// Zentor::IJSON: the host's native JSON document interface, through which
// native modules build, query and serialise JSON without depending on the
// implementation behind it.
//
// Conventions of the slots:
// - keys and texts are NUL-terminated UTF-8; booleans cross as unsigned char
//   (0 or 1); sizes and indices as unsigned 64-bit numbers;
// - slots returning IJSON* return +1 (a new object owned by the caller) or
//   null;
// - texts come back through caller buffers: the slot returns the size the
//   caller needs (text length + 1); the exact copy rule differs per slot and
//   is noted there; the non-virtual calls hide it behind std::string;
// - every operation that starts a new result clears the document's status
//   first, so GetErrorStatus and GetErrorMessage describe the last call.
#pragma once

#include "Zentor.h"

namespace Zentor {

class IJSON : public IObject {
 public:
  // One byte: the outcome of the last operation.
  enum Status : unsigned char {
    kStatusNone = 0,
    kStatusWarning = 1,
    kStatusError = 2,
  };

  // The all-ones value that the serialisation slots return on failure.
  static constexpr unsigned long long kInvalidSize = ~0ULL;

  // Member walk callbacks; returning 0 stops (or, with error reporting,
  // marks) the walk. `key` is the member name, or the decimal index for an
  // array element.
  using ForEachCallback = unsigned char (*)(const char* key, const IJSON* value, void* user);
  using ForEachErrorCallback = unsigned char (*)(const char* key, const IJSON* value, void* user,
                                                 char* errorBuffer, unsigned int errorBufferSize);
  using ForEachContextCallback = unsigned char (*)(const char* key, const IJSON* value, void* user,
                                                   IContext* context);

  // -- non-virtual calls -----------------------------------------------------

  bool Parse(const char* text) { return Interface_Parse(text); }
  bool Parse(const std::string& text) { return Interface_Parse(text.c_str()); }
  bool LessThan(const IJSON* other) const { return Interface_LessThan(other); }
  bool Equals(const IJSON* other) const { return Interface_Equals(other); }

  // Compact text when `indent` is empty, else indented by it.
  bool ToString(std::string& out, const std::string& indent = std::string()) const {
    out.clear();
    ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_ToString(indent.c_str(), buffer, size);
        },
        out);
    return true;
  }
  std::string ToString(const std::string& indent = std::string()) const {
    std::string out;
    ToString(out, indent);
    return out;
  }
  bool ToCachedString(std::string& out, const std::string& indent = std::string()) {
    out.clear();
    ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_ToCachedString(indent.c_str(), buffer, size);
        },
        out);
    return true;
  }

  AutoRefPtr<IJSON> FindNodePath(const char* path) const {
    return AutoRefPtr<IJSON>(Interface_FindNodePath(path));
  }
  AutoRefPtr<IJSON> FindNodePath(const std::string& path) const {
    return FindNodePath(path.c_str());
  }
  AutoRefPtr<IJSON> ElementMatchingString(const char* key, const char* value) const {
    return AutoRefPtr<IJSON>(Interface_ElementMatchingString(key, value));
  }
  AutoRefPtr<IJSON> ElementMatchingDouble(const char* key, double value) const {
    return AutoRefPtr<IJSON>(Interface_ElementMatchingDouble(key, value));
  }
  unsigned long long Size() const { return Interface_Size(); }
  bool Empty() const { return Interface_Empty(); }

  // The text of member `key`; false when it is missing or no string.
  bool GetString(const char* key, std::string& out) const {
    // The slot copies when length <= size and then writes its zero byte at
    // index `size`, so it is told one byte less than the buffer offered.
    return ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_GetString(key, buffer, size - 1, nullptr);
        },
        out);
  }
  bool GetString(const std::string& key, std::string& out) const {
    return GetString(key.c_str(), out);
  }
  bool GetDouble(const char* key, double& out) const { return Interface_GetDouble(key, &out); }
  bool GetInt(const char* key, int& out) const { return Interface_GetInt(key, &out); }
  bool GetUInt(const char* key, unsigned int& out) const { return Interface_GetUInt(key, &out); }
  bool GetInt64(const char* key, long long& out) const { return Interface_GetInt64(key, &out); }
  bool GetUInt64(const char* key, unsigned long long& out) const {
    return Interface_GetUInt64(key, &out);
  }
  bool GetBoolean(const char* key, bool& out) const {
    unsigned char value = 0;
    const bool ok = Interface_GetBoolean(key, &value);
    if (ok) out = value != 0;
    return ok;
  }
  AutoRefPtr<IJSON> Get(const char* key) const { return AutoRefPtr<IJSON>(Interface_Get(key)); }
  AutoRefPtr<IJSON> Get(const std::string& key) const { return Get(key.c_str()); }
  bool Has(const char* key) const { return Interface_Has(key); }
  bool Has(const std::string& key) const { return Interface_Has(key.c_str()); }
  AutoRefPtr<IJSON> At(unsigned long long index) const {
    return AutoRefPtr<IJSON>(Interface_At(index));
  }

  bool PushBackBool(bool value) { return Interface_PushBackBool(value ? 1 : 0); }
  bool PushBackString(const char* text) { return Interface_PushBackString(text); }
  bool PushBackString(const std::string& text) { return Interface_PushBackString(text.c_str()); }
  bool PushBackDouble(double value) { return Interface_PushBackDouble(value); }
  bool PushBackJSON(const IJSON* other) { return Interface_PushBackJSON(other); }
  AutoRefPtr<IJSON> RemoveIndex(unsigned long long index) {
    return AutoRefPtr<IJSON>(Interface_RemoveIndex(index));
  }
  AutoRefPtr<IJSON> RemoveKey(const char* key) {
    return AutoRefPtr<IJSON>(Interface_RemoveKey(key));
  }

  bool AsBool(bool& out) const {
    unsigned char value = 0;
    const bool ok = Interface_AsBool(&value);
    out = value != 0;
    return ok;
  }
  bool AsDouble(double& out) const { return Interface_AsDouble(&out); }
  bool AsInt(int& out) const { return Interface_AsInt(&out); }
  bool AsUInt(unsigned int& out) const { return Interface_AsUInt(&out); }
  bool AsInt64(long long& out) const { return Interface_AsInt64(&out); }
  bool AsUInt64(unsigned long long& out) const { return Interface_AsUInt64(&out); }
  bool AsString(std::string& out) const {
    return ReadSlotText(
        [this](char* buffer, unsigned long long size) {
          return Interface_AsString(buffer, size, nullptr);
        },
        out);
  }

  bool IsNull() const { return Interface_IsNull(); }
  bool IsBool() const { return Interface_IsBool(); }
  bool IsNumber() const { return Interface_IsNumber(); }
  bool IsDouble() const { return Interface_IsDouble(); }
  bool IsInt() const { return Interface_IsInt(); }
  bool IsUInt() const { return Interface_IsUInt(); }
  bool IsInt64() const { return Interface_IsInt64(); }
  bool IsUInt64() const { return Interface_IsUInt64(); }
  bool IsString() const { return Interface_IsString(); }
  bool IsArray() const { return Interface_IsArray(); }
  bool IsObject() const { return Interface_IsObject(); }

  bool SetBool(const char* key, bool value) { return Interface_SetBool(key, value ? 1 : 0); }
  bool SetDouble(const char* key, double value) { return Interface_SetDouble(key, value); }
  bool SetInt(const char* key, int value) { return Interface_SetInt(key, value); }
  bool SetUInt(const char* key, unsigned int value) { return Interface_SetUInt(key, value); }
  bool SetInt64(const char* key, long long value) { return Interface_SetInt64(key, value); }
  bool SetUInt64(const char* key, unsigned long long value) {
    return Interface_SetUInt64(key, value);
  }
  bool SetString(const char* key, const char* value) { return Interface_SetString(key, value); }
  bool SetString(const std::string& key, const std::string& value) {
    return Interface_SetString(key.c_str(), value.c_str());
  }
  bool SetJSON(const char* key, const IJSON* value) { return Interface_SetJSON(key, value); }
  bool SetNull(const char* key) { return Interface_SetNull(key); }
  bool ReplaceIndex(unsigned long long index, const IJSON* value) {
    return Interface_ReplaceIndex(index, value);
  }

  bool ForEach(ForEachCallback callback, void* user) const {
    return Interface_ForEach(callback, user);
  }
  bool ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
               unsigned int errorBufferSize) const {
    return Interface_ForEach(callback, user, errorBuffer, errorBufferSize);
  }
  bool ForEach(ForEachContextCallback callback, void* user, IContext* context) const {
    return Interface_ForEach(callback, user, context);
  }

  AutoRefPtr<IJSON> Clone() const { return AutoRefPtr<IJSON>(Interface_Clone()); }

  // Wire form: the text length as 8 bytes little-endian, then the compact
  // text without zero byte.
  unsigned long long SerializedSize() { return Interface_SerializedSize(); }
  unsigned long long Deserialize(const char* data, unsigned long long size) {
    return Interface_Deserialize(data, size);
  }
  unsigned long long Serialize(char* buffer, unsigned long long size) {
    return Interface_Serialize(buffer, size);
  }
  bool Serialize(std::string& out) {
    out.assign(static_cast<size_t>(SerializedSize()), '\0');
    const unsigned long long written = Interface_Serialize(out.data(), out.size());
    if (written == kInvalidSize) return false;
    out.resize(static_cast<size_t>(written));
    return true;
  }

  Status GetErrorStatus() const { return Interface_GetErrorStatus(); }
  std::string GetErrorMessage() const {
    std::string buffer(255, '\0');
    for (;;) {
      unsigned char complete = 0;
      const unsigned long long needed =
          Interface_GetErrorMessage(buffer.data(), buffer.size() + 1, &complete);
      if (needed == 0) return std::string();
      if (complete) return std::string(buffer.data(), static_cast<size_t>(needed - 1));
      buffer.assign(static_cast<size_t>(needed - 1), '\0');
    }
  }

  // -- slots, in this order --------------------------------------------------

  virtual bool Interface_Parse(const char* text) = 0;
  virtual bool Interface_LessThan(const IJSON* other) const = 0;
  virtual bool Interface_Equals(const IJSON* other) const = 0;
  // Copies text and zero byte when length < size; returns length + 1.
  virtual unsigned long long Interface_ToString(const char* indent, char* buffer,
                                                unsigned long long size) const = 0;
  virtual unsigned long long Interface_ToCachedString(const char* indent, char* buffer,
                                                      unsigned long long size) = 0;
  virtual IJSON* Interface_FindNodePath(const char* path) const = 0;
  virtual IJSON* Interface_ElementMatchingString(const char* key, const char* value) const = 0;
  virtual IJSON* Interface_ElementMatchingDouble(const char* key, double value) const = 0;
  virtual unsigned long long Interface_Size() const = 0;
  virtual bool Interface_Empty() const = 0;
  // Returns length + 1 of the member's text (0 when there is none); copies
  // text and zero byte (at index length) when length <= size.
  virtual unsigned long long Interface_GetString(const char* key, char* buffer,
                                                 unsigned long long size,
                                                 unsigned char* complete) const = 0;
  virtual bool Interface_GetDouble(const char* key, double* out) const = 0;
  virtual bool Interface_GetInt(const char* key, int* out) const = 0;
  virtual bool Interface_GetUInt(const char* key, unsigned int* out) const = 0;
  virtual bool Interface_GetInt64(const char* key, long long* out) const = 0;
  virtual bool Interface_GetUInt64(const char* key, unsigned long long* out) const = 0;
  virtual bool Interface_GetBoolean(const char* key, unsigned char* out) const = 0;
  virtual IJSON* Interface_Get(const char* key) const = 0;
  virtual bool Interface_Has(const char* key) const = 0;
  virtual IJSON* Interface_At(unsigned long long index) const = 0;
  virtual bool Interface_PushBackBool(unsigned char value) = 0;
  virtual bool Interface_PushBackString(const char* text) = 0;
  virtual bool Interface_PushBackDouble(double value) = 0;
  virtual bool Interface_PushBackJSON(const IJSON* other) = 0;
  virtual IJSON* Interface_RemoveIndex(unsigned long long index) = 0;
  virtual IJSON* Interface_RemoveKey(const char* key) = 0;
  virtual bool Interface_AsBool(unsigned char* out) const = 0;
  virtual bool Interface_AsDouble(double* out) const = 0;
  virtual bool Interface_AsInt(int* out) const = 0;
  virtual bool Interface_AsUInt(unsigned int* out) const = 0;
  virtual bool Interface_AsInt64(long long* out) const = 0;
  virtual bool Interface_AsUInt64(unsigned long long* out) const = 0;
  // Returns length + 1 (0 on failure); copies text and zero byte and sets
  // *complete to 1 when length < size.
  virtual unsigned long long Interface_AsString(char* buffer, unsigned long long size,
                                                unsigned char* complete) const = 0;
  virtual bool Interface_IsNull() const = 0;
  virtual bool Interface_IsBool() const = 0;
  virtual bool Interface_IsNumber() const = 0;
  virtual bool Interface_IsDouble() const = 0;
  virtual bool Interface_IsInt() const = 0;
  virtual bool Interface_IsUInt() const = 0;
  virtual bool Interface_IsInt64() const = 0;
  virtual bool Interface_IsUInt64() const = 0;
  virtual bool Interface_IsString() const = 0;
  virtual bool Interface_IsArray() const = 0;
  virtual bool Interface_IsObject() const = 0;
  virtual bool Interface_SetBool(const char* key, unsigned char value) = 0;
  virtual bool Interface_SetDouble(const char* key, double value) = 0;
  virtual bool Interface_SetInt(const char* key, int value) = 0;
  virtual bool Interface_SetUInt(const char* key, unsigned int value) = 0;
  virtual bool Interface_SetInt64(const char* key, long long value) = 0;
  virtual bool Interface_SetUInt64(const char* key, unsigned long long value) = 0;
  virtual bool Interface_SetString(const char* key, const char* value) = 0;
  virtual bool Interface_SetJSON(const char* key, const IJSON* value) = 0;
  virtual bool Interface_SetNull(const char* key) = 0;
  virtual bool Interface_ReplaceIndex(unsigned long long index, const IJSON* value) = 0;
  virtual bool Interface_ForEach(ForEachCallback callback, void* user) const = 0;
  virtual bool Interface_ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
                                 unsigned int errorBufferSize) const = 0;
  virtual bool Interface_ForEach(ForEachContextCallback callback, void* user,
                                 IContext* context) const = 0;
  virtual IJSON* Interface_Clone() const = 0;
  virtual unsigned long long Interface_SerializedSize() = 0;
  // Both return the bytes used, or kInvalidSize.
  virtual unsigned long long Interface_Deserialize(const char* data, unsigned long long size) = 0;
  virtual unsigned long long Interface_Serialize(char* buffer, unsigned long long size) = 0;
  virtual Status Interface_GetErrorStatus() const = 0;
  // Returns length + 1; copies message and zero byte and sets *complete to 1
  // when length + 1 <= size, else sets *complete to 0.
  virtual unsigned long long Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                                       unsigned char* complete) const = 0;

 protected:
  virtual ~IJSON() = default;
};

}  // namespace Zentor
