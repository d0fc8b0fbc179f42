// The value model: conversions, sharing and copying, equality, containers
// and compiled objects.
#include <gtest/gtest.h>

#include <thread>

#include "Mjson.h"

namespace {

JsonAutoRefPtr<JsonValue> Parse(const std::string& text) {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  auto v = JsonValue::ReadFromString(text, &ctx, nullptr);
  EXPECT_TRUE(v) << text << ": " << ctx.fError;
  return v;
}

std::string Text(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

TEST(Conversions, ByType) {
  struct Case {
    const char* json;
    bool intOk;
    long long asInt;
    bool realOk;
    double asReal;
    bool boolOk;
    bool asBool;
    const char* asString;
  } cases[] = {
      {"12", true, 12, true, 12.0, true, true, "12"},
      {"0", true, 0, true, 0.0, true, false, "0"},
      {"18446744073709551615", false, 0, true, 1.8446744073709552e19, true, true,
       "18446744073709551615"},
      {"-2.7", true, -2, true, -2.7, true, true, "-2.7"},
      {"1e19", false, 0, true, 1e19, true, true, "1e+19"},
      {"\"3.9\"", true, 3, true, 3.9, true, true, "3.9"},
      {"\"12abc\"", true, 12, true, 12.0, true, true, "12abc"},
      {"\" 12\"", false, 0, false, 0.0, true, true, " 12"},
      {"\"abc\"", false, 0, false, 0.0, true, true, "abc"},
      {"\"\"", false, 0, false, 0.0, true, false, ""},
      {"\"false\"", false, 0, false, 0.0, true, true, "false"},
      {"true", true, 1, true, 1.0, true, true, "true"},
      {"false", true, 0, true, 0.0, true, false, "false"},
      {"null", false, 0, false, 0.0, false, false, "null"},
      {"[1]", false, 0, false, 0.0, false, false, "[1]"},
      {"{\"a\":1}", false, 0, false, 0.0, false, false, "{\"a\":1}"},
  };
  for (const Case& c : cases) {
    auto v = Parse(c.json);
    long long i = 99;
    double d = 99;
    bool b = true;
    std::string s = "stale";
    EXPECT_EQ(v->GetAsInteger(i), c.intOk) << c.json;
    EXPECT_EQ(i, c.asInt) << c.json;
    EXPECT_EQ(v->GetAsReal(d), c.realOk) << c.json;
    EXPECT_DOUBLE_EQ(d, c.asReal) << c.json;
    EXPECT_EQ(v->GetAsBool(b), c.boolOk) << c.json;
    EXPECT_EQ(b, c.asBool) << c.json;
    EXPECT_TRUE(v->GetAsString(s));
    EXPECT_EQ(s, c.asString) << c.json;
  }
}

TEST(Values, InvalidUTF8StringsAreEmptied) {
  bool valid = true;
  JsonString bad(std::string("a\xFF"), nullptr, &valid);
  EXPECT_FALSE(valid);
  EXPECT_EQ(bad.Get(), "");
  bool known = true;
  JsonString trusted(std::string("a\xFF"), &known, &valid);
  EXPECT_TRUE(valid);
  EXPECT_EQ(trusted.Get().size(), 2u);
}

TEST(Values, Equality) {
  struct Case {
    const char* a;
    const char* b;
    bool equal;
  } cases[] = {
      {"1", "1.0", false},
      {"true", "1", false},
      {"null", "null", true},
      {"0.0", "-0.0", true},
      {"1.50", "1.5", true},
      {"{\"a\":1,\"b\":[2]}", "{\"b\":[2],\"a\":1}", true},
      {"{\"a\":1}", "{\"a\":1,\"b\":2}", false},
      {"[1,2]", "[2,1]", false},
      {"18446744073709551615", "-1", false},
  };
  for (const Case& c : cases) EXPECT_EQ(*Parse(c.a) == *Parse(c.b), c.equal) << c.a << " " << c.b;
  JsonReal nan(__builtin_nan(""), 0);
  EXPECT_FALSE(nan == JsonReal(__builtin_nan(""), 0));
}

TEST(Values, CopiesShareNothing) {
  auto v = Parse("[{\"a\":[1,\"x\"]},2]");
  auto copy = JsonValue::Copy(*v);
  EXPECT_TRUE(*copy == *v);
  auto* inner = static_cast<JsonObject*>(static_cast<JsonArray*>(copy.get())->Values()[0]);
  EXPECT_NE(inner, static_cast<JsonArray*>(v.get())->Values()[0]);
  inner->InsertInteger("b", 3LL);
  EXPECT_EQ(Text(*v), "[{\"a\":[1,\"x\"]},2]");
  EXPECT_EQ(Text(*copy), "[{\"a\":[1,\"x\"],\"b\":3},2]");
  // A pending real stays pending in the copy.
  auto real = Parse("1.50");
  EXPECT_EQ(Text(*JsonValue::Copy(*real)), "1.50");
}

TEST(Values, SharingCountsReferences) {
  JsonAutoRefPtr<JsonValue> value(new JsonInteger(5LL));
  EXPECT_EQ(value->UseCount(), 1);
  {
    JsonArray a;
    a.AddValue(value);
    JsonObject o(true);
    o.InsertValue("k", value, false);
    EXPECT_EQ(value->UseCount(), 3);
  }
  EXPECT_EQ(value->UseCount(), 1);
}

// Keeps its memory after the last release, so a second release can be seen
// to trip the check instead of touching freed memory.
struct Immortal : JsonUseCounted {
  static void operator delete(void*) {}
};

TEST(ValuesDeathTest, OverReleaseAborts) {
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizers rightly stop at the call on a destroyed object, before
  // the library's own check can speak; the plain builds test the check.
  GTEST_SKIP() << "needs a build without sanitizers";
#endif
  EXPECT_DEATH(
      {
        const JsonUseCounted* p = new Immortal;
        p->Release();
        p->Release();
      },
      "fUseCount > 0");
}

TEST(Objects, OrderAndErase) {
  JsonObject o(true);
  o.InsertInteger("a", 1LL);
  o.InsertInteger("b", 2LL);
  o.InsertInteger("c", 3LL);
  EXPECT_TRUE(o.Erase("b"));
  EXPECT_FALSE(o.Erase("b"));
  o.InsertInteger("d", 4LL);
  o.InsertInteger("a", 5LL);  // replacing keeps the first place
  EXPECT_EQ(Text(o), "{\"a\":5,\"c\":3,\"d\":4}");
  std::string keys;
  o.ForEach([&](const std::string& k, const JsonAutoRefPtr<JsonValue>&) { keys += k; });
  EXPECT_EQ(keys, "acd");
  o.InsertValueWithNonUTF8Key("c", JsonAutoRefPtr<JsonValue>());
  EXPECT_FALSE(o.HasKey("c"));
  EXPECT_FALSE(o.InsertInteger("\xFF", 1LL));
  EXPECT_TRUE(o.InsertValueWithNonUTF8Key("\xFF", JsonNull()));
  EXPECT_FALSE(o.InsertString("k", "\xFE"));
  EXPECT_EQ(o.Size(), 3u);
}

TEST(Objects, ManyMembersUseTheIndex) {
  JsonObject o(false);
  for (int i = 0; i < 1000; ++i)
    o.InsertInteger("key" + std::to_string(i), static_cast<long long>(i));
  for (int i = 0; i < 1000; i += 2) EXPECT_TRUE(o.Erase("key" + std::to_string(i)));
  EXPECT_EQ(o.Size(), 500u);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(o.HasKey("key" + std::to_string(i)), i % 2 == 1) << i;
  EXPECT_EQ(o.KeyValAsInteger("key999"), 999);
  EXPECT_EQ(o.KeyValAsString("missing"), "");
  EXPECT_FALSE(o.KeyValAsObject("key1"));
}

TEST(Arrays, EditingRules) {
  auto fresh = [] { return Parse("[1,2,3]"); };
  JsonAutoRefPtr<JsonValue> x(new JsonInteger(9LL));
  struct Case {
    const char* name;
    void (*edit)(JsonArray&, const JsonAutoRefPtr<JsonValue>&);
    const char* out;
  } cases[] = {
      {"insert before 1", [](JsonArray& a, auto& v) { a.InsertValueAtIndex(1, v); }, "[1,9,2,3]"},
      {"insert at end", [](JsonArray& a, auto& v) { a.InsertValueAtIndex(3, v); }, "[1,2,3]"},
      {"set 0", [](JsonArray& a, auto& v) { a.SetValueAtIndex(0, v); }, "[9,2,3]"},
      {"set past end", [](JsonArray& a, auto& v) { a.SetValueAtIndex(3, v); }, "[1,2,3]"},
      {"set null inside", [](JsonArray& a, auto&) { a.SetValueAtIndex(1, {}); }, "[1,null,3]"},
      {"set null last", [](JsonArray& a, auto&) { a.SetValueAtIndex(2, {}); }, "[1,2]"},
      {"erase 1", [](JsonArray& a, auto&) { a.EraseAtIndex(1); }, "[1,3]"},
      {"erase past end", [](JsonArray& a, auto&) { a.EraseAtIndex(7); }, "[1,2,3]"},
      {"erase range", [](JsonArray& a, auto&) { EXPECT_EQ(a.Erase(1, 100), 2u); }, "[1]"},
      {"append", [](JsonArray& a, auto& v) { a.AddValue(v); }, "[1,2,3,9]"},
  };
  for (const Case& c : cases) {
    auto v = fresh();
    c.edit(*static_cast<JsonArray*>(v.get()), x);
    EXPECT_EQ(Text(*v), c.out) << c.name;
  }
  JsonArray a;
  bool added = true;
  a.AddString("\xFF", &added);
  EXPECT_FALSE(added);
  EXPECT_EQ(a.Size(), 0u);
}

TEST(Arrays, ForEachWithUserDataKeepsTwentyErrors) {
  JsonArray a;
  for (int i = 0; i < 25; ++i) a.AddInteger(i);
  std::string errors;
  bool ok = a.ForEachWithUserData(
      [](size_t, const JsonValue*, void*, bool& good, std::string* error) {
        good = false;
        *error = "bad";
      },
      nullptr, &errors);
  EXPECT_FALSE(ok);
  EXPECT_EQ(errors.rfind("Item '20' has error 'bad'"), errors.size() - 25);
  EXPECT_EQ(errors.substr(0, 26), "Item '1' has error 'bad', ");
}

TEST(CompiledObjects, SlotsAndCounts) {
  JsonCompiledObjectContext table;
  EXPECT_EQ(table.AddKey("a", 0, nullptr), 0u);
  EXPECT_EQ(table.AddKey("a", 0x0400, nullptr), 0u);
  table.AddKey("b", JsonCompiledObjectContext::kCompiledObject | 0x0400, nullptr);
  EXPECT_EQ(table.KeyFlags(1), JsonCompiledObjectContext::kPlainObject | 0x0400);

  JsonCompiledObject o(&table);
  table.AddKey("late", 0, nullptr);  // the object has no slot for it
  EXPECT_FALSE(o.InsertInteger(2, 1LL));
  EXPECT_EQ(o.KeyName(2), "");
  EXPECT_FALSE(o.Completed());
  EXPECT_TRUE(o.InsertInteger(1, 1LL));
  EXPECT_TRUE(o.Completed());
  EXPECT_TRUE(o.InsertInteger(1, 2LL));
  EXPECT_EQ(o.Size(), 1u);
  EXPECT_TRUE(o.InsertValue(1, JsonAutoRefPtr<JsonValue>()));
  EXPECT_EQ(o.Size(), 0u);
  o.InsertInteger(0, 1LL);
  EXPECT_TRUE(o.Erase("a"));
  EXPECT_EQ(o.Size(), 1u);  // erasing leaves the filled count as it was
  EXPECT_FALSE(o.HasKey("a"));
  JsonCompiledObject copy(o);
  EXPECT_TRUE(copy == o);
  EXPECT_EQ(Text(JsonCompiledObject(nullptr)), "{}");
}

}  // namespace

namespace {

// Freed by static destruction, after this thread's caches are gone.
JsonAutoRefPtr<JsonValue> gLateValue;

TEST(Values, StaticValuesOutliveThreadCaches) {
  gLateValue = JsonValue::ReadFromString("[{\"a\":[1,2,\"long enough to own a buffer\"]},3]",
                                         nullptr, nullptr);
  ASSERT_TRUE(gLateValue);
  std::thread([] {
    // A thread that allocates and frees nodes and then ends.
    auto v = JsonValue::Copy(*gLateValue);
    EXPECT_TRUE(*v == *gLateValue);
  }).join();
}

}  // namespace

namespace {

// Nodes made on one thread and freed on another travel between the threads'
// caches through the shared pool. Documents built concurrently stay intact
// while others are freed around them.
TEST(Values, NodesFreedOnOtherThreads) {
  std::string text = "[";
  for (int i = 0; i < 3000; ++i) {
    const std::string n = std::to_string(i);
    text.append(i ? "," : "").append("{\"k\":").append(n);
    text.append(",\"name\":\"a string long enough for a block ")
        .append(n)
        .append("\",\"l\":[1.5,2,3]}");
  }
  text += "]";
  const auto reference = JsonValue::ReadFromString(text, nullptr, nullptr);
  ASSERT_TRUE(reference);

  constexpr int kThreads = 4;
  constexpr int kRounds = 6;
  std::vector<JsonAutoRefPtr<JsonValue>> made(kThreads), next(kThreads);
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        // Free what another thread made last round while making a new one.
        made[t] = nullptr;
        next[t] = JsonValue::ReadFromString(text, nullptr, nullptr);
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) {
      ASSERT_TRUE(next[t] && *next[t] == *reference);
      made[(t + 1) % kThreads] = std::move(next[t]);
    }
  }
  for (auto& v : made) EXPECT_TRUE(v && *v == *reference);
}

}  // namespace
