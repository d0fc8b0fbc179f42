// The module's side of the host calling convention.
//
// - Declarations: each script function is declared to the host by one line
//   of the module definition string `sInfo`. The macros at the end append
//   that line at load time, deriving the type words from the C++ signature,
//   and define the exported entry point.
// - Marshalling: an entry point receives the arguments as host variants.
//   `CPPNameFunctionCaller` converts them into the typed parameters of the
//   internal function, refuses the call with a status code when an argument
//   is missing or unusable, and stores the function's value into the result
//   variant. Status codes are (one-based position << 16) | kind, kind 1 for
//   a missing argument, 2 for a wrong or unconvertible one, 4 for a
//   user-defined value that holds no object.
//
// Nothing here catches exceptions: one thrown by a function passes to the
// host after the argument holders have been released.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "ZentorSDK.h"

class JSONObj;
class JSONObjPtr;

// The module definition: one declaration per script function and one for
// the JSON type, appended at load time, cleaned by GetModuleDefinition.
extern std::string sInfo;

namespace Zentor {

// Replaces every occurrence of `from` in one left-to-right pass. Text that a
// replacement inserts is not searched again, so ",,," with ",," -> ","
// becomes ",,"; the declaration clean-up relies on exactly this.
inline void ReplaceAllStringsInPlace(std::string& text, const std::string& from,
                                     const std::string& to) {
  if (from.empty()) return;
  size_t position = 0;
  while ((position = text.find(from, position)) != std::string::npos) {
    text.replace(position, from.size(), to);
    position += to.size();
  }
}

// 2^63 as a double: the first number past the signed 64-bit range, and the
// bound of the host number conversions.
inline constexpr double kTwo63 = 9223372036854775808.0;

// A host number as an unsigned 64-bit integer, truncated toward zero.
// Numbers from 2^63 up convert exactly and negative ones wrap as two's
// complement (-1 gives 2^64 - 1), without any range check. Beyond 2^64 the
// value is taken modulo 2^64 so that the conversion stays defined. The
// numbers that have no integer part get fixed results: NaN gives 0, and
// both infinities give 2^63, the bit pattern of the processor's "integer
// indefinite" that NumberToInt64 also gives for them.
inline unsigned long long NumberToUInt64(double value) {
  constexpr double kTwo64 = 18446744073709551616.0;
  if (std::isnan(value)) return 0;
  if (std::isinf(value)) return 1ULL << 63;
  if (value >= kTwo64 || value <= -kTwo64) value = std::fmod(value, kTwo64);
  if (value >= kTwo63) return static_cast<unsigned long long>(value - kTwo63) + (1ULL << 63);
  if (value > -kTwo63) return static_cast<unsigned long long>(static_cast<long long>(value));
  return static_cast<unsigned long long>(value + kTwo64);
}

// Reports a broken programming assumption the way the C library's assert
// does and ends the process; stays active in release builds.
[[noreturn]] void AssertionFailed(const char* expression, const char* file, unsigned int line,
                                  const char* function) noexcept;

// A new value of the user-defined type `typeName`, made by the host through
// the type's factory, in the handle type `Handle` (which must be assignable
// from AutoRefPtr<IUserDefinedType>). Empty without a name or a context, or
// when the host makes no instance. Asking for a type that is not registered
// is a programming error and ends the process.
template <class Handle>
Handle CreateUserDefinedType(const char* typeName, IContext* context) {
  Handle handle;
  if (!typeName || !context) return handle;
  const unsigned int id = context->FindType(typeName);
  // The file name and line number are part of the message that the host's
  // users see; they must not change, wherever this code moves.
  if (id == ::Zentor::kTypeInvalid)
    AssertionFailed("id != ::Zentor::kTypeInvalid", "zentorMacros.h", 2520,
                    "CreateUserDefinedType");
  if (AutoRefPtr<IVariant> variant = context->CreateInstance(id))
    handle = variant->GetUserDefined();
  return handle;
}

// ---------------------------------------------------------------------------
// Script type words of the native parameter and result types.

template <class T>
struct TypeWord;
template <>
struct TypeWord<std::string> {
  static constexpr const char* value = "STRING";
};
template <>
struct TypeWord<double> {
  static constexpr const char* value = "NUMBER";
};
template <>
struct TypeWord<unsigned long> {
  static constexpr const char* value = "NUMBER";
};
template <>
struct TypeWord<unsigned long long> {
  static constexpr const char* value = "NUMBER";
};
template <>
struct TypeWord<long long> {
  static constexpr const char* value = "NUMBER";
};
template <>
struct TypeWord<bool> {
  static constexpr const char* value = "BOOLEAN";
};
template <>
struct TypeWord<AutoRefPtr<JSONObj>> {
  static constexpr const char* value = "JSON";
};
template <>
struct TypeWord<AutoRefPtr<IDataRef>> {
  static constexpr const char* value = "DATAREF";
};
template <>
struct TypeWord<AutoRefPtr<IVector<std::string> const>> {
  static constexpr const char* value = "VECTOR<STRING>";
};
template <>
struct TypeWord<AutoRefPtr<IVector<double> const>> {
  static constexpr const char* value = "VECTOR<NUMBER>";
};
template <>
struct TypeWord<AutoRefPtr<IVector<bool> const>> {
  static constexpr const char* value = "VECTOR<BOOLEAN>";
};
// The call context is invisible to scripts: it declares an empty word.
template <>
struct TypeWord<IContext*> {
  static constexpr const char* value = "";
};

// The type that holds a converted argument: the parameter type without
// reference and const.
template <class P>
using HolderOf = std::remove_cv_t<std::remove_reference_t<P>>;

// Appends one function declaration piece by piece:
// " CONST_FUNCTION <result> <name> (<word>,<word>...) : <symbol>".
template <class R, class... P>
int AppendFunctionDeclaration(std::string& info, R (*)(P...), const char* namePiece,
                              const char* symbolPiece) {
  info += " ";
  info += "CONST_FUNCTION";
  info += " ";
  info += TypeWord<R>::value;
  info += namePiece;
  bool first = true;
  ((info += first ? "" : ",", info += TypeWord<HolderOf<P>>::value, first = false), ...);
  info += symbolPiece;
  return 0;
}

inline int AppendDeclaration(std::string& info, const char* declaration) {
  info += declaration;
  return 0;
}

// ---------------------------------------------------------------------------
// Argument conversions. Each fails on a null variant.

bool CheckAndConvert(IVariant* variant, std::string& out);
bool CheckAndConvert(IVariant* variant, bool& out);
bool CheckAndConvert(IVariant* variant, double& out);
bool CheckAndConvert(IVariant* variant, unsigned long& out);
bool CheckAndConvert(IVariant* variant, unsigned long long& out);
bool CheckAndConvert(IVariant* variant, AutoRefPtr<JSONObj>& out);
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IDataRef>& out);
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<std::string> const>& out);
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<double> const>& out);
bool CheckAndConvert(IVariant* variant, AutoRefPtr<IVector<bool> const>& out);

// ---------------------------------------------------------------------------
// Results. Nothing is stored into a null result variant.

void SetReturn(IVariant* result, const std::string& value);
void SetReturn(IVariant* result, bool value);
void SetReturn(IVariant* result, double value);
void SetReturn(IVariant* result, unsigned long value);
void SetReturn(IVariant* result, unsigned long long value);
void SetReturn(IVariant* result, long long value);
void SetReturn(IVariant* result, const AutoRefPtr<JSONObj>& value);
void SetReturn(IVariant* result, const AutoRefPtr<IDataRef>& value);
void SetReturn(IVariant* result, const AutoRefPtr<IVector<std::string> const>& value);
void SetReturn(IVariant* result, const AutoRefPtr<IVector<double> const>& value);
void SetReturn(IVariant* result, const AutoRefPtr<IVector<bool> const>& value);

// The empty value of a result type, stored when a call is refused. A JSON
// or vector result leaves the variant as the host filled it, while strings,
// numbers and booleans overwrite it; callers can observe the difference.
template <class R>
void SetReturn(IVariant* result);
template <>
void SetReturn<std::string>(IVariant* result);
template <>
void SetReturn<bool>(IVariant* result);
template <>
void SetReturn<double>(IVariant* result);
template <>
void SetReturn<unsigned long>(IVariant* result);
template <>
void SetReturn<unsigned long long>(IVariant* result);
template <>
void SetReturn<long long>(IVariant* result);
template <>
void SetReturn<AutoRefPtr<IDataRef>>(IVariant* result);
template <>
inline void SetReturn<AutoRefPtr<JSONObj>>(IVariant*) {}
template <>
inline void SetReturn<AutoRefPtr<IVector<std::string> const>>(IVariant*) {}
template <>
inline void SetReturn<AutoRefPtr<IVector<double> const>>(IVariant*) {}
template <>
inline void SetReturn<AutoRefPtr<IVector<bool> const>>(IVariant*) {}

// ---------------------------------------------------------------------------
// The frame.

// Converts the arguments one holder at a time, from left to right, and keeps
// the first failure only; later holders stay default.
class CPPNameParameterTransformer {
 public:
  // The module information is accepted for the host's calling convention;
  // no conversion needs it.
  CPPNameParameterTransformer(IContext* context, IModuleInfo* /*moduleInfo*/, IVariant** args,
                              int argc)
      : fContext(context), fArgs(args), fArgc(argc) {}

  unsigned int Error() const { return fError; }

  // The context consumes no argument and counts for no position.
  void operator()(IContext*& holder) { holder = fContext; }

  template <class T>
  void operator()(T& holder) {
    if (fError != 0) return;
    ++fIndex;
    const auto position = static_cast<unsigned int>(fIndex + 1);
    if (fIndex >= fArgc) {
      fError = MakeStatus(position, kStatusArgumentMissing);
      return;
    }
    IVariant* argument = fArgs[fIndex];
    if (CheckAndConvert(argument, holder)) return;
    fError =
        MakeStatus(position, IsEmptyUserDefined(argument) ? kStatusEmptyObject : kStatusWrongKind);
  }

 private:
  static bool IsEmptyUserDefined(IVariant* argument);

  unsigned int fError = 0;
  int fIndex = -1;
  IContext* fContext;
  IVariant** fArgs;
  int fArgc;
};

template <class Transformer, class... Holders>
void for_each_argument(Transformer& transformer, Holders&... holders) {
  (transformer(holders), ...);
}

template <class R>
struct CPPNameFunctionForward {
  template <class F, class... Holders>
  static void Call(IVariant* result, F function, Holders&... holders) {
    SetReturn(result, function(holders...));
  }
};

template <class R>
class CPPNameFunctionCaller {
 public:
  CPPNameFunctionCaller(IVariant** args, int argc, IVariant* result, IContext* context,
                        IModuleInfo* moduleInfo)
      : fArgs(args), fArgc(argc), fResult(result), fContext(context), fModuleInfo(moduleInfo) {}

  template <class F, class... Holders>
  unsigned int operator()(F function, Holders&... holders) {
    CPPNameParameterTransformer transformer(fContext, fModuleInfo, fArgs, fArgc);
    for_each_argument(transformer, holders...);
    if (const unsigned int error = transformer.Error()) {
      SetEmptyReturn();
      return error;
    }
    CPPNameFunctionForward<R>::Call(fResult, function, holders...);
    return 0;
  }

  void SetEmptyReturn() {
    if (fResult) SetReturn<R>(fResult);
  }

 private:
  IVariant** fArgs;
  int fArgc;
  IVariant* fResult;
  IContext* fContext;
  IModuleInfo* fModuleInfo;
};

// One entry point: default holders for the function's parameters, then the
// caller.
template <class R, class... P>
unsigned int CallFunction(R (*function)(P...), int argc, IVariant** args, IVariant* result,
                          IModuleInfo* moduleInfo, IContext* context) {
  std::tuple<HolderOf<P>...> holders{};
  CPPNameFunctionCaller<R> caller(args, argc, result, context, moduleInfo);
  return std::apply([&](auto&... each) { return caller(function, each...); }, holders);
}

}  // namespace Zentor

// Declares the user-defined type `name` with its factory export
// zentor_module_Create<Class>, which the host owns the result of. The export
// has exactly the host's factory type, so that the host's call through a
// ZentorTypeFactory pointer is a call of the function's own type.
#define ZENTOR_DECLARE_TYPE(Class, name, flags)                          \
  ZENTOR_EXPORT ::Zentor::IUserDefinedType* zentor_module_Create##Class( \
      unsigned int typeId, ::Zentor::IContext* context) {                \
    return new Class(typeId, context);                                   \
  }                                                                      \
  int dummy##Class = ::Zentor::AppendDeclaration(                        \
      sInfo, " TYPE " name " : zentor_module_Create" #Class " : " flags);

// Declares script function number `index` under `scriptName` and defines its
// entry point zentor_module_<function>. The declarations reach the host in
// the order of these lines.
#define ZENTOR_CONST_FUNCTION(index, scriptName, function)                                      \
  ZENTOR_EXPORT unsigned int zentor_module_##function(                                          \
      int argc, ::Zentor::IVariant** args, ::Zentor::IVariant* result,                          \
      ::Zentor::IModuleInfo* moduleInfo, ::Zentor::IContext* context) {                         \
    return ::Zentor::CallFunction(&function, argc, args, result, moduleInfo, context);          \
  }                                                                                             \
  int dummy##index = ::Zentor::AppendFunctionDeclaration(sInfo, &function, " " scriptName " (", \
                                                         ") : zentor_module_" #function);
