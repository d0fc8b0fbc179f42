// The MessagePack codec: shortest type codes, block assembly, every reader
// message at its position, UTF-8 handling, compiled objects, hostile
// headers, a million levels deep, and round trips of real documents.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <new>
#include <sstream>

#include "Mjson.h"

// The largest single request to the global heap, to show that a header's
// announced count is not allocated for up front.
static std::atomic<size_t> gLargestAllocation{0};

void* operator new(size_t n) {
  for (size_t seen = gLargestAllocation; n > seen;)
    if (gLargestAllocation.compare_exchange_weak(seen, n)) break;
  if (void* p = malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* p) noexcept {
  free(p);
}
void operator delete(void* p, size_t) noexcept {
  free(p);
}
#pragma GCC diagnostic pop

namespace {

// "CD 01 00" -> the three bytes.
std::string B(const char* hex) {
  std::string out;
  std::istringstream in(hex);
  std::string byte;
  while (in >> byte) out.push_back(static_cast<char>(std::stoi(byte, nullptr, 16)));
  return out;
}

std::string Pack(const JsonValue& v) {
  std::string out;
  EXPECT_TRUE(v.WriteToMsgPack(out));
  return out;
}

std::string Text(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

// The value's text, or the reader's message and position.
std::string Read(const std::string& bytes, ParserContext ctx = {},
                 const JsonCompiledObjectContext* table = nullptr) {
  ctx.fPosition = 99;  // the reader starts over
  auto v = JsonValue::ReadFromMsgPack(bytes, &ctx, table);
  EXPECT_EQ(ctx.fCompleted, static_cast<bool>(v));
  return v ? Text(*v) : ctx.fError + " @" + std::to_string(ctx.fPosition);
}

JsonAutoRefPtr<JsonValue> FromText(const std::string& text) {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  auto v = JsonValue::ReadFromString(text, &ctx, nullptr);
  EXPECT_TRUE(v) << text << ": " << ctx.fError;
  return v;
}

TEST(MsgPackWriter, ScalarsTakeTheShortestCode) {
  struct Case {
    const char *text, *bytes;
  } cases[] = {
      {"null", "C0"},
      {"false", "C2"},
      {"true", "C3"},
      {"\"\"", "A0"},
      {"\"ab\"", "A2 61 62"},
      {"0", "00"},
      {"127", "7F"},
      {"128", "CC 80"},
      {"255", "CC FF"},
      {"256", "CD 01 00"},
      {"65535", "CD FF FF"},
      {"65536", "CE 00 01 00 00"},
      {"4294967295", "CE FF FF FF FF"},
      {"4294967296", "CF 00 00 00 01 00 00 00 00"},
      {"9223372036854775807", "CF 7F FF FF FF FF FF FF FF"},
      {"9223372036854775808", "CF 80 00 00 00 00 00 00 00"},  // large unsigned
      {"-1", "FF"},
      {"-32", "E0"},
      {"-33", "D0 DF"},
      {"-128", "D0 80"},
      {"-129", "D1 FF 7F"},
      {"-32768", "D1 80 00"},
      {"-32769", "D2 FF FF 7F FF"},
      {"-2147483648", "D2 80 00 00 00"},
      {"-2147483649", "D3 FF FF FF FF 7F FF FF FF"},
      {"1.5", "CA 3F C0 00 00"},
      {"-0.0", "CA 80 00 00 00"},
      {"1e-400", "CA 00 00 00 00"},
      {"0.1", "CB 3F B9 99 99 99 99 99 9A"},
      {"1e300", "CB 7E 37 E4 3C 88 00 75 9C"},
  };
  for (const Case& c : cases) EXPECT_EQ(Pack(*FromText(c.text)), B(c.bytes)) << c.text;
  EXPECT_EQ(Pack(JsonReal(HUGE_VAL, 0)), B("CA 7F 80 00 00"));
  EXPECT_EQ(Pack(JsonReal(std::nan(""), 0)), B("CB 7F F8 00 00 00 00 00 00"));

  // Writing a real still holding its source text settles it.
  auto v = FromText("[2.25]");
  auto* real = static_cast<const JsonReal*>(static_cast<JsonArray*>(v.get())->Values()[0]);
  ASSERT_TRUE(real->HasPendingText());
  EXPECT_EQ(Pack(*v), B("91 CA 40 10 00 00"));
  EXPECT_FALSE(real->HasPendingText());
}

TEST(MsgPackWriter, LengthAndCountHeaders) {
  struct Case {
    size_t n;
    const char *str, *array, *map;
  } cases[] = {
      {15, "AF", "9F", "8F"},
      {16, "B0", "DC 00 10", "DE 00 10"},
      {31, "BF", "DC 00 1F", "DE 00 1F"},
      {32, "D9 20", "DC 00 20", "DE 00 20"},
      {255, "D9 FF", "DC 00 FF", "DE 00 FF"},
      {256, "DA 01 00", "DC 01 00", "DE 01 00"},
      {65535, "DA FF FF", "DC FF FF", "DE FF FF"},
      {65536, "DB 00 01 00 00", "DD 00 01 00 00", "DF 00 01 00 00"},
  };
  for (const Case& c : cases) {
    JsonArray array;
    JsonObject object(false);
    for (size_t i = 0; i < c.n; ++i) {
      array.AddNull();
      object.InsertNull(std::to_string(i));
    }
    const std::string s(c.n, 'x');
    EXPECT_EQ(Pack(JsonString(s)), B(c.str) + s);
    EXPECT_EQ(Pack(array), B(c.array) + std::string(c.n, '\xC0'));
    std::string map = Pack(object);
    EXPECT_EQ(map.substr(0, B(c.map).size()), B(c.map));
    EXPECT_TRUE(*JsonValue::ReadFromMsgPack(map, nullptr, nullptr) == object);
  }
}

TEST(MsgPackWriter, Containers) {
  auto object = FromText("{\"b\":[],\"a\":{},\"c\":[true,null,-1]}");
  EXPECT_EQ(Pack(*object), B("83 A1 62 90 A1 61 80 A1 63 93 C3 C0 FF"));
  EXPECT_EQ(Pack(JsonCompiledObject(nullptr)), B("80"));
  JsonCompiledObjectContext table;
  for (const char* key : {"x", "y", "z"}) table.AddKey(key, 0, nullptr);
  JsonCompiledObject compiled(&table);
  EXPECT_EQ(Pack(compiled), B("80"));
  compiled.InsertInteger(2, 3LL);
  compiled.InsertBool(0, false);
  EXPECT_EQ(Pack(compiled), B("82 A1 78 C2 A1 7A 03"));  // table order, empty slots skipped
}

TEST(MsgPackWriter, BlocksAssembleInOrderAndOutputIsReplaced) {
  // Many small values cross block boundaries, and one string is larger than
  // the next block would be; each element packed alone fits one buffer.
  JsonArray array;
  std::string expected = B("DC 13 88");
  for (int i = 0; i < 5000; ++i) {
    if (i == 2500)
      array.AddString(std::string(70000, 'q'));
    else if (i % 3 == 0)
      array.AddString(std::string(static_cast<size_t>(i % 40), static_cast<char>('a' + i % 26)));
    else
      array.AddInteger(static_cast<long long>(i) * 7919 - 20000000);
    expected += Pack(*array.Values().back());
  }
  std::string out = "old";
  ASSERT_TRUE(array.WriteToMsgPack(out));
  EXPECT_TRUE(out == expected);

  // After an error nothing reaches the string.
  BigEndianWriter w(&out);
  w.Write8(0xC3);
  w.SetError();
  EXPECT_FALSE(w.Finish());
  EXPECT_TRUE(out == expected);
}

TEST(MsgPackWriterDeathTest, ChecksStayOnInReleaseBuilds) {
  EXPECT_DEATH(BigEndianWriter(nullptr), "Assertion `str' failed");
  JsonCompiledObjectContext table;
  table.AddKey("a", 0, nullptr);
  JsonCompiledObject object(&table);
  object.InsertNull(0);
  object.Erase(0);  // leaves the filled count as it was
  std::string out;
  EXPECT_DEATH(object.WriteToMsgPack(out), "Mjson:3830: AppendToMsgPack: .*count == fCountFilled");
}

TEST(MsgPackReader, DecodesEveryType) {
  struct Case {
    const char *bytes, *text;
  } cases[] = {
      {"C0", "null"},
      {"C2", "false"},
      {"C3", "true"},
      {"7F", "127"},
      {"FF", "-1"},
      {"CC FF", "255"},
      {"CD FF FE", "65534"},
      {"CE FF FF FF FF", "4294967295"},
      {"CF 7F FF FF FF FF FF FF FF", "9223372036854775807"},
      {"CF FF FF FF FF FF FF FF FF", "18446744073709551615"},
      {"D0 80", "-128"},
      {"D1 80 00", "-32768"},
      {"D2 80 00 00 00", "-2147483648"},
      {"D3 80 00 00 00 00 00 00 00", "-9223372036854775808"},
      {"CA 3F C0 00 00", "1.5"},
      {"CB 3F F8 00 00 00 00 00 00", "1.5"},
      {"A3 61 62 63", "\"abc\""},
      {"D9 01 61", "\"a\""},
      {"DA 00 01 61", "\"a\""},
      {"DB 00 00 00 01 61", "\"a\""},
      {"DC 00 02 01 90", "[1,[]]"},
      {"DD 00 00 00 01 C0", "[null]"},
      {"81 A1 61 01", "{\"a\":1}"},
      {"82 A1 61 01 A1 61 02", "{\"a\":2}"},
      {"83 A1 62 01 A1 61 02 D9 01 62 03", "{\"b\":3,\"a\":2}"},
      {"DE 00 01 A0 80", "{\"\":{}}"},
      {"DF 00 00 00 01 A1 6B 91 80", "{\"k\":[{}]}"},
      {"01 0A 20 0D 09", "1"},
  };
  for (const Case& c : cases) EXPECT_EQ(Read(B(c.bytes)), c.text) << c.bytes;
  auto big = JsonValue::ReadFromMsgPack(B("CF FF FF FF FF FF FF FF FF"), nullptr, nullptr);
  EXPECT_TRUE(static_cast<JsonInteger*>(big.get())->IsLargeUnsigned());
  EXPECT_EQ(JsonValue::ReadFromMsgPack(B("CA 3F C0 00 00"), nullptr, nullptr)->Type(),
            JsonValue::Real);
}

TEST(MsgPackReader, FailsWithMessageAtPosition) {
  const std::string kType = "unsupported MsgPack type code @", kString = "string expected @",
                    kEnd = "unexpected end of input @",
                    kTrailing = "illegal trailing characters after value @";
  struct Case {
    const char* bytes;
    std::string error;
  } cases[] = {
      {"", "empty input @0"},
      {"C1", kType + "0"},
      {"C4 00", kType + "0"},
      {"C6", kType + "0"},
      {"C7 01 01 00", kType + "0"},
      {"C9", kType + "0"},
      {"D4 01 00", kType + "0"},
      {"D8", kType + "0"},
      {"91 C1", kType + "1"},
      {"81 A1 61 C5", kType + "3"},
      {"81 01 01", kString + "2"},
      {"81 C0 01", kString + "2"},
      // A map that ends before a key takes the key's type from one byte past
      // the end, as from a string's terminating zero.
      {"81", kString + "2"},
      {"82 A1 61 01", kString + "5"},
      {"92 01", kEnd + "2"},
      {"81 A1 61", kEnd + "3"},
      {"CD 01", kEnd + "1"},
      {"CA 00 00 00", kEnd + "1"},
      {"CB", kEnd + "1"},
      {"CF 00", kEnd + "1"},
      {"D3 00 00", kEnd + "1"},
      {"A2 61", kEnd + "1"},
      {"D9", kEnd + "1"},
      {"D9 05 61", kEnd + "2"},
      {"DA 00", kEnd + "1"},
      {"DB 00 00 00 05 61", kEnd + "5"},
      {"81 DA 00", kEnd + "2"},
      {"81 A3 61", kEnd + "2"},
      {"DC 00", kEnd + "1"},
      {"DF 00 00 00", kEnd + "1"},
      {"01 02", kTrailing + "1"},
      {"90 20 C0", kTrailing + "2"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Read(B(c.bytes)), c.error) << c.bytes;
    // The same from a buffer with no terminating zero after its last byte.
    std::string bytes = B(c.bytes);
    std::vector<char> exact(bytes.begin(), bytes.end());
    const char* cur = exact.data();
    ParserContext ctx;
    JsonAutoRefPtr<JsonValue> v(JsonValue::ParseFromMsgPack(cur, cur + exact.size(), ctx, nullptr));
    if (!v && !exact.empty()) {
      EXPECT_EQ(ctx.fError + " @" + std::to_string(cur - exact.data()), c.error) << c.bytes;
    }
  }
}

TEST(MsgPackReader, NonUTF8StringsAreEmptiedAndKeysDropped) {
  struct Case {
    const char* bytes;
    bool noCheck, failOnDuplicate;
    const char* result;
  } cases[] = {
      {"92 A2 C3 28 A2 C3 A9", false, false, "[\"\",\"\xC3\xA9\"]"},
      {"A2 C3 28", true, false, "\"\xC3(\""},
      {"82 A2 C3 28 01 A1 61 02", false, false, "{\"a\":2}"},
      {"82 A2 C3 28 01 A1 61 02", true, false, "{\"a\":2}"},
      {"82 A2 C3 28 01 A1 61 02", false, true, "duplicate key @5"},
      {"82 A1 61 01 A1 61 02", false, true, "{\"a\":2}"},  // repeats are no failure
  };
  for (const Case& c : cases) {
    ParserContext ctx;
    ctx.fNoUTF8Check = c.noCheck;
    ctx.fFailOnDuplicateKey = c.failOnDuplicate;
    EXPECT_EQ(Read(B(c.bytes), ctx), c.result) << c.bytes;
  }
}

TEST(MsgPackReader, CompiledObjects) {
  JsonCompiledObjectContext inner, outer;
  inner.AddKey("x", 0x0002, nullptr);
  outer.AddKey("n", 0x0002, nullptr);           // 0: numbers
  outer.AddKey("s", 0x0001 | 0x0400, nullptr);  // 1: strings, required
  outer.AddKey("c", 0x0200, &inner);            // 2: compiled
  outer.AddKey("l", 0x0010, &inner);            // 3: array of compiled
  outer.AddKey("o", 0x0100, nullptr);           // 4: plain object
  outer.AddKey("any", 0, nullptr);              // 5: anything
  const std::string ok =
      B("88 A1 6E CB 3F F8 00 00 00 00 00 00 A1 7A 81 A1 71 C3 A1 73 A0 A1 63 81 A1 78 01"
        " A1 6C 92 80 81 A1 78 02 A1 6F 81 A1 79 C3 A3 61 6E 79 C0 A1 6E 05");
  ParserContext ctx;
  auto v = JsonCompiledObject::ReadFromMsgPack(ok, &outer, &ctx);
  ASSERT_TRUE(v) << ctx.fError << " at " << ctx.fPosition;
  // "z" is unknown: decoded, then dropped; the later "n" wins.
  EXPECT_EQ(Text(*v),
            "{\"n\":5,\"s\":\"\",\"c\":{\"x\":1},\"l\":[{},{\"x\":2}],\"o\":{\"y\":true},"
            "\"any\":null}");
  EXPECT_EQ(v->Size(), 6u);
  EXPECT_EQ(v->At(2)->Type(), JsonValue::CompiledObject);
  EXPECT_EQ(v->KeyValAsArray(3)->AtIndex(0)->Type(), JsonValue::CompiledObject);
  EXPECT_EQ(v->At(4)->Type(), JsonValue::Object);

  const std::string kType = "value is not of expected type @";
  struct Bad {
    const char* bytes;
    std::string error;
  } bad[] = {
      {"81 A1 6E A1 78", kType + "3"},
      {"81 A1 73 01", kType + "3"},
      {"82 A1 73 A0 A1 6C 80", kType + "6"},
      {"81 A1 63 81 A1 78 C3", kType + "6"},
      {"81 A1 6F 90", kType + "3"},
      {"81 A1 7A C1", "unsupported MsgPack type code @3"},
      {"81 A1 7A", "unexpected end of input @3"},
      {"81", "string expected @2"},
  };
  for (const Bad& b : bad) EXPECT_EQ(Read(B(b.bytes), {}, &outer), b.error) << b.bytes;

  // Maps directly inside a top-level array use the table too.
  auto array = JsonArray::ReadFromMsgPack(B("92 80 81 A1 6E 01"), &ctx, &outer);
  ASSERT_TRUE(array);
  EXPECT_EQ(array->AtIndex(1)->Type(), JsonValue::CompiledObject);
  // Typed readers give nothing, and no message, for a value of another type.
  EXPECT_FALSE(JsonCompiledObject::ReadFromMsgPack(B("90"), &outer, &ctx));
  EXPECT_TRUE(ctx.fCompleted);
  EXPECT_TRUE(ctx.fError.empty());
  EXPECT_FALSE(JsonObject::ReadFromMsgPack(B("90"), &ctx));
  EXPECT_TRUE(JsonObject::ReadFromMsgPack(B("80"), &ctx));
}

TEST(MsgPackReader, TextReaderHandsOverMapsAndArrays) {
  struct Case {
    std::string input;
    bool detect;
    const char* result;
  } cases[] = {
      {B("81 A1 61 01"), true, "{\"a\":1}"},         {B("DC 00 01 C3"), true, "[true]"},
      {B("9F"), true, "unexpected end of input"},    {"[1]", true, "[1]"},
      {B("81 A1 61 01"), false, "not a JSON value"},  // read as text
      {B("C3"), true, "not a JSON value"},            // only containers are handed over
  };
  for (const Case& c : cases) {
    ParserContext ctx;
    ctx.fDetectMsgPack = c.detect;
    auto v = JsonValue::ReadFromString(c.input, &ctx, nullptr);
    EXPECT_EQ(v ? Text(*v) : ctx.fError, c.result);
  }
}

TEST(MsgPackReader, HugeCountsFailFastWithoutHugeAllocations) {
  for (const char* header : {"DD FF FF FF FF", "DF FF FF FF FF", "DC FF FF", "DE FF FF"}) {
    std::string bytes = B(header);
    bool isMap = bytes[0] == '\xDF' || bytes[0] == '\xDE';
    for (int i = 0; i < 1000; ++i) bytes += isMap ? B("A1 6B 01") : B("01");
    gLargestAllocation = 0;
    ParserContext ctx;
    EXPECT_FALSE(JsonValue::ReadFromMsgPack(bytes, &ctx, nullptr));
    EXPECT_EQ(ctx.fError, isMap ? "string expected" : "unexpected end of input");
    EXPECT_EQ(ctx.fPosition, bytes.size() + (isMap ? 1 : 0));
    EXPECT_LT(gLargestAllocation.load(), 1u << 20) << header;
  }
}

// Runs `fn` on a thread whose stack is only 256 KB.
void OnSmallStack(void (*fn)()) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t thread;
  auto run = [](void* f) -> void* { return reinterpret_cast<void (*)()>(f)(), nullptr; };
  ASSERT_EQ(pthread_create(&thread, &attr, run, reinterpret_cast<void*>(fn)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

constexpr size_t kDeep = 1000000;

void MillionLevels() {
  JsonCompiledObjectContext self;
  self.AddKey("k", 0x0200, &self);
  struct Case {
    std::string unit, leaf;
    const JsonCompiledObjectContext* table;
    JsonValue::EJsonValueType type;
  } cases[] = {{B("91"), B("90"), nullptr, JsonValue::Array},
               {B("81 A1 6B"), B("C0"), nullptr, JsonValue::Object},
               {B("81 A1 6B"), B("80"), &self, JsonValue::CompiledObject}};
  for (const Case& c : cases) {
    std::string bytes;
    for (size_t i = 0; i < kDeep; ++i) bytes += c.unit;
    bytes += c.leaf;
    ParserContext ctx;
    auto v = JsonValue::ReadFromMsgPack(bytes, &ctx, c.table);
    ASSERT_TRUE(v) << ctx.fError;
    EXPECT_EQ(v->Type(), c.type);
    std::string again;
    ASSERT_TRUE(v->WriteToMsgPack(again));
    EXPECT_TRUE(again == bytes);
    // A failure at the bottom unwinds every level.
    bytes.back() = '\xC1';
    EXPECT_FALSE(JsonValue::ReadFromMsgPack(bytes, &ctx, c.table));
    EXPECT_EQ(ctx.fPosition, bytes.size() - 1);
  }
}

TEST(MsgPackCodec, MillionLevelsOnDefaultStack) {
  MillionLevels();
}
TEST(MsgPackCodec, MillionLevelsOnSmallStack) {
  OnSmallStack(MillionLevels);
}

TEST(MsgPackCodec, CorporaRoundTrip) {
  for (const char* name : {"twitter.json", "citm_catalog.json", "canada.json"}) {
    std::ifstream in(std::string(BENCH_DATA_DIR) + "/" + name, std::ios::binary);
    if (!in) GTEST_SKIP() << name << " not found";
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto value = FromText(text);
    ASSERT_TRUE(value) << name;
    std::string packed = Pack(*value);
    ParserContext ctx;
    auto back = JsonValue::ReadFromMsgPack(packed, &ctx, nullptr);
    ASSERT_TRUE(back) << name << ": " << ctx.fError << " at " << ctx.fPosition;
    EXPECT_TRUE(*back == *value) << name;
    // Reals decoded from MessagePack carry no digit count, so their text has
    // six decimals: only documents without fractions survive the last step.
    if (std::string(name) != "canada.json") {
      EXPECT_TRUE(*FromText(Text(*back)) == *value) << name;
    }
  }
}

}  // namespace
