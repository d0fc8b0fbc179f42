// An example native module that takes and returns values of the JSON
// module's "JSON" type. It knows nothing of how the JSON module is built:
// it works through the host interfaces and the native JSON interface IJSON
// alone (ZentorSDK.h), so it runs with any implementation of the type.
//
//   Example.Describe(doc)          what the document is, in words
//   Example.Total(list, "price")   the sum of a number member over an array
//   Example.Stamped(doc, "text")   a copy of an object with a "stamp" member
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

// One declaration per function: its kind, result type word, script name,
// parameter type words, and the exported symbol the host calls.
ZENTOR_EXPORT const char* GetModuleDefinition(void*) {
  return " CONST_FUNCTION STRING Example.Describe (JSON) : zentor_example_Describe"
         " CONST_FUNCTION NUMBER Example.Total (JSON,STRING) : zentor_example_Total"
         " CONST_FUNCTION JSON Example.Stamped (JSON,STRING) : zentor_example_Stamped";
}

namespace {

// ---------------------------------------------------------------------------
// Arguments and results.

// A failed argument is refused with a status code, before any work: its
// one-based position and what was wrong with it.
unsigned int Refuse(int position, Zentor::StatusKind kind) {
  return Zentor::MakeStatus(static_cast<unsigned int>(position), kind);
}

// The IJSON view of a "JSON" argument: the document itself, shared with the
// caller's value, not a copy. Status 0 when the argument is one.
unsigned int JSONArgument(int argc, IVariant** args, int index, IContext* context,
                          AutoRefPtr<IJSON>& out) {
  if (index >= argc) return Refuse(index + 1, Zentor::kStatusArgumentMissing);
  IVariant* arg = args[index];
  if (!arg || arg->GetType() < Zentor::kTypeFirstUserDefined)
    return Refuse(index + 1, Zentor::kStatusWrongKind);
  IUserDefinedType* value = arg->GetUserDefinedPtr();
  if (!value) return Refuse(index + 1, Zentor::kStatusEmptyObject);
  if (std::string(value->GetName()) != "JSON") return Refuse(index + 1, Zentor::kStatusWrongKind);
  out = value->Serialize(context);
  return out ? 0 : Refuse(index + 1, Zentor::kStatusWrongKind);
}

unsigned int StringArgument(int argc, IVariant** args, int index, std::string& out) {
  if (index >= argc) return Refuse(index + 1, Zentor::kStatusArgumentMissing);
  if (!args[index] || args[index]->GetType() != Zentor::kTypeString)
    return Refuse(index + 1, Zentor::kStatusWrongKind);
  out = args[index]->GetStdString();
  return 0;
}

// A new "JSON" value holding `doc`, stored into the result. The host makes
// the value (its factory belongs to the JSON module) and the value copies
// the document in.
bool SetJSONResult(IVariant* result, IContext* context, const IJSON& doc) {
  if (!result) return true;  // the caller does not want the result
  const unsigned int type = context->FindType("JSON");
  if (type == Zentor::kTypeInvalid) return false;
  AutoRefPtr<IVariant> made = context->CreateInstance(type);
  AutoRefPtr<IUserDefinedType> value = made ? made->GetUserDefined() : nullptr;
  if (!value || !value->Deserialize(&doc, context)) return false;
  result->SetUserDefined(value.get());
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

// Example.Describe(doc): reads the document through its view.
EXAMPLE_FUNCTION(zentor_example_Describe) {
  AutoRefPtr<IJSON> doc;
  if (unsigned int status = JSONArgument(argc, args, 0, context, doc)) return status;
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
  AutoRefPtr<IJSON> list;
  std::string key;
  if (unsigned int status = JSONArgument(argc, args, 0, context, list)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, key)) return status;
  double total = 0;
  if (!list->IsArray()) {
    Report(context, Zentor::ErrorSeverity::Warning,
           "Example.Total wants an array, not " + list->ToString());
  } else {
    for (unsigned long long i = 0; i < list->Size(); ++i) {
      double value = 0;
      if (AutoRefPtr<IJSON> element = list->At(i);
          element && element->GetDouble(key.c_str(), value))
        total += value;
    }
  }
  if (result) result->AssignNumber(total);
  return 0;
}

// Example.Stamped(doc, text): a copy of the object with the member "stamp"
// set to `text`. The view of an argument is the caller's own document:
// changing it would change the caller's value. So the view is cloned first,
// and the change is made to the clone.
EXAMPLE_FUNCTION(zentor_example_Stamped) {
  AutoRefPtr<IJSON> doc;
  std::string stamp;
  if (unsigned int status = JSONArgument(argc, args, 0, context, doc)) return status;
  if (unsigned int status = StringArgument(argc, args, 1, stamp)) return status;
  if (!doc->IsObject()) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Stamped wants an object, not " + doc->ToString());
    return 0;  // the result is left as it was
  }
  AutoRefPtr<IJSON> copy = doc->Clone();
  if (!copy) return 0;
  if (!copy->SetString("stamp", stamp)) {
    Report(context, Zentor::ErrorSeverity::Error,
           "Example.Stamped could not set the stamp: " + copy->GetErrorMessage());
    return 0;
  }
  if (!SetJSONResult(result, context, *copy))
    Report(context, Zentor::ErrorSeverity::Error, "no JSON type to return");
  return 0;
}
