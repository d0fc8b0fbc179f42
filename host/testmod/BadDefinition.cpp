// libzentor_baddef.so: a module whose definition breaks the rules for
// writing one in every way the host reads leniently, so that the host's
// load-time warnings can be seen. It has no GetModuleVersion on purpose.
#include <string>

#include "ZentorSDK.h"

using Zentor::IContext;
using Zentor::IModuleInfo;
using Zentor::IVariant;

ZENTOR_EXPORT const char* GetModuleDefinition(void*) {
  return "TYPE Gadget : zentor_baddef_CreateGadget : THREADSAFE"
         "  CONST_FUNCTION STRING Bad.TwoBlanks (STRING) : zentor_baddef_Echo"
         " FUNCTION STRING Bad.Kind (STRING) : zentor_baddef_Echo"
         " CONST_FUNCTION STRNG Bad.Result (STRING) : zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad.Blank (STRING, NUMBER) : zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad.Empty (STRING,) : zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad.Unknown (Gizmo) : zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad-Name (STRING) : zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad.Spacing(STRING)  :  zentor_baddef_Echo"
         " CONST_FUNCTION STRING Bad.Symbol (STRING) : zentor-baddef"
         "\tCONST_FUNCTION STRING Bad.Tab (STRING) : zentor_baddef_Echo"
         " CONST_FUNCTION Gadget Good.OwnType (Gadget,VECTOR<NUMBER>) : zentor_baddef_Echo ";
}

namespace {

class Gadget final : public Zentor::CustomType<Gadget> {
 public:
  explicit Gadget(unsigned int typeId) : CustomType(typeId, "Gadget") {}
};

}  // namespace

ZENTOR_EXPORT Zentor::IUserDefinedType* zentor_baddef_CreateGadget(unsigned int typeId, IContext*) {
  return new Gadget(typeId);
}

// Returns its first argument's text.
ZENTOR_EXPORT unsigned int zentor_baddef_Echo(int argc, IVariant** args, IVariant* result,
                                              IModuleInfo*, IContext*) {
  if (argc < 1 || !args[0]) return Zentor::MakeStatus(1, Zentor::kStatusArgumentMissing);
  if (result) result->AssignString(args[0]->GetStdString());
  return 0;
}
