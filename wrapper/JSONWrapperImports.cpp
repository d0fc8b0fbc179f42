// The host script functions that the native JSON interface imports. Each
// import looks its callee up once per host instance.
#include "JSONWrapperImports.h"

#include <array>
#include <atomic>
#include <string>

#include "zentorMacros.h"

namespace {

// The source name under which the imports report broken assumptions. It
// and the line number of each import (ImportSite::line) are part of the
// messages that users see; they must not change, whichever file holds the
// imports.
constexpr const char kImportSource[] = "JSONWrapper.cpp";

struct ImportSite {
  const char* scriptName;
  const char* importedName;
  unsigned int typeCount;
  const char* const* types;
  // The line that assertion messages name (see kImportSource).
  unsigned int line;
};

// The cached lookup of one imported function. Built on the first call (the
// static initialisation guard serialises that); a change of the host
// instance id causes one new lookup on the next call.
struct ImportCache {
  ImportCache(const ImportSite& site, Zentor::IContext* context, unsigned long long instanceId)
      : zentorInterfaceId(instanceId) {
    LookUp(site, context);
  }

  void LookUp(const ImportSite& site, Zentor::IContext* context) {
    Zentor::IModuleInfo* info = nullptr;
    fnct.store(Zentor::GetFunction_(context, site.scriptName, site.typeCount, site.types, info),
               std::memory_order_relaxed);
    modInfo.store(info, std::memory_order_relaxed);
  }

  // Plain data in spirit: two threads that see an instance change both look
  // up and both store the same answer. Atomic only to keep that race defined.
  std::atomic<Zentor::ZentorFunction> fnct{nullptr};
  std::atomic<Zentor::IModuleInfo*> modInfo{nullptr};
  std::atomic<unsigned long long> zentorInterfaceId;
};

std::string StatusMessage(unsigned int status, const char* scriptName) {
  const unsigned int kind = Zentor::StatusKindOf(status);
  const std::string position = std::to_string(Zentor::StatusPosition(status));
  const std::string function = std::string("function '") + scriptName + "'";
  if (kind == Zentor::kStatusWrongKind) return "invalid parameter " + position + " in " + function;
  if (kind == Zentor::kStatusEmptyObject)
    return "invalid object used for parameter " + position + " in " + function;
  return "runtime error from " + function;
}

// Everything an import does after its context check: refresh the lookup,
// report a missing callee, leave a trace when the context is already in
// trouble, call, decode the status and take the result out.
template <class R, class... Args>
R CallImported(const ImportSite& site, ImportCache& cache, Zentor::IContext* ctx,
               unsigned long long instanceId, const Args&... natives) {
  if (cache.zentorInterfaceId.load(std::memory_order_acquire) != instanceId) {
    cache.LookUp(site, ctx);
    cache.zentorInterfaceId.store(instanceId, std::memory_order_release);
  }
  const Zentor::ZentorFunction fnct = cache.fnct.load(std::memory_order_relaxed);
  const std::string names = std::string(site.scriptName) + " (imported as " + site.importedName;
  if (!fnct) {
    ctx->TriggerErrorHandler(Zentor::ErrorSeverity::Error, "Zentor",
                             Zentor::ZentorError::InvalidFunction(),
                             "Imported Zentor function " + names + ") doesn't exist!");
    return R();
  }
  if (ctx->HasError()) {
    ctx->DebugLog("Zentor", 0,
                  "Error calling imported Zentor function " + names + "), context has error \"" +
                      ctx->GetErrorMessage() + "\", backtrace: " + ctx->PrintCallStack());
  }
  if (ctx->IsInterrupted()) {
    ctx->DebugLog("Zentor", 0,
                  "Error calling imported Zentor function " + names +
                      "), context is already interrupted, backtrace: " + ctx->PrintCallStack());
  }

  constexpr int argc = static_cast<int>(sizeof...(Args));
  const std::array<Zentor::AutoRefPtr<Zentor::IVariant>, argc> args{
      Zentor::InterfaceToCPP(ctx, natives)...};
  std::array<Zentor::IVariant*, argc> rawArgs{};
  for (int i = 0; i < argc; ++i) rawArgs[i] = args[i].get();
  Zentor::CPPReturnType<R> holder(ctx);
  Zentor::AutoRefPtr<Zentor::IVariant> result = Zentor::InterfaceToCPP(ctx, holder.Value());
  const unsigned int status = fnct(argc, argc > 0 ? rawArgs.data() : nullptr, result.get(),
                                   cache.modInfo.load(std::memory_order_relaxed), ctx);
  if (status != 0 && ctx) {
    ctx->TriggerErrorHandler(Zentor::ErrorSeverity::Error, "Zentor",
                             Zentor::ZentorError::InvalidArgument(),
                             StatusMessage(status, site.scriptName));
  }
  holder.Set(result);
  return holder.Value();
}

// One import: the context check, then the call through the import's own
// cached lookup (one per site, as the static lives in each instantiation).
// A call without a context cannot report anything and is a programming
// error: it ends the process like a failed assert.
template <const ImportSite& site, class R, class... Args>
R Import(Zentor::IContext* ctx, const Args&... natives) {
  if (!ctx) Zentor::AssertionFailed("ctx", kImportSource, site.line, site.importedName);
  const unsigned long long instanceId = ctx->GetZentorInstanceId();
  static ImportCache cache(site, ctx, instanceId);
  return CallImported<R>(site, cache, ctx, instanceId, natives...);
}

const char* const kCreateEmptyObjectTypes[] = {"JSON", ""};
constexpr ImportSite kCreateEmptyObject{"JSON.CreateEmptyObject", "JSON_CreateEmptyObject", 2,
                                        kCreateEmptyObjectTypes, 22};
const char* const kFromStringTypes[] = {"JSON", "STRING", ""};
constexpr ImportSite kFromString{"JSON.FromString", "JSON_FromString", 3, kFromStringTypes, 23};
const char* const kToStringTypes[] = {"STRING", "JSON", ""};
constexpr ImportSite kToString{"ToString", "JSON_ToString", 3, kToStringTypes, 24};

}  // namespace

namespace Zentor {

ZentorFunction GetFunction_(IContext* context, const char* name, unsigned int typeCount,
                            const char* const* types, IModuleInfo*& moduleInfo) {
  AutoRefPtr<IModuleInfo> holder;
  ZentorFunction function = context->GetFunction(name, typeCount, types, &holder, 1);
  // Borrowed from here on: the host keeps its module information alive for
  // as long as the module is loaded.
  moduleInfo = holder.get();
  return function;
}

template <>
AutoRefPtr<IVariant> InterfaceToCPP<std::string>(IContext* context, const std::string& value) {
  if (!context) return AutoRefPtr<IVariant>();
  AutoRefPtr<IVariant> variant = context->CreateInstance(kTypeString);
  if (variant) variant->AssignString(value);
  return variant;
}

template <>
AutoRefPtr<IVariant> InterfaceToCPP<JSONObjPtr>(IContext* context, const JSONObjPtr& value) {
  if (!context) return AutoRefPtr<IVariant>();
  AutoRefPtr<IVariant> variant = context->CreateInstance(kTypeBoolean);
  if (variant) variant->SetUserDefined(value.Get().get());
  return variant;
}

void CPPReturnType<std::string>::Set(const AutoRefPtr<IVariant>& variant) {
  if (variant)
    fValue = variant->GetStdString();
  else
    fValue.clear();
}

void CPPReturnType<JSONObjPtr>::Set(const AutoRefPtr<IVariant>& variant) {
  AutoRefPtr<IUserDefinedType> object;
  if (variant) object = variant->GetUserDefined();
  if (object)
    fValue = object;
  else
    fValue = CreateUserDefinedType<JSONObjPtr>(kJSONName.c_str(), fContext);
}

}  // namespace Zentor

JSONObjPtr JSON_CreateEmptyObject(Zentor::IContext* p1) {
  return Import<kCreateEmptyObject, JSONObjPtr>(p1);
}

JSONObjPtr JSON_FromString(std::string const& p1, Zentor::IContext* p2) {
  return Import<kFromString, JSONObjPtr>(p2, p1);
}

std::string JSON_ToString(JSONObjPtr const& p1, Zentor::IContext* p2) {
  return Import<kToString, std::string>(p2, p1);
}
