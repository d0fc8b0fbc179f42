// Script functions that turn documents into text or MessagePack and back,
// and that make new documents.
#include <string>

#include "JSONFunctions.h"
#include "ZentorData.h"

using namespace JSONFunctions;

namespace {

// The parse of JSON.FromString and JSON.IsValid: members keep their order.
ValuePtr ParseKeepingOrder(const std::string& text, ParserContext& parserContext) {
  parserContext.fKeepObjectOrder = true;
  return JsonValue::ReadFromString(text, &parserContext, nullptr);
}

JSONObjRef StringToJsonImpl(const std::string& text, bool ignoreErrors, Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  ParserContext parserContext;
  ValuePtr value = ParseKeepingOrder(text, parserContext);
  if (value) {
    result->fRoot = std::move(value);
    return result;
  }
  if (ignoreErrors) return result;
  Report(context, kSeverityError, kErrorParse, ParseErrorMessage(parserContext));
  return JSONObjRef();
}

}  // namespace

std::string JsonToFormattedString(const JSONObjRef& json, const std::string& indent) {
  std::string result;
  if (json->fRoot) WriteText(*json->fRoot, indent, result);
  return result;
}

std::string JsonToString(const JSONObjRef& json) {
  return JsonToFormattedString(json, std::string());
}

JSONObjRef StringToJson(const std::string& text, Zentor::IContext* context) {
  return StringToJsonImpl(text, false, context);
}

JSONObjRef StringToJsonIgnoreErrors(const std::string& text, Zentor::IContext* context) {
  return StringToJsonImpl(text, true, context);
}

// Validity is decided by exactly the parse that JSON.FromString makes; the
// parsed value is dropped at once.
bool IsValid(const std::string& text, Zentor::IContext*) {
  ParserContext parserContext;
  return static_cast<bool>(ParseKeepingOrder(text, parserContext));
}

JSONObjRef MsgPackToJson(const Zentor::AutoRefPtr<Zentor::IDataRef>& data,
                         Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  std::string bytes;
  if (!data || !data->ReadAll(bytes)) return result;
  // A failed decoding leaves the document without any value, on purpose:
  // it then reads as nothing at all rather than as null.
  result->fRoot = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr);
  return result;
}

Zentor::AutoRefPtr<Zentor::IDataRef> JsonToMsgPack(const JSONObjRef& json) {
  if (json->fRoot) {
    std::string buffer;
    if (json->fRoot->WriteToMsgPack(buffer)) return NewData(std::move(buffer));
  }
  return NewData(std::string());
}

JSONObjRef CreateEmptyArray(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Array, context);
}

JSONObjRef CreateEmptyObject(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Object, context);
}

JSONObjRef CreateNull(Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return NewJSONObj(jsonTypeId, JsonValue::Null, context);
}
