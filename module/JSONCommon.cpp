#include "JSONCommon.h"

bool HasKeyOrElement(const JsonValue& root, const std::string& key) {
  switch (root.Type()) {
    case JsonValue::Object:
      return static_cast<const JsonObject&>(root).HasKey(key);
    case JsonValue::CompiledObject:
      return static_cast<const JsonCompiledObject&>(root).HasKey(key);
    case JsonValue::Array: {
      std::string text;
      for (const JsonValue* element : static_cast<const JsonArray&>(root).Values())
        if (element && element->GetAsString(text) && text == key) return true;
      return false;
    }
    default:
      return false;
  }
}

bool EraseMember(JsonValue& container, const std::string& key) {
  switch (container.Type()) {
    case JsonValue::Object:
      return static_cast<JsonObject&>(container).Erase(key);
    case JsonValue::CompiledObject:
      return static_cast<JsonCompiledObject&>(container).Erase(key);
    default:
      return false;
  }
}

std::string ParseErrorMessage(const ParserContext& context) {
  return "JSON parse error in line " + std::to_string(context.fLine) + ": " + context.fError;
}

void WriteText(const JsonValue& value, const std::string& indent, std::string& out) {
  if (indent.empty())
    value.WriteToString(out);
  else
    value.WriteToStringPretty(out, indent, "\n");
}
