// The native JSON interface (JSONWrapper) and the host functions it imports,
// against a small fake host whose function lookup answers with the module's
// own entry points, with a foreign "JSON" implementation, or with nothing.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "JSONObj.h"
#include "JSONWrapper.h"
#include "ZentorData.h"

using Zentor::AutoRefPtr;
using Zentor::IContext;
using Zentor::IJSON;
using Zentor::IUserDefinedType;
using Zentor::IVariant;
using Zentor::JSON::JSONWrapper;

extern "C" {
JSONObj* zentor_module_CreateJSONObj(unsigned int typeId, IContext* context);
unsigned int zentor_module_CreateEmptyObject(int, IVariant**, IVariant*, Zentor::IModuleInfo*,
                                             IContext*);
unsigned int zentor_module_StringToJson(int, IVariant**, IVariant*, Zentor::IModuleInfo*,
                                        IContext*);
unsigned int zentor_module_JsonToString(int, IVariant**, IVariant*, Zentor::IModuleInfo*,
                                        IContext*);
}

namespace {

constexpr unsigned int kJSONTypeId = 21;

class FakeVariant final : public Zentor::InterfaceImpl<IVariant> {
 public:
  explicit FakeVariant(unsigned int kind) : fKind(kind) {}
  unsigned int Interface_GetType() const override { return fKind; }
  const char* Interface_GetString() const override { return fText.c_str(); }
  unsigned long long Interface_GetStringSize() const override { return fText.size(); }
  bool Interface_GetBoolean() const override { return fBool; }
  double Interface_GetNumber() const override { return 0; }
  IUserDefinedType* Interface_GetUserDefined() const override { return fObject.get(); }
  Zentor::IDataRef* Interface_GetData() const override { return nullptr; }
  Zentor::IVectorGeneric* Interface_GetVector() const override { return nullptr; }
  void Interface_AssignString(const char* text, unsigned long long size) override {
    fKind = Zentor::kTypeString;
    fText.assign(text ? text : "", text ? size : 0);
  }
  void Interface_AssignBoolean(bool value) override { fKind = Zentor::kTypeBoolean, fBool = value; }
  void Interface_AssignNumber(double) override {}
  void Interface_SetUserDefined(IUserDefinedType* object) override {
    fObject = AutoRefPtr<IUserDefinedType>(object, Zentor::kAddRef);
    if (object) fKind = object->GetType();
  }
  void Interface_AssignData(Zentor::IDataRef*) override {}
  void Interface_AssignVector(const Zentor::IVectorGeneric*) override {}

 private:
  unsigned int fKind;
  std::string fText;
  bool fBool = false;
  AutoRefPtr<IUserDefinedType> fObject;
};

// A "JSON" value of another implementation: it keeps text and does not
// answer the in-process handle.
class ForeignJSON : public Zentor::CustomType<ForeignJSON> {
 public:
  ForeignJSON(unsigned int typeId, IContext*) : CustomType(typeId, "JSON") {}
  std::string fText = "null";
};

unsigned int StoreForeign(IVariant* result, std::string text) {
  AutoRefPtr<ForeignJSON> object(new ForeignJSON(kJSONTypeId, nullptr));
  object->fText = std::move(text);
  result->SetUserDefined(object.get());
  return 0;
}
unsigned int ForeignCreateEmpty(int, IVariant**, IVariant* result, Zentor::IModuleInfo*,
                                IContext*) {
  return StoreForeign(result, "{}");
}
unsigned int ForeignFromString(int, IVariant** args, IVariant* result, Zentor::IModuleInfo*,
                               IContext*) {
  return StoreForeign(result, args[0]->GetStdString());
}
unsigned int ForeignToString(int, IVariant** args, IVariant* result, Zentor::IModuleInfo*,
                             IContext*) {
  result->AssignString(dynamic_cast<ForeignJSON*>(args[0]->GetUserDefinedPtr())->fText);
  return 0;
}

unsigned int gStatus = 0;
// A callee that refuses its argument with gStatus and stores nothing.
unsigned int Refusing(int, IVariant**, IVariant*, Zentor::IModuleInfo*, IContext*) {
  return gStatus;
}

struct Report {
  int severity;
  std::string source, code, message;
};

class FakeContext final : public Zentor::InterfaceImpl<IContext> {
 public:
  enum Host { kThisModule, kForeignModule, kNoFunctions };
  explicit FakeContext(Host host = kThisModule) {
    static unsigned long long sNextInstance = 1000;
    fInstanceId = ++sNextInstance;  // every fake host is a new instance
    if (host == kThisModule) {
      fFunctions = {{"JSON.CreateEmptyObject", zentor_module_CreateEmptyObject},
                    {"JSON.FromString", zentor_module_StringToJson},
                    {"ToString", zentor_module_JsonToString}};
    } else if (host == kForeignModule) {
      fForeign = true;
      fFunctions = {{"JSON.CreateEmptyObject", ForeignCreateEmpty},
                    {"JSON.FromString", ForeignFromString},
                    {"ToString", ForeignToString}};
    }
  }

  void Interface_TriggerErrorHandler(int severity, const char* source, const char* code,
                                     const char* message, unsigned long long size) override {
    fReports.push_back({severity, source, code, std::string(message, size)});
    fError = std::string(message, size);
  }
  bool Interface_HasError() const override { return !fError.empty(); }
  unsigned long long Interface_GetErrorMessage(char* buffer,
                                               unsigned long long size) const override {
    return Text(fError, buffer, size);
  }
  void Interface_ClearError() override { fError.clear(); }
  void Interface_ErrorLog(const char* tag, const char* message) override {
    fErrorLog.push_back(std::string(tag) + ": " + message);
  }
  void Interface_DebugLog(const char* source, int level, const char* message) override {
    fDebugLog.push_back(std::string(source) + "/" + std::to_string(level) + ": " + message);
  }
  unsigned long long Interface_PrintCallStack(char* buffer,
                                              unsigned long long size) const override {
    return Text("main:1", buffer, size);
  }
  unsigned int Interface_FindType(const char* name) const override {
    return fRegistered && std::string(name) == "JSON" ? kJSONTypeId : Zentor::kTypeInvalid;
  }
  IVariant* Interface_CreateInstance(unsigned int typeId) override {
    if (typeId != kJSONTypeId) return new FakeVariant(typeId);
    auto* variant = new FakeVariant(typeId);
    AutoRefPtr<IUserDefinedType> object(
        fForeign ? static_cast<IUserDefinedType*>(new ForeignJSON(typeId, this))
                 : zentor_module_CreateJSONObj(typeId, this));
    variant->SetUserDefined(object.get());
    return variant;
  }
  Zentor::IVectorGeneric* Interface_CreateVector(unsigned int) override { return nullptr; }
  Zentor::ZentorFunction Interface_GetFunction(const char* name, unsigned int, const char* const*,
                                               Zentor::IModuleInfo** info, unsigned char) override {
    ++fLookups;
    if (info) *info = nullptr;
    auto found = fFunctions.find(name);
    return found == fFunctions.end() ? nullptr : found->second;
  }
  unsigned long long Interface_GetZentorInstanceId() const override { return fInstanceId; }
  bool Interface_IsInterrupted() const override { return fInterrupted; }

  std::map<std::string, Zentor::ZentorFunction> fFunctions;
  std::vector<Report> fReports;
  std::vector<std::string> fErrorLog, fDebugLog;
  std::string fError;
  unsigned long long fInstanceId;
  int fLookups = 0;
  bool fForeign = false, fRegistered = true, fInterrupted = false;

 private:
  static unsigned long long Text(const std::string& text, char* buffer, unsigned long long size) {
    if (text.size() + 1 <= size) std::memcpy(buffer, text.c_str(), text.size() + 1);
    return text.size() + 1;
  }
};

// An IJSON of another implementation, which answers nothing.
// clang-format off
class ForeignIJSON final : public Zentor::InterfaceImpl<IJSON> {
  using U64 = unsigned long long;
  using UC = unsigned char;
  using CS = const char*;
 public:
  static AutoRefPtr<IJSON> Make() { return AutoRefPtr<IJSON>(new ForeignIJSON()); }
  bool Interface_Parse(CS) override { return false; }
  bool Interface_LessThan(const IJSON*) const override { return false; }
  bool Interface_Equals(const IJSON*) const override { return false; }
  U64 Interface_ToString(CS, char*, U64) const override { return 0; }
  U64 Interface_ToCachedString(CS, char*, U64) override { return 0; }
  IJSON* Interface_FindNodePath(CS) const override { return nullptr; }
  IJSON* Interface_ElementMatchingString(CS, CS) const override { return nullptr; }
  IJSON* Interface_ElementMatchingDouble(CS, double) const override { return nullptr; }
  U64 Interface_Size() const override { return 0; }
  bool Interface_Empty() const override { return true; }
  U64 Interface_GetString(CS, char*, U64, UC*) const override { return 0; }
  bool Interface_GetDouble(CS, double*) const override { return false; }
  bool Interface_GetInt(CS, int*) const override { return false; }
  bool Interface_GetUInt(CS, unsigned*) const override { return false; }
  bool Interface_GetInt64(CS, long long*) const override { return false; }
  bool Interface_GetUInt64(CS, U64*) const override { return false; }
  bool Interface_GetBoolean(CS, UC*) const override { return false; }
  IJSON* Interface_Get(CS) const override { return nullptr; }
  bool Interface_Has(CS) const override { return false; }
  IJSON* Interface_At(U64) const override { return nullptr; }
  bool Interface_PushBackBool(UC) override { return false; }
  bool Interface_PushBackString(CS) override { return false; }
  bool Interface_PushBackDouble(double) override { return false; }
  bool Interface_PushBackJSON(const IJSON*) override { return false; }
  IJSON* Interface_RemoveIndex(U64) override { return nullptr; }
  IJSON* Interface_RemoveKey(CS) override { return nullptr; }
  bool Interface_AsBool(UC*) const override { return false; }
  bool Interface_AsDouble(double*) const override { return false; }
  bool Interface_AsInt(int*) const override { return false; }
  bool Interface_AsUInt(unsigned*) const override { return false; }
  bool Interface_AsInt64(long long*) const override { return false; }
  bool Interface_AsUInt64(U64*) const override { return false; }
  U64 Interface_AsString(char*, U64, UC*) const override { return 0; }
  bool Interface_IsNull() const override { return true; }
  bool Interface_IsBool() const override { return false; }
  bool Interface_IsNumber() const override { return false; }
  bool Interface_IsDouble() const override { return false; }
  bool Interface_IsInt() const override { return false; }
  bool Interface_IsUInt() const override { return false; }
  bool Interface_IsInt64() const override { return false; }
  bool Interface_IsUInt64() const override { return false; }
  bool Interface_IsString() const override { return false; }
  bool Interface_IsArray() const override { return false; }
  bool Interface_IsObject() const override { return false; }
  bool Interface_SetBool(CS, UC) override { return false; }
  bool Interface_SetDouble(CS, double) override { return false; }
  bool Interface_SetInt(CS, int) override { return false; }
  bool Interface_SetUInt(CS, unsigned) override { return false; }
  bool Interface_SetInt64(CS, long long) override { return false; }
  bool Interface_SetUInt64(CS, U64) override { return false; }
  bool Interface_SetString(CS, CS) override { return false; }
  bool Interface_SetJSON(CS, const IJSON*) override { return false; }
  bool Interface_SetNull(CS) override { return false; }
  bool Interface_ReplaceIndex(U64, const IJSON*) override { return false; }
  bool Interface_ForEach(ForEachCallback, void*) const override { return false; }
  bool Interface_ForEach(ForEachErrorCallback, void*, char*, unsigned) const override { return false; }
  bool Interface_ForEach(ForEachContextCallback, void*, IContext*) const override { return false; }
  IJSON* Interface_Clone() const override { return nullptr; }
  U64 Interface_SerializedSize() override { return 0; }
  U64 Interface_Deserialize(CS, U64) override { return kInvalidSize; }
  U64 Interface_Serialize(char*, U64) override { return kInvalidSize; }
  Status Interface_GetErrorStatus() const override { return kStatusNone; }
  U64 Interface_GetErrorMessage(char*, U64, UC*) const override { return 1; }
};
// clang-format on

AutoRefPtr<JSONWrapper> Doc(const char* text) {
  AutoRefPtr<JSONWrapper> doc = JSONWrapper::Create(text);
  EXPECT_TRUE(doc) << text;
  return doc;
}

std::string Text(const IJSON& json) {
  return json.ToString();
}

JSONObj* AsJSONObj(const AutoRefPtr<IUserDefinedType>& object) {
  return dynamic_cast<JSONObj*>(object.get());
}

// Every path through a foreign "JSON" implementation lives in this one test,
// because the effectivity warning is logged once per process.
TEST(Wrapper, ForeignHostTypeFallsBackToTextAndWarnsOnce) {
  JSONWrapper::ShowEffectivityWarning(nullptr);  // neither logs nor uses the warning up
  FakeContext first(FakeContext::kForeignModule), second(FakeContext::kForeignModule);
  AutoRefPtr<ForeignJSON> foreign(new ForeignJSON(kJSONTypeId, &first));
  foreign->fText = R"({"b":1,"a":[true]})";

  AutoRefPtr<JSONWrapper> wrapper =
      JSONWrapper::FromJSONObj(AutoRefPtr<IUserDefinedType>(foreign), &first);
  ASSERT_TRUE(wrapper);
  EXPECT_EQ(Text(*wrapper), R"({"b":1,"a":[true]})");
  ASSERT_EQ(first.fErrorLog.size(), 1u);
  EXPECT_EQ(first.fErrorLog[0],
            "JSONWrapper: JSON module implementation is not compatible with JSONWrapper "
            "implementation, leading "
            "to performance inefficiencies.");

  JsonAutoRefPtr<JsonValue> value =
      JSONWrapper::JSONObjToMJson(AutoRefPtr<IUserDefinedType>(foreign), &second);
  ASSERT_TRUE(value);
  EXPECT_EQ(value->GetAsString(), R"({"b":1,"a":[true]})");

  AutoRefPtr<IUserDefinedType> back = JSONWrapper::ToJSONObj(wrapper, &second);
  ASSERT_TRUE(dynamic_cast<ForeignJSON*>(back.get()));
  EXPECT_EQ(dynamic_cast<ForeignJSON*>(back.get())->fText, R"({"b":1,"a":[true]})");
  EXPECT_TRUE(second.fErrorLog.empty());
  EXPECT_EQ(first.fErrorLog.size(), 1u);
}

TEST(Wrapper, OwnHostTypeSharesTheRootThroughTheHandle) {
  FakeContext ctx;
  AutoRefPtr<JSONWrapper> wrapper = Doc(R"({"a":1})");
  AutoRefPtr<IUserDefinedType> object = JSONWrapper::ToJSONObj(wrapper, &ctx);
  ASSERT_TRUE(AsJSONObj(object));
  EXPECT_EQ(AsJSONObj(object)->fRoot.get(), JSONWrapper::ToMJson(wrapper.get()).get());
  wrapper->SetInt("b", 2);  // in place, seen by the host value
  EXPECT_EQ(AsJSONObj(object)->fRoot->GetAsString(), R"({"a":1,"b":2})");

  AutoRefPtr<JSONWrapper> again = JSONWrapper::FromJSONObj(object, &ctx);
  EXPECT_EQ(JSONWrapper::ToMJson(again.get()).get(), AsJSONObj(object)->fRoot.get());
  EXPECT_EQ(JSONWrapper::JSONObjToMJson(object, &ctx).get(), AsJSONObj(object)->fRoot.get());
  EXPECT_TRUE(ctx.fErrorLog.empty());
  EXPECT_TRUE(ctx.fReports.empty());

  // A foreign IJSON is neither cloned, nor unwrapped, nor converted.
  AutoRefPtr<IJSON> foreign = ForeignIJSON::Make();
  EXPECT_FALSE(JSONWrapper::CloneJSON(foreign));
  EXPECT_FALSE(JSONWrapper::ToMJson(foreign));
  AutoRefPtr<IUserDefinedType> empty = JSONWrapper::ToJSONObj(foreign, &ctx);
  ASSERT_TRUE(AsJSONObj(empty));
  EXPECT_EQ(AsJSONObj(empty)->fRoot->GetAsString(), "{}");
}

TEST(Imports, CallTheHostAndDecodeFailures) {
  FakeContext ctx;
  JSONObjPtr parsed = JSON_FromString(R"({"k":[1]})", &ctx);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(JSON_ToString(parsed, &ctx), R"({"k":[1]})");
  EXPECT_EQ(AsJSONObj(JSON_CreateEmptyObject(&ctx).Get())->fRoot->GetAsString(), "{}");
  EXPECT_TRUE(ctx.fReports.empty());

  struct Case {
    unsigned int status;
    std::string message;
  };
  const Case cases[] = {
      {65538, "invalid parameter 1 in function 'JSON.FromString'"},
      {(2u << 16) | 4u, "invalid object used for parameter 2 in function 'JSON.FromString'"},
      {(1u << 16) | 1u, "runtime error from function 'JSON.FromString'"},
  };
  for (const Case& c : cases) {
    FakeContext refusing;
    refusing.fFunctions["JSON.FromString"] = Refusing;
    gStatus = c.status;
    JSONObjPtr result = JSON_FromString("1", &refusing);
    ASSERT_EQ(refusing.fReports.size(), 1u);
    EXPECT_EQ(refusing.fReports[0].code, "Error.Zentor.InvalidArgument");
    EXPECT_EQ(refusing.fReports[0].source, "Zentor");
    EXPECT_EQ(refusing.fReports[0].message, c.message);
    // Nothing stored: a fresh empty "JSON" value rather than an empty handle.
    ASSERT_TRUE(AsJSONObj(result.Get()));
    EXPECT_EQ(AsJSONObj(result.Get())->fRoot->Type(), JsonValue::Null);
  }
}

TEST(Imports, MissingFunctionsTroubledContextsAndInstanceChanges) {
  FakeContext bare(FakeContext::kNoFunctions);
  EXPECT_FALSE(JSON_FromString("1", &bare));
  EXPECT_EQ(JSON_ToString(JSONObjPtr(), &bare), "");
  ASSERT_EQ(bare.fReports.size(), 2u);
  EXPECT_EQ(bare.fReports[0].code, "Error.Zentor.InvalidFunction");
  EXPECT_EQ(
      bare.fReports[0].message,
      "Imported Zentor function JSON.FromString (imported as JSON_FromString) doesn't exist!");
  EXPECT_EQ(bare.fReports[1].message,
            "Imported Zentor function ToString (imported as JSON_ToString) doesn't exist!");

  FakeContext ctx;
  ctx.fError = "earlier";
  ctx.fInterrupted = true;
  EXPECT_TRUE(JSON_CreateEmptyObject(&ctx));  // the call still goes ahead
  ASSERT_EQ(ctx.fDebugLog.size(), 2u);
  EXPECT_EQ(ctx.fDebugLog[0],
            "Zentor/0: Error calling imported Zentor function JSON.CreateEmptyObject (imported as "
            "JSON_CreateEmptyObject), context has error \"earlier\", backtrace: main:1");
  EXPECT_EQ(ctx.fDebugLog[1],
            "Zentor/0: Error calling imported Zentor function JSON.CreateEmptyObject (imported as "
            "JSON_CreateEmptyObject), context is already interrupted, backtrace: main:1");

  // One lookup per host instance.
  EXPECT_EQ(ctx.fLookups, 1);
  JSON_CreateEmptyObject(&ctx);
  EXPECT_EQ(ctx.fLookups, 1);
  ++ctx.fInstanceId;
  JSON_CreateEmptyObject(&ctx);
  EXPECT_EQ(ctx.fLookups, 2);
}

TEST(ImportsDeathTest, AssertionsEndTheProcess) {
  EXPECT_DEATH(JSON_CreateEmptyObject(nullptr),
               "JSONWrapper.cpp:22: JSON_CreateEmptyObject: Assertion `ctx' failed");
  EXPECT_DEATH(JSON_FromString("1", nullptr),
               "JSONWrapper.cpp:23: JSON_FromString: Assertion `ctx' failed");
  EXPECT_DEATH(JSON_ToString(JSONObjPtr(), nullptr),
               "JSONWrapper.cpp:24: JSON_ToString: Assertion `ctx' failed");
  FakeContext unregistered;
  unregistered.fRegistered = false;
  unregistered.fFunctions["JSON.FromString"] = Refusing;
  EXPECT_DEATH(JSON_FromString("1", &unregistered),
               "CreateUserDefinedType: Assertion `id != ::Zentor::kTypeInvalid' failed");
}

TEST(Wrapper, StartTypesTextAndCopies) {
  EXPECT_TRUE(JSONWrapper::CreateNull()->IsNull());
  EXPECT_EQ(Text(*JSONWrapper::Create()), "{}");
  EXPECT_EQ(Text(*JSONWrapper::CreateEmptyArray()), "[]");
  for (const char* bad : {"", "{"}) EXPECT_FALSE(JSONWrapper::Create(bad)) << bad;
  EXPECT_FALSE(JSONWrapper::Create(static_cast<const char*>(nullptr)));

  JSONWrapper original(JSONWrapper::kStartObject);
  JSONWrapper copy(original);
  JSONWrapper shared(JSONWrapper::kStartNull);
  shared = original;
  copy.SetInt("copy", 1);
  shared.SetInt("shared", 2);
  EXPECT_EQ(Text(original), R"({"shared":2})");
  EXPECT_EQ(Text(copy), R"({"copy":1})");
  AutoRefPtr<IJSON> clone = original.Clone();
  clone->SetInt("clone", 3);
  EXPECT_EQ(Text(original), R"({"shared":2})");

  EXPECT_FALSE(original.Parse("{\n\"a\":}"));
  EXPECT_EQ(original.GetErrorStatus(), IJSON::kStatusError);
  EXPECT_EQ(original.GetErrorMessage().rfind("JSON parse error in line 1: ", 0), 0u)
      << original.GetErrorMessage();
  EXPECT_EQ(Text(original), R"({"shared":2})");  // unchanged, and the read clears the error
  EXPECT_EQ(original.GetErrorStatus(), IJSON::kStatusNone);
}

TEST(Wrapper, BufferProtocols) {
  AutoRefPtr<JSONWrapper> doc = Doc(R"({"s":"abc"})");
  AutoRefPtr<JSONWrapper> text = Doc(R"("abc")");
  using U64 = unsigned long long;
  using Slot = std::function<U64(char*, U64, unsigned char*)>;
  struct Case {
    const char* what;
    Slot call;
    U64 size, needed;
    bool copied;
    unsigned char complete;
  };
  const Slot toString = [&](char* b, U64 n, unsigned char*) {
    return doc->Interface_ToString("", b, n);
  };
  const Slot getString = [&](char* b, U64 n, unsigned char* c) {
    return doc->Interface_GetString("s", b, n, c);
  };
  const Slot asString = [&](char* b, U64 n, unsigned char* c) {
    return text->Interface_AsString(b, n, c);
  };
  const Slot message = [&](char* b, U64 n, unsigned char* c) {
    int unused = 0;
    text->GetInt("k", unused);  // not an object: an error message of 70 bytes
    return text->Interface_GetErrorMessage(b, n, c);
  };
  const Case cases[] = {
      {"ToString", toString, 11, 12, false, 7},
      {"ToString", toString, 12, 12, true, 7},
      // GetString sets the flag before its size test and copies a text of
      // exactly `size` bytes, with its zero byte at index `size`.
      {"GetString", getString, 2, 4, false, 1},
      {"GetString", getString, 3, 4, true, 1},
      {"AsString", asString, 3, 4, false, 0},
      {"AsString", asString, 4, 4, true, 1},
      {"GetErrorMessage", message, 70, 71, false, 0},
      {"GetErrorMessage", message, 71, 71, true, 1},
  };
  for (const Case& c : cases) {
    char buffer[80];
    std::memset(buffer, 'x', sizeof buffer);
    unsigned char complete = 7;
    EXPECT_EQ(c.call(buffer, c.size, &complete), c.needed) << c.what << c.size;
    EXPECT_EQ(complete, c.complete) << c.what << c.size;
    EXPECT_EQ(buffer[c.needed - 1] == '\0', c.copied) << c.what << c.size;
  }
}

TEST(Wrapper, LengthPrefixedSerialisation) {
  AutoRefPtr<JSONWrapper> doc = JSONWrapper::Create();
  const std::string expected("\x02\0\0\0\0\0\0\0{}", 10);
  EXPECT_EQ(doc->SerializedSize(), 10u);
  char buffer[16];
  EXPECT_EQ(doc->Serialize(buffer, 9), IJSON::kInvalidSize);
  EXPECT_EQ(doc->Serialize(buffer, 10), 10u);
  EXPECT_EQ(std::string(buffer, 10), expected);

  struct Case {
    std::string bytes;
    unsigned long long result;
  };
  const Case cases[] = {
      {expected, 10},
      {expected + "tail", 10},
      {expected.substr(0, 7), IJSON::kInvalidSize},
      {expected.substr(0, 9), IJSON::kInvalidSize},  // shorter than its prefix says
      {std::string("\x02\0\0\0\0\0\0\0{]", 10), IJSON::kInvalidSize},
  };
  for (const Case& c : cases) {
    AutoRefPtr<JSONWrapper> target = JSONWrapper::CreateNull();
    EXPECT_EQ(target->Deserialize(c.bytes.data(), c.bytes.size()), c.result) << c.bytes;
    EXPECT_EQ(Text(*target), c.result == 10 ? "{}" : "null");
  }
}

TEST(Wrapper, TypedMemberReads) {
  AutoRefPtr<JSONWrapper> doc = Doc(
      R"({"i":-5,"big":3000000000,"s":"x","r":2.5,"b":true,"n":null,"u":18446744073709551615})");
  struct Case {
    const char* key;
    const char* kind;
    bool ok;
    std::string warning;
  };
  const Case cases[] = {
      {"i", "int", true, ""},
      {"big", "int", false, "Member 'big' is no integer"},
      {"s", "int", false, "Member 's' is no 32 bit integer"},
      {"i", "uint", false, "Member 'i' is no 32 bit unsigned integer"},
      {"big", "uint", true, ""},
      {"big", "int64", true, ""},
      {"u", "int64", false, "Member 'u' is no integer"},
      {"i", "uint64", false, "Member 'i' is no unsigned integer"},
      {"r", "double", true, ""},
      {"s", "double", false, "Member 's' is no double"},
      {"b", "bool", true, ""},
      {"n", "bool", false, "Member 'n' is no boolean"},
      {"zz", "int", false, "Could not find member 'zz'"},
  };
  for (const Case& c : cases) {
    const std::string kind = c.kind;
    int i = 7;
    unsigned int u = 7;
    long long i64 = 7;
    unsigned long long u64 = 7;
    double d = 7;
    bool b = false;
    const bool ok = kind == "int"      ? doc->GetInt(c.key, i)
                    : kind == "uint"   ? doc->GetUInt(c.key, u)
                    : kind == "int64"  ? doc->GetInt64(c.key, i64)
                    : kind == "uint64" ? doc->GetUInt64(c.key, u64)
                    : kind == "double" ? doc->GetDouble(c.key, d)
                                       : doc->GetBoolean(c.key, b);
    EXPECT_EQ(ok, c.ok) << c.key << " " << kind;
    EXPECT_EQ(doc->GetErrorStatus(), c.ok ? IJSON::kStatusNone : IJSON::kStatusWarning)
        << c.key << " " << kind;
    EXPECT_EQ(doc->GetErrorMessage(), c.warning) << c.key << " " << kind;
  }
  int out = 7;
  EXPECT_FALSE(doc->GetInt("big", out));
  EXPECT_EQ(out, 0);  // out of range gives 0, not a clamped value

  AutoRefPtr<JSONWrapper> array = Doc("[1]");
  EXPECT_FALSE(array->GetInt("k", out));
  EXPECT_EQ(array->GetErrorStatus(), IJSON::kStatusError);
  EXPECT_EQ(array->GetErrorMessage(),
            "Error while searching member 'k'. Type is Array but should be Object.");
  std::string text;
  EXPECT_FALSE(doc->GetString("zz", text));
  EXPECT_EQ(doc->GetErrorMessage(), "Could not find member 'zz'.");
}

TEST(Wrapper, SettersPromoteNullAndCheckUTF8) {
  AutoRefPtr<JSONWrapper> doc = JSONWrapper::CreateNull();
  EXPECT_TRUE(doc->SetInt("k", 1));
  EXPECT_TRUE(doc->SetString("s", "v"));
  EXPECT_TRUE(doc->SetUInt64("u", 18446744073709551615ull));
  EXPECT_TRUE(doc->SetInt("k", 2));  // replaces in place
  AutoRefPtr<JSONWrapper> sub = Doc("[1]");
  EXPECT_TRUE(doc->SetJSON("j", sub.get()));
  sub->PushBackBool(true);  // stored as a copy
  EXPECT_EQ(Text(*doc), R"({"k":2,"s":"v","u":18446744073709551615,"j":[1]})");

  struct Case {
    const char* doc;
    const char* key;
    const char* value;
    std::string error;
  };
  const Case cases[] = {
      {"[]", "k", "v", "Can't set key/value pair into JSON, JSON element is not a JSON object"},
      {"{}", nullptr, "v", "Can't set key/value pair into JSON"},
      {"{}", "\xC3", nullptr,
       "Can't set key/value pair into JSON, JSON key is not a valid UTF8-string"},
      {"{}", "k", "\xFF",
       "Can't set key/value pair into JSON, value for key \"k\" key and/or value is not a valid "
       "UTF8-string"},
  };
  for (const Case& c : cases) {
    AutoRefPtr<JSONWrapper> target = Doc(c.doc);
    const bool ok = c.value ? target->SetString(c.key, c.value) : target->SetNull(c.key);
    EXPECT_FALSE(ok) << c.error;
    EXPECT_EQ(target->GetErrorStatus(), IJSON::kStatusError) << c.error;
    EXPECT_EQ(target->GetErrorMessage(), c.error);
    EXPECT_EQ(Text(*target), c.doc);
  }
}

TEST(Wrapper, ArrayOperationsAndTheirMessages) {
  AutoRefPtr<JSONWrapper> array = Doc(R"([{"id":"x"},5,{"id":2.0}])");
  AutoRefPtr<JSONWrapper> object = Doc(R"({"a":1})");
  AutoRefPtr<JSONWrapper> item = Doc("true");
  struct Case {
    const char* what;
    const IJSON* target;
    std::function<bool()> call;
    bool ok;
    IJSON::Status status;
    std::string message;
  };
  const Case cases[] = {
      {"At on object", object.get(), [&] { return bool(object->At(0)); }, false, IJSON::kStatusNone,
       ""},
      {"At past end", array.get(), [&] { return bool(array->At(3)); }, false, IJSON::kStatusError,
       "Index is out of bounds"},
      {"push null text", array.get(),
       [&] { return array->PushBackString(static_cast<const char*>(nullptr)); }, false,
       IJSON::kStatusWarning, "Couldn't push back invalid value to JSON array"},
      {"push bool to object", object.get(), [&] { return object->PushBackBool(true); }, false,
       IJSON::kStatusWarning, "Couldn't push back to JSON array, JSON object is not an array"},
      {"push JSON to object", object.get(), [&] { return object->PushBackJSON(item.get()); }, false,
       IJSON::kStatusWarning, "JSON object is not an array"},
      {"push foreign JSON", array.get(),
       [&] { return array->PushBackJSON(ForeignIJSON::Make().get()); }, false, IJSON::kStatusNone,
       ""},
      {"remove past end", array.get(), [&] { return bool(array->RemoveIndex(5)); }, false,
       IJSON::kStatusWarning, "Couldn't remove element at position 5"},
      {"remove index of object", object.get(), [&] { return bool(object->RemoveIndex(0)); }, false,
       IJSON::kStatusWarning, "Couldn't remove element at position 0, JSON object is not an array"},
      {"remove missing key", object.get(), [&] { return bool(object->RemoveKey("x")); }, false,
       IJSON::kStatusWarning, "Couldn't remove element with key x"},
      {"remove key of array", array.get(), [&] { return bool(array->RemoveKey("x")); }, false,
       IJSON::kStatusWarning, "Couldn't remove element with key x, JSON object is not an object"},
      {"match in object", object.get(),
       [&] { return bool(object->ElementMatchingString("a", "1")); }, false, IJSON::kStatusWarning,
       "JSON object is not an array"},
      {"match without hit", array.get(),
       [&] { return bool(array->ElementMatchingString("id", "y")); }, false, IJSON::kStatusNone,
       ""},
      {"Get on array", array.get(), [&] { return bool(array->Get("a")); }, false,
       IJSON::kStatusError,
       "Error while searching member 'a'. Type is Array but should be Object."},
      {"Get missing member", object.get(), [&] { return bool(object->Get("b")); }, false,
       IJSON::kStatusNone, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.call(), c.ok) << c.what;
    EXPECT_EQ(c.target->GetErrorStatus(), c.status) << c.what;
    EXPECT_EQ(c.target->GetErrorMessage(), c.message) << c.what;
  }
  EXPECT_EQ(Text(*array), R"([{"id":"x"},5,{"id":2.0}])");

  EXPECT_EQ(Text(*array->ElementMatchingString("id", "x")), R"({"id":"x"})");
  EXPECT_EQ(Text(*array->ElementMatchingDouble("id", 2)), R"({"id":2.0})");
  EXPECT_TRUE(array->Has("5"));
  array->At(0)->SetInt("n", 1);                   // element wrappers share the element
  ASSERT_TRUE(array->PushBackJSON(array.get()));  // a copy of itself, not a cycle
  ASSERT_TRUE(array->ReplaceIndex(1, item.get()));
  EXPECT_TRUE(array->ReplaceIndex(99, item.get()));  // nothing stored, still true
  EXPECT_EQ(JSONWrapper::ToMJson(array->At(1)).get(), JSONWrapper::ToMJson(item.get()).get());
  EXPECT_EQ(Text(*array->RemoveIndex(0)), R"({"id":"x","n":1})");
  EXPECT_EQ(Text(*array), R"([true,{"id":2.0},[{"id":"x","n":1},5,{"id":2.0}]])");
}

TEST(Wrapper, FindNodePath) {
  AutoRefPtr<JSONWrapper> doc = Doc(R"({"a":[{"b":1}],"s":"x","":{"c":2}})");
  struct Case {
    const char* path;
    std::string found;
    IJSON::Status status;
    std::string message;
  };
  const Case cases[] = {
      {"a/0/b", "1", IJSON::kStatusNone, ""},
      {"/a/0/b", "1", IJSON::kStatusNone, ""},
      {"a/0/", R"({"b":1})", IJSON::kStatusNone, ""},
      {"", R"({"a":[{"b":1}],"s":"x","":{"c":2}})", IJSON::kStatusNone, ""},
      {"//c", "2", IJSON::kStatusNone, ""},
      {"a/x", "", IJSON::kStatusWarning, "Couldn't find JSON node, array index is not a number"},
      {"a/-1", "", IJSON::kStatusWarning, "Couldn't find JSON node, array index is not a number"},
      {"a/1", "", IJSON::kStatusWarning, "Couldn't find JSON node, array index out of bounds"},
      {"s/q", "", IJSON::kStatusWarning, "Couldn't find JSON node, JSON subnode not found"},
      {"zz", "", IJSON::kStatusWarning, "Couldn't find JSON node, JSON subnode not found"},
  };
  for (const Case& c : cases) {
    AutoRefPtr<IJSON> node = doc->FindNodePath(c.path);
    EXPECT_EQ(node ? Text(*node) : "", c.found) << c.path;
    EXPECT_EQ(doc->GetErrorStatus(), c.status) << c.path;
    EXPECT_EQ(doc->GetErrorMessage(), c.message) << c.path;
  }
}

struct Walk {
  std::vector<std::string> keys;
  size_t stopAt = 1000;
  bool writeError = true;
};

unsigned char Plain(const char* key, const IJSON*, void* user) {
  auto* walk = static_cast<Walk*>(user);
  walk->keys.push_back(key);
  return walk->keys.size() < walk->stopAt;
}

unsigned char WithBuffer(const char* key, const IJSON* value, void* user, char* error,
                         unsigned int size) {
  auto* walk = static_cast<Walk*>(user);
  walk->keys.push_back(key);
  if (walk->writeError) std::snprintf(error, size, "bad %s", Text(*value).c_str());
  return key[0] == 'o';  // members named o... succeed
}

unsigned char WithContext(const char* key, const IJSON*, void* user, IContext* context) {
  static_cast<Walk*>(user)->keys.push_back(key);
  if (context) context->TriggerErrorHandler(Zentor::ErrorSeverity::Error, "T", "C", key);
  return 0;
}

TEST(Wrapper, ForEachOverloads) {
  Walk plain;
  EXPECT_TRUE(Doc(R"({"b":1,"a":2})")->ForEach(Plain, &plain));
  EXPECT_EQ(plain.keys, (std::vector<std::string>{"b", "a"}));
  Walk stopped{{}, 2};
  EXPECT_FALSE(Doc("[1,2,3]")->ForEach(Plain, &stopped));
  EXPECT_EQ(stopped.keys, (std::vector<std::string>{"0", "1"}));
  EXPECT_FALSE(Doc("3")->ForEach(Plain, &plain));

  // Errors go on collecting after a failed member; the walk stops at 20.
  std::string many = R"({"ok":0)";
  for (int i = 0; i < 25; ++i) many += ",\"e" + std::to_string(i) + "\":" + std::to_string(i);
  AutoRefPtr<JSONWrapper> doc = Doc((many + "}").c_str());
  Walk collect;
  char errors[4096] = "";
  EXPECT_FALSE(doc->ForEach(WithBuffer, &collect, errors, sizeof errors));
  EXPECT_EQ(collect.keys.size(), 21u);
  EXPECT_EQ(
      std::string(errors).rfind("Item '2' has error 'bad 0', Item '3' has error 'bad 1', ", 0), 0u);
  EXPECT_NE(std::string(errors).find("Item '21' has error 'bad 19'"), std::string::npos);
  for (char* buffer : {static_cast<char*>(nullptr), errors}) {
    Walk silent{{}, 1000, buffer == nullptr};
    EXPECT_FALSE(doc->ForEach(WithBuffer, &silent, buffer, sizeof errors));
    EXPECT_EQ(silent.keys.size(), 2u);  // no buffer, or no text: stop at the first failure
  }

  FakeContext ctx;
  Walk reported;
  EXPECT_FALSE(doc->ForEach(WithContext, &reported, &ctx));
  EXPECT_EQ(reported.keys.size(), 20u);
  ASSERT_EQ(ctx.fReports.size(), 21u);
  const Report& summary = ctx.fReports.back();
  EXPECT_EQ(summary.code, "Error.Zentor.FunctionError");
  EXPECT_EQ(summary.message.rfind("Item '1' has error 'ok', Item '2' has error 'e0', ", 0), 0u);
  EXPECT_NE(summary.message.find("Item '20' has error 'e18'"), std::string::npos);
}

// Another implementation's document is refused wherever one is taken; only
// SetJSON reports why.
TEST(Wrapper, ForeignDocumentsAreRefused) {
  const AutoRefPtr<IJSON> foreign = ForeignIJSON::Make();
  AutoRefPtr<JSONWrapper> object = Doc("{}");
  AutoRefPtr<JSONWrapper> array = Doc("[1]");
  struct Case {
    const char* what;
    JSONWrapper* target;
    std::function<bool()> call;
    IJSON::Status status;
  };
  const Case cases[] = {
      {"SetJSON", object.get(), [&] { return object->SetJSON("k", foreign.get()); },
       IJSON::kStatusError},
      {"PushBackJSON", array.get(), [&] { return array->PushBackJSON(foreign.get()); },
       IJSON::kStatusNone},
      {"ReplaceIndex", array.get(), [&] { return array->ReplaceIndex(0, foreign.get()); },
       IJSON::kStatusNone},
      {"Equals", array.get(), [&] { return array->Equals(foreign.get()); }, IJSON::kStatusNone},
      {"LessThan", array.get(), [&] { return array->LessThan(foreign.get()); }, IJSON::kStatusNone},
  };
  for (const Case& c : cases) {
    EXPECT_FALSE(c.call()) << c.what;
    EXPECT_EQ(c.target->GetErrorStatus(), c.status) << c.what;
  }
  EXPECT_EQ(object->GetErrorMessage(), "Can't set key/value pair into JSON");
  EXPECT_EQ(Text(*object), "{}");
  EXPECT_EQ(Text(*array), "[1]");
}

TEST(Wrapper, CompiledObjectRoots) {
  JsonCompiledObjectContext keys;
  keys.AddKey("x", 0, nullptr);
  keys.AddKey("y", 0, nullptr);
  JsonAutoRefPtr<JsonCompiledObject> compiled(new JsonCompiledObject(&keys));
  compiled->InsertInteger(0, 7LL);
  AutoRefPtr<JSONWrapper> doc = JSONWrapper::FromMJson(JsonAutoRefPtr<JsonValue>(compiled));
  EXPECT_FALSE(doc->IsObject());
  EXPECT_EQ(doc->Size(), 1u);
  EXPECT_TRUE(doc->Has("x"));
  int x = 0;
  EXPECT_TRUE(doc->GetInt("x", x));
  EXPECT_EQ(x, 7);
  Walk walk;
  EXPECT_TRUE(doc->ForEach(Plain, &walk));  // every slot, empty ones as null
  EXPECT_EQ(walk.keys, (std::vector<std::string>{"x", "y"}));
  EXPECT_FALSE(doc->SetInt("z", 1));  // compiled objects take no new members
  EXPECT_EQ(Text(*doc->RemoveKey("x")), "7");
  EXPECT_FALSE(doc->Has("x"));
}

TEST(AppendToErrorStr, AppendsWholeEntriesOnly) {
  char buffer[40] = "";
  Zentor::AppendToErrorStr(buffer, sizeof buffer, "x", 0);
  EXPECT_STREQ(buffer, "Item '1' has error 'x'");            // 22 bytes
  Zentor::AppendToErrorStr(buffer, sizeof buffer, "yy", 1);  // 24 more would overflow
  EXPECT_STREQ(buffer, "Item '1' has error 'x'");
  char small[60] = "";
  Zentor::AppendToErrorStr(small, sizeof small, "x", 0);
  Zentor::AppendToErrorStr(small, sizeof small, "y", 4);
  EXPECT_STREQ(small, "Item '1' has error 'x', Item '5' has error 'y'");
  Zentor::AppendToErrorStr(nullptr, 10, "x", 0);
  Zentor::AppendToErrorStr(small, sizeof small, nullptr, 0);
}

TEST(Wrapper, MsgPackInAndOut) {
  AutoRefPtr<JSONWrapper> doc = Doc(R"({"a":[1,true]})");
  AutoRefPtr<Zentor::IDataRef> bytes = JSONWrapper::ToMsgPack(*doc);
  EXPECT_EQ(bytes->ToString(), std::string("\x81\xA1"
                                           "a\x92\x01\xC3"));
  AutoRefPtr<JSONWrapper> back = JSONWrapper::CreateNull();
  EXPECT_TRUE(back->FromMsgPack(bytes));
  EXPECT_TRUE(back->Equals(doc.get()));

  for (const AutoRefPtr<Zentor::IDataRef>& bad :
       {NewData(std::string("\xC1")), AutoRefPtr<Zentor::IDataRef>()}) {
    AutoRefPtr<JSONWrapper> target = JSONWrapper::CreateNull();
    EXPECT_FALSE(target->FromMsgPack(bad));
    EXPECT_EQ(target->GetErrorStatus(), IJSON::kStatusError);
    EXPECT_EQ(target->GetErrorMessage(), "reading from MsgPack failed");
  }
  AutoRefPtr<JSONWrapper> failed = JSONWrapper::CreateNull();
  failed->FromMsgPack(NewData(std::string("\xC1")));
  EXPECT_FALSE(JSONWrapper::ToMJson(failed.get()));  // no root at all after a failed decode
  EXPECT_TRUE(failed->Empty());
  EXPECT_EQ(failed->Size(), 0u);
}

}  // namespace
