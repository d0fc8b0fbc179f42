#include "Definition.h"

#include <cctype>
#include <cstring>

namespace zhost {
namespace {

bool IsBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsFunctionKind(const std::string& word) {
  const std::string suffix = "FUNCTION";
  return word == "PROCEDURE" || word == "CONST_PROCEDURE" ||
         (word.size() >= suffix.size() &&
          word.compare(word.size() - suffix.size(), suffix.size(), suffix) == 0);
}

class Reader {
 public:
  explicit Reader(const std::string& text) : fText(text) {}

  bool AtEnd() {
    SkipBlanks();
    return fPos >= fText.size();
  }
  size_t Pos() const { return fPos; }
  void SetPos(size_t pos) { fPos = pos; }

  void SkipBlanks() {
    while (fPos < fText.size() && IsBlank(fText[fPos])) ++fPos;
  }

  // A word ends at a blank or at one of `stops`.
  std::string Word(const char* stops = "") {
    SkipBlanks();
    const size_t start = fPos;
    while (fPos < fText.size() && !IsBlank(fText[fPos]) && !std::strchr(stops, fText[fPos])) ++fPos;
    return fText.substr(start, fPos - start);
  }

  bool Expect(char c) {
    SkipBlanks();
    if (fPos < fText.size() && fText[fPos] == c) {
      ++fPos;
      return true;
    }
    return false;
  }

  // The text up to `c` (exclusive), consuming `c`; false when there is none.
  bool Until(char c, std::string& out) {
    const size_t end = fText.find(c, fPos);
    if (end == std::string::npos) return false;
    out = fText.substr(fPos, end - fPos);
    fPos = end + 1;
    return true;
  }

  // Skips to the next word that starts a declaration.
  void Resync() {
    while (!AtEnd()) {
      const size_t start = fPos;
      const std::string word = Word();
      if (word == "TYPE" || IsFunctionKind(word)) {
        fPos = start;
        return;
      }
    }
  }

  std::string Slice(size_t from) const {
    std::string piece = fText.substr(from, fPos - from);
    while (!piece.empty() && IsBlank(piece.back())) piece.pop_back();
    return piece;
  }

 private:
  const std::string& fText;
  size_t fPos = 0;
};

std::string Trim(const std::string& text) {
  size_t begin = 0, end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

}  // namespace

Definition ParseDefinition(const std::string& text) {
  Definition out;
  Reader reader(text);
  while (!reader.AtEnd()) {
    const size_t start = reader.Pos();
    const std::string keyword = reader.Word();
    std::string problem;
    if (keyword == "TYPE") {
      TypeDeclaration type;
      type.name = reader.Word(":");
      if (type.name.empty() || !reader.Expect(':')) {
        problem = "expected \"TYPE name : factory : flags\"";
      } else {
        type.factory = reader.Word(":");
        if (type.factory.empty() || !reader.Expect(':')) {
          problem = "expected \": factory :\" after the type name";
        } else {
          type.flags = reader.Word();
          type.text = reader.Slice(start);
          out.types.push_back(std::move(type));
          continue;
        }
      }
    } else if (IsFunctionKind(keyword)) {
      FunctionDeclaration function;
      function.kind = keyword;
      function.result = reader.Word();
      function.name = reader.Word("(");
      std::string list;
      if (function.result.empty() || function.name.empty() || !reader.Expect('(') ||
          !reader.Until(')', list)) {
        problem = "expected \"" + keyword + " RESULT name (PARAMS) : symbol\"";
      } else if (!reader.Expect(':')) {
        problem = "expected \": symbol\" after the parameter list";
      } else {
        function.symbol = reader.Word();
        if (function.symbol.empty()) {
          problem = "missing symbol";
        } else {
          size_t from = 0;
          for (;;) {
            const size_t comma = list.find(',', from);
            const std::string word = Trim(
                list.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
            if (!word.empty()) function.params.push_back(word);
            if (comma == std::string::npos) break;
            from = comma + 1;
          }
          function.text = reader.Slice(start);
          out.functions.push_back(std::move(function));
          continue;
        }
      }
    } else {
      problem = "unknown declaration keyword \"" + keyword + "\"";
    }
    out.errors.push_back("at offset " + std::to_string(start) + ": " + problem);
    reader.SetPos(start);
    reader.Word();
    reader.Resync();
  }
  return out;
}

std::string Signature(const std::string& name, const std::vector<std::string>& params) {
  std::string text = name + " (";
  for (size_t i = 0; i < params.size(); ++i) text += (i ? "," : "") + params[i];
  return text + ")";
}

}  // namespace zhost
