#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "JSONCommon.h"
#include "JSONObj.h"
#include "ZentorData.h"
#include "zentorMacros.h"

namespace {

using Zentor::AutoRefPtr;

AutoRefPtr<JSONObj> Parse(const std::string& text) {
  AutoRefPtr<JSONObj> json = NewJSONObj(21, nullptr);
  ParserContext context;
  json->fRoot = JsonValue::ReadFromString(text, &context, nullptr);
  EXPECT_TRUE(json->fRoot) << text;
  return json;
}

std::string Text(const AutoRefPtr<JSONObj>& json) {
  std::string out;
  if (json->fRoot) json->fRoot->WriteToString(out);
  return out;
}

TEST(ReplaceAll, IsOnePassLeftToRight) {
  struct Case {
    std::string text, from, to, expected;
  };
  const Case cases[] = {
      {",,,", ",,", ",", ",,"},  // the inserted comma is not searched again
      {"(A,B,) : x (,)", ",)", ")", "(A,B) : x ()"},
      {"(,A)", "(,", "( ", "( A)"},
      {"no match", ",,", ",", "no match"},
      {"aaaa", "a", "aa", "aaaaaaaa"},
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    Zentor::ReplaceAllStringsInPlace(text, c.from, c.to);
    EXPECT_EQ(text, c.expected) << c.text;
  }
}

TEST(NumberToUInt64, TruncatesAndWraps) {
  struct Case {
    double number;
    unsigned long long expected;
  };
  const Case cases[] = {
      {0.0, 0},
      {3.9, 3},
      {-0.5, 0},
      {-1.0, UINT64_MAX},
      {-2.7, UINT64_MAX - 1},
      {9223372036854775808.0, 9223372036854775808ULL},
      {18446744073709549568.0, 18446744073709549568ULL},  // largest double below 2^64
      {NAN, 0},
  };
  for (const Case& c : cases) EXPECT_EQ(Zentor::NumberToUInt64(c.number), c.expected) << c.number;
}

TEST(JSONObj, TypeConstructorMakesEmptyValues) {
  struct Case {
    JsonValue::EJsonValueType type;
    JsonValue::EJsonValueType rootType;
    std::string text;
  };
  const Case cases[] = {
      {JsonValue::String, JsonValue::String, "\"\""},
      {JsonValue::Integer, JsonValue::Integer, "0"},
      {JsonValue::Object, JsonValue::Object, "{}"},
      {JsonValue::Array, JsonValue::Array, "[]"},
      {JsonValue::True, JsonValue::True, "true"},
      {JsonValue::False, JsonValue::False, "false"},
      {JsonValue::Null, JsonValue::Null, "null"},
      // No empty compiled object exists without a key table.
      {JsonValue::CompiledObject, JsonValue::Null, "null"},
  };
  for (const Case& c : cases) {
    AutoRefPtr<JSONObj> json = NewJSONObj(21, c.type, nullptr);
    ASSERT_TRUE(json->fRoot);
    EXPECT_EQ(json->fRoot->Type(), c.rootType);
    EXPECT_EQ(Text(json), c.text);
  }
  AutoRefPtr<JSONObj> real = NewJSONObj(21, JsonValue::Real, nullptr);
  EXPECT_EQ(real->fRoot->Type(), JsonValue::Real);
  EXPECT_EQ(real->fRoot->GetAsReal(), 0.0);
  EXPECT_EQ(Text(NewJSONObj(21, nullptr)), "null");
}

TEST(JSONObj, CloneIsDeepAndKeepsTypeAndName) {
  AutoRefPtr<JSONObj> original = Parse(R"({"a":[1,{"b":2}]})");
  AutoRefPtr<Zentor::IUserDefinedType> clone = original->Clone();
  auto* copy = dynamic_cast<JSONObj*>(clone.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetType(), 21u);
  EXPECT_STREQ(copy->GetName(), "JSON");
  EXPECT_NE(copy->fRoot.get(), original->fRoot.get());
  static_cast<JsonObject*>(copy->fRoot.get())->InsertBool("c", true);
  EXPECT_EQ(Text(original), R"({"a":[1,{"b":2}]})");
}

class OtherType : public Zentor::CustomType<OtherType> {
 public:
  OtherType() : CustomType(22, "Other") {}
};

TEST(JSONObj, OrdersByCompactText) {
  AutoRefPtr<JSONObj> b = Parse(R"("b")");
  AutoRefPtr<JSONObj> two = Parse("2");
  AutoRefPtr<JSONObj> alsoTwo = Parse("2");
  EXPECT_TRUE(two->LessThan(b.get()));  // "2" < "b"
  EXPECT_FALSE(b->LessThan(two.get()));
  EXPECT_FALSE(two->LessThan(alsoTwo.get()));
  EXPECT_FALSE(alsoTwo->LessThan(two.get()));
  AutoRefPtr<OtherType> other(new OtherType());
  EXPECT_FALSE(two->LessThan(other.get()));
  EXPECT_FALSE(two->LessThan(nullptr));
}

TEST(JSONObj, BinaryHandleSharesTheRoot) {
  AutoRefPtr<JSONObj> source = Parse("[1,2]");
  void* handle = nullptr;
  EXPECT_EQ(source->ToBinaryData(&handle, 10899), 0u);
  EXPECT_EQ(source->ToBinaryData(&handle, 10901), 0u);
  EXPECT_EQ(source->ToBinaryData(nullptr, 10900), 0u);
  EXPECT_EQ(handle, nullptr);
  ASSERT_EQ(source->ToBinaryData(&handle, 10900), 8u);
  ASSERT_NE(handle, nullptr);

  AutoRefPtr<JSONObj> target = NewJSONObj(21, nullptr);
  EXPECT_FALSE(target->FromBinaryData(handle, 7, 10900));
  EXPECT_FALSE(target->FromBinaryData(handle, 9, 10900));
  EXPECT_FALSE(target->FromBinaryData(handle, 8, 10899));
  EXPECT_FALSE(target->FromBinaryData(nullptr, 8, 10900));
  EXPECT_EQ(Text(target), "null");
  ASSERT_TRUE(target->FromBinaryData(handle, 8, 10900));
  EXPECT_EQ(target->fRoot.get(), source->fRoot.get());

  AutoRefPtr<JSONObj> empty = NewJSONObj(21, nullptr);
  empty->fRoot.reset();
  EXPECT_EQ(empty->ToBinaryData(&handle, 10900), 0u);
}

// Data that shows its bytes only through Read, optionally reading short.
class StreamingData final : public Zentor::InterfaceImpl<Zentor::IDataRef> {
 public:
  StreamingData(std::string bytes, bool shortRead)
      : fBytes(std::move(bytes)), fShortRead(shortRead) {}
  unsigned long long Interface_GetSize() const override { return fBytes.size(); }
  void Interface_Assign(const char*, unsigned long long) override {}
  unsigned long long Interface_Read(char* out, unsigned long long size,
                                    unsigned long long offset) const override {
    if (offset >= fBytes.size()) return 0;
    unsigned long long count = std::min<unsigned long long>(size, fBytes.size() - offset);
    if (fShortRead && count > 1) --count;
    fBytes.copy(out, count, offset);
    return count;
  }
  bool Interface_IsEqual(Zentor::IDataRef*) const override { return false; }
  Zentor::IDataRef* Interface_Clone() const override { return nullptr; }
  const void* Interface_GetData() const override { return nullptr; }

 private:
  std::string fBytes;
  bool fShortRead;
};

TEST(Data, ReadStopsAtTheEnd) {
  AutoRefPtr<Zentor::IDataRef> data = NewData("abcdef");
  char buffer[16] = {};
  EXPECT_EQ(data->Read(buffer, 4, 6), 0u);
  EXPECT_EQ(data->Read(buffer, 4, 100), 0u);
  EXPECT_EQ(data->Read(buffer, 4, 4), 2u);
  EXPECT_EQ(std::string(buffer, 2), "ef");
  EXPECT_EQ(data->Read(buffer, 3, 0), 3u);
  EXPECT_EQ(std::string(buffer, 3), "abc");
}

TEST(Data, ComparesDirectlyOrInChunks) {
  // Longer than two chunks of 8192 bytes, so the chunked path loops.
  std::string bytes(20000, 'x');
  bytes[5] = 'y';
  std::string differentInLastChunk = bytes;
  differentInLastChunk[19999] = 'z';

  AutoRefPtr<Zentor::IDataRef> data = NewData(std::string(bytes));
  struct Case {
    const char* name;
    AutoRefPtr<Zentor::IDataRef> other;
    bool equal;
  };
  const Case cases[] = {
      {"same bytes, direct", NewData(std::string(bytes)), true},
      {"same bytes, in chunks", AutoRefPtr<Zentor::IDataRef>(new StreamingData(bytes, false)),
       true},
      {"last byte differs, in chunks",
       AutoRefPtr<Zentor::IDataRef>(new StreamingData(differentInLastChunk, false)), false},
      {"last byte differs, direct", NewData(std::string(differentInLastChunk)), false},
      {"short reads", AutoRefPtr<Zentor::IDataRef>(new StreamingData(bytes, true)), false},
      {"other size", NewData(std::string(bytes, 0, 19999)), false},
      {"null", AutoRefPtr<Zentor::IDataRef>(), false},
  };
  for (const Case& c : cases) EXPECT_EQ(data->IsEqual(c.other.get()), c.equal) << c.name;

  AutoRefPtr<Zentor::IDataRef> empty = NewData(std::string());
  EXPECT_TRUE(empty->IsEqual(NewData(std::string()).get()));
  EXPECT_TRUE(empty->IsEqual(AutoRefPtr<Zentor::IDataRef>(new StreamingData("", false)).get()));

  AutoRefPtr<Zentor::IDataRef> clone = data->Clone();
  EXPECT_NE(clone.get(), data.get());
  EXPECT_TRUE(clone->IsEqual(data.get()));
}

// Both the script functions and the native interface read their data
// through ReadAll; a short Read must fail rather than decode a prefix.
TEST(Data, ReadAllTakesEveryByteOrFails) {
  struct Case {
    const char* name;
    AutoRefPtr<Zentor::IDataRef> data;
    bool complete;
    std::string bytes;
  };
  const Case cases[] = {
      {"direct", NewData("abc"), true, "abc"},
      {"in pieces", AutoRefPtr<Zentor::IDataRef>(new StreamingData("abc", false)), true, "abc"},
      {"short read", AutoRefPtr<Zentor::IDataRef>(new StreamingData("abc", true)), false, "ab"},
      {"empty, in pieces", AutoRefPtr<Zentor::IDataRef>(new StreamingData("", false)), true, ""},
  };
  for (const Case& c : cases) {
    std::string out = "stale";
    EXPECT_EQ(c.data->ReadAll(out), c.complete) << c.name;
    EXPECT_EQ(out, c.bytes) << c.name;
    EXPECT_EQ(c.data->ToString(), c.bytes) << c.name;
  }
}

// The three path walks split paths through PathSteps; each keeps its own
// index conversion, so only the splitting is shared.
TEST(PathSteps, SplitsOnSlashesIgnoringOneLeadingSlash) {
  struct Case {
    std::string path;
    std::vector<std::string> steps;
  };
  const Case cases[] = {
      {"", {}},
      {"/", {}},
      {"a", {"a"}},
      {"/a/0/b", {"a", "0", "b"}},
      {"a//b", {"a", "", "b"}},
      {"a/", {"a"}},
      {"//a", {"", "a"}},
      {"a\\/b", {"a\\", "b"}},  // no escaping
  };
  for (const Case& c : cases) {
    PathSteps steps(c.path);
    EXPECT_EQ(steps.Done(), c.steps.empty()) << c.path;
    std::vector<std::string> seen;
    std::string_view step;
    while (steps.Next(step)) seen.emplace_back(step);
    EXPECT_EQ(seen, c.steps) << c.path;
    EXPECT_TRUE(steps.Done()) << c.path;
  }
  EXPECT_TRUE(StartsWithDigit("0"));
  EXPECT_TRUE(StartsWithDigit("9x"));
  EXPECT_FALSE(StartsWithDigit(""));
  EXPECT_FALSE(StartsWithDigit("-1"));
  EXPECT_FALSE(StartsWithDigit(" 1"));
}

// JSON.HasMember and IJSON::Has answer through one test; JSON.Remove and
// IJSON::RemoveKey erase through one helper.
TEST(MemberHelpers, HasKeyOrElementAndEraseMember) {
  struct Case {
    const char* text;
    std::string key;
    bool has;
  };
  const Case cases[] = {
      {R"({"a":1,"":2})", "a", true},
      {R"({"a":1,"":2})", "", true},
      {R"({"a":1})", "b", false},
      {R"(["x",1,null,true])", "x", true},
      {R"(["x",1,null,true])", "1", true},  // elements read as text
      {R"(["x",1,null,true])", "null", true},
      {R"(["x",1,null,true])", "y", false},
      {R"("a")", "a", false},  // neither object nor array
      {"1", "1", false},
  };
  for (const Case& c : cases) {
    AutoRefPtr<JSONObj> json = Parse(c.text);
    EXPECT_EQ(HasKeyOrElement(*json->fRoot, c.key), c.has) << c.text << " " << c.key;
    const bool isObject = json->fRoot->Type() == JsonValue::Object;
    EXPECT_EQ(EraseMember(*json->fRoot, c.key), isObject && c.has) << c.text << " " << c.key;
    if (isObject) {
      EXPECT_FALSE(HasKeyOrElement(*json->fRoot, c.key)) << c.text << " " << c.key;
    }
  }
}

TEST(CreateUserDefinedType, NeedsNameAndContext) {
  EXPECT_FALSE(Zentor::CreateUserDefinedType<JSONObjPtr>("JSON", nullptr));
  EXPECT_FALSE(Zentor::CreateUserDefinedType<JSONObjPtr>(nullptr, nullptr));
}

}  // namespace

// The script functions that touch a whole document, declared as the module
// defines them.
std::string JsonToString(const AutoRefPtr<JSONObj>& json);
bool Equals(const AutoRefPtr<JSONObj>& first, const AutoRefPtr<JSONObj>& second);
AutoRefPtr<Zentor::IDataRef> JsonToMsgPack(const AutoRefPtr<JSONObj>& json);
AutoRefPtr<JSONObj> RemoveMember(const AutoRefPtr<JSONObj>& json, const std::string& key);

namespace {

// A million nested objects through the functions that copy, compare, write
// and free whole documents, on a thread with a 256 KB stack: none of them
// may recurse over the depth.
void DeepDocumentThroughTheFunctions() {
  constexpr size_t kDepth = 1000000;
  std::string text;
  for (size_t i = 0; i < kDepth; ++i) text += "{\"k\":";
  text += "[]";
  text.append(kDepth, '}');
  AutoRefPtr<JSONObj> json = Parse(text);
  ASSERT_TRUE(json->fRoot);
  EXPECT_EQ(JsonToString(json), text);

  AutoRefPtr<Zentor::IUserDefinedType> clone = json->Clone();
  auto* copy = dynamic_cast<JSONObj*>(clone.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(Equals(json, AutoRefPtr<JSONObj>(copy, Zentor::kAddRef)));
  EXPECT_FALSE(json->LessThan(copy));

  AutoRefPtr<Zentor::IDataRef> packed = JsonToMsgPack(json);
  std::string bytes(static_cast<const char*>(packed->GetData()), packed->GetSize());
  JsonAutoRefPtr<JsonValue> unpacked = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr);
  ASSERT_TRUE(unpacked);
  EXPECT_TRUE(*unpacked == *json->fRoot);

  // A changing function copies the whole document and leaves it as it was.
  EXPECT_EQ(Text(RemoveMember(json, "k")), "{}");
  EXPECT_EQ(JsonToString(json).size(), text.size());
}

TEST(DeepDocuments, MillionLevelsOnASmallStack) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attr,
                [](void*) -> void* {
                  DeepDocumentThroughTheFunctions();
                  return nullptr;
                },
                nullptr),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

}  // namespace

// Numbers without an integer part: each gets one fixed result, the same on
// every processor (a plain cast of them is undefined).
TEST(NumberToUInt64, NonFiniteNumbers) {
  EXPECT_EQ(Zentor::NumberToUInt64(NAN), 0u);
  EXPECT_EQ(Zentor::NumberToUInt64(-NAN), 0u);
  EXPECT_EQ(Zentor::NumberToUInt64(INFINITY), 1ULL << 63);
  EXPECT_EQ(Zentor::NumberToUInt64(-INFINITY), 1ULL << 63);
  EXPECT_EQ(Zentor::NumberToUInt64(1e300), 0u);  // a multiple of 2^64
}
