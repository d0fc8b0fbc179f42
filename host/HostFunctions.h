// The host's own script functions ("Host.Clone", "Host.Serialize" ...):
// what a host does with user-defined values besides calling declared
// functions, that is copying, ordering, the binary handle and the native
// JSON form.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Host.h"
#include "ScriptParser.h"

namespace zhost {

// Runs the host function `name` on `args`. Nothing when `name` is none:
// it does not start with "Host.", or a loaded module declares a function
// of that name, which then wins. An unknown host function or a wrong
// argument throws ScriptError.
std::optional<Zentor::AutoRefPtr<Zentor::IVariant>> CallHostFunction(Host& host,
                                                                     const std::string& name,
                                                                     const Arguments& args);

// The names of the host functions, "Host.Clone" and so on.
std::vector<std::string> HostFunctionNames();

}  // namespace zhost
