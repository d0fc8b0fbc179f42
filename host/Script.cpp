#include "Script.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <set>
#include <stdexcept>

#include "HostTextJSON.h"

namespace zhost {
namespace {

// A mistake in the script; the line is abandoned and the script goes on.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class Tok {
  End,
  Ident,
  String,
  Number,
  Data,
  StreamData,
  LParen,
  RParen,
  LBracket,
  RBracket,
  Comma,
  Equals
};

struct Token {
  Tok kind = Tok::End;
  std::string text;  // identifier, decoded string or decoded data bytes
  double number = 0.0;
  size_t column = 0;  // 1-based
};

const std::set<std::string> kKeywords = {
    "true",  "false", "nan", "inf", "nothing", "data",  "streamdata", "strings", "numbers",
    "bools", "empty", "new", "raw", "let",     "print", "noresult",   "preset"};

bool IsIdentStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool IsIdentChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void AppendUtf8(std::string& out, unsigned long code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

class Lexer {
 public:
  explicit Lexer(const std::string& line) : fLine(line) {}

  std::vector<Token> Run() {
    std::vector<Token> tokens;
    for (;;) {
      while (fPos < fLine.size() && std::isspace(static_cast<unsigned char>(fLine[fPos]))) ++fPos;
      Token token;
      token.column = fPos + 1;
      if (fPos >= fLine.size() || fLine[fPos] == '#') {
        tokens.push_back(token);
        return tokens;
      }
      const char c = fLine[fPos];
      if (c == '"') {
        token.kind = Tok::String;
        token.text = StringBody();
      } else if (IsDigit(c) || ((c == '-' || c == '+' || c == '.') && fPos + 1 < fLine.size() &&
                                (IsDigit(fLine[fPos + 1]) || fLine[fPos + 1] == '.' ||
                                 fLine[fPos + 1] == 'i' || fLine[fPos + 1] == 'n'))) {
        token.kind = Tok::Number;
        token.number = NumberBody();
      } else if (IsIdentStart(c)) {
        const size_t start = fPos;
        while (fPos < fLine.size() && IsIdentChar(fLine[fPos])) ++fPos;
        token.text = fLine.substr(start, fPos - start);
        token.kind = Tok::Ident;
        if ((token.text == "data" || token.text == "streamdata") && fPos < fLine.size() &&
            fLine[fPos] == '"') {
          token.kind = token.text == "data" ? Tok::Data : Tok::StreamData;
          token.text = HexBody();
        }
      } else {
        ++fPos;
        switch (c) {
          case '(':
            token.kind = Tok::LParen;
            break;
          case ')':
            token.kind = Tok::RParen;
            break;
          case '[':
            token.kind = Tok::LBracket;
            break;
          case ']':
            token.kind = Tok::RBracket;
            break;
          case ',':
            token.kind = Tok::Comma;
            break;
          case '=':
            token.kind = Tok::Equals;
            break;
          default:
            throw ScriptError("unexpected character '" + std::string(1, c) + "' at column " +
                              std::to_string(token.column));
        }
      }
      tokens.push_back(std::move(token));
    }
  }

 private:
  std::string StringBody() {
    std::string out;
    ++fPos;  // opening quote
    for (;;) {
      if (fPos >= fLine.size()) throw ScriptError("unterminated string");
      const char c = fLine[fPos++];
      if (c == '"') return out;
      if (c != '\\') {
        out += c;
        continue;
      }
      if (fPos >= fLine.size()) throw ScriptError("unterminated string");
      const char e = fLine[fPos++];
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out += e;
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case '0':
          out += '\0';
          break;
        case 'x': {
          const int high = fPos < fLine.size() ? HexValue(fLine[fPos]) : -1;
          const int low = fPos + 1 < fLine.size() ? HexValue(fLine[fPos + 1]) : -1;
          if (high < 0 || low < 0) throw ScriptError("\\x needs two hex digits");
          out += static_cast<char>(high * 16 + low);
          fPos += 2;
          break;
        }
        case 'u': {
          unsigned long code = 0;
          for (int i = 0; i < 4; ++i) {
            const int digit = fPos < fLine.size() ? HexValue(fLine[fPos]) : -1;
            if (digit < 0) throw ScriptError("\\u needs four hex digits");
            code = code * 16 + static_cast<unsigned long>(digit);
            ++fPos;
          }
          AppendUtf8(out, code);
          break;
        }
        default:
          throw ScriptError("unknown escape \\" + std::string(1, e));
      }
    }
  }

  std::string HexBody() {
    std::string out;
    ++fPos;  // opening quote
    int pending = -1;
    for (;;) {
      if (fPos >= fLine.size()) throw ScriptError("unterminated data literal");
      const char c = fLine[fPos++];
      if (c == '"') break;
      if (c == ' ' || c == '_') continue;
      const int digit = HexValue(c);
      if (digit < 0)
        throw ScriptError("data literals hold hex digits only, not '" + std::string(1, c) + "'");
      if (pending < 0) {
        pending = digit;
      } else {
        out += static_cast<char>(pending * 16 + digit);
        pending = -1;
      }
    }
    if (pending >= 0) throw ScriptError("data literal with an odd number of hex digits");
    return out;
  }

  double NumberBody() {
    const size_t start = fPos;
    bool negative = false;
    if (fLine[fPos] == '-' || fLine[fPos] == '+') negative = fLine[fPos++] == '-';
    // Signed specials: -inf, +inf, -nan.
    for (const char* word : {"inf", "nan"}) {
      if (fLine.compare(fPos, 3, word) == 0 &&
          (fPos + 3 >= fLine.size() || !IsIdentChar(fLine[fPos + 3]))) {
        fPos += 3;
        const double value = word[0] == 'i' ? std::numeric_limits<double>::infinity()
                                            : std::numeric_limits<double>::quiet_NaN();
        return negative ? -value : value;
      }
    }
    if (fLine.compare(fPos, 2, "0x") == 0 || fLine.compare(fPos, 2, "0X") == 0) {
      fPos += 2;
      unsigned long long value = 0;
      const size_t digits = fPos;
      while (fPos < fLine.size() && HexValue(fLine[fPos]) >= 0)
        value = value * 16 + static_cast<unsigned long long>(HexValue(fLine[fPos++]));
      if (fPos == digits) throw ScriptError("hex number without digits");
      const double number = static_cast<double>(value);
      return negative ? -number : number;
    }
    const size_t body = fPos;
    while (fPos < fLine.size()) {
      const char c = fLine[fPos];
      if (IsDigit(c) || c == '.' || c == 'e' || c == 'E' ||
          ((c == '-' || c == '+') && (fLine[fPos - 1] == 'e' || fLine[fPos - 1] == 'E')))
        ++fPos;
      else
        break;
    }
    double value = 0.0;
    const auto result = std::from_chars(fLine.data() + body, fLine.data() + fPos, value);
    if (result.ec == std::errc::result_out_of_range) {
      // Beyond the double range: the nearest value, as strtod gives it.
      value = std::strtod(fLine.substr(body, fPos - body).c_str(), nullptr);
    } else if (result.ec != std::errc() || result.ptr != fLine.data() + fPos) {
      throw ScriptError("malformed number \"" + fLine.substr(start, fPos - start) + "\"");
    }
    if (fPos < fLine.size() && IsIdentChar(fLine[fPos]))
      throw ScriptError("malformed number \"" + fLine.substr(start, fPos - start + 1) + "\"");
    return negative ? -value : value;
  }

  const std::string& fLine;
  size_t fPos = 0;
};

const char* TokenName(Tok kind) {
  switch (kind) {
    case Tok::End:
      return "end of line";
    case Tok::Ident:
      return "a name";
    case Tok::String:
      return "a string";
    case Tok::Number:
      return "a number";
    case Tok::Data:
    case Tok::StreamData:
      return "a data literal";
    case Tok::LParen:
      return "'('";
    case Tok::RParen:
      return "')'";
    case Tok::LBracket:
      return "'['";
    case Tok::RBracket:
      return "']'";
    case Tok::Comma:
      return "','";
    case Tok::Equals:
      return "'='";
  }
  return "?";
}

std::string ElementWord(unsigned int kind) {
  switch (kind) {
    case Zentor::kTypeBoolean:
      return "BOOLEAN";
    case Zentor::kTypeNumber:
      return "NUMBER";
    case Zentor::kTypeString:
      return "STRING";
    default:
      return "KIND" + std::to_string(kind);
  }
}

}  // namespace

// What an expression yields, with how a statement should present it.
struct Script::Value {
  Zentor::AutoRefPtr<Zentor::IVariant> variant;
  bool untouchedPreset = false;  // a raw call left its preset result alone
  bool nullResult = false;       // a raw call ran without result variant
};

// Recursive descent over one line's tokens, evaluating as it goes.
class Script::Parser {
 public:
  Parser(Script& script, std::vector<Token> tokens) : fScript(script), fTokens(std::move(tokens)) {}

  const Token& Peek(size_t ahead = 0) const {
    return fTokens[std::min(fPos + ahead, fTokens.size() - 1)];
  }
  Token Next() {
    Token token = Peek();
    if (fPos < fTokens.size() - 1) ++fPos;
    return token;
  }
  bool Accept(Tok kind) {
    if (Peek().kind != kind) return false;
    Next();
    return true;
  }
  Token Expect(Tok kind, const char* what) {
    if (Peek().kind != kind)
      throw ScriptError(std::string("expected ") + what + " at column " +
                        std::to_string(Peek().column) + ", found " + TokenName(Peek().kind));
    return Next();
  }
  bool AtEnd() const { return Peek().kind == Tok::End; }
  void ExpectEnd() {
    if (!AtEnd())
      throw ScriptError(std::string("expected end of line at column ") +
                        std::to_string(Peek().column) + ", found " + TokenName(Peek().kind));
  }
  bool PeekWord(const char* word, size_t ahead = 0) const {
    return Peek(ahead).kind == Tok::Ident && Peek(ahead).text == word;
  }

  Value Expression() {
    const Token token = Next();
    switch (token.kind) {
      case Tok::String:
        return Plain(MakeString(token.text));
      case Tok::Number:
        return Plain(MakeNumber(token.number));
      case Tok::Data:
      case Tok::StreamData: {
        auto variant = MakeVariant();
        Zentor::AutoRefPtr<HostData> data(new HostData(token.text, token.kind == Tok::Data));
        variant->AssignData(data.get());
        return Plain(variant);
      }
      case Tok::Ident:
        return Word(token);
      default:
        throw ScriptError(std::string("expected a value at column ") +
                          std::to_string(token.column) + ", found " + TokenName(token.kind));
    }
  }

  std::vector<Zentor::AutoRefPtr<Zentor::IVariant>> Arguments() {
    std::vector<Zentor::AutoRefPtr<Zentor::IVariant>> args;
    Expect(Tok::LParen, "'('");
    if (Accept(Tok::RParen)) return args;
    do {
      args.push_back(Expression().variant);
    } while (Accept(Tok::Comma));
    Expect(Tok::RParen, "')' or ','");
    return args;
  }

 private:
  template <class P>
  static Value Plain(const P& variant) {
    Value value;
    value.variant = variant;
    return value;
  }

  Value Word(const Token& token) {
    const std::string& word = token.text;
    if (word == "true" || word == "false") return Plain(MakeBoolean(word == "true"));
    if (word == "nan") return Plain(MakeNumber(std::numeric_limits<double>::quiet_NaN()));
    if (word == "inf") return Plain(MakeNumber(std::numeric_limits<double>::infinity()));
    if (word == "nothing") return Plain(MakeVariant());
    if (word == "data") {
      if (!PeekWord("null")) throw ScriptError("expected data\"HEX\" or data null");
      Next();
      auto variant = MakeVariant();
      variant->SetNullData();
      return Plain(variant);
    }
    if (word == "strings" || word == "numbers" || word == "bools") return Vector(word);
    if (word == "empty" || word == "new") {
      const Token name = Expect(Tok::Ident, "a type name");
      const unsigned int id = fScript.fHost.FindType(name.text);
      if (id == Zentor::kTypeInvalid) throw ScriptError("unknown type " + name.text);
      if (word == "empty") {
        if (id < Zentor::kTypeFirstUserDefined)
          throw ScriptError("empty needs a user-defined type, not " + name.text);
        auto variant = MakeVariant();
        variant->SetEmptyUserDefined(id);
        return Plain(variant);
      }
      Zentor::AutoRefPtr<Zentor::IVariant> made(fScript.fHost.CreateInstance(id));
      if (!made) throw ScriptError("the host could not create a " + name.text);
      return Plain(made);
    }
    if (word == "raw") {
      const Token symbol = Expect(Tok::Ident, "an exported symbol");
      auto args = Arguments();
      bool noResult = false;
      Zentor::AutoRefPtr<Zentor::IVariant> preset;
      if (PeekWord("noresult")) {
        Next();
        noResult = true;
      } else if (PeekWord("preset")) {
        Next();
        preset = Expression().variant;
      }
      return fScript.CallRaw(symbol.text, args, noResult, preset.get());
    }
    if (Peek().kind == Tok::LParen) {
      auto args = Arguments();
      return fScript.CallByName(word, args);
    }
    if (kKeywords.count(word)) throw ScriptError("unexpected keyword " + word);
    const auto found = fScript.fVariables.find(word);
    if (found == fScript.fVariables.end()) throw ScriptError("unknown variable " + word);
    return Plain(found->second);
  }

  Value Vector(const std::string& word) {
    const unsigned int kind = word == "strings"   ? Zentor::kTypeString
                              : word == "numbers" ? Zentor::kTypeNumber
                                                  : Zentor::kTypeBoolean;
    Zentor::AutoRefPtr<Zentor::IVectorGeneric> vector(NewVector(kind));
    Expect(Tok::LBracket, "'['");
    if (!Accept(Tok::RBracket)) {
      do {
        const size_t column = Peek().column;
        const Value element = Expression();
        if (!vector->Add(element.variant.get()))
          throw ScriptError("element at column " + std::to_string(column) + " of " + word +
                            "[...] is not a " + ElementWord(kind));
      } while (Accept(Tok::Comma));
      Expect(Tok::RBracket, "']' or ','");
    }
    auto variant = MakeVariant();
    variant->AssignVector(vector.get());
    return Plain(variant);
  }

  Script& fScript;
  std::vector<Token> fTokens;
  size_t fPos = 0;
};

Script::Script(Host& host, bool echo) : fHost(host), fOut(host.Out()), fEcho(echo) {}

// Variables go first, while the modules that made their objects are still
// loaded (they always are: the host never unloads).
Script::~Script() {
  fVariables.clear();
}

bool Script::RunLine(const std::string& rawLine, int lineNumber) {
  std::string line = rawLine;
  while (!line.empty() &&
         (line.back() == '\r' || line.back() == '\n' || line.back() == ' ' || line.back() == '\t'))
    line.pop_back();
  size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return true;
  if (fEcho) fOut.Line("> " + line);
  if (line[first] == '#') return true;
  try {
    if (line[first] == ':') {
      const std::string command = line.substr(first + 1);
      if (command == "quit" || command == "q") return false;
      RunCommand(command);
      return true;
    }
    Parser parser(*this, Lexer(line).Run());
    if (parser.PeekWord("let")) {
      parser.Next();
      const Token name = parser.Expect(Tok::Ident, "a variable name");
      if (kKeywords.count(name.text) || name.text.find('.') != std::string::npos)
        throw ScriptError("\"" + name.text + "\" cannot name a variable");
      parser.Expect(Tok::Equals, "'='");
      Value value = parser.Expression();
      parser.ExpectEnd();
      fVariables[name.text] = value.variant;
      return true;
    }
    if (parser.PeekWord("print")) parser.Next();
    Value value = parser.Expression();
    parser.ExpectEnd();
    if (value.nullResult)
      fOut.Line("no value (no result variant)");
    else if (value.untouchedPreset)
      fOut.Line("untouched " + Format(value.variant.get()));
    else
      fOut.Line(Format(value.variant.get()));
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

std::string Script::KindWord(Zentor::IVariant* value) {
  if (!value) return "NOTHING";
  if (auto vector = value->GetVector())
    return "VECTOR<" + ElementWord(vector->GetElementType()) + ">";
  const unsigned int kind = value->GetType();
  switch (kind) {
    case Zentor::kTypeInvalid:
      return "NOTHING";
    case Zentor::kTypeBoolean:
    case Zentor::kTypeNumber:
    case Zentor::kTypeString:
      return ElementWord(kind);
    case Zentor::kTypeData:
      return "DATAREF";
    default:
      break;
  }
  if (const auto type = fHost.TypeById(kind)) return type->name;
  return "KIND" + std::to_string(kind);
}

void Script::ShowOutcome(const CallOutcome& outcome, const std::string& label) {
  if (outcome.threw) fOut.Line("! exception from " + label + ": " + outcome.exception);
  if (outcome.status != 0)
    fOut.Line("! status " + FormatStatus(outcome.status) + " from " + label + ": " +
              DescribeStatus(outcome.status));
}

namespace {

Zentor::IUserDefinedType* UserObject(const std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args,
                                     size_t index, const std::string& name) {
  Zentor::IUserDefinedType* object =
      index < args.size() ? args[index]->GetUserDefinedPtr() : nullptr;
  if (!object)
    throw ScriptError(name + ": argument " + std::to_string(index + 1) +
                      " must be a user-defined value with object");
  return object;
}

double NumberAt(const std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args, size_t index,
                const std::string& name) {
  if (index >= args.size() || args[index]->GetType() != Zentor::kTypeNumber)
    throw ScriptError(name + ": argument " + std::to_string(index + 1) + " must be a number");
  return args[index]->GetNumber();
}

}  // namespace

// What a host does with user-defined values besides calling functions:
// copying, ordering, the binary handle, and the native JSON form.
bool Script::CallBuiltin(const std::string& name,
                         std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args, Value& out) {
  if (name.rfind("Host.", 0) != 0 || !fHost.OverloadsOf(name).empty()) return false;
  Zentor::IContext& context = fHost.Context();
  auto result = MakeVariant();
  out.variant = result;
  // A fresh object of the same type as `object`, from the type's factory.
  auto freshLike = [&](Zentor::IUserDefinedType* object) {
    Zentor::AutoRefPtr<Zentor::IVariant> made(fHost.CreateInstance(object->GetType()));
    if (!made || !made->GetUserDefinedPtr())
      throw ScriptError(name + ": the host could not create a " + object->GetName());
    return made;
  };
  const std::string text = name.substr(5);
  if (text == "Clone" && args.size() == 1) {
    auto clone = UserObject(args, 0, name)->Clone();
    if (clone) result->SetUserDefined(clone.get());
  } else if (text == "LessThan" && args.size() == 2) {
    result->AssignBoolean(UserObject(args, 0, name)->LessThan(UserObject(args, 1, name)));
  } else if (text == "TypeName" && args.size() == 1) {
    result->AssignString(UserObject(args, 0, name)->GetName());
  } else if (text == "TypeId" && args.size() == 1) {
    result->AssignNumber(UserObject(args, 0, name)->GetType());
  } else if (text == "BinaryCopy" && (args.size() == 2 || args.size() == 3)) {
    Zentor::IUserDefinedType* object = UserObject(args, 0, name);
    const auto format = static_cast<unsigned long long>(NumberAt(args, 1, name));
    void* handle = nullptr;
    unsigned long long size = object->ToBinaryData(&handle, format);
    fOut.Line("host: ToBinaryData(format " + std::to_string(format) + ") gave " +
              std::to_string(size) + " bytes");
    if (args.size() == 3) size = static_cast<unsigned long long>(NumberAt(args, 2, name));
    auto copy = freshLike(object);
    const bool taken = copy->GetUserDefinedPtr()->FromBinaryData(handle, size, format);
    fOut.Line(std::string("host: FromBinaryData(") + std::to_string(size) + " bytes) returned " +
              (taken ? "true" : "false"));
    out.variant = copy;
  } else if (text == "Serialize" && args.size() == 1) {
    auto json = UserObject(args, 0, name)->Serialize(&context);
    if (!json)
      fOut.Line("host: Serialize returned null");
    else
      result->AssignString(json->ToString());
  } else if (text == "Deserialize" && args.size() == 2) {
    // Into a fresh object of the first argument's type, from a text (through
    // the host's own text-only IJSON) or from another value's native form.
    Zentor::IUserDefinedType* target = UserObject(args, 0, name);
    Zentor::AutoRefPtr<Zentor::IJSON> json;
    if (args[1]->GetType() == Zentor::kTypeString) {
      json.reset(new HostTextJSON(args[1]->GetStdString()));
    } else {
      json = UserObject(args, 1, name)->Serialize(&context);
      if (!json) throw ScriptError(name + ": the source value has no native JSON form");
    }
    auto copy = freshLike(target);
    const bool ok = copy->GetUserDefinedPtr()->Deserialize(json.get(), &context);
    fOut.Line(std::string("host: Deserialize returned ") + (ok ? "true" : "false"));
    out.variant = copy;
  } else {
    throw ScriptError(
        "unknown host function " + Signature(name, std::vector<std::string>(args.size(), "?")) +
        " (Host.Clone/1, Host.LessThan/2, Host.TypeName/1, Host.TypeId/1, Host.BinaryCopy/2-3, "
        "Host.Serialize/1, Host.Deserialize/2)");
  }
  return true;
}

Script::Value Script::CallByName(const std::string& name,
                                 std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args) {
  if (Value builtin; CallBuiltin(name, args, builtin)) return builtin;
  std::vector<std::string> words;
  std::vector<Zentor::IVariant*> argv;
  for (auto& arg : args) {
    words.push_back(KindWord(arg.get()));
    argv.push_back(arg.get());
  }
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
  Value value;
  value.variant = MakeVariant();
  const CallOutcome outcome =
      fHost.Call(overload->entry, overload->module, name, argv, value.variant.get());
  ShowOutcome(outcome, name);
  return value;
}

Script::Value Script::CallRaw(const std::string& symbol,
                              std::vector<Zentor::AutoRefPtr<Zentor::IVariant>>& args,
                              bool noResult, Zentor::IVariant* preset) {
  const LoadedModule* module = nullptr;
  auto entry = reinterpret_cast<Zentor::ZentorFunction>(fHost.FindSymbol(symbol, &module));
  if (!entry) throw ScriptError("no loaded module exports " + symbol);
  std::vector<Zentor::IVariant*> argv;
  for (auto& arg : args) argv.push_back(arg.get());
  Value value;
  Zentor::AutoRefPtr<HostVariant> result;
  if (!noResult) {
    // A preset result starts as a copy of the preset value, so that a
    // function that leaves it alone can be told from one that overwrites.
    result = preset ? CopyOf(*preset) : MakeVariant();
  }
  const unsigned long long before = result ? result->AssignmentCount() : 0;
  const CallOutcome outcome = fHost.Call(entry, module, symbol, argv, result.get());
  ShowOutcome(outcome, symbol);
  value.nullResult = noResult;
  value.untouchedPreset = preset && result->AssignmentCount() == before;
  value.variant = result ? Zentor::AutoRefPtr<Zentor::IVariant>(result)
                         : Zentor::AutoRefPtr<Zentor::IVariant>(MakeVariant());
  return value;
}

std::string Script::Format(Zentor::IVariant* value) {
  if (!value) return "no value";
  if (auto vector = value->GetVector()) {
    std::string text;
    const unsigned int element = vector->GetElementType();
    text = element == Zentor::kTypeBoolean  ? "bools["
           : element == Zentor::kTypeNumber ? "numbers["
           : element == Zentor::kTypeString ? "strings["
                                            : "vector<kind " + std::to_string(element) + ">[";
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
  Parser parser(*this, Lexer(text).Run());
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
