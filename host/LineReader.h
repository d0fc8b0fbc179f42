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
#include <utility>
#include <vector>

#include "TerminalSignals.h"

namespace zhost {

// The prompt of a line that goes on with a statement or for block still
// open, as wide as nothing else on the screen.
inline constexpr const char* kContinuationPrompt = "....> ";

class LineReader {
 public:
  virtual ~LineReader() = default;
  // The next line, without its line end; nothing once input has ended.
  virtual std::optional<std::string> ReadLine() = 0;
  // Whether the next line goes on with an open statement or block: a
  // reader at the terminal then prompts with kContinuationPrompt.
  virtual void Continue(bool /*continued*/) {}
  // Whether Ctrl-C abandoned a line since the last call; the statement or
  // block it went on with is abandoned with it.
  virtual bool TakeAbandoned() { return false; }
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
// shows `prompt` (or the continuation prompt) before each one; Ctrl-C
// abandons the line being typed (the terminal drops it) and prompts again
// with `prompt`; when input runs out, the terminal is left on a fresh line.
class TerminalLineReader final : public LineReader {
 public:
  TerminalLineReader(std::istream& in, std::ostream& out, std::string prompt)
      : fIn(in), fOut(out), fPrompt(std::move(prompt)) {}
  ~TerminalLineReader() override;
  std::optional<std::string> ReadLine() override;
  void Continue(bool continued) override { fContinued = continued; }
  bool TakeAbandoned() override { return std::exchange(fAbandoned, false); }

 private:
  std::istream& fIn;
  std::ostream& fOut;
  std::string fPrompt;
  TerminalSignals fSignals{false};
  bool fContinued = false;
  bool fAbandoned = false;
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
