// The proxies that name one member or element (ObjectRef, ArrayRef,
// CompObjectRef): what each kind of assignment stores, container by
// container. They share one implementation; the rules that differ (strings
// that are not UTF-8, null values, positions past the end) are the point.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "JsonRef.h"
#include "Mjson.h"

namespace {

using ValuePtr = JsonAutoRefPtr<JsonValue>;

ValuePtr Parse(const std::string& text) {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  return JsonValue::ReadFromString(text, &ctx, nullptr);
}

std::string Text(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

const ValuePtr kShared = Parse("[\"shared\"]");

// One assignment, applied to a proxy of each kind.
struct Assignment {
  const char* name;
  std::function<void(ObjectRef&)> object;
  std::function<void(ArrayRef&)> array;
  std::function<void(CompObjectRef&)> compiled;
};

template <class Assign>
Assignment Each(const char* name, Assign assign) {
  return {name, assign, assign, assign};
}

// Each case starts from {"a":1,"b":2,"c":3} (object, compiled object) or
// [1,2,3] (array) and assigns through a proxy of "b" / index 1 (or of the
// last member, "c" / index 2, where the case says so).
struct Case {
  Assignment assignment;
  bool last;
  const char* object;
  const char* array;
  const char* compiled;
};

TEST(MjsonRefs, AssignmentRules) {
  const Case cases[] = {
      {Each("shared value", [](auto& r) { r = kShared; }), false, R"({"a":1,"b":["shared"],"c":3})",
       R"([1,["shared"],3])", R"({"a":1,"b":["shared"],"c":3})"},
      // Null: the object loses the member, the array gets null, or loses its
      // last element; the compiled object's slot is emptied.
      {Each("null", [](auto& r) { r = ValuePtr(); }), false, R"({"a":1,"c":3})", R"([1,null,3])",
       R"({"a":1,"c":3})"},
      {Each("null at the end", [](auto& r) { r = ValuePtr(); }), true, R"({"a":1,"b":2})",
       R"([1,2])", R"({"a":1,"b":2})"},
      {Each("string", [](auto& r) { r = std::string("\xC3\xA9"); }), false,
       "{\"a\":1,\"b\":\"\xC3\xA9\",\"c\":3}", "[1,\"\xC3\xA9\",3]",
       "{\"a\":1,\"b\":\"\xC3\xA9\",\"c\":3}"},
      // Bytes that are not UTF-8: refused by the objects, the empty string
      // in the array.
      {Each("bad string", [](auto& r) { r = std::string("\xFF"); }), false,
       R"({"a":1,"b":2,"c":3})", R"([1,"",3])", R"({"a":1,"b":2,"c":3})"},
      {Each("long long", [](auto& r) { r = -5LL; }), false, R"({"a":1,"b":-5,"c":3})",
       R"([1,-5,3])", R"({"a":1,"b":-5,"c":3})"},
      {Each("unsigned", [](auto& r) { r = 18446744073709551615ULL; }), false,
       R"({"a":1,"b":18446744073709551615,"c":3})", R"([1,18446744073709551615,3])",
       R"({"a":1,"b":18446744073709551615,"c":3})"},
      {Each("int", [](auto& r) { r = 7; }), false, R"({"a":1,"b":7,"c":3})", R"([1,7,3])",
       R"({"a":1,"b":7,"c":3})"},
      {Each("double", [](auto& r) { r = 2.0; }), false, R"({"a":1,"b":2.0,"c":3})", R"([1,2.0,3])",
       R"({"a":1,"b":2.0,"c":3})"},
      // Another proxy stores what it captured; a proxy to itself does nothing.
      {Each("other proxy",
            [](auto& r) {
              auto other = r;  // captured 2 (or 3)
              r = 9;
              r = other;
            }),
       false, R"({"a":1,"b":2,"c":3})", R"([1,2,3])", R"({"a":1,"b":2,"c":3})"},
      {Each("itself",
            [](auto& r) {
              r = 9;
              auto& same = r;  // named twice, so compilers take it as meant
              r = same;
            }),
       false, R"({"a":1,"b":9,"c":3})", R"([1,9,3])", R"({"a":1,"b":9,"c":3})"},
  };

  JsonCompiledObjectContext table;
  table.AddKey("a", 0, nullptr);
  table.AddKey("b", 0, nullptr);
  table.AddKey("c", 0, nullptr);

  for (const Case& c : cases) {
    SCOPED_TRACE(c.assignment.name);
    {
      JsonAutoRefPtr<JsonObject> object = ConvertToObject(Parse(R"({"a":1,"b":2,"c":3})"));
      ObjectRef ref(object.get(), c.last ? "c" : "b");
      const ValuePtr captured = ref.Value();
      c.assignment.object(ref);
      EXPECT_EQ(Text(*object), c.object);
      EXPECT_EQ(ref.Value(), captured) << "the capture is not refreshed";
    }
    {
      JsonAutoRefPtr<JsonArray> array = ConvertToArray(Parse("[1,2,3]"));
      ArrayRef ref(array.get(), c.last ? 2 : 1);
      c.assignment.array(ref);
      EXPECT_EQ(Text(*array), c.array);
    }
    {
      ParserContext ctx;
      JsonAutoRefPtr<JsonCompiledObject> compiled =
          JsonCompiledObject::ReadFromString(R"({"a":1,"b":2,"c":3})", &table, &ctx);
      ASSERT_TRUE(compiled) << ctx.fError;
      CompObjectRef ref(compiled.get(), c.last ? 2 : 1);
      c.assignment.compiled(ref);
      EXPECT_EQ(Text(*compiled), c.compiled);
    }
  }
}

// Positions the container cannot take, and proxies without a container,
// change nothing.
TEST(MjsonRefs, NowhereToStore) {
  JsonAutoRefPtr<JsonObject> object = ConvertToObject(Parse(R"({"a":1})"));
  ObjectRef badKey(object.get(), "\xFE");
  badKey = 5;
  badKey = kShared;
  EXPECT_EQ(Text(*object), R"({"a":1})");

  JsonAutoRefPtr<JsonArray> array = ConvertToArray(Parse("[1]"));
  ArrayRef past(array.get(), 1);
  EXPECT_FALSE(past.Value());
  past = 5;
  past = kShared;
  past = std::string("x");
  EXPECT_EQ(Text(*array), "[1]");

  ObjectRef none(nullptr, "a");
  none = 5;
  ArrayRef noArray(nullptr, 0);
  noArray = std::string("x");
  CompObjectRef noObject(nullptr, 0);
  noObject = 1.5;
  EXPECT_FALSE(none.Value());
  EXPECT_EQ(kShared->GetAsString(), R"(["shared"])");
}

}  // namespace
