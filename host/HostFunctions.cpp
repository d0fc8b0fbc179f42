#include "HostFunctions.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Hints.h"
#include "HostTextJSON.h"
#include "Platform.h"

namespace zhost {
namespace {

using Variant = Zentor::AutoRefPtr<Zentor::IVariant>;

const char kPrefix[] = "Host.";

// One call of a host function, with what its body needs to read its
// arguments and make its result.
struct HostCall {
  Host& host;
  const std::string& name;
  const Arguments& args;

  Zentor::IUserDefinedType* Object(size_t index) const {
    Zentor::IUserDefinedType* object =
        index < args.size() ? args[index]->GetUserDefinedPtr() : nullptr;
    if (!object)
      throw ScriptError(name + ": argument " + std::to_string(index + 1) +
                        " must be a user-defined value with object");
    return object;
  }

  // The bytes of a STRING argument.
  std::string Text(size_t index) const {
    if (index >= args.size() || args[index]->GetVector() ||
        args[index]->GetType() != Zentor::kTypeString)
      throw ScriptError(name + ": argument " + std::to_string(index + 1) + " must be a string");
    return args[index]->GetStdString();
  }

  double Number(size_t index) const {
    if (index >= args.size() || args[index]->GetType() != Zentor::kTypeNumber)
      throw ScriptError(name + ": argument " + std::to_string(index + 1) + " must be a number");
    return args[index]->GetNumber();
  }

  // A fresh object of the same type as `object`, from the type's factory.
  Variant FreshLike(Zentor::IUserDefinedType* object) const {
    Variant made(host.CreateInstance(object->GetType()));
    if (!made || !made->GetUserDefinedPtr())
      throw ScriptError(name + ": the host could not create a " + object->GetName());
    return made;
  }

  void Say(const std::string& text) const { host.Out().Line("host: " + text); }
};

Variant Clone(const HostCall& call) {
  auto result = MakeVariant();
  auto clone = call.Object(0)->Clone();
  if (clone) result->SetUserDefined(clone.get());
  return result;
}

Variant LessThan(const HostCall& call) {
  return MakeBoolean(call.Object(0)->LessThan(call.Object(1)));
}

Variant TypeName(const HostCall& call) {
  return MakeString(call.Object(0)->GetName());
}

Variant TypeId(const HostCall& call) {
  return MakeNumber(call.Object(0)->GetType());
}

// Through the binary handle into a fresh object; an optional third
// argument hands over another size than the one ToBinaryData gave.
Variant BinaryCopy(const HostCall& call) {
  Zentor::IUserDefinedType* object = call.Object(0);
  const auto format = static_cast<unsigned long long>(call.Number(1));
  void* handle = nullptr;
  unsigned long long size = object->ToBinaryData(&handle, format);
  call.Say("ToBinaryData(format " + std::to_string(format) + ") gave " + std::to_string(size) +
           " bytes");
  if (call.args.size() == 3) size = static_cast<unsigned long long>(call.Number(2));
  auto copy = call.FreshLike(object);
  const bool taken = copy->GetUserDefinedPtr()->FromBinaryData(handle, size, format);
  call.Say("FromBinaryData(" + std::to_string(size) + " bytes) returned " +
           (taken ? "true" : "false"));
  return copy;
}

Variant Serialize(const HostCall& call) {
  auto result = MakeVariant();
  auto json = call.Object(0)->Serialize(&call.host.Context());
  if (!json)
    call.Say("Serialize returned null");
  else
    result->AssignString(json->ToString());
  return result;
}

// Into a fresh object of the first argument's type, from a text (through
// the host's own text-only IJSON) or from another value's native form.
Variant Deserialize(const HostCall& call) {
  Zentor::IUserDefinedType* target = call.Object(0);
  Zentor::AutoRefPtr<Zentor::IJSON> json;
  if (call.args[1]->GetType() == Zentor::kTypeString) {
    json.reset(new HostTextJSON(call.args[1]->GetStdString()));
  } else {
    json = call.Object(1)->Serialize(&call.host.Context());
    if (!json) throw ScriptError(call.name + ": the source value has no native JSON form");
  }
  auto copy = call.FreshLike(target);
  const bool ok = copy->GetUserDefinedPtr()->Deserialize(json.get(), &call.host.Context());
  call.Say(std::string("Deserialize returned ") + (ok ? "true" : "false"));
  return copy;
}

// The system's reason for the last failure of a file operation.
std::string SystemReason() {
  return std::strerror(errno);
}

// Sizes `bytes` to `size` when the memory is there; false when it is not.
bool TryResize(std::string& bytes, size_t size) noexcept {
  try {
    bytes.resize(size);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

// A file's bytes, read in binary mode on every system.
Variant ReadFile(const HostCall& call) {
  const std::string path = call.Text(0);
  auto failed = [&](const std::string& reason) {
    return ScriptError(call.name + ": cannot read " + Quote(path) + ": " + reason);
  };
  std::FILE* file = OpenFile(path, "rb");
  if (!file) throw failed(SystemReason());
  // Read straight into the string, sized to the file when the system tells
  // the size; anything else (a pipe) grows it as it comes. A size that
  // cannot be had is no mistake of its own (a folder tells an absurd one):
  // the read that follows says what is wrong.
  std::string bytes;
  if (std::fseek(file, 0, SEEK_END) == 0) {
    const long size = std::ftell(file);
    std::rewind(file);
    if (size > 0) TryResize(bytes, static_cast<size_t>(size));
  }
  size_t filled = 0;
  for (;;) {
    if (filled == bytes.size() && !TryResize(bytes, std::max<size_t>(65536, bytes.size() * 2))) {
      std::fclose(file);
      throw failed("it does not fit in memory");
    }
    const size_t got = std::fread(bytes.data() + filled, 1, bytes.size() - filled, file);
    filled += got;
    if (got == 0) break;
  }
  bytes.resize(filled);
  // The reason is taken before fclose can change errno.
  const std::string reason = std::ferror(file) ? SystemReason() : std::string();
  std::fclose(file);
  if (!reason.empty()) throw failed(reason);
  return MakeString(std::move(bytes));
}

// Writes a STRING's or a DATAREF's bytes as they are; the value is the
// number of bytes written.
Variant WriteFile(const HostCall& call) {
  const std::string path = call.Text(0);
  Zentor::IVariant* value = call.args[1].get();
  std::string bytes;
  if (!value->GetVector() && value->GetType() == Zentor::kTypeString) {
    bytes = value->GetStdString();
  } else if (auto data = value->GetVector() ? nullptr : value->GetData()) {
    data->ReadAll(bytes);
  } else {
    throw ScriptError(call.name + ": argument 2 must be a string or data");
  }
  std::FILE* file = OpenFile(path, "wb");
  bool written = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  std::string reason = written ? std::string() : SystemReason();
  if (file && std::fclose(file) != 0 && written) {
    written = false;
    reason = SystemReason();
  }
  if (!written) throw ScriptError(call.name + ": cannot write " + Quote(path) + ": " + reason);
  return MakeNumber(static_cast<double>(bytes.size()));
}

// Strings as they are and numbers as text, joined: whole numbers in all
// their digits without a fraction (for paths such as "statuses/3"), other
// numbers as print shows them.
Variant Concat(const HostCall& call) {
  std::string text;
  for (size_t i = 0; i < call.args.size(); ++i) {
    Zentor::IVariant* arg = call.args[i].get();
    const unsigned int kind = arg->GetVector() ? Zentor::kTypeVector : arg->GetType();
    if (kind == Zentor::kTypeString) {
      text += arg->GetStdString();
    } else if (kind == Zentor::kTypeNumber) {
      const double number = arg->GetNumber();
      char digits[400];
      if (std::isfinite(number) && number == std::trunc(number))
        text.append(
            digits,
            std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed).ptr);
      else
        text += FormatNumber(number);
    } else {
      throw ScriptError(call.name + ": argument " + std::to_string(i + 1) +
                        " must be a string or a number");
    }
  }
  return MakeString(text);
}

struct HostFunction {
  const char* name;  // after "Host."
  size_t minArgs;
  size_t maxArgs;
  Variant (*run)(const HostCall& call);
};

// The host's work on files and text, for scripts that handle real data.
constexpr HostFunction kFileFunctions[] = {
    {"ReadFile", 1, 1, ReadFile}, {"WriteFile", 2, 2, WriteFile}, {"Concat", 0, SIZE_MAX, Concat}};

// Its operations on user-defined values; an unknown host function is
// answered with their list.
constexpr HostFunction kFunctions[] = {{"Clone", 1, 1, Clone},
                                       {"LessThan", 2, 2, LessThan},
                                       {"TypeName", 1, 1, TypeName},
                                       {"TypeId", 1, 1, TypeId},
                                       {"BinaryCopy", 2, 3, BinaryCopy},
                                       {"Serialize", 1, 1, Serialize},
                                       {"Deserialize", 2, 2, Deserialize}};

// "Host.Clone/1, ..., Host.BinaryCopy/2-3, ...": the list an unknown host
// function is answered with.
std::string FunctionList() {
  std::string list;
  for (const HostFunction& function : kFunctions) {
    list += (list.empty() ? "" : ", ") + std::string(kPrefix) + function.name + "/" +
            std::to_string(function.minArgs);
    if (function.maxArgs != function.minArgs) list += "-" + std::to_string(function.maxArgs);
  }
  return list;
}

template <size_t N>
std::vector<std::string> NamesOf(const HostFunction (&table)[N]) {
  std::vector<std::string> names;
  for (const HostFunction& function : table) names.push_back(kPrefix + std::string(function.name));
  return names;
}

}  // namespace

std::vector<std::string> HostFunctionNames() {
  std::vector<std::string> names = NamesOf(kFileFunctions);
  for (std::string& name : NamesOf(kFunctions)) names.push_back(std::move(name));
  return names;
}

std::optional<Variant> CallHostFunction(Host& host, const std::string& name,
                                        const Arguments& args) {
  if (name.rfind(kPrefix, 0) != 0 || !host.OverloadsOf(name).empty()) return std::nullopt;
  const std::string bare = name.substr(sizeof kPrefix - 1);
  const HostCall call{host, name, args};
  for (const HostFunction& function : kFileFunctions) {
    if (bare != function.name) continue;
    if (args.size() < function.minArgs || args.size() > function.maxArgs)
      throw ScriptError(name + " takes " + std::to_string(function.minArgs) +
                        (function.minArgs == 1 ? " argument" : " arguments"));
    return function.run(call);
  }
  const auto* function =
      std::find_if(std::begin(kFunctions), std::end(kFunctions), [&](const HostFunction& f) {
        return bare == f.name && args.size() >= f.minArgs && args.size() <= f.maxArgs;
      });
  if (function != std::end(kFunctions)) return function->run(call);
  // A slip in the name of a file function is answered with it; anything
  // else with the list of operations on values.
  const std::vector<std::string> fileFunctions = NamesOf(kFileFunctions);
  if (!NearestNames(name, fileFunctions).empty())
    throw Unknown("host function", name, fileFunctions);
  throw ScriptError("unknown host function " +
                    Signature(name, std::vector<std::string>(args.size(), "?")) + " (" +
                    FunctionList() + ")");
}

}  // namespace zhost
