#include "Text.h"

#include <cxxabi.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "ZentorStatus.h"

namespace zhost {
namespace {

void AppendHexPair(std::string& out, unsigned char byte) {
  static const char kHexDigits[] = "0123456789abcdef";
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 15];
}

// A byte outside printable ASCII as \xNN, any other as it is: the one rule
// by which every text the host shows stays ASCII.
void AppendPrintable(std::string& out, char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte >= 0x20 && byte < 0x7f) {
    out += c;
    return;
  }
  out += "\\x";
  AppendHexPair(out, byte);
}

}  // namespace

std::string Quote(const std::string& bytes) {
  std::string out = "\"";
  for (const char c : bytes) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\0':
        out += "\\0";
        break;
      default:
        AppendPrintable(out, c);
    }
  }
  return out + "\"";
}

std::string Printable(const std::string& bytes) {
  std::string out;
  for (const char c : bytes) AppendPrintable(out, c);
  return out;
}

std::string FormatNumber(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string Hex(const std::string& bytes) {
  std::string out;
  for (const char c : bytes) AppendHexPair(out, static_cast<unsigned char>(c));
  return out;
}

std::string FormatStatus(unsigned int status) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "0x%08X", status);
  return buffer;
}

std::string DescribeStatus(unsigned int status) {
  const unsigned int kind = Zentor::StatusKindOf(status);
  const std::string position = std::to_string(Zentor::StatusPosition(status));
  switch (kind) {
    case Zentor::kStatusArgumentMissing:
      return "argument " + position + " missing";
    case Zentor::kStatusWrongKind:
      return "argument " + position + " has the wrong kind";
    case Zentor::kStatusEmptyObject:
      return "argument " + position + " is an invalid object (a user-defined value without object)";
    default:
      return "unknown kind " + std::to_string(kind) + " at argument " + position;
  }
}

std::string Demangle(const char* mangled) {
  if (!mangled) return "unknown type";
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> readable(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
  return status == 0 && readable ? std::string(readable.get()) : std::string(mangled);
}

void Output::Line(const std::string& text) {
  std::lock_guard<std::mutex> lock(fMutex);
  fOut << text << '\n';
  fOut.flush();
}

}  // namespace zhost
