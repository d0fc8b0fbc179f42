// A small module for testing the host and, through the host, other
// modules: one user-defined type of its own ("Widget"), functions that show
// exactly what arrived, and functions that misbehave on request (status
// codes, exceptions, error reports). Written against the SDK alone, the
// way any third-party module would be.
#include <cstdio>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "Zentor.h"

using Zentor::AutoRefPtr;
using Zentor::IContext;
using Zentor::IModuleInfo;
using Zentor::IVariant;

namespace {

class Widget final : public Zentor::CustomType<Widget> {
 public:
  Widget(unsigned int typeId, std::string label)
      : CustomType(typeId, "Widget"), fLabel(std::move(label)) {}
  Widget(const Widget& other) = default;

  bool Interface_LessThan(const Zentor::IUserDefinedType* other) const override {
    const auto* widget = dynamic_cast<const Widget*>(other);
    return widget && fLabel < widget->fLabel;
  }

  std::string fLabel;
};

// Bytes owned by this module: a data value that the host did not make.
class Bytes final : public Zentor::InterfaceImpl<Zentor::IDataRef> {
 public:
  explicit Bytes(std::string bytes) : fBytes(std::move(bytes)) {}
  unsigned long long Interface_GetSize() const override { return fBytes.size(); }
  void Interface_Assign(const char* data, unsigned long long size) override {
    fBytes.assign(data ? data : "", data ? size : 0);
  }
  unsigned long long Interface_Read(char* out, unsigned long long size,
                                    unsigned long long offset) const override {
    if (offset >= fBytes.size()) return 0;
    return fBytes.copy(out, size, offset);
  }
  bool Interface_IsEqual(Zentor::IDataRef* other) const override {
    return other && other->ToString() == fBytes;
  }
  Zentor::IDataRef* Interface_Clone() const override { return new Bytes(fBytes); }
  const void* Interface_GetData() const override { return fBytes.data(); }

 private:
  std::string fBytes;
};

std::string HexOf(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (const char c : bytes) {
    if (!out.empty()) out += ' ';
    out += digits[static_cast<unsigned char>(c) >> 4];
    out += digits[static_cast<unsigned char>(c) & 15];
  }
  return out;
}

std::string NumberText(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", value);
  return buffer;
}

std::string Describe(IVariant* value) {
  if (!value) return "null pointer";
  if (auto vector = value->GetVector()) {
    std::string text = "vector of kind " + std::to_string(vector->GetElementType()) + " [";
    for (unsigned long long i = 0; i < vector->GetSize(); ++i)
      text += (i ? ", " : "") + Describe(vector->Get(i).get());
    return text + "]";
  }
  const unsigned int kind = value->GetType();
  switch (kind) {
    case Zentor::kTypeInvalid:
      return "nothing";
    case Zentor::kTypeBoolean:
      return value->GetBoolean() ? "boolean true" : "boolean false";
    case Zentor::kTypeNumber:
      return "number " + NumberText(value->GetNumber());
    case Zentor::kTypeString: {
      const std::string text(value->GetString(), value->GetStringSize());
      return "string of " + std::to_string(text.size()) + " bytes [" + HexOf(text) + "]";
    }
    case Zentor::kTypeData: {
      auto data = value->GetData();
      if (!data) return "data without object";
      return std::string(data->GetData() ? "data" : "streamed data") + " of " +
             std::to_string(data->GetSize()) + " bytes [" + HexOf(data->ToString()) + "]";
    }
    default:
      break;
  }
  auto object = value->GetUserDefined();
  if (!object) return "user-defined kind " + std::to_string(kind) + " without object";
  return "user-defined kind " + std::to_string(kind) + " object of type " + object->GetName();
}

std::string StringArg(int argc, IVariant** args, int index) {
  if (index >= argc || !args[index] || args[index]->GetType() != Zentor::kTypeString)
    return std::string();
  return std::string(args[index]->GetString(), args[index]->GetStringSize());
}

double NumberArg(int argc, IVariant** args, int index) {
  if (index >= argc || !args[index] || args[index]->GetType() != Zentor::kTypeNumber) return 0.0;
  return args[index]->GetNumber();
}

// Calls a function of any loaded module, as a module imports one: by script
// name and type words, the context's empty word last.
unsigned int CallImported(IContext* context, const char* name,
                          std::initializer_list<const char*> types,
                          std::initializer_list<IVariant*> args, IVariant* result) {
  std::vector<const char*> words(types);
  AutoRefPtr<IModuleInfo> info;
  Zentor::ZentorFunction function =
      context->GetFunction(name, static_cast<unsigned int>(words.size()), words.data(), &info, 1);
  if (!function) {
    context->TriggerErrorHandler(
        Zentor::ErrorSeverity::Error, "Zentor", Zentor::ZentorError::InvalidFunction(),
        std::string("Imported Zentor function ") + name + " doesn't exist!");
    return ~0u;
  }
  std::vector<IVariant*> argv(args);
  const unsigned int status =
      function(static_cast<int>(argv.size()), argv.data(), result, info.get(), context);
  if (status != 0)
    context->TriggerErrorHandler(
        Zentor::ErrorSeverity::Error, "Zentor", Zentor::ZentorError::InvalidArgument(),
        std::string("status ") + std::to_string(status) + " from function '" + name + "'");
  return status;
}

}  // namespace

// --- metadata ----------------------------------------------------------------

ZENTOR_EXPORT const char* GetModuleVersion() {
  return "0.3.1";
}
ZENTOR_EXPORT const char* GetSupportedPlatforms() {
  return "linux";
}
ZENTOR_EXPORT const char* GetState() {
  return "experimental";
}
ZENTOR_EXPORT const char* GetDownwardsCompatibility() {
  return "0.1.0";
}
ZENTOR_EXPORT const char* GetSDKDependency() {
  return "[1.20.13.0-]";
}
ZENTOR_EXPORT const char* GetModuleZentorVersion() {
  return "1.20.16.0-19";
}
ZENTOR_EXPORT const char* GetZentorSDKVersion() {
  return "1.20.16.0";
}
ZENTOR_EXPORT const char* GetModuleDependencies() {
  return "";
}
ZENTOR_EXPORT const char* GetModuleDependenciesOptional() {
  return "JSON";
}
ZENTOR_EXPORT const char* GetModuleDependenciesLoadBefore() {
  return "";
}
ZENTOR_EXPORT const char* GetAlternativeFunctionDependencies() {
  return "";
}
// GetAlternativeProcedureDependencies is left out on purpose: hosts must
// cope with a module that lacks one of the getters.
ZENTOR_EXPORT const char* GetOptionalFunctionDependencies() {
  return "JSON.FromString,ToString";
}
ZENTOR_EXPORT const char* GetOptionalProcedureDependencies() {
  return nullptr;
}

ZENTOR_EXPORT const char* GetModuleDefinition(void*) {
  return " TYPE Widget : zentor_testmod_CreateWidget : THREADSAFE"
         " CONST_FUNCTION Widget Widget.Make (STRING) : zentor_testmod_MakeWidget"
         " CONST_FUNCTION STRING ToString (Widget) : zentor_testmod_WidgetToString"
         " CONST_FUNCTION STRING Test.Describe (STRING) : zentor_testmod_Describe"
         " CONST_FUNCTION NUMBER Test.Status (NUMBER) : zentor_testmod_Status"
         " CONST_FUNCTION STRING Test.Throw (STRING) : zentor_testmod_Throw"
         " CONST_FUNCTION STRING Test.Throw (NUMBER) : zentor_testmod_ThrowOther"
         " CONST_FUNCTION BOOLEAN Test.Report (NUMBER,STRING,STRING) : zentor_testmod_Report"
         " CONST_FUNCTION STRING Test.Context () : zentor_testmod_Context"
         " CONST_FUNCTION VECTOR<NUMBER> Test.Range (NUMBER) : zentor_testmod_Range"
         " CONST_FUNCTION VECTOR<STRING> Test.Split (STRING) : zentor_testmod_Split"
         " CONST_FUNCTION DATAREF Test.Bytes (STRING) : zentor_testmod_Bytes"
         " CONST_FUNCTION Widget Test.New (STRING) : zentor_testmod_New"
         " CONST_FUNCTION STRING Test.RoundTrip (STRING) : zentor_testmod_RoundTrip"
         " CONST_FUNCTION STRING Test.Missing (STRING) : zentor_testmod_NoSuchSymbol";
}

// --- the type ------------------------------------------------------------------

ZENTOR_EXPORT Zentor::IUserDefinedType* zentor_testmod_CreateWidget(unsigned int typeId,
                                                                    IContext*) {
  return new Widget(typeId, "");
}

#define TEST_FUNCTION(name)                                                                  \
  ZENTOR_EXPORT unsigned int name(int argc, IVariant** args, IVariant* result, IModuleInfo*, \
                                  IContext* context)

// Widget.Make(label): a new widget.
TEST_FUNCTION(zentor_testmod_MakeWidget) {
  if (argc < 1) return Zentor::MakeStatus(1, Zentor::kStatusArgumentMissing);
  if (!args[0] || args[0]->GetType() != Zentor::kTypeString)
    return Zentor::MakeStatus(1, Zentor::kStatusWrongKind);
  AutoRefPtr<Widget> widget(new Widget(context->FindType("Widget"), StringArg(argc, args, 0)));
  if (result) result->SetUserDefined(widget.get());
  return 0;
}

// ToString(widget): "Widget(label)".
TEST_FUNCTION(zentor_testmod_WidgetToString) {
  (void)context;
  if (argc < 1) return Zentor::MakeStatus(1, Zentor::kStatusArgumentMissing);
  auto object = args[0] ? args[0]->GetUserDefined() : AutoRefPtr<Zentor::IUserDefinedType>();
  if (!object)
    return Zentor::MakeStatus(1, args[0] && args[0]->GetType() >= Zentor::kTypeFirstUserDefined
                                     ? Zentor::kStatusEmptyObject
                                     : Zentor::kStatusWrongKind);
  const auto* widget = dynamic_cast<const Widget*>(object.get());
  if (!widget) return Zentor::MakeStatus(1, Zentor::kStatusWrongKind);
  if (result) result->AssignString("Widget(" + widget->fLabel + ")");
  return 0;
}

// Test.Describe(anything...): what arrived, argument by argument.
TEST_FUNCTION(zentor_testmod_Describe) {
  (void)context;
  std::string text = std::to_string(argc) + (argc == 1 ? " argument" : " arguments");
  for (int i = 0; i < argc; ++i) text += "; " + std::to_string(i + 1) + ": " + Describe(args[i]);
  if (result) result->AssignString(text);
  return 0;
}

// Test.Status(code): returns `code` as the status and leaves the result
// alone.
TEST_FUNCTION(zentor_testmod_Status) {
  (void)result;
  (void)context;
  return static_cast<unsigned int>(NumberArg(argc, args, 0));
}

// Test.Throw(message): throws std::runtime_error(message).
TEST_FUNCTION(zentor_testmod_Throw) {
  (void)result;
  (void)context;
  throw std::runtime_error(StringArg(argc, args, 0));
}

// Test.Throw(number): throws something that is no std::exception.
TEST_FUNCTION(zentor_testmod_ThrowOther) {
  (void)result;
  (void)context;
  throw static_cast<int>(NumberArg(argc, args, 0));
}

// Test.Report(severity, code, message): reports on the context, logs once
// each way, and answers whether the context now has an error.
TEST_FUNCTION(zentor_testmod_Report) {
  const std::string code = StringArg(argc, args, 1);
  const std::string message = StringArg(argc, args, 2);
  context->TriggerErrorHandler(
      static_cast<Zentor::ErrorSeverity>(static_cast<int>(NumberArg(argc, args, 0))), "Test", code,
      message);
  context->ErrorLog("TestLog", "after " + code);
  context->DebugLog("Test", 3, "debug after " + code);
  if (result) result->AssignBoolean(context->HasError());
  return 0;
}

// Test.Context(): what the context tells a module.
TEST_FUNCTION(zentor_testmod_Context) {
  (void)args;
  (void)argc;
  std::string text = "instance " + std::to_string(context->GetZentorInstanceId()) +
                     ", interrupted " + (context->IsInterrupted() ? "yes" : "no") + ", has error " +
                     (context->HasError() ? "yes" : "no") + ", message \"" +
                     context->GetErrorMessage() + "\", stack \"" + context->PrintCallStack() +
                     "\", types JSON " + std::to_string(context->FindType("JSON")) + " Widget " +
                     std::to_string(context->FindType("Widget")) + " Nope " +
                     std::to_string(context->FindType("Nope"));
  if (result) result->AssignString(text);
  return 0;
}

// Test.Range(n): numbers[0, 1, ..., n-1], in a vector the host made.
TEST_FUNCTION(zentor_testmod_Range) {
  auto vector = context->CreateNumberVector();
  const double count = NumberArg(argc, args, 0);
  for (double i = 0; i < count; ++i) vector->PushBack(i);
  if (result) result->AssignVector(vector.get());
  return 0;
}

// Test.Split(text): the text split at commas, in a string vector.
TEST_FUNCTION(zentor_testmod_Split) {
  auto vector = context->CreateStringVector();
  const std::string text = StringArg(argc, args, 0);
  size_t from = 0;
  for (;;) {
    const size_t comma = text.find(',', from);
    vector->PushBack(
        text.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
    if (comma == std::string::npos) break;
    from = comma + 1;
  }
  if (result) result->AssignVector(vector.get());
  return 0;
}

// Test.Bytes(text): the text's bytes as data made by this module.
TEST_FUNCTION(zentor_testmod_Bytes) {
  (void)context;
  AutoRefPtr<Zentor::IDataRef> data(new Bytes(StringArg(argc, args, 0)));
  if (result) result->AssignData(data.get());
  return 0;
}

// Test.New(type name): a new instance through the host's CreateInstance;
// the result takes whatever object the host made.
TEST_FUNCTION(zentor_testmod_New) {
  const std::string name = StringArg(argc, args, 0);
  auto variant = context->CreateInstance(context->FindType(name));
  if (!variant) {
    context->TriggerErrorHandler(Zentor::ErrorSeverity::Error, "Test", "Error.Test.NoType",
                                 "cannot create " + name);
    return 0;
  }
  if (result) {
    if (auto object = variant->GetUserDefined())
      result->SetUserDefined(object.get());
    else
      result->AssignString("instance of kind " + std::to_string(variant->GetType()));
  }
  return 0;
}

// Test.RoundTrip(text): parses the text with "JSON.FromString" and writes it
// back with "ToString", both found through the host.
TEST_FUNCTION(zentor_testmod_RoundTrip) {
  auto text = context->CreateInstance(Zentor::kTypeString);
  text->AssignString(StringArg(argc, args, 0));
  auto json = context->CreateInstance(Zentor::kTypeInvalid);
  if (CallImported(context, "JSON.FromString", {"JSON", "STRING", ""}, {text.get()}, json.get()) !=
      0)
    return 0;
  auto back = context->CreateInstance(Zentor::kTypeString);
  if (CallImported(context, "ToString", {"STRING", "JSON", ""}, {json.get()}, back.get()) != 0)
    return 0;
  if (result) result->AssignString(back->GetString(), back->GetStringSize());
  return 0;
}
