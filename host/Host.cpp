#include "Host.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "Platform.h"

namespace zhost {

const char* const kMetadataExports[14] = {
    "GetModuleVersion",
    "GetSupportedPlatforms",
    "GetState",
    "GetDownwardsCompatibility",
    "GetSDKDependency",
    "GetModuleZentorVersion",
    "GetZentorSDKVersion",
    "GetModuleDependencies",
    "GetModuleDependenciesOptional",
    "GetModuleDependenciesLoadBefore",
    "GetAlternativeFunctionDependencies",
    "GetAlternativeProcedureDependencies",
    "GetOptionalFunctionDependencies",
    "GetOptionalProcedureDependencies",
};

namespace {

// The calls in progress on this thread, outermost first. Each label lives
// in the caller's frame for as long as its call runs, so the stack keeps
// pointers to them. It is plain data on purpose: where thread storage is
// emulated (MinGW), a thread's storage is freed before the destructors of
// its thread_local objects run, and a stack with a destructor (a vector of
// strings, say) would then free garbage at every thread's end. Calls nested
// deeper than the array are counted but not named.
struct CallStackOfThread {
  static constexpr size_t kNamed = 64;
  const std::string* labels[kNamed];
  size_t depth;
};
constinit thread_local CallStackOfThread tCallStack{};

const char* SeverityName(int severity) {
  switch (severity) {
    case 0:
      return "info";
    case 1:
      return "warning";
    case 2:
      return "error";
    case 3:
      return "fatal";
    default:
      return "unknown";
  }
}

// The length + 1 text protocol of IContext.
unsigned long long CopyText(const std::string& text, char* buffer, unsigned long long size) {
  const unsigned long long needed = text.size() + 1;
  if (buffer && needed <= size) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return needed;
}

std::string Str(const char* text) {
  return text ? text : "";
}

// A module's name is its file name without "lib" and the system's suffix.
std::string ModuleName(const std::string& path) {
  std::string name = path.substr(path.find_last_of("/\\") + 1);
  if (name.rfind("lib", 0) == 0) name = name.substr(3);
  for (const char* suffix : {".so", kModuleSuffix}) {
    const size_t at = name.find(suffix);
    if (at != std::string::npos) name = name.substr(0, at);
  }
  return name;
}

struct BuiltIn {
  const char* word;
  unsigned int kind;
};
constexpr BuiltIn kBuiltIns[] = {{"BOOLEAN", Zentor::kTypeBoolean},
                                 {"NUMBER", Zentor::kTypeNumber},
                                 {"STRING", Zentor::kTypeString},
                                 {"DATAREF", Zentor::kTypeData}};

}  // namespace

unsigned int BuiltInKind(const std::string& word) {
  for (const BuiltIn& builtIn : kBuiltIns)
    if (word == builtIn.word) return builtIn.kind;
  return Zentor::kTypeInvalid;
}

const char* BuiltInWord(unsigned int kind) {
  for (const BuiltIn& builtIn : kBuiltIns)
    if (kind == builtIn.kind) return builtIn.word;
  return nullptr;
}

void HostLogger::Interface_Log(int severity, const char* source, const char* message) {
  fOut.Line("! log: module " + fModule + ", severity " + std::to_string(severity) + " (" +
            SeverityName(severity) + "), source " + Quote(Str(source)) + ", message " +
            Quote(Str(message)));
}

// --- context ---------------------------------------------------------------

HostContext::ErrorState HostContext::GetErrorState() const {
  std::lock_guard<std::mutex> lock(fMutex);
  return fError;
}

void HostContext::Interface_TriggerErrorHandler(int severity, const char* source, const char* code,
                                                const char* message,
                                                unsigned long long messageSize) {
  ErrorState state;
  state.hasError = true;
  state.severity = severity;
  state.source = Str(source);
  state.code = Str(code);
  state.message = message ? std::string(message, static_cast<size_t>(messageSize)) : std::string();
  if (severity >= static_cast<int>(Zentor::ErrorSeverity::Error)) ++fErrorReports;
  fHost.Out().Line("! report" + fHost.EventLine() + ": severity " + std::to_string(severity) +
                   " (" + SeverityName(severity) + "), source " + Quote(state.source) + ", code " +
                   Quote(state.code) + ", message " + Quote(state.message));
  std::lock_guard<std::mutex> lock(fMutex);
  fError = std::move(state);
}

bool HostContext::Interface_HasError() const {
  std::lock_guard<std::mutex> lock(fMutex);
  return fError.hasError;
}

unsigned long long HostContext::Interface_GetErrorMessage(char* buffer,
                                                          unsigned long long size) const {
  std::lock_guard<std::mutex> lock(fMutex);
  return CopyText(fError.message, buffer, size);
}

void HostContext::Interface_ClearError() {
  std::lock_guard<std::mutex> lock(fMutex);
  fError = ErrorState();
}

void HostContext::Interface_ErrorLog(const char* tag, const char* message) {
  fHost.Out().Line("! log: tag " + Quote(Str(tag)) + ", message " + Quote(Str(message)));
}

void HostContext::Interface_DebugLog(const char* source, int level, const char* message) {
  fHost.Out().Line("! debug: source " + Quote(Str(source)) + ", level " + std::to_string(level) +
                   ", message " + Quote(Str(message)));
}

unsigned long long HostContext::Interface_PrintCallStack(char* buffer,
                                                         unsigned long long size) const {
  return CopyText(Host::CallStack(), buffer, size);
}

unsigned int HostContext::Interface_FindType(const char* name) const {
  return name ? fHost.FindType(name) : Zentor::kTypeInvalid;
}

Zentor::IVariant* HostContext::Interface_CreateInstance(unsigned int typeId) {
  return fHost.CreateInstance(typeId);
}

Zentor::IVectorGeneric* HostContext::Interface_CreateVector(unsigned int elementKind) {
  return NewVector(elementKind);
}

Zentor::ZentorFunction HostContext::Interface_GetFunction(const char* name, unsigned int typeCount,
                                                          const char* const* types,
                                                          Zentor::IModuleInfo** moduleInfo,
                                                          unsigned char /*flag*/) {
  // The flag carries no meaning for this host: every lookup is by name and
  // exact type words.
  if (moduleInfo) *moduleInfo = nullptr;
  if (!name || typeCount == 0 || !types) return nullptr;
  std::vector<std::string> words;
  for (unsigned int i = 0; i < typeCount; ++i) words.push_back(Str(types[i]));
  // The context's empty word may close the list; it is no parameter.
  while (words.size() > 1 && words.back().empty()) words.pop_back();
  const std::string result = words.front();
  const std::vector<std::string> params(words.begin() + 1, words.end());
  const auto overload = fHost.FindOverload(name, &result, params);
  if (!overload || !overload->entry) return nullptr;
  if (moduleInfo && overload->module && overload->module->info) {
    overload->module->info->AddRef();
    *moduleInfo = overload->module->info.get();
  }
  return overload->entry;
}

// --- host ------------------------------------------------------------------

Host::Host(Output& out) : fOut(out), fContext(new HostContext(*this)) {}

// Modules stay mapped: objects they made may outlive the host's tables
// (variables released at exit), and unloading buys a test host nothing.
Host::~Host() = default;

std::string Host::EventLine() const {
  const int line = fEventLine;
  return line > 0 ? " at line " + std::to_string(line) : std::string();
}

std::string Host::ExecutableDir() {
  const std::string path = ExecutablePath();
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

bool Host::Load(const std::string& location, std::string& error) {
  std::string path = location;
  if (location.find('/') == std::string::npos) {
    // Beside the host in a build tree; in the library folder of an
    // installed one (bin/zentor with lib/libzentor_json.so). A name given
    // with ".so" also finds the module under the system's own suffix
    // (libzentor_json.dll on Windows), so scripts name modules alike
    // everywhere.
    std::vector<std::string> names{location};
    const size_t so = location.rfind(".so");
    if (so != std::string::npos && so + 3 == location.size())
      names.push_back(location.substr(0, so) + kModuleSuffix);
    bool found = false;
    for (const std::string& name : names) {
      for (const char* folder : {"", ZENTOR_INSTALLED_MODULE_DIR}) {
        const std::string local = ExecutableDir() + "/" + folder + name;
        if (!found && FileExists(local)) {
          path = local;
          found = true;
        }
      }
    }
  }
  LibraryHandle handle = OpenLibrary(path, error);
  if (!handle) return false;
  for (const LoadedModule* loaded : Modules()) {
    if (loaded->handle == handle) {
      // The same library again: dlopen only counted one more reference.
      CloseLibrary(handle);
      error = "already loaded as " + loaded->name;
      return false;
    }
  }
  auto module = std::make_unique<LoadedModule>();
  module->name = ModuleName(path);
  module->path = path;
  module->handle = handle;
  for (const char* exportName : kMetadataExports) {
    MetadataEntry entry;
    entry.name = exportName;
    if (auto getter =
            reinterpret_cast<Zentor::ZentorMetadataGetter>(LibrarySymbol(handle, exportName))) {
      entry.present = true;
      const char* value = nullptr;
      std::string exception;
      if (!Guarded([&] { value = getter(); }, exception))
        fOut.Line("! exception: " + exception + " (in " + exportName + " of " + module->name + ")");
      entry.isNull = value == nullptr;
      entry.value = Str(value);
    }
    module->metadata.push_back(std::move(entry));
  }
  module->definitionGetter = reinterpret_cast<Zentor::ZentorDefinitionGetter>(
      LibrarySymbol(handle, "GetModuleDefinition"));
  if (!module->definitionGetter) {
    error = path + " has no GetModuleDefinition export";
    CloseLibrary(handle);
    return false;
  }
  const char* definition = nullptr;
  std::string exception;
  if (!Guarded([&] { definition = module->definitionGetter(this); }, exception)) {
    error = "GetModuleDefinition of " + path + " threw " + exception;
    CloseLibrary(handle);
    return false;
  }
  module->definition = Str(definition);
  module->parsed = ParseDefinition(module->definition);
  for (const std::string& problem : module->parsed.errors)
    fOut.Line("! load: " + module->name + ": definition " + problem);
  // What a stricter host would refuse, so that an author sees it here first.
  // Type words may name the module's own types or any registered before.
  const auto isTypeName = [&](const std::string& name) {
    return FindType(name) != Zentor::kTypeInvalid ||
           std::any_of(module->parsed.types.begin(), module->parsed.types.end(),
                       [&](const TypeDeclaration& type) { return type.name == name; });
  };
  for (const std::string& problem : CheckDefinition(module->definition, module->parsed, isTypeName))
    fOut.Line("! load: " + module->name + ": " + Printable(problem));
  module->info.reset(new HostModuleInfo(fOut, module->name, module->metadata[0].value, path));

  std::lock_guard<std::mutex> lock(fMutex);
  for (const TypeDeclaration& type : module->parsed.types) {
    const bool taken = std::any_of(fTypes.begin(), fTypes.end(),
                                   [&](const RegisteredType& t) { return t.name == type.name; });
    if (taken || BuiltInKind(type.name) != Zentor::kTypeInvalid) {
      fOut.Line("! load: " + module->name + ": type " + type.name +
                " is already registered; declaration ignored");
      continue;
    }
    RegisteredType registered;
    registered.id = Zentor::kTypeFirstUserDefined + static_cast<unsigned int>(fTypes.size());
    registered.name = type.name;
    registered.factorySymbol = type.factory;
    registered.flags = type.flags;
    registered.factory =
        reinterpret_cast<Zentor::ZentorTypeFactory>(LibrarySymbol(handle, type.factory.c_str()));
    registered.module = module.get();
    if (!registered.factory) fMissing.push_back({module.get(), type.factory, type.text});
    fTypes.push_back(std::move(registered));
  }
  for (const FunctionDeclaration& function : module->parsed.functions) {
    auto overload = std::make_shared<Overload>();
    overload->name = function.name;
    overload->result = function.result;
    overload->params = function.params;
    overload->symbol = function.symbol;
    overload->entry =
        reinterpret_cast<Zentor::ZentorFunction>(LibrarySymbol(handle, function.symbol.c_str()));
    overload->module = module.get();
    overload->text = function.text;
    if (!overload->entry) fMissing.push_back({module.get(), function.symbol, function.text});
    auto& list = fFunctions[function.name];
    const bool duplicate = std::any_of(list.begin(), list.end(),
                                       [&](const auto& o) { return o->params == function.params; });
    if (duplicate) {
      fOut.Line("! load: " + module->name + ": " + Signature(function.name, function.params) +
                " is already declared; declaration ignored");
      continue;
    }
    list.push_back(std::move(overload));
  }
  fModules.push_back(std::move(module));
  return true;
}

std::vector<const LoadedModule*> Host::Modules() const {
  std::lock_guard<std::mutex> lock(fMutex);
  std::vector<const LoadedModule*> out;
  for (const auto& module : fModules) out.push_back(module.get());
  return out;
}

const LoadedModule* Host::FindModule(const std::string& name) const {
  std::lock_guard<std::mutex> lock(fMutex);
  for (const auto& module : fModules) {
    if (module->name == name || module->FileName() == name || module->path == name)
      return module.get();
  }
  return nullptr;
}

unsigned int Host::FindType(const std::string& name) const {
  if (const unsigned int builtIn = BuiltInKind(name); builtIn != Zentor::kTypeInvalid)
    return builtIn;
  std::lock_guard<std::mutex> lock(fMutex);
  for (const RegisteredType& type : fTypes)
    if (type.name == name) return type.id;
  return Zentor::kTypeInvalid;
}

std::optional<RegisteredType> Host::TypeById(unsigned int id) const {
  std::lock_guard<std::mutex> lock(fMutex);
  if (id < Zentor::kTypeFirstUserDefined || id - Zentor::kTypeFirstUserDefined >= fTypes.size())
    return std::nullopt;
  return fTypes[id - Zentor::kTypeFirstUserDefined];
}

std::vector<RegisteredType> Host::Types() const {
  std::lock_guard<std::mutex> lock(fMutex);
  return fTypes;
}

Zentor::IVariant* Host::CreateInstance(unsigned int id) {
  auto variant = MakeVariant();
  switch (id) {
    case Zentor::kTypeInvalid:
      return variant.release();
    case Zentor::kTypeBoolean:
      variant->AssignBoolean(false);
      return variant.release();
    case Zentor::kTypeNumber:
      variant->AssignNumber(0.0);
      return variant.release();
    case Zentor::kTypeString:
      variant->AssignString(std::string());
      return variant.release();
    case Zentor::kTypeData:
      variant->SetNullData();
      return variant.release();
    default:
      break;
  }
  const auto type = TypeById(id);
  if (!type || !type->factory) return nullptr;
  // The factory runs without the lock: it may call back into the host.
  Zentor::IUserDefinedType* object = nullptr;
  std::string exception;
  if (!Guarded([&] { object = type->factory(id, fContext.get()); }, exception)) {
    fOut.Line("! exception: " + exception + " (in factory " + type->factorySymbol + " of type " +
              type->name + ")");
    return nullptr;
  }
  if (!object) return nullptr;
  Zentor::AutoRefPtr<Zentor::IUserDefinedType> owned(object);
  variant->SetUserDefined(owned.get());
  return variant.release();
}

std::vector<std::string> Host::FunctionNames() const {
  std::lock_guard<std::mutex> lock(fMutex);
  std::vector<std::string> names;
  for (const auto& [name, list] : fFunctions) names.push_back(name);
  return names;
}

std::vector<std::shared_ptr<const Overload>> Host::OverloadsOf(const std::string& name) const {
  std::lock_guard<std::mutex> lock(fMutex);
  const auto found = fFunctions.find(name);
  return found == fFunctions.end() ? std::vector<std::shared_ptr<const Overload>>() : found->second;
}

std::shared_ptr<const Overload> Host::FindOverload(const std::string& name,
                                                   const std::string* result,
                                                   const std::vector<std::string>& params) const {
  std::lock_guard<std::mutex> lock(fMutex);
  const auto found = fFunctions.find(name);
  if (found == fFunctions.end()) return nullptr;
  for (const auto& overload : found->second)
    if (overload->params == params && (!result || overload->result == *result)) return overload;
  return nullptr;
}

std::vector<MissingSymbol> Host::Missing() const {
  std::lock_guard<std::mutex> lock(fMutex);
  return fMissing;
}

void* Host::FindSymbol(const std::string& symbol, const LoadedModule** module) const {
  std::lock_guard<std::mutex> lock(fMutex);
  for (const auto& loaded : fModules) {
    if (void* address = LibrarySymbol(loaded->handle, symbol.c_str())) {
      if (module) *module = loaded.get();
      return address;
    }
  }
  return nullptr;
}

CallOutcome Host::Call(Zentor::ZentorFunction entry, const LoadedModule* module,
                       const std::string& label, std::vector<Zentor::IVariant*>& args,
                       Zentor::IVariant* result) {
  CallOutcome outcome;
  if (tCallStack.depth < CallStackOfThread::kNamed) tCallStack.labels[tCallStack.depth] = &label;
  ++tCallStack.depth;
  outcome.threw = !Guarded(
      [&] {
        outcome.status = entry(static_cast<int>(args.size()), args.data(), result,
                               module ? module->info.get() : nullptr, fContext.get());
      },
      outcome.exception);
  --tCallStack.depth;
  return outcome;
}

std::string Host::CallStack() {
  const size_t named = std::min(tCallStack.depth, CallStackOfThread::kNamed);
  std::string text = tCallStack.depth > named ? "at ..." : "";
  for (size_t level = named; level > 0; --level)
    text += (text.empty() ? "at " : " <- at ") + *tCallStack.labels[level - 1];
  return text;
}

}  // namespace zhost
