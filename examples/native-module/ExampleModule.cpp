// An example native module that takes and returns values of the JSON
// module's "JSON" type. It knows nothing of how the JSON module is built:
// it works through the host interfaces and the native JSON interface IJSON
// alone (ZentorSDK.h).
//
//   Example.Describe(doc)           what the document is, in words
//   Example.Total(list, "price")    the sum of a number member over an array
//   Example.Summary(list, "price")  a new object: count, exact total, and
//                                   the positions that lack the member
//   Example.Stamped(doc, "text")    a copy of an object with a "stamp" member
//   Example.Pick(doc, "a/0")        a copy of the node at a path
//   Example.TagInPlace(doc, "text") sets "tag" in the caller's own document
//
// docs/native-modules.md quotes this file; a test keeps the two in step.
#include <charconv>
#include <cmath>
#include <string>

#include "ZentorSDK.h"

using Zentor::AutoRefPtr;
using Zentor::IContext;
using Zentor::IJSON;
using Zentor::IModuleInfo;
using Zentor::IUserDefinedType;
using Zentor::IVariant;

// ---------------------------------------------------------------------------
// What the host reads when it loads the module.

ZENTOR_EXPORT const char* GetModuleVersion() {
  return "1.0.0.0";
}
ZENTOR_EXPORT const char* GetSupportedPlatforms() {
  return "linux,mac,windows";
}
ZENTOR_EXPORT const char* GetState() {
  return "experimental";
}
ZENTOR_EXPORT const char* GetDownwardsCompatibility() {
  return "1.0.0";
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
// The functions take and return the JSON module's type, so that module
// must be loaded, and loaded first.
ZENTOR_EXPORT const char* GetModuleDependencies() {
  return "JSON";
}
ZENTOR_EXPORT const char* GetModuleDependenciesLoadBefore() {
  return "JSON";
}
ZENTOR_EXPORT const char* GetModuleDependenciesOptional() {
  return "";
}
ZENTOR_EXPORT const char* GetAlternativeFunctionDependencies() {
  return "";
}
ZENTOR_EXPORT const char* GetAlternativeProcedureDependencies() {
  return "";
}
ZENTOR_EXPORT const char* GetOptionalFunctionDependencies() {
  return "";
}
ZENTOR_EXPORT const char* GetOptionalProcedureDependencies() {
  return "";
}

// One declaration per function, each introduced by one blank: its kind,
// result type word, script name, parameter type words, and the exported
// symbol the host calls.
ZENTOR_EXPORT const char* GetModuleDefinition(void*) {
  return " CONST_FUNCTION STRING Example.Describe (JSON) : zentor_example_Describe"
         " CONST_FUNCTION NUMBER Example.Total (JSON,STRING) : zentor_example_Total"
         " CONST_FUNCTION JSON Example.Summary (JSON,STRING) : zentor_example_Summary"
         " CONST_FUNCTION JSON Example.Stamped (JSON,STRING) : zentor_example_Stamped"
         " CONST_FUNCTION JSON Example.Pick (JSON,STRING) : zentor_example_Pick"
         " CONST_FUNCTION BOOLEAN Example.TagInPlace (JSON,STRING) : zentor_example_TagInPlace";
}

namespace {

// ---------------------------------------------------------------------------
// Arguments.

// A failed argument is refused with a status code, before any work: its
// one-based position and what was wrong with it.
unsigned int Refuse(int position, Zentor::StatusKind kind) {
  return Zentor::MakeStatus(static_cast<unsigned int>(position), kind);
}

// The "JSON" value of an argument, borrowed from the variant.
unsigned int JSONArgument(int argc, IVariant** args, int index, IUserDefinedType*& out) {
  if (index >= argc) return Refuse(index + 1, Zentor::kStatusArgumentMissing);
  IVariant* arg = args[index];
  if (!arg || arg->GetType() < Zentor::kTypeFirstUserDefined)
    return Refuse(index + 1, Zentor::kStatusWrongKind);
  out = arg->GetUserDefinedPtr();
  if (!out) return Refuse(index + 1, Zentor::kStatusEmptyObject);
  if (std::string(out->GetName()) != "JSON") return Refuse(index + 1, Zentor::kStatusWrongKind);
  return 0;
}

unsigned int StringArgument(int argc, IVariant** args, int index, std::string& out) {
  if (index >= argc) return Refuse(index + 1, Zentor::kStatusArgumentMissing);
  if (!args[index] || args[index]->GetType() != Zentor::kTypeString)
    return Refuse(index + 1, Zentor::kStatusWrongKind);
  out = args[index]->GetStdString();
  return 0;
}

// A read-only view of a "JSON" argument: the caller's document itself, not
// a copy, so nothing that would change it compiles.
unsigned int ReadArgument(int argc, IVariant** args, int index, IContext* context,
                          AutoRefPtr<const IJSON>& out) {
  IUserDefinedType* value = nullptr;
  if (unsigned int status = JSONArgument(argc, args, index, value)) return status;
  out = value->Serialize<const IJSON>(context);
  return out ? 0 : Refuse(index + 1, Zentor::kStatusWrongKind);
}

// ---------------------------------------------------------------------------
// Results.

// A new, empty "JSON" value, made by the JSON module's own script function
// `creator` ("JSON.CreateEmptyObject" or "JSON.CreateEmptyArray"), which
// the host finds by its name and type words: the result word, then an
// empty word for the call context. Empty when the JSON module is not
// loaded.
AutoRefPtr<IUserDefinedType> NewDocument(IContext* context, const char* creator) {
  static const char* const kWords[] = {"JSON", ""};
  AutoRefPtr<IModuleInfo> module;
  const Zentor::ZentorFunction create = context->GetFunction(creator, 2, kWords, &module, 1);
  if (!create) return nullptr;
  AutoRefPtr<IVariant> made = context->CreateInstance(Zentor::kTypeInvalid);
  if (!made || create(0, nullptr, made.get(), module.get(), context) != 0) return nullptr;
  return made->GetUserDefined();
}

// Stores `number` under `key` exactly. A real that SetDouble stores is
// written with six decimals at most, but a real read from text is written
// as that text: so the shortest text that reads back as `number` is parsed
// into a second view of the document (which moves only that view) and
// copied in with SetJSON. NaN and infinities have no JSON text: false.
bool SetExactReal(IJSON& doc, const char* key, double number) {
  if (!std::isfinite(number)) return false;
  char text[32];
  std::string literal(text, std::to_chars(text, text + sizeof text, number).ptr);
  if (literal.find_first_of(".eE") == std::string::npos) literal += ".0";  // stays a real
  AutoRefPtr<IJSON> scratch = doc.FindNodePath("");
  return scratch && scratch->Parse(literal) && doc.SetJSON(key, scratch.get());
}

// Stores a copy of `doc`, a view of any node, into `result` as a new "JSON"
// value. The value copies it in with Deserialize, which unwraps an object
// of the form {"type":"JSON","value":...} to its "value" and drops the
// rest; wrapping the node in that form first keeps it whole, whatever it
// holds.
bool ReturnCopy(IVariant* result, IContext* context, const IJSON& doc) {
  AutoRefPtr<IUserDefinedType> value = NewDocument(context, "JSON.CreateEmptyObject");
  if (!value) return false;
  AutoRefPtr<IJSON> envelope = value->Serialize(context);
  if (!envelope->SetString("type", "JSON") || !envelope->SetJSON("value", &doc) ||
      !value->Deserialize(envelope.get(), context))
    return false;
  if (result) result->SetUserDefined(value.get());
  return true;
}

void Report(IContext* context, Zentor::ErrorSeverity severity, const std::string& message) {
  context->TriggerErrorHandler(severity, "Example", "Error.Example.Argument", message);
}

}  // namespace

#define EXAMPLE_FUNCTION(name)                                                               \
  ZENTOR_EXPORT unsigned int name(int argc, IVariant** args, IVariant* result, IModuleInfo*, \
                                  IContext* context)

// ---------------------------------------------------------------------------
// The functions.

// Example.Describe(doc): reads the document through a read-only view.
EXAMPLE_FUNCTION(zentor_example_Describe) {
  AutoRefPtr<const IJSON> doc;
  if (unsigned int status = ReadArgument(argc, args, 0, context, doc)) return status;
  std::string text;
  double number = 0;
  if (doc->IsObject())
    text = "an object of " + std::to_string(doc->Size()) + " members";
  else if (doc->IsArray())
    text = "an array of " + std::to_string(doc->Size()) + " elements";
  else if (doc->IsString() && doc->AsString(text))
    text = "the text \"" + text + "\"";
  else if (doc->IsNumber() && doc->AsDouble(number))
    text = "the number " + doc->ToString();
  else
    text = doc->ToString();
  if (result) result->AssignString(text);
  return 0;
}

// Example.Total(list, key): the sum of the number member `key` of the
// objects in an array; elements without one count nothing.
EXAMPLE_FUNCTION(zentor_example_Total) {
  AutoRefPtr<const IJSON> list;
  std::string key;
  if (unsigned int status = ReadArgument(argc, args, 0, context, list)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, key)) return status;
  double total = 0;
  if (!list->IsArray()) {
    Report(context, Zentor::ErrorSeverity::Warning,
           "Example.Total wants an array, not " + list->ToString());
  } else {
    list->ForEach([&](const char*, const IJSON* element) {
      double value = 0;
      if (element->GetDouble(key, value)) total += value;
      return true;  // go on
    });
  }
  if (result) result->AssignNumber(total);
  return 0;
}

// Example.Summary(list, key): a new object built from nothing, with the
// count of elements, the exact total of the member `key`, and the
// positions of the elements that lack it.
EXAMPLE_FUNCTION(zentor_example_Summary) {
  AutoRefPtr<const IJSON> list;
  std::string key;
  if (unsigned int status = ReadArgument(argc, args, 0, context, list)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, key)) return status;
  if (!list->IsArray()) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Summary wants an array, not " + list->ToString());
    return 0;  // the result is left as it was
  }
  AutoRefPtr<IUserDefinedType> summary = NewDocument(context, "JSON.CreateEmptyObject");
  AutoRefPtr<IUserDefinedType> missing = NewDocument(context, "JSON.CreateEmptyArray");
  if (!summary || !missing) {
    Report(context, Zentor::ErrorSeverity::Error, "Example.Summary needs the JSON module");
    return 0;
  }
  AutoRefPtr<IJSON> out = summary->Serialize(context);  // live: edits change `summary`
  AutoRefPtr<IJSON> gaps = missing->Serialize(context);
  double total = 0;
  list->ForEach([&](const char* position, const IJSON* element) {
    double value = 0;
    if (element->GetDouble(key, value))
      total += value;
    else
      gaps->PushBackString(position);
    return true;
  });
  const bool built = out->SetUInt64("count", list->Size()) && SetExactReal(*out, "total", total) &&
                     out->SetJSON("missing", gaps.get());
  if (!built) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Summary could not build its result: " + out->GetErrorMessage());
    return 0;
  }
  if (result) result->SetUserDefined(summary.get());
  return 0;
}

// Example.Stamped(doc, text): a copy of the object with the member "stamp"
// set to `text`. The value is cloned, which makes a new value with a deep
// copy of the document; the clone's view edits the clone in place.
EXAMPLE_FUNCTION(zentor_example_Stamped) {
  IUserDefinedType* value = nullptr;
  std::string stamp;
  if (unsigned int status = JSONArgument(argc, args, 0, value)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, stamp)) return status;
  AutoRefPtr<const IJSON> original = value->Serialize<const IJSON>(context);
  if (!original || !original->IsObject()) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Stamped wants an object, not " + (original ? original->ToString() : "?"));
    return 0;  // the result is left as it was
  }
  AutoRefPtr<IUserDefinedType> copy = value->Clone();
  AutoRefPtr<IJSON> doc = copy->Serialize(context);
  if (!doc || !doc->SetString("stamp", stamp)) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Stamped could not set the stamp: " + (doc ? doc->GetErrorMessage() : "?"));
    return 0;
  }
  if (result) result->SetUserDefined(copy.get());
  return 0;
}

// Example.Pick(doc, path): a copy of the node at `path`, whatever it holds.
EXAMPLE_FUNCTION(zentor_example_Pick) {
  AutoRefPtr<const IJSON> doc;
  std::string path;
  if (unsigned int status = ReadArgument(argc, args, 0, context, doc)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, path)) return status;
  AutoRefPtr<const IJSON> node = doc->FindNodePath(path);
  if (!node) {
    Report(context, Zentor::ErrorSeverity::Warning,
           "Example.Pick found nothing at \"" + path + "\": " + doc->GetErrorMessage());
    return 0;
  }
  if (!ReturnCopy(result, context, *node))
    Report(context, Zentor::ErrorSeverity::Error, "Example.Pick needs the JSON module");
  return 0;
}

// Example.TagInPlace(doc, text): sets the member "tag" in the caller's own
// document, through a writable view of the argument. Every value that
// shares the document's nodes sees the change. Only an object is edited:
// on a null document the setter would move the view onto a new object and
// leave the caller's value null.
EXAMPLE_FUNCTION(zentor_example_TagInPlace) {
  IUserDefinedType* value = nullptr;
  std::string tag;
  if (unsigned int status = JSONArgument(argc, args, 0, value)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, tag)) return status;
  AutoRefPtr<IJSON> doc = value->Serialize(context);
  const bool tagged = doc && doc->IsObject() && doc->SetString("tag", tag);
  if (!tagged)
    Report(context, Zentor::ErrorSeverity::Warning,
           "Example.TagInPlace wants an object, not " + (doc ? doc->ToString() : "?"));
  if (result) result->AssignBoolean(tagged);
  return 0;
}
