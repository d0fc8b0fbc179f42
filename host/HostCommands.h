// The ':' commands of a script line: what the host loaded (:modules,
// :definition, :functions ...), loading more (:load), the variables
// (:vars), the call context's state (:error, :interrupt ...) and :help.
// :quit is not among them: ending the run is the runner's business.
#pragma once

#include <string>
#include <vector>

#include "Host.h"

namespace zhost {

class Script;

// Runs the command `text` (the line after its ':'). Mistakes throw
// ScriptError.
void RunHostCommand(Host& host, Script& script, const std::string& text);

// The command names without their ':', "quit" and "time" among them.
std::vector<std::string> HostCommandNames();

// How statements look, and where to read more: what `help` shows at the
// terminal before the command list.
void ShowGuide(Output& out);

}  // namespace zhost
