// Unit tests of how the runner takes its lines: where a run stops, what a
// terminal session shows around the lines, and the :help listing, which no
// golden script prints.
#include <gtest/gtest.h>

#include <sstream>

#include "Host.h"
#include "LineReader.h"
#include "Script.h"

namespace zhost {
namespace {

class RunFixture : public ::testing::Test {
 protected:
  std::ostringstream text;
  Output out{text};
  Host host{out};
  Script script{host, false};
};

TEST_F(RunFixture, OnlyTheBareQuitWordStopsTheRun) {
  struct Case {
    const char* line;
    bool goesOn;
    const char* printed;  // when it goes on: part of the error
  } cases[] = {
      {":quit", false, nullptr},           {":q", false, nullptr},
      {"  :quit  \r", false, nullptr},     {":quit # now", true, "unknown command :quit"},
      {": q", true, "unknown command :q"}, {":quitting", true, "unknown command :quitting"},
  };
  for (const Case& c : cases) {
    text.str("");
    EXPECT_EQ(script.RunLine(c.line, 1), c.goesOn) << c.line;
    if (c.goesOn)
      EXPECT_NE(text.str().find(c.printed), std::string::npos) << c.line << " -> " << text.str();
    else
      EXPECT_EQ(text.str(), "") << c.line;
  }
}

TEST_F(RunFixture, RunLinesStopsAtQuitAndCountsLines) {
  std::istringstream in("print 1\n\nnope\n:q\nprint 2\n");
  StreamLineReader reader(in);
  script.RunLines(reader);
  EXPECT_EQ(text.str(), "1\n! script error at line 3: unknown variable nope\n");
  EXPECT_EQ(script.Errors(), 1);
}

TEST(LineReader, TerminalPromptsForEachLineAndEndsOnAFreshLine) {
  std::istringstream in("a\r\n\nb");
  std::ostringstream shown;
  std::vector<std::string> lines;
  {
    TerminalLineReader reader(in, shown, "zentor> ");
    while (const auto line = reader.ReadLine()) lines.push_back(*line);
    EXPECT_EQ(shown.str(), "zentor> zentor> zentor> zentor> ");
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"a\r", "", "b"}));
  EXPECT_EQ(shown.str(), "zentor> zentor> zentor> zentor> \n");
}

TEST_F(RunFixture, HelpListsEveryCommandInOneColumn) {
  script.RunLine(":help", 1);
  EXPECT_EQ(text.str(),
            ":modules                      loaded modules\n"
            ":metadata [MODULE]            metadata exports\n"
            ":definition [MODULE]          the definition text (asked anew) and its length\n"
            ":declarations [MODULE]        declarations as the host read them\n"
            ":missing                      declarations whose symbol is not exported\n"
            ":types                        registered user-defined types\n"
            ":functions [NAME]             overloads by script name\n"
            ":load PATH                    load a module\n"
            ":vars                         variables\n"
            ":lookup NAME WORD...          GetFunction as a module calls it\n"
            ":raise SEVERITY SOURCE CODE MESSAGE   report an error on the context\n"
            ":error                        the context's error state\n"
            ":clearerror                   clear it\n"
            ":interrupt on|off             the context's interrupted flag\n"
            ":newinstance                  change the host instance id\n"
            ":quit                         stop\n");
}

TEST_F(RunFixture, HelpAndQuestionMarkShowTheCommandList) {
  script.RunLine(":help", 1);
  const std::string help = text.str();
  for (const char* line : {"help", "?", "  help  "}) {
    text.str("");
    script.RunLine(line, 1);
    EXPECT_EQ(text.str(), help) << line;
  }
}

// Mistakes answer with what was probably meant, and show what was typed
// without letting it drive the terminal.
TEST_F(RunFixture, MistakesShowWhatWasMeant) {
  std::string error;
  ASSERT_TRUE(host.Load("libzentor_testmod.so", error)) << error;
  ASSERT_TRUE(script.RunLine("let counter = 1", 1));
  struct Case {
    const char* line;
    const char* printed;
  } cases[] = {
      {"\x1b[A", "! script error at line 1: unexpected character '\\x1b' at column 1\n"},
      {":functions Test.Thorw",
       "! script error at line 1: unknown function Test.Thorw; did you mean Test.Throw?\n"},
      {"countr", "! script error at line 1: unknown variable countr; did you mean counter?\n"},
      {"Test.Status",
       "! script error at line 1: Test.Status is a function: call it as Test.Status(...)\n"},
      {"Test.Throw(true)",
       "! script error at line 1: no overload Test.Throw (BOOLEAN); declared:\n"
       "  Test.Throw (STRING)\n"
       "  Test.Throw (NUMBER)\n"},
  };
  for (const Case& c : cases) {
    text.str("");
    script.RunLine(c.line, 1);
    EXPECT_EQ(text.str(), c.printed) << c.line;
  }
}

// How a terminal session ends depends on its last statement alone.
TEST_F(RunFixture, LastFailedFollowsTheLastStatement) {
  struct Step {
    const char* line;
    bool failed;
  } steps[] = {{"nope", true},  {"", true},      {"# note", true},   {"1", false},
               {":nope", true}, {"help", false}, {"let x = y", true}};
  for (const Step& step : steps) {
    script.RunLine(step.line, 1);
    EXPECT_EQ(script.LastFailed(), step.failed) << step.line;
  }
}

}  // namespace
}  // namespace zhost
