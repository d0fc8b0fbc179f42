// What docs/native-modules.md tells a module author, held to the JSON module
// as a module author meets it: loaded into the reference host, reached
// through the host interfaces and IJSON's non-virtual calls (ZentorSDK.h)
// alone. The guide's table of sentences names the tests here.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Host.h"
#include "HostValues.h"
#include "ZentorSDK.h"

namespace {

using Zentor::AutoRefPtr;
using Zentor::IJSON;
using Zentor::IUserDefinedType;
using Zentor::IVariant;
using Value = AutoRefPtr<IUserDefinedType>;

// The JSON module in a reference host, and the script functions a test
// calls to make and look at values as a script would.
class Author : public ::testing::Test {
 protected:
  Author() : fOut(fSink), fHost(fOut) {
    std::string error;
    fLoaded = fHost.Load("libzentor_json.so", error);
    EXPECT_TRUE(fLoaded) << error;
  }

  Zentor::IContext* Context() { return &fHost.Context(); }

  // The result of script function `name` with arguments of these words.
  AutoRefPtr<IVariant> Call(const std::string& name, const std::vector<std::string>& words,
                            std::vector<AutoRefPtr<IVariant>> args) {
    const auto overload = fHost.FindOverload(name, nullptr, words);
    if (!overload) ADD_FAILURE() << "no " << name;
    if (!overload) return nullptr;
    std::vector<IVariant*> raw;
    for (const auto& arg : args) raw.push_back(arg.get());
    AutoRefPtr<IVariant> result(zhost::MakeVariant().release());
    fHost.Call(overload->entry, overload->module, name, raw, result.get());
    return result;
  }
  static AutoRefPtr<IVariant> Holding(const Value& value) {
    AutoRefPtr<IVariant> variant(zhost::MakeVariant().release());
    variant->SetUserDefined(value.get());
    return variant;
  }
  static AutoRefPtr<IVariant> String(const std::string& text) {
    return AutoRefPtr<IVariant>(zhost::MakeString(text).release());
  }

  Value FromString(const std::string& text) {
    return Call("JSON.FromString", {"STRING"}, {String(text)})->GetUserDefined();
  }
  // What a script sees: ToString of the value.
  std::string Script(const Value& value) {
    return Call("ToString", {"JSON"}, {Holding(value)})->GetStdString();
  }
  // A new value the way the guide makes one: the JSON module's own
  // "JSON.CreateEmptyObject" or "JSON.CreateEmptyArray", looked up by name.
  Value Imported(const char* creator) {
    static const char* const kWords[] = {"JSON", ""};
    AutoRefPtr<Zentor::IModuleInfo> module;
    const auto create = Context()->GetFunction(creator, 2, kWords, &module, 1);
    AutoRefPtr<IVariant> made = Context()->CreateInstance(Zentor::kTypeInvalid);
    EXPECT_TRUE(create && create(0, nullptr, made.get(), module.get(), Context()) == 0);
    return made->GetUserDefined();
  }
  AutoRefPtr<IJSON> View(const Value& value) { return value->Serialize(Context()); }
  AutoRefPtr<const IJSON> ReadView(const Value& value) {
    return value->Serialize<const IJSON>(Context());
  }
  // The lines the host printed since the last call.
  std::string Printed() {
    std::string text = fSink.str();
    fSink.str("");
    return text;
  }

  std::ostringstream fSink;
  zhost::Output fOut;
  zhost::Host fHost;
  bool fLoaded = false;
};

// A read-only view offers no call that changes anything.
template <class View>
concept Writable = requires(View& view) {
  view.SetInt("k", 1);
};
static_assert(Writable<IJSON> && !Writable<const IJSON>);

TEST_F(Author, ReadOnlyViewIsTheCallersDocumentAndNumberReadsSettleIt) {
  const Value value = FromString(R"({"a":12.50,"b":2E3,"c":100000000000000000000000,"d":7})");
  const AutoRefPtr<const IJSON> doc = ReadView(value);
  EXPECT_EQ(doc->ToString(), Script(value));
  // Reads that are no numeric reads leave the text alone.
  std::string text;
  EXPECT_TRUE(doc->GetString("a", text));
  EXPECT_EQ(text, "12.50");
  EXPECT_EQ(Script(value), R"({"a":12.50,"b":2E3,"c":100000000000000000000000,"d":7})");
  double number = 0;
  for (const char* key : {"a", "b", "c", "d"}) EXPECT_TRUE(doc->GetDouble(key, number)) << key;
  EXPECT_EQ(Script(value), R"({"a":12.5,"b":2e+03,"c":9.9999999999999991611e+22,"d":7})");
}

TEST_F(Author, ImportedValueIsLiveAndAFactoryValueIsNot) {
  // The import route: the view is the new value's document.
  const Value made = Imported("JSON.CreateEmptyObject");
  const AutoRefPtr<IJSON> doc = View(made);
  EXPECT_TRUE(doc->SetInt("a", 1));
  EXPECT_TRUE(doc->SetString("b", "x"));
  EXPECT_EQ(Script(made), R"({"a":1,"b":"x"})");
  const Value list = Imported("JSON.CreateEmptyArray");
  EXPECT_TRUE(View(list)->PushBackBool(true));
  EXPECT_EQ(Script(list), "[true]");

  // A value from the type's factory holds null; every change through its
  // view moves the view away, reports success, and leaves the value null.
  const Value empty = Context()->CreateInstance(Context()->FindType("JSON"))->GetUserDefined();
  const AutoRefPtr<IJSON> view = View(empty);
  EXPECT_TRUE(view->Parse("{}"));
  EXPECT_TRUE(view->SetInt("a", 1));
  EXPECT_EQ(view->ToString(), R"({"a":1})");
  EXPECT_EQ(Script(empty), "null");
}

TEST_F(Author, CallsThatRebindTheViewLeaveTheValue) {
  struct Case {
    const char* what;
    const char* before;
    std::function<bool(IJSON&)> call;
    const char* view;
  };
  const std::string wire = std::string("\x03\0\0\0\0\0\0\0[2]", 11);
  const Case cases[] = {
      {"Parse", R"({"a":1})", [](IJSON& j) { return j.Parse("[1]"); }, "[1]"},
      {"Deserialize", R"({"a":1})",
       [&](IJSON& j) { return j.Deserialize(wire.data(), wire.size()) == 11; }, "[2]"},
      {"SetInt on null", "null", [](IJSON& j) { return j.SetInt("k", 1); }, R"({"k":1})"},
      {"SetJSON on null", "null", [](IJSON& j) { return j.SetJSON("k", &j); }, R"({"k":null})"},
  };
  for (const Case& c : cases) {
    const Value value = FromString(c.before);
    const AutoRefPtr<IJSON> doc = View(value);
    EXPECT_TRUE(c.call(*doc)) << c.what;
    EXPECT_EQ(doc->GetErrorStatus(), IJSON::kStatusNone) << c.what;
    EXPECT_EQ(doc->ToString(), c.view) << c.what;
    EXPECT_EQ(Script(value), c.before) << c.what;
  }
}

TEST_F(Author, InPlaceEditsReachEverySharer) {
  struct Case {
    const char* what;
    const char* before;
    std::function<bool(IJSON&)> call;
    const char* after;
  };
  const Value item = FromString(R"({"i":1})");
  const Case cases[] = {
      {"SetString", R"({"a":1})", [](IJSON& j) { return j.SetString("s", "t"); },
       R"({"a":1,"s":"t"})"},
      {"SetNull", R"({"a":1})", [](IJSON& j) { return j.SetNull("a"); }, R"({"a":null})"},
      {"RemoveKey", R"({"a":1,"b":2})", [](IJSON& j) { return bool(j.RemoveKey("a")); },
       R"({"b":2})"},
      {"PushBackDouble", "[1]", [](IJSON& j) { return j.PushBackDouble(2.5); }, "[1,2.5]"},
      {"PushBackJSON", "[1]", [&](IJSON& j) { return j.PushBackJSON(View(item).get()); },
       R"([1,{"i":1}])"},
      {"ReplaceIndex", "[1]", [&](IJSON& j) { return j.ReplaceIndex(0, View(item).get()); },
       R"([{"i":1}])"},
      {"RemoveIndex", "[1,2]", [](IJSON& j) { return bool(j.RemoveIndex(0)); }, "[2]"},
  };
  for (const Case& c : cases) {
    const Value value = FromString(c.before);
    EXPECT_TRUE(c.call(*View(value))) << c.what;
    EXPECT_EQ(Script(value), c.after) << c.what;
  }

  // A JSON.SubNode result shares its nodes with its document, and a value
  // stored by JSON.SetSubNode with its holder: editing either in place
  // shows in the other.
  const Value doc = FromString(R"({"a":{"b":1}})");
  const Value sub =
      Call("JSON.SubNode", {"JSON", "STRING"}, {Holding(doc), String("a")})->GetUserDefined();
  EXPECT_TRUE(View(sub)->SetInt("c", 2));
  EXPECT_EQ(Script(doc), R"({"a":{"b":1,"c":2}})");
  const Value holder = Call("JSON.SetSubNode", {"JSON", "STRING", "JSON"},
                            {Holding(FromString("{}")), String("x"), Holding(sub)})
                           ->GetUserDefined();
  EXPECT_TRUE(View(holder)->FindNodePath("x")->SetInt("d", 3));
  EXPECT_EQ(Script(sub), R"({"b":1,"c":2,"d":3})");
  EXPECT_EQ(Script(doc), R"({"a":{"b":1,"c":2,"d":3}})");
}

TEST_F(Author, StoresCopyOrShareAndChildViewsAreLive) {
  const Value value = FromString(R"({"list":[{"id":"x"}],"o":{}})");
  const AutoRefPtr<IJSON> doc = View(value);
  const AutoRefPtr<IJSON> item = View(FromString(R"({"n":1})"));
  const AutoRefPtr<IJSON> list = doc->Get("list");
  ASSERT_TRUE(list);
  // SetJSON and PushBackJSON store copies; ReplaceIndex stores the document.
  EXPECT_TRUE(doc->SetJSON("copy", item.get()));
  EXPECT_TRUE(list->PushBackJSON(item.get()));
  EXPECT_TRUE(list->ReplaceIndex(0, item.get()));
  EXPECT_TRUE(item->SetInt("m", 2));
  EXPECT_EQ(Script(value), R"({"list":[{"n":1,"m":2},{"n":1}],"o":{},"copy":{"n":1}})");

  // Views from Get, At, FindNodePath, ElementMatching*, ForEach and the
  // removals are the nodes themselves.
  EXPECT_TRUE(doc->Get("o")->SetInt("get", 1));
  EXPECT_TRUE(list->At(1)->SetInt("at", 1));
  EXPECT_TRUE(doc->FindNodePath("list/1")->SetInt("path", 1));
  EXPECT_TRUE(list->ElementMatchingDouble("n", 1)->SetInt("match", 1));
  list->ForEach([](const char*, const IJSON* element) {
    const_cast<IJSON*>(element)->SetBool("walked", true);
    return true;
  });
  EXPECT_EQ(Script(value),
            R"({"list":[{"n":1,"m":2,"match":1,"walked":true},)"
            R"({"n":1,"at":1,"path":1,"walked":true}],"o":{"get":1},"copy":{"n":1}})");
  const AutoRefPtr<IJSON> held = doc->Get("o");
  const AutoRefPtr<IJSON> removed = doc->RemoveKey("o");
  EXPECT_TRUE(removed->SetInt("later", 1));
  EXPECT_EQ(held->ToString(), R"({"get":1,"later":1})");
  EXPECT_FALSE(doc->Has("o"));
  // A clone shares nothing.
  const AutoRefPtr<IJSON> clone = doc->Clone();
  EXPECT_TRUE(clone->SetInt("clone", 1));
  EXPECT_FALSE(doc->Has("clone"));
}

TEST_F(Author, FailuresWithAndWithoutAStatus) {
  struct Case {
    const char* what;
    const char* doc;
    std::function<bool(IJSON&)> call;  // true when the call reported success
    bool ok;
    IJSON::Status status;
    std::string message;
  };
  char small[4];
  const Case cases[] = {
      {"Deserialize, short", "[1]",
       [](IJSON& j) { return j.Deserialize("\x05\0\0\0\0\0\0\0[1", 11) != IJSON::kInvalidSize; },
       false, IJSON::kStatusNone, ""},
      {"Deserialize, bad text", "[1]",
       [](IJSON& j) { return j.Deserialize("\x02\0\0\0\0\0\0\0[}", 10) != IJSON::kInvalidSize; },
       false, IJSON::kStatusError, "JSON parse error in line 0: "},
      {"Serialize, small buffer", "[1]",
       [&](IJSON& j) { return j.Serialize(small, sizeof small) != IJSON::kInvalidSize; }, false,
       IJSON::kStatusNone, ""},
      {"ReplaceIndex past the end", "[1]",
       [](IJSON& j) { return j.ReplaceIndex(5, j.Clone().get()); }, true, IJSON::kStatusNone, ""},
      {"At on an object", "{}", [](IJSON& j) { return bool(j.At(0)); }, false, IJSON::kStatusNone,
       ""},
      {"At past the end", "[]", [](IJSON& j) { return bool(j.At(0)); }, false, IJSON::kStatusError,
       "Index is out of bounds"},
      {"Get of a missing member", "{}", [](IJSON& j) { return bool(j.Get("x")); }, false,
       IJSON::kStatusNone, ""},
      {"GetInt of a missing member", "{}",
       [](IJSON& j) {
         int out = 0;
         return j.GetInt("x", out);
       },
       false, IJSON::kStatusWarning, "Could not find member 'x'"},
      {"Parse", "{}", [](IJSON& j) { return j.Parse("{"); }, false, IJSON::kStatusError,
       "JSON parse error in line 0: "},
      {"SetInt on an array", "[]", [](IJSON& j) { return j.SetInt("k", 1); }, false,
       IJSON::kStatusError,
       "Can't set key/value pair into JSON, JSON element is not a JSON object"},
  };
  for (const Case& c : cases) {
    const AutoRefPtr<IJSON> doc = View(FromString(c.doc));
    EXPECT_EQ(c.call(*doc), c.ok) << c.what;
    EXPECT_EQ(doc->GetErrorStatus(), c.status) << c.what;
    EXPECT_EQ(doc->GetErrorMessage().substr(0, c.message.size()), c.message) << c.what;
  }
  // Each view has a status of its own; a clone starts with the status of
  // the view it was made from and leaves that one as it was.
  const Value value = FromString("[]");
  const AutoRefPtr<IJSON> doc = View(value);
  const AutoRefPtr<IJSON> other = View(value);
  EXPECT_FALSE(doc->Get("x"));
  EXPECT_EQ(other->GetErrorStatus(), IJSON::kStatusNone);
  EXPECT_EQ(doc->Clone()->GetErrorStatus(), IJSON::kStatusError);
  EXPECT_EQ(doc->GetErrorStatus(), IJSON::kStatusError);
}

TEST_F(Author, TypedReadsConvert) {
  const AutoRefPtr<const IJSON> doc =
      ReadView(FromString(R"({"s":"12abc","r":2.7,"f":"false","n":null,"o":{"a":[1]},"i":3,)"
                          R"("u":18446744073709551615,"l":[1,"x",true]})"));
  double real = 0;
  int integer = 0;
  bool flag = false;
  std::string text;
  EXPECT_TRUE(doc->GetDouble("s", real));
  EXPECT_EQ(real, 12);
  EXPECT_TRUE(doc->GetInt("r", integer));
  EXPECT_EQ(integer, 2);
  EXPECT_TRUE(doc->GetBoolean("f", flag));
  EXPECT_TRUE(flag);
  EXPECT_FALSE(doc->GetBoolean("n", flag));
  EXPECT_EQ(doc->GetErrorMessage(), "Member 'n' is no boolean");
  for (const auto& [key, expected] : std::vector<std::pair<const char*, const char*>>{
           {"n", "null"}, {"o", R"({"a":[1]})"}, {"i", "3"}, {"s", "12abc"}}) {
    EXPECT_TRUE(doc->GetString(key, text)) << key;
    EXPECT_EQ(text, expected);
    EXPECT_TRUE(doc->Get(key)->AsString(text)) << key;
    EXPECT_EQ(text, expected);
  }
  // Is* test the kind exactly; large unsigned integers are Int64 but read
  // only as reals or text.
  EXPECT_FALSE(doc->Get("r")->IsInt());
  unsigned long long big = 0;
  EXPECT_TRUE(doc->Get("u")->IsInt64());
  EXPECT_FALSE(doc->Get("u")->IsUInt64());
  EXPECT_FALSE(doc->GetUInt64("u", big));
  EXPECT_TRUE(doc->GetDouble("u", real));
  EXPECT_EQ(real, 18446744073709551615.0);
  // Has on an array asks for an element with that text.
  const AutoRefPtr<const IJSON> list = doc->Get("l");
  EXPECT_TRUE(list->Has("x") && list->Has("1") && list->Has("true"));
  EXPECT_FALSE(list->Has("2"));
}

TEST_F(Author, NumbersAModuleMakes) {
  const Value value = Imported("JSON.CreateEmptyObject");
  const AutoRefPtr<IJSON> doc = View(value);
  EXPECT_TRUE(doc->SetDouble("sum", 0.1 + 0.2));
  EXPECT_TRUE(doc->SetDouble("tiny", 1e-7));
  EXPECT_TRUE(doc->SetDouble("whole", 5));
  EXPECT_TRUE(doc->SetDouble("nan", std::nan("")));
  EXPECT_TRUE(doc->SetDouble("inf", -std::numeric_limits<double>::infinity()));
  EXPECT_EQ(doc->GetErrorStatus(), IJSON::kStatusNone);
  EXPECT_TRUE(doc->SetInt64("min", std::numeric_limits<long long>::min()));
  EXPECT_TRUE(doc->SetUInt64("max", std::numeric_limits<unsigned long long>::max()));
  const AutoRefPtr<IJSON> scratch = doc->FindNodePath("");
  EXPECT_TRUE(scratch->Parse("0.30000000000000004") && doc->SetJSON("exact", scratch.get()));
  EXPECT_TRUE(doc->SetString("done", "yes"));  // the scratch view moved alone
  EXPECT_EQ(Script(value), R"({"sum":0.3,"tiny":0.0,"whole":5.0,"nan":nan,"inf":inf,)"
                           R"("min":-9223372036854775808,"max":18446744073709551615,)"
                           R"("exact":0.30000000000000004,"done":"yes"})");
  const Value list = Imported("JSON.CreateEmptyArray");
  EXPECT_TRUE(View(list)->PushBackDouble(0.1 + 0.2));
  EXPECT_EQ(Script(list), "[0.3]");
}

TEST_F(Author, DeserializeUnwrapsTheEnvelope) {
  struct Case {
    const char* source;
    const char* result;
  };
  const Case cases[] = {
      {R"({"type":"JSON","value":[1],"more":2})", "[1]"},
      {R"({"type":"other","value":1})", R"({"type":"other","value":1})"},
      {R"({"type":"JSON","value":{"type":"JSON","value":3}})", R"({"type":"JSON","value":3})"},
  };
  for (const Case& c : cases) {
    const Value target = Imported("JSON.CreateEmptyObject");
    EXPECT_TRUE(target->Deserialize(ReadView(FromString(c.source)).get(), Context()));
    EXPECT_EQ(Script(target), c.result);
    // The copy is the target's own.
    const Value source = FromString(c.source);
    EXPECT_TRUE(target->Deserialize(ReadView(source).get(), Context()));
    EXPECT_TRUE(View(source)->SetInt("later", 1));
    EXPECT_EQ(Script(target), c.result);
  }
}

TEST_F(Author, SetStringOfAStdStringKeepsZeroBytes) {
  const std::string zero("a\0b\"\\\x01\0", 7);
  const AutoRefPtr<IJSON> doc = View(FromString(R"({"k":1})"));
  EXPECT_TRUE(doc->SetString(std::string("k"), zero));
  EXPECT_EQ(doc->GetErrorStatus(), IJSON::kStatusNone);
  std::string back;
  EXPECT_TRUE(doc->GetString("k", back));
  EXPECT_EQ(back, zero);
  EXPECT_EQ(doc->ToString(), R"({"k":"a\u0000b\"\\\u0001\u0000"})");
  EXPECT_TRUE(doc->SetString("c", zero.c_str()));  // a C string ends at its zero byte
  EXPECT_TRUE(doc->GetString("c", back));
  EXPECT_EQ(back, "a");

  // With zero bytes, it fails and reports exactly as the C string form does
  // on the whole value.
  struct Case {
    const char* doc;
    std::string key, value;
  };
  const Case cases[] = {
      {"[]", "k", zero},
      {"{}", "k", std::string("\xC3\0", 2)},  // no UTF-8 even without the zero byte
      {"{}", "\xFF", zero},
      {"null", "k", std::string("\xFF\0", 2)},  // the view still moves onto an object
  };
  for (const Case& c : cases) {
    const AutoRefPtr<IJSON> withZero = View(FromString(c.doc));
    const AutoRefPtr<IJSON> blanked = View(FromString(c.doc));
    std::string blanks = c.value;
    for (char& ch : blanks)
      if (ch == '\0') ch = ' ';
    EXPECT_FALSE(withZero->SetString(c.key, c.value)) << c.doc;
    EXPECT_FALSE(blanked->SetString(c.key.c_str(), blanks.c_str())) << c.doc;
    EXPECT_EQ(withZero->GetErrorStatus(), blanked->GetErrorStatus()) << c.doc;
    EXPECT_EQ(withZero->GetErrorMessage(), blanked->GetErrorMessage()) << c.doc;
    EXPECT_EQ(withZero->ToString(), blanked->ToString()) << c.doc;
  }
}

static_assert(Zentor::JSONMemberVisitor<int (*)(const char*, const IJSON*)>);
static_assert(!Zentor::JSONMemberVisitor<void (*)(const char*, const IJSON*)>);
static_assert(!Zentor::JSONMemberVisitor<bool (*)(const char*)>);

TEST_F(Author, ForEachTakesAnyCallable) {
  const AutoRefPtr<const IJSON> doc = ReadView(FromString(R"({"b":1,"a":2,"c":3})"));
  std::string keys;
  double sum = 0;
  EXPECT_TRUE(doc->ForEach([&](const char* key, const IJSON* value) {
    double number = 0;
    keys += key;
    return value->AsDouble(number) && (sum += number) > 0;
  }));
  EXPECT_EQ(keys, "bac");
  EXPECT_EQ(sum, 6);
  int visits = 0;
  EXPECT_FALSE(doc->ForEach([&](const char*, const IJSON*) { return ++visits < 2; }));
  EXPECT_EQ(visits, 2);
  // Any result that converts to bool; an exception stops the walk and
  // leaves ForEach.
  EXPECT_TRUE(ReadView(FromString("[1,2]"))->ForEach([](const char*, const IJSON*) { return 1; }));
  EXPECT_FALSE(ReadView(FromString("3"))->ForEach([](const char*, const IJSON*) { return 1; }));
  visits = 0;
  EXPECT_THROW(doc->ForEach([&](const char*, const IJSON*) -> bool {
    if (++visits == 2) throw std::runtime_error("stop");
    return true;
  }),
               std::runtime_error);
  EXPECT_EQ(visits, 2);
}

TEST_F(Author, ForEachWithAContextReportsEachErrorTwice) {
  const AutoRefPtr<const IJSON> doc = ReadView(FromString("[1,2]"));
  Printed();
  EXPECT_FALSE(doc->ForEach(
      [](const char* key, const IJSON*, void*, Zentor::IContext* context) -> unsigned char {
        context->TriggerErrorHandler(Zentor::ErrorSeverity::Error, "Mine", "Error.Mine", key);
        return 0;
      },
      nullptr, Context()));
  EXPECT_EQ(Printed(),
            "! report: severity 2 (error), source \"Mine\", code \"Error.Mine\", message \"0\"\n"
            "! report: severity 2 (error), source \"Mine\", code \"Error.Mine\", message \"1\"\n"
            "! report: severity 2 (error), source \"Zentor\", code \"Error.Zentor.FunctionError\", "
            "message \"Item '1' has error '0', Item '2' has error '1'\"\n");
}

TEST_F(Author, KeyTakingCallsTakeStdStrings) {
  const std::string k = "k", s = "s", text = "t";
  const Value value = FromString(R"({"s":"t","list":[{"s":"t"}]})");
  const AutoRefPtr<IJSON> doc = View(value);
  bool flag = false;
  double real = 0;
  int integer = 0;
  unsigned int uinteger = 0;
  long long int64 = 0;
  unsigned long long uint64 = 0;
  std::string read;
  EXPECT_TRUE(doc->SetBool(k, true) && doc->GetBoolean(k, flag) && flag);
  EXPECT_TRUE(doc->SetDouble(k, 1.5) && doc->GetDouble(k, real) && real == 1.5);
  EXPECT_TRUE(doc->SetInt(k, -2) && doc->GetInt(k, integer) && integer == -2);
  EXPECT_TRUE(doc->SetUInt(k, 3) && doc->GetUInt(k, uinteger) && uinteger == 3);
  EXPECT_TRUE(doc->SetInt64(k, -4) && doc->GetInt64(k, int64) && int64 == -4);
  EXPECT_TRUE(doc->SetUInt64(k, 5) && doc->GetUInt64(k, uint64) && uint64 == 5);
  EXPECT_TRUE(doc->SetString(k, text) && doc->GetString(k, read) && read == "t");
  EXPECT_TRUE(doc->SetJSON(k, doc->Get(s).get()) && doc->Has(k));
  EXPECT_TRUE(doc->SetNull(k) && doc->Get(k)->IsNull());
  EXPECT_TRUE(doc->RemoveKey(k));
  const AutoRefPtr<IJSON> list = doc->FindNodePath(std::string("list"));
  EXPECT_TRUE(list->ElementMatchingString(s, text));
  EXPECT_FALSE(list->ElementMatchingDouble(s, 1));
  EXPECT_TRUE(list->PushBackString(text) && list->Has(text));
  EXPECT_EQ(Script(value), R"({"s":"t","list":[{"s":"t"},"t"]})");
}

}  // namespace
