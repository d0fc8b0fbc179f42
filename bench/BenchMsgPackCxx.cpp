// msgpack-cxx, MessagePack only. It has no JSON parser, so both directions
// work on its generic tree, msgpack::object: reading is an unpack of the
// same bytes every reader gets into an object handle (strings copied into
// its zone, as our reader copies them), writing is a pack of the object so
// read. That is the library's own document, not a conversion from another.
#include <msgpack.hpp>

#include "BenchLibraries.h"

namespace {

bool Unpack(const std::string& bytes, msgpack::object_handle& handle) {
  try {
    handle = msgpack::unpack(bytes.data(), bytes.size());
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::vector<TimedCase> MsgpackCxxCases(const BenchDoc& doc) {
  std::vector<TimedCase> cases;
  auto parsed = std::make_shared<msgpack::object_handle>();
  if (Unpack(doc.msgpack, *parsed)) {
    cases.push_back(MakeCase(doc, "msgpack-write", "msgpack-cxx", [parsed] {
      msgpack::sbuffer out;
      msgpack::pack(out, parsed->get());
      benchmark::DoNotOptimize(out.data());
      return out.size() != 0;
    }));
  }
  const std::string* bytes = &doc.msgpack;
  cases.push_back(MakeCase(doc, "msgpack-read", "msgpack-cxx", [bytes] {
    msgpack::object_handle handle;
    bool ok = Unpack(*bytes, handle);
    benchmark::DoNotOptimize(&handle);
    return ok;
  }));
  return cases;
}

}  // namespace

Library MsgpackCxxLibrary() {
  Library lib;
  lib.name = "msgpack-cxx";
  lib.cases = MsgpackCxxCases;
  lib.msgpackRoundTrip = [](const std::string& bytes) {
    msgpack::object_handle handle;
    if (!Unpack(bytes, handle)) return std::string();
    msgpack::sbuffer out;
    msgpack::pack(out, handle.get());
    return std::string(out.data(), out.size());
  };
  return lib;
}
