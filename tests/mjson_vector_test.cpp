// The vector layer and the scans built on it, against byte-by-byte
// reference answers. Every backend runs this file: SSE2 in the x86-64
// builds, NEON in the 64-bit ARM build, the portable words in the build that
// forces them (ZENTOR_PORTABLE_VECTOR).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Mjson.h"
#include "MjsonScan.h"
#include "MjsonVector.h"

namespace {

namespace vec = mjson::detail::vec;
using mjson::detail::FindSpecial;
using mjson::detail::SkipAscii;
using mjson::detail::SkipBlanks;
using mjson::detail::Utf8BlocksOk;

// The bytes every comparison turns on, and their neighbours.
constexpr unsigned char kEdges[] = {0x00, 0x01, 0x09, 0x0A, 0x1F, 0x20, 0x21, '"',
                                    '\\', 'a',  0x7E, 0x7F, 0x80, 0x81, 0xBF, 0xC0,
                                    0xDF, 0xE0, 0xEF, 0xF0, 0xF7, 0xF8, 0xFE, 0xFF};

// Blocks of edge bytes in every lane and of random bytes.
std::vector<std::string> TestBlocks() {
  std::vector<std::string> blocks;
  for (unsigned char a : kEdges)
    for (unsigned char b : kEdges) {
      std::string block(16, static_cast<char>(a));
      for (size_t i = 0; i < 16; i += 3) block[i] = static_cast<char>(b);
      blocks.push_back(block);
    }
  std::mt19937 random(26);
  for (int n = 0; n < 2000; ++n) {
    std::string block(16, '\0');
    for (char& c : block) c = static_cast<char>(kEdges[random() % sizeof kEdges]);
    blocks.push_back(block);
  }
  return blocks;
}

template <class Predicate>
uint32_t ReferenceBits(const std::string& block, Predicate flagged) {
  uint32_t bits = 0;
  for (size_t i = 0; i < 16; ++i)
    if (flagged(static_cast<unsigned char>(block[i]))) bits |= 1u << i;
  return bits;
}

TEST(VectorLayer, BackendIsTheOneTheTargetAsksFor) {
#if defined(MJSON_VECTOR_PORTABLE)
  EXPECT_STREQ(vec::kBackend, "words");
#elif defined(__x86_64__)
  EXPECT_STREQ(vec::kBackend, "sse2");
#elif defined(__aarch64__)
  EXPECT_STREQ(vec::kBackend, "neon");
#endif
  RecordProperty("backend", vec::kBackend);
  std::printf("vector backend: %s\n", vec::kBackend);
}

TEST(VectorLayer, MasksAgreeWithBytes) {
  struct Case {
    const char* name;
    vec::Mask (*mask)(vec::Block);
    bool (*flagged)(unsigned char);
  } cases[] = {
      {"equal quote", [](vec::Block b) { return vec::Equal(b, '"'); },
       [](unsigned char c) { return c == '"'; }},
      {"equal zero", [](vec::Block b) { return vec::Equal(b, 0); },
       [](unsigned char c) { return c == 0; }},
      {"equal 0xFF", [](vec::Block b) { return vec::Equal(b, 0xFF); },
       [](unsigned char c) { return c == 0xFF; }},
      {"below 0x20", [](vec::Block b) { return vec::Below(b, 0x20); },
       [](unsigned char c) { return c < 0x20; }},
      {"below 1", [](vec::Block b) { return vec::Below(b, 1); },
       [](unsigned char c) { return c < 1; }},
      {"below 0x80", [](vec::Block b) { return vec::Below(b, 0x80); },
       [](unsigned char c) { return c < 0x80; }},
      {"continuation", [](vec::Block b) { return vec::MaskedEqual(b, 0xC0, 0x80); },
       [](unsigned char c) { return (c & 0xC0) == 0x80; }},
      {"lead of three", [](vec::Block b) { return vec::MaskedEqual(b, 0xF0, 0xE0); },
       [](unsigned char c) { return (c & 0xF0) == 0xE0; }},
      {"never valid", [](vec::Block b) { return vec::MaskedEqual(b, 0xF8, 0xF8); },
       [](unsigned char c) { return (c & 0xF8) == 0xF8; }},
      {"non-ASCII", [](vec::Block b) { return vec::NonAscii(b); },
       [](unsigned char c) { return c >= 0x80; }},
      {"special", [](vec::Block b) { return mjson::detail::SpecialBytes(b); },
       [](unsigned char c) { return c == '"' || c == '\\' || c < 0x20; }},
      {"quote and below 0x21",
       [](vec::Block b) { return vec::Equal(b, '"') & vec::Below(b, 0x23); },
       [](unsigned char c) { return c == '"'; }},
  };
  const std::vector<std::string> blocks = TestBlocks();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const std::string& block : blocks) {
      const vec::Mask m = c.mask(vec::Load(block.data()));
      const uint32_t want = ReferenceBits(block, c.flagged);
      ASSERT_EQ(vec::Bits(m), want) << testing::PrintToString(block);
      ASSERT_EQ(vec::Any(m), want != 0);
      ASSERT_EQ(vec::All(m), want == 0xFFFF);
      if (want) {
        ASSERT_EQ(vec::FirstSet(m), static_cast<unsigned>(__builtin_ctz(want)));
      }
      if (want != 0xFFFF) {
        ASSERT_EQ(vec::FirstClear(m), static_cast<unsigned>(__builtin_ctz(~want)));
      }
    }
  }
}

TEST(VectorLayer, AsciiTestAgreesWithBytes) {
  for (const std::string& block : TestBlocks())
    ASSERT_EQ(vec::AnyNonAscii(vec::Load(block.data())),
              ReferenceBits(block, [](unsigned char c) { return c >= 0x80; }) != 0)
        << testing::PrintToString(block);
}

TEST(VectorLayer, SixtyFourBitsGatherFourBlocksInOrder) {
  const std::vector<std::string> blocks = TestBlocks();
  for (size_t i = 0; i + 4 <= blocks.size(); i += 3) {
    vec::Mask m[4];
    uint64_t want = 0;
    for (int k = 0; k < 4; ++k) {
      m[k] = vec::NonAscii(vec::Load(blocks[i + k].data()));
      want |= uint64_t(ReferenceBits(blocks[i + k], [](unsigned char c) { return c >= 0x80; }))
              << (16 * k);
    }
    ASSERT_EQ(vec::Bits64(m[0], m[1], m[2], m[3]), want);
  }
}

TEST(VectorLayer, BlocksOrTogether) {
  const std::vector<std::string> blocks = TestBlocks();
  for (size_t i = 0; i + 1 < blocks.size(); ++i) {
    std::string both(16, '\0');
    for (size_t k = 0; k < 16; ++k) both[k] = static_cast<char>(blocks[i][k] | blocks[i + 1][k]);
    const vec::Block b = vec::Load(blocks[i].data()) | vec::Load(blocks[i + 1].data());
    ASSERT_EQ(vec::Bits(vec::Equal(b, 0xFF)),
              ReferenceBits(both, [](unsigned char c) { return c == 0xFF; }));
  }
}

// The scans at every length up to a few blocks and every position, with
// each byte that stops them and each that does not, placed in buffers
// whose ends are the ends of their allocation.
TEST(Scans, StopWhereTheBytesSay) {
  struct Case {
    const char* name;
    const char* (*scan)(const char*, const char*);
    unsigned char fill;
    bool (*stops)(unsigned char);
    bool exact;  // stops on the byte itself, never short of it
  } cases[] = {
      {"FindSpecial", FindSpecial, 'x',
       [](unsigned char c) { return c == '"' || c == '\\' || c < 0x20; }, true},
      {"SkipBlanks",
       [](const char* p, const char* end) {
         return p + SkipBlanks(p, 0, static_cast<size_t>(end - p));
       },
       ' ', [](unsigned char c) { return c != ' '; }, false},
      {"SkipAscii", SkipAscii, 'x', [](unsigned char c) { return c >= 0x80; }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (size_t n = 0; n <= 70; ++n) {
      for (size_t at = 0; at <= n; ++at) {
        for (unsigned char b : kEdges) {
          // Exactly n bytes (never a null pointer, even for none), so that
          // AddressSanitizer sees any read past them.
          std::unique_ptr<char[]> buffer(new char[n]);
          std::memset(buffer.get(), c.fill, n);
          if (at < n) buffer[at] = static_cast<char>(b);
          const char* begin = buffer.get();
          const char* end = begin + n;
          size_t want = 0;
          while (want < n && !c.stops(static_cast<unsigned char>(begin[want]))) ++want;
          const size_t got = static_cast<size_t>(c.scan(begin, end) - begin);
          if (c.exact) {
            ASSERT_EQ(got, want) << "length " << n << ", byte " << int(b) << " at " << at;
          } else {
            // A skip may stop short, where a block or a word reaches past the
            // end or holds the byte, and leave the rest to its caller.
            ASSERT_LE(got, want) << "length " << n << ", byte " << int(b) << " at " << at;
            ASSERT_TRUE(want - got < 8 || n - got < 16)
                << "length " << n << ", byte " << int(b) << " at " << at;
          }
        }
      }
    }
  }
}

// The byte walk that JsonValue::IsUTF8 is defined by.
bool ReferenceUtf8(const std::string& s, size_t& badPos) {
  const auto* d = reinterpret_cast<const unsigned char*>(s.data());
  const size_t n = s.size();
  for (size_t i = 0; i < n;) {
    const unsigned char c = d[i];
    size_t extra = c < 0x80             ? 0
                   : (c & 0xE0) == 0xC0 ? 1
                   : (c & 0xF0) == 0xE0 ? 2
                   : (c & 0xF8) == 0xF0 ? 3
                                        : 99;
    if (extra == 99 || n - i <= extra) {
      badPos = i;
      return false;
    }
    for (size_t k = 1; k <= extra; ++k)
      if ((d[i + k] & 0xC0) != 0x80) {
        badPos = i;
        return false;
      }
    i += extra + 1;
  }
  badPos = n;
  return true;
}

TEST(Scans, Utf8ScreenAndWalkAgreeWithTheByteRule) {
  // Pieces of text: ASCII runs, whole sequences of each length, and the
  // faults (a stray continuation, a cut sequence, a byte never valid).
  const std::vector<std::string> pieces = {
      "a",
      "plain ascii text",
      std::string(40, 'z'),
      "\xC3\xA9",
      "\xE2\x82\xAC",
      "\xF0\x9F\x98\x80",
      "\xED\xA0\x80",
      "\xC0\x80",
      "\x80",
      "\xBF",
      "\xC3",
      "\xE2\x82",
      "\xF0\x9F\x98",
      "\xF8",
      "\xFF",
  };
  std::mt19937 random(2026);
  for (int round = 0; round < 20000; ++round) {
    std::string s;
    const size_t parts = random() % 24;
    for (size_t k = 0; k < parts; ++k) {
      // Mostly valid pieces, so that faults fall at every offset of a block.
      const size_t pick = random() % 40;
      s += pieces[pick < 28 ? pick % 7 : 7 + pick % 8];
    }
    size_t wantPos = 0;
    const bool want = ReferenceUtf8(s, wantPos);
    size_t gotPos = 12345;
    ASSERT_EQ(JsonValue::IsUTF8(s, &gotPos), want) << testing::PrintToString(s);
    ASSERT_EQ(gotPos, wantPos) << testing::PrintToString(s);
    ASSERT_EQ(Utf8BlocksOk(s.data(), s.size()), want) << testing::PrintToString(s);
  }
}

}  // namespace
