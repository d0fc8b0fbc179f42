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
  if (fEnded) fOut << '\n';
}

std::optional<std::string> TerminalLineReader::ReadLine() {
  // A Ctrl-C typed while the last statement ran has done its work: the
  // session is still there.
  TerminalSignals::TakeInterrupt();
  for (;;) {
    fOut << fPrompt << std::flush;
    if (auto line = GetLine(fIn)) return line;
    if (!TerminalSignals::TakeInterrupt()) break;
    // The read was cut short by Ctrl-C: the terminal has dropped what was
    // typed and echoed ^C.
    fIn.clear();
    fOut << '\n';
  }
  fEnded = true;
  return std::nullopt;
}

}  // namespace zhost
