// The host's own implementations of the value interfaces: variants, binary
// data and the three vector kinds. Modules receive these as arguments and
// fill them as results.
#pragma once

#include <string>
#include <vector>

#include "Zentor.h"

namespace zhost {

// Binary data. A "streaming" instance answers GetData() with null, so that
// callers must fall back to Read(); scripts use it to exercise that path.
class HostData final : public Zentor::InterfaceImpl<Zentor::IDataRef> {
 public:
  explicit HostData(std::string bytes = std::string(), bool direct = true)
      : fBytes(std::move(bytes)), fDirect(direct) {}

  const std::string& Bytes() const { return fBytes; }
  bool IsDirect() const { return fDirect; }

  unsigned long long Interface_GetSize() const override { return fBytes.size(); }
  void Interface_Assign(const char* data, unsigned long long size) override;
  unsigned long long Interface_Read(char* out, unsigned long long size,
                                    unsigned long long offset) const override;
  bool Interface_IsEqual(Zentor::IDataRef* other) const override;
  Zentor::IDataRef* Interface_Clone() const override { return new HostData(fBytes, fDirect); }
  const void* Interface_GetData() const override { return fDirect ? fBytes.data() : nullptr; }

 private:
  std::string fBytes;
  bool fDirect;
};

// One script value of any kind. Assignments count, so that a caller can
// tell a result variant that a function left untouched from one that it
// overwrote with an equal value.
class HostVariant final : public Zentor::InterfaceImpl<Zentor::IVariant> {
 public:
  HostVariant() = default;
  // Shares objects, data and vectors with `other`.
  HostVariant(const HostVariant& other);

  // A user-defined value of type `typeId` that holds no object: what a
  // host passes for an unset variable of a user-defined type.
  void SetEmptyUserDefined(unsigned int typeId);
  // Builds a data variant without a data object.
  void SetNullData();
  // Becomes a string that takes `text` over.
  void TakeString(std::string&& text);
  unsigned long long AssignmentCount() const { return fAssignments; }
  // The string bytes as stored (also for other kinds: empty).
  const std::string& StringValue() const { return fString; }

  unsigned int Interface_GetType() const override { return fKind; }
  const char* Interface_GetString() const override;
  unsigned long long Interface_GetStringSize() const override;
  bool Interface_GetBoolean() const override { return fKind == Zentor::kTypeBoolean && fBoolean; }
  double Interface_GetNumber() const override {
    return fKind == Zentor::kTypeNumber ? fNumber : 0.0;
  }
  Zentor::IUserDefinedType* Interface_GetUserDefined() const override { return fObject.get(); }
  Zentor::IDataRef* Interface_GetData() const override {
    return fKind == Zentor::kTypeData ? fData.get() : nullptr;
  }
  Zentor::IVectorGeneric* Interface_GetVector() const override {
    return fKind == Zentor::kTypeVector ? fVector.get() : nullptr;
  }
  void Interface_AssignString(const char* text, unsigned long long size) override;
  void Interface_AssignBoolean(bool value) override;
  void Interface_AssignNumber(double value) override;
  void Interface_SetUserDefined(Zentor::IUserDefinedType* object) override;
  void Interface_AssignData(Zentor::IDataRef* data) override;
  void Interface_AssignVector(const Zentor::IVectorGeneric* vector) override;

 private:
  // Drops whatever the variant held and sets the new kind.
  void Become(unsigned int kind);

  unsigned int fKind = Zentor::kTypeInvalid;
  bool fBoolean = false;
  double fNumber = 0.0;
  std::string fString;
  Zentor::AutoRefPtr<Zentor::IUserDefinedType> fObject;
  Zentor::AutoRefPtr<Zentor::IDataRef> fData;
  Zentor::AutoRefPtr<Zentor::IVectorGeneric> fVector;
  unsigned long long fAssignments = 0;
};

// Vectors: one class per element type, sharing storage and the generic
// slots.
template <class T, class Interface>
class HostVectorBase : public Zentor::InterfaceImpl<Interface> {
 public:
  HostVectorBase() = default;
  explicit HostVectorBase(std::vector<T> values) : fValues(std::move(values)) {}

  const std::vector<T>& Values() const { return fValues; }

  unsigned long long Interface_GetSize() const override { return fValues.size(); }
  Zentor::IVariant* Interface_Get(unsigned long long index) const override {
    if (index >= fValues.size()) return nullptr;
    auto* variant = new HostVariant();
    Store(*variant, fValues[static_cast<size_t>(index)]);
    return variant;
  }
  bool Interface_Add(const Zentor::IVariant* value) override {
    if (!value || value->GetType() != Zentor::VectorElementKind<T>::value) return false;
    if constexpr (std::is_same_v<T, bool>)
      fValues.push_back(value->GetBoolean());
    else if constexpr (std::is_same_v<T, double>)
      fValues.push_back(value->GetNumber());
    else
      fValues.push_back(value->GetStdString());
    return true;
  }
  unsigned int Interface_GetElementType() const override {
    return Zentor::VectorElementKind<T>::value;
  }

 protected:
  static void Store(HostVariant& variant, bool value) { variant.AssignBoolean(value); }
  static void Store(HostVariant& variant, double value) { variant.AssignNumber(value); }
  static void Store(HostVariant& variant, const std::string& value) { variant.AssignString(value); }

  std::vector<T> fValues;
};

class HostBooleanVector final : public HostVectorBase<bool, Zentor::IVector<bool>> {
 public:
  using HostVectorBase::HostVectorBase;
  bool Interface_GetBooleanAt(unsigned long long index, bool* out) const override;
  bool Interface_PushBackBoolean(bool value) override;
};

class HostNumberVector final : public HostVectorBase<double, Zentor::IVector<double>> {
 public:
  using HostVectorBase::HostVectorBase;
  bool Interface_GetNumberAt(unsigned long long index, double* out) const override;
  bool Interface_PushBackNumber(double value) override;
};

class HostStringVector final : public HostVectorBase<std::string, Zentor::IVector<std::string>> {
 public:
  using HostVectorBase::HostVectorBase;
  bool Interface_GetStringAt(unsigned long long index, const char** data,
                             unsigned long long* size) const override;
  bool Interface_PushBackString(const char* data, unsigned long long size) override;
};

// A new empty vector of element kind kTypeBoolean, kTypeNumber or
// kTypeString (+1), or null for any other kind.
Zentor::IVectorGeneric* NewVector(unsigned int elementKind);

// New variants, owned by the returned pointer.
Zentor::AutoRefPtr<HostVariant> MakeVariant();
Zentor::AutoRefPtr<HostVariant> MakeString(const std::string& text);
// The same, taking the bytes over without a copy (a file's whole text).
Zentor::AutoRefPtr<HostVariant> MakeString(std::string&& text);
Zentor::AutoRefPtr<HostVariant> MakeNumber(double value);
Zentor::AutoRefPtr<HostVariant> MakeBoolean(bool value);
// A new variant with the same kind and value as `value` (sharing its
// object, data or vector), whoever implemented `value`.
Zentor::AutoRefPtr<HostVariant> CopyOf(const Zentor::IVariant& value);

}  // namespace zhost
