#include "BenchLibraries.h"

std::vector<Library> AvailableLibraries() {
  std::vector<Library> libs{OurLibrary()};
#ifdef HAVE_RAPIDJSON
  libs.push_back(RapidJsonLibrary());
#endif
#ifdef HAVE_NLOHMANN_JSON
  libs.push_back(NlohmannLibrary());
#endif
#ifdef HAVE_SIMDJSON
  libs.push_back(SimdjsonLibrary());
#endif
#ifdef HAVE_MSGPACK_CXX
  libs.push_back(MsgpackCxxLibrary());
#endif
  return libs;
}

std::vector<std::string> MissingLibraries() {
  std::vector<std::string> missing;
#ifndef HAVE_RAPIDJSON
  missing.push_back("rapidjson (rapidjson-dev)");
#endif
#ifndef HAVE_NLOHMANN_JSON
  missing.push_back("nlohmann (nlohmann-json3-dev)");
#endif
#ifndef HAVE_SIMDJSON
  missing.push_back("simdjson (libsimdjson-dev)");
#endif
#ifndef HAVE_MSGPACK_CXX
  missing.push_back("msgpack-cxx (libmsgpack-cxx-dev)");
#endif
  return missing;
}
