#include "Script.h"

#include "Hints.h"
#include "HostCommands.h"
#include "HostFunctions.h"

namespace zhost {
namespace {

// The word of a vector's element kind, as "VECTOR<...>" parameter words
// spell it.
std::string ElementWord(unsigned int kind) {
  if (kind == Zentor::kTypeBoolean || kind == Zentor::kTypeNumber || kind == Zentor::kTypeString)
    return BuiltInWord(kind);
  return "KIND" + std::to_string(kind);
}

// `line` without the line end and blanks it may carry at its end.
std::string TrimEnd(const std::string& line) {
  std::string trimmed = line;
  while (!trimmed.empty() && (trimmed.back() == '\r' || trimmed.back() == '\n' ||
                              trimmed.back() == ' ' || trimmed.back() == '\t'))
    trimmed.pop_back();
  return trimmed;
}

std::vector<Zentor::IVariant*> Pointers(const Arguments& args) {
  std::vector<Zentor::IVariant*> argv;
  for (const auto& arg : args) argv.push_back(arg.get());
  return argv;
}

}  // namespace

Script::Script(Host& host, bool echo) : fHost(host), fOut(host.Out()), fEcho(echo) {}

// Variables go first, while the modules that made their objects are still
// loaded (they always are: the host never unloads).
Script::~Script() {
  fVariables.clear();
}

bool Script::RunLine(const std::string& rawLine, int lineNumber) {
  const std::string line = TrimEnd(rawLine);
  const size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return true;
  if (fEcho) fOut.Line("> " + line);
  if (line[first] == '#') return true;
  fLastFailed = false;
  try {
    // What a newcomer types first: no statement, but the way to :help.
    if (const std::string word = line.substr(first); word == "help" || word == "?") {
      RunHostCommand(fHost, *this, "help");
      return true;
    }
    if (line[first] != ':') {
      RunStatement(line);
      return true;
    }
    // Quitting is the runner's business, not a command's: only the bare
    // word ends the script.
    const std::string command = line.substr(first + 1);
    if (command == "quit" || command == "q") return false;
    RunHostCommand(fHost, *this, command);
  } catch (const ScriptError& error) {
    ++fErrors;
    fLastFailed = true;
    // A message may quote what was typed; a stray escape byte in it must
    // not drive the terminal.
    fOut.Line("! script error at line " + std::to_string(lineNumber) + ": " +
              Printable(error.what()));
    for (const std::string& item : error.list) fOut.Line("  " + Printable(item));
  }
  return true;
}

std::vector<std::string> Script::FunctionNames() const {
  std::vector<std::string> names = fHost.FunctionNames();
  for (std::string& name : HostFunctionNames())
    if (fHost.OverloadsOf(name).empty()) names.push_back(std::move(name));
  return names;
}

std::vector<std::string> Script::CompletionWords() const {
  std::vector<std::string> words = FunctionNames();
  for (const auto& [name, value] : fVariables) words.push_back(name);
  for (const std::string& command : HostCommandNames()) words.push_back(":" + command);
  return words;
}

void Script::RunLines(LineReader& reader) {
  int number = 0;
  while (const auto line = reader.ReadLine())
    if (!RunLine(*line, ++number)) break;
}

void Script::RunStatement(const std::string& line) {
  const Statement statement = EvaluateStatement(line, fHost, *this, fVariables);
  const ScriptValue& value = statement.value;
  if (statement.let)
    fVariables[*statement.let] = value.variant;
  else if (value.nullResult)
    fOut.Line("no value (no result variant)");
  else if (value.untouchedPreset)
    fOut.Line("untouched " + Format(value.variant.get()));
  else
    fOut.Line(Format(value.variant.get()));
}

std::string Script::KindWord(Zentor::IVariant* value) {
  if (!value) return "NOTHING";
  if (auto vector = value->GetVector())
    return "VECTOR<" + ElementWord(vector->GetElementType()) + ">";
  const unsigned int kind = value->GetType();
  if (kind == Zentor::kTypeInvalid) return "NOTHING";
  if (const char* word = BuiltInWord(kind)) return word;
  if (const auto type = fHost.TypeById(kind)) return type->name;
  return "KIND" + std::to_string(kind);
}

void Script::ShowOutcome(const CallOutcome& outcome, const std::string& label) {
  if (outcome.threw) fOut.Line("! exception from " + label + ": " + outcome.exception);
  if (outcome.status != 0)
    fOut.Line("! status " + FormatStatus(outcome.status) + " from " + label + ": " +
              DescribeStatus(outcome.status));
}

ScriptValue Script::CallByName(const std::string& name, Arguments& args) {
  ScriptValue value;
  if (auto result = CallHostFunction(fHost, name, args)) {
    value.variant = std::move(*result);
    return value;
  }
  std::vector<std::string> words;
  for (const auto& arg : args) words.push_back(KindWord(arg.get()));
  const auto overload = fHost.FindOverload(name, nullptr, words);
  if (!overload) {
    const auto candidates = fHost.OverloadsOf(name);
    if (candidates.empty()) throw Unknown("function", name, FunctionNames());
    std::vector<std::vector<std::string>> declared;
    for (const auto& candidate : candidates) declared.push_back(candidate->params);
    throw NoOverload(name, words, declared);
  }
  if (!overload->entry)
    throw ScriptError("entry point " + overload->symbol + " of " + Signature(name, words) +
                      " is missing");
  auto argv = Pointers(args);
  value.variant = MakeVariant();
  const CallOutcome outcome =
      fHost.Call(overload->entry, overload->module, name, argv, value.variant.get());
  ShowOutcome(outcome, name);
  return value;
}

ScriptValue Script::CallRaw(const RawCall& call) {
  const LoadedModule* module = nullptr;
  auto entry = reinterpret_cast<Zentor::ZentorFunction>(fHost.FindSymbol(call.symbol, &module));
  if (!entry) throw ScriptError("no loaded module exports " + call.symbol);
  auto argv = Pointers(call.args);
  Zentor::AutoRefPtr<HostVariant> result;
  if (!call.noResult) {
    // A preset result starts as a copy of the preset value, so that a
    // function that leaves it alone can be told from one that overwrites.
    result = call.preset ? CopyOf(*call.preset) : MakeVariant();
  }
  const unsigned long long before = result ? result->AssignmentCount() : 0;
  const CallOutcome outcome = fHost.Call(entry, module, call.symbol, argv, result.get());
  ShowOutcome(outcome, call.symbol);
  ScriptValue value;
  value.nullResult = call.noResult;
  value.untouchedPreset = call.preset && result->AssignmentCount() == before;
  value.variant = result ? Zentor::AutoRefPtr<Zentor::IVariant>(result)
                         : Zentor::AutoRefPtr<Zentor::IVariant>(MakeVariant());
  return value;
}

std::string Script::Format(Zentor::IVariant* value) {
  if (!value) return "no value";
  if (auto vector = value->GetVector()) {
    const unsigned int element = vector->GetElementType();
    const char* word = VectorWord(element);
    std::string text =
        word ? std::string(word) + "[" : "vector<kind " + std::to_string(element) + ">[";
    for (unsigned long long i = 0, n = vector->GetSize(); i < n; ++i) {
      if (i) text += ",";
      Zentor::AutoRefPtr<Zentor::IVariant> item = vector->Get(i);
      text += item ? Format(item.get()) : "?";
    }
    return text + "]";
  }
  const unsigned int kind = value->GetType();
  switch (kind) {
    case Zentor::kTypeInvalid:
      return "no value";
    case Zentor::kTypeBoolean:
      return value->GetBoolean() ? "true" : "false";
    case Zentor::kTypeNumber:
      return FormatNumber(value->GetNumber());
    case Zentor::kTypeString:
      return Quote(value->GetStdString());
    case Zentor::kTypeData: {
      auto data = value->GetData();
      return data ? "data\"" + Hex(data->ToString()) + "\"" : "data null";
    }
    case Zentor::kTypeVector:
      return "vector null";
    default:
      break;
  }
  if (kind < Zentor::kTypeFirstUserDefined) return "kind " + std::to_string(kind);
  const auto type = fHost.TypeById(kind);
  Zentor::IUserDefinedType* object = value->GetUserDefinedPtr();
  const std::string name = type     ? type->name
                           : object ? std::string(object->GetName())
                                    : "type" + std::to_string(kind);
  if (!object) return "empty " + name;
  // User-defined values show themselves through their type's "ToString"
  // script function, wherever it is declared.
  const std::string stringWord = "STRING";
  const auto toString = fHost.FindOverload("ToString", &stringWord, {name});
  if (!toString || !toString->entry) return name + " <object>";
  auto text = MakeVariant();
  std::vector<Zentor::IVariant*> argv{value};
  const CallOutcome outcome =
      fHost.Call(toString->entry, toString->module, "ToString", argv, text.get());
  ShowOutcome(outcome, "ToString");
  if (outcome.threw || outcome.status != 0 || text->GetType() != Zentor::kTypeString)
    return name + " <ToString failed>";
  return name + " " + Printable(text->GetStdString());
}

}  // namespace zhost
