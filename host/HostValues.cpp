#include "HostValues.h"

#include <algorithm>
#include <cstring>

namespace zhost {

void HostData::Interface_Assign(const char* data, unsigned long long size) {
  fBytes.assign(data ? data : "", data ? static_cast<size_t>(size) : 0);
}

unsigned long long HostData::Interface_Read(char* out, unsigned long long size,
                                            unsigned long long offset) const {
  if (!out || offset >= fBytes.size()) return 0;
  const unsigned long long count = std::min<unsigned long long>(size, fBytes.size() - offset);
  std::memcpy(out, fBytes.data() + offset, static_cast<size_t>(count));
  return count;
}

bool HostData::Interface_IsEqual(Zentor::IDataRef* other) const {
  if (!other || other->GetSize() != fBytes.size()) return false;
  return other->ToString() == fBytes;
}

HostVariant::HostVariant(const HostVariant& other)
    : InterfaceImpl(other),
      fKind(other.fKind),
      fBoolean(other.fBoolean),
      fNumber(other.fNumber),
      fString(other.fString),
      fObject(other.fObject),
      fData(other.fData),
      fVector(other.fVector) {}

void HostVariant::Become(unsigned int kind) {
  fKind = kind;
  fBoolean = false;
  fNumber = 0.0;
  fString.clear();
  fObject.reset();
  fData.reset();
  fVector.reset();
  ++fAssignments;
}

void HostVariant::SetEmptyUserDefined(unsigned int typeId) {
  Become(typeId);
}

void HostVariant::SetNullData() {
  Become(Zentor::kTypeData);
}

const char* HostVariant::Interface_GetString() const {
  return fKind == Zentor::kTypeString ? fString.c_str() : "";
}

unsigned long long HostVariant::Interface_GetStringSize() const {
  return fKind == Zentor::kTypeString ? fString.size() : 0;
}

void HostVariant::Interface_AssignString(const char* text, unsigned long long size) {
  // Copy before Become: `text` may point into this variant's own string.
  std::string value(text ? text : "", text ? static_cast<size_t>(size) : 0);
  Become(Zentor::kTypeString);
  fString = std::move(value);
}

void HostVariant::TakeString(std::string&& text) {
  Become(Zentor::kTypeString);
  fString = std::move(text);
}

void HostVariant::Interface_AssignBoolean(bool value) {
  Become(Zentor::kTypeBoolean);
  fBoolean = value;
}

void HostVariant::Interface_AssignNumber(double value) {
  Become(Zentor::kTypeNumber);
  fNumber = value;
}

void HostVariant::Interface_SetUserDefined(Zentor::IUserDefinedType* object) {
  // Take the reference first: `object` may be the one this variant holds.
  Zentor::AutoRefPtr<Zentor::IUserDefinedType> keep(object, Zentor::kAddRef);
  // A null object keeps a user-defined kind (an empty value of that type)
  // and otherwise leaves nothing.
  const unsigned int kind =
      object ? object->GetType()
             : (fKind >= Zentor::kTypeFirstUserDefined ? fKind : Zentor::kTypeInvalid);
  Become(kind);
  fObject = std::move(keep);
}

void HostVariant::Interface_AssignData(Zentor::IDataRef* data) {
  Zentor::AutoRefPtr<Zentor::IDataRef> keep(data, Zentor::kAddRef);
  Become(Zentor::kTypeData);
  fData = std::move(keep);
}

void HostVariant::Interface_AssignVector(const Zentor::IVectorGeneric* vector) {
  // Host vectors are values: nobody changes one after it was handed over,
  // so holding it without const is safe.
  Zentor::AutoRefPtr<Zentor::IVectorGeneric> keep(const_cast<Zentor::IVectorGeneric*>(vector),
                                                  Zentor::kAddRef);
  Become(Zentor::kTypeVector);
  fVector = std::move(keep);
}

bool HostBooleanVector::Interface_GetBooleanAt(unsigned long long index, bool* out) const {
  if (!out || index >= fValues.size()) return false;
  *out = fValues[static_cast<size_t>(index)];
  return true;
}

bool HostBooleanVector::Interface_PushBackBoolean(bool value) {
  fValues.push_back(value);
  return true;
}

bool HostNumberVector::Interface_GetNumberAt(unsigned long long index, double* out) const {
  if (!out || index >= fValues.size()) return false;
  *out = fValues[static_cast<size_t>(index)];
  return true;
}

bool HostNumberVector::Interface_PushBackNumber(double value) {
  fValues.push_back(value);
  return true;
}

bool HostStringVector::Interface_GetStringAt(unsigned long long index, const char** data,
                                             unsigned long long* size) const {
  if (!data || !size || index >= fValues.size()) return false;
  const std::string& value = fValues[static_cast<size_t>(index)];
  *data = value.data();
  *size = value.size();
  return true;
}

bool HostStringVector::Interface_PushBackString(const char* data, unsigned long long size) {
  fValues.emplace_back(data ? data : "", data ? static_cast<size_t>(size) : 0);
  return true;
}

Zentor::IVectorGeneric* NewVector(unsigned int elementKind) {
  switch (elementKind) {
    case Zentor::kTypeBoolean:
      return new HostBooleanVector();
    case Zentor::kTypeNumber:
      return new HostNumberVector();
    case Zentor::kTypeString:
      return new HostStringVector();
    default:
      return nullptr;
  }
}

Zentor::AutoRefPtr<HostVariant> MakeVariant() {
  return Zentor::AutoRefPtr<HostVariant>(new HostVariant());
}

Zentor::AutoRefPtr<HostVariant> MakeString(const std::string& text) {
  auto variant = MakeVariant();
  variant->AssignString(text);
  return variant;
}

Zentor::AutoRefPtr<HostVariant> MakeString(std::string&& text) {
  auto variant = MakeVariant();
  variant->TakeString(std::move(text));
  return variant;
}

Zentor::AutoRefPtr<HostVariant> MakeNumber(double value) {
  auto variant = MakeVariant();
  variant->AssignNumber(value);
  return variant;
}

Zentor::AutoRefPtr<HostVariant> MakeBoolean(bool value) {
  auto variant = MakeVariant();
  variant->AssignBoolean(value);
  return variant;
}

Zentor::AutoRefPtr<HostVariant> CopyOf(const Zentor::IVariant& value) {
  if (const auto* own = dynamic_cast<const HostVariant*>(&value))
    return Zentor::AutoRefPtr<HostVariant>(new HostVariant(*own));
  auto copy = MakeVariant();
  const unsigned int kind = value.GetType();
  if (auto vector = value.GetVector()) {
    copy->AssignVector(vector.get());
  } else if (kind == Zentor::kTypeBoolean) {
    copy->AssignBoolean(value.GetBoolean());
  } else if (kind == Zentor::kTypeNumber) {
    copy->AssignNumber(value.GetNumber());
  } else if (kind == Zentor::kTypeString) {
    copy->AssignString(value.GetString(), value.GetStringSize());
  } else if (kind == Zentor::kTypeData) {
    copy->AssignData(value.GetData().get());
  } else if (kind >= Zentor::kTypeFirstUserDefined) {
    copy->SetEmptyUserDefined(kind);
    if (auto* object = value.GetUserDefinedPtr()) copy->SetUserDefined(object);
  }
  return copy;
}

}  // namespace zhost
