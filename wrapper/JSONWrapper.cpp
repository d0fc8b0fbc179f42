#include "JSONWrapper.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

#include "JSONNodes.h"
#include "ZentorData.h"
#include "zentorMacros.h"

// ---------------------------------------------------------------------------
// Imported host functions.
//
// The host may run another JSON implementation for the "JSON" type, so the
// wrapper creates and reads such values through the host's own script
// functions. Each import looks its callee up once per host instance.

namespace {

// The source name under which the imports report broken assumptions.
constexpr const char kImportSource[] = "JSONWrapper.cpp";

// A call of an imported function without a context cannot report anything
// and is a programming error: it ends the process like a failed assert.
void RequireContext(const void* pointer, const char* expression, const char* function,
                    unsigned int line) {
  if (!pointer) Zentor::AssertionFailed(expression, kImportSource, line, function);
}

// The cached lookup of one imported function. Built on the first call (the
// static initialisation guard serialises that); a change of the host
// instance id causes one new lookup on the next call.
struct ImportCache {
  ImportCache(Zentor::IContext* context, unsigned long long instanceId, const char* scriptName,
              unsigned int typeCount, const char* const* types)
      : zentorInterfaceId(instanceId) {
    Zentor::IModuleInfo* info = nullptr;
    fnct.store(Zentor::GetFunction_(context, scriptName, typeCount, types, info),
               std::memory_order_relaxed);
    modInfo.store(info, std::memory_order_relaxed);
  }

  // Plain data in spirit: two threads that see an instance change both look
  // up and both store the same answer. Atomic only to keep that race defined.
  std::atomic<Zentor::ZentorFunction> fnct{nullptr};
  std::atomic<Zentor::IModuleInfo*> modInfo{nullptr};
  std::atomic<unsigned long long> zentorInterfaceId;
};

struct ImportSite {
  const char* scriptName;
  const char* importedName;
  unsigned int typeCount;
  const char* const* types;
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
    Zentor::IModuleInfo* info = nullptr;
    cache.fnct.store(Zentor::GetFunction_(ctx, site.scriptName, site.typeCount, site.types, info),
                     std::memory_order_relaxed);
    cache.modInfo.store(info, std::memory_order_relaxed);
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
  static const char* const types[] = {"JSON", ""};
  static constexpr ImportSite site{"JSON.CreateEmptyObject", "JSON_CreateEmptyObject", 2, types};
  Zentor::IContext* ctx = p1;
  RequireContext(ctx, "ctx", site.importedName, 22);
  RequireContext(p1, "p1", site.importedName, 22);
  const unsigned long long instanceId = ctx->GetZentorInstanceId();
  static ImportCache cache(ctx, instanceId, site.scriptName, site.typeCount, site.types);
  return CallImported<JSONObjPtr>(site, cache, ctx, instanceId);
}

JSONObjPtr JSON_FromString(std::string const& p1, Zentor::IContext* p2) {
  static const char* const types[] = {"JSON", "STRING", ""};
  static constexpr ImportSite site{"JSON.FromString", "JSON_FromString", 3, types};
  Zentor::IContext* ctx = p2;
  RequireContext(ctx, "ctx", site.importedName, 23);
  RequireContext(p2, "p2", site.importedName, 23);
  const unsigned long long instanceId = ctx->GetZentorInstanceId();
  static ImportCache cache(ctx, instanceId, site.scriptName, site.typeCount, site.types);
  return CallImported<JSONObjPtr>(site, cache, ctx, instanceId, p1);
}

std::string JSON_ToString(JSONObjPtr const& p1, Zentor::IContext* p2) {
  static const char* const types[] = {"STRING", "JSON", ""};
  static constexpr ImportSite site{"ToString", "JSON_ToString", 3, types};
  Zentor::IContext* ctx = p2;
  RequireContext(ctx, "ctx", site.importedName, 24);
  RequireContext(p2, "p2", site.importedName, 24);
  const unsigned long long instanceId = ctx->GetZentorInstanceId();
  static ImportCache cache(ctx, instanceId, site.scriptName, site.typeCount, site.types);
  return CallImported<std::string>(site, cache, ctx, instanceId, p1);
}

// ---------------------------------------------------------------------------

namespace Zentor {

void AppendToErrorStr(char* buffer, unsigned int size, const char* text, unsigned long item) {
  if (!buffer || !text) return;
  const size_t used = std::strlen(buffer);
  std::string entry = used > 0 ? ", " : "";
  entry += "Item '" + std::to_string(item + 1) + "' has error '" + text + "'";
  if (used + entry.size() + 1 < size) std::strncat(buffer, entry.c_str(), entry.size());
}

namespace JSON {

namespace {

using ValuePtr = JsonAutoRefPtr<JsonValue>;

// A new owner of a node that a container owns.
ValuePtr Share(JsonValue* node) {
  if (node) node->AddRef();
  return ValuePtr(node);
}

ValuePtr NewStartValue(JSONWrapper::EJsonStartType type) {
  switch (type) {
    case JSONWrapper::kStartObject:
      return ValuePtr(new JsonObject(false));
    case JSONWrapper::kStartArray:
      return ValuePtr(new JsonArray());
    default:
      return ValuePtr(new JsonNull());
  }
}

bool IsType(const ValuePtr& value, JsonValue::EJsonValueType type) {
  return value && value->Type() == type;
}

bool IsObjectLike(const ValuePtr& value) {
  return IsType(value, JsonValue::Object) || IsType(value, JsonValue::CompiledObject);
}

// The member `key` of an object or compiled object (by name), or empty.
ValuePtr MemberOf(const ValuePtr& container, const std::string& key) {
  if (IsType(container, JsonValue::Object))
    return static_cast<JsonObject*>(container.get())->At(key);
  if (IsType(container, JsonValue::CompiledObject))
    return static_cast<JsonCompiledObject*>(container.get())->At(key);
  return ValuePtr();
}

JsonArray* AsArray(const ValuePtr& value) {
  return IsType(value, JsonValue::Array) ? static_cast<JsonArray*>(value.get()) : nullptr;
}

// A new wrapper over `node` as a slot result (+1 for the caller).
IJSON* NewNodeWrapper(const ValuePtr& node) {
  return node ? new JSONWrapper(node) : nullptr;
}

std::string ParseErrorMessage(const ParserContext& context) {
  return "JSON parse error in line " + std::to_string(context.fLine) + ": " + context.fError;
}

std::string NotObjectMessage(const char* key, const ValuePtr& root) {
  return std::string("Error while searching member '") + key + "'. Type is " +
         root->TypeAsString() + " but should be Object.";
}

bool IntegerIn(const ValuePtr& value, long long low, long long high) {
  long long number = 0;
  return IsType(value, JsonValue::Integer) && value->GetAsInteger(number) && number >= low &&
         number <= high;
}

constexpr size_t kForEachErrorBufferSize = 1024;
constexpr unsigned int kMaxCollectedErrors = 20;
constexpr size_t kMaxCollectedErrorText = 10241;

}  // namespace

// ---------------------------------------------------------------------------
// JSONData

JSONData::JSONData(JSONWrapper::EJsonStartType type) : fRoot(NewStartValue(type)) {}

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

void JSONData::SetError(const std::string& message) {
  std::unique_lock lock(fLock);
  fError.first = IJSON::kStatusError;
  fError.second = message;
}

void JSONData::SetError(std::string&& message) {
  std::unique_lock lock(fLock);
  fError.first = IJSON::kStatusError;
  fError.second = std::move(message);
}

void JSONData::SetWarning(const std::string& message) {
  std::unique_lock lock(fLock);
  fError.first = IJSON::kStatusWarning;
  fError.second = message;
}

void JSONData::SetWarning(std::string&& message) {
  std::unique_lock lock(fLock);
  fError.first = IJSON::kStatusWarning;
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
  if (!fRoot) return;
  if (!indent || !*indent)
    fRoot->WriteToString(out);
  else
    fRoot->WriteToStringPretty(out, indent, "\n");
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
      const long index = std::strtol(segment.c_str(), nullptr, 10);
      if (index < 0 || static_cast<unsigned long>(index) >= array->Size()) {
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

// ---------------------------------------------------------------------------
// JSONWrapper: construction and conversion

JSONWrapper::JSONWrapper(EJsonStartType type) : fData(std::make_shared<JSONData>(type)) {}

JSONWrapper::JSONWrapper(const JsonAutoRefPtr<JsonValue>& root)
    : fData(std::make_shared<JSONData>(root)) {}

JSONWrapper::JSONWrapper(JsonAutoRefPtr<JsonValue>&& root)
    : fData(std::make_shared<JSONData>(std::move(root))) {}

JSONWrapper::JSONWrapper(const std::string& text) : fData(std::make_shared<JSONData>(kStartNull)) {
  ParseDirect(text, true);
}

JSONWrapper::JSONWrapper(const JSONWrapper& other)
    : InterfaceImpl<IJSON>(other), fData(std::make_shared<JSONData>(other.fData.get())) {}

JSONWrapper& JSONWrapper::operator=(const JSONWrapper& other) {
  if (this != &other) fData = other.fData;
  return *this;
}

JSONWrapper::~JSONWrapper() = default;

const JsonAutoRefPtr<JsonValue>& JSONWrapper::Root() const {
  return fData->fRoot;
}

AutoRefPtr<JSONWrapper> JSONWrapper::Create() {
  return AutoRefPtr<JSONWrapper>(new JSONWrapper(kStartObject));
}

AutoRefPtr<JSONWrapper> JSONWrapper::CreateEmptyArray() {
  return AutoRefPtr<JSONWrapper>(new JSONWrapper(kStartArray));
}

AutoRefPtr<JSONWrapper> JSONWrapper::CreateNull() {
  return AutoRefPtr<JSONWrapper>(new JSONWrapper(kStartNull));
}

AutoRefPtr<JSONWrapper> JSONWrapper::Create(const std::string& text, bool keepOrder) {
  if (text.empty()) return AutoRefPtr<JSONWrapper>();
  AutoRefPtr<JSONWrapper> wrapper(new JSONWrapper(kStartNull));
  if (!wrapper->ParseDirect(text, keepOrder)) return AutoRefPtr<JSONWrapper>();
  if (!wrapper->Root()) wrapper->State().fRoot = ValuePtr(new JsonNull());
  return wrapper;
}

AutoRefPtr<JSONWrapper> JSONWrapper::Create(const char* text) {
  if (!text || !*text) return AutoRefPtr<JSONWrapper>();
  return Create(std::string(text), true);
}

bool JSONWrapper::ParseDirect(const std::string& text, bool keepOrder) {
  State().ClearError();
  ParserContext context;
  context.fKeepObjectOrder = keepOrder;
  ValuePtr value = JsonValue::ReadFromString(text, &context, nullptr);
  if (!value) {
    State().SetError(ParseErrorMessage(context));
    return false;
  }
  State().fRoot = std::move(value);
  return true;
}

void JSONWrapper::ToJSONString(const JSONWrapper& json, std::string& out, const char* indent) {
  json.State().ClearError();
  json.State().ToString(out, indent);
}

void JSONWrapper::ToJSONString(const AutoRefPtr<JSONWrapper>& json, std::string& out,
                               const char* indent) {
  ToJSONString(*json, out, indent);
}

std::string JSONWrapper::ToJSONString(const JSONWrapper& json, const char* indent) {
  std::string out;
  ToJSONString(json, out, indent);
  return out;
}

std::string JSONWrapper::ToJSONString(const AutoRefPtr<JSONWrapper>& json, const char* indent) {
  return ToJSONString(*json, indent);
}

AutoRefPtr<IDataRef> JSONWrapper::ToMsgPack(const JSONWrapper& json) {
  std::string bytes;
  // A tree the writer cannot encode leaves no bytes: the result is empty
  // data rather than an error.
  if (json.Root()) json.Root()->WriteToMsgPack(bytes);
  return NewData(std::move(bytes));
}

bool JSONWrapper::FromMsgPack(const AutoRefPtr<IDataRef>& data) {
  static const std::string kFailed = "reading from MsgPack failed";
  State().ClearError();
  if (!data) {
    State().SetError(kFailed);
    return false;
  }
  const unsigned long long size = data->GetSize();
  std::string bytes;
  if (const void* direct = data->GetData()) {
    bytes.assign(static_cast<const char*>(direct), static_cast<size_t>(size));
  } else {
    bytes.resize(static_cast<size_t>(size));
    if (data->Read(bytes.data(), size, 0) != size) {
      State().SetError(kFailed);
      return false;
    }
  }
  State().fRoot = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr);
  if (!Root()) {
    State().SetError(kFailed);
    return false;
  }
  return true;
}

AutoRefPtr<JSONWrapper> JSONWrapper::FromMJson(const JsonAutoRefPtr<JsonValue>& root) {
  return AutoRefPtr<JSONWrapper>(new JSONWrapper(root));
}

JsonAutoRefPtr<JsonValue> JSONWrapper::ToMJson(const IJSON* json) {
  const JSONWrapper* wrapper = CastFromIJSON(json);
  if (!wrapper || !wrapper->fData) return ValuePtr();
  return wrapper->Root();
}

JsonAutoRefPtr<JsonValue> JSONWrapper::ToMJson(const AutoRefPtr<IJSON>& json) {
  return ToMJson(json.get());
}

JSONWrapper* JSONWrapper::CastFromIJSON(IJSON* json) {
  return json ? dynamic_cast<JSONWrapper*>(json) : nullptr;
}

const JSONWrapper* JSONWrapper::CastFromIJSON(const IJSON* json) {
  return json ? dynamic_cast<const JSONWrapper*>(json) : nullptr;
}

AutoRefPtr<JSONWrapper> JSONWrapper::CloneJSON(const AutoRefPtr<IJSON>& json) {
  return CloneJSON(json.get());
}

AutoRefPtr<JSONWrapper> JSONWrapper::CloneJSON(const IJSON* json) {
  const JSONWrapper* wrapper = CastFromIJSON(json);
  if (!wrapper) return AutoRefPtr<JSONWrapper>();
  return AutoRefPtr<JSONWrapper>(new JSONWrapper(*wrapper));
}

AutoRefPtr<IUserDefinedType> JSONWrapper::ToJSONObj(const AutoRefPtr<const IJSON>& json,
                                                    IContext* ctx) {
  AutoRefPtr<IUserDefinedType> result = JSON_CreateEmptyObject(ctx).Get();
  const JSONWrapper* wrapper = CastFromIJSON(json.get());
  if (wrapper && wrapper->fData && wrapper->Root() && result) {
    // The in-process handle: the address of our root pointer, which a JSON
    // value of this module adopts as a shared root.
    const void* handle = &wrapper->fData->fRoot;
    if (!result->FromBinaryData(handle, sizeof(handle), JSONObj::kBinaryHandleFormat)) {
      ShowEffectivityWarning(ctx);
      std::string text;
      json->ToString(text, "");
      result = JSON_FromString(text, ctx).Get();
    }
  }
  return result;
}

AutoRefPtr<IUserDefinedType> JSONWrapper::ToJSONObj(const AutoRefPtr<IJSON>& json, IContext* ctx) {
  return ToJSONObj(AutoRefPtr<const IJSON>(json), ctx);
}

AutoRefPtr<IUserDefinedType> JSONWrapper::ToJSONObj(const AutoRefPtr<JSONWrapper>& json,
                                                    IContext* ctx) {
  return ToJSONObj(AutoRefPtr<const IJSON>(json), ctx);
}

AutoRefPtr<IUserDefinedType> JSONWrapper::ToJSONObj(const JsonAutoRefPtr<JsonValue>& root,
                                                    IContext* ctx) {
  return ToJSONObj(FromMJson(root), ctx);
}

namespace {

// The root shared through the in-process handle of `obj`, or null when the
// object does not answer it (another JSON implementation).
const JsonAutoRefPtr<JsonValue>* HandleOf(const AutoRefPtr<IUserDefinedType>& obj) {
  void* address = nullptr;
  if (obj->ToBinaryData(&address, JSONObj::kBinaryHandleFormat) != sizeof(void*) || !address)
    return nullptr;
  return static_cast<const JsonAutoRefPtr<JsonValue>*>(address);
}

}  // namespace

AutoRefPtr<JSONWrapper> JSONWrapper::FromJSONObj(const AutoRefPtr<IUserDefinedType>& obj,
                                                 IContext* ctx) {
  if (!obj) return AutoRefPtr<JSONWrapper>();
  if (const JsonAutoRefPtr<JsonValue>* root = HandleOf(obj)) {
    AutoRefPtr<JSONWrapper> wrapper(new JSONWrapper(kStartNull));
    wrapper->State().fRoot = *root;
    return wrapper;
  }
  ShowEffectivityWarning(ctx);
  return Create(JSON_ToString(obj, ctx), true);
}

JsonAutoRefPtr<JsonValue> JSONWrapper::JSONObjToMJson(const AutoRefPtr<IUserDefinedType>& obj,
                                                      IContext* ctx) {
  if (!obj) return ValuePtr();
  if (const JsonAutoRefPtr<JsonValue>* root = HandleOf(obj)) return *root;
  ShowEffectivityWarning(ctx);
  return JsonValue::ReadFromString(JSON_ToString(obj, ctx), nullptr, nullptr);
}

void JSONWrapper::ShowEffectivityWarning(IContext* ctx) {
  // Atomic: threads that meet a foreign implementation at once must not
  // race on the flag, and exactly one of them logs.
  static std::atomic<bool> sShowError{true};
  if (ctx && sShowError.load(std::memory_order_relaxed) &&
      sShowError.exchange(false, std::memory_order_relaxed)) {
    ctx->ErrorLog(
        "JSONWrapper",
        "JSON module implementation is not compatible with JSONWrapper implementation, leading to "
        "performance inefficiencies.");
  }
}

// ---------------------------------------------------------------------------
// IJSON slots

bool JSONWrapper::Interface_Parse(const char* text) {
  if (!text) {
    State().ClearError();
    return true;
  }
  return ParseDirect(text, true);
}

bool JSONWrapper::Interface_LessThan(const IJSON* other) const {
  State().ClearError();
  const JSONWrapper* that = CastFromIJSON(other);
  if (!that) return false;
  const std::string mine = Root() ? Root()->GetAsString() : std::string();
  const std::string theirs = that->Root() ? that->Root()->GetAsString() : std::string();
  return mine < theirs;
}

bool JSONWrapper::Interface_Equals(const IJSON* other) const {
  State().ClearError();
  const JSONWrapper* that = CastFromIJSON(other);
  if (!that) return false;
  const ValuePtr mine = Root();
  const ValuePtr theirs = that->Root();
  if (!mine || !theirs) return !mine && !theirs;
  return *mine == *theirs;
}

unsigned long long JSONWrapper::Interface_ToString(const char* indent, char* buffer,
                                                   unsigned long long size) const {
  State().ClearError();
  const std::string text = ToJSONString(*this, indent);
  if (buffer && text.size() < size) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return text.size() + 1;
}

unsigned long long JSONWrapper::Interface_ToCachedString(const char* indent, char* buffer,
                                                         unsigned long long size) {
  return Interface_ToString(indent, buffer, size);
}

IJSON* JSONWrapper::Interface_FindNodePath(const char* path) const {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root) return nullptr;
  return NewNodeWrapper(State().FindNodePath(root, path));
}

namespace {

// The first element of `array` that is an object with a member `key` for
// which `matches` holds.
template <class Matches>
IJSON* FirstMatchingElement(const JsonArray& array, const std::string& key, Matches&& matches) {
  for (size_t i = 0; i < array.Size(); ++i) {
    ValuePtr element = array.AtIndex(i);
    if (!IsObjectLike(element)) continue;
    ValuePtr member = MemberOf(element, key);
    if (member && matches(*member)) return NewNodeWrapper(element);
  }
  return nullptr;
}

}  // namespace

IJSON* JSONWrapper::Interface_ElementMatchingString(const char* key, const char* value) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!key || !value || !array) {
    State().SetWarning("JSON object is not an array");
    return nullptr;
  }
  return FirstMatchingElement(
      *array, key, [value](const JsonValue& member) { return member.GetAsString() == value; });
}

IJSON* JSONWrapper::Interface_ElementMatchingDouble(const char* key, double value) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!key || !array) {
    State().SetWarning("JSON object is not an array");
    return nullptr;
  }
  return FirstMatchingElement(*array, key, [value](const JsonValue& member) {
    double real = 0;
    if (member.GetAsReal(real)) return real == value;
    return static_cast<double>(std::strtol(member.GetAsString().c_str(), nullptr, 10)) == value;
  });
}

unsigned long long JSONWrapper::Interface_Size() const {
  State().ClearError();
  const ValuePtr& root = Root();
  return root ? ContainerSize(*root) : 0;
}

bool JSONWrapper::Interface_Empty() const {
  State().ClearError();
  return IsEmptyValue(Root().get());
}

JsonAutoRefPtr<JsonValue> JSONWrapper::MemberForRead(const char* key,
                                                     const char* notFoundEnd) const {
  const ValuePtr& root = Root();
  if (!IsObjectLike(root)) {
    State().SetError(NotObjectMessage(key, root));
    return ValuePtr();
  }
  ValuePtr member = MemberOf(root, key);
  if (!member) State().SetWarning(std::string("Could not find member '") + key + notFoundEnd);
  return member;
}

unsigned long long JSONWrapper::Interface_GetString(const char* key, char* buffer,
                                                    unsigned long long size,
                                                    unsigned char* complete) const {
  State().ClearError();
  if (!Root() || !key) return 0;
  const ValuePtr member = MemberForRead(key, "'.");
  if (!member) return 0;
  std::string text;
  if (!member->GetAsString(text)) return 0;
  if (complete) *complete = 1;
  // The caller's buffer has room for the zero byte at index `size`.
  if (buffer && text.size() <= size) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return text.size() + 1;
}

namespace {

std::string MemberWarning(const char* key, const char* what) {
  return std::string("Member '") + key + what;
}

}  // namespace

// The common start of the typed member reads: a fresh error state, then the
// member, with nothing to read (and no message) when the document, the key
// or the output is missing.
JsonAutoRefPtr<JsonValue> JSONWrapper::TypedMemberForRead(const char* key, const void* out) const {
  State().ClearError();
  if (!Root() || !key || !out) return {};
  return MemberForRead(key, "'");
}

bool JSONWrapper::Interface_GetDouble(const char* key, double* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  double value = 0;
  if (!member->GetAsReal(value)) {
    State().SetWarning(MemberWarning(key, "' is no double"));
    return false;
  }
  *out = value;
  return true;
}

bool JSONWrapper::Interface_GetInt(const char* key, int* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value)) {
    State().SetWarning(MemberWarning(key, "' is no 32 bit integer"));
    return false;
  }
  if (value < INT_MIN || value > INT_MAX) {
    // Zero, not a clamped value: an integer type has no infinity.
    *out = std::numeric_limits<int>::infinity();
    State().SetWarning(MemberWarning(key, "' is no integer"));
    return false;
  }
  *out = static_cast<int>(value);
  return true;
}

bool JSONWrapper::Interface_GetUInt(const char* key, unsigned int* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value) || value < 0 || value > static_cast<long long>(UINT_MAX)) {
    *out = 0;
    State().SetWarning(MemberWarning(key, "' is no 32 bit unsigned integer"));
    return false;
  }
  *out = static_cast<unsigned int>(value);
  return true;
}

bool JSONWrapper::Interface_GetInt64(const char* key, long long* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value)) {
    State().SetWarning(MemberWarning(key, "' is no integer"));
    return false;
  }
  *out = value;
  return true;
}

bool JSONWrapper::Interface_GetUInt64(const char* key, unsigned long long* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  long long value = 0;
  if (!member->GetAsInteger(value) || value < 0) {
    State().SetWarning(MemberWarning(key, "' is no unsigned integer"));
    return false;
  }
  *out = static_cast<unsigned long long>(value);
  return true;
}

bool JSONWrapper::Interface_GetBoolean(const char* key, unsigned char* out) const {
  const ValuePtr member = TypedMemberForRead(key, out);
  if (!member) return false;
  bool value = false;
  if (!member->GetAsBool(value)) {
    State().SetWarning(MemberWarning(key, "' is no boolean"));
    return false;
  }
  *out = value ? 1 : 0;
  return true;
}

IJSON* JSONWrapper::Interface_Get(const char* key) const {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root || !key) return nullptr;
  if (!IsObjectLike(root)) {
    State().SetError(NotObjectMessage(key, root));
    return nullptr;
  }
  return NewNodeWrapper(MemberOf(root, key));
}

bool JSONWrapper::Interface_Has(const char* key) const {
  State().ClearError();
  const ValuePtr root = Root();
  return root && key && HasKeyOrElement(*root, key);
}

IJSON* JSONWrapper::Interface_At(unsigned long long index) const {
  State().ClearError();
  const ValuePtr root = Root();
  const JsonArray* array = AsArray(root);
  if (!array) return nullptr;
  if (index >= array->Size()) {
    State().SetError("Index is out of bounds");
    return nullptr;
  }
  ValuePtr element = array->AtIndex(static_cast<size_t>(index));
  if (!element) {
    State().SetError("Error while accessing element at given index");
    return nullptr;
  }
  return NewNodeWrapper(element);
}

namespace {

const char kNotAnArrayPush[] = "Couldn't push back to JSON array, JSON object is not an array";

}  // namespace

bool JSONWrapper::Interface_PushBackBool(unsigned char value) {
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  array->AddBool(value != 0);
  return true;
}

bool JSONWrapper::Interface_PushBackString(const char* text) {
  static const char kInvalidValue[] = "Couldn't push back invalid value to JSON array";
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!text) {
    State().SetWarning(kInvalidValue);
    return false;
  }
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  bool added = false;
  array->AddString(std::string(text), &added);
  // Text that is not UTF-8 is an invalid value like a null text.
  if (!added) State().SetWarning(kInvalidValue);
  return added;
}

bool JSONWrapper::Interface_PushBackDouble(double value) {
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  array->AddReal(value);
  return true;
}

bool JSONWrapper::Interface_PushBackJSON(const IJSON* other) {
  State().ClearError();
  if (!Root()) return false;
  const JSONWrapper* that = CastFromIJSON(other);
  if (!that || !that->Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning("JSON object is not an array");
    return false;
  }
  // Copied, so that the appended document and this one never share nodes
  // (appending a document to itself included).
  array->AddValue(*that->Root());
  return true;
}

IJSON* JSONWrapper::Interface_RemoveIndex(unsigned long long index) {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root) return nullptr;
  const std::string failed = "Couldn't remove element at position " + std::to_string(index);
  JsonArray* array = AsArray(root);
  if (!array) {
    State().SetWarning(failed + ", JSON object is not an array");
    return nullptr;
  }
  ValuePtr element = array->AtIndex(static_cast<size_t>(index));
  if (!element) {
    State().SetWarning(failed);
    return nullptr;
  }
  IJSON* removed = NewNodeWrapper(element);
  if (array->Erase(static_cast<size_t>(index), 1) != 1) State().SetWarning(failed);
  return removed;
}

IJSON* JSONWrapper::Interface_RemoveKey(const char* key) {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root || !key) return nullptr;
  const std::string failed = std::string("Couldn't remove element with key ") + key;
  if (!IsObjectLike(root)) {
    State().SetWarning(failed + ", JSON object is not an object");
    return nullptr;
  }
  ValuePtr member = MemberOf(root, key);
  if (!member) {
    State().SetWarning(failed);
    return nullptr;
  }
  IJSON* removed = NewNodeWrapper(member);
  const bool erased = IsType(root, JsonValue::Object)
                          ? static_cast<JsonObject*>(root.get())->Erase(key)
                          : static_cast<JsonCompiledObject*>(root.get())->Erase(key);
  if (!erased) State().SetWarning(failed);
  return removed;
}

bool JSONWrapper::Interface_AsBool(unsigned char* out) const {
  State().ClearError();
  if (!Root() || !out) return false;
  bool value = false;
  const bool ok = JSONData::AsBool(Root(), value);
  *out = value ? 1 : 0;
  return ok;
}

bool JSONWrapper::Interface_AsDouble(double* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsDouble(Root(), *out);
}

bool JSONWrapper::Interface_AsInt(int* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsInt(Root(), *out);
}

bool JSONWrapper::Interface_AsUInt(unsigned int* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsUInt(Root(), *out);
}

bool JSONWrapper::Interface_AsInt64(long long* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsInt64(Root(), *out);
}

bool JSONWrapper::Interface_AsUInt64(unsigned long long* out) const {
  State().ClearError();
  return Root() && out && JSONData::AsUInt64(Root(), *out);
}

unsigned long long JSONWrapper::Interface_AsString(char* buffer, unsigned long long size,
                                                   unsigned char* complete) const {
  State().ClearError();
  if (complete) *complete = 0;
  if (!Root()) return 0;
  std::string text;
  if (!JSONData::AsString(Root(), text)) return 0;
  if (buffer && text.size() < size) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    if (complete) *complete = 1;
  }
  return text.size() + 1;
}

bool JSONWrapper::Interface_IsNull() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Null);
}

bool JSONWrapper::Interface_IsBool() const {
  State().ClearError();
  return IsType(Root(), JsonValue::True) || IsType(Root(), JsonValue::False);
}

bool JSONWrapper::Interface_IsNumber() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Integer) || IsType(Root(), JsonValue::Real);
}

bool JSONWrapper::Interface_IsDouble() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Real);
}

bool JSONWrapper::Interface_IsInt() const {
  State().ClearError();
  return IntegerIn(Root(), INT_MIN, INT_MAX);
}

bool JSONWrapper::Interface_IsUInt() const {
  State().ClearError();
  return IntegerIn(Root(), 0, UINT_MAX);
}

bool JSONWrapper::Interface_IsInt64() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Integer);
}

bool JSONWrapper::Interface_IsUInt64() const {
  State().ClearError();
  return IntegerIn(Root(), 0, LLONG_MAX);
}

bool JSONWrapper::Interface_IsString() const {
  State().ClearError();
  return IsType(Root(), JsonValue::String);
}

bool JSONWrapper::Interface_IsArray() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Array);
}

bool JSONWrapper::Interface_IsObject() const {
  State().ClearError();
  return IsType(Root(), JsonValue::Object);
}

template <class Insert>
bool JSONWrapper::SetMember(const char* key, Insert&& insert) {
  State().ClearError();
  if (!Root() || !key) {
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  // A null document becomes an object on its first set.
  if (IsType(Root(), JsonValue::Null)) State().fRoot = ValuePtr(new JsonObject(false));
  if (!IsType(Root(), JsonValue::Object)) {
    State().SetError("Can't set key/value pair into JSON, JSON element is not a JSON object");
    return false;
  }
  return insert(*static_cast<JsonObject*>(Root().get()), std::string(key));
}

namespace {

// The typed inserts check the key for UTF-8 (keyIsUTF8 false).
template <class Insert>
auto KeyChecked(JSONData& state, Insert&& insert) {
  return [&state, insert](JsonObject& object, const std::string& key) {
    if (insert(object, key)) return true;
    state.SetError("Can't set key/value pair into JSON, JSON key is not a valid UTF8-string");
    return false;
  };
}

}  // namespace

bool JSONWrapper::Interface_SetBool(const char* key, unsigned char value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertBool(name, value != 0, false);
                   }));
}

bool JSONWrapper::Interface_SetDouble(const char* key, double value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertReal(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetInt(const char* key, int value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetUInt(const char* key, unsigned int value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, static_cast<long long>(value), false);
                   }));
}

bool JSONWrapper::Interface_SetInt64(const char* key, long long value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetUInt64(const char* key, unsigned long long value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetString(const char* key, const char* value) {
  if (!value) {
    State().ClearError();
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  return SetMember(key, [this, value](JsonObject& object, const std::string& name) {
    if (object.InsertString(name, std::string(value), false, false)) return true;
    State().SetError("Can't set key/value pair into JSON, value for key \"" + name +
                     "\" key and/or value is not a valid UTF8-string");
    return false;
  });
}

bool JSONWrapper::Interface_SetJSON(const char* key, const IJSON* value) {
  // Only this module's documents can be stored; a foreign one is refused
  // like a missing one, as the array operations do.
  const JSONWrapper* that = CastFromIJSON(value);
  const ValuePtr source = that ? that->Root() : ValuePtr();
  if (!source) {
    State().ClearError();
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  // Copied: storing a shared node would let a document contain itself.
  return SetMember(key, KeyChecked(State(), [source](JsonObject& object, const std::string& name) {
                     return object.InsertValue(name, *source, false);
                   }));
}

bool JSONWrapper::Interface_SetNull(const char* key) {
  return SetMember(key, KeyChecked(State(), [](JsonObject& object, const std::string& name) {
                     return object.InsertNull(name, false);
                   }));
}

bool JSONWrapper::Interface_ReplaceIndex(unsigned long long index, const IJSON* value) {
  State().ClearError();
  if (!Root()) return false;
  const JSONWrapper* that = CastFromIJSON(value);
  if (!that || !that->Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning("JSON object is not an array");
    return false;
  }
  // Shared, not copied; an index past the end stores nothing.
  array->SetValueAtIndex(static_cast<size_t>(index), that->Root());
  return true;
}

template <class Visit>
bool JSONWrapper::WalkMembers(Visit&& visit) const {
  // Held for the walk, so a callback that replaces the root cannot free the
  // container under it; sizes are read anew each step for callbacks that
  // change it.
  const ValuePtr root = Root();
  if (!root) return false;
  switch (root->Type()) {
    case JsonValue::Object: {
      const auto* object = static_cast<const JsonObject*>(root.get());
      for (size_t i = 0; i < object->Size(); ++i) {
        const JsonObject::Member& member = object->Members()[i];
        const std::string key = member.key.Str();
        const AutoRefPtr<JSONWrapper> value = FromMJson(Share(member.value));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    case JsonValue::CompiledObject: {
      const auto* object = static_cast<const JsonCompiledObject*>(root.get());
      for (size_t i = 0; i < object->SlotCount(); ++i) {
        const std::string key = object->KeyName(i);
        const AutoRefPtr<JSONWrapper> value = FromMJson(object->At(i));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    case JsonValue::Array: {
      const auto* array = static_cast<const JsonArray*>(root.get());
      for (size_t i = 0; i < array->Size(); ++i) {
        const std::string key = std::to_string(i);
        const AutoRefPtr<JSONWrapper> value = FromMJson(array->AtIndex(i));
        if (!visit(key.c_str(), value.get(), i)) break;
      }
      return true;
    }
    default:
      return false;
  }
}

bool JSONWrapper::Interface_ForEach(ForEachCallback callback, void* user) const {
  if (!callback) return false;
  bool result = true;
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t) {
    if (callback(key, value, user) != 0) return true;
    result = false;
    return false;
  });
  return walked && result;
}

bool JSONWrapper::Interface_ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
                                    unsigned int errorBufferSize) const {
  if (!callback) return false;
  bool result = true;
  unsigned long item = 0;
  unsigned int appended = 0;
  // One byte more than offered, which stays zero, so a callback that fills
  // the whole buffer still leaves a terminated text.
  char callbackError[kForEachErrorBufferSize + 1];
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t) {
    std::memset(callbackError, 0, sizeof(callbackError));
    if (callback(key, value, user, callbackError, kForEachErrorBufferSize) != 0) {
      ++item;
      return true;
    }
    result = false;
    if (!errorBuffer || callbackError[0] == '\0') return false;
    AppendToErrorStr(errorBuffer, errorBufferSize, callbackError, item);
    ++item;
    return ++appended < kMaxCollectedErrors;
  });
  return walked && result;
}

bool JSONWrapper::Interface_ForEach(ForEachContextCallback callback, void* user,
                                    IContext* context) const {
  if (!callback) return false;
  bool result = true;
  std::string collected;
  unsigned int added = 0;
  const bool walked = WalkMembers([&](const char* key, const IJSON* value, size_t position) {
    if (callback(key, value, user, context) != 0) return true;
    result = false;
    if (context && context->HasError()) {
      const std::string message = context->GetErrorMessage();
      if (!message.empty()) {
        std::string entry = collected.empty() ? "" : ", ";
        entry += "Item '" + std::to_string(position + 1) + "' has error '" + message + "'";
        context->ClearError();
        if (collected.size() + entry.size() + 1 >= kMaxCollectedErrorText) return false;
        collected += entry;
        ++added;
      }
    }
    return added < kMaxCollectedErrors;
  });
  if (!collected.empty() && context) {
    context->TriggerErrorHandler(ErrorSeverity::Error, "Zentor", ZentorError::FunctionError(),
                                 collected);
  }
  return walked && result;
}

IJSON* JSONWrapper::Interface_Clone() const {
  return new JSONWrapper(*this);
}

unsigned long long JSONWrapper::Interface_SerializedSize() {
  return ToJSONString(*this, "").size() + 8;
}

namespace {

constexpr unsigned long long kLengthPrefixSize = 8;

}  // namespace

unsigned long long JSONWrapper::Interface_Deserialize(const char* data, unsigned long long size) {
  State().ClearError();
  if (!data || size < kLengthPrefixSize) return kInvalidSize;
  unsigned long long length = 0;
  for (int i = 7; i >= 0; --i) length = (length << 8) | static_cast<unsigned char>(data[i]);
  if (size - kLengthPrefixSize < length) return kInvalidSize;
  if (!Parse(std::string(data + kLengthPrefixSize, static_cast<size_t>(length))))
    return kInvalidSize;
  return length + kLengthPrefixSize;
}

unsigned long long JSONWrapper::Interface_Serialize(char* buffer, unsigned long long size) {
  State().ClearError();
  const std::string text = ToJSONString(*this, "");
  const unsigned long long length = text.size();
  if (!buffer || size < length + kLengthPrefixSize) return kInvalidSize;
  // Little-endian whatever the machine: this is a wire format.
  for (unsigned long long i = 0; i < kLengthPrefixSize; ++i)
    buffer[i] = static_cast<char>((length >> (8 * i)) & 0xFF);
  std::memcpy(buffer + kLengthPrefixSize, text.data(), text.size());
  return length + kLengthPrefixSize;
}

IJSON::Status JSONWrapper::Interface_GetErrorStatus() const {
  return fData ? fData->GetErrorStatus() : kStatusNone;
}

unsigned long long JSONWrapper::Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                                          unsigned char* complete) const {
  const std::string message = fData ? fData->GetErrorMessage() : std::string();
  const unsigned long long needed = message.size() + 1;
  const bool fits = buffer && needed <= size;
  if (fits) std::memcpy(buffer, message.c_str(), needed);
  if (complete) *complete = fits ? 1 : 0;
  return needed;
}

}  // namespace JSON

}  // namespace Zentor
