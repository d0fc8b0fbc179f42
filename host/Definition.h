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

#include <string>
#include <vector>

namespace zhost {

struct TypeDeclaration {
  std::string name;
  std::string factory;
  std::string flags;
  std::string text;  // the declaration as written, without the leading blank
};

struct FunctionDeclaration {
  std::string kind;    // "CONST_FUNCTION" (other *FUNCTION/PROCEDURE kinds are read the same way)
  std::string result;  // result type word
  std::string name;    // script name, may contain "."
  std::vector<std::string> params;  // script-visible words (empty words, the context, dropped)
  std::string symbol;
  std::string text;
};

struct Definition {
  std::vector<TypeDeclaration> types;
  std::vector<FunctionDeclaration> functions;
  // One entry per piece of text that is no declaration, with its offset.
  std::vector<std::string> errors;
};

Definition ParseDefinition(const std::string& text);

// "NAME (P1,P2)": how the host shows a signature.
std::string Signature(const std::string& name, const std::vector<std::string>& params);

}  // namespace zhost
