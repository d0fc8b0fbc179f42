// The text parser and writer: messages, line counting, numbers, escapes,
// UTF-8, member order and formatting.
#include <gtest/gtest.h>

#include "Mjson.h"

namespace {

struct Parsed {
  JsonAutoRefPtr<JsonValue> value;
  ParserContext ctx;
};

Parsed ParseText(const std::string& text, bool keepOrder = true) {
  Parsed p;
  p.ctx.fKeepObjectOrder = keepOrder;
  p.value = JsonValue::ReadFromString(text, &p.ctx, nullptr);
  return p;
}

std::string Compact(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

TEST(TextParser, AcceptsAndWritesBack) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"{\"a\":[1,2]}", "{\"a\":[1,2]}"},
      {" \t\r\n null \n", "null"},
      {"\xEF\xBB\xBF[true ,false]", "[true,false]"},
      {"{\"a\":1,\"a\":2}", "{\"a\":2}"},
      {"{\"b\":1,\"a\":2,\"b\":3}", "{\"b\":3,\"a\":2}"},
      {"[1.50,2E3,-0.0e+1]", "[1.50,2E3,-0.0e+1]"},
      {"18446744073709551615", "18446744073709551615"},
      {"18446744073709551616", "18446744073709551616"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"-9223372036854775807", "-9223372036854775807"},
      {"-0", "0"},
      {"\"\\uD83D\\uDE00\"", "\"\xF0\x9F\x98\x80\""},
      // Surrogates are joined with OR: D840 DC00 gives U+10000, not U+20000.
      {"\"\\uD840\\uDC00\"", "\"\xF0\x90\x80\x80\""},
      {"\"\\uD83D\"", "\"\xED\xA0\xBD\""},
      {"\"\\uDE00x\"", "\"\xED\xB8\x80x\""},
      {"\"\\uD83D\\u0041\"",
       "\"\xED\xA0\xBD"
       "A\""},
      {"\"\\u0000\"", "\"\\u0000\""},
      {"\"\\/\\b\\f\\n\\r\\t\\\"\\\\\"", "\"/\\b\\f\\n\\r\\t\\\"\\\\\""},
      {"\"caf\xC3\xA9\"", "\"caf\xC3\xA9\""},
      {"{\"\":{}}", "{\"\":{}}"},
  };
  for (const Case& c : cases) {
    Parsed p = ParseText(c.in);
    ASSERT_TRUE(p.value) << c.in << ": " << p.ctx.fError;
    EXPECT_EQ(Compact(*p.value), c.out) << c.in;
    EXPECT_TRUE(p.ctx.fCompleted);
  }
}

TEST(TextParser, RejectsWithExactMessageAndLine) {
  struct Case {
    std::string in, error;
    size_t line;
  } cases[] = {
      {"", "unexpected end of input", 0},
      {"  \n ", "unexpected end of input", 1},
      {"\xEF\xBB\xBF", "unexpected end of input", 0},
      {"012", "illegal trailing characters after value", 0},
      {"truex", "illegal trailing characters after value", 0},
      {"tru", "not a JSON value", 0},
      {"+1", "not a JSON value", 0},
      {"'a'", "not a JSON value", 0},
      {"-", "not a number", 0},
      {"-a", "not a number", 0},
      {"1.", "minimum one digit after decimal dot required", 0},
      {"1.e5", "minimum one digit after decimal dot required", 0},
      {"1e", "minimum one digit after exponent required", 0},
      {"1e+", "minimum one digit after exponent required", 0},
      {"1e400", "real number out of double range", 0},
      {"-1e400", "real number out of double range", 0},
      {"\"abc", "string quote sign expected", 0},
      {"\"ab\\", "string quote sign expected", 0},
      {"\"\\q\"", "illegally quoted character", 0},
      {"\"\\u12\"", "incorrect utf16 char quoting", 0},
      {"\"\\u12G4\"", "incorrect utf16 char quoting", 0},
      {"\"\\uD83D\\uZZZZ\"", "incorrect utf32 char quoting", 0},
      {"\"a\tb\"", "control character must be quoted", 0},
      {"\"\xFF\"", "illegal UTF8 character found at position 0", 0},
      {"\"ab\xC3\"",
       "illegal UTF8 character found at position 2 in string which starts with \"ab\"", 0},
      {"{", "illegal object", 0},
      {"{\"a\":1,}", "object list must not end with a comma", 0},
      {"{,\"a\":1}", "expected key value pair in front before comma", 0},
      {"{\"a\":1,,\"b\":2}", "expected key value pair in front before comma", 0},
      {"{\"a\":1 \"b\":2}", "comma separator expected between key value pairs", 0},
      {"{1:2}", "key (string) expected", 0},
      {"{\"a", "string quote sign expected while parsing a key", 0},
      {"{\"a\" 1}", "colon expected", 0},
      {"{\"a\":}", "not a JSON value while parsing a value", 0},
      {"{\"a\":{\"b\":x}}", "not a JSON value while parsing a value while parsing a value", 0},
      {"{\"a\":[{\"b\":[x]}]}", "not a JSON value while parsing a value while parsing a value", 0},
      {"{\"a\":{\"b\":1,}}", "object list must not end with a comma while parsing a value", 0},
      {"[", "illegal array", 0},
      {"[1,]", "array must not end with comma", 0},
      {"[,1]", "expected value in front before comma", 0},
      {"[1 2]", "comma separator expected between values", 0},
      {"[1,\r\n2,\n\r3,\r\r4,\n\n x]", "not a JSON value", 6},
      {"{\"a\":\n[1,\n}", "not a JSON value while parsing a value", 2},
  };
  for (const Case& c : cases) {
    Parsed p = ParseText(c.in);
    EXPECT_FALSE(p.value) << c.in;
    EXPECT_EQ(p.ctx.fError, c.error) << c.in;
    EXPECT_EQ(p.ctx.fLine, c.line) << c.in;
    EXPECT_FALSE(p.ctx.fCompleted) << c.in;
  }
}

// The blank skipper takes runs of spaces sixteen bytes at a time; line
// counting must not depend on where a break falls against those blocks. Random runs of the
// four blanks, up to four blocks long, against a byte-by-byte count.
TEST(TextParser, SkipWhitespaceCountsBreaksAtAnyOffset) {
  struct Expected {
    size_t position, line, lineStart;
  };
  auto reference = [](const std::string& s, size_t p) {
    Expected e{p, 0, 0};
    while (e.position < s.size()) {
      char c = s[e.position];
      if (c == ' ' || c == '\t') {
        ++e.position;
      } else if (c == '\n' || c == '\r') {
        ++e.position;
        if (e.position < s.size() && s[e.position] == (c == '\n' ? '\r' : '\n')) ++e.position;
        ++e.line;
        e.lineStart = e.position;
      } else {
        break;
      }
    }
    return e;
  };
  // Mostly one kind of break per text, as real files have, sometimes mixed.
  const std::string alphabets[] = {" \n", " \t\n", " \r\n", " \t\r\n"};
  uint32_t seed = 12345;
  auto next = [&seed] {
    seed = seed * 1103515245u + 12345u;
    return seed >> 16;
  };
  for (int round = 0; round < 4000; ++round) {
    const std::string& alphabet = alphabets[round % 4];
    std::string s = "x";
    for (size_t i = 0, length = next() % 64; i < length; ++i) {
      unsigned r = next();
      s.push_back(r % 3 ? ' ' : alphabet[r / 3 % alphabet.size()]);
    }
    if (round % 2) s.push_back('x');
    ParserContext ctx;
    ctx.fPosition = 1;
    JsonValue::SkipWhitespace(s, ctx);
    Expected e = reference(s, 1);
    ASSERT_EQ(ctx.fPosition, e.position) << round;
    ASSERT_EQ(ctx.fLine, e.line) << round;
    ASSERT_EQ(ctx.fLineStart, e.lineStart) << round;
  }
}

TEST(TextParser, ClassifiesNumbers) {
  struct Case {
    const char* in;
    JsonValue::EJsonValueType type;
    bool largeUnsigned;
    bool pendingText;
  } cases[] = {
      {"0", JsonValue::Integer, false, false},
      {"9223372036854775807", JsonValue::Integer, false, false},
      {"9223372036854775808", JsonValue::Integer, true, false},
      {"18446744073709551615", JsonValue::Integer, true, false},
      {"18446744073709551616", JsonValue::Real, false, true},
      {"-9223372036854775807", JsonValue::Integer, false, false},
      {"-9223372036854775808", JsonValue::Real, false, true},
      {"1.5", JsonValue::Real, false, true},
      {"1e4", JsonValue::Real, false, true},
      {"1e40", JsonValue::Real, false, false},                  // two exponent digits: at once
      {"0.123456789012345678", JsonValue::Real, false, false},  // eighteen fraction digits
      {"0.12345678901234567", JsonValue::Real, false, true},
  };
  for (const Case& c : cases) {
    Parsed p = ParseText(c.in);
    ASSERT_TRUE(p.value) << c.in;
    EXPECT_EQ(p.value->Type(), c.type) << c.in;
    if (c.type == JsonValue::Integer)
      EXPECT_EQ(static_cast<JsonInteger*>(p.value.get())->IsLargeUnsigned(), c.largeUnsigned)
          << c.in;
    else
      EXPECT_EQ(static_cast<JsonReal*>(p.value.get())->HasPendingText(), c.pendingText) << c.in;
  }
  // Hundreds of integer digits without a fraction stay text and read as
  // infinity.
  Parsed big = ParseText(std::string(320, '9'));
  ASSERT_TRUE(big.value);
  EXPECT_EQ(big.value->GetAsReal(), JsonReal::sInfinity);
}

TEST(TextParser, LazyRealsKeepTheirTextUntilRead) {
  Parsed p = ParseText("[1.50,2E3,1e40,0.1]");
  ASSERT_TRUE(p.value);
  EXPECT_EQ(Compact(*p.value), "[1.50,2E3,1e+40,0.1]");
  auto* array = static_cast<JsonArray*>(p.value.get());
  for (size_t i = 0; i < array->Size(); ++i) array->AtIndexAsReal(i);
  // Once read, a real writes with the digit count its text carried.
  EXPECT_EQ(Compact(*p.value), "[1.5,2e+03,1e+40,0.1]");
}

TEST(TextParser, InvalidInputUTF8NamesTheString) {
  Parsed p = ParseText("[\"ok\", \"caf\xC3\xA9 \xE9t\xE9\"]");
  EXPECT_FALSE(p.value);
  EXPECT_EQ(
      p.ctx.fError,
      "illegal UTF8 character found at position 6 in string which starts with \"caf\xC3\xA9 \"");
  // Without the whole-input check every string is checked on its own.
  ParserContext ctx;
  ctx.fCheckInputUTF8 = false;
  EXPECT_FALSE(JsonValue::ReadFromString("\"\xC0\"", &ctx, nullptr));
  EXPECT_EQ(ctx.fError, "illegal UTF8 character found at position 0");
  ParserContext lax;
  lax.fNoUTF8Check = true;
  auto v = JsonValue::ReadFromString("{\"\xFF\":\"\xFE\"}", &lax, nullptr);
  ASSERT_TRUE(v);
  EXPECT_EQ(static_cast<JsonObject*>(v.get())->Size(), 1u);
}

TEST(TextParser, UTF8Validator) {
  struct Case {
    std::string s;
    bool ok;
    size_t bad;
  } cases[] = {
      {"plain ascii text that is longer than a word", true, 43},
      {"\xC3\xA9", true, 2},
      {"\xE2\x82\xAC", true, 3},
      {"\xF0\x9F\x98\x80", true, 4},
      {"\xC0\x80", true, 2},      // overlong forms pass
      {"\xED\xA0\x80", true, 3},  // so do encoded surrogates
      {"abcdefgh\x80", false, 8},
      {"\xC3", false, 0},
      {"\xE2\x82", false, 0},
      {"\xF0\x9F\x98", false, 0},
      {"a\xF8\x88\x80\x80\x80", false, 1},
      {"\xC3\x28", false, 0},
  };
  // The check runs in blocks of 16 and 64 bytes: each case also sits at
  // every offset across those seams, with ASCII around it.
  for (const Case& c : cases) {
    for (size_t before = 0; before <= 80; ++before) {
      for (size_t after : {0, 1, 3, 17, 64}) {
        std::string s = std::string(before, 'x') + c.s + std::string(after, 'y');
        size_t bad = 999;
        EXPECT_EQ(JsonValue::IsUTF8(s, &bad), c.ok) << c.s << " at " << before;
        EXPECT_EQ(bad, c.ok ? s.size() : before + c.bad) << c.s << " at " << before;
      }
    }
  }
  // Long runs of multi-byte text, broken at every position in turn.
  std::string text;
  while (text.size() < 200) text += "\xE2\x82\xAC\xC3\xA9\xF0\x9F\x98\x80z";
  EXPECT_TRUE(JsonValue::IsUTF8(text));
  for (size_t cut = 0; cut < text.size(); ++cut) {
    std::string broken = text;
    broken[cut] = static_cast<char>(0xFF);
    size_t bad = 999;
    EXPECT_FALSE(JsonValue::IsUTF8(broken, &bad)) << cut;
    EXPECT_LE(bad, cut) << cut;
  }
}

TEST(TextParser, KeepsInsertionOrder) {
  Parsed p = ParseText("{\"z\":1,\"a\":2,\"m\":3}");
  ASSERT_TRUE(p.value);
  std::string keys;
  for (auto s = static_cast<JsonObject*>(p.value.get())->StartTraversal(); !s.AtEnd(); ++s)
    keys += s.Key();
  EXPECT_EQ(keys, "zam");
}

TEST(TextParser, CompiledObjects) {
  JsonCompiledObjectContext inner;
  inner.AddKey("x", 0, nullptr);
  JsonCompiledObjectContext table;
  size_t name = table.AddKey("name", 0x0001 | JsonCompiledObjectContext::kRequired, nullptr);
  table.AddKey("tags", 0x0010, nullptr);
  table.AddKey("pos", JsonCompiledObjectContext::kCompiledObject, &inner);
  table.AddKey("meta", JsonCompiledObjectContext::kPlainObject, nullptr);
  EXPECT_EQ(name, 0u);

  ParserContext ctx;
  auto v = JsonValue::ReadFromString(
      "{\"tags\":[1],\"name\":\"n\",\"skip\":{\"deep\":[1]},\"pos\":{\"x\":2},\"meta\":{\"k\":1}}",
      &ctx, &table);
  ASSERT_TRUE(v) << ctx.fError;
  ASSERT_EQ(v->Type(), JsonValue::CompiledObject);
  auto* c = static_cast<JsonCompiledObject*>(v.get());
  EXPECT_TRUE(c->Completed());
  EXPECT_EQ(c->Size(), 4u);
  EXPECT_EQ(c->At("pos")->Type(), JsonValue::CompiledObject);
  // Slots are written in table order; the unknown key is gone.
  EXPECT_EQ(Compact(*v), "{\"name\":\"n\",\"tags\":[1],\"pos\":{\"x\":2},\"meta\":{\"k\":1}}");
  std::string pretty;
  v->WriteToStringPretty(pretty, " ", "\n");
  EXPECT_EQ(pretty.substr(0, 12), "{\n \"name\":\"n");

  struct Bad {
    const char* in;
    const char* error;
  } bad[] = {
      {"{\"pos\":1}", "illegal compiled object while parsing value"},
      {"{\"meta\":[1]}", "illegal object while parsing value"},
      {"{\"tags\":{}}", "illegal array while parsing value"},
      {"{\"name\":\"a\",}", "object list must not end with comma"},
      {"[{\"name\":\"a\"},1]", "illegal compiled object"},
      {"{\"pos\":{\"x\":y}}", "not a JSON value while parsing value while parsing value"},
  };
  for (const Bad& b : bad) {
    EXPECT_FALSE(JsonValue::ReadFromString(b.in, &ctx, &table)) << b.in;
    EXPECT_EQ(ctx.fError, b.error) << b.in;
  }
  // With this option, compiled objects refuse keys their table lacks.
  ctx.fFailOnDuplicateKey = true;
  EXPECT_FALSE(JsonValue::ReadFromString("{\"other\":1}", &ctx, &table));
  EXPECT_EQ(ctx.fError, "duplicate key");
  EXPECT_TRUE(JsonValue::ReadFromString("{\"name\":\"a\",\"name\":\"b\"}", &ctx, &table));
  // An unknown first key leaves the object empty, so a comma after it is
  // "in front of nothing".
  ctx.fFailOnDuplicateKey = false;
  EXPECT_FALSE(JsonValue::ReadFromString("{\"other\":1,\"name\":\"a\"}", &ctx, &table));
  EXPECT_EQ(ctx.fError, "expected key value pair in front before comma");
}

TEST(TextParser, TypedReaders) {
  ParserContext ctx;
  EXPECT_TRUE(JsonObject::ReadFromString("{}", &ctx));
  EXPECT_FALSE(JsonObject::ReadFromString("[]", &ctx));
  EXPECT_TRUE(ctx.fError.empty());
  EXPECT_TRUE(JsonArray::ReadFromString("[]", &ctx, nullptr));
  EXPECT_FALSE(JsonArray::ReadFromString("1", &ctx, nullptr));
  EXPECT_FALSE(JsonValue::ReadFromString("{", nullptr, nullptr));
}

TEST(TextWriter, Integers) {
  struct Case {
    long long raw;
    bool large;
    const char* out;
  } cases[] = {
      {0, false, "0"},
      {7, false, "7"},
      {-7, false, "-7"},
      // Each width the digits are written in groups of: 1, 2, 4 and 8.
      {9, false, "9"},
      {10, false, "10"},
      {99, false, "99"},
      {100, false, "100"},
      {9999, false, "9999"},
      {10000, false, "10000"},
      {10203, false, "10203"},
      {99999999, false, "99999999"},
      {100000000, false, "100000000"},
      {-100000009, false, "-100000009"},
      {1000000000000, false, "1000000000000"},
      {9999999999999, false, "9999999999999"},
      {10000000000000000, false, "10000000000000000"},
      {INT64_MAX, false, "9223372036854775807"},
      {INT64_MIN, false, "-9223372036854775808"},
      {-1, true, "18446744073709551615"},
      // The digit count comes from log10 of the magnitude as a double, which
      // rounds up just below a power of ten: the text gets a leading zero.
      {999999999999999999, false, "0999999999999999999"},
      {-999999999999999999, false, "-0999999999999999999"},
  };
  for (const Case& c : cases) {
    JsonInteger v =
        c.large ? JsonInteger(static_cast<unsigned long long>(c.raw), true) : JsonInteger(c.raw);
    std::string out;
    v.AppendToString(out);
    EXPECT_EQ(out, c.out);
  }
}

TEST(TextWriter, Reals) {
  struct Case {
    double v;
    int digits;
    const char* out;
  } cases[] = {
      {3.0, 0, "3.0"},
      {-0.0, 0, "0.0"},
      {0.1, 0, "0.1"},
      {-2.5, 0, "-2.5"},
      {1e-7, 0, "0.0"},
      {1e20, 0, "100000000000000000000.0"},
      {-9223372036854775808.0, 0, "-9223372036854775808.0"},
      {__builtin_nan(""), 0, "nan"},
      {-__builtin_inf(), 0, "inf"},
      {1.5, 3, "1.5"},
      {2000, 1, "2e+03"},
      {12, 2, "12.0"},
      {0.125, 17, "0.125"},
  };
  for (const Case& c : cases) {
    JsonReal v(c.v, c.digits);
    std::string out;
    v.AppendToString(out);
    EXPECT_EQ(out, c.out) << c.v;
  }
}

TEST(TextWriter, StringsAndLayout) {
  JsonString s(std::string("a\tb\x01\xC3\xA9\"\\/\x1F"));
  EXPECT_EQ(Compact(s), "\"a\\tb\\u0001\xC3\xA9\\\"\\\\/\\u001F\"");

  auto v = ParseText("{\"a\":[1,{\"b\":null},[]],\"c\":{}}").value;
  ASSERT_TRUE(v);
  std::string pretty;
  v->WriteToStringPretty(pretty, "  ", "\n");
  EXPECT_EQ(
      pretty,
      "{\n  \"a\": [\n    1,\n    {\n      \"b\": null\n    },\n    []\n  ],\n  \"c\": {}\n}");
  pretty = "stale";
  ParseText("{\"k\":1}").value->WriteToStringPretty(pretty, "  ", "\n");
  EXPECT_EQ(pretty, "{\n  \"k\": 1\n}");
  ParseText("[]").value->WriteToStringPretty(pretty, "  ", "\n");
  EXPECT_EQ(pretty, "[]");
}

// Runs `fn` on a thread whose stack is only 256 KB.
void OnSmallStack(void (*fn)()) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attr,
                [](void* f) -> void* {
                  reinterpret_cast<void (*)()>(f)();
                  return nullptr;
                },
                reinterpret_cast<void*>(fn)),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

constexpr size_t kDeep = 1000000;

void DeepArrays() {
  std::string text(kDeep, '[');
  text.append(kDeep, ']');
  ParserContext ctx;
  auto v = JsonValue::ReadFromString(text, &ctx, nullptr);
  ASSERT_TRUE(v) << ctx.fError;
  std::string out;
  v->WriteToString(out);
  EXPECT_EQ(out, text);
  auto copy = JsonValue::Copy(*v);
  EXPECT_TRUE(*copy == *v);
  EXPECT_EQ(v->GetAsString().size(), text.size());
}

void DeepObjects() {
  std::string text;
  for (size_t i = 0; i < kDeep; ++i) text += "{\"k\":";
  text += "x";
  text.append(kDeep, '}');
  ParserContext ctx;
  EXPECT_FALSE(JsonValue::ReadFromString(text, &ctx, nullptr));
  // One phrase per enclosing object.
  EXPECT_EQ(ctx.fError.size(), std::string("not a JSON value").size() +
                                   kDeep * std::string(" while parsing a value").size());
  text[text.size() - kDeep - 1] = '1';
  auto v = JsonValue::ReadFromString(text, &ctx, nullptr);
  ASSERT_TRUE(v) << ctx.fError.substr(0, 100);
  std::string out;
  v->WriteToString(out);
  EXPECT_EQ(out, text);
  EXPECT_TRUE(*JsonValue::Copy(*v) == *v);
}

TEST(TextParser, MillionLevelsOnDefaultStack) {
  DeepArrays();
  DeepObjects();
}

TEST(TextParser, MillionLevelsOnSmallStack) {
  OnSmallStack(DeepArrays);
  OnSmallStack(DeepObjects);
}

TEST(TextWriter, DeepPrettyOutput) {
  std::string text(2000, '[');
  text.append(2000, ']');
  auto v = ParseText(text).value;
  ASSERT_TRUE(v);
  std::string pretty;
  v->WriteToStringPretty(pretty, " ", "\n");
  auto back = ParseText(pretty).value;
  ASSERT_TRUE(back);
  EXPECT_TRUE(*back == *v);
}

}  // namespace
