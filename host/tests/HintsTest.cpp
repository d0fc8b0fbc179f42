// Unit tests of the help that comes with mistakes and Tab: how near two
// names are, which names are offered for a misspelled one, how a call
// with the wrong kinds lists the overloads, and what a prefix completes to.
#include <gtest/gtest.h>

#include "Hints.h"

namespace zhost {
namespace {

using Names = std::vector<std::string>;

// Names as the JSON module, the test module and the host declare them.
const Names kKnown = {"JSON.At",      "JSON.Get",     "JSON.GetSubNode",   "JSON.IsNull",
                      "JSON.Set",     "JSON.SetNull", "JSON.SetSubNode",   "JSON.Size",
                      "JSON.Keys",    "ToString",     "ToFormattedString", "Test.Describe",
                      "Test.Missing", "Test.Status",  "Test.Throw",        "Widget.Make",
                      "Host.Clone",   "Host.TypeId"};

TEST(Hints, EditDistanceCountsSlipsNotCase) {
  struct Case {
    const char* a;
    const char* b;
    size_t distance;
  } cases[] = {
      {"", "", 0},
      {"", "abc", 3},
      {"Size", "Size", 0},
      {"Sze", "Size", 1},
      {"Sizee", "Size", 1},
      {"Siez", "Size", 1},  // swapped neighbours
      {"Gte", "Get", 1},
      {"json.SIZE", "JSON.Size", 0},
      {"kitten", "sitting", 3},
      {"ca", "abc", 3},  // a swapped pair is not edited again
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EditDistance(c.a, c.b), c.distance) << c.a << " / " << c.b;
    EXPECT_EQ(EditDistance(c.b, c.a), c.distance) << c.b << " / " << c.a;
  }
}

TEST(Hints, OnlyNearNamesAreOffered) {
  struct Case {
    const char* typed;
    Names offered;
  } cases[] = {
      {"JSON.Sze", {"JSON.Size"}},
      {"JSON.SetSubNdoe", {"JSON.SetSubNode"}},
      {"json.isnull", {"JSON.IsNull"}},
      {"Test.Thorw", {"Test.Throw"}},
      {"Size", {"JSON.Size"}},               // the part after the dot
      {"Foo.Size", {}},                      // a wrong prefix is not a slip
      {"JSON.Gt", {"JSON.At", "JSON.Get"}},  // equally near: all, in order
      {"JSON.Foo", {}},
      {"Nope.Nothing", {}},
      {"Tx", {}},  // two letters are near anything
      {"", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(NearestNames(c.typed, kKnown), c.offered) << c.typed;
  EXPECT_EQ(NearestNames("a.Name", {"d.Name", "c.Name", "b.Name", "e.Name"}),
            (Names{"b.Name", "c.Name", "d.Name"}));
}

TEST(Hints, UnknownNamesAnswerWithTheNearest) {
  EXPECT_STREQ(Unknown("function", "Nope.Nothing", kKnown).what(), "unknown function Nope.Nothing");
  EXPECT_STREQ(Unknown("function", "JSON.Gt", kKnown).what(),
               "unknown function JSON.Gt; did you mean JSON.At or JSON.Get?");
  EXPECT_STREQ(Unknown("variable", "a.Name", {"b.Name", "c.Name", "d.Name"}).what(),
               "unknown variable a.Name; did you mean b.Name, c.Name or d.Name?");
}

TEST(Hints, NoOverloadListsSeveralOnePerLine) {
  const ScriptError one = NoOverload("Test.Describe", {"NUMBER"}, {{"STRING"}});
  EXPECT_STREQ(one.what(), "no overload Test.Describe (NUMBER); declared: Test.Describe (STRING)");
  EXPECT_TRUE(one.list.empty());

  const ScriptError several =
      NoOverload("JSON.SetSubNode", {"JSON", "STRING", "Widget"},
                 {{"JSON", "STRING", "NUMBER"}, {"JSON", "STRING", "STRING"}, {}});
  EXPECT_STREQ(several.what(), "no overload JSON.SetSubNode (JSON,STRING,Widget); declared:");
  EXPECT_EQ(several.list, (Names{"JSON.SetSubNode (JSON,STRING,NUMBER)",
                                 "JSON.SetSubNode (JSON,STRING,STRING)", "JSON.SetSubNode ()"}));
}

TEST(Hints, CompletionExtendsAsFarAsTheChoicesAgree) {
  const Names words = {"JSON.Get", "JSON.GetSubNode", "JSON.Size",  "ToString", "doc",
                       "docs",     ":help",           ":functions", ":quit"};
  struct Case {
    const char* typed;
    const char* insert;
    Names choices;
  } cases[] = {
      {"JSON.Si", "ze", {"JSON.Size"}},
      {"print JSON.Si", "ze", {"JSON.Size"}},
      {"JSON.Size(do", "c", {"doc", "docs"}},
      {"JSON.G", "et", {"JSON.Get", "JSON.GetSubNode"}},
      {"JSON.Get", "", {"JSON.Get", "JSON.GetSubNode"}},
      {"ToString", "", {"ToString"}},
      {"x", "", {}},
      {":h", "elp", {":help"}},
      {"  :", "", {":functions", ":help", ":quit"}},
      {"doc :h", "", {}},  // a command only starts a line
      {"h", "", {}},       // nor does a name become one
      {"", "", {"JSON.Get", "JSON.GetSubNode", "JSON.Size", "ToString", "doc", "docs"}},
  };
  for (const Case& c : cases) {
    const Completion completion = Complete(c.typed, words);
    EXPECT_EQ(completion.insert, c.insert) << c.typed;
    EXPECT_EQ(completion.choices, c.choices) << c.typed;
  }
}

// A completed command gets the blank its argument needs; a name does not,
// since what follows it may be "(" or ",".
TEST(Hints, TabAddsABlankAfterACompletedCommand) {
  const Names words = {":functions", ":function_x", ":help", ":quit", "JSON.Size", "JSON.Set"};
  struct Case {
    const char* typed;
    const char* inserted;
  } cases[] = {
      {":fu", "nction"},  // two commands still possible: no blank yet
      {":functions", " "}, {":function_", "x "}, {":h", "elp "},
      {"JSON.Si", "ze"},   {"JSON.Se", "t"},     {"nothing", ""},
  };
  for (const Case& c : cases)
    EXPECT_EQ(TabInsertion(Complete(c.typed, words)), c.inserted) << c.typed;
}

}  // namespace
}  // namespace zhost
