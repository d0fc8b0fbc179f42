// Argument conversions and result stores of the entry point frame.
#include "JSONObj.h"
#include "zentorMacros.h"

namespace Zentor {

namespace {

template <class T>
bool ConvertVector(IVariant* variant, AutoRefPtr<IVector<T> const>& out) {
  if (!variant) return false;
  IVectorGeneric* vector = variant->Interface_GetVector();
  if (!vector || vector->GetElementType() != VectorElementKind<T>::value) return false;
  // The element kind tells which typed vector this is.
  out = AutoRefPtr<IVector<T> const>(static_cast<const IVector<T>*>(vector), kAddRef);
  return true;
}

}  // namespace

bool CheckAndConvert(IVariant* variant, std::string& out) {
  if (!variant || variant->GetType() != kTypeString) return false;
  // By size, so that zero bytes inside the text survive.
  out.assign(variant->GetString(), static_cast<size_t>(variant->GetStringSize()));
  return true;
}

bool CheckAndConvert(IVariant* variant, bool& out) {
  if (!variant || variant->GetType() != kTypeBoolean) return false;
  out = variant->GetBoolean();
  return true;
}

bool CheckAndConvert(IVariant* variant, double& out) {
  if (!variant || variant->GetType() != kTypeNumber) return false;
  out = variant->GetNumber();
  return true;
}

bool CheckAndConvert(IVariant* variant, unsigned long& out) {
  if (!variant || variant->GetType() != kTypeNumber) return false;
  out = NumberToUInt64(variant->GetNumber());
  return true;
}

bool CheckAndConvert(IVariant* variant, unsigned long long& out) {
  if (!variant || variant->GetType() != kTypeNumber) return false;
  out = NumberToUInt64(variant->GetNumber());
  return true;
}

// Only this module's own objects are accepted: another module's value of
// another type is a wrong argument, not a missing object.
bool CheckAndConvert(IVariant* variant, AutoRefPtr<JSONObj>& out) {
  if (!variant || variant->GetType() < kTypeFirstUserDefined) return false;
  auto* object = dynamic_cast<JSONObj*>(variant->GetUserDefinedPtr());
  if (!object) return false;
  out = AutoRefPtr<JSONObj>(object, kAddRef);
  return true;
}

// A data variant without a data object is still a data argument.
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IDataRef>& out) {
  if (!variant || variant->GetType() != kTypeData) return false;
  out = variant->GetData();
  return true;
}

bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<std::string> const>& out) {
  return ConvertVector(variant, out);
}
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<double> const>& out) {
  return ConvertVector(variant, out);
}
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<bool> const>& out) {
  return ConvertVector(variant, out);
}

bool CPPNameParameterTransformer::IsEmptyUserDefined(IVariant* argument) {
  return argument && argument->GetType() >= kTypeFirstUserDefined && !argument->GetUserDefinedPtr();
}

void SetReturn(IVariant* result, const std::string& value) {
  if (result) result->AssignString(value);
}
void SetReturn(IVariant* result, bool value) {
  if (result) result->AssignBoolean(value);
}
void SetReturn(IVariant* result, double value) {
  if (result) result->AssignNumber(value);
}
void SetReturn(IVariant* result, unsigned long value) {
  if (result) result->AssignNumber(static_cast<double>(value));
}
void SetReturn(IVariant* result, unsigned long long value) {
  if (result) result->AssignNumber(static_cast<double>(value));
}
void SetReturn(IVariant* result, long long value) {
  if (result) result->AssignNumber(static_cast<double>(value));
}
// A null JSON result leaves the variant as it was.
void SetReturn(IVariant* result, const AutoRefPtr<JSONObj>& value) {
  if (result && value) result->SetUserDefined(value.get());
}
void SetReturn(IVariant* result, const AutoRefPtr<IDataRef>& value) {
  if (result) result->AssignData(value.get());
}
void SetReturn(IVariant* result, const AutoRefPtr<IVector<std::string> const>& value) {
  if (result && value) result->AssignVector(value.get());
}
void SetReturn(IVariant* result, const AutoRefPtr<IVector<double> const>& value) {
  if (result && value) result->AssignVector(value.get());
}
void SetReturn(IVariant* result, const AutoRefPtr<IVector<bool> const>& value) {
  if (result && value) result->AssignVector(value.get());
}

template <>
void SetReturn<std::string>(IVariant* result) {
  result->AssignString(nullptr, 0);
}
template <>
void SetReturn<bool>(IVariant* result) {
  result->AssignBoolean(false);
}
template <>
void SetReturn<double>(IVariant* result) {
  result->AssignNumber(0.0);
}
template <>
void SetReturn<unsigned long>(IVariant* result) {
  result->AssignNumber(0.0);
}
template <>
void SetReturn<unsigned long long>(IVariant* result) {
  result->AssignNumber(0.0);
}
template <>
void SetReturn<long long>(IVariant* result) {
  result->AssignNumber(0.0);
}
template <>
void SetReturn<AutoRefPtr<IDataRef>>(IVariant* result) {
  result->AssignData(nullptr);
}

}  // namespace Zentor
