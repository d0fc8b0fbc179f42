#include "ScriptLexer.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <optional>

namespace zhost {
namespace {

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

// The byte a one-letter escape stands for; nothing for the escapes with
// digits (\x, \u) and for unknown ones.
std::optional<char> LetterEscape(char e) {
  switch (e) {
    case '"':
    case '\\':
    case '/':
      return e;
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case '0':
      return '\0';
    default:
      return std::nullopt;
  }
}

struct Punctuation {
  char c;
  Tok kind;
};
constexpr Punctuation kPunctuation[] = {{'(', Tok::LParen},   {')', Tok::RParen},
                                        {'[', Tok::LBracket}, {']', Tok::RBracket},
                                        {',', Tok::Comma},    {'=', Tok::Equals}};

class Lexer {
 public:
  explicit Lexer(const std::string& line) : fLine(line) {}

  std::vector<Token> Run() {
    std::vector<Token> tokens;
    do {
      tokens.push_back(NextToken());
    } while (tokens.back().kind != Tok::End);
    return tokens;
  }

 private:
  Token NextToken() {
    SkipBlanksAndComments();
    Token token;
    token.column = fPos + 1;
    if (fPos >= fLine.size()) return token;
    const char c = fLine[fPos];
    if (AtRange()) {
      fPos += 2;
      token.kind = Tok::Range;
    } else if (c == '"') {
      token.kind = Tok::String;
      token.text = StringBody();
    } else if (StartsNumber()) {
      token.kind = Tok::Number;
      token.number = Number();
    } else if (IsIdentStart(c)) {
      const size_t start = fPos;
      while (fPos < fLine.size() && IsIdentChar(fLine[fPos]) && !AtRange()) ++fPos;
      token.kind = Tok::Ident;
      token.text = fLine.substr(start, fPos - start);
      // `data"..."` and `streamdata"..."`: a data literal, not a name.
      if ((token.text == "data" || token.text == "streamdata") && fPos < fLine.size() &&
          fLine[fPos] == '"') {
        token.kind = token.text == "data" ? Tok::Data : Tok::StreamData;
        token.text = HexBody();
      }
    } else {
      ++fPos;
      const auto* found = std::find_if(std::begin(kPunctuation), std::end(kPunctuation),
                                       [c](const Punctuation& p) { return p.c == c; });
      if (found == std::end(kPunctuation))
        throw ScriptError("unexpected character '" + std::string(1, c) + "' at column " +
                          std::to_string(token.column));
      token.kind = found->kind;
    }
    return token;
  }

  // A comment ends at the end of its line, not of the text: a statement
  // continued at the terminal goes on after it.
  void SkipBlanksAndComments() {
    for (;;) {
      while (fPos < fLine.size() && std::isspace(static_cast<unsigned char>(fLine[fPos]))) ++fPos;
      if (fPos >= fLine.size() || fLine[fPos] != '#') return;
      const size_t lineEnd = fLine.find('\n', fPos);
      fPos = lineEnd == std::string::npos ? fLine.size() : lineEnd;
    }
  }

  // `..` between the bounds of a for loop; "1..3" reads as 1, `..`, 3.
  bool AtRange() const { return fLine.compare(fPos, 2, "..") == 0; }

  // A digit, or a sign or point that a digit, point or signed special
  // ("-inf", "+nan") follows.
  bool StartsNumber() const {
    const char c = fLine[fPos];
    if (IsDigit(c)) return true;
    if ((c != '-' && c != '+' && c != '.') || fPos + 1 >= fLine.size()) return false;
    const char next = fLine[fPos + 1];
    return IsDigit(next) || next == '.' || next == 'i' || next == 'n';
  }

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
      if (const auto byte = LetterEscape(e))
        out += *byte;
      else if (e == 'x')
        out += static_cast<char>(EscapeDigits(2, "\\x needs two hex digits"));
      else if (e == 'u')
        AppendUtf8(out, EscapeDigits(4, "\\u needs four hex digits"));
      else
        throw ScriptError("unknown escape \\" + std::string(1, e));
    }
  }

  // The `count` hex digits of a \x or \u escape, as one code.
  unsigned long EscapeDigits(int count, const char* mistake) {
    unsigned long code = 0;
    for (int i = 0; i < count; ++i) {
      const int digit = fPos < fLine.size() ? HexValue(fLine[fPos]) : -1;
      if (digit < 0) throw ScriptError(mistake);
      code = code * 16 + static_cast<unsigned long>(digit);
      ++fPos;
    }
    return code;
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

  // A sign applies to every form: -inf, -nan, -0x10, -1.5.
  double Number() {
    const size_t start = fPos;
    bool negative = false;
    if (fLine[fPos] == '-' || fLine[fPos] == '+') negative = fLine[fPos++] == '-';
    double value = 0.0;
    if (const auto special = Special())
      value = *special;
    else if (fLine.compare(fPos, 2, "0x") == 0 || fLine.compare(fPos, 2, "0X") == 0)
      value = HexNumber();
    else
      value = Decimal(start);
    return negative ? -value : value;
  }

  std::optional<double> Special() {
    for (const char* word : {"inf", "nan"}) {
      if (fLine.compare(fPos, 3, word) == 0 &&
          (fPos + 3 >= fLine.size() || !IsIdentChar(fLine[fPos + 3]))) {
        fPos += 3;
        return word[0] == 'i' ? std::numeric_limits<double>::infinity()
                              : std::numeric_limits<double>::quiet_NaN();
      }
    }
    return std::nullopt;
  }

  double HexNumber() {
    fPos += 2;  // "0x"
    unsigned long long value = 0;
    const size_t digits = fPos;
    while (fPos < fLine.size() && HexValue(fLine[fPos]) >= 0)
      value = value * 16 + static_cast<unsigned long long>(HexValue(fLine[fPos++]));
    if (fPos == digits) throw ScriptError("hex number without digits");
    return static_cast<double>(value);
  }

  // Digits, point and exponent after the sign; `start` is where the sign
  // was, so that a mistake is shown with it.
  double Decimal(size_t start) {
    const size_t body = fPos;
    while (fPos < fLine.size()) {
      const char c = fLine[fPos];
      if (AtRange()) break;
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
    if (fPos < fLine.size() && IsIdentChar(fLine[fPos]) && !AtRange())
      throw ScriptError("malformed number \"" + fLine.substr(start, fPos - start + 1) + "\"");
    return value;
  }

  const std::string& fLine;
  size_t fPos = 0;
};

}  // namespace

std::vector<Token> Lex(const std::string& line) {
  return Lexer(line).Run();
}

bool LeavesOpen(const std::string& text) {
  int brackets = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '#') {
      i = text.find('\n', i);
      if (i == std::string::npos) break;
    } else if (c == '"') {
      // To the closing quote; an escape takes the byte after it along.
      for (++i;; ++i) {
        if (i >= text.size()) return true;
        if (text[i] == '\\')
          ++i;
        else if (text[i] == '"')
          break;
      }
    } else if (c == '(' || c == '[') {
      ++brackets;
    } else if ((c == ')' || c == ']') && brackets > 0) {
      --brackets;
    }
  }
  return brackets > 0;
}

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
    case Tok::Range:
      return "'..'";
  }
  return "?";
}

ScriptError Unexpected(const std::string& what, const Token& found) {
  return ScriptError("expected " + what + " at column " + std::to_string(found.column) +
                     ", found " + TokenName(found.kind));
}

const Token& TokenCursor::Peek(size_t ahead) const {
  return fTokens[std::min(fPos + ahead, fTokens.size() - 1)];
}

Token TokenCursor::Next() {
  Token token = Peek();
  if (fPos < fTokens.size() - 1) ++fPos;
  return token;
}

bool TokenCursor::Accept(Tok kind) {
  if (Peek().kind != kind) return false;
  Next();
  return true;
}

Token TokenCursor::Expect(Tok kind, const char* what) {
  if (Peek().kind != kind) throw Unexpected(what, Peek());
  return Next();
}

void TokenCursor::ExpectEnd() const {
  if (!AtEnd()) throw Unexpected("end of line", Peek());
}

bool TokenCursor::PeekWord(const char* word, size_t ahead) const {
  return Peek(ahead).kind == Tok::Ident && Peek(ahead).text == word;
}

}  // namespace zhost
