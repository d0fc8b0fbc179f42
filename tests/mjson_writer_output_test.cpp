// The text writers' output buffering: texts that fill the first buffer, many
// blocks, or more blocks than one pass keeps, indentation runs of every
// length, escapes that grow a string sixfold, and numbers too long for the
// writer's fixed room. The text must come out the same however it is cut.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

#include "Mjson.h"

namespace {

JsonAutoRefPtr<JsonValue> Parse(const std::string& text) {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  JsonAutoRefPtr<JsonValue> v = JsonValue::ReadFromString(text, &ctx, nullptr);
  EXPECT_TRUE(v) << ctx.fError;
  return v;
}

// Joins pieces (GCC 12 warns falsely about "literal" + std::string).
std::string Cat(std::initializer_list<std::string_view> pieces) {
  std::string out;
  for (std::string_view p : pieces) out.append(p);
  return out;
}

std::string Repeat(const std::string& s, size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += s;
  return out;
}

// Compact text that a writer gives back byte for byte: no blanks, reals
// that keep their source text, keys in insertion order.
TEST(TextWriterOutput, CompactTextComesBackWhateverItsLength) {
  const std::string escapes = "\"\\\x01\x1f\b\t\n\f\r";
  const std::string escaped = "\\\"\\\\\\u0001\\u001F\\b\\t\\n\\f\\r";
  struct Case {
    const char* name;
    std::string text;
  } cases[] = {
      {"empty array", "[]"},
      {"just below the first buffer", Cat({"[\"", std::string(8180, 'a'), "\"]"})},
      {"just above the first buffer", Cat({"[\"", std::string(8200, 'a'), "\"]"})},
      // Many short values: every block boundary falls inside some value.
      {"many small values",
       Cat({"[", Repeat("{\"k\":12345,\"s\":\"abc\",\"r\":1.50},", 60000), "0]"})},
      // A string six times longer written than held, over many blocks.
      {"escapes", Cat({"[\"", Repeat(escaped, 40000), "\",\"", Repeat(escaped, 3), "\"]"})},
      // A real's text (an integer too large for 64 bits, kept as read)
      // longer than the room the writer sets aside for one,
      // among values before and after it, so that it goes out in the
      // middle of a text already in blocks.
      {"long real", Cat({"[", Repeat("1234567,", 20000), std::string(3000, '7'), ",",
                         Repeat("-89,", 20000), "0]"})},
      // More than one pass of blocks keeps: the string is filled in parts.
      {"tens of megabytes",
       Cat({"[", Repeat(Cat({"\"", std::string(16000, 'x'), "\","}), 1800), "\"end\"]"})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    JsonAutoRefPtr<JsonValue> v = Parse(c.text);
    ASSERT_TRUE(v);
    std::string out = "stale";
    v->WriteToString(out);
    EXPECT_TRUE(out == c.text) << out.size() << " bytes against " << c.text.size();
    // Appending keeps what the string held.
    std::string appended = "prefix";
    v->AppendToString(appended);
    EXPECT_TRUE(appended == Cat({"prefix", c.text}));
  }
  // The escape table itself, on the plain string.
  JsonString s{std::string(escapes)};
  std::string out;
  s.AppendToString(out);
  EXPECT_EQ(out, Cat({"\"", escaped, "\""}));
}

// Arrays nested `depth` deep around one number, laid out as the indented
// writer lays them out.
std::string NestedPretty(size_t depth, const std::string& unit, const std::string& newline) {
  std::string out;
  for (size_t d = 0; d < depth; ++d) out += Cat({"[", newline, Repeat(unit, d + 1)});
  out += "1";
  for (size_t d = depth; d-- > 0;) out += Cat({newline, Repeat(unit, d), "]"});
  return out;
}

TEST(TextWriterOutput, IndentationRunsOfEveryLength) {
  struct Case {
    std::string unit, newline;
    size_t depth;
  } cases[] = {
      {"  ", "\n", 40},                  // runs up to 82 bytes: every copy size
      {"", "\n", 50},                    // no indentation at all
      {" ", "", 70},                     // no line breaks
      {"\t", "\r\n", 200},               // a two-byte break
      {std::string(37, ' '), "\n", 30},  // one unit longer than a short run
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.unit.size() << " " << c.newline.size() << " " << c.depth);
    JsonAutoRefPtr<JsonValue> v =
        Parse(Cat({std::string(c.depth, '['), "1", std::string(c.depth, ']')}));
    ASSERT_TRUE(v);
    std::string out;
    v->WriteToStringPretty(out, c.unit, c.newline);
    EXPECT_TRUE(out == NestedPretty(c.depth, c.unit, c.newline)) << out.substr(0, 200);
  }

  // Siblings at each depth, objects among them: commas come from the same
  // runs as the breaks.
  JsonAutoRefPtr<JsonValue> v = Parse("{\"a\":[1,[2,{\"b\":[3,4]}],5],\"c\":6}");
  ASSERT_TRUE(v);
  std::string out;
  v->WriteToStringPretty(out, "    ", "\n");
  EXPECT_EQ(out,
            "{\n    \"a\": [\n        1,\n        [\n            2,\n            {\n"
            "                \"b\": [\n                    3,\n                    4\n"
            "                ]\n            }\n        ],\n        5\n    ],\n    \"c\": 6\n}");
}

// A large indented text, checked by what it reads back as and by its size.
TEST(TextWriterOutput, LargeIndentedTextReadsBack) {
  JsonAutoRefPtr<JsonValue> v = Parse(
      Cat({"[", Repeat("{\"key\":[1,\"two\",3.0,null,{\"deep\":[true,false]}]},", 30000), "[]]"}));
  ASSERT_TRUE(v);
  std::string pretty;
  v->WriteToStringPretty(pretty, "   ", "\r\n");
  JsonAutoRefPtr<JsonValue> back = Parse(pretty);
  ASSERT_TRUE(back);
  EXPECT_TRUE(*back == *v);
  std::string compact, again;
  v->WriteToString(compact);
  back->WriteToString(again);
  EXPECT_TRUE(compact == again);
}

}  // namespace
