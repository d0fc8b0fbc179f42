// One value tree read from many threads at once, children released on other
// threads than their parents, documents freed on other threads than the
// one that built them. Reading a real settles its pending text, so reads
// change a value's inner state; whatever the interleaving, every reader
// must see either the source text or the settled value, and every
// reference dropped must free each node exactly once. The tests also run
// under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Mjson.h"
#include "support/TestBarrier.h"

namespace {

constexpr int kThreads = 6;
constexpr int kRounds = 2000;

using ValuePtr = JsonAutoRefPtr<JsonValue>;

ValuePtr Parse(const std::string& text) {
  ParserContext ctx;
  ValuePtr v = JsonValue::ReadFromString(text, &ctx, nullptr);
  EXPECT_TRUE(v) << ctx.fError;
  return v;
}

// Reals of every lazy form: short (kept as digits), long (kept as text),
// exponents of both cases, and one converted at once.
const char* const kDocument =
    R"({"a":[112.25,-0.5,1.50,2E3,1e-7,3.14159265358979323846264338327950288,)"
    R"(-2.718281828459045235360287471352662497757e-3,1e40],)"
    R"("b":{"x":0.1,"y":[[7.25],{"z":-8.125}]},"c":"text","d":[1,2,3]})";

// Each reader repeats one kind of read; all of them start together on a
// fresh document so that the first reads of each real overlap.
TEST(MjsonThreads, ReadersOfOneTreeAgree) {
  const ValuePtr expected = Parse(kDocument);
  std::string pendingText;
  expected->WriteToString(pendingText);
  const double firstReal =
      ValuePtr(Parse(kDocument))->GetSubNode("a")->GetSubNode("0")->GetAsReal();

  std::atomic<int> wrong{0};
  ValuePtr shared;
  int round = 0;
  TestBarrier sync(kThreads, [&] {
    ++round;
    shared = Parse(kDocument);
  });

  auto reader = [&](int id) {
    const ValuePtr mine = Parse(kDocument);  // this thread's own, to compare with
    for (int r = 0; r < kRounds; ++r) {
      sync.ArriveAndWait();
      const ValuePtr doc = shared;
      std::string text;
      switch ((id + r) % 5) {
        case 0:
          if (doc->GetSubNode("a")->GetSubNode("0")->GetAsReal() != firstReal) ++wrong;
          break;
        case 1:
          doc->WriteToString(text);
          if (!(*Parse(text) == *mine)) ++wrong;
          break;
        case 2:
          doc->WriteToStringPretty(text, " ", "\n");
          if (!(*Parse(text) == *mine)) ++wrong;
          break;
        case 3: {
          std::string bytes;
          ParserContext ctx;
          if (!doc->WriteToMsgPack(bytes)) ++wrong;
          ValuePtr back = JsonValue::ReadFromMsgPack(bytes, &ctx, nullptr);
          if (!back || !(*back == *mine)) ++wrong;
          break;
        }
        case 4:
          if (!(*JsonValue::Copy(*doc) == *doc) || !(*doc == *mine)) ++wrong;
          break;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(reader, id);
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(round, kRounds);

  // Unread, the document writes its source text back; read, its values.
  std::string text;
  Parse(kDocument)->WriteToString(text);
  EXPECT_EQ(text, pendingText);
}

// Children held by other threads outlive their parent; the last owner, on
// whatever thread, frees each exactly once.
TEST(MjsonThreads, ChildrenReleasedOnOtherThreads) {
  std::string text = "[";
  for (int i = 0; i < 64; ++i) {
    if (i) text += ',';
    text += i % 2 ? "{\"k\":[1.5,\"s\"]}" : "2.25";
  }
  text += "]";

  std::atomic<int> wrong{0};
  ValuePtr parent;
  TestBarrier sync(kThreads + 1);
  auto holder = [&](int id) {
    for (int r = 0; r < 200; ++r) {
      sync.ArriveAndWait();  // the parent is ready
      std::vector<ValuePtr> held;
      auto* array = static_cast<JsonArray*>(parent.get());
      for (size_t i = static_cast<size_t>(id); i < array->Size(); i += kThreads)
        held.push_back(array->AtIndex(i));
      sync.ArriveAndWait();  // the parent is dropped while children are held
      for (size_t k = 0; k < held.size(); ++k) {
        const size_t i = static_cast<size_t>(id) + k * kThreads;
        const double want = i % 2 ? 1.5 : 2.25;
        const JsonValue* v = held[k].get();
        if (i % 2) {
          const JsonValue* k = v->Type() == JsonValue::Object
                                   ? static_cast<const JsonObject*>(v)->Peek("k")
                                   : nullptr;
          v = k && k->Type() == JsonValue::Array ? static_cast<const JsonArray*>(k)->Values()[0]
                                                 : nullptr;
        }
        if (!v || v->GetAsReal() != want) ++wrong;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(holder, id);
  for (int r = 0; r < 200; ++r) {
    parent = Parse(text);
    sync.ArriveAndWait();
    sync.ArriveAndWait();
    parent.reset();
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace

// Documents built on one thread and freed on another, big enough that the
// shared pool gives memory back while other threads cut new slabs.
TEST(MjsonThreads, DocumentsFreedOnOtherThreadsWhilePoolShrinks) {
  constexpr int kElements = 10000;
  std::string text = "[";
  for (int i = 0; i < kElements; ++i) {
    if (i) text += ',';
    text += R"({"id":7,"name":"a name of some length","v":[1.5,2,null]})";
  }
  text += "]";
  std::atomic<int> wrong{0};
  std::vector<ValuePtr> handOver(kThreads);
  TestBarrier sync(kThreads);
  auto worker = [&](int id) {
    for (int r = 0; r < 8; ++r) {
      handOver[static_cast<size_t>(id)] = Parse(text);
      sync.ArriveAndWait();
      // Take the neighbour's document, check it and free it here.
      ValuePtr doc = std::move(handOver[static_cast<size_t>((id + 1) % kThreads)]);
      sync.ArriveAndWait();
      const auto* array = static_cast<const JsonArray*>(doc.get());
      if (array->Size() != kElements ||
          array->AtIndexAsObject(kElements - 1)->KeyValAsInteger("id") != 7)
        ++wrong;
    }
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(worker, id);
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}
