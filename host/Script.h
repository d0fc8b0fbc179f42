// The runner of the script language: one statement per line, variables,
// calls of declared functions by script name (overload chosen by the
// argument kinds), raw calls of entry points, and ':' commands that show
// what the host loaded. docs/script-language.md describes the language;
// ScriptLexer and ScriptParser read it, HostCommands and HostFunctions
// hold the host's commands and functions.
#pragma once

#include <string>
#include <vector>

#include "Host.h"
#include "LineReader.h"
#include "ScriptParser.h"

namespace zhost {

class Script : private ScriptCalls {
 public:
  Script(Host& host, bool echo);
  ~Script();

  // Runs one line (statement, command, comment or blank). Returns false
  // when the line asked to quit.
  bool RunLine(const std::string& line, int lineNumber);
  // Runs every line the reader gives, until one asks to quit.
  void RunLines(LineReader& reader);

  // Script errors so far (mistakes in the script itself, not reports of
  // modules).
  int Errors() const { return fErrors; }
  // Whether the last statement or command run was such a mistake.
  bool LastFailed() const { return fLastFailed; }

  // The names a call can use: declared functions and the host's own.
  std::vector<std::string> FunctionNames() const;
  // What Tab completes to: those names, the variables and the ':' commands.
  std::vector<std::string> CompletionWords() const;

  // The canonical text of a value, as a statement prints it.
  std::string Format(Zentor::IVariant* value);
  const Variables& Vars() const { return fVariables; }

 private:
  void RunStatement(const std::string& line);
  // Reports what went wrong in a call of a module, labelled with the call.
  void ShowOutcome(const CallOutcome& outcome, const std::string& label);
  // The parameter word a value matches in a declaration.
  std::string KindWord(Zentor::IVariant* value);
  ScriptValue CallByName(const std::string& name, Arguments& args) override;
  ScriptValue CallRaw(const RawCall& call) override;

  Host& fHost;
  Output& fOut;
  bool fEcho;
  int fErrors = 0;
  bool fLastFailed = false;
  Variables fVariables;
};

}  // namespace zhost
