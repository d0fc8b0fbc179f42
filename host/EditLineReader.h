// The interactive reader built on libedit: line editing, history kept in
// a file, Tab completion of names, and Ctrl-C that abandons the line.
// Only part of a build that found libedit.
#pragma once

#include <memory>
#include <string>

#include "LineReader.h"

namespace zhost {

std::unique_ptr<LineReader> MakeEditLineReader(const std::string& prompt,
                                               const std::string& historyFile,
                                               CompletionWords words);

}  // namespace zhost
