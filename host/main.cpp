// zentor: the reference host. Loads the JSON module (and any other module
// named on the command line) and runs scripts against them.

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Host.h"
#include "LineReader.h"
#include "Platform.h"
#include "Script.h"
#include "ZentorVersion.h"

namespace {

const char kUsage[] =
    "usage: zentor [options] [SCRIPT]\n"
    "  --module PATH   load another module (repeatable); a bare file name is\n"
    "                  looked for next to zentor first\n"
    "  --no-json       do not load libzentor_json.so\n"
    "  --no-echo       do not echo script lines (reports then name the line)\n"
    "  --strict        a module's error report, an exception or a status from a\n"
    "                  function fails the run (status 1), as a script mistake does\n"
    "  -c STATEMENT    run one statement (repeatable) instead of a script\n"
    "  --version       show the versions of zentor and of the modules it loads\n"
    "Without SCRIPT, reads statements from standard input, with a prompt when\n"
    "it is a terminal. The script language: docs/script-language.md.\n";

// "zentor 1.16.0 (line editing: libedit)", then one line per loaded module
// with the version its GetModuleVersion gives.
void ShowVersions(const zhost::Host& host, zhost::Output& out) {
  const char* editor = zhost::LineEditor();
  out.Line(std::string("zentor ") + ZENTOR_JSON_VERSION +
           " (line editing: " + (editor ? editor : "none") + ")");
  for (const zhost::LoadedModule* module : host.Modules()) {
    const zhost::MetadataEntry& version = module->metadata[0];
    out.Line(module->name + " " +
             (version.present && !version.isNull ? zhost::Printable(version.value)
                                                 : std::string("(no version)")) +
             " (" + module->FileName() + ")");
  }
}

}  // namespace

int main(int argc, char** argv) {
  zhost::UseBinaryOutput();
  std::vector<std::string> modules;
  std::vector<std::string> statements;
  bool loadJson = true;
  bool echo = true;
  bool strict = false;
  bool version = false;
  std::string scriptPath;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if ((arg == "--module" || arg == "-m") && i + 1 < argc) {
      modules.push_back(argv[++i]);
    } else if (arg == "--no-json") {
      loadJson = false;
    } else if (arg == "--no-echo") {
      echo = false;
    } else if (arg == "--strict") {
      strict = true;
    } else if (arg == "-c" && i + 1 < argc) {
      statements.push_back(argv[++i]);
    } else if (arg == "--version") {
      version = true;
    } else if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    } else if (!arg.empty() && arg[0] == '-') {
      std::cerr << "zentor: unknown option " << arg << "\n" << kUsage;
      return 2;
    } else if (scriptPath.empty()) {
      scriptPath = arg;
    } else {
      std::cerr << "zentor: only one script at a time\n";
      return 2;
    }
  }

  zhost::Output out(std::cout);
  zhost::Host host(out);
  bool loadFailed = false;
  if (loadJson) modules.insert(modules.begin(), "libzentor_json.so");
  for (const std::string& module : modules) {
    std::string error;
    if (!host.Load(module, error)) {
      out.Line("! load: cannot load " + zhost::Printable(module + ": " + error));
      loadFailed = true;
    }
  }
  if (version) {
    ShowVersions(host, out);
    return loadFailed ? 1 : 0;
  }

  bool failed = false;
  {
    const bool interactive = statements.empty() && scriptPath.empty() && zhost::IsTerminal(0);
    zhost::ScriptOptions options;
    options.echo = echo && !interactive;
    options.interactive = interactive;
    options.strict = strict;
    zhost::Script script(host, options);
    if (!statements.empty()) {
      int line = 0;
      bool quit = false;
      for (const std::string& statement : statements)
        if (!script.RunLine(statement, ++line)) {
          quit = true;
          break;
        }
      if (!quit) script.Finish();
    } else if (!scriptPath.empty()) {
      std::ifstream file(scriptPath);
      if (!file) {
        std::cerr << "zentor: cannot read " << scriptPath << "\n";
        return 2;
      }
      zhost::StreamLineReader reader(file);
      script.RunLines(reader);
    } else if (interactive) {
      out.Line(std::string("zentor ") + ZENTOR_JSON_VERSION +
               "; help shows how to write statements, Ctrl-D or :quit ends");
      const auto reader = zhost::MakeInteractiveReader("zentor> ", zhost::DefaultHistoryFile(),
                                                       [&] { return script.CompletionWords(); });
      script.RunLines(*reader);
    } else {
      zhost::StreamLineReader reader(std::cin);
      script.RunLines(reader);
    }
    // A session at the terminal is judged by how it ended, not by the
    // mistakes made and put right along the way; a script by all of them.
    failed = interactive ? script.LastFailed() : script.Errors() > 0 || script.StrictFailures() > 0;
  }
  return failed || loadFailed ? 1 : 0;
}
