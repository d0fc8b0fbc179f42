// Where the runner's lines come from. A terminal session reads through its
// own reader so that what typing at a terminal needs can grow there
// without touching the runner.
#pragma once

#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "TerminalSignals.h"

namespace zhost {

class LineReader {
 public:
  virtual ~LineReader() = default;
  // The next line, without its line end; nothing once input has ended.
  virtual std::optional<std::string> ReadLine() = 0;
};

// The lines of a script file or of piped input, as they are.
class StreamLineReader final : public LineReader {
 public:
  explicit StreamLineReader(std::istream& in) : fIn(in) {}
  std::optional<std::string> ReadLine() override;

 private:
  std::istream& fIn;
};

// Lines typed at a terminal, as the terminal itself lets them be edited:
// shows `prompt` before each one; Ctrl-C abandons the line being typed
// (the terminal drops it) and prompts again; when input runs out, the
// terminal is left on a fresh line.
class TerminalLineReader final : public LineReader {
 public:
  TerminalLineReader(std::istream& in, std::ostream& out, std::string prompt)
      : fIn(in), fOut(out), fPrompt(std::move(prompt)) {}
  ~TerminalLineReader() override;
  std::optional<std::string> ReadLine() override;

 private:
  std::istream& fIn;
  std::ostream& fOut;
  std::string fPrompt;
  TerminalSignals fSignals{false};
  bool fEnded = false;
};

// The words Tab may complete a name to; asked anew at each Tab, so that
// variables made since count.
using CompletionWords = std::function<std::vector<std::string>()>;

// The reader of a session at the terminal of standard input and output.
// Built with libedit: line editing, a history kept in `historyFile` (none
// when empty) and Tab completion of `words`. Otherwise the plain
// TerminalLineReader.
std::unique_ptr<LineReader> MakeInteractiveReader(const std::string& prompt,
                                                  const std::string& historyFile,
                                                  CompletionWords words);

// "libedit" when MakeInteractiveReader edits lines, null when it reads
// them plainly.
const char* LineEditor();

// ~/.zentor_history; empty when there is no home folder to keep it in.
std::string DefaultHistoryFile();

}  // namespace zhost
