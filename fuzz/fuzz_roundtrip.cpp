// Fuzz target: text in, then through both codecs: parse, write, parse again
// gives an equal value; write as MessagePack and read back gives an equal
// value.
#include <cstdint>
#include <string>

#include "FuzzCommon.h"
#include "Mjson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  // Inputs of odd length are read into arenas however short they are.
  mjson::detail::Arena::SetMinInput(size % 2 ? 0 : mjson::detail::Arena::kDefaultMinInput);
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromString(text, &ctx, nullptr);
  if (!value) return 0;

  std::string compact;
  value->WriteToString(compact);
  if (!HasPaddedInteger(*value)) {
    JsonAutoRefPtr<JsonValue> reread = JsonValue::ReadFromString(compact, nullptr, nullptr);
    FUZZ_CHECK(reread);
    FUZZ_CHECK(*reread == *value);
  }

  std::string packed;
  FUZZ_CHECK(value->WriteToMsgPack(packed));
  JsonAutoRefPtr<JsonValue> unpacked = JsonValue::ReadFromMsgPack(packed, nullptr, nullptr);
  FUZZ_CHECK(unpacked);
  FUZZ_CHECK(*unpacked == *value);
  CheckHeldChildOutlivesDocument(unpacked);
  CheckHeldChildOutlivesDocument(value);
  return 0;
}
