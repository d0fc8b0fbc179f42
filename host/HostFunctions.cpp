#include "HostFunctions.h"

#include <algorithm>

#include "HostTextJSON.h"

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

struct HostFunction {
  const char* name;  // after "Host."
  size_t minArgs;
  size_t maxArgs;
  Variant (*run)(const HostCall& call);
};

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

}  // namespace

std::vector<std::string> HostFunctionNames() {
  std::vector<std::string> names;
  for (const HostFunction& function : kFunctions)
    names.push_back(kPrefix + std::string(function.name));
  return names;
}

std::optional<Variant> CallHostFunction(Host& host, const std::string& name,
                                        const Arguments& args) {
  if (name.rfind(kPrefix, 0) != 0 || !host.OverloadsOf(name).empty()) return std::nullopt;
  const std::string bare = name.substr(sizeof kPrefix - 1);
  const auto* function =
      std::find_if(std::begin(kFunctions), std::end(kFunctions), [&](const HostFunction& f) {
        return bare == f.name && args.size() >= f.minArgs && args.size() <= f.maxArgs;
      });
  if (function == std::end(kFunctions))
    throw ScriptError("unknown host function " +
                      Signature(name, std::vector<std::string>(args.size(), "?")) + " (" +
                      FunctionList() + ")");
  return function->run(HostCall{host, name, args});
}

}  // namespace zhost
