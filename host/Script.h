// The script language of the reference host: one statement per line,
// variables, calls of declared functions by script name (overload chosen by
// the argument kinds), raw calls of entry points, and commands that show
// what the host loaded. docs/script-language.md describes it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Host.h"
#include "LineReader.h"

namespace zhost {

class Script {
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

  // The canonical text of a value, as a statement prints it.
  std::string Format(Zentor::IVariant* value);

 private:
  struct Value;
  class Parser;

  void RunCommand(const std::string& text);
  void ShowOutcome(const CallOutcome& outcome, const std::string& label);
  std::string KindWord(Zentor::IVariant* value);
  // The host's own functions ("Host.Clone" ...): false when `name` is none.
  bool CallBuiltin(const std::string& name, std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args,
                   Value& out);
  Value CallByName(const std::string& name,
                   std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args);
  Value CallRaw(const std::string& symbol, std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args,
                bool noResult, Zentor::IVariant* preset);

  Host& fHost;
  Output& fOut;
  bool fEcho;
  int fErrors = 0;
  std::map<std::string, Zentor::AutoRefPtr<Zentor::IVariant>> fVariables;
};

}  // namespace zhost
