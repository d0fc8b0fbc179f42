// Input chosen to hurt. Object keys built to collide in the member index
// must parse in about the time of ordinary ones and keep every behaviour
// (order, lookups, output) of an ordinary object; a huge document must give
// its memory back when it dies.
#include <gtest/gtest.h>
#if defined(__linux__)
#include <unistd.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Mjson.h"
#include "MjsonInternal.h"

namespace {

constexpr size_t kKeys = 20000;

// Random eight-letter keys; with `colliding`, only keys whose fast
// hash has its low 16 bits below 32, so that in every index of up to 65,536
// slots they all start their probes within the first 32 slots and form one
// run: each insert would walk the whole run.
std::vector<std::string> MakeKeys(bool colliding) {
  std::mt19937_64 random(7);
  std::vector<std::string> keys;
  std::string key(8, ' ');
  while (keys.size() < kKeys) {
    uint64_t bits = random();
    for (char& c : key) {
      c = static_cast<char>('a' + (bits & 15));
      bits >>= 8;
    }
    if (!colliding || (mjson::detail::FastKeyHash(key.data(), key.size()) & 0xFFFF) < 32)
      keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

std::string ObjectText(const std::vector<std::string>& keys) {
  std::string text = "{";
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i) text += ',';
    text += '"';
    text += keys[i];
    text += "\":";
    text += std::to_string(i);
  }
  text += '}';
  return text;
}

// The best of a few parses, in seconds.
double ParseSeconds(const std::string& text) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    ParserContext ctx;
    auto start = std::chrono::steady_clock::now();
    JsonAutoRefPtr<JsonValue> v = JsonValue::ReadFromString(text, &ctx, nullptr);
    best = std::min(
        best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    EXPECT_TRUE(v) << ctx.fError;
  }
  return best;
}

TEST(HostileInput, CollidingKeysParseLikeOrdinaryOnes) {
  const std::vector<std::string> colliding = MakeKeys(true);
  const std::vector<std::string> ordinary = MakeKeys(false);
  const std::string collidingText = ObjectText(colliding);
  const std::string ordinaryText = ObjectText(ordinary);

  const double slow = ParseSeconds(collidingText);
  const double fast = ParseSeconds(ordinaryText);
  EXPECT_LT(slow, 3 * fast + 0.002) << "colliding " << slow << " s, ordinary " << fast << " s";

  // Nothing observable differs: order, lookups, output.
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  JsonAutoRefPtr<JsonObject> object = JsonObject::ReadFromString(collidingText, &ctx);
  ASSERT_TRUE(object) << ctx.fError;
  ASSERT_EQ(object->Size(), colliding.size());
  for (size_t i = 0; i < colliding.size(); i += 97)
    EXPECT_EQ(object->KeyValAsInteger(colliding[i]), static_cast<long long>(i));
  EXPECT_FALSE(object->HasKey("absent!!"));
  std::string out;
  object->WriteToString(out);
  EXPECT_EQ(out, collidingText);

  // Erasing and adding keeps working on an object that switched its hash.
  EXPECT_TRUE(object->Erase(colliding[5]));
  EXPECT_FALSE(object->HasKey(colliding[5]));
  object->InsertInteger(colliding[5], 5LL);
  EXPECT_EQ(object->KeyValAsInteger(colliding[5]), 5);
  EXPECT_EQ(*JsonValue::Copy(*object), *object);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MJSON_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define MJSON_TEST_SANITIZED 1
#endif
#endif

// Resident memory of this process in bytes, or 0 where the system does not
// tell.
size_t ResidentBytes() {
#if defined(__linux__)
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (!f) return 0;
  unsigned long size = 0, resident = 0;
  const int read = std::fscanf(f, "%lu %lu", &size, &resident);
  std::fclose(f);
  return read == 2 ? resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) : 0;
#else
  return 0;
#endif
}

// A large document, once freed, leaves the process about as big as it was.
TEST(HostileInput, MemoryOfAFreedDocumentGoesBack) {
#ifdef MJSON_TEST_SANITIZED
  GTEST_SKIP() << "a sanitizer's allocator keeps freed memory on purpose";
#endif
  if (std::getenv("ZENTOR_EMULATED"))
    GTEST_SKIP() << "under an emulator, resident memory is the emulator's, not this program's";
  if (ResidentBytes() == 0) GTEST_SKIP() << "no resident size on this system";
  auto parse = [](const std::string& text) {
    ParserContext ctx;
    JsonAutoRefPtr<JsonValue> v = JsonValue::ReadFromString(text, &ctx, nullptr);
    EXPECT_TRUE(v) << ctx.fError;
    return v;
  };
  parse(R"({"warm":[1,2.5,"up",{"a":null}]})");  // the thread's caches exist
  const size_t baseline = ResidentBytes();

  // Two million objects of five values each: twelve million nodes, strings
  // and lists of several sizes.
  const std::string element = R"({"id":123,"name":"element-name-long","v":[1.5,2]})";
  size_t peak = 0;
  {
    std::string text = "[";
    for (int i = 0; i < 2000000; ++i) {
      if (i) text += ',';
      text += element;
    }
    text += ']';
    JsonAutoRefPtr<JsonValue> doc = parse(text);
    ASSERT_EQ(mjson::ContainerSize(*doc), 2000000u);
    std::string().swap(text);
    peak = ResidentBytes();
  }
  const size_t after = ResidentBytes();
  EXPECT_GT(peak, baseline + (400u << 20)) << "the document should have taken memory";
  EXPECT_LE(after, baseline + baseline / 10 + (16u << 20))
      << "baseline " << (baseline >> 20) << " MB, with the document " << (peak >> 20)
      << " MB, after freeing it " << (after >> 20) << " MB";
}

}  // namespace
