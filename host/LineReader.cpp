#include "LineReader.h"

namespace zhost {
namespace {

std::optional<std::string> GetLine(std::istream& in) {
  std::string line;
  if (!std::getline(in, line)) return std::nullopt;
  return line;
}

}  // namespace

std::optional<std::string> StreamLineReader::ReadLine() {
  return GetLine(fIn);
}

TerminalLineReader::~TerminalLineReader() {
  fOut << '\n';
}

std::optional<std::string> TerminalLineReader::ReadLine() {
  fOut << fPrompt << std::flush;
  return GetLine(fIn);
}

}  // namespace zhost
