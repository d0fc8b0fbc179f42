// How the host spells values in its output: one canonical, ASCII-only form
// per value, so that expected outputs can be compared byte for byte.
#pragma once

#include <mutex>
#include <ostream>
#include <string>

namespace zhost {

// A string as a script literal: quoted, with \" \\ \n \r \t \0 and \xNN for
// every other byte outside printable ASCII.
std::string Quote(const std::string& bytes);
// Text shown as it is (JSON text, module texts) with only the bytes
// outside printable ASCII written as \xNN; a backslash stays single.
std::string Printable(const std::string& bytes);
// The shortest decimal form that reads back as the same double; "nan",
// "inf", "-inf" for the special values.
std::string FormatNumber(double value);
// Lower-case hex digits, two per byte.
std::string Hex(const std::string& bytes);
// "0x0002000A"-style status code.
std::string FormatStatus(unsigned int status);
// The meaning of a non-zero status code: "argument 2 missing" and so on.
std::string DescribeStatus(unsigned int status);
// A type name as a person reads it, from a mangled name.
std::string Demangle(const char* mangled);

// Where every line of the host's output goes. Lines from several threads
// do not interleave, and each is flushed at once so that the order on the
// terminal is the order of events.
class Output {
 public:
  explicit Output(std::ostream& out) : fOut(out) {}
  void Line(const std::string& text);

 private:
  std::mutex fMutex;
  std::ostream& fOut;
};

}  // namespace zhost
