// Fuzz target: the text parser with every option combination, and what a
// successful parse must then guarantee: the compact and indented texts parse
// back to an equal value, and a deep copy is equal too.
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzCommon.h"
#include "Mjson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  uint8_t options = data[0];
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  ParserContext ctx;
  ApplyOptions(options, ctx);
  const JsonCompiledObjectContext* table = (options & 0x40) ? &FuzzTable() : nullptr;
  JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromString(text, &ctx, table);
  if (!value) {
    FUZZ_CHECK(!ctx.fError.empty());
    return 0;
  }
  // NaN, which MessagePack input can carry, is unequal to itself.
  if (!HasNaN(*value)) FUZZ_CHECK(*JsonValue::Copy(*value) == *value);

  std::string compact;
  value->WriteToString(compact);
  std::string pretty;
  value->WriteToStringPretty(pretty, "\t", "\r\n");
  // Only values that were read as text write back as the same values: input
  // handed to the MessagePack reader holds reals made by code, which write
  // with six decimals, and a settled non-finite real writes a form that no
  // reader accepts.
  unsigned char first = static_cast<unsigned char>(text.empty() ? 0 : text[0]);
  bool wasMsgPack =
      ctx.fDetectMsgPack && ((first >= 0x80 && first <= 0x9F) || (first >= 0xDC && first <= 0xDF));
  if (!(wasMsgPack || HasNonFinite(*value) || HasPaddedInteger(*value))) {
    for (const std::string* again : {&compact, &pretty}) {
      ParserContext back;
      back.fNoUTF8Check = ctx.fNoUTF8Check;
      JsonAutoRefPtr<JsonValue> reread = JsonValue::ReadFromString(*again, &back, table);
      FUZZ_CHECK(reread);
      FUZZ_CHECK(*reread == *value);
    }
  }
  CheckChangedCopy(*value, static_cast<unsigned char>(data[size - 1]));
  CheckHeldChildOutlivesDocument(value);
  return 0;
}
