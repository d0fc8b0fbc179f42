// Documents built by a parse, a MessagePack read or a deep copy live in
// arenas. What must hold: a document nobody else holds dies without a walk
// over its nodes; once a node of it is held from outside, or the tree is
// changed, it dies node by node, and whatever is still held stays valid
// until its own last owner lets go, on whichever thread that is. Leaks and
// uses after free show under the sanitizer stages.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <sys/resource.h>
#endif

#include "Mjson.h"
#include "MjsonArena.h"
#include "MjsonPool.h"
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
  return mjson::detail::Arena::NodesDestroyedOneByOne();
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
         kept.push_back(mjson::JsonShare(doc->GetSubNode("meta")));
       }},
      {"a deep leaf held twice",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         JsonValue* leaf = doc->GetSubNode("items")->GetSubNode("7")->GetSubNode("name");
         kept.push_back(mjson::JsonShare(leaf));
         kept.push_back(mjson::JsonShare(leaf));
       }},
      {"a pending real held",
       [](const ValuePtr& doc, std::vector<ValuePtr>& kept) {
         kept.push_back(
             mjson::JsonShare(doc->GetSubNode("items")->GetSubNode("3")->GetSubNode("price")));
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
         other->AddValue(mjson::JsonShare(doc->GetSubNode("items")->GetSubNode("1")));
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
    ValuePtr leaf = mjson::JsonShare(node);
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
      mjson::detail::Arena::SetMinInput(inArena ? 0 : mjson::detail::Arena::kDefaultMinInput);
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
      EXPECT_EQ(v->InArena(), inArena || text.size() >= mjson::detail::Arena::kDefaultMinInput);
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
  mjson::detail::Arena::SetMinInput(mjson::detail::Arena::kDefaultMinInput);
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
      held.push_back(
          mjson::JsonShare(doc->GetSubNode("items")->GetSubNode(std::to_string(t * 10))));
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

// ---------------------------------------------------------------------------
// Copies made to be changed

// The same document in the pool, node by node: what a change to a copy
// made to be changed must come to.
ValuePtr InPool(const std::string& text) {
  mjson::detail::Arena::SetMinInput(SIZE_MAX);
  ValuePtr v = FromText(text);
  mjson::detail::Arena::SetMinInput(mjson::detail::Arena::kDefaultMinInput);
  return v;
}

JsonObject* ObjectAt(JsonValue& doc, std::initializer_list<const char*> path) {
  JsonValue* node = &doc;
  for (const char* step : path) node = node->GetSubNode(step);
  return static_cast<JsonObject*>(node);
}
JsonArray* Items(JsonValue& doc) {
  return static_cast<JsonArray*>(doc.GetSubNode("items"));
}

// Each way a script function changes its copy, and a few that only the
// native interface makes. `outside` is a node of other memory that the
// change may store (shared).
struct Change {
  const char* name;
  std::function<void(JsonValue& doc, const ValuePtr& outside)> apply;
};
const Change kChanges[] = {
    {"a member of the root set",
     [](JsonValue& doc, const ValuePtr& outside) {
       static_cast<JsonObject&>(doc).InsertValue("added", outside, false);
     }},
    {"a member of the root replaced",
     [](JsonValue& doc, const ValuePtr& outside) {
       static_cast<JsonObject&>(doc).InsertValue("meta", outside, false);
     }},
    {"a member deep inside set, its key long",
     [](JsonValue& doc, const ValuePtr& outside) {
       ObjectAt(doc, {"items", "7"})->InsertValue(std::string(40, 'k'), outside, false);
     }},
    {"members set until the index and the list grow",
     [](JsonValue& doc, const ValuePtr&) {
       for (size_t i = 0; i < 200; ++i)
         ObjectAt(doc, {"meta"})->InsertInteger("a key longer than inline " + Key(i), 7);
     }},
    {"elements appended until the list grows",
     [](JsonValue& doc, const ValuePtr& outside) {
       for (int i = 0; i < 300; ++i) Items(doc)->AddValue(outside);
     }},
    {"an element replaced",
     [](JsonValue& doc, const ValuePtr& outside) { Items(doc)->SetValueAtIndex(3, outside); }},
    {"an element inserted",
     [](JsonValue& doc, const ValuePtr& outside) { Items(doc)->InsertValueAtIndex(0, outside); }},
    {"an element erased", [](JsonValue& doc, const ValuePtr&) { Items(doc)->EraseAtIndex(5); }},
    {"a member erased",
     [](JsonValue& doc, const ValuePtr&) { ObjectAt(doc, {"meta"})->Erase("k3"); }},
    {"a changed container replaced",
     [](JsonValue& doc, const ValuePtr& outside) {
       ObjectAt(doc, {"items", "2"})->InsertValue("x", outside, false);
       Items(doc)->SetValueAtIndex(2, outside);
     }},
    {"members moved in",
     [](JsonValue& doc, const ValuePtr& outside) {
       JsonObject other(true);
       other.InsertValue("moved", outside, false);
       other.InsertString("a string longer than inline", "and a value longer than inline");
       *ObjectAt(doc, {"meta"}) = std::move(other);
     }},
};

// A document copied to be changed, then changed once, dies without a walk
// over its nodes when nothing of it is held, and lets go of what the
// change put in it; until then it reads as the same change made to a
// document in the pool. The argument of the copy never changes.
TEST(Arena, CopiesChangedOnceStillDieInOneStep) {
  const std::string text = Document();
  std::vector<Builder> builders(std::begin(kBuilders), std::end(kBuilders));
  builders.push_back({"pool", [](const std::string& t) { return InPool(t); }});
  for (const Builder& b : builders) {
    const ValuePtr source = b.build(text);
    const std::string sourceText = Text(*source);
    for (const Change& c : kChanges) {
      ValuePtr outside(new JsonString(std::string(40, 'o'), JsonString::Trusted{}));
      ValuePtr copy = JsonValue::CopyToChange(*source);
      ASSERT_TRUE(copy->InArena()) << b.name;
      c.apply(*copy, outside);
      ValuePtr expected = InPool(text);
      c.apply(*expected, outside);
      EXPECT_EQ(Text(*copy), Text(*expected)) << b.name << ", " << c.name;
      expected = nullptr;
      const uint64_t before = OneByOne();
      copy = nullptr;
      EXPECT_EQ(OneByOne(), before) << b.name << ", " << c.name;
      EXPECT_EQ(outside->UseCount(), 1) << b.name << ", " << c.name;
      EXPECT_EQ(Text(*source), sourceText) << b.name << ", " << c.name;
    }
  }
}

// A compiled object copied to be changed records its slots the same way.
TEST(Arena, ChangedCompiledCopiesDieInOneStep) {
  JsonCompiledObjectContext table;
  table.AddKey("items", 0x10, nullptr);
  const size_t extra = table.AddKey("extra", 0, nullptr);
  ParserContext ctx;
  ValuePtr source = JsonValue::ReadFromString(Document(), &ctx, &table);
  ASSERT_TRUE(source && source->InArena()) << ctx.fError;
  ValuePtr outside(new JsonString(std::string(40, 'o'), JsonString::Trusted{}));
  ValuePtr copy = JsonValue::CopyToChange(*source);
  static_cast<JsonCompiledObject&>(*copy).InsertValue(extra, outside);
  EXPECT_EQ(Text(*copy->GetSubNode("extra")), Text(*outside));
  const uint64_t before = OneByOne();
  copy = nullptr;
  EXPECT_EQ(OneByOne(), before);
  EXPECT_EQ(outside->UseCount(), 1);
}

// Where the record gives up: more changed containers than it holds, or a
// node held from outside. The copy then dies node by node as any changed
// document, and what is held stays valid. A held node that dies before the
// copy gives the one-step end back.
TEST(Arena, ChangedCopiesWalkWhenTheyMust) {
  const std::string text = Document();
  ValuePtr source = FromText(text);
  ValuePtr outside(new JsonString(std::string(40, 'o'), JsonString::Trusted{}));

  ValuePtr copy = JsonValue::CopyToChange(*source);
  for (int i = 0; i < 40; ++i) ObjectAt(*copy, {"items", std::to_string(i).c_str()})->Erase("id");
  uint64_t before = OneByOne();
  copy = nullptr;
  EXPECT_GT(OneByOne(), before) << "many containers changed";

  copy = JsonValue::CopyToChange(*source);
  ValuePtr held = mjson::JsonShare(copy->GetSubNode("meta"));
  const std::string heldText = Text(*held);
  static_cast<JsonObject&>(*copy).InsertValue("added", outside, false);
  before = OneByOne();
  copy = nullptr;
  EXPECT_GT(OneByOne(), before) << "a node held";
  EXPECT_EQ(Text(*held), heldText);
  held = nullptr;
  EXPECT_EQ(outside->UseCount(), 1);

  copy = JsonValue::CopyToChange(*source);
  held = mjson::JsonShare(copy->GetSubNode("items")->GetSubNode("9"));
  static_cast<JsonObject&>(*copy).InsertValue("added", outside, false);
  Items(*copy)->EraseAtIndex(9);
  held = nullptr;
  before = OneByOne();
  copy = nullptr;
  EXPECT_EQ(OneByOne(), before) << "the held node died first";
  EXPECT_EQ(outside->UseCount(), 1);
}

// A part of a copy held by another owner, taken out of the copy and changed
// on another thread while the copy itself changes: both take their room
// and record their changes in the same arena. (The thread sanitizer stage
// checks that they do so safely.)
TEST(Arena, PartsOfACopyChangedOnTwoThreads) {
  const std::string text = Document();
  ValuePtr source = FromText(text);
  for (int round = 0; round < 20; ++round) {
    ValuePtr copy = JsonValue::CopyToChange(*source);
    ValuePtr part = mjson::JsonShare(copy->GetSubNode("items")->GetSubNode("4"));
    Items(*copy)->EraseAtIndex(4);
    TestBarrier barrier(2);
    std::thread other([&] {
      barrier.ArriveAndWait();
      auto* object = static_cast<JsonObject*>(part.get());
      for (int i = 0; i < 300; ++i) object->InsertInteger(Key(i), i);
      object->InsertString("name", std::string(30, 'n'));
    });
    barrier.ArriveAndWait();
    for (int i = 0; i < 300; ++i) Items(*copy)->AddInteger(i);
    other.join();
    EXPECT_EQ(mjson::ContainerSize(*part), 305u);
    EXPECT_EQ(mjson::ContainerSize(*copy->GetSubNode("items")), 499u);
    if (round % 2) std::swap(copy, part);  // either may die first
    copy = nullptr;
    part = nullptr;
  }
}

// A loop that copies a document, changes it and drops the one before, as
// a script's loop of edits does, takes its memory from what the copy before
// left: once warm, it faults no pages in.
TEST(Arena, LoopsOfEditsReuseTheirMemory) {
#if defined(__linux__)
  if (std::getenv("ZENTOR_EMULATED"))
    GTEST_SKIP() << "under an emulator, page faults are the emulator's";
  if (!mjson::detail::pool::kPoolNodes) GTEST_SKIP() << "builds without the pool keep no blocks";
  std::string text = "{";
  for (int i = 0; i < 8000; ++i) text += (i ? ",\"" : "\"") + Key(i) + "\":" + std::to_string(i);
  text += "}";
  ValuePtr doc = FromText(text);
  auto edit = [&](int i) {
    ValuePtr copy = JsonValue::CopyToChange(*doc);
    static_cast<JsonObject&>(*copy).InsertInteger("new " + Key(i), i);
    doc = copy;
  };
  auto faults = [] {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt;
  };
  for (int i = 0; i < 10; ++i) edit(i);
  const long warm = faults();
  for (int i = 10; i < 60; ++i) edit(i);
  EXPECT_LT(faults() - warm, 10) << "page faults in 50 edits of a warm loop";
#else
  GTEST_SKIP() << "page faults are counted on Linux only";
#endif
}

}  // namespace
