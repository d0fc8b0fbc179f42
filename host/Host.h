// The reference host: loads modules, registers their types and functions,
// and offers the call context through which modules reach back into it.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Definition.h"
#include "HostValues.h"
#include "Text.h"
#include "Zentor.h"

namespace zhost {

class Host;

// The metadata exports a module may have, in the order the host shows them.
extern const char* const kMetadataExports[14];

struct MetadataEntry {
  std::string name;
  bool present = false;  // the module exports it
  bool isNull = false;   // it returned a null pointer
  std::string value;
};

class HostLogger final : public Zentor::InterfaceImpl<Zentor::ILogger> {
 public:
  HostLogger(Output& out, std::string module) : fOut(out), fModule(std::move(module)) {}
  void Interface_Log(int severity, const char* source, const char* message) override;

 private:
  Output& fOut;
  std::string fModule;
};

class HostModuleInfo final : public Zentor::InterfaceImpl<Zentor::IModuleInfo> {
 public:
  HostModuleInfo(Output& out, std::string name, std::string version, std::string path)
      : fOut(out), fName(std::move(name)), fVersion(std::move(version)), fPath(std::move(path)) {}

  const char* Interface_GetName() const override { return fName.c_str(); }
  const char* Interface_GetVersion() const override { return fVersion.c_str(); }
  const char* Interface_GetPath() const override { return fPath.c_str(); }
  Zentor::ILogger* Interface_GetLogger() const override { return new HostLogger(fOut, fName); }

 private:
  Output& fOut;
  std::string fName;
  std::string fVersion;
  std::string fPath;
};

// The type words of the built-in kinds, as declarations and scripts spell
// them: "BOOLEAN", "NUMBER", "STRING", "DATAREF". BuiltInKind gives
// kTypeInvalid for any other word, BuiltInWord null for any other kind.
unsigned int BuiltInKind(const std::string& word);
const char* BuiltInWord(unsigned int kind);

struct LoadedModule {
  std::string name;  // file name without "lib" and ".so"
  std::string path;
  // The library's file name, without its directory.
  std::string FileName() const { return path.substr(path.find_last_of('/') + 1); }
  void* handle = nullptr;
  std::vector<MetadataEntry> metadata;
  Zentor::ZentorDefinitionGetter definitionGetter = nullptr;
  std::string definition;  // as handed over at load time
  Definition parsed;
  Zentor::AutoRefPtr<HostModuleInfo> info;
};

struct RegisteredType {
  unsigned int id = Zentor::kTypeInvalid;
  std::string name;
  std::string factorySymbol;
  std::string flags;
  Zentor::ZentorTypeFactory factory = nullptr;  // null when the symbol is missing
  const LoadedModule* module = nullptr;
};

// One declared function: the unit of overload resolution.
struct Overload {
  std::string name;
  std::string result;
  std::vector<std::string> params;
  std::string symbol;
  Zentor::ZentorFunction entry = nullptr;  // null when the symbol is missing
  const LoadedModule* module = nullptr;
  std::string text;  // the declaration
};

// A declaration that names a symbol the module does not export.
struct MissingSymbol {
  const LoadedModule* module = nullptr;
  std::string symbol;
  std::string declaration;
};

struct CallOutcome {
  unsigned int status = 0;
  bool threw = false;
  std::string exception;  // "type: what()" when threw
};

class HostContext final : public Zentor::InterfaceImpl<Zentor::IContext> {
 public:
  explicit HostContext(Host& host) : fHost(host) {}

  // Error state, as the runner shows it.
  struct ErrorState {
    bool hasError = false;
    int severity = 0;
    std::string source, code, message;
  };
  ErrorState GetErrorState() const;
  void SetInterrupted(bool on) { fInterrupted = on; }
  // Reports of severity 2 (error) or above so far.
  unsigned long long ErrorReports() const { return fErrorReports; }
  // Simulates a restart of the host: modules must look functions up anew.
  unsigned long long NewInstance() { return ++fInstanceId; }

  void Interface_TriggerErrorHandler(int severity, const char* source, const char* code,
                                     const char* message, unsigned long long messageSize) override;
  bool Interface_HasError() const override;
  unsigned long long Interface_GetErrorMessage(char* buffer,
                                               unsigned long long size) const override;
  void Interface_ClearError() override;
  void Interface_ErrorLog(const char* tag, const char* message) override;
  void Interface_DebugLog(const char* source, int level, const char* message) override;
  unsigned long long Interface_PrintCallStack(char* buffer, unsigned long long size) const override;
  unsigned int Interface_FindType(const char* name) const override;
  Zentor::IVariant* Interface_CreateInstance(unsigned int typeId) override;
  Zentor::IVectorGeneric* Interface_CreateVector(unsigned int elementKind) override;
  Zentor::ZentorFunction Interface_GetFunction(const char* name, unsigned int typeCount,
                                               const char* const* types,
                                               Zentor::IModuleInfo** moduleInfo,
                                               unsigned char flag) override;
  unsigned long long Interface_GetZentorInstanceId() const override { return fInstanceId; }
  bool Interface_IsInterrupted() const override { return fInterrupted; }

 private:
  Host& fHost;
  mutable std::mutex fMutex;
  ErrorState fError;
  std::atomic<bool> fInterrupted{false};
  std::atomic<unsigned long long> fInstanceId{1};
  std::atomic<unsigned long long> fErrorReports{0};
};

class Host {
 public:
  explicit Host(Output& out);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  Output& Out() { return fOut; }
  HostContext& Context() { return *fContext; }

  // The script line that is running, named in the reports printed while it
  // runs (" at line 3"); 0 names none, as when the lines are echoed anyway.
  void SetEventLine(int line) { fEventLine = line; }
  // " at line N" for the running line, or "".
  std::string EventLine() const;

  // Loads a module. A name without "/" is looked for next to the zentor
  // executable first. Problems in the definition are printed; only a
  // library that cannot be opened or has no GetModuleDefinition fails.
  bool Load(const std::string& location, std::string& error);

  std::vector<const LoadedModule*> Modules() const;
  // By name, file name or path.
  const LoadedModule* FindModule(const std::string& name) const;

  // Built-in kinds ("BOOLEAN", "NUMBER", "STRING", "DATAREF") and
  // registered types; kTypeInvalid when unknown.
  unsigned int FindType(const std::string& name) const;
  std::optional<RegisteredType> TypeById(unsigned int id) const;
  std::vector<RegisteredType> Types() const;
  // +1: a variant holding a new object of type `id`, or an empty variant of
  // a built-in kind; null for an unknown id or a failing factory.
  Zentor::IVariant* CreateInstance(unsigned int id);

  std::vector<std::string> FunctionNames() const;
  std::vector<std::shared_ptr<const Overload>> OverloadsOf(const std::string& name) const;
  // The overload of `name` with exactly these parameter words (and this
  // result word, when given).
  std::shared_ptr<const Overload> FindOverload(const std::string& name, const std::string* result,
                                               const std::vector<std::string>& params) const;
  std::vector<MissingSymbol> Missing() const;
  // An exported symbol of any loaded module (first match in load order).
  void* FindSymbol(const std::string& symbol, const LoadedModule** module) const;

  // Calls an entry point. Exceptions that leave it are caught and returned
  // in the outcome; `label` names the call in the context's call stack.
  CallOutcome Call(Zentor::ZentorFunction entry, const LoadedModule* module,
                   const std::string& label, std::vector<Zentor::IVariant*>& args,
                   Zentor::IVariant* result);
  // The calls in progress on this thread, innermost first.
  static std::string CallStack();

  static std::string ExecutableDir();

 private:
  Output& fOut;
  Zentor::AutoRefPtr<HostContext> fContext;
  std::atomic<int> fEventLine{0};
  mutable std::mutex fMutex;
  std::vector<std::unique_ptr<LoadedModule>> fModules;
  std::vector<RegisteredType> fTypes;  // index = id - kTypeFirstUserDefined
  std::map<std::string, std::vector<std::shared_ptr<const Overload>>> fFunctions;
  std::vector<MissingSymbol> fMissing;
};

// Runs `body`, turning an exception into text ("type: what()"). Returns
// whether it ran through.
template <class Body>
bool Guarded(Body&& body, std::string& exception);

}  // namespace zhost

#include "HostGuard.h"
