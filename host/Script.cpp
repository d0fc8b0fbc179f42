#include "Script.h"

#include <cctype>
#include <chrono>
#include <cstdio>

#include "Hints.h"
#include "HostCommands.h"
#include "HostFunctions.h"
#include "TerminalSignals.h"

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

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The name a line starts with ("let", "for", "end", a variable...), or "".
std::string FirstWord(const std::string& line) {
  size_t start = line.find_first_not_of(" \t");
  if (start == std::string::npos) return std::string();
  size_t end = start;
  while (end < line.size() && (std::isalnum(static_cast<unsigned char>(line[end])) ||
                               line[end] == '_' || line[end] == '.'))
    ++end;
  return line.substr(start, end - start);
}

// `line` without a leading ":time" (and the blanks after it); `timed` says
// whether it had one.
std::string WithoutTime(const std::string& line, bool& timed) {
  const size_t start = line.find_first_not_of(" \t");
  timed = start != std::string::npos && line.compare(start, 5, ":time") == 0 &&
          (start + 5 == line.size() || line[start + 5] == ' ' || line[start + 5] == '\t');
  if (!timed) return line;
  const size_t rest = line.find_first_not_of(" \t", start + 5);
  return rest == std::string::npos ? std::string() : line.substr(rest);
}

bool OpensBlock(const std::string& line) {
  bool timed = false;
  return FirstWord(WithoutTime(line, timed)) == "for";
}

// A block's `end` stands alone on its line.
void CheckEnd(const std::string& line) {
  TokenCursor tokens(Lex(line));
  tokens.Next();
  tokens.ExpectEnd();
}

// The variable a `let` line sets, or "".
std::string LetTarget(const std::string& line) {
  if (FirstWord(line) != "let") return std::string();
  return FirstWord(line.substr(line.find("let") + 3));
}

std::vector<Zentor::IVariant*> Pointers(const Arguments& args) {
  std::vector<Zentor::IVariant*> argv;
  for (const auto& arg : args) argv.push_back(arg.get());
  return argv;
}

}  // namespace

Script::Script(Host& host, bool echo) : Script(host, ScriptOptions{echo}) {}

Script::Script(Host& host, const ScriptOptions& options)
    : fHost(host), fOut(host.Out()), fOptions(options) {}

// Variables go first, while the modules that made their objects are still
// loaded (they always are: the host never unloads).
Script::~Script() {
  fVariables.clear();
}

bool Script::RunLine(const std::string& rawLine, int lineNumber) {
  const std::string line = TrimEnd(rawLine);
  const size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return true;
  if (fOptions.echo) fOut.Line("> " + line);
  if (line[first] == '#') return true;
  const bool opens = OpensBlock(line);
  if (fOpenHeads.empty() && !opens) return RunOne(line, lineNumber) != Flow::Quit;
  // A for block runs once its end has come, so that the whole of it is
  // known: a block typed at the terminal runs when it is finished. Each
  // head learns where its end is as the lines come, once for all rounds.
  fBlock.push_back({line, lineNumber});
  if (opens) {
    fOpenHeads.push_back(fBlock.size() - 1);
  } else if (FirstWord(line) == "end") {
    fBlock[fOpenHeads.back()].close = fBlock.size() - 1;
    fOpenHeads.pop_back();
  }
  if (!fOpenHeads.empty()) return true;
  const std::vector<Line> block = std::move(fBlock);
  fBlock.clear();
  // The whole block is one statement for how a terminal session ends.
  const int failuresBefore = fErrors + fStrictFailures;
  const Flow flow = RunFor(block, 0, block.size() - 1);
  fLastFailed = fErrors + fStrictFailures != failuresBefore;
  return flow != Flow::Quit;
}

void Script::Finish() {
  if (fOpenHeads.empty()) return;
  const int head = fBlock.front().number;
  fBlock.clear();
  fOpenHeads.clear();
  Attempt(head, [] { throw ScriptError("the for block has no end"); });
}

template <class Body>
bool Script::Attempt(int lineNumber, Body&& body) {
  try {
    body();
    return true;
  } catch (const ScriptError& error) {
    ++fErrors;
    fLastFailed = true;
    // A message may quote what was typed; a stray escape byte in it must
    // not drive the terminal.
    fOut.Line("! script error at line " + std::to_string(lineNumber) + ": " +
              Printable(error.what()));
    for (const std::string& item : error.list) fOut.Line("  " + Printable(item));
    return false;
  }
}

Script::Flow Script::RunOne(const std::string& line, int lineNumber) {
  const std::string text = line.substr(line.find_first_not_of(" \t"));
  // Quitting is the runner's business, not a command's: only the bare
  // word ends the script. It is no statement of its own, so the session
  // ends as its last statement left it, as at the end of input.
  if (text == ":quit" || text == ":q") return Flow::Quit;
  fLastFailed = false;
  bool timed = false;
  const std::string statement = WithoutTime(text, timed);
  const unsigned long long failuresBefore = ModuleFailures();
  fHost.SetEventLine(fOptions.echo ? 0 : lineNumber);
  const bool ran = Attempt(lineNumber, [&] {
    // What a newcomer types first: no statement, but the way to :help.
    const bool help = text == "help" || text == "?" || text == ":help";
    if (help && fOptions.interactive) ShowGuide(fOut);
    if (help) return RunHostCommand(fHost, *this, "help");
    if (FirstWord(text) == "end") throw ScriptError("end without a for block to close");
    if (timed) {
      if (statement.empty()) throw ScriptError(":time needs a statement to run");
      if (statement[0] == ':') throw ScriptError(":time runs statements, not commands");
      const auto start = Clock::now();
      RunStatement(statement);
      return ShowTime(MillisecondsSince(start));
    }
    if (text[0] != ':') return RunStatement(line);
    RunHostCommand(fHost, *this, text.substr(1));
  });
  fHost.SetEventLine(0);
  const bool moduleFailed = ModuleFailures() != failuresBefore;
  if (ran && moduleFailed && fOptions.strict) {
    ++fStrictFailures;
    fLastFailed = true;
  }
  if (const std::string variable = LetTarget(statement); !variable.empty()) {
    if (!ran || moduleFailed)
      fFailedLets[variable] = lineNumber;
    else
      fFailedLets.erase(variable);
  }
  return ran ? Flow::Next : Flow::Stop;
}

Script::Flow Script::RunFor(const std::vector<Line>& lines, size_t begin, size_t end) {
  const Line& head = lines[begin];
  bool timed = false;
  const std::string text = WithoutTime(head.text, timed);
  ForHead loop;
  const unsigned long long failuresBefore = ModuleFailures();
  fHost.SetEventLine(fOptions.echo ? 0 : head.number);
  const bool ready =
      Attempt(lines[end].number, [&] { CheckEnd(lines[end].text); }) &&
      Attempt(head.number, [&] { loop = EvaluateForHead(text, fHost, *this, fVariables); });
  fHost.SetEventLine(0);
  if (!ready) return Flow::Stop;
  if (fOptions.strict && ModuleFailures() != failuresBefore) ++fStrictFailures;
  const auto start = Clock::now();
  for (unsigned long long round = 0;; ++round) {
    Zentor::AutoRefPtr<Zentor::IVariant> value;
    if (loop.vector) {
      if (round >= loop.vector->GetSize()) break;
      value = loop.vector->Get(round);
      if (!value) value = MakeVariant();
    } else {
      const double number = loop.first + static_cast<double>(round);
      if (number > loop.last) break;
      value = MakeNumber(number);
    }
    fVariables[loop.variable] = value;
    fFailedLets.erase(loop.variable);
    if (const Flow flow = RunBody(lines, begin + 1, end); flow != Flow::Next) return flow;
    // At the terminal, Ctrl-C stops a loop that runs longer than meant.
    if (fOptions.interactive && TerminalSignals::TakeInterrupt()) {
      ++fErrors;
      fOut.Line("! for block at line " + std::to_string(head.number) + " stopped by Ctrl-C after " +
                std::to_string(round + 1) + (round == 0 ? " round" : " rounds"));
      return Flow::Stop;
    }
  }
  if (timed) ShowTime(MillisecondsSince(start));
  return Flow::Next;
}

Script::Flow Script::RunBody(const std::vector<Line>& lines, size_t begin, size_t end) {
  for (size_t at = begin; at < end;) {
    Flow flow = Flow::Next;
    if (const size_t close = lines[at].close) {
      flow = RunFor(lines, at, close);
      at = close + 1;
    } else {
      flow = RunOne(lines[at].text, lines[at].number);
      ++at;
    }
    if (flow != Flow::Next) return flow;
  }
  return Flow::Next;
}

void Script::ShowTime(double milliseconds) {
  char text[64];
  std::snprintf(text, sizeof text, "time: %.3f ms", milliseconds);
  fOut.Line(text);
}

unsigned long long Script::ModuleFailures() const {
  return fHost.Context().ErrorReports() + fCallFailures;
}

std::string Script::WhyUnset(const std::string& variable) const {
  const auto failed = fFailedLets.find(variable);
  return failed == fFailedLets.end()
             ? std::string()
             : "its let at line " + std::to_string(failed->second) + " failed";
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
  // At the terminal, a statement whose string or bracket is still open,
  // and the line it began on.
  std::string open;
  int openNumber = 0;
  for (;;) {
    reader.Continue(!open.empty() || !fOpenHeads.empty());
    const auto line = reader.ReadLine();
    if (!line) break;
    ++number;
    if (reader.TakeAbandoned()) {
      open.clear();
      fBlock.clear();
      fOpenHeads.clear();
    }
    const std::string text = open.empty() ? *line : open + "\n" + *line;
    if (open.empty()) openNumber = number;
    if (fOptions.interactive && LeavesOpen(text)) {
      open = text;
      continue;
    }
    open.clear();
    if (!RunLine(text, openNumber)) return;
  }
  // Input ended inside a statement: it runs as it stands, and says what
  // it lacks.
  if (!open.empty()) RunLine(open, openNumber);
  Finish();
}

void Script::RunStatement(const std::string& line) {
  const Statement statement = EvaluateStatement(line, fHost, *this, fVariables);
  const ScriptValue& value = statement.value;
  if (statement.let)
    fVariables[*statement.let] = value.variant;
  else if (statement.echo && value.variant && !value.variant->GetVector() &&
           value.variant->GetType() == Zentor::kTypeString)
    fOut.Line(value.variant->GetStdString());
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
  const std::string where = label + fHost.EventLine() + ": ";
  if (outcome.threw) fOut.Line("! exception from " + where + outcome.exception);
  if (outcome.status != 0)
    fOut.Line("! status " + FormatStatus(outcome.status) + " from " + where +
              DescribeStatus(outcome.status));
  if (outcome.threw || outcome.status != 0) ++fCallFailures;
}

ScriptValue Script::CallByName(const std::string& name, Arguments& args,
                               const std::vector<std::string>& sources) {
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
    ScriptError error = NoOverload(name, words, declared);
    // A variable without value is most often one whose let failed: say so.
    for (size_t i = 0; i < words.size() && i < sources.size(); ++i)
      if (const std::string why = WhyUnset(sources[i]); words[i] == "NOTHING" && !why.empty())
        error.list.push_back(sources[i] + " has no value: " + why);
    throw error;
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
