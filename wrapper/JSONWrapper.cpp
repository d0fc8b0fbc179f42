// The native JSON interface's wrapper: construction, text and MessagePack,
// and the conversions to and from the value tree and the host's "JSON" type.
#include "JSONWrapper.h"

#include <atomic>

#include "JSONCommon.h"
#include "ZentorData.h"

namespace Zentor {
namespace JSON {

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
  std::string bytes;
  if (!data->ReadAll(bytes)) {
    State().SetError(kFailed);
    return false;
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

}  // namespace JSON
}  // namespace Zentor
