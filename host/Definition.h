// Reading a module definition: the text that a module's
// GetModuleDefinition export hands over, a sequence of declarations each
// introduced by a blank:
//
//   TYPE <name> : <factory symbol> : <flags>
//   CONST_FUNCTION <result word> <script name> (<word>,<word>,...) : <symbol>
//
// Parameter words are separated by commas without blanks; an empty word
// stands for the call context and is invisible to scripts.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zhost {

struct TypeDeclaration {
  std::string name;
  std::string factory;
  std::string flags;
  std::string text;   // the declaration as written, without the leading blank
  size_t offset = 0;  // where `text` starts in the definition
};

struct FunctionDeclaration {
  std::string kind;    // "CONST_FUNCTION" (other *FUNCTION/PROCEDURE kinds are read the same way)
  std::string result;  // result type word
  std::string name;    // script name, may contain "."
  std::vector<std::string> params;  // script-visible words (empty words, the context, dropped)
  std::string symbol;
  std::string text;
  size_t offset = 0;
  std::string paramList;  // the text between the parentheses, as written
};

struct Definition {
  std::vector<TypeDeclaration> types;
  std::vector<FunctionDeclaration> functions;
  // One entry per piece of text that is no declaration, with its offset.
  std::vector<std::string> errors;
};

Definition ParseDefinition(const std::string& text);

// What a definition that ParseDefinition read does differently from the
// written form that modules must use, which the reader is lenient about:
//
//   " TYPE <name> : <factory> : <flags>"
//   " CONST_FUNCTION <result word> <script name> (<word>,<word>) : <symbol>"
//
// each declaration introduced by exactly one blank, nothing after the last;
// single blanks as shown; no blank and no empty word in a parameter list;
// type words that are built in (STRING, NUMBER, BOOLEAN, DATAREF and the
// VECTOR<...> of the first three) or for which `isTypeName` holds; script
// names that scripts can call; type names, factories and symbols that are C
// names. One entry per problem, naming the declaration. A definition with
// unreadable pieces (Definition::errors) is not checked for its blanks
// between declarations.
std::vector<std::string> CheckDefinition(const std::string& text, const Definition& definition,
                                         const std::function<bool(const std::string&)>& isTypeName);

// "NAME (P1,P2)": how the host shows a signature.
std::string Signature(const std::string& name, const std::vector<std::string>& params);

}  // namespace zhost
