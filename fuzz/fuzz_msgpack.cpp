// Fuzz target: the MessagePack reader with every option combination; what
// it accepts must write and read back to an equal value.
#include <cstdint>
#include <string>

#include "FuzzCommon.h"
#include "Mjson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  uint8_t options = data[0];
  std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);

  ParserContext ctx;
  ApplyOptions(options, ctx);
  const JsonCompiledObjectContext* table = (options & 0x40) ? &FuzzTable() : nullptr;
  JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromMsgPack(bytes, &ctx, table);
  if (!value) {
    FUZZ_CHECK(!ctx.fError.empty());
    return 0;
  }
  std::string again;
  FUZZ_CHECK(value->WriteToMsgPack(again));
  ParserContext back;
  back.fNoUTF8Check = ctx.fNoUTF8Check;
  JsonAutoRefPtr<JsonValue> reread = JsonValue::ReadFromMsgPack(again, &back, table);
  FUZZ_CHECK(reread);
  if (!HasNaN(*value)) FUZZ_CHECK(*reread == *value);
  std::string text;
  value->WriteToString(text);
  CheckChangedCopy(*value, static_cast<unsigned char>(data[size - 1]));
  CheckHeldChildOutlivesDocument(value);
  return 0;
}
