#include "ScriptParser.h"

#include <cmath>
#include <limits>
#include <set>

#include "Hints.h"

namespace zhost {
namespace {

const std::set<std::string> kKeywords = {
    "true",    "false",    "nan",    "inf",   "nothing", "data", "streamdata",
    "strings", "numbers",  "bools",  "empty", "new",     "raw",  "let",
    "print",   "noresult", "preset", "echo",  "for",     "in",   "end"};

// 2^53: beyond it doubles skip whole numbers, and a loop would not count
// one by one.
constexpr double kLargestWholeNumber = 9007199254740992.0;

struct VectorLiteral {
  const char* word;
  unsigned int elementKind;
};
constexpr VectorLiteral kVectorLiterals[] = {{"strings", Zentor::kTypeString},
                                             {"numbers", Zentor::kTypeNumber},
                                             {"bools", Zentor::kTypeBoolean}};

ScriptValue Plain(Zentor::AutoRefPtr<Zentor::IVariant> variant) {
  ScriptValue value;
  value.variant = std::move(variant);
  return value;
}

// Recursive descent over one line's tokens.
class Parser {
 public:
  Parser(const std::string& line, Host& host, ScriptCalls& calls, const Variables& variables)
      : fTokens(Lex(line)), fHost(host), fCalls(calls), fVariables(variables) {}

  Statement Line() {
    Statement statement;
    if (fTokens.PeekWord("let")) {
      fTokens.Next();
      statement.let = VariableName();
      fTokens.Expect(Tok::Equals, "'='");
    } else if (fTokens.PeekWord("print")) {
      fTokens.Next();
    } else if (fTokens.PeekWord("echo")) {
      fTokens.Next();
      statement.echo = true;
    }
    statement.value = Expression();
    fTokens.ExpectEnd();
    return statement;
  }

  ForHead For() {
    ForHead head;
    if (!fTokens.PeekWord("for")) throw Unexpected("for", fTokens.Peek());
    fTokens.Next();
    head.variable = VariableName();
    if (!fTokens.PeekWord("in")) throw Unexpected("in", fTokens.Peek());
    fTokens.Next();
    const size_t column = fTokens.Peek().column;
    const ScriptValue over = Expression();
    Zentor::IVariant* value = over.variant.get();
    if (fTokens.Accept(Tok::Range)) {
      const size_t lastColumn = fTokens.Peek().column;
      const ScriptValue last = Expression();
      head.first = WholeNumber(value, column);
      head.last = WholeNumber(last.variant.get(), lastColumn);
    } else if (auto vector = value ? value->GetVector() : nullptr) {
      head.vector = std::move(vector);
    } else {
      throw ScriptError("for needs A .. B or a vector after in; the value at column " +
                        std::to_string(column) + " is neither");
    }
    fTokens.ExpectEnd();
    return head;
  }

 private:
  // The name a `let` or a `for` sets.
  std::string VariableName() {
    const Token name = fTokens.Expect(Tok::Ident, "a variable name");
    if (kKeywords.count(name.text) || name.text.find('.') != std::string::npos)
      throw ScriptError("\"" + name.text + "\" cannot name a variable");
    return name.text;
  }

  // A bound of a for range: a whole number, so that the loop counts the
  // same on every system.
  static double WholeNumber(Zentor::IVariant* value, size_t column) {
    const bool number = value && !value->GetVector() && value->GetType() == Zentor::kTypeNumber;
    const double x = number ? value->GetNumber() : 0;
    if (!number || !(std::fabs(x) <= kLargestWholeNumber) || x != std::trunc(x))
      throw ScriptError("the bound at column " + std::to_string(column) +
                        " of a for range is not a whole number");
    return x;
  }

  ScriptValue Expression() {
    const Token token = fTokens.Next();
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
        return Word(token.text);
      default:
        throw Unexpected("a value", token);
    }
  }

  // The arguments of a call, and the variable each one was read from
  // ("" for other expressions) when `sources` is given.
  Arguments ArgumentList(std::vector<std::string>* sources = nullptr) {
    Arguments args;
    fTokens.Expect(Tok::LParen, "'('");
    if (fTokens.Accept(Tok::RParen)) return args;
    do {
      if (sources) {
        const bool variable = fTokens.Peek().kind == Tok::Ident &&
                              fTokens.Peek(1).kind != Tok::LParen &&
                              fVariables.count(fTokens.Peek().text);
        sources->push_back(variable ? fTokens.Peek().text : std::string());
      }
      args.push_back(Expression().variant);
    } while (fTokens.Accept(Tok::Comma));
    fTokens.Expect(Tok::RParen, "')' or ','");
    return args;
  }

  // A value that starts with a name: a keyword literal, a call or a
  // variable.
  ScriptValue Word(const std::string& word) {
    if (word == "true" || word == "false") return Plain(MakeBoolean(word == "true"));
    if (word == "nan") return Plain(MakeNumber(std::numeric_limits<double>::quiet_NaN()));
    if (word == "inf") return Plain(MakeNumber(std::numeric_limits<double>::infinity()));
    if (word == "nothing") return Plain(MakeVariant());
    if (word == "data") return NullData();
    if (const unsigned int kind = VectorKind(word); kind != Zentor::kTypeInvalid)
      return Vector(word, kind);
    if (word == "empty") return Empty();
    if (word == "new") return New();
    if (word == "raw") return Raw();
    if (fTokens.Peek().kind == Tok::LParen) {
      std::vector<std::string> sources;
      auto args = ArgumentList(&sources);
      return fCalls.CallByName(word, args, sources);
    }
    if (kKeywords.count(word)) throw ScriptError("unexpected keyword " + word);
    const auto found = fVariables.find(word);
    if (found == fVariables.end()) {
      if (!fHost.OverloadsOf(word).empty())
        throw ScriptError(word + " is a function: call it as " + word + "(...)");
      if (const std::string why = fCalls.WhyUnset(word); !why.empty())
        throw ScriptError("unknown variable " + word + ": " + why);
      std::vector<std::string> names;
      for (const auto& [name, value] : fVariables) names.push_back(name);
      throw Unknown("variable", word, names);
    }
    return Plain(found->second);
  }

  // `data null`: a data variant without data object. (`data"HEX"` is a
  // token of its own.)
  ScriptValue NullData() {
    if (!fTokens.PeekWord("null")) throw ScriptError("expected data\"HEX\" or data null");
    fTokens.Next();
    auto variant = MakeVariant();
    variant->SetNullData();
    return Plain(variant);
  }

  ScriptValue Vector(const std::string& word, unsigned int kind) {
    Zentor::AutoRefPtr<Zentor::IVectorGeneric> vector(NewVector(kind));
    fTokens.Expect(Tok::LBracket, "'['");
    if (!fTokens.Accept(Tok::RBracket)) {
      do {
        const size_t column = fTokens.Peek().column;
        const ScriptValue element = Expression();
        if (!vector->Add(element.variant.get()))
          throw ScriptError("element at column " + std::to_string(column) + " of " + word +
                            "[...] is not a " + BuiltInWord(kind));
      } while (fTokens.Accept(Tok::Comma));
      fTokens.Expect(Tok::RBracket, "']' or ','");
    }
    auto variant = MakeVariant();
    variant->AssignVector(vector.get());
    return Plain(variant);
  }

  struct NamedType {
    std::string name;
    unsigned int id;
  };

  // The type named next; a name no type has is a mistake.
  NamedType TypeName() {
    NamedType type;
    type.name = fTokens.Expect(Tok::Ident, "a type name").text;
    type.id = fHost.FindType(type.name);
    if (type.id == Zentor::kTypeInvalid) throw ScriptError("unknown type " + type.name);
    return type;
  }

  // `empty TYPE`: a user-defined value without object.
  ScriptValue Empty() {
    const NamedType type = TypeName();
    if (type.id < Zentor::kTypeFirstUserDefined)
      throw ScriptError("empty needs a user-defined type, not " + type.name);
    auto variant = MakeVariant();
    variant->SetEmptyUserDefined(type.id);
    return Plain(variant);
  }

  // `new TYPE`: what the host's CreateInstance makes of the type.
  ScriptValue New() {
    const NamedType type = TypeName();
    Zentor::AutoRefPtr<Zentor::IVariant> made(fHost.CreateInstance(type.id));
    if (!made) throw ScriptError("the host could not create a " + type.name);
    return Plain(made);
  }

  ScriptValue Raw() {
    RawCall call;
    call.symbol = fTokens.Expect(Tok::Ident, "an exported symbol").text;
    call.args = ArgumentList();
    if (fTokens.PeekWord("noresult")) {
      fTokens.Next();
      call.noResult = true;
    } else if (fTokens.PeekWord("preset")) {
      fTokens.Next();
      call.preset = Expression().variant;
    }
    return fCalls.CallRaw(call);
  }

  TokenCursor fTokens;
  Host& fHost;
  ScriptCalls& fCalls;
  const Variables& fVariables;
};

}  // namespace

Statement EvaluateStatement(const std::string& line, Host& host, ScriptCalls& calls,
                            const Variables& variables) {
  return Parser(line, host, calls, variables).Line();
}

ForHead EvaluateForHead(const std::string& line, Host& host, ScriptCalls& calls,
                        const Variables& variables) {
  return Parser(line, host, calls, variables).For();
}

unsigned int VectorKind(const std::string& word) {
  for (const VectorLiteral& literal : kVectorLiterals)
    if (word == literal.word) return literal.elementKind;
  return Zentor::kTypeInvalid;
}

const char* VectorWord(unsigned int elementKind) {
  for (const VectorLiteral& literal : kVectorLiterals)
    if (elementKind == literal.elementKind) return literal.word;
  return nullptr;
}

}  // namespace zhost
