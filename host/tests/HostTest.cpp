// Unit tests of the reference host's parts that need no module: reading
// definitions, the value implementations, the context, and the script
// language's literals and printing.
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "Definition.h"
#include "Host.h"
#include "HostValues.h"
#include "Script.h"
#include "ScriptLexer.h"
#include "Text.h"

namespace zhost {
namespace {

TEST(Definition, ReadsTypesAndFunctions) {
  const Definition definition = ParseDefinition(
      " TYPE JSON : zentor_module_CreateJSONObj : THREADSAFE"
      " CONST_FUNCTION STRING ToString (JSON) : zentor_module_JsonToString"
      " CONST_FUNCTION JSON JSON.CreateEmptyArray () : zentor_module_CreateEmptyArray"
      " CONST_FUNCTION JSON JSON.SetSubNode (JSON,VECTOR<STRING>,NUMBER,STRING) : zentor_module_X"
      " CONST_FUNCTION JSON JSON.FromString (STRING,) : zentor_module_StringToJson"
      " CONST_FUNCTION JSON Odd ( STRING) : odd");
  ASSERT_TRUE(definition.errors.empty()) << definition.errors.front();
  ASSERT_EQ(definition.types.size(), 1u);
  EXPECT_EQ(definition.types[0].name, "JSON");
  EXPECT_EQ(definition.types[0].factory, "zentor_module_CreateJSONObj");
  EXPECT_EQ(definition.types[0].flags, "THREADSAFE");
  EXPECT_EQ(definition.types[0].text, "TYPE JSON : zentor_module_CreateJSONObj : THREADSAFE");

  struct Expected {
    const char* name;
    const char* result;
    std::vector<std::string> params;
    const char* symbol;
  } expected[] = {
      {"ToString", "STRING", {"JSON"}, "zentor_module_JsonToString"},
      {"JSON.CreateEmptyArray", "JSON", {}, "zentor_module_CreateEmptyArray"},
      {"JSON.SetSubNode",
       "JSON",
       {"JSON", "VECTOR<STRING>", "NUMBER", "STRING"},
       "zentor_module_X"},
      // Uncleaned lists and the "( " left by the clean-up of a leading
      // context word both read as the script-visible words only.
      {"JSON.FromString", "JSON", {"STRING"}, "zentor_module_StringToJson"},
      {"Odd", "JSON", {"STRING"}, "odd"},
  };
  ASSERT_EQ(definition.functions.size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i) {
    SCOPED_TRACE(expected[i].name);
    const FunctionDeclaration& function = definition.functions[i];
    EXPECT_EQ(function.kind, "CONST_FUNCTION");
    EXPECT_EQ(function.name, expected[i].name);
    EXPECT_EQ(function.result, expected[i].result);
    EXPECT_EQ(function.params, expected[i].params);
    EXPECT_EQ(function.symbol, expected[i].symbol);
  }
  EXPECT_EQ(definition.functions[1].text,
            "CONST_FUNCTION JSON JSON.CreateEmptyArray () : zentor_module_CreateEmptyArray");
}

TEST(Definition, ReportsGarbageAndResynchronises) {
  struct Case {
    const char* text;
    size_t types, functions, errors;
  } cases[] = {
      {"", 0, 0, 0},
      {"   ", 0, 0, 0},
      {" BOGUS x CONST_FUNCTION STRING A (STRING) : a", 0, 1, 1},
      {" TYPE X : onlyfactory CONST_FUNCTION STRING A () : a", 0, 1, 1},
      {" CONST_FUNCTION STRING A (STRING : a TYPE T : f : FLAGS", 1, 0, 1},
      {" CONST_FUNCTION STRING A (STRING) a TYPE T : f : FLAGS", 1, 0, 1},
      {" CONST_FUNCTION STRING A (STRING) :", 0, 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const Definition definition = ParseDefinition(c.text);
    EXPECT_EQ(definition.types.size(), c.types);
    EXPECT_EQ(definition.functions.size(), c.functions);
    EXPECT_EQ(definition.errors.size(), c.errors);
  }
}

TEST(Definition, ChecksTheWrittenForm) {
  // "Own" stands for a type registered before the module or by it.
  const auto isTypeName = [](const std::string& name) { return name == "Own"; };
  const std::string fn = " CONST_FUNCTION STRING F (STRING) : f";
  struct Case {
    std::string text;
    std::vector<std::string> warnings;
  } cases[] = {
      {"", {}},
      {fn + fn + " TYPE Own : make : THREADSAFE", {}},
      {" CONST_FUNCTION Own F () : f CONST_FUNCTION VECTOR<BOOLEAN> G (Own,DATAREF) : g", {}},
      {fn.substr(1),
       {"declaration \"CONST_FUNCTION STRING F (STRING) : f\": not introduced by "
        "exactly one blank"}},
      {fn + "\n" + fn.substr(1) + " ",
       {"declaration \"CONST_FUNCTION STRING F (STRING) : f\": not introduced by exactly one "
        "blank",
        "blanks after the last declaration"}},
      {" PROCEDURE STRING F (STRING) : f",
       {"declaration \"PROCEDURE STRING F (STRING) : f\": kind \"PROCEDURE\" is read as "
        "CONST_FUNCTION, the one kind modules declare"}},
      {" CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()",
       {"declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": result "
        "\"VECTOR<JSON>\" is no type word: neither built in nor a type registered before (or "
        "by) the module",
        "declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": script name "
        "\"1F\" cannot be called by scripts",
        "declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": parameter 1 is "
        "an empty word",
        "declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": parameter 2 "
        "\"Other\" is no type word: neither built in nor a type registered before (or by) the "
        "module",
        "declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": parameter 3 \" "
        "STRING\" holds a blank",
        "declaration \"CONST_FUNCTION VECTOR<JSON> 1F (,Other, STRING) : f()\": symbol \"f()\" is "
        "no C name"}},
      {" TYPE 9x : new-x :",
       {"declaration \"TYPE 9x : new-x :\": type name \"9x\" is no C name",
        "declaration \"TYPE 9x : new-x :\": factory \"new-x\" is no C name",
        "declaration \"TYPE 9x : new-x :\": no flags after the factory"}},
      {" TYPE T:make:FLAG CONST_FUNCTION STRING F(STRING) :f",
       {"declaration \"TYPE T:make:FLAG\": blanks differ from \"TYPE T : make : FLAG\"",
        "declaration \"CONST_FUNCTION STRING F(STRING) :f\": blanks differ from "
        "\"CONST_FUNCTION STRING F (STRING) : f\""}},
      // Unreadable pieces are errors of their own; the blanks around them
      // are not judged.
      {"  BOGUS" + fn, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(CheckDefinition(c.text, ParseDefinition(c.text), isTypeName), c.warnings);
  }
}

TEST(Values, VariantKindsAndAccessorsOfOtherKinds) {
  auto variant = MakeVariant();
  EXPECT_EQ(variant->GetType(), Zentor::kTypeInvalid);
  variant->AssignString(std::string("a\0b", 3));
  EXPECT_EQ(variant->GetType(), Zentor::kTypeString);
  EXPECT_EQ(variant->GetStdString(), std::string("a\0b", 3));
  EXPECT_EQ(variant->GetNumber(), 0.0);
  // Assigning the variant's own text to itself must not read freed memory.
  variant->AssignString(variant->GetString(), 1);
  EXPECT_EQ(variant->GetStdString(), "a");
  variant->AssignNumber(-1);
  EXPECT_EQ(variant->GetType(), Zentor::kTypeNumber);
  EXPECT_STREQ(variant->GetString(), "");
  EXPECT_EQ(variant->GetStringSize(), 0u);
  variant->AssignData(nullptr);
  EXPECT_EQ(variant->GetType(), Zentor::kTypeData);
  EXPECT_FALSE(variant->GetData());
  variant->SetEmptyUserDefined(30);
  variant->SetUserDefined(nullptr);
  EXPECT_EQ(variant->GetType(), 30u) << "an empty user value keeps its type";
  variant->AssignBoolean(true);
  variant->SetUserDefined(nullptr);
  EXPECT_EQ(variant->GetType(), Zentor::kTypeInvalid);
  EXPECT_EQ(variant->AssignmentCount(), 8u);
}

TEST(Values, DataReadsAndCompares) {
  Zentor::AutoRefPtr<HostData> data(new HostData("abcdef"));
  char buffer[8] = {};
  struct Case {
    unsigned long long size, offset, expected;
  } cases[] = {{3, 0, 3}, {10, 4, 2}, {1, 6, 0}, {1, 7, 0}, {0, 0, 0}};
  for (const Case& c : cases) EXPECT_EQ(data->Read(buffer, c.size, c.offset), c.expected);
  Zentor::AutoRefPtr<HostData> streamed(new HostData("abcdef", false));
  EXPECT_EQ(streamed->GetData(), nullptr);
  EXPECT_EQ(streamed->ToString(), "abcdef");
  EXPECT_TRUE(data->IsEqual(streamed.get()));
  Zentor::AutoRefPtr<HostData> other(new HostData("abcdeg"));
  EXPECT_FALSE(data->IsEqual(other.get()));
  EXPECT_FALSE(data->IsEqual(nullptr));
  auto clone = streamed->Clone();
  EXPECT_EQ(clone->GetData(), nullptr) << "a clone reads the same way";
}

TEST(Values, VectorsCheckElementKinds) {
  Zentor::AutoRefPtr<Zentor::IVectorGeneric> strings(NewVector(Zentor::kTypeString));
  EXPECT_TRUE(strings->Add(MakeString("x").get()));
  EXPECT_FALSE(strings->Add(MakeNumber(1).get()));
  EXPECT_FALSE(strings->Add(nullptr));
  auto typed = Zentor::StaticRefCast<Zentor::IVector<std::string>>(strings);
  typed->PushBack(std::string("y\0z", 3));
  EXPECT_EQ(typed->ToStdVector(), (std::vector<std::string>{"x", std::string("y\0z", 3)}));
  EXPECT_EQ(typed->At(5), "");
  auto element = strings->Get(1);
  ASSERT_TRUE(element);
  EXPECT_EQ(element->GetStdString(), std::string("y\0z", 3));
  EXPECT_FALSE(strings->Get(2));
  EXPECT_EQ(NewVector(Zentor::kTypeData), nullptr);
}

// A host without modules, printing into a string.
class HostFixture : public ::testing::Test {
 protected:
  std::ostringstream text;
  Output out{text};
  Host host{out};

  std::string Run(const std::string& line) {
    text.str("");
    Script script(host, false);
    script.RunLine(line, 1);
    return text.str();
  }
};

TEST_F(HostFixture, LiteralsPrintCanonically) {
  struct Case {
    const char* statement;
    const char* printed;
  } cases[] = {
      {R"("a\"b\\c\n\t\0\x01\xff\u00e9")", R"("a\"b\\c\n\t\0\x01\xff\xc3\xa9")"
                                           "\n"},
      {"-1", "-1\n"},
      {"1e300", "1e+300\n"},
      {"-inf", "-inf\n"},
      {"inf", "inf\n"},
      {"nan", "nan\n"},
      {"0x20001", "131073\n"},
      {"0.1", "0.1\n"},
      {"1e999", "inf\n"},
      {"true", "true\n"},
      {"print false", "false\n"},
      {"nothing", "no value\n"},
      {"strings[\"a\",\"\"]", "strings[\"a\",\"\"]\n"},
      {"numbers[]", "numbers[]\n"},
      {"bools[true, false]", "bools[true,false]\n"},
      {"data\"81 a1_61\"", "data\"81a161\"\n"},
      {"data\"\"", "data\"\"\n"},
      {"streamdata\"00ff\"", "data\"00ff\"\n"},
      {"data null", "data null\n"},
      {"1 # a comment", "1\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(Run(c.statement), c.printed) << c.statement;
}

TEST_F(HostFixture, ScriptMistakesAreReportedNotFatal) {
  struct Case {
    const char* statement;
    const char* message;
  } cases[] = {
      {"\"open", "unterminated string"},
      {"\"\\q\"", "unknown escape \\q"},
      {"\"\\x4\"", "\\x needs two hex digits"},
      {"data\"abc\"", "odd number of hex digits"},
      {"numbers[\"a\"]", "is not a NUMBER"},
      {"undefined", "unknown variable undefined"},
      {"Nope.Call(1)", "unknown function Nope.Call"},
      {"let true = 1", "cannot name a variable"},
      {"1 2", "expected end of line at column 3, found a number"},
      {"empty Nope", "unknown type Nope"},
      {"raw zentor_module_Nope()", "no loaded module exports zentor_module_Nope"},
      {":nope", "unknown command :nope"},
      {"1.2.3", "malformed number"},
      {"@", "unexpected character '@'"},
  };
  for (const Case& c : cases) {
    const std::string printed = Run(c.statement);
    EXPECT_EQ(printed.rfind("! script error at line 1: ", 0), 0u) << printed;
    EXPECT_NE(printed.find(c.message), std::string::npos) << c.statement << " -> " << printed;
  }
}

// At the terminal a statement goes on while a string or a bracket is
// open; a '#' inside a string starts no comment, and a comment hides the
// brackets in it.
TEST(ScriptText, LeavesOpen) {
  struct Case {
    const char* text;
    bool open;
  } cases[] = {
      {"", false},
      {"print 1", false},
      {"f(1,", true},
      {"f(numbers[1,", true},
      {"f(numbers[1,\n2])", false},
      {"f(1))", false},
      {"\"abc", true},
      {"\"a\\\"b", true},
      {"\"a\\\\\"", false},
      {"\"a\\", true},
      {"data\"81", true},
      {"\"#\"", false},
      {"f( # (", true},
      {"f( # )", true},
      {"f( # x\n)", false},
      {"# \"", false},
  };
  for (const Case& c : cases) EXPECT_EQ(LeavesOpen(c.text), c.open) << c.text;
}

TEST(ScriptText, RangesAndCommentsToTheLineEnd) {
  auto kinds = [](const std::string& line) {
    std::string shown;
    for (const Token& token : Lex(line)) shown += std::string(TokenName(token.kind)) + " ";
    return shown;
  };
  EXPECT_EQ(kinds("1..3"), "a number '..' a number end of line ");
  EXPECT_EQ(kinds("a .. b.c"), "a name '..' a name end of line ");
  EXPECT_EQ(kinds("x..y"), "a name '..' a name end of line ");
  EXPECT_EQ(kinds("-1 .. .5"), "a number '..' a number end of line ");
  EXPECT_EQ(kinds("f(1, # one\n2) # done"), "a name '(' a number ',' a number ')' end of line ");
  EXPECT_EQ(Lex("0..1.5")[2].number, 1.5);
}

TEST_F(HostFixture, ConcatJoinsStringsAndNumbers) {
  struct Case {
    const char* statement;
    const char* printed;
  } cases[] = {
      {"Host.Concat(\"statuses/\", 3, \"/user\")", "\"statuses/3/user\"\n"},
      {"Host.Concat(1e20, \" \", -5, \" \", -0, \" \", 9007199254740993)",
       "\"100000000000000000000 -5 -0 9007199254740992\"\n"},
      {"Host.Concat(2.5, \" \", 0.1, \" \", 1e-7, \" \", nan, \" \", -inf)",
       "\"2.5 0.1 1e-07 nan -inf\"\n"},
      {"Host.Concat()", "\"\"\n"},
      {"Host.Concat(\"a\\x00b\", \"\\xff\")", "\"a\\0b\\xff\"\n"},
      {"Host.Concat(1, true)",
       "! script error at line 1: Host.Concat: argument 2 must be a string or a number\n"},
      {"Host.Concat(numbers[1])",
       "! script error at line 1: Host.Concat: argument 1 must be a string or a number\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(Run(c.statement), c.printed) << c.statement;
}

// A folder opens like a file on some systems and tells an absurd size:
// reading one is a mistake that names it, never an end of the host.
TEST_F(HostFixture, ReadingAFolderIsAMistake) {
  const std::string printed = Run("Host.ReadFile(\".\")");
  EXPECT_EQ(printed.rfind("! script error at line 1: Host.ReadFile: cannot read \".\": ", 0), 0u)
      << printed;
}

TEST_F(HostFixture, ContextErrorStateAndTextProtocol) {
  Zentor::IContext& context = host.Context();
  EXPECT_FALSE(context.HasError());
  const std::string longMessage(1000, 'm');
  context.TriggerErrorHandler(Zentor::ErrorSeverity::Warning, "S", "C", longMessage);
  EXPECT_TRUE(context.HasError());
  EXPECT_EQ(context.GetErrorMessage(), longMessage);
  char small[4];
  EXPECT_EQ(context.Interface_GetErrorMessage(small, sizeof small), 1001u);
  context.ClearError();
  EXPECT_FALSE(context.HasError());
  EXPECT_EQ(context.GetErrorMessage(), "");
  EXPECT_NE(text.str().find("! report: severity 1 (warning), source \"S\", code \"C\""),
            std::string::npos);
}

TEST_F(HostFixture, ContextCreatesBuiltInKinds) {
  Zentor::IContext& context = host.Context();
  const unsigned int kinds[] = {Zentor::kTypeInvalid, Zentor::kTypeBoolean, Zentor::kTypeNumber,
                                Zentor::kTypeString, Zentor::kTypeData};
  for (unsigned int kind : kinds) {
    auto variant = context.CreateInstance(kind);
    ASSERT_TRUE(variant) << kind;
    EXPECT_EQ(variant->GetType(), kind);
  }
  EXPECT_FALSE(context.CreateInstance(Zentor::kTypeFirstUserDefined));
  EXPECT_FALSE(context.CreateInstance(7));
  EXPECT_EQ(context.FindType("STRING"), Zentor::kTypeString);
  EXPECT_EQ(context.FindType("JSON"), Zentor::kTypeInvalid);
  EXPECT_EQ(context.CreateBooleanVector()->GetElementType(), Zentor::kTypeBoolean);
  EXPECT_EQ(context.CreateNumberVector()->GetElementType(), Zentor::kTypeNumber);
  EXPECT_EQ(context.CreateStringVector()->GetElementType(), Zentor::kTypeString);
  const char* types[] = {"STRING", "JSON", ""};
  Zentor::AutoRefPtr<Zentor::IModuleInfo> info;
  EXPECT_EQ(context.GetFunction("ToString", 3, types, &info, 1), nullptr);
  EXPECT_FALSE(info);
}

TEST_F(HostFixture, ContextIsSafeFromSeveralThreads) {
  Zentor::IContext& context = host.Context();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&context, t] {
      for (int i = 0; i < 200; ++i) {
        context.TriggerErrorHandler(Zentor::ErrorSeverity::Error, "T", "C", std::to_string(t));
        (void)context.GetErrorMessage();
        (void)context.FindType("NUMBER");
        auto variant = context.CreateInstance(Zentor::kTypeString);
        variant->AssignString("x");
        context.ClearError();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(context.HasError());
}

// The test module sits beside this test program, as beside zentor.
class LoadedFixture : public HostFixture {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(host.Load("libzentor_testmod.so", error)) << error;
  }
};

TEST_F(LoadedFixture, RegistersTypesFunctionsAndMissingSymbols) {
  std::string error;
  EXPECT_FALSE(host.Load("libzentor_testmod.so", error));
  EXPECT_NE(error.find("already loaded"), std::string::npos) << error;
  EXPECT_FALSE(host.Load("/nonexistent/libnothing.so", error));
  EXPECT_EQ(host.Modules().size(), 1u);

  EXPECT_EQ(host.FindType("Widget"), Zentor::kTypeFirstUserDefined);
  const auto missing = host.Missing();
  ASSERT_EQ(missing.size(), 1u);
  EXPECT_EQ(missing[0].symbol, "zentor_testmod_NoSuchSymbol");
  EXPECT_EQ(host.OverloadsOf("Test.Throw").size(), 2u);
  const std::string stringWord = "STRING";
  EXPECT_TRUE(host.FindOverload("Test.Throw", &stringWord, {"NUMBER"}));
  EXPECT_FALSE(host.FindOverload("Test.Throw", &stringWord, {"BOOLEAN"}));
  const std::string numberWord = "NUMBER";
  EXPECT_FALSE(host.FindOverload("Test.Throw", &numberWord, {"NUMBER"}))
      << "the result word counts";
}

TEST_F(LoadedFixture, GetFunctionMatchesWordsAndHandsOutModuleInfo) {
  Zentor::IContext& context = host.Context();
  struct Case {
    std::vector<const char*> types;
    bool found;
  } cases[] = {
      {{"STRING", "STRING", ""}, true},        {{"STRING", "STRING"}, true},
      {{"STRING", "STRING", "", ""}, true},    {{"STRING", "", "STRING"}, false},
      {{"NUMBER", "STRING"}, false},           {{"STRING"}, false},
      {{"STRING", "STRING", "STRING"}, false},
  };
  const LoadedModule* module = host.Modules().front();
  for (const Case& c : cases) {
    const int before = module->info->GetCount();
    Zentor::AutoRefPtr<Zentor::IModuleInfo> info;
    const auto entry = context.GetFunction(
        "Test.Describe", static_cast<unsigned int>(c.types.size()), c.types.data(), &info, 1);
    EXPECT_EQ(entry != nullptr, c.found) << c.types.size();
    EXPECT_EQ(static_cast<bool>(info), c.found);
    if (c.found) {
      EXPECT_STREQ(info->GetName(), "zentor_testmod");
      EXPECT_EQ(module->info->GetCount(), before + 1);
    }
    info.reset();
    // Without a holder the reference must not leak.
    context.GetFunction("Test.Describe", static_cast<unsigned int>(c.types.size()), c.types.data(),
                        nullptr, 1);
    EXPECT_EQ(module->info->GetCount(), before);
  }
  const char* missingTypes[] = {"STRING", "STRING"};
  EXPECT_EQ(context.GetFunction("Test.Missing", 2, missingTypes, nullptr, 1), nullptr);
}

TEST_F(LoadedFixture, CreateInstanceUsesTheFactory) {
  Zentor::IContext& context = host.Context();
  auto variant = context.CreateInstance(context.FindType("Widget"));
  ASSERT_TRUE(variant);
  EXPECT_EQ(variant->GetType(), Zentor::kTypeFirstUserDefined);
  auto object = variant->GetUserDefined();
  ASSERT_TRUE(object);
  EXPECT_STREQ(object->GetName(), "Widget");
  EXPECT_EQ(object->GetCount(), 2) << "the variant's reference and ours, none leaked";
}

TEST_F(LoadedFixture, CallsSurviveExceptions) {
  std::vector<Zentor::IVariant*> argv;
  auto message = MakeString("boom");
  argv.push_back(message.get());
  auto result = MakeVariant();
  const auto throwing = host.FindOverload("Test.Throw", nullptr, {"STRING"});
  ASSERT_TRUE(throwing);
  const CallOutcome outcome =
      host.Call(throwing->entry, throwing->module, "Test.Throw", argv, result.get());
  EXPECT_TRUE(outcome.threw);
  EXPECT_EQ(outcome.exception, "std::runtime_error: boom");
  EXPECT_EQ(Host::CallStack(), "") << "the call stack unwinds with the exception";
}

TEST_F(LoadedFixture, RegistriesAreSafeFromSeveralThreads) {
  Zentor::IContext& context = host.Context();
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      const char* types[] = {"STRING", "STRING", ""};
      for (int i = 0; i < 300; ++i) {
        if (!context.GetFunction("Test.Describe", 3, types, nullptr, 1)) ++failures;
        auto widget = context.CreateInstance(context.FindType("Widget"));
        if (!widget || !widget->GetUserDefinedPtr()) ++failures;
      }
    });
  }
  // Loading while others look up changes the registries under their feet
  // (when the JSON module is built; without it the attempt fails harmlessly).
  std::string error;
  host.Load("libzentor_json.so", error);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

TEST(Text, StatusDescriptions) {
  struct Case {
    unsigned int status;
    const char* code;
    const char* meaning;
  } cases[] = {
      {0x20001, "0x00020001", "argument 2 missing"},
      {0x10002, "0x00010002", "argument 1 has the wrong kind"},
      {0x30004, "0x00030004",
       "argument 3 is an invalid object (a user-defined value without object)"},
      {0x10008, "0x00010008", "unknown kind 8 at argument 1"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FormatStatus(c.status), c.code);
    EXPECT_EQ(DescribeStatus(c.status), c.meaning);
  }
}

}  // namespace
}  // namespace zhost
