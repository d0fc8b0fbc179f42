// Measures our JSON library against the peers found at build time, in one
// run and on the same documents.
//
//   zentor_bench [--data DIR] [--no-synthetic] [--verify-only] [--benchmark_...]
//
// Benchmarks are named OPERATION/CONTENDER/DOCUMENT. Before anything is
// timed, every library's reading of every document is cross-checked against
// ours: a library that read a different document would be measured on
// different work, so its benchmarks for that document are dropped.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>

#include "BenchLibraries.h"

namespace {

struct Options {
  std::string dataDir;
  bool synthetic = true;
  bool verifyOnly = false;
};

bool ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--data" && i + 1 < argc) {
      options.dataDir = argv[++i];
    } else if (arg.rfind("--data=", 0) == 0) {
      options.dataDir = arg.substr(7);
    } else if (arg == "--no-synthetic") {
      options.synthetic = false;
    } else if (arg == "--verify-only") {
      options.verifyOnly = true;
    } else {
      std::fprintf(stderr, "unknown argument: %s\n", argv[i]);
      return false;
    }
  }
  return true;
}

// The cross-check. Returns, per document, the libraries that may be timed on it.
std::map<std::string, std::vector<std::string>> CrossCheck(const std::vector<BenchDoc>& docs,
                                                           const std::vector<Library>& libs,
                                                           bool verbose, int& passed, int& failed) {
  std::map<std::string, std::vector<std::string>> admitted;
  for (const BenchDoc& doc : docs) {
    for (const Library& lib : libs) {
      bool ok = true;
      auto check = [&](const char* what, const std::string& actual, bool msgpack) {
        std::string why;
        if (OurDocumentsEqual(doc.text, actual, msgpack, why)) {
          ++passed;
          if (verbose) std::printf("ok    %s %s %s\n", lib.name.c_str(), what, doc.name.c_str());
        } else {
          ++failed;
          ok = false;
          std::fprintf(stderr, "FAIL  %s %s %s: %s\n", lib.name.c_str(), what, doc.name.c_str(),
                       why.c_str());
        }
      };
      if (lib.textRoundTrip) check("text", lib.textRoundTrip(doc.text), false);
      if (lib.msgpackRoundTrip) check("msgpack", lib.msgpackRoundTrip(doc.msgpack), true);
      if (ok) admitted[doc.name].push_back(lib.name);
    }
  }
  return admitted;
}

// Runs the heap probe that sits next to this program.
bool ProbeHeap(const std::string& lib, const std::string& source, double& retained, double& peak,
               std::string& error) {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) {
    error = "cannot locate the heap probe";
    return false;
  }
  std::string command;
  for (const std::string& word : {(self.parent_path() / "zentor_heap_probe").string(), lib, source})
    command.append(command.empty() ? "'" : " '").append(word).append("'");
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    error = "cannot start the heap probe";
    return false;
  }
  long long r = 0, p = 0;
  int fields = std::fscanf(pipe, "%lld %lld", &r, &p);
  int status = pclose(pipe);
  if (fields != 2 || status != 0) {
    error = "the heap probe failed";
    return false;
  }
  retained = static_cast<double>(r);
  peak = static_cast<double>(p);
  return true;
}

void RegisterHeap(const BenchDoc& doc, const Library& lib) {
  std::string name = "heap/" + lib.name + "/" + doc.name;
  std::string source = doc.source;
  double inputBytes = static_cast<double>(doc.text.size());
  std::string libName = lib.name;
  benchmark::RegisterBenchmark(name.c_str(),
                               [=](benchmark::State& state) {
                                 double retained = 0, peak = 0;
                                 std::string error;
                                 bool ok = true;
                                 for (auto _ : state)
                                   ok = ProbeHeap(libName, source, retained, peak, error);
                                 if (!ok) {
                                   state.SkipWithError(error.c_str());
                                   return;
                                 }
                                 state.counters["bytes_per_doc"] = retained;
                                 state.counters["peak_bytes"] = peak;
                                 state.counters["bytes_per_input_byte"] = retained / inputBytes;
                               })
      ->Iterations(1)
      ->Repetitions(1)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Options options;
  if (!ParseOptions(argc, argv, options)) return 2;

  std::vector<BenchDoc> docs;
  if (!options.dataDir.empty()) {
    std::string error;
    docs = LoadCorpus(options.dataDir, error);
    if (!error.empty()) std::fprintf(stderr, "%s\n", error.c_str());
    if (docs.empty()) std::fprintf(stderr, "no .json files in %s\n", options.dataDir.c_str());
  }
  if (options.synthetic) {
    std::vector<BenchDoc> synthetic = SyntheticDocuments();
    docs.insert(docs.end(), synthetic.begin(), synthetic.end());
  }
  // Our MessagePack encoding of each document is what every MessagePack
  // reader reads. A document we cannot parse is not measured at all.
  std::erase_if(docs, [](BenchDoc& doc) {
    std::string error;
    doc.msgpack = OurMsgPack(doc.text, error);
    if (doc.msgpack.empty())
      std::fprintf(stderr, "skipping %s: %s\n", doc.name.c_str(), error.c_str());
    return doc.msgpack.empty();
  });
  if (docs.empty()) {
    std::fprintf(stderr, "no documents to measure\n");
    return 1;
  }

  std::vector<Library> libs = AvailableLibraries();
  std::string missing;
  for (const std::string& name : MissingLibraries()) {
    std::fprintf(stderr, "peer not built in: %s\n", name.c_str());
    missing += (missing.empty() ? "" : ", ") + name;
  }
  benchmark::AddCustomContext("missing_peers", missing.empty() ? "none" : missing);

  int passed = 0, failed = 0;
  auto admitted = CrossCheck(docs, libs, options.verifyOnly, passed, failed);
  if (options.verifyOnly) {
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed ? 1 : 0;
  }

  // Cases of all libraries, registered document by document and, within a
  // document, operation by operation, so the console output reads as a table.
  for (const BenchDoc& doc : docs) {
    std::vector<TimedCase> cases;
    const std::vector<std::string>& ok = admitted[doc.name];
    for (const Library& lib : libs) {
      if (std::find(ok.begin(), ok.end(), lib.name) == ok.end()) continue;
      std::vector<TimedCase> more = lib.cases(doc);
      std::move(more.begin(), more.end(), std::back_inserter(cases));
    }
    const std::vector<std::string>& ops = Operations();
    std::stable_sort(cases.begin(), cases.end(), [&](const TimedCase& a, const TimedCase& b) {
      return std::find(ops.begin(), ops.end(), a.op) < std::find(ops.begin(), ops.end(), b.op);
    });
    for (TimedCase& c : cases) {
      std::string name = c.op + "/" + c.label + "/" + doc.name;
      benchmark::RegisterBenchmark(name.c_str(), std::move(c.run))->Unit(benchmark::kMillisecond);
    }
    for (const Library& lib : libs)
      if (lib.hold && std::find(ok.begin(), ok.end(), lib.name) != ok.end()) RegisterHeap(doc, lib);
  }

  benchmark::RunSpecifiedBenchmarks();
  // The registered cases own parsed documents. Free them now: our library
  // frees trees through per-thread state, which is gone by the time static
  // objects (the benchmark registry among them) are destroyed.
  benchmark::ClearRegisteredBenchmarks();
  benchmark::Shutdown();
  return failed ? 1 : 0;
}
