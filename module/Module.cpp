// The module's metadata exports and the hand-over of its declarations.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ZentorVersion.h"
#include "zentorMacros.h"

// The declaration table appends to it while the library is being loaded,
// from initialisers in other translation units, so it must be a valid empty
// string before any of them runs: constant-initialised where the standard
// library allows it, else constructed ahead of all default-priority
// initialisers.
#if defined(__cpp_lib_constexpr_string) && !defined(__clang__)
constinit std::string sInfo;
#else
[[gnu::init_priority(101)]] std::string sInfo;
#endif

namespace {

const char kEmpty[] = "";

}  // namespace

// The project's version, with the build number the host expects after it.
ZENTOR_EXPORT const char* GetModuleVersion() {
  return ZENTOR_JSON_VERSION ".0";
}
ZENTOR_EXPORT const char* GetSupportedPlatforms() {
  return "linux,mac,windows";
}
ZENTOR_EXPORT const char* GetState() {
  return "stable";
}
ZENTOR_EXPORT const char* GetDownwardsCompatibility() {
  return "1.6.0";
}
ZENTOR_EXPORT const char* GetSDKDependency() {
  return "[1.20.13.0-]";
}
ZENTOR_EXPORT const char* GetModuleZentorVersion() {
  return "1.20.16.0-19";
}
ZENTOR_EXPORT const char* GetZentorSDKVersion() {
  return "1.20.16.0";
}

// The module depends on no other module; all seven lists are the same empty
// string.
ZENTOR_EXPORT const char* GetModuleDependencies() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetModuleDependenciesOptional() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetModuleDependenciesLoadBefore() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetAlternativeFunctionDependencies() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetAlternativeProcedureDependencies() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetOptionalFunctionDependencies() {
  return kEmpty;
}
ZENTOR_EXPORT const char* GetOptionalProcedureDependencies() {
  return kEmpty;
}

// Cleans the assembled declarations in place and hands them over. The
// declaration macros leave an empty word for the call context, so lists end
// in ",)" (or hold ",," and "(," in general); a second call finds nothing
// left to replace and returns the same text.
ZENTOR_EXPORT const char* GetModuleDefinition(void*) {
  Zentor::ReplaceAllStringsInPlace(sInfo, ",,", ",");
  Zentor::ReplaceAllStringsInPlace(sInfo, ",)", ")");
  Zentor::ReplaceAllStringsInPlace(sInfo, "(,", "( ");
  Zentor::ReplaceAllStringsInPlace(sInfo, "( ,", "( ");
  return sInfo.c_str();
}
