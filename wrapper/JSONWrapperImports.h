// The host script functions that the native JSON interface imports: the
// host may run another JSON implementation for the "JSON" type, so the
// wrapper creates and reads such values through the host's own functions.
#pragma once

#include <string>

#include "JSONObj.h"
#include "ZentorSDK.h"

namespace Zentor {

// The entry point of script function `name` with the type words `types`, or
// null. `moduleInfo` receives the providing module's information, borrowed.
ZentorFunction GetFunction_(IContext* context, const char* name, unsigned int typeCount,
                            const char* const* types, IModuleInfo*& moduleInfo);

// A native value as a new host variant (empty without a context).
template <class T>
AutoRefPtr<IVariant> InterfaceToCPP(IContext* context, const T& value);
template <>
AutoRefPtr<IVariant> InterfaceToCPP<std::string>(IContext* context, const std::string& value);
template <>
AutoRefPtr<IVariant> InterfaceToCPP<JSONObjPtr>(IContext* context, const JSONObjPtr& value);

// The holder of an imported function's result: its default value makes the
// initial result variant, and Set takes the callee's result out of it.
template <class R>
class CPPReturnType;

template <>
class CPPReturnType<std::string> {
 public:
  explicit CPPReturnType(IContext*) {}
  const std::string& Value() const { return fValue; }
  void Set(const AutoRefPtr<IVariant>& variant);

 private:
  std::string fValue;
};

template <>
class CPPReturnType<JSONObjPtr> {
 public:
  explicit CPPReturnType(IContext* context) : fContext(context) {}
  const JSONObjPtr& Value() const { return fValue; }
  // A callee that stored no object yields a fresh empty "JSON" value, so the
  // result is never empty while the type is registered.
  void Set(const AutoRefPtr<IVariant>& variant);

 private:
  IContext* fContext;
  JSONObjPtr fValue;
};

}  // namespace Zentor

// Host script functions imported by the wrapper. Each needs a context; a
// failed call is reported on it and gives an empty result.
JSONObjPtr JSON_CreateEmptyObject(Zentor::IContext* p1);
JSONObjPtr JSON_FromString(std::string const& p1, Zentor::IContext* p2);
std::string JSON_ToString(JSONObjPtr const& p1, Zentor::IContext* p2);
