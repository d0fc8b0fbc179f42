#include "BenchDocs.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

// Each synthetic document grows until it passes this size, so its MB/s
// figures are measured on as many bytes as a mid-sized corpus file.
constexpr size_t kSyntheticBytes = 1 << 20;

// A fixed-seed generator: the synthetic documents must be the same bytes on
// every run, or figures from two runs would not compare.
class Rng {
 public:
  explicit Rng(uint64_t seed) : fState(seed) {}
  uint64_t Next() {
    uint64_t z = (fState += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  size_t Below(size_t n) { return static_cast<size_t>(Next() % n); }
  double Unit() { return static_cast<double>(Next() >> 11) / 9007199254740992.0; }

 private:
  uint64_t fState;
};

void AppendFormat(std::string& out, const char* format, auto... args) {
  char buffer[64];
  int n = std::snprintf(buffer, sizeof buffer, format, args...);
  out.append(buffer, static_cast<size_t>(n));
}

// Words as they appear inside JSON string literals: plain ASCII, raw UTF-8
// of two to four bytes, and escapes, so that both the fast path and the
// slow path of every string reader are exercised.
const char* const kWords[] = {
    "the",
    "quick",
    "brown",
    "fox",
    "jumps",
    "over",
    "lazy",
    "dog",
    "lorem",
    "ipsum",
    "dolor",
    "sit",
    "amet",
    "consectetur",
    "adipiscing",
    "elit",
    "café",
    "naïve",
    "Zürich",
    "déjà-vu",
    "日本語",
    "данные",
    "Ελλάδα",
    "😀",
    "🚀launch",
    "\\\"quoted\\\"",
    "back\\\\slash",
    "line\\nbreak",
    "tab\\there",
    "\\u00e9t\\u00e9",
    "snow\\u2603man",
    "grin\\ud83d\\ude00",
    "a/b",
    "x=1&y=2",
};
constexpr size_t kWordCount = sizeof kWords / sizeof kWords[0];

void AppendWords(std::string& out, Rng& rng, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (i) out += ' ';
    out += kWords[rng.Below(kWordCount)];
  }
}

// An array of records whose bulk is prose: long strings, short tags.
std::string StringHeavy() {
  Rng rng(1);
  std::string out = "[";
  for (size_t id = 0; out.size() < kSyntheticBytes; ++id) {
    if (id) out += ',';
    AppendFormat(out, "{\"id\":\"u%06zu\",\"name\":\"", id);
    AppendWords(out, rng, 2);
    out += "\",\"text\":\"";
    AppendWords(out, rng, 10 + rng.Below(60));
    out += "\",\"tags\":[";
    for (size_t t = 0, n = rng.Below(5); t < n; ++t) {
      if (t) out += ',';
      out += '"';
      out += kWords[rng.Below(kWordCount)];
      out += '"';
    }
    out += "]}";
  }
  out += "]";
  return out;
}

// Rows of numbers only: small and large integers, negative ones, a few
// above the signed 64-bit range, and reals in short, full-precision and
// exponent forms.
std::string NumberHeavy() {
  Rng rng(2);
  std::string out = "[";
  for (size_t row = 0; out.size() < kSyntheticBytes; ++row) {
    out += row ? ",[" : "[";
    AppendFormat(out, "%" PRIu64 ",", rng.Next() % 1000);
    AppendFormat(out, "%" PRId64 ",", -static_cast<int64_t>(rng.Next() >> 12));
    if (row % 64 == 0)
      AppendFormat(out, "%" PRIu64 ",", 9223372036854775808ull + (rng.Next() >> 2));
    double v = (rng.Unit() - 0.5) * 2000.0;
    AppendFormat(out, "%.6f,", v);
    AppendFormat(out, "%.17g,", v / 3.0);
    AppendFormat(out, "%.4e", rng.Unit() * 1e-5);
    out += ']';
  }
  out += "]";
  return out;
}

// Chains of objects and arrays 512 levels deep (under the 1024 levels that
// the most restrictive peer accepts by default), each level small.
std::string DeeplyNested() {
  constexpr size_t kLevels = 256;  // one object and one array per level
  std::string out = "[";
  for (size_t chain = 0; out.size() < kSyntheticBytes; ++chain) {
    if (chain) out += ',';
    for (size_t level = 0; level < kLevels; ++level)
      AppendFormat(out, "{\"level\":%zu,\"name\":\"n%zu\",\"child\":[", level, chain);
    out += "null";
    for (size_t level = 0; level < kLevels; ++level) out += "]}";
  }
  out += "]";
  return out;
}

// Objects of a thousand members each, with scalar values of every kind.
std::string WideObjects() {
  constexpr size_t kMembers = 1000;
  Rng rng(4);
  std::string out = "[";
  for (size_t object = 0; out.size() < kSyntheticBytes; ++object) {
    out += object ? ",{" : "{";
    for (size_t m = 0; m < kMembers; ++m) {
      if (m) out += ',';
      AppendFormat(out, "\"field_%zu_", (m * 7919) % kMembers);  // unique, not in sorted order
      out += kWords[rng.Below(16)];  // plain ASCII words: keys stay simple
      out += "\":";
      switch (m % 5) {
        case 0:
          AppendFormat(out, "%" PRIu64, rng.Next() % 100000);
          break;
        case 1:
          out += "\"value ";
          out += kWords[rng.Below(kWordCount)];
          out += '"';
          break;
        case 2:
          out += (rng.Next() & 1) ? "true" : "false";
          break;
        case 3:
          AppendFormat(out, "%.3f", rng.Unit() * 100.0);
          break;
        default:
          out += "null";
          break;
      }
    }
    out += '}';
  }
  out += "]";
  return out;
}

}  // namespace

const std::vector<std::string>& SyntheticKinds() {
  static const std::vector<std::string> kinds = {"synth-strings", "synth-numbers", "synth-nested",
                                                 "synth-wide"};
  return kinds;
}

std::string SynthesizeDocument(const std::string& kind) {
  if (kind == "synth-strings") return StringHeavy();
  if (kind == "synth-numbers") return NumberHeavy();
  if (kind == "synth-nested") return DeeplyNested();
  if (kind == "synth-wide") return WideObjects();
  return {};
}

std::vector<BenchDoc> LoadCorpus(const std::string& dir, std::string& error) {
  namespace fs = std::filesystem;
  std::vector<BenchDoc> docs;
  std::error_code ec;
  fs::directory_iterator it(dir, ec);
  if (ec) {
    error = "cannot read " + dir + ": " + ec.message();
    return docs;
  }
  for (const fs::directory_entry& entry : it) {
    if (!entry.is_regular_file() || entry.path().extension() != ".json") continue;
    BenchDoc doc;
    doc.name = entry.path().stem().string();
    doc.source = fs::absolute(entry.path()).string();
    if (!LoadSource(doc.source, doc.text)) {
      error = "cannot read " + doc.source;
      continue;
    }
    docs.push_back(std::move(doc));
  }
  std::sort(docs.begin(), docs.end(),
            [](const BenchDoc& a, const BenchDoc& b) { return a.name < b.name; });
  return docs;
}

std::vector<BenchDoc> SyntheticDocuments() {
  std::vector<BenchDoc> docs;
  for (const std::string& kind : SyntheticKinds()) {
    BenchDoc doc;
    doc.name = kind;
    doc.source = "synthetic:" + kind;
    doc.text = SynthesizeDocument(kind);
    docs.push_back(std::move(doc));
  }
  return docs;
}

bool LoadSource(const std::string& source, std::string& text) {
  static const std::string kSynthetic = "synthetic:";
  if (source.compare(0, kSynthetic.size(), kSynthetic) == 0) {
    text = SynthesizeDocument(source.substr(kSynthetic.size()));
    return !text.empty();
  }
  std::ifstream in(source, std::ios::binary);
  if (!in) return false;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = std::move(buffer).str();
  return true;
}
