// Statements and expressions of the script language. The parser evaluates
// as it reads: a call runs as soon as its arguments are read, so what the
// call prints comes before any mistake later on the same line, the way a
// script author reads the line.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Host.h"
#include "ScriptLexer.h"

namespace zhost {

using Arguments = std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>;
using Variables = std::map<std::string, Zentor::AutoRefPtr<Zentor::IVariant>>;

// What an expression yields, with how a statement should present it.
struct ScriptValue {
  Zentor::AutoRefPtr<Zentor::IVariant> variant;
  bool untouchedPreset = false;  // a raw call left its preset result alone
  bool nullResult = false;       // a raw call ran without result variant
};

// `raw SYMBOL(ARGS)`: an exported symbol called past the declarations,
// optionally without result variant (`noresult`) or with a result variant
// that starts as a copy of a value (`preset VALUE`).
struct RawCall {
  std::string symbol;
  Arguments args;
  bool noResult = false;
  Zentor::AutoRefPtr<Zentor::IVariant> preset;  // null: none
};

// What runs the calls an expression makes.
class ScriptCalls {
 public:
  // `NAME(ARGS)`: the declared overload that the argument kinds choose, or
  // one of the host's own functions.
  virtual ScriptValue CallByName(const std::string& name, Arguments& args) = 0;
  virtual ScriptValue CallRaw(const RawCall& call) = 0;

 protected:
  ~ScriptCalls() = default;
};

// One statement, evaluated: `let NAME = VALUE` sets a variable, anything
// else (`VALUE` or `print VALUE`) prints the value.
struct Statement {
  std::optional<std::string> let;  // the variable it sets
  ScriptValue value;
};

// Reads and evaluates the statement on `line`. Types for `new` and `empty`
// come from `host`, variables from `variables`, calls go to `calls`.
// Mistakes throw ScriptError.
Statement EvaluateStatement(const std::string& line, Host& host, ScriptCalls& calls,
                            const Variables& variables);

// The words that start vector literals ("strings", "numbers", "bools") and
// their element kinds: kTypeInvalid or null for any other.
unsigned int VectorKind(const std::string& word);
const char* VectorWord(unsigned int elementKind);

}  // namespace zhost
