// Unit tests of how the runner takes its lines: where a run stops, what a
// terminal session shows around the lines, and the :help listing, which no
// golden script prints.
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <utility>

#include "Host.h"
#include "LineReader.h"
#include "Script.h"
#include "TerminalSignals.h"

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

// Lines as typed at a terminal, where "^C" stands for Ctrl-C abandoning
// what was typed. `prompts` shows the prompt each read showed: 'z' for
// "zentor> ", '.' for the continuation prompt.
class TypedLines final : public LineReader {
 public:
  explicit TypedLines(std::vector<std::string> lines) : fLines(std::move(lines)) {}
  std::optional<std::string> ReadLine() override {
    for (;;) {
      prompts += fContinued ? '.' : 'z';
      if (fNext >= fLines.size()) return std::nullopt;
      if (fLines[fNext] != "^C") return fLines[fNext++];
      ++fNext;
      fAbandoned = true;
      fContinued = false;
    }
  }
  void Continue(bool continued) override { fContinued = continued; }
  bool TakeAbandoned() override { return std::exchange(fAbandoned, false); }
  std::string prompts;

 private:
  std::vector<std::string> fLines;
  size_t fNext = 0;
  bool fContinued = false;
  bool fAbandoned = false;
};

class TerminalFixture : public ::testing::Test {
 protected:
  std::ostringstream text;
  Output out{text};
  Host host{out};
  Script script{host, ScriptOptions{false, true, false}};

  std::string Type(std::vector<std::string> lines, std::string* prompts = nullptr) {
    text.str("");
    TypedLines reader(std::move(lines));
    script.RunLines(reader);
    if (prompts) *prompts = reader.prompts;
    return text.str();
  }
};

TEST_F(TerminalFixture, StatementsGoOnWhileAStringOrBracketIsOpen) {
  std::string prompts;
  EXPECT_EQ(
      Type({"let v = numbers[1,", "  2]", "v", "let s = \"a", "b # no comment\"", "s",
            "let t = strings[\"x\", # a comment", "\"y\"]", "t", "for i in 1 .. 2",
            "  echo numbers[i,", "  i]", "end"},
           &prompts),
      "numbers[1,2]\n\"a\\nb # no comment\"\nstrings[\"x\",\"y\"]\nnumbers[1,1]\nnumbers[2,2]\n");
  EXPECT_EQ(prompts, "z.zz.zz.zz...z");
  // A mistake names the line the statement began on.
  EXPECT_EQ(Type({"print 1", "nope(", ")"}),
            "1\n! script error at line 2: unknown function nope\n");
}

TEST_F(TerminalFixture, CtrlCAbandonsTheOpenStatementOrBlock) {
  std::string prompts;
  EXPECT_EQ(Type({"let v = numbers[1,", "^C", "print 1", "for i in 1 .. 2", "for j in 1 .. 2",
                  "echo j", "^C", "print 2", "v"},
                 &prompts),
            "1\n2\n! script error at line 7: unknown variable v\n");
  EXPECT_EQ(prompts, "z.zz...zzz");
}

TEST_F(TerminalFixture, InputEndingInsideAStatementRunsItAsItStands) {
  EXPECT_EQ(Type({"print \"open"}), "! script error at line 1: unterminated string\n");
  EXPECT_TRUE(script.LastFailed());
  EXPECT_EQ(Type({"for i in 1 .. 2", "echo i"}),
            "! script error at line 1: the for block has no end\n");
  EXPECT_TRUE(script.LastFailed());
}

// A script has one statement per line; a for block is its only way over
// several lines.
TEST_F(RunFixture, ScriptsDoNotContinueOpenStatements) {
  std::istringstream in("let v = numbers[1,\n2]\nfor i in 1 .. 2\necho i\nend\n");
  StreamLineReader reader(in);
  script.RunLines(reader);
  EXPECT_EQ(text.str(),
            "! script error at line 1: expected a value at column 19, found end of line\n"
            "! script error at line 2: expected end of line at column 2, found ']'\n"
            "1\n2\n");
}

// :quit is no statement of its own: the session ends as its last statement
// left it, as it does at the end of input.
TEST_F(RunFixture, QuitKeepsTheStatusOfTheLastStatement) {
  script.RunLine("nope", 1);
  EXPECT_FALSE(script.RunLine(":quit", 2));
  EXPECT_TRUE(script.LastFailed());
  script.RunLine("1", 3);
  EXPECT_FALSE(script.RunLine(":q", 4));
  EXPECT_FALSE(script.LastFailed());
}

TEST_F(RunFixture, StrictCountsWhatModulesReportAsFailures) {
  std::string error;
  ASSERT_TRUE(host.Load("libzentor_testmod.so", error)) << error;
  Script strict(host, ScriptOptions{false, false, true});
  struct Step {
    const char* line;
    bool fails;
  } steps[] = {
      {"Test.Report(1, \"W\", \"a warning\")", false},
      {"Test.Report(2, \"E\", \"an error\")", true},
      {"Test.Report(3, \"F\", \"fatal\")", true},
      {"Test.Throw(\"boom\")", true},
      {"Test.Status(0x20001)", true},
      {"Test.Status(0)", false},
      {"nope", true},  // a mistake, counted as one already
  };
  int failures = 0;
  for (const Step& step : steps) {
    strict.RunLine(step.line, 1);
    script.RunLine(step.line, 1);
    EXPECT_EQ(strict.LastFailed(), step.fails) << step.line;
    EXPECT_EQ(script.LastFailed(), step.line == std::string("nope")) << step.line;
    failures += step.fails && step.line != std::string("nope");
  }
  EXPECT_EQ(strict.StrictFailures(), failures);
  EXPECT_EQ(strict.Errors(), 1);
  EXPECT_EQ(script.StrictFailures(), 0);
}

TEST_F(RunFixture, AtTheTerminalHelpShowsHowStatementsLookFirst) {
  script.RunLine(":help", 1);
  const std::string commands = text.str();
  Script session(host, ScriptOptions{false, true, false});
  for (const char* line : {"help", "?", ":help"}) {
    text.str("");
    session.RunLine(line, 1);
    const std::string shown = text.str();
    EXPECT_EQ(shown.rfind("Statements, one per line:\n", 0), 0u) << line;
    EXPECT_EQ(shown.substr(shown.size() - commands.size()), commands) << line;
    for (const char* needle : {"for NAME in A .. B", ":time STATEMENT", ":functions",
                               "docs/script-language.md", "docs/functions.md", "....>"})
      EXPECT_NE(shown.find(needle), std::string::npos) << needle;
  }
}

// "time: 12.345 ms": a duration with three decimals.
bool IsTimeLine(const std::string& line) {
  const std::string head = "time: ", tail = " ms";
  if (line.size() < head.size() + tail.size() + 5 || line.rfind(head, 0) != 0 ||
      line.compare(line.size() - tail.size(), tail.size(), tail) != 0)
    return false;
  const std::string number = line.substr(head.size(), line.size() - head.size() - tail.size());
  const size_t point = number.find('.');
  return point != std::string::npos && point > 0 && number.size() - point == 4 &&
         number.find_first_not_of("0123456789.") == std::string::npos;
}

TEST_F(RunFixture, TimeFollowsWhatTheStatementOrBlockPrinted) {
  script.RunLine(":time 1", 1);
  for (const char* line : {":time for i in 1 .. 2", "  i", "end"}) script.RunLine(line, 2);
  std::vector<std::string> lines;
  std::istringstream printed(text.str());
  for (std::string line; std::getline(printed, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 5u) << text.str();
  EXPECT_EQ(lines[0], "1");
  EXPECT_TRUE(IsTimeLine(lines[1])) << lines[1];
  EXPECT_EQ(lines[2], "1");
  EXPECT_EQ(lines[3], "2");
  EXPECT_TRUE(IsTimeLine(lines[4])) << lines[4];
  for (const char* wrong : {"time: 1.23 ms", "time: .123 ms", "time: 1.234 s", "1"})
    EXPECT_FALSE(IsTimeLine(wrong)) << wrong;
}

TEST_F(TerminalFixture, CtrlCStopsARunningLoop) {
  TerminalSignals signals(false);
  std::raise(SIGINT);  // as if typed while the first round ran
  EXPECT_EQ(Type({"for i in 1 .. 3", "echo i", "end", "print 4"}),
            "1\n! for block at line 1 stopped by Ctrl-C after 1 round\n4\n");
}

}  // namespace
}  // namespace zhost
