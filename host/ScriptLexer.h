// The tokens of one script line: names, literals (strings with their
// escapes, numbers with their special values, hex data) and punctuation,
// and the cursor through which statements and host commands read them.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace zhost {

// A mistake in the script; the line is abandoned and the script goes on.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
  ScriptError(const std::string& message, std::vector<std::string> items)
      : std::runtime_error(message), list(std::move(items)) {}
  // The items of a list the message ends with, shown one per line below it.
  std::vector<std::string> list;
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
  Equals,
  Range  // `..`, between the bounds of a for loop
};

struct Token {
  Tok kind = Tok::End;
  std::string text;  // identifier, decoded string or decoded data bytes
  double number = 0.0;
  size_t column = 0;  // 1-based
};

// The tokens of `line`, closed by one Tok::End token where the line ends.
// A '#' comment runs to the end of its line: a statement continued over
// several lines at the terminal goes on after it. A malformed literal
// throws ScriptError.
std::vector<Token> Lex(const std::string& line);

// Whether `text` ends inside a string or data literal, or with a '(' or
// '[' not yet closed: at the terminal, the statement then goes on on the
// next line.
bool LeavesOpen(const std::string& text);

// How a message names a kind of token: "a number", "')'", "end of line".
const char* TokenName(Tok kind);

// "expected WHAT at column N, found ...": the one form in which every
// misplaced token is reported.
ScriptError Unexpected(const std::string& what, const Token& found);

// Reads the tokens of one line from the front. It never moves past the
// closing Tok::End, so looking ahead at the end of a line is always safe.
class TokenCursor {
 public:
  explicit TokenCursor(std::vector<Token> tokens) : fTokens(std::move(tokens)) {}

  const Token& Peek(size_t ahead = 0) const;
  Token Next();
  // Takes the next token only when it is of `kind`.
  bool Accept(Tok kind);
  // Takes the next token, which must be of `kind`; `what` names it in the
  // error otherwise.
  Token Expect(Tok kind, const char* what);
  bool AtEnd() const { return Peek().kind == Tok::End; }
  void ExpectEnd() const;
  // Whether the token `ahead` is the name `word`.
  bool PeekWord(const char* word, size_t ahead = 0) const;

 private:
  std::vector<Token> fTokens;
  size_t fPos = 0;
};

}  // namespace zhost
