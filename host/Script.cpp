#include "Script.h"

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
  try {
    if (line[first] != ':') {
      RunStatement(line);
      return true;
    }
    // Quitting is the runner's business, not a command's: only the bare
    // word ends the script.
    const std::string command = line.substr(first + 1);
    if (command == "quit" || command == "q") return false;
    RunCommand(command);
  } catch (const ScriptError& error) {
    ++fErrors;
    fOut.Line("! script error at line " + std::to_string(lineNumber) + ": " + error.what());
  }
  return true;
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
    if (candidates.empty()) throw ScriptError("unknown function " + name);
    std::string list;
    for (const auto& candidate : candidates)
      list += (list.empty() ? "" : "; ") + Signature(name, candidate->params);
    throw ScriptError("no overload " + Signature(name, words) + "; declared: " + list);
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

void Script::RunCommand(const std::string& text) {
  TokenCursor parser(Lex(text));
  const Token command = parser.Expect(Tok::Ident, "a command name");
  const std::string& name = command.text;
  // The optional module argument of the module commands.
  auto modulesFor = [&]() {
    std::vector<const LoadedModule*> modules;
    if (parser.AtEnd()) return fHost.Modules();
    const Token which = parser.Next();
    parser.ExpectEnd();
    const LoadedModule* module = fHost.FindModule(which.text);
    if (!module) throw ScriptError("no loaded module " + which.text);
    modules.push_back(module);
    return modules;
  };

  if (name == "help") {
    parser.ExpectEnd();
    for (const char* help :
         {":modules                      loaded modules",
          ":metadata [MODULE]            metadata exports",
          ":definition [MODULE]          the definition text (asked anew) and its length",
          ":declarations [MODULE]        declarations as the host read them",
          ":missing                      declarations whose symbol is not exported",
          ":types                        registered user-defined types",
          ":functions [NAME]             overloads by script name",
          ":load PATH                    load a module", ":vars                         variables",
          ":lookup NAME WORD...          GetFunction as a module calls it",
          ":raise SEVERITY SOURCE CODE MESSAGE   report an error on the context",
          ":error                        the context's error state",
          ":clearerror                   clear it",
          ":interrupt on|off             the context's interrupted flag",
          ":newinstance                  change the host instance id",
          ":quit                         stop"})
      fOut.Line(help);
  } else if (name == "modules") {
    parser.ExpectEnd();
    for (const LoadedModule* module : fHost.Modules())
      fOut.Line("module " + module->name + " version " + Quote(module->metadata[0].value) +
                " file " + module->path.substr(module->path.find_last_of('/') + 1));
  } else if (name == "metadata") {
    for (const LoadedModule* module : modulesFor()) {
      fOut.Line("metadata of " + module->name + ":");
      for (const MetadataEntry& entry : module->metadata)
        fOut.Line("  " + entry.name + ": " +
                  (!entry.present ? std::string("not exported")
                   : entry.isNull ? std::string("null")
                                  : Quote(entry.value)));
    }
  } else if (name == "definition") {
    for (const LoadedModule* module : modulesFor()) {
      const char* again = nullptr;
      std::string exception;
      if (!Guarded([&] { again = module->definitionGetter(&fHost); }, exception)) {
        fOut.Line("! exception from GetModuleDefinition: " + exception);
        continue;
      }
      const std::string definition = again ? again : "";
      fOut.Line("definition of " + module->name + ": " + std::to_string(definition.size()) +
                " characters");
      fOut.Line(Quote(definition));
      if (definition != module->definition)
        fOut.Line("! the definition differs from the one read at load time");
    }
  } else if (name == "declarations") {
    for (const LoadedModule* module : modulesFor()) {
      fOut.Line("declarations of " + module->name + ": " +
                std::to_string(module->parsed.types.size()) + " types, " +
                std::to_string(module->parsed.functions.size()) + " functions");
      for (const auto& type : module->parsed.types) fOut.Line("  " + type.text);
      for (const auto& function : module->parsed.functions) fOut.Line("  " + function.text);
    }
  } else if (name == "missing") {
    parser.ExpectEnd();
    const auto missing = fHost.Missing();
    if (missing.empty()) fOut.Line("missing: none");
    for (const MissingSymbol& entry : missing)
      fOut.Line("missing: " + entry.symbol + " in " + entry.module->name + ": " +
                entry.declaration);
  } else if (name == "types") {
    parser.ExpectEnd();
    for (const RegisteredType& type : fHost.Types())
      fOut.Line("type " + std::to_string(type.id) + " " + type.name + ": module " +
                type.module->name + ", factory " + type.factorySymbol +
                (type.factory ? "" : " (missing)") + ", flags " + type.flags);
  } else if (name == "functions") {
    std::vector<std::string> names;
    if (parser.AtEnd()) {
      names = fHost.FunctionNames();
    } else {
      names.push_back(parser.Expect(Tok::Ident, "a function name").text);
      parser.ExpectEnd();
    }
    for (const std::string& function : names) {
      const auto overloads = fHost.OverloadsOf(function);
      if (overloads.empty()) throw ScriptError("unknown function " + function);
      for (const auto& overload : overloads)
        fOut.Line(Signature(function, overload->params) + " -> " + overload->result + " : " +
                  overload->symbol + (overload->entry ? "" : " (missing)") + " [" +
                  overload->module->name + "]");
    }
  } else if (name == "load") {
    const Token path = parser.Next();
    if (path.kind != Tok::String && path.kind != Tok::Ident)
      throw ScriptError("expected a module path");
    parser.ExpectEnd();
    std::string error;
    if (!fHost.Load(path.text, error)) throw ScriptError("cannot load " + path.text + ": " + error);
    const LoadedModule* module = fHost.Modules().back();
    fOut.Line("loaded " + module->name + ": " + std::to_string(module->parsed.types.size()) +
              " types, " + std::to_string(module->parsed.functions.size()) + " functions");
  } else if (name == "vars") {
    parser.ExpectEnd();
    for (const auto& [variable, value] : fVariables)
      fOut.Line(variable + " = " + Format(value.get()));
  } else if (name == "lookup") {
    const std::string function = parser.Expect(Tok::Ident, "a function name").text;
    std::vector<std::string> words;
    while (!parser.AtEnd()) {
      const Token word = parser.Next();
      if (word.kind != Tok::Ident && word.kind != Tok::String)
        throw ScriptError("type words are names or strings");
      words.push_back(word.text);
    }
    std::vector<const char*> pointers;
    for (const auto& word : words) pointers.push_back(word.c_str());
    Zentor::AutoRefPtr<Zentor::IModuleInfo> info;
    Zentor::IContext& context = fHost.Context();
    const Zentor::ZentorFunction entry = context.GetFunction(
        function.c_str(), static_cast<unsigned int>(pointers.size()), pointers.data(), &info, 1);
    if (!entry) {
      fOut.Line("lookup: not found");
    } else {
      std::string symbol = "?";
      for (const auto& overload : fHost.OverloadsOf(function))
        if (overload->entry == entry) symbol = overload->symbol;
      fOut.Line("lookup: found " + symbol + " in module " + (info ? info->GetName() : "?"));
    }
  } else if (name == "raise") {
    const Token severity = parser.Expect(Tok::Number, "a severity");
    const Token source = parser.Expect(Tok::String, "a source string");
    const Token code = parser.Expect(Tok::String, "a code string");
    const Token message = parser.Expect(Tok::String, "a message string");
    parser.ExpectEnd();
    fHost.Context().TriggerErrorHandler(
        static_cast<Zentor::ErrorSeverity>(static_cast<int>(severity.number)), source.text,
        code.text, message.text);
  } else if (name == "error") {
    parser.ExpectEnd();
    const auto state = fHost.Context().GetErrorState();
    if (!state.hasError)
      fOut.Line("error state: none");
    else
      fOut.Line("error state: severity " + std::to_string(state.severity) + ", source " +
                Quote(state.source) + ", code " + Quote(state.code) + ", message " +
                Quote(state.message));
  } else if (name == "clearerror") {
    parser.ExpectEnd();
    fHost.Context().ClearError();
  } else if (name == "interrupt") {
    const Token on = parser.Expect(Tok::Ident, "on or off");
    parser.ExpectEnd();
    if (on.text != "on" && on.text != "off") throw ScriptError("expected on or off");
    fHost.Context().SetInterrupted(on.text == "on");
  } else if (name == "newinstance") {
    parser.ExpectEnd();
    fOut.Line("instance id " + std::to_string(fHost.Context().NewInstance()));
  } else {
    throw ScriptError("unknown command :" + name + " (try :help)");
  }
}

}  // namespace zhost
