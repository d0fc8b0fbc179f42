// What each measured library offers the driver. Every library lives in its
// own source file, compiled only when the library was found, so the program
// builds with any subset of the peers installed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchDocs.h"

// Operations, in the order they are registered and reported.
inline const std::vector<std::string>& Operations() {
  static const std::vector<std::string> ops = {"parse",        "write", "pretty", "msgpack-write",
                                               "msgpack-read", "copy",  "heap"};
  return ops;
}

// One timed benchmark of one library on one document.
struct TimedCase {
  std::string op;     // one of Operations()
  std::string label;  // the contender, as the report names it ("rapidjson-validating")
  std::function<void(benchmark::State&)> run;
};

struct Library {
  std::string name;  // as given to the heap probe ("rapidjson")

  // The timed benchmarks of this library for one document. Each case owns
  // whatever it prepared (a parsed document to write, its input bytes).
  std::function<std::vector<TimedCase>(const BenchDoc&)> cases;

  // For the heap probe: parses the text into this library's document and
  // keeps it until the handle is dropped. Null when the parse fails.
  std::function<std::shared_ptr<void>(const std::string& text)> hold;

  // For the cross-check: the document parsed from `text` and written back
  // as compact JSON text, or the MessagePack bytes read and written back.
  // Empty functions where the library has no such path; an empty result
  // means the library failed.
  std::function<std::string(const std::string& text)> textRoundTrip;
  std::function<std::string(const std::string& msgpack)> msgpackRoundTrip;
};

// The libraries compiled into this program, ours first.
std::vector<Library> AvailableLibraries();
// The peers that were not found at build time.
std::vector<std::string> MissingLibraries();

// Each library's file defines one of these.
Library OurLibrary();
Library RapidJsonLibrary();
Library NlohmannLibrary();
Library SimdjsonLibrary();
Library MsgpackCxxLibrary();

// Our own parse and MessagePack encoding, for the driver's document setup
// and the cross-check.
std::string OurMsgPack(const std::string& text, std::string& error);
// True when `actual` (JSON text, or MessagePack bytes when `actualIsMsgPack`)
// holds the same document as the JSON `text`: our library's equality, except
// that an integer and a real of equal value match. Members compare regardless
// of order. `why` tells what differed.
bool OurDocumentsEqual(const std::string& text, const std::string& actual, bool actualIsMsgPack,
                       std::string& why);

// Helpers shared by the library files.

// Bytes credited per iteration: the JSON text for text operations, the
// MessagePack bytes for MessagePack ones, so that for one document and
// operation every library is credited the same count and MB/s ratios are
// time ratios.
inline int64_t CreditedBytes(const BenchDoc& doc, const std::string& op) {
  return static_cast<int64_t>(op.rfind("msgpack", 0) == 0 ? doc.msgpack.size() : doc.text.size());
}

// Wraps a loop body into a benchmark that credits the document's bytes.
template <class Body>
TimedCase MakeCase(const BenchDoc& doc, std::string op, std::string label, Body body) {
  int64_t bytes = CreditedBytes(doc, op);
  return TimedCase{std::move(op), std::move(label), [bytes, body](benchmark::State& state) mutable {
                     for (auto _ : state) {
                       if (!body()) {
                         state.SkipWithError("the library failed on this document");
                         break;
                       }
                     }
                     state.SetBytesProcessed(state.iterations() * bytes);
                   }};
}
