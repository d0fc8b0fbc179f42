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
  // one of the host's own functions. `sources` names the variable each
  // argument was read from ("" for any other expression), so that a
  // mistake can say where a missing value came from.
  virtual ScriptValue CallByName(const std::string& name, Arguments& args,
                                 const std::vector<std::string>& sources) = 0;
  virtual ScriptValue CallRaw(const RawCall& call) = 0;
  // Why `variable` has no value, when a `let` of it failed ("its let at
  // line 3 failed"); "" otherwise.
  virtual std::string WhyUnset(const std::string& variable) const = 0;

 protected:
  ~ScriptCalls() = default;
};

// One statement, evaluated: `let NAME = VALUE` sets a variable, anything
// else (`VALUE`, `print VALUE` or `echo VALUE`) prints the value.
struct Statement {
  std::optional<std::string> let;  // the variable it sets
  bool echo = false;               // `echo`: a string's bytes as they are
  ScriptValue value;
};

// Reads and evaluates the statement on `line`. Types for `new` and `empty`
// come from `host`, variables from `variables`, calls go to `calls`.
// Mistakes throw ScriptError.
Statement EvaluateStatement(const std::string& line, Host& host, ScriptCalls& calls,
                            const Variables& variables);

// The head of a for block, evaluated: the loop variable and what it runs
// over, either the whole numbers `first` to `last` or the elements of a
// vector.
struct ForHead {
  std::string variable;
  double first = 0, last = -1;
  Zentor::AutoRefPtr<Zentor::IVectorGeneric> vector;  // null for a range
};

// Reads and evaluates `for NAME in A .. B` or `for NAME in VECTOR` (the
// block's first line, without any `:time` before it).
ForHead EvaluateForHead(const std::string& line, Host& host, ScriptCalls& calls,
                        const Variables& variables);

// The words that start vector literals ("strings", "numbers", "bools") and
// their element kinds: kTypeInvalid or null for any other.
unsigned int VectorKind(const std::string& word);
const char* VectorWord(unsigned int elementKind);

}  // namespace zhost
