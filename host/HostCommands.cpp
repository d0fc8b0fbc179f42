#include "HostCommands.h"

#include <algorithm>

#include "Hints.h"
#include "Script.h"
#include "ScriptLexer.h"

namespace zhost {
namespace {

// "N types, M functions": how many declarations a module brought.
std::string DeclarationCount(const LoadedModule& module) {
  return std::to_string(module.parsed.types.size()) + " types, " +
         std::to_string(module.parsed.functions.size()) + " functions";
}

// One line of help: the usage padded to one column; a long one keeps
// three blanks before its text.
void HelpLine(Output& out, const std::string& usage, const std::string& text) {
  out.Line(usage + std::string(std::max<size_t>(30, usage.size() + 3) - usage.size(), ' ') + text);
}

// One command at a time: the host and runner it speaks about, and the
// rest of the command line.
class Commands {
 public:
  Commands(Host& host, Script& script, const std::string& text)
      : fHost(host), fScript(script), fOut(host.Out()), fArgs(Lex(text)) {}

  void Run();
  static std::vector<std::string> Names();

 private:
  struct Command {
    const char* name;
    const char* usage;  // the arguments, as :help shows them
    const char* help;
    void (Commands::*run)();
  };
  static const Command kCommands[];

  // The optional module argument of the module commands: all modules
  // without one.
  std::vector<const LoadedModule*> ModulesArgument();

  void Help();
  void ModuleList();
  void Metadata();
  void Definition();
  void Declarations();
  void Missing();
  void Types();
  void Functions();
  void Load();
  void Vars();
  void Lookup();
  void Raise();
  void Error();
  void ClearError();
  void Interrupt();
  void NewInstance();

  Host& fHost;
  Script& fScript;
  Output& fOut;
  TokenCursor fArgs;
};

const Commands::Command Commands::kCommands[] = {
    {"modules", "", "loaded modules", &Commands::ModuleList},
    {"metadata", "[MODULE]", "metadata exports", &Commands::Metadata},
    {"definition", "[MODULE]", "the definition text (asked anew) and its length",
     &Commands::Definition},
    {"declarations", "[MODULE]", "declarations as the host read them", &Commands::Declarations},
    {"missing", "", "declarations whose symbol is not exported", &Commands::Missing},
    {"types", "", "registered user-defined types", &Commands::Types},
    {"functions", "[NAME]", "overloads by script name", &Commands::Functions},
    {"load", "PATH", "load a module", &Commands::Load},
    {"vars", "", "variables", &Commands::Vars},
    {"lookup", "NAME WORD...", "GetFunction as a module calls it", &Commands::Lookup},
    {"raise", "SEVERITY SOURCE CODE MESSAGE", "report an error on the context", &Commands::Raise},
    {"error", "", "the context's error state", &Commands::Error},
    {"clearerror", "", "clear it", &Commands::ClearError},
    {"interrupt", "on|off", "the context's interrupted flag", &Commands::Interrupt},
    {"newinstance", "", "change the host instance id", &Commands::NewInstance},
};

void Commands::Run() {
  const Token command = fArgs.Expect(Tok::Ident, "a command name");
  const std::string& name = command.text;
  if (name == "help") return Help();
  const auto* found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command& c) { return name == c.name; });
  if (found == std::end(kCommands)) throw ScriptError("unknown command :" + name + " (try :help)");
  (this->*found->run)();
}

std::vector<std::string> Commands::Names() {
  std::vector<std::string> names{"help", "quit", "time"};
  for (const Command& command : kCommands) names.push_back(command.name);
  return names;
}

std::vector<const LoadedModule*> Commands::ModulesArgument() {
  if (fArgs.AtEnd()) return fHost.Modules();
  const Token which = fArgs.Next();
  fArgs.ExpectEnd();
  const LoadedModule* module = fHost.FindModule(which.text);
  if (!module) throw ScriptError("no loaded module " + which.text);
  return {module};
}

void Commands::Help() {
  fArgs.ExpectEnd();
  for (const Command& command : kCommands)
    HelpLine(fOut, std::string(":") + command.name + (*command.usage ? " " : "") + command.usage,
             command.help);
  HelpLine(fOut, ":quit", "stop");
}

void Commands::ModuleList() {
  fArgs.ExpectEnd();
  for (const LoadedModule* module : fHost.Modules())
    fOut.Line("module " + module->name + " version " + Quote(module->metadata[0].value) + " file " +
              module->FileName());
}

void Commands::Metadata() {
  for (const LoadedModule* module : ModulesArgument()) {
    fOut.Line("metadata of " + module->name + ":");
    for (const MetadataEntry& entry : module->metadata)
      fOut.Line("  " + entry.name + ": " +
                (!entry.present ? std::string("not exported")
                 : entry.isNull ? std::string("null")
                                : Quote(entry.value)));
  }
}

// Asks each module for its definition again, to show whether it answers
// the same as at load time.
void Commands::Definition() {
  for (const LoadedModule* module : ModulesArgument()) {
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
}

void Commands::Declarations() {
  for (const LoadedModule* module : ModulesArgument()) {
    fOut.Line("declarations of " + module->name + ": " + DeclarationCount(*module));
    for (const auto& type : module->parsed.types) fOut.Line("  " + type.text);
    for (const auto& function : module->parsed.functions) fOut.Line("  " + function.text);
  }
}

void Commands::Missing() {
  fArgs.ExpectEnd();
  const auto missing = fHost.Missing();
  if (missing.empty()) fOut.Line("missing: none");
  for (const MissingSymbol& entry : missing)
    fOut.Line("missing: " + entry.symbol + " in " + entry.module->name + ": " + entry.declaration);
}

void Commands::Types() {
  fArgs.ExpectEnd();
  for (const RegisteredType& type : fHost.Types())
    fOut.Line("type " + std::to_string(type.id) + " " + type.name + ": module " +
              type.module->name + ", factory " + type.factorySymbol +
              (type.factory ? "" : " (missing)") + ", flags " + type.flags);
}

void Commands::Functions() {
  std::vector<std::string> names;
  if (fArgs.AtEnd()) {
    names = fHost.FunctionNames();
  } else {
    names.push_back(fArgs.Expect(Tok::Ident, "a function name").text);
    fArgs.ExpectEnd();
  }
  for (const std::string& function : names) {
    const auto overloads = fHost.OverloadsOf(function);
    if (overloads.empty()) throw Unknown("function", function, fHost.FunctionNames());
    for (const auto& overload : overloads)
      fOut.Line(Signature(function, overload->params) + " -> " + overload->result + " : " +
                overload->symbol + (overload->entry ? "" : " (missing)") + " [" +
                overload->module->name + "]");
  }
}

void Commands::Load() {
  const Token path = fArgs.Next();
  if (path.kind != Tok::String && path.kind != Tok::Ident)
    throw ScriptError("expected a module path");
  fArgs.ExpectEnd();
  std::string error;
  if (!fHost.Load(path.text, error)) throw ScriptError("cannot load " + path.text + ": " + error);
  const LoadedModule* module = fHost.Modules().back();
  fOut.Line("loaded " + module->name + ": " + DeclarationCount(*module));
}

void Commands::Vars() {
  fArgs.ExpectEnd();
  for (const auto& [variable, value] : fScript.Vars())
    fOut.Line(variable + " = " + fScript.Format(value.get()));
}

// Looks a function up the way a module does through its call context:
// result word first, then the parameter words.
void Commands::Lookup() {
  const std::string function = fArgs.Expect(Tok::Ident, "a function name").text;
  std::vector<std::string> words;
  while (!fArgs.AtEnd()) {
    const Token word = fArgs.Next();
    if (word.kind != Tok::Ident && word.kind != Tok::String)
      throw ScriptError("type words are names or strings");
    words.push_back(word.text);
  }
  std::vector<const char*> pointers;
  for (const auto& word : words) pointers.push_back(word.c_str());
  Zentor::AutoRefPtr<Zentor::IModuleInfo> info;
  const Zentor::ZentorFunction entry = fHost.Context().GetFunction(
      function.c_str(), static_cast<unsigned int>(pointers.size()), pointers.data(), &info, 1);
  if (!entry) {
    fOut.Line("lookup: not found");
    return;
  }
  std::string symbol = "?";
  for (const auto& overload : fHost.OverloadsOf(function))
    if (overload->entry == entry) symbol = overload->symbol;
  fOut.Line("lookup: found " + symbol + " in module " + (info ? info->GetName() : "?"));
}

void Commands::Raise() {
  const Token severity = fArgs.Expect(Tok::Number, "a severity");
  const Token source = fArgs.Expect(Tok::String, "a source string");
  const Token code = fArgs.Expect(Tok::String, "a code string");
  const Token message = fArgs.Expect(Tok::String, "a message string");
  fArgs.ExpectEnd();
  fHost.Context().TriggerErrorHandler(
      static_cast<Zentor::ErrorSeverity>(static_cast<int>(severity.number)), source.text, code.text,
      message.text);
}

void Commands::Error() {
  fArgs.ExpectEnd();
  const auto state = fHost.Context().GetErrorState();
  if (!state.hasError)
    fOut.Line("error state: none");
  else
    fOut.Line("error state: severity " + std::to_string(state.severity) + ", source " +
              Quote(state.source) + ", code " + Quote(state.code) + ", message " +
              Quote(state.message));
}

void Commands::ClearError() {
  fArgs.ExpectEnd();
  fHost.Context().ClearError();
}

void Commands::Interrupt() {
  const Token on = fArgs.Expect(Tok::Ident, "on or off");
  fArgs.ExpectEnd();
  if (on.text != "on" && on.text != "off") throw ScriptError("expected on or off");
  fHost.Context().SetInterrupted(on.text == "on");
}

void Commands::NewInstance() {
  fArgs.ExpectEnd();
  fOut.Line("instance id " + std::to_string(fHost.Context().NewInstance()));
}

}  // namespace

void RunHostCommand(Host& host, Script& script, const std::string& text) {
  Commands(host, script, text).Run();
}

std::vector<std::string> HostCommandNames() {
  return Commands::Names();
}

void ShowGuide(Output& out) {
  out.Line("Statements, one per line:");
  const char* const statements[][2] = {
      {"let NAME = EXPR", "keep a value in a variable"},
      {"EXPR, print EXPR", "show a value"},
      {"echo EXPR", "write a string as it is"},
      {"for NAME in A .. B", "run the lines up to end for NAME = A, A+1 ... B"},
      {"for NAME in VECTOR", "... for each element"},
      {"end", "close a for block"},
      {":time STATEMENT", "run it and show how long it took"},
  };
  for (const auto& statement : statements)
    HelpLine(out, std::string("  ") + statement[0], statement[1]);
  const char* const lines[] = {
      "Values: \"text\", 2.5, true, numbers[1,2], strings[\"a\"], data\"81a1\", F(X, ...)",
      "  let d = JSON.FromString(Host.ReadFile(\"data.json\"))",
      "  echo ToFormattedString(JSON.SubNode(d, \"items/0\"), \"  \")",
      "A string or bracket left open continues on the next line (....>).",
      "Functions: :functions lists them, :functions JSON.Set one; Tab completes names.",
      "Read on: docs/script-language.md, docs/functions.md (every JSON function).",
      "Commands:",
  };
  for (const char* line : lines) out.Line(line);
}

}  // namespace zhost
