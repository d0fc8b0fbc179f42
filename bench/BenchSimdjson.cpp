// simdjson's DOM. Its parser owns the document and is meant to be reused,
// so the timed parse reuses one parser, as its users do; the input is
// padded once, outside the timing, since the library requires padding.
#include <simdjson.h>

#include "BenchLibraries.h"

namespace {

std::vector<TimedCase> SimdjsonCases(const BenchDoc& doc) {
  auto input = std::make_shared<simdjson::padded_string>(doc.text);
  auto parser = std::make_shared<simdjson::dom::parser>();
  return {MakeCase(doc, "parse", "simdjson", [input, parser] {
    simdjson::dom::element root;
    bool ok = parser->parse(*input).get(root) == simdjson::SUCCESS;
    benchmark::DoNotOptimize(&root);
    return ok;
  })};
}

}  // namespace

Library SimdjsonLibrary() {
  Library lib;
  lib.name = "simdjson";
  lib.cases = SimdjsonCases;
  // The parser holds the document, so the parser is what stays alive. The
  // padded copy of the input counts towards the peak, not towards what the
  // document keeps.
  lib.hold = [](const std::string& text) -> std::shared_ptr<void> {
    simdjson::padded_string input(text);
    auto parser = std::make_shared<simdjson::dom::parser>();
    simdjson::dom::element root;
    if (parser->parse(input).get(root) != simdjson::SUCCESS) return nullptr;
    return parser;
  };
  lib.textRoundTrip = [](const std::string& text) {
    simdjson::padded_string input(text);
    simdjson::dom::parser parser;
    simdjson::dom::element root;
    if (parser.parse(input).get(root) != simdjson::SUCCESS) return std::string();
    return simdjson::to_string(root);
  };
  return lib;
}
