#include "Definition.h"

#include <algorithm>
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
          type.offset = start;
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
          function.offset = start;
          function.paramList = list;
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

namespace {

bool IsCName(const std::string& word) {
  if (word.empty() || std::isdigit(static_cast<unsigned char>(word[0]))) return false;
  return std::all_of(word.begin(), word.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
  });
}

// A name a script can call: it starts as a C name and may hold dots.
bool IsScriptName(const std::string& name) {
  if (name.empty() || !(std::isalpha(static_cast<unsigned char>(name[0])) || name[0] == '_'))
    return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
  });
}

bool IsTypeWord(const std::string& word,
                const std::function<bool(const std::string&)>& isTypeName) {
  for (const char* builtIn : {"STRING", "NUMBER", "BOOLEAN", "DATAREF", "VECTOR<STRING>",
                              "VECTOR<NUMBER>", "VECTOR<BOOLEAN>"})
    if (word == builtIn) return true;
  return IsCName(word) && isTypeName(word);
}

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

std::string NotATypeWord(const std::string& what, const std::string& word) {
  return what + " " + Quoted(word) +
         " is no type word: neither built in nor a type registered before (or by) the module";
}

void CheckFunction(const FunctionDeclaration& function,
                   const std::function<bool(const std::string&)>& isTypeName,
                   std::vector<std::string>& problems) {
  if (function.kind != "CONST_FUNCTION")
    problems.push_back("kind " + Quoted(function.kind) +
                       " is read as CONST_FUNCTION, the one kind modules declare");
  if (!IsTypeWord(function.result, isTypeName))
    problems.push_back(NotATypeWord("result", function.result));
  if (!IsScriptName(function.name))
    problems.push_back("script name " + Quoted(function.name) + " cannot be called by scripts");
  if (!function.paramList.empty()) {
    size_t from = 0;
    for (size_t position = 1;; ++position) {
      const size_t comma = function.paramList.find(',', from);
      const std::string word = function.paramList.substr(
          from, comma == std::string::npos ? std::string::npos : comma - from);
      const std::string place = "parameter " + std::to_string(position);
      if (word.empty())
        problems.push_back(place + " is an empty word");
      else if (std::any_of(word.begin(), word.end(), IsBlank))
        problems.push_back(place + " " + Quoted(word) + " holds a blank");
      else if (!IsTypeWord(word, isTypeName))
        problems.push_back(NotATypeWord(place, word));
      if (comma == std::string::npos) break;
      from = comma + 1;
    }
  }
  if (!IsCName(function.symbol))
    problems.push_back("symbol " + Quoted(function.symbol) + " is no C name");
  const std::string written = function.kind + " " + function.result + " " + function.name + " (" +
                              function.paramList + ") : " + function.symbol;
  if (function.text != written) problems.push_back("blanks differ from " + Quoted(written));
}

void CheckType(const TypeDeclaration& type, std::vector<std::string>& problems) {
  if (!IsCName(type.name)) problems.push_back("type name " + Quoted(type.name) + " is no C name");
  if (!IsCName(type.factory))
    problems.push_back("factory " + Quoted(type.factory) + " is no C name");
  if (type.flags.empty()) {
    problems.push_back("no flags after the factory");
    return;
  }
  const std::string written = "TYPE " + type.name + " : " + type.factory + " : " + type.flags;
  if (type.text != written) problems.push_back("blanks differ from " + Quoted(written));
}

}  // namespace

std::vector<std::string> CheckDefinition(
    const std::string& text, const Definition& definition,
    const std::function<bool(const std::string&)>& isTypeName) {
  struct Declared {
    size_t offset;
    const std::string* text;
    std::vector<std::string> problems;
  };
  std::vector<Declared> declared;
  for (const TypeDeclaration& type : definition.types) {
    declared.push_back({type.offset, &type.text, {}});
    CheckType(type, declared.back().problems);
  }
  for (const FunctionDeclaration& function : definition.functions) {
    declared.push_back({function.offset, &function.text, {}});
    CheckFunction(function, isTypeName, declared.back().problems);
  }
  std::sort(declared.begin(), declared.end(),
            [](const Declared& a, const Declared& b) { return a.offset < b.offset; });
  std::vector<std::string> out;
  size_t end = 0;
  for (Declared& entry : declared) {
    if (definition.errors.empty() && text.compare(end, entry.offset - end, " ") != 0)
      entry.problems.insert(entry.problems.begin(), "not introduced by exactly one blank");
    for (const std::string& problem : entry.problems)
      out.push_back("declaration " + Quoted(*entry.text) + ": " + problem);
    end = entry.offset + entry.text->size();
  }
  if (definition.errors.empty() && !declared.empty() && end < text.size())
    out.push_back("blanks after the last declaration");
  return out;
}

std::string Signature(const std::string& name, const std::vector<std::string>& params) {
  std::string text = name + " (";
  for (size_t i = 0; i < params.size(); ++i) text += (i ? "," : "") + params[i];
  return text + ")";
}

}  // namespace zhost
