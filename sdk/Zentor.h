// The Zentor host interfaces, as the host and every module see them.
//
// Header-only on purpose: a module includes this file and needs no symbol
// from the host binary, and host and module agree on every object layout
// because both compile these very declarations.
//
// Conventions shared by every interface here:
// - Each interface offers public non-virtual calls (AddRef, GetSize, ...)
//   that forward to virtual slots named Interface_<Call>. Implementations
//   override the slots; callers use the non-virtual calls. The slots are
//   kept C-like (pointers, sizes, plain numbers) so that their layout does
//   not depend on the standard library; the non-virtual calls add the
//   std::string conveniences.
// - The slots are declared in a fixed order and every interface declares
//   its virtual destructor after its own slots, so the destructor takes the
//   last slot. IObject has no virtual destructor for the same reason: the
//   counting slots come first in every vtable.
// - Objects are reference counted (IObject). A slot that returns a pointer
//   to an IObject documents whether the caller receives a new reference
//   ("+1": adopt it, e.g. with AutoRefPtr<T>(p)) or borrows one.
// - Objects are never deleted directly; the last Release destroys them.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ZentorStatus.h"

// Marks a module export: unmangled and visible even when the module is
// built with hidden visibility. Only exports use it: the interfaces below
// keep the default visibility setting of whoever compiles them.
#ifndef ZENTOR_EXPORT
#if defined(_WIN32)
#define ZENTOR_EXPORT extern "C" __declspec(dllexport)
#else
#define ZENTOR_EXPORT extern "C" __attribute__((visibility("default")))
#endif
#endif

namespace Zentor {

class IObject;
class IDataRef;
class IUserDefinedType;
class IVariant;
class IVectorGeneric;
template <class T>
class IVector;
class IModuleInfo;
class ILogger;
class IContext;
class IJSON;

// ---------------------------------------------------------------------------
// Type ids and variant kinds.
//
// IVariant::GetType() reports one of these kinds. Ids from
// kTypeFirstUserDefined upward are user-defined types, numbered by the host
// in registration order. kTypeInvalid doubles as the kind of a variant that
// holds nothing yet. Vectors have a kind of their own, but callers should
// recognise them by asking GetVector(), since the element type matters.
constexpr unsigned int kTypeInvalid = 0;
constexpr unsigned int kTypeBoolean = 1;
constexpr unsigned int kTypeNumber = 5;
constexpr unsigned int kTypeString = 9;
constexpr unsigned int kTypeData = 13;
constexpr unsigned int kTypeVector = 17;
constexpr unsigned int kTypeFirstUserDefined = 21;

// How bad a reported error is. Only the numbers travel through the
// interface; the host decides what each means for the running script.
enum class ErrorSeverity : int {
  Info = 0,
  Warning = 1,
  Error = 2,
  Fatal = 3,
};

// Error codes of the host itself, for failures that a module meets while
// calling host functions.
struct ZentorError {
  static std::string InvalidArgument() { return "Error.Zentor.InvalidArgument"; }
  static std::string InvalidFunction() { return "Error.Zentor.InvalidFunction"; }
  static std::string FunctionError() { return "Error.Zentor.FunctionError"; }
};

// The entry point of a script function (one per declaration in a module's
// definition). Returns 0 on success or a status code made by MakeStatus
// (ZentorStatus.h): the 1-based argument position and the kind of fault.
// `result` may be null.
using ZentorFunction = unsigned int (*)(int argc, IVariant** args, IVariant* result,
                                        IModuleInfo* moduleInfo, IContext* context);

// The factory export named by a "TYPE" declaration. Returns a new object
// with a count of 1 that the caller owns. Modules must define it with
// exactly this type: the host calls it through this pointer type, and a
// call through a pointer of another function type is undefined.
using ZentorTypeFactory = IUserDefinedType* (*)(unsigned int typeId, IContext* context);

// The metadata exports of a module.
using ZentorMetadataGetter = const char* (*)();
using ZentorDefinitionGetter = const char* (*)(void* host);

// ---------------------------------------------------------------------------
// Reference counting.

class IObject {
 public:
  // Returns the count before the increment.
  int AddRef() const { return Interface_AddRef(); }
  // Returns 1 when this call destroyed the object, else 0.
  int Release() const { return Interface_Release(); }
  int GetCount() const { return Interface_GetCount(); }

  virtual int Interface_AddRef() const = 0;
  virtual int Interface_Release() const = 0;
  virtual int Interface_GetCount() const = 0;

 protected:
  IObject() = default;
  IObject(const IObject&) = default;
  IObject& operator=(const IObject&) = default;
  // Not virtual: see the conventions at the top. Objects die through the
  // destructor that each interface declares last.
  ~IObject() = default;
};

// The usual implementation of the three counting slots for interface I. The
// count is a 32-bit signed atomic that starts at 1, so a fresh object
// belongs to whoever created it. I must declare a virtual destructor.
template <class I>
class InterfaceImpl : public I {
 public:
  int Interface_AddRef() const override {
    return fUseCount.fetch_add(1, std::memory_order_seq_cst);
  }
  int Interface_Release() const override {
    if (fUseCount.fetch_sub(1, std::memory_order_seq_cst) == 1) {
      delete this;
      return 1;
    }
    return 0;
  }
  int Interface_GetCount() const override { return fUseCount.load(std::memory_order_seq_cst); }

 protected:
  InterfaceImpl() = default;
  // A copy is a new object: its count starts at 1 again.
  InterfaceImpl(const InterfaceImpl& other) : I(other), fUseCount(1) {}
  InterfaceImpl& operator=(const InterfaceImpl& other) {
    I::operator=(other);
    return *this;
  }
  ~InterfaceImpl() override = default;

 private:
  mutable std::atomic<std::int32_t> fUseCount{1};
};

// Tag for AutoRefPtr's constructor that adds a reference.
struct AddRefTag {
  explicit AddRefTag() = default;
};
inline constexpr AddRefTag kAddRef{};

// Intrusive smart pointer over AddRef/Release.
//
// - AutoRefPtr<T>(p) ADOPTS p: it takes over the reference that the caller
//   holds and adds none. Use it for fresh objects (count 1) and for slots
//   documented as returning +1.
// - AutoRefPtr<T>(p, kAddRef) or AutoRefPtr<T>::AddRefPtr(p) ADDS a
//   reference: use it for borrowed pointers.
// - Copies add a reference, moves transfer it, destruction releases it.
// - release() gives the reference up to the caller without releasing it.
template <class T>
class AutoRefPtr {
 public:
  using element_type = T;

  AutoRefPtr() noexcept = default;
  AutoRefPtr(std::nullptr_t) noexcept {}
  explicit AutoRefPtr(T* pointer) noexcept : fPtr(pointer) {}
  AutoRefPtr(T* pointer, AddRefTag) noexcept : fPtr(pointer) {
    if (fPtr) fPtr->AddRef();
  }
  static AutoRefPtr AddRefPtr(T* pointer) noexcept { return AutoRefPtr(pointer, kAddRef); }

  AutoRefPtr(const AutoRefPtr& other) noexcept : AutoRefPtr(other.fPtr, kAddRef) {}
  AutoRefPtr(AutoRefPtr&& other) noexcept : fPtr(other.fPtr) { other.fPtr = nullptr; }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  AutoRefPtr(const AutoRefPtr<U>& other) noexcept : AutoRefPtr(other.get(), kAddRef) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  AutoRefPtr(AutoRefPtr<U>&& other) noexcept : fPtr(other.release()) {}

  ~AutoRefPtr() {
    if (fPtr) fPtr->Release();
  }

  AutoRefPtr& operator=(const AutoRefPtr& other) noexcept {
    AutoRefPtr(other).swap(*this);
    return *this;
  }
  AutoRefPtr& operator=(AutoRefPtr&& other) noexcept {
    AutoRefPtr(std::move(other)).swap(*this);
    return *this;
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  AutoRefPtr& operator=(const AutoRefPtr<U>& other) noexcept {
    AutoRefPtr(other).swap(*this);
    return *this;
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  AutoRefPtr& operator=(AutoRefPtr<U>&& other) noexcept {
    AutoRefPtr(std::move(other)).swap(*this);
    return *this;
  }
  AutoRefPtr& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  T* get() const noexcept { return fPtr; }
  T* operator->() const noexcept { return fPtr; }
  T& operator*() const noexcept { return *fPtr; }
  explicit operator bool() const noexcept { return fPtr != nullptr; }

  // Releases the held reference; with an argument, adopts that pointer.
  void reset(T* pointer = nullptr) noexcept { AutoRefPtr(pointer).swap(*this); }
  // Hands the held reference to the caller, who must release it.
  [[nodiscard]] T* release() noexcept {
    T* pointer = fPtr;
    fPtr = nullptr;
    return pointer;
  }
  void swap(AutoRefPtr& other) noexcept { std::swap(fPtr, other.fPtr); }

 private:
  T* fPtr = nullptr;
};

template <class T, class U>
bool operator==(const AutoRefPtr<T>& a, const AutoRefPtr<U>& b) noexcept {
  return a.get() == b.get();
}
template <class T>
bool operator==(const AutoRefPtr<T>& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}
template <class T, class U>
bool operator==(const AutoRefPtr<T>& a, const U* b) noexcept {
  return a.get() == b;
}
template <class T, class U>
std::strong_ordering operator<=>(const AutoRefPtr<T>& a, const AutoRefPtr<U>& b) noexcept {
  return std::compare_three_way()(a.get(), b.get());
}

// Casts that keep the reference count right: the result holds its own
// reference (or is empty when a dynamic cast fails).
template <class T, class U>
AutoRefPtr<T> StaticRefCast(const AutoRefPtr<U>& from) noexcept {
  return AutoRefPtr<T>(static_cast<T*>(from.get()), kAddRef);
}
template <class T, class U>
AutoRefPtr<T> DynamicRefCast(const AutoRefPtr<U>& from) noexcept {
  return AutoRefPtr<T>(dynamic_cast<T*>(from.get()), kAddRef);
}

// ---------------------------------------------------------------------------
// Binary data.

class IDataRef : public IObject {
 public:
  unsigned long long GetSize() const { return Interface_GetSize(); }
  // Replaces the bytes with a copy of `size` bytes from `data`.
  void Assign(const char* data, unsigned long long size) { Interface_Assign(data, size); }
  void Assign(const std::string& bytes) { Interface_Assign(bytes.data(), bytes.size()); }
  // Copies up to `size` bytes from `offset`; returns how many were copied
  // (0 when `offset` is not below the size).
  unsigned long long Read(char* out, unsigned long long size, unsigned long long offset) const {
    return Interface_Read(out, size, offset);
  }
  bool IsEqual(const IDataRef* other) const {
    return Interface_IsEqual(const_cast<IDataRef*>(other));
  }
  AutoRefPtr<IDataRef> Clone() const { return AutoRefPtr<IDataRef>(Interface_Clone()); }
  // The bytes in one piece, or null for an implementation that only reads
  // in pieces (then use Read).
  const void* GetData() const { return Interface_GetData(); }
  // All bytes, through GetData when possible, else through Read. False when
  // Read delivers fewer bytes than GetSize announced; `out` then holds the
  // bytes delivered.
  bool ReadAll(std::string& out) const {
    out.assign(static_cast<size_t>(GetSize()), '\0');
    if (const void* direct = GetData()) {
      out.assign(static_cast<const char*>(direct), out.size());
      return true;
    }
    const size_t wanted = out.size();
    out.resize(static_cast<size_t>(Read(out.data(), wanted, 0)));
    return out.size() == wanted;
  }
  // All bytes, or those that Read delivers.
  std::string ToString() const {
    std::string bytes;
    ReadAll(bytes);
    return bytes;
  }

  virtual unsigned long long Interface_GetSize() const = 0;
  virtual void Interface_Assign(const char* data, unsigned long long size) = 0;
  virtual unsigned long long Interface_Read(char* out, unsigned long long size,
                                            unsigned long long offset) const = 0;
  virtual bool Interface_IsEqual(IDataRef* other) const = 0;
  // +1
  virtual IDataRef* Interface_Clone() const = 0;
  virtual const void* Interface_GetData() const = 0;

 protected:
  virtual ~IDataRef() = default;
};

// ---------------------------------------------------------------------------
// User-defined values: the objects behind kinds from kTypeFirstUserDefined.

class IUserDefinedType : public IObject {
 public:
  const char* GetName() const { return Interface_GetName(); }
  AutoRefPtr<IUserDefinedType> Clone() const {
    return AutoRefPtr<IUserDefinedType>(Interface_Clone());
  }
  unsigned int GetType() const { return Interface_GetType(); }
  bool LessThan(const IUserDefinedType* other) const { return Interface_LessThan(other); }
  // Takes the value from `json`. The JSON module's type takes a deep copy of
  // the document, except of an object with the string member "type" equal
  // to "JSON" (the envelope {"type":"JSON","value":...}), of which it takes
  // the member "value" alone.
  bool Deserialize(const IJSON* json, IContext* context = nullptr) {
    return Interface_Deserialize(json, context);
  }
  // A JSON view of the value (+1); Serialize<const IJSON> gives a read-only
  // one. The JSON module's type gives a view of the value's document itself,
  // not of a copy. IJSON is declared in ZentorJSON.h, which a caller
  // includes to use the result; the template waits for it.
  template <class JSON = IJSON>
  AutoRefPtr<JSON> Serialize(IContext* context = nullptr) const {
    return AutoRefPtr<JSON>(Interface_Serialize(context));
  }
  bool FromBinaryData(const void* data, unsigned long long size, unsigned long long format) {
    return Interface_FromBinaryData(data, size, format);
  }
  unsigned long long ToBinaryData(void** out, unsigned long long format) const {
    return Interface_ToBinaryData(out, format);
  }

  // The registered type name.
  virtual const char* Interface_GetName() const = 0;
  // +1: a copy of this value.
  virtual IUserDefinedType* Interface_Clone() const = 0;
  // The type id under which the host registered the type.
  virtual unsigned int Interface_GetType() const = 0;
  virtual bool Interface_LessThan(const IUserDefinedType* other) const = 0;
  virtual bool Interface_Deserialize(const IJSON* json) {
    return Interface_Deserialize(json, nullptr);
  }
  virtual bool Interface_Deserialize(const IJSON* json, IContext* context) = 0;
  // +1
  virtual IJSON* Interface_Serialize() const { return Interface_Serialize(nullptr); }
  // +1
  virtual IJSON* Interface_Serialize(IContext* context) const = 0;
  // `format` names the encoding; each type defines its own. Returns whether
  // the value was taken.
  virtual bool Interface_FromBinaryData(const void* data, unsigned long long size,
                                        unsigned long long format) = 0;
  // Stores a pointer to the encoded form into *out; returns its size, 0 when
  // the format is not supported.
  virtual unsigned long long Interface_ToBinaryData(void** out,
                                                    unsigned long long format) const = 0;

 protected:
  virtual ~IUserDefinedType() = default;
};

// A user-defined value that knows the id its type was registered under.
class UserDefinedType : public InterfaceImpl<IUserDefinedType> {
 public:
  explicit UserDefinedType(unsigned int typeId) : fTypeId(typeId) {}
  UserDefinedType(const UserDefinedType& other)
      : InterfaceImpl<IUserDefinedType>(other), fTypeId(other.fTypeId) {}

  unsigned int GetTypeId() const { return fTypeId; }

 protected:
  ~UserDefinedType() override = default;

 private:
  unsigned int fTypeId;
};

// The base of a module's own user-defined class T: name, cloning through
// T's copy constructor, type id, and defaults for everything a type may
// leave out (no order, no binary form, no native JSON form).
template <class T>
class CustomType : public UserDefinedType {
 public:
  CustomType(unsigned int typeId, std::string name)
      : UserDefinedType(typeId), fName(std::move(name)) {}
  CustomType(const CustomType& other) : UserDefinedType(other), fName(other.fName) {}

  const char* Interface_GetName() const override { return fName.c_str(); }
  IUserDefinedType* Interface_Clone() const override { return new T(static_cast<const T&>(*this)); }
  unsigned int Interface_GetType() const override { return GetTypeId(); }
  bool Interface_LessThan(const IUserDefinedType*) const override { return false; }
  using IUserDefinedType::Interface_Deserialize;
  bool Interface_Deserialize(const IJSON*, IContext*) override { return false; }
  using IUserDefinedType::Interface_Serialize;
  IJSON* Interface_Serialize(IContext*) const override { return nullptr; }
  bool Interface_FromBinaryData(const void*, unsigned long long, unsigned long long) override {
    return false;
  }
  unsigned long long Interface_ToBinaryData(void**, unsigned long long) const override { return 0; }

  const std::string& GetTypeName() const { return fName; }

 protected:
  ~CustomType() override = default;

 private:
  std::string fName;
};

// ---------------------------------------------------------------------------
// Variants: one script value of any kind.

class IVariant : public IObject {
 public:
  // One of the kinds above; kTypeInvalid while nothing was assigned.
  unsigned int GetType() const { return Interface_GetType(); }
  // The text of a string variant (may hold zero bytes: use GetStringSize);
  // "" for other kinds. Valid until the variant changes.
  const char* GetString() const { return Interface_GetString(); }
  unsigned long long GetStringSize() const { return Interface_GetStringSize(); }
  std::string GetStdString() const {
    return std::string(GetString(), static_cast<size_t>(GetStringSize()));
  }
  bool GetBoolean() const { return Interface_GetBoolean(); }
  double GetNumber() const { return Interface_GetNumber(); }
  // The object of a user-defined variant, with a reference of its own;
  // empty when there is none.
  AutoRefPtr<IUserDefinedType> GetUserDefined() const {
    return AutoRefPtr<IUserDefinedType>(Interface_GetUserDefined(), kAddRef);
  }
  // The same object borrowed: no reference added.
  IUserDefinedType* GetUserDefinedPtr() const { return Interface_GetUserDefined(); }
  AutoRefPtr<IDataRef> GetData() const {
    return AutoRefPtr<IDataRef>(Interface_GetData(), kAddRef);
  }
  // Empty when the variant holds no vector.
  AutoRefPtr<IVectorGeneric> GetVector() const;

  void AssignString(const char* text, unsigned long long size) {
    Interface_AssignString(text, size);
  }
  void AssignString(const std::string& text) { Interface_AssignString(text.data(), text.size()); }
  void AssignBoolean(bool value) { Interface_AssignBoolean(value); }
  void AssignNumber(double value) { Interface_AssignNumber(value); }
  // Keeps a reference to `object`; the kind becomes the object's type id.
  void SetUserDefined(IUserDefinedType* object) { Interface_SetUserDefined(object); }
  // Keeps a reference; null leaves a data variant without data.
  void AssignData(IDataRef* data) { Interface_AssignData(data); }
  // Keeps a reference; the kind becomes kTypeVector.
  void AssignVector(const IVectorGeneric* vector) { Interface_AssignVector(vector); }

  virtual unsigned int Interface_GetType() const = 0;
  virtual const char* Interface_GetString() const = 0;
  virtual unsigned long long Interface_GetStringSize() const = 0;
  virtual bool Interface_GetBoolean() const = 0;
  virtual double Interface_GetNumber() const = 0;
  // Borrowed (no reference added), null when none.
  virtual IUserDefinedType* Interface_GetUserDefined() const = 0;
  // Borrowed, null when none.
  virtual IDataRef* Interface_GetData() const = 0;
  // Borrowed, null when the variant holds no vector.
  virtual IVectorGeneric* Interface_GetVector() const = 0;
  // A null `text` assigns the empty string.
  virtual void Interface_AssignString(const char* text, unsigned long long size) = 0;
  virtual void Interface_AssignBoolean(bool value) = 0;
  virtual void Interface_AssignNumber(double value) = 0;
  virtual void Interface_SetUserDefined(IUserDefinedType* object) = 0;
  virtual void Interface_AssignData(IDataRef* data) = 0;
  virtual void Interface_AssignVector(const IVectorGeneric* vector) = 0;

 protected:
  virtual ~IVariant() = default;
};

// ---------------------------------------------------------------------------
// Vectors. Elements are all of one kind: kTypeBoolean, kTypeNumber or
// kTypeString. A vector whose GetElementType() is kTypeBoolean is an
// IVector<bool>, kTypeNumber an IVector<double>, kTypeString an
// IVector<std::string>, so a caller may static_cast after checking.

class IVectorGeneric : public IObject {
 public:
  unsigned long long GetSize() const { return Interface_GetSize(); }
  // The element as a new variant; empty when `index` is out of range.
  AutoRefPtr<IVariant> Get(unsigned long long index) const {
    return AutoRefPtr<IVariant>(Interface_Get(index));
  }
  // Appends the variant's value; false when its kind is not the element
  // kind.
  bool Add(const IVariant* value) { return Interface_Add(value); }
  unsigned int GetElementType() const { return Interface_GetElementType(); }

  virtual unsigned long long Interface_GetSize() const = 0;
  // +1, null when out of range.
  virtual IVariant* Interface_Get(unsigned long long index) const = 0;
  virtual bool Interface_Add(const IVariant* value) = 0;
  virtual unsigned int Interface_GetElementType() const = 0;

 protected:
  virtual ~IVectorGeneric() = default;
};

template <class T>
struct VectorElementKind;
template <>
struct VectorElementKind<bool> {
  static constexpr unsigned int value = kTypeBoolean;
};
template <>
struct VectorElementKind<double> {
  static constexpr unsigned int value = kTypeNumber;
};
template <>
struct VectorElementKind<std::string> {
  static constexpr unsigned int value = kTypeString;
};

// Typed access. At() of an index out of range gives the zero value
// (false, 0.0, ""); check GetSize() first.
template <>
class IVector<bool> : public IVectorGeneric {
 public:
  bool At(unsigned long long index) const {
    bool value = false;
    return Interface_GetBooleanAt(index, &value) ? value : false;
  }
  bool PushBack(bool value) { return Interface_PushBackBoolean(value); }
  std::vector<bool> ToStdVector() const {
    std::vector<bool> out;
    for (unsigned long long i = 0, n = GetSize(); i < n; ++i) out.push_back(At(i));
    return out;
  }

  virtual bool Interface_GetBooleanAt(unsigned long long index, bool* out) const = 0;
  virtual bool Interface_PushBackBoolean(bool value) = 0;
};

template <>
class IVector<double> : public IVectorGeneric {
 public:
  double At(unsigned long long index) const {
    double value = 0.0;
    return Interface_GetNumberAt(index, &value) ? value : 0.0;
  }
  bool PushBack(double value) { return Interface_PushBackNumber(value); }
  std::vector<double> ToStdVector() const {
    std::vector<double> out;
    for (unsigned long long i = 0, n = GetSize(); i < n; ++i) out.push_back(At(i));
    return out;
  }

  virtual bool Interface_GetNumberAt(unsigned long long index, double* out) const = 0;
  virtual bool Interface_PushBackNumber(double value) = 0;
};

template <>
class IVector<std::string> : public IVectorGeneric {
 public:
  std::string At(unsigned long long index) const {
    const char* data = nullptr;
    unsigned long long size = 0;
    if (!Interface_GetStringAt(index, &data, &size) || !data) return std::string();
    return std::string(data, static_cast<size_t>(size));
  }
  bool PushBack(const char* data, unsigned long long size) {
    return Interface_PushBackString(data, size);
  }
  bool PushBack(const std::string& value) {
    return Interface_PushBackString(value.data(), value.size());
  }
  std::vector<std::string> ToStdVector() const {
    std::vector<std::string> out;
    for (unsigned long long i = 0, n = GetSize(); i < n; ++i) out.push_back(At(i));
    return out;
  }

  // *data stays valid while the vector lives and is not changed.
  virtual bool Interface_GetStringAt(unsigned long long index, const char** data,
                                     unsigned long long* size) const = 0;
  virtual bool Interface_PushBackString(const char* data, unsigned long long size) = 0;
};

inline AutoRefPtr<IVectorGeneric> IVariant::GetVector() const {
  return AutoRefPtr<IVectorGeneric>(Interface_GetVector(), kAddRef);
}

// ---------------------------------------------------------------------------
// Module information and logging.

class ILogger : public IObject {
 public:
  void Log(ErrorSeverity severity, const char* source, const char* message) {
    Interface_Log(static_cast<int>(severity), source, message);
  }
  void Log(ErrorSeverity severity, const std::string& source, const std::string& message) {
    Interface_Log(static_cast<int>(severity), source.c_str(), message.c_str());
  }

  virtual void Interface_Log(int severity, const char* source, const char* message) = 0;

 protected:
  virtual ~ILogger() = default;
};

// What the host knows about one loaded module.
class IModuleInfo : public IObject {
 public:
  const char* GetName() const { return Interface_GetName(); }
  const char* GetVersion() const { return Interface_GetVersion(); }
  // The shared library's path.
  const char* GetPath() const { return Interface_GetPath(); }
  AutoRefPtr<ILogger> GetLogger() const { return AutoRefPtr<ILogger>(Interface_GetLogger()); }

  virtual const char* Interface_GetName() const = 0;
  virtual const char* Interface_GetVersion() const = 0;
  virtual const char* Interface_GetPath() const = 0;
  // +1, may be null.
  virtual ILogger* Interface_GetLogger() const = 0;

 protected:
  virtual ~IModuleInfo() = default;
};

// ---------------------------------------------------------------------------
// Reading texts through the length + 1 slots.

// Reads the text of a slot that returns the text's length + 1 (0 when there
// is no text) and copies text and zero byte only when they fit. It offers
// `slot(buffer, size)` a buffer of `size` bytes, room for size - 1 bytes of
// text and the zero byte, and offers a larger one until the text fits: the
// text may grow between calls when another thread changes it meanwhile.
// `out` is written only when there is a text.
template <class Slot>
bool ReadSlotText(Slot slot, std::string& out) {
  std::string text(255, '\0');
  for (;;) {
    const unsigned long long needed = slot(text.data(), text.size() + 1);
    if (needed == 0) return false;
    if (needed <= text.size() + 1) {
      text.resize(static_cast<size_t>(needed - 1));
      out = std::move(text);
      return true;
    }
    text.assign(static_cast<size_t>(needed - 1), '\0');
  }
}

// ---------------------------------------------------------------------------
// The call context: what a function may ask of the host while it runs.

class IContext : public IObject {
 public:
  void TriggerErrorHandler(ErrorSeverity severity, const std::string& source,
                           const std::string& code, const std::string& message) {
    Interface_TriggerErrorHandler(static_cast<int>(severity), source.c_str(), code.c_str(),
                                  message.data(), message.size());
  }
  bool HasError() const { return Interface_HasError(); }
  std::string GetErrorMessage() const {
    std::string text;
    ReadSlotText(
        [this](char* buffer, unsigned long long size) {
          return Interface_GetErrorMessage(buffer, size);
        },
        text);
    return text;
  }
  void ClearError() { Interface_ClearError(); }
  void ErrorLog(const std::string& tag, const std::string& message) {
    Interface_ErrorLog(tag.c_str(), message.c_str());
  }
  void DebugLog(const std::string& source, int level, const std::string& message) {
    Interface_DebugLog(source.c_str(), level, message.c_str());
  }
  std::string PrintCallStack() const {
    std::string text;
    ReadSlotText([this](char* buffer,
                        unsigned long long size) { return Interface_PrintCallStack(buffer, size); },
                 text);
    return text;
  }
  // kTypeInvalid when no type of that name is registered.
  unsigned int FindType(const char* name) const { return Interface_FindType(name); }
  unsigned int FindType(const std::string& name) const { return Interface_FindType(name.c_str()); }
  // kTypeBoolean, kTypeNumber, kTypeString, kTypeData and kTypeInvalid give
  // an empty variant of that kind; a registered user-defined type id gives
  // a variant holding a new instance made by the type's factory. Empty for
  // any other id.
  AutoRefPtr<IVariant> CreateInstance(unsigned int typeId) {
    return AutoRefPtr<IVariant>(Interface_CreateInstance(typeId));
  }
  AutoRefPtr<IVector<bool>> CreateBooleanVector() {
    return AutoRefPtr<IVector<bool>>(
        static_cast<IVector<bool>*>(Interface_CreateVector(kTypeBoolean)));
  }
  AutoRefPtr<IVector<double>> CreateNumberVector() {
    return AutoRefPtr<IVector<double>>(
        static_cast<IVector<double>*>(Interface_CreateVector(kTypeNumber)));
  }
  AutoRefPtr<IVector<std::string>> CreateStringVector() {
    return AutoRefPtr<IVector<std::string>>(
        static_cast<IVector<std::string>*>(Interface_CreateVector(kTypeString)));
  }
  // Finds the entry point of script function `name` whose declaration has
  // the type words `types` (result first, then the parameters; a trailing
  // empty word for the context is allowed). When `moduleInfo` is given it
  // receives the providing module's information. The meaning of `flag` is
  // the host's. Null when there is no such function.
  ZentorFunction GetFunction(const char* name, unsigned int typeCount, const char* const* types,
                             AutoRefPtr<IModuleInfo>* moduleInfo, unsigned char flag) {
    IModuleInfo* info = nullptr;
    ZentorFunction function = Interface_GetFunction(name, typeCount, types, &info, flag);
    AutoRefPtr<IModuleInfo> holder(info);
    if (moduleInfo) *moduleInfo = std::move(holder);
    return function;
  }
  // Changes when the host is restarted, so cached lookups can tell.
  unsigned long long GetZentorInstanceId() const { return Interface_GetZentorInstanceId(); }
  bool IsInterrupted() const { return Interface_IsInterrupted(); }

  virtual void Interface_TriggerErrorHandler(int severity, const char* source, const char* code,
                                             const char* message,
                                             unsigned long long messageSize) = 0;
  virtual bool Interface_HasError() const = 0;
  // Text protocol: returns the length + 1; copies text and zero byte only
  // when they fit into `size` bytes.
  virtual unsigned long long Interface_GetErrorMessage(char* buffer,
                                                       unsigned long long size) const = 0;
  virtual void Interface_ClearError() = 0;
  virtual void Interface_ErrorLog(const char* tag, const char* message) = 0;
  virtual void Interface_DebugLog(const char* source, int level, const char* message) = 0;
  // Text protocol as Interface_GetErrorMessage.
  virtual unsigned long long Interface_PrintCallStack(char* buffer,
                                                      unsigned long long size) const = 0;
  virtual unsigned int Interface_FindType(const char* name) const = 0;
  // +1, null for an unknown id.
  virtual IVariant* Interface_CreateInstance(unsigned int typeId) = 0;
  // +1: a new empty vector of that element kind (an IVector<T>), null for
  // any other kind.
  virtual IVectorGeneric* Interface_CreateVector(unsigned int elementKind) = 0;
  // *moduleInfo (when not null) receives +1 or null.
  virtual ZentorFunction Interface_GetFunction(const char* name, unsigned int typeCount,
                                               const char* const* types, IModuleInfo** moduleInfo,
                                               unsigned char flag) = 0;
  virtual unsigned long long Interface_GetZentorInstanceId() const = 0;
  virtual bool Interface_IsInterrupted() const = 0;

 protected:
  virtual ~IContext() = default;
};

}  // namespace Zentor
