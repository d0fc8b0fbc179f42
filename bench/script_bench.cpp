// What script edits cost, measured the way a host calls the module: the
// module is loaded into the reference host's library and its exported entry
// points are called with host variants, one call per script statement.
//
//   zentor_script_bench [--module PATH] [--data DIR] [--only NAME] [--repeat N]
//
// Every changing script function copies its whole argument, so a loop of
// edits pays for the document on every call. Each row prints the time per
// call and, for the rows that copy a document, a floor: the bytes the copy
// writes divided by the memory bandwidth that memcpy reaches on a block of
// that size, measured in the same run. Rows (fastest of --repeat runs):
//
//   append   16,000 "JSON.ArrayAppend" of a number to one array
//   set      8,000 "JSON.Set" of a new member (a number) on one object
//   setsub   "JSON.SetSubNode" of a string deep in the twitter document
//   subnode  "JSON.SubNode" of a path in the twitter document (a read)
//   tostring "ToString" of a document a "JSON.SetSubNode" just made
//
// --module loads another build of the module, so that two builds are timed
// by the same driver.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "Host.h"
#include "HostValues.h"

namespace {

using zhost::HostVariant;
using VariantPtr = Zentor::AutoRefPtr<HostVariant>;
using Clock = std::chrono::steady_clock;

constexpr int kAppends = 16000;
constexpr int kSets = 8000;
// How the value library lays out what these loops build (the floor's
// model): a number is a node of 24 bytes, an array element also an 8-byte
// slot in its array's list, an object member a 24-byte entry (key and
// value) and, with the object's index at most half full, 8 bytes of index.
constexpr double kBytesPerElement = 24 + 8;
constexpr double kBytesPerMember = 24 + 24 + 8;

struct Options {
  std::string module = "libzentor_json" ZENTOR_MODULE_SUFFIX;
  std::string dataDir = "../shared/bench-data";
  std::string only;
  int repeat = 3;
};

class Module {
 public:
  explicit Module(const std::string& path) : fOut(fSink), fHost(fOut) {
    std::string error;
    if (!fHost.Load(path, error)) {
      std::fprintf(stderr, "cannot load %s: %s\n", path.c_str(), error.c_str());
      std::exit(2);
    }
  }
  struct Function {
    Zentor::ZentorFunction entry = nullptr;
    const zhost::LoadedModule* module = nullptr;
  };
  Function Find(const std::string& name, const std::vector<std::string>& params) const {
    auto overload = fHost.FindOverload(name, nullptr, params);
    if (!overload || !overload->entry) {
      std::fprintf(stderr, "the module has no %s\n", name.c_str());
      std::exit(2);
    }
    return {overload->entry, overload->module};
  }
  VariantPtr Call(const Function& f, std::initializer_list<HostVariant*> args) {
    fArgs.assign(args.begin(), args.end());
    VariantPtr result = zhost::MakeVariant();
    const zhost::CallOutcome outcome = fHost.Call(f.entry, f.module, "bench", fArgs, result.get());
    if (outcome.status != 0 || outcome.threw || fHost.Context().GetErrorState().hasError) {
      std::fprintf(stderr, "a call failed (status %u)\n", outcome.status);
      std::exit(2);
    }
    return result;
  }

 private:
  std::ostringstream fSink;
  zhost::Output fOut;
  zhost::Host fHost;
  std::vector<Zentor::IVariant*> fArgs;
};

double Seconds(Clock::duration d) {
  return std::chrono::duration<double>(d).count();
}

// Bytes per second that memcpy reaches copying `bytes` from one block to
// another, the fastest of a few runs of at least 20 ms each.
double Bandwidth(size_t bytes) {
  std::vector<char> from(bytes, 1), to(bytes, 0);
  double best = 0;
  for (int run = 0; run < 5; ++run) {
    size_t copied = 0;
    const Clock::time_point start = Clock::now();
    Clock::duration spent{};
    do {
      for (int i = 0; i < 8; ++i) {
        std::memcpy(to.data(), from.data(), bytes);
        from[copied % bytes] = to[(copied + 1) % bytes];  // keep the copies alive
        copied += bytes;
      }
      spent = Clock::now() - start;
    } while (spent < std::chrono::milliseconds(20));
    best = std::max(best, static_cast<double>(copied) / Seconds(spent));
  }
  return best;
}

struct Row {
  std::string name;
  std::string what;
  double perCall = 0;      // seconds
  double total = 0;        // seconds, for the loops
  double floorCall = -1;   // seconds, when there is a floor
  double floorTotal = -1;  // seconds, for the loops
  double bytes = 0;        // bytes one (last) call copies
};

// Heap bytes in use, where the C library tells.
size_t HeapInUse() {
#if defined(__GLIBC__)
  return mallinfo2().uordblks;
#else
  return 0;
#endif
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

template <class F>
double Fastest(int repeat, F&& run) {
  double best = 1e300;
  for (int i = 0; i < repeat; ++i) best = std::min(best, run());
  return best;
}

void PrintRow(const Row& r) {
  auto us = [](double s) { return s * 1e6; };
  std::printf("| %s | %s | %.2f |", r.name.c_str(), r.what.c_str(), us(r.perCall));
  if (r.floorCall >= 0)
    std::printf(" %.0f | %.2f | %.1f |", r.bytes / 1024, us(r.floorCall), r.perCall / r.floorCall);
  else
    std::printf(" | | |");
  if (r.total > 0) std::printf(" %.0f ms (floor %.0f ms)", r.total * 1e3, r.floorTotal * 1e3);
  std::printf(" |\n");
  std::fflush(stdout);
}

// A loop of `calls` edits, each on the result of the one before, from the
// document `start` makes; the fastest of `repeat` runs. The time per call
// is taken from the last twentieth of the calls, the floor from
// `bytesPerItem` bytes for each item of the document they copy.
Row EditLoopRow(std::string name, std::string what, int repeat, int calls, double bytesPerItem,
                const std::function<VariantPtr()>& start,
                const std::function<VariantPtr(const VariantPtr&, int)>& edit) {
  Row r{std::move(name), std::move(what)};
  const int tailFrom = calls - calls / 20;
  double tail = 0, best = 0;
  r.total = Fastest(repeat, [&] {
    VariantPtr doc = start();
    const Clock::time_point begin = Clock::now();
    Clock::time_point tailBegin = begin;
    for (int i = 0; i < calls; ++i) {
      if (i == tailFrom) tailBegin = Clock::now();
      doc = edit(doc, i);
    }
    const Clock::time_point end = Clock::now();
    const double total = Seconds(end - begin);
    if (best == 0 || total < best) {
      best = total;
      tail = Seconds(end - tailBegin);
    }
    return total;
  });
  r.perCall = tail / (calls - tailFrom);
  r.bytes = bytesPerItem * calls;
  r.floorCall = r.bytes / Bandwidth(static_cast<size_t>(r.bytes));
  r.floorTotal = r.floorCall * (calls - 1) / 2;  // the copies grow from 0 to `calls` items
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--module" && i + 1 < argc)
      options.module = argv[++i];
    else if (arg == "--data" && i + 1 < argc)
      options.dataDir = argv[++i];
    else if (arg == "--only" && i + 1 < argc)
      options.only = argv[++i];
    else if (arg == "--repeat" && i + 1 < argc)
      options.repeat = std::max(1, std::atoi(argv[++i]));
    else {
      std::fprintf(stderr,
                   "usage: zentor_script_bench [--module PATH] [--data DIR] [--only NAME] "
                   "[--repeat N]\n");
      return 2;
    }
  }
  auto wanted = [&](const char* name) { return options.only.empty() || options.only == name; };

  Module m(options.module);
  const auto fromString = m.Find("JSON.FromString", {"STRING"});
  const auto toString = m.Find("ToString", {"JSON"});
  const auto emptyArray = m.Find("JSON.CreateEmptyArray", {});
  const auto emptyObject = m.Find("JSON.CreateEmptyObject", {});
  const auto append = m.Find("JSON.ArrayAppend", {"JSON", "NUMBER"});
  const auto set = m.Find("JSON.Set", {"JSON", "STRING", "NUMBER"});
  const auto setSubNode = m.Find("JSON.SetSubNode", {"JSON", "STRING", "STRING"});
  const auto subNode = m.Find("JSON.SubNode", {"JSON", "STRING"});

  // The twitter document, parsed first, while the heap holds nothing else
  // of the module's: what the heap grows by is what a copy of it writes.
  const std::string twitterText = ReadFile(options.dataDir + "/twitter.json");
  VariantPtr twitter;
  size_t twitterBytes = 0;
  if (!twitterText.empty()) {
    VariantPtr text = zhost::MakeString(twitterText);
    const size_t before = HeapInUse();
    twitter = m.Call(fromString, {text.get()});
    twitterBytes = HeapInUse() - before;
  } else if (wanted("setsub") || wanted("subnode") || wanted("tostring")) {
    std::fprintf(stderr, "no %s/twitter.json: its rows are skipped\n", options.dataDir.c_str());
  }

  std::printf("| operation | what | us per call | KB copied | floor us | x floor | whole loop |\n");
  std::printf("|---|---|---:|---:|---:|---:|---|\n");

  if (wanted("append")) {
    PrintRow(EditLoopRow(
        "append", "16,000 `JSON.ArrayAppend` (NUMBER), one call at the end", options.repeat,
        kAppends, kBytesPerElement, [&] { return m.Call(emptyArray, {}); },
        [&](const VariantPtr& doc, int i) {
          VariantPtr n = zhost::MakeNumber(i);
          return m.Call(append, {doc.get(), n.get()});
        }));
  }
  if (wanted("set")) {
    std::vector<VariantPtr> keys;
    for (int i = 0; i < kSets; ++i) keys.push_back(zhost::MakeString("key" + std::to_string(i)));
    PrintRow(EditLoopRow(
        "set", "8,000 `JSON.Set` (new key, NUMBER), one call at the end", options.repeat, kSets,
        kBytesPerMember, [&] { return m.Call(emptyObject, {}); },
        [&](const VariantPtr& doc, int i) {
          VariantPtr n = zhost::MakeNumber(i);
          return m.Call(set, {doc.get(), keys[static_cast<size_t>(i)].get(), n.get()});
        }));
  }
  if (twitter) {
    VariantPtr path = zhost::MakeString("statuses/42/user/screen_name");
    VariantPtr value = zhost::MakeString("a new screen name");
    const double bandwidth = Bandwidth(twitterBytes);
    // Calls per timed run: enough for some tens of milliseconds.
    constexpr int kCalls = 400;
    if (wanted("setsub")) {
      Row r{"setsub", "`JSON.SetSubNode` (STRING) on twitter.json"};
      r.perCall = Fastest(options.repeat,
                          [&] {
                            const Clock::time_point begin = Clock::now();
                            for (int i = 0; i < kCalls; ++i)
                              m.Call(setSubNode, {twitter.get(), path.get(), value.get()});
                            return Seconds(Clock::now() - begin);
                          }) /
                  kCalls;
      r.bytes = static_cast<double>(twitterBytes);
      if (twitterBytes) r.floorCall = r.bytes / bandwidth;
      PrintRow(r);
    }
    if (wanted("subnode")) {
      Row r{"subnode", "`JSON.SubNode` on twitter.json (a read: nothing copied)"};
      constexpr int kReads = 100000;
      r.perCall = Fastest(options.repeat,
                          [&] {
                            const Clock::time_point begin = Clock::now();
                            for (int i = 0; i < kReads; ++i)
                              m.Call(subNode, {twitter.get(), path.get()});
                            return Seconds(Clock::now() - begin);
                          }) /
                  kReads;
      PrintRow(r);
    }
    if (wanted("tostring")) {
      Row r{"tostring", "`ToString` of a fresh copy of twitter.json (floor: its text copied)"};
      VariantPtr fresh = m.Call(setSubNode, {twitter.get(), path.get(), value.get()});
      size_t textBytes = 0;
      r.perCall = Fastest(options.repeat,
                          [&] {
                            const Clock::time_point begin = Clock::now();
                            for (int i = 0; i < kCalls; ++i)
                              textBytes = m.Call(toString, {fresh.get()})->StringValue().size();
                            return Seconds(Clock::now() - begin);
                          }) /
                  kCalls;
      r.bytes = static_cast<double>(textBytes);
      r.floorCall = r.bytes / Bandwidth(textBytes);
      PrintRow(r);
    }
  }
  return 0;
}
