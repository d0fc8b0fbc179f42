// Several threads share JSON documents and call the module's exported entry
// points on them at once, the way a host that runs scripts on several
// threads does. The module declares its type thread-safe, so every result
// must be exactly what one thread alone would get; the test counts the
// results that are not.
//
// Each round parses a fresh shared document (its reals still hold their
// source text, so the first numeric read settles them while other threads
// are writing them out) and lets every thread run a different mix of
// reading operations on it, script functions and native (IJSON) reads. Every text written is parsed
// again and compared with the expected document; every number read is compared with the value it
// must have.
//
// ZENTOR_STRESS_SECONDS sets how long the test runs (default 3).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../support/TestBarrier.h"
#include "Host.h"
#include "HostValues.h"
#include "ZentorJSON.h"

namespace {

using zhost::HostVariant;
using VariantPtr = Zentor::AutoRefPtr<HostVariant>;

constexpr int kThreads = 6;

double StressSeconds() {
  const char* text = std::getenv("ZENTOR_STRESS_SECONDS");
  const double seconds = text ? std::atof(text) : 0.0;
  return seconds > 0 ? seconds : 3.0;
}

// The module loaded into a reference host, with the entry points the test
// calls looked up once.
class ModuleUnderTest {
 public:
  ModuleUnderTest() : fOut(fSink), fHost(fOut) {
    std::string error;
    fLoaded = fHost.Load("libzentor_json.so", error);
    fError = error;
  }
  bool Loaded() const { return fLoaded; }
  const std::string& Error() const { return fError; }

  // One declared function, by script name and parameter words.
  struct Function {
    Zentor::ZentorFunction entry = nullptr;
    const zhost::LoadedModule* module = nullptr;
  };
  Function Find(const std::string& name, const std::vector<std::string>& params) const {
    auto overload = fHost.FindOverload(name, nullptr, params);
    if (!overload) return {};
    return {overload->entry, overload->module};
  }

  // Calls `f` with `args`; the result variant, or null when the status is
  // not 0 or the call threw.
  VariantPtr Call(const Function& f, std::initializer_list<HostVariant*> args) {
    std::vector<Zentor::IVariant*> raw(args.begin(), args.end());
    VariantPtr result = zhost::MakeVariant();
    const zhost::CallOutcome outcome = fHost.Call(f.entry, f.module, "stress", raw, result.get());
    if (outcome.status != 0 || outcome.threw) return VariantPtr();
    return result;
  }

  zhost::HostContext& Context() { return fHost.Context(); }

 private:
  std::ostringstream fSink;
  zhost::Output fOut;
  zhost::Host fHost;
  bool fLoaded = false;
  std::string fError;
};

// A document with every kind of value, and many reals of both lazy forms:
// short ones and ones too long to keep as a digit pattern.
std::string MakeDocumentText(unsigned seed) {
  std::mt19937_64 random(seed);
  std::uniform_int_distribution<int> digit(0, 9);
  auto digits = [&](int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s.push_back(static_cast<char>('0' + digit(random)));
    return s;
  };
  std::string text = "{\"reals\":[";
  for (int i = 0; i < 48; ++i) {
    if (i) text += ',';
    if (i % 3 == 0) text += '-';
    text += std::to_string(1 + i);
    text += '.';
    text += digits(1 + i % 6);
    if (i % 5 == 0) {
      text += 'e';
      text += std::to_string(i % 7);
    }
  }
  text += "],\"long\":[";
  for (int i = 0; i < 8; ++i) {
    if (i) text += ',';
    text += "3.";
    text += digits(30 + i);
    if (i % 2) text += "E-5";
  }
  text += "],\"members\":{";
  for (int i = 0; i < 24; ++i) {
    if (i) text += ',';
    text += "\"m";
    text += std::to_string(i);
    text += "\":";
    text += std::to_string(i);
    text += '.';
    text += digits(2);
  }
  text +=
      "},\"mixed\":[true,false,null,\"s\\u00e9\\n\",-12,18446744073709551615,{\"x\":[1.25,"
      "[2.5]]}],\"text\":\"caf\\u00e9 au lait\"}";
  return text;
}

// The member names of the "members" object.
std::vector<std::string> MemberNames() {
  std::vector<std::string> paths;
  for (int i = 0; i < 24; ++i) paths.push_back(std::string(1, 'm').append(std::to_string(i)));
  return paths;
}

TEST(ModuleThreads, SharedDocumentsReadFromManyThreads) {
  ModuleUnderTest m;
  ASSERT_TRUE(m.Loaded()) << m.Error();

  const auto fromString = m.Find("JSON.FromString", {"STRING"});
  const auto toString = m.Find("ToString", {"JSON"});
  const auto toFormatted = m.Find("ToFormattedString", {"JSON", "STRING"});
  const auto equals = m.Find("JSON.Equals", {"JSON", "JSON"});
  const auto getAsNumber = m.Find("JSON.GetAsNumber", {"JSON", "STRING"});
  const auto getSubNode = m.Find("JSON.GetSubNode", {"JSON", "STRING"});
  const auto asDouble = m.Find("JSON.AsDouble", {"JSON"});
  const auto setSubNode = m.Find("JSON.SetSubNode", {"JSON", "STRING", "JSON"});
  const auto toMsgPack = m.Find("JSON.ToMsgPack", {"JSON"});
  const auto fromMsgPack = m.Find("JSON.FromMsgPack", {"DATAREF"});
  const auto size = m.Find("JSON.Size", {"JSON"});
  for (const auto* f : {&fromString, &toString, &toFormatted, &equals, &getAsNumber, &getSubNode,
                        &asDouble, &setSubNode, &toMsgPack, &fromMsgPack, &size})
    ASSERT_NE(f->entry, nullptr);

  const std::vector<std::string> texts = {MakeDocumentText(1), MakeDocumentText(2),
                                          MakeDocumentText(3)};
  const std::vector<std::string> paths = MemberNames();

  // The numbers of the "members" object (shared with `doc`), in the order of
  // `paths`, read through the script functions.
  auto readMembers = [&](const VariantPtr& doc) {
    std::vector<double> numbers;
    VariantPtr members = m.Call(getSubNode, {doc.get(), zhost::MakeString("members").get()});
    for (const std::string& name : paths) {
      VariantPtr v =
          members ? m.Call(getAsNumber, {members.get(), zhost::MakeString(name).get()}) : nullptr;
      numbers.push_back(v ? v->GetNumber() : NAN);
    }
    return numbers;
  };

  std::atomic<long> wrong{0};
  std::atomic<long> checks{0};
  std::atomic<bool> stop{false};
  VariantPtr shared;  // the round's document, set by the completion step
  Zentor::AutoRefPtr<Zentor::IJSON> sharedNative;  // a native view of it, one for all threads
  int round = 0;
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(StressSeconds());
  TestBarrier sync(kThreads, [&] {
    if (std::chrono::steady_clock::now() >= deadline) stop = true;
    ++round;
    shared = m.Call(fromString, {zhost::MakeString(texts[round % texts.size()]).get()});
    sharedNative = Zentor::AutoRefPtr<Zentor::IJSON>(
        shared ? shared->GetUserDefined()->Serialize(&m.Context()) : nullptr);
  });

  auto worker = [&](int id) {
    auto fail = [&] { wrong.fetch_add(1, std::memory_order_relaxed); };
    // Private documents to compare with, parsed and read by this thread.
    std::vector<VariantPtr> expected;
    std::vector<std::vector<double>> numbers;
    for (const std::string& text : texts) {
      expected.push_back(m.Call(fromString, {zhost::MakeString(text).get()}));
      numbers.push_back(readMembers(expected.back()));
      double sum = 0;  // member i holds i and a fraction
      for (double n : numbers.back()) sum += n;
      if (!(sum > 276 && sum < 300)) fail();
    }
    auto check = [&](bool ok) {
      checks.fetch_add(1, std::memory_order_relaxed);
      if (!ok) fail();
    };
    auto sameAs = [&](const VariantPtr& doc, const VariantPtr& want) {
      if (!doc) return false;
      VariantPtr same = m.Call(equals, {doc.get(), want.get()});
      return same && same->GetBoolean();
    };
    // A text written from the shared document must read back as it.
    auto textIsDocument = [&](const VariantPtr& text, const VariantPtr& want) {
      if (!text) return false;
      return sameAs(m.Call(fromString, {text.get()}), want);
    };

    for (;;) {
      sync.ArriveAndWait();
      if (stop) break;
      VariantPtr doc = zhost::CopyOf(*shared);  // this thread's variable
      const size_t which = static_cast<size_t>(round) % texts.size();
      const VariantPtr& want = expected[which];
      for (int step = 0; step < 4; ++step) {
        switch ((id + step + round) % 8) {
          case 0:  // numeric reads settle the reals
            check(readMembers(doc) == numbers[which]);
            break;
          case 1:
            check(textIsDocument(m.Call(toString, {doc.get()}), want));
            break;
          case 2:
            check(textIsDocument(m.Call(toFormatted, {doc.get(), zhost::MakeString("  ").get()}),
                                 want));
            break;
          case 3:
            check(sameAs(doc, want));
            break;
          case 4: {  // MessagePack out and back
            VariantPtr bytes = m.Call(toMsgPack, {doc.get()});
            check(bytes && sameAs(m.Call(fromMsgPack, {bytes.get()}), want));
            break;
          }
          case 5: {  // shared sub-nodes, read and stored into another document
            VariantPtr reals = m.Call(getSubNode, {doc.get(), zhost::MakeString("reals").get()});
            VariantPtr first =
                m.Call(getSubNode, {doc.get(), zhost::MakeString("mixed/6/x/0").get()});
            VariantPtr d = first ? m.Call(asDouble, {first.get()}) : VariantPtr();
            check(d && d->GetNumber() == 1.25);
            VariantPtr holder = m.Call(fromString, {zhost::MakeString("{\"keep\":1}").get()});
            VariantPtr both =
                m.Call(setSubNode, {holder.get(), zhost::MakeString("copy").get(), doc.get()});
            VariantPtr inner =
                both ? m.Call(getSubNode, {both.get(), zhost::MakeString("copy").get()})
                     : VariantPtr();
            check(sameAs(inner, want));
            VariantPtr text = both ? m.Call(toString, {both.get()}) : VariantPtr();
            VariantPtr reread = text ? m.Call(fromString, {text.get()}) : VariantPtr();
            check(
                reread &&
                sameAs(m.Call(getSubNode, {reread.get(), zhost::MakeString("copy").get()}), want));
            VariantPtr n = reals ? m.Call(size, {reals.get()}) : VariantPtr();
            check(n && n->GetNumber() == 48);
            break;
          }
          case 6:    // native reads through a view of this thread's own
          case 7: {  // ... and through the one view all threads share
            Zentor::AutoRefPtr<Zentor::IJSON> own(doc->GetUserDefined()->Serialize(&m.Context()));
            const Zentor::IJSON* native =
                (id + step + round) % 8 == 6 ? own.get() : sharedNative.get();
            check(native && textIsDocument(zhost::MakeString(native->ToString()), want));
            Zentor::AutoRefPtr<Zentor::IJSON> members = native ? native->Get("members") : nullptr;
            for (size_t i = 0; members && i < paths.size(); i += 5) {
              double value = 0;
              check(members->GetDouble(paths[i].c_str(), value) && value == numbers[which][i]);
            }
            check(members && native->GetErrorStatus() == Zentor::IJSON::kStatusNone);
            break;
          }
        }
      }
    }
  };

  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(worker, id);
  for (std::thread& t : threads) t.join();
  sharedNative = nullptr;
  shared = VariantPtr();

  EXPECT_GT(round, 10);
  EXPECT_GT(checks.load(), 100);
  EXPECT_EQ(wrong.load(), 0) << "of " << checks.load() << " checks in " << round << " rounds";
  EXPECT_FALSE(m.Context().GetErrorState().hasError) << m.Context().GetErrorState().message;
}

}  // namespace
