// Documents built by a parse, a MessagePack read or a deep copy live in
// arenas. What must hold: a document nobody else holds dies without a walk
// over its nodes; once a node of it is held from outside, or the tree is
// changed, it dies node by node, and whatever is still held stays valid
// until its own last owner lets go, on whichever thread that is. Leaks and
// uses after free show under the sanitizer stages.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Mjson.h"
#include "MjsonArena.h"
#include "support/TestBarrier.h"

namespace {

using ValuePtr = JsonAutoRefPtr<JsonValue>;

// A document well above the size from which reads use an arena, with every
// kind of node: long strings and keys, pending real texts, indexed objects.
std::string Document() {
  std::string text = R"({"items":[)";
  for (int i = 0; i < 200; ++i) {
    if (i) text += ',';
    text +=
        R"({"id":)" + std::to_string(i) + R"(,"price":)" + std::to_string(i) +
        R"(.125000000000000000001,"name":"an item whose name is longer than inline","flags":[true,false,null],"long key of the item number )" +
        std::to_string(i) + R"(":"x"})";
  }
  text += R"(],"meta":{)";
  for (int i = 0; i < 40; ++i)
    text += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
  text += "}}";
  return text;
}

ValuePtr FromText(const std::string& text) {
  ParserContext ctx;
  ValuePtr v = JsonValue::ReadFromString(text, &ctx, nullptr);
  EXPECT_TRUE(v) << ctx.fError;
  return v;
}

std::string Text(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

std::string Pack(const JsonValue& v) {
  std::string out;
  EXPECT_TRUE(v.WriteToMsgPack(out));
  return out;
}

// The three ways a document comes into an arena.
struct Builder {
  const char* name;
  std::function<ValuePtr(const std::string& text)> build;
};
const Builder kBuilders[] = {
    {"text", [](const std::string& text) { return FromText(text); }},
    {"msgpack",
     [](const std::string& text) {
       std::string packed = Pack(*FromText(text));
       ParserContext ctx;
       ValuePtr v = JsonValue::ReadFromMsgPack(packed, &ctx, nullptr);
       EXPECT_TRUE(v) << ctx.fError;
       return v;
     }},
    {"copy",
     [](const std::string& text) {
       ValuePtr source = FromText(text);
       return JsonValue::Copy(*source);
     }},
};

// "k" and the number: member names of the tests below. (Built by appends:
// GCC 12 warns falsely on "k" + std::to_string(i).)
std::string Key(size_t i) {
  std::string key = "k";
  key += std::to_string(i);
  return key;
}

uint64_t OneByOne() {
  return mjson::Arena::NodesDestroyedOneByOne();
}

TEST(Arena, UnsharedDocumentsDieWithoutAWalk) {
  const std::string text = Document();
  for (const Builder& b : kBuilders) {
    ValuePtr v = b.build(text);
    ASSERT_TRUE(v) << b.name;
    EXPECT_TRUE(v->InArena()) << b.name;
    // Reading, writing and looking members up change nothing.
    EXPECT_EQ(Text(*v), Text(*FromText(text))) << b.name;
    EXPECT_TRUE(v->GetSubNode("meta")->GetSubNode("k39")) << b.name;
    // The counter is process-wide: the copy builder's source, say, is
    // gone before this point.
    const uint64_t before = OneByOne();
    v = nullptr;
    EXPECT_EQ(OneByOne(), before) << b.name;
  }
}

TEST(Arena, ShortInputsAndBuiltTreesStayInThePool) {
  EXPECT_FALSE(FromText(R"({"a":[1,2,3]})")->InArena());
  JsonAutoRefPtr<JsonObject> built(new JsonObject(false));
  built->InsertInteger("a", 1);
  EXPECT_FALSE(JsonValue::Copy(*built)->InArena());
}

// Each way of sharing or changing a tree, then the root dropped: the nodes
// still held must read as before, alone, and die when let go.
TEST(Arena, SharedOrChangedTreesDieNodeByNode) {
  const std::string text = Document();
  struct Case {
    const char* name;
    // Keeps what it needs of `doc` in `kept`, or changes `doc`.
    std::function<void(const ValuePtr& doc, std::vector<ValuePtr>& kept)> touch;
  } cases[] = {
      {"a member held",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         kept.push_back(JsonShare(doc->GetSubNode("meta")));
       }},
      {"a deep leaf held twice",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         JsonValue* leaf = doc->GetSubNode("items")->GetSubNode("7")->GetSubNode("name");
         kept.push_back(JsonShare(leaf));
         kept.push_back(JsonShare(leaf));
       }},
      {"a pending real held",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         kept.push_back(JsonShare(doc->GetSubNode("items")->GetSubNode("3")->GetSubNode("price")));
       }},
      {"a member added",
       [](const ValuePtr& doc, std::vector<ValuePtr>&) {
         static_cast<JsonObject*>(doc->GetSubNode("meta"))
             ->InsertString("new", std::string(100, 'n'));
       }},
      {"a member erased",
       [](const ValuePtr& doc, std::vector<ValuePtr>&) {
         static_cast<JsonObject*>(doc->GetSubNode("meta"))->Erase("k3");
       }},
      {"an element appended",
       [](const ValuePtr& doc, std::vector<ValuePtr>&) {
         auto* items = static_cast<JsonArray*>(doc->GetSubNode("items"));
         items->AddValue(JsonValue::Copy(*items->GetSubNode("0")));
       }},
      {"an object's members moved out",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         JsonAutoRefPtr<JsonObject> moved(new JsonObject(false));
         *moved = std::move(*static_cast<JsonObject*>(doc->GetSubNode("meta")));
         kept.push_back(moved);
       }},
      {"a node moved to another tree",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         JsonAutoRefPtr<JsonArray> other(new JsonArray());
         other->AddValue(JsonShare(doc->GetSubNode("items")->GetSubNode("1")));
         kept.push_back(other);
       }},
  };
  for (const Builder& b : kBuilders) {
    for (const Case& c : cases) {
      ValuePtr doc = b.build(text);
      std::vector<ValuePtr> kept;
      c.touch(doc, kept);
      std::vector<std::string> keptText;
      for (const ValuePtr& k : kept) keptText.push_back(Text(*k));
      const uint64_t before = OneByOne();
      doc = nullptr;
      EXPECT_GT(OneByOne(), before) << b.name << ", " << c.name;
      for (size_t i = 0; i < kept.size(); ++i)
        EXPECT_EQ(Text(*kept[i]), keptText[i]) << b.name << ", " << c.name;
      kept.clear();
    }
  }
}

// A node held at the bottom of a million levels: the root's death walks
// the whole chain on the deletion queue, not on the call stack.
TEST(Arena, DeepTreeWithAHeldLeaf) {
  constexpr size_t kDeep = 1000000;
  std::string text(kDeep, '[');
  text += "\"the bottom of a very deep document\"";
  text.append(kDeep, ']');
  for (const Builder& b : kBuilders) {
    ValuePtr doc = b.build(text);
    ASSERT_TRUE(doc) << b.name;
    JsonValue* node = doc.get();
    for (size_t i = 0; i < kDeep; ++i) node = node->GetSubNode("0");
    ValuePtr leaf = JsonShare(node);
    doc = nullptr;
    EXPECT_EQ(Text(*leaf), "\"the bottom of a very deep document\"") << b.name;
  }
}

// Failed builds give their arena back whole (the sanitizer stages check
// that nothing leaks), at every point of the input.
TEST(Arena, FailedBuildsLeaveNothing) {
  const std::string text = Document();
  const std::string packed = Pack(*FromText(text));
  for (size_t cut = 2048; cut < text.size(); cut += 397) {
    ParserContext ctx;
    EXPECT_FALSE(JsonValue::ReadFromString(text.substr(0, cut), &ctx, nullptr));
  }
  for (size_t cut = 2048; cut < packed.size(); cut += 397) {
    ParserContext ctx;
    EXPECT_FALSE(JsonValue::ReadFromMsgPack(packed.substr(0, cut), &ctx, nullptr));
  }
}

// Objects a parser builds find repeated keys through a table of its own and
// get their index on the first lookup: the last value of a key still wins,
// at the key's first place, whatever the object's size and whether or not
// the document is in an arena.
TEST(Arena, RepeatedKeysInObjectsOfEverySize) {
  for (size_t members : {3, 8, 9, 40, 300}) {
    for (bool inArena : {false, true}) {
      mjson::Arena::SetMinInput(inArena ? 0 : mjson::Arena::kDefaultMinInput);
      auto member = [](size_t key, size_t value) {
        std::string m = "\"k";
        m += std::to_string(key);
        m += "\":";
        m += std::to_string(value);
        return m;
      };
      std::string text = "{", expected = "{";
      for (size_t i = 0; i < members; ++i) {
        text += member(i, i);
        text += ',';
        if (i) expected += ',';
        expected += member(i, i % 3 == 0 ? i + 1000 : i);
      }
      for (size_t i = 0; i < members; i += 3) {
        text += member(i, i + 1000);
        text += ',';
      }
      text.back() = '}';
      expected += '}';
      ParserContext ctx;
      ctx.fKeepObjectOrder = true;
      ValuePtr v = JsonValue::ReadFromString(text, &ctx, nullptr);
      ASSERT_TRUE(v) << ctx.fError;
      EXPECT_EQ(v->InArena(), inArena || text.size() >= mjson::Arena::kDefaultMinInput);
      for (const ValuePtr& doc :
           {v, ValuePtr(JsonValue::ReadFromMsgPack(Pack(*v), nullptr, nullptr)),
            JsonValue::Copy(*v)}) {
        EXPECT_EQ(Text(*doc), expected) << members;
        for (size_t i = 0; i < members; ++i)
          ASSERT_EQ(doc->GetSubNode(Key(i))->GetAsInteger(),
                    static_cast<long long>(i % 3 == 0 ? i + 1000 : i))
              << members << " k" << i;
        EXPECT_FALSE(doc->GetSubNode("absent"));
      }
    }
  }
  mjson::Arena::SetMinInput(mjson::Arena::kDefaultMinInput);
}

// The first lookups of a large parsed object, from many threads at once:
// one index is published and every reader finds every member through it.
TEST(Arena, FirstLookupsOnManyThreads) {
  constexpr int kThreads = 6;
  const std::string text = Document();
  for (int round = 0; round < 30; ++round) {
    ValuePtr doc = FromText(text);
    JsonValue* meta = doc->GetSubNode("meta");  // 40 members, no index yet
    std::vector<int> wrong(kThreads, 0);
    TestBarrier barrier(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        barrier.ArriveAndWait();
        for (int i = 39; i >= 0; --i) {
          JsonValue* v = meta->GetSubNode(Key(i));
          wrong[t] += !v || v->GetAsInteger() != i;
        }
      });
    }
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], 0);
    const uint64_t before = OneByOne();
    doc = nullptr;
    EXPECT_EQ(OneByOne(), before);  // the index went with the arena
  }
}

// Owners of one document on several threads: each holds a node of it and
// reads it, the root is dropped on one of them, the rest let go in any
// order. Whoever drops the last hold frees the arena.
TEST(Arena, HoldersOnManyThreads) {
  constexpr int kThreads = 4;
  const std::string text = Document();
  for (int round = 0; round < 50; ++round) {
    ValuePtr doc = FromText(text);
    std::vector<ValuePtr> held;
    std::vector<std::string> expected;
    for (int t = 0; t < kThreads; ++t) {
      held.push_back(JsonShare(doc->GetSubNode("items")->GetSubNode(std::to_string(t * 10))));
      expected.push_back(Text(*held.back()));
    }
    TestBarrier barrier(kThreads + 1);
    std::vector<std::thread> threads;
    std::vector<int> wrong(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        ValuePtr mine = std::move(held[t]);
        barrier.ArriveAndWait();
        for (int i = 0; i < 20; ++i) wrong[t] += Text(*mine) != expected[t];
        mine = nullptr;
      });
    }
    barrier.ArriveAndWait();
    doc = nullptr;
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], 0);
  }
}

}  // namespace
