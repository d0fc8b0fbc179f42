// The help that comes with a mistake or a Tab: the known names nearest to
// a misspelled one, the overloads a call could have meant, and what a
// typed prefix completes to. Pure functions of the names they are given.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ScriptLexer.h"

namespace zhost {

// Edits (insert, delete, replace, swap two neighbours) that turn `a` into
// `b`, ignoring the case of ASCII letters: "json.size" is no typo of
// "JSON.Size" but a different spelling of it.
size_t EditDistance(std::string_view a, std::string_view b);

// The names of `known` nearest to `typed`, at most three, in order; none
// when no name is near enough to be a typo. A name without '.' is also
// matched against the part after the last '.' of the known names, so that
// "Size" finds "JSON.Size".
std::vector<std::string> NearestNames(const std::string& typed,
                                      const std::vector<std::string>& known);

// "unknown WHAT NAME", with "; did you mean A, B or C?" when names of
// `known` are near.
ScriptError Unknown(const std::string& what, const std::string& name,
                    const std::vector<std::string>& known);

// A call whose argument kinds match none of the declared parameter lists:
// "no overload NAME (KINDS); declared: ..." with the one declared overload
// on the same line, or several listed one per line below it.
ScriptError NoOverload(const std::string& name, const std::vector<std::string>& kinds,
                       const std::vector<std::vector<std::string>>& declared);

// What Tab does at the end of `typed`: the name being typed is the run of
// name characters before the end (with the ':' of a command at the start
// of the line).
struct Completion {
  std::string insert;                // the text to add after what is typed
  std::vector<std::string> choices;  // every word it could still become, sorted
};
Completion Complete(const std::string& typed, const std::vector<std::string>& words);

// The text Tab adds: the completion, and a blank after a ':' command that
// it has completed, so that the command's argument can follow at once.
std::string TabInsertion(const Completion& completion);

}  // namespace zhost
