#include "LineReader.h"

#include <cstdlib>
#include <iostream>

#include "Platform.h"

#ifdef ZENTOR_HAVE_LIBEDIT
#include "EditLineReader.h"
#endif

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
    fOut << (fContinued ? kContinuationPrompt : fPrompt) << std::flush;
    if (auto line = GetLine(fIn)) return line;
    if (!TerminalSignals::TakeInterrupt()) break;
    // The read was cut short by Ctrl-C: the terminal has dropped what was
    // typed and echoed ^C.
    fIn.clear();
    fOut << '\n';
    fAbandoned = true;
    fContinued = false;
  }
  fEnded = true;
  return std::nullopt;
}

std::unique_ptr<LineReader> MakeInteractiveReader(const std::string& prompt,
                                                  const std::string& historyFile,
                                                  CompletionWords words) {
#ifdef ZENTOR_HAVE_LIBEDIT
  // Editing draws on the screen: output that goes to a file gets none.
  if (IsTerminal(1)) return MakeEditLineReader(prompt, historyFile, std::move(words));
#else
  (void)historyFile;
  (void)words;
#endif
  return std::make_unique<TerminalLineReader>(std::cin, std::cout, prompt);
}

const char* LineEditor() {
#ifdef ZENTOR_HAVE_LIBEDIT
  return "libedit";
#else
  return nullptr;
#endif
}

std::string DefaultHistoryFile() {
  const std::string home = HomeDirectory();
  return home.empty() ? home : home + "/.zentor_history";
}

}  // namespace zhost
