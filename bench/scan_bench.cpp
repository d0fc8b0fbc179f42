// The value library's scan-bound work on JSON files, timed with nothing but
// the standard library, so that it builds for every target: the UTF-8 check
// of a whole input, parsing it, parsing its indented form (runs of blanks),
// and writing it compactly (strings scanned for escapes). Used to compare
// two builds of the vector layer (docs/performance.md); under an emulator
// only such ratios mean anything.
//
//   zentor_scan_bench [--rounds N] FILE...
//
// Each operation runs N rounds (default 20) on each file; the fastest round
// is reported in MB/s of the input.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "Mjson.h"

namespace {

using Clock = std::chrono::steady_clock;

double FastestSeconds(int rounds, const std::function<void()>& work) {
  double best = 1e30;
  for (int i = 0; i < rounds; ++i) {
    const Clock::time_point start = Clock::now();
    work();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = 20;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc)
      rounds = std::max(1, std::atoi(argv[++i]));
    else
      files.push_back(argv[i]);
  }
  if (files.empty()) {
    std::fprintf(stderr, "usage: zentor_scan_bench [--rounds N] FILE...\n");
    return 2;
  }
  std::printf("%-24s %10s %10s %12s %10s  (MB/s, fastest of %d)\n", "file", "utf8", "parse",
              "parse-indent", "write", rounds);
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    ParserContext ctx;
    JsonAutoRefPtr<JsonValue> doc = JsonValue::ReadFromString(text, &ctx, nullptr);
    if (!doc) {
      std::fprintf(stderr, "%s: %s\n", file.c_str(), ctx.fError.c_str());
      return 1;
    }
    std::string indented;
    doc->WriteToStringPretty(indented, "    ", "\n");
    std::string out;
    size_t sink = 0;
    const double mb = static_cast<double>(text.size()) / 1e6;
    const double utf8 = FastestSeconds(rounds, [&] { sink += JsonValue::IsUTF8(text); });
    const double parse = FastestSeconds(rounds, [&] {
      ParserContext c;
      sink += JsonValue::ReadFromString(text, &c, nullptr) ? 1 : 0;
    });
    const double parseIndented = FastestSeconds(rounds, [&] {
      ParserContext c;
      sink += JsonValue::ReadFromString(indented, &c, nullptr) ? 1 : 0;
    });
    const double write = FastestSeconds(rounds, [&] {
      doc->WriteToString(out);
      sink += out.size();
    });
    const std::string name = file.substr(file.find_last_of('/') + 1);
    std::printf("%-24s %10.0f %10.0f %12.0f %10.0f\n", name.c_str(), mb / utf8, mb / parse,
                mb / parseIndented, mb / write);
    if (sink == 0) return 1;  // keeps the work from being optimised away
  }
  return 0;
}
