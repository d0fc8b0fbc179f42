// Reads JSON text on standard input and writes it indented, or says where
// and why the text is not JSON.
#include <iostream>
#include <iterator>
#include <string>

#include "Mjson.h"

int main() {
  const std::string text(std::istreambuf_iterator<char>(std::cin), {});
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;  // write members in the order they came
  JsonAutoRefPtr<JsonValue> value = JsonValue::ReadFromString(text, &ctx, nullptr);
  if (!value) {
    std::cerr << "line " << ctx.fLine + 1 << ": " << ctx.fError << "\n";
    return 1;
  }
  std::string out;
  value->WriteToStringPretty(out, "  ", "\n");
  std::cout << out << "\n";
  return 0;
}
