// The runner of the script language: one statement per line, variables,
// calls of declared functions by script name (overload chosen by the
// argument kinds), raw calls of entry points, for blocks, and ':' commands
// that show what the host loaded. docs/script-language.md describes the
// language; ScriptLexer and ScriptParser read it, HostCommands and
// HostFunctions hold the host's commands and functions.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Host.h"
#include "LineReader.h"
#include "ScriptParser.h"

namespace zhost {

struct ScriptOptions {
  // Every line is shown as "> LINE" before its output.
  bool echo = true;
  // A person types the lines: a string or bracket left open continues on
  // the next line, `help` also shows how statements look, and Ctrl-C stops
  // a running for block.
  bool interactive = false;
  // A module's error report (severity 2 or above), an exception leaving a
  // function or a status from an entry point fails the statement, as a
  // mistake in the script does.
  bool strict = false;
};

class Script : private ScriptCalls {
 public:
  Script(Host& host, bool echo);
  Script(Host& host, const ScriptOptions& options);
  ~Script();

  // Takes one line (statement, command, comment, blank, or a line of a for
  // block, which runs once its `end` comes). Returns false when the line
  // asked to quit.
  bool RunLine(const std::string& line, int lineNumber);
  // Runs every line the reader gives, until one asks to quit, then
  // Finish().
  void RunLines(LineReader& reader);
  // The input has ended: a for block still open is a mistake.
  void Finish();

  // Script errors so far (mistakes in the script itself, not reports of
  // modules).
  int Errors() const { return fErrors; }
  // Statements that failed only because of a module, counted with --strict.
  int StrictFailures() const { return fStrictFailures; }
  // Whether the last statement or command run (a whole for block counts as
  // one) was such a mistake, or, with --strict, such a failure.
  bool LastFailed() const { return fLastFailed; }

  // The names a call can use: declared functions and the host's own.
  std::vector<std::string> FunctionNames() const;
  // What Tab completes to: those names, the variables and the ':' commands.
  std::vector<std::string> CompletionWords() const;

  // The canonical text of a value, as a statement prints it.
  std::string Format(Zentor::IVariant* value);
  const Variables& Vars() const { return fVariables; }

 private:
  struct Line {
    std::string text;
    int number;
    // For a line that opens a block, the index of its end; 0 for others.
    size_t close = 0;
  };
  // How running lines goes on: with the next one; stopped by a mistake,
  // which leaves every for block it is in; or quit.
  enum class Flow { Next, Stop, Quit };

  Flow RunOne(const std::string& line, int lineNumber);
  // The block lines[begin] (its head) to lines[end] (its `end`).
  Flow RunFor(const std::vector<Line>& lines, size_t begin, size_t end);
  Flow RunBody(const std::vector<Line>& lines, size_t begin, size_t end);
  // Runs `body` as the work of line `lineNumber`: a script error is
  // reported and counted, and gives false.
  template <class Body>
  bool Attempt(int lineNumber, Body&& body);
  void RunStatement(const std::string& line);
  void ShowTime(double milliseconds);
  // Module failures so far: error reports, exceptions and statuses.
  unsigned long long ModuleFailures() const;
  // Reports what went wrong in a call of a module, labelled with the call.
  void ShowOutcome(const CallOutcome& outcome, const std::string& label);
  // The parameter word a value matches in a declaration.
  std::string KindWord(Zentor::IVariant* value);
  ScriptValue CallByName(const std::string& name, Arguments& args,
                         const std::vector<std::string>& sources) override;
  ScriptValue CallRaw(const RawCall& call) override;
  std::string WhyUnset(const std::string& variable) const override;

  Host& fHost;
  Output& fOut;
  ScriptOptions fOptions;
  int fErrors = 0;
  int fStrictFailures = 0;
  bool fLastFailed = false;
  unsigned long long fCallFailures = 0;
  Variables fVariables;
  // Variables whose last `let` failed, with the line of that `let`.
  std::map<std::string, int> fFailedLets;
  // The for block being read, head first, and the indexes in it of the
  // heads of its blocks still open, innermost last.
  std::vector<Line> fBlock;
  std::vector<size_t> fOpenHeads;
};

}  // namespace zhost
