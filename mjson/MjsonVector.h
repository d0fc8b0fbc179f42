// The vector layer: a block of sixteen bytes and the few things the
// library's scans ask of it. Which bytes of a block equal a byte, lie below
// a bound or match a pattern under a bit mask ("lanes", a Mask); whether any
// or all lanes are flagged, where the first flagged or unflagged one is, and
// the flags as bits, lane i as bit i, sixteen or sixty-four (four blocks) at
// a time.
//
// Three backends give the same answers: SSE2 on x86-64, NEON on 64-bit ARM,
// and a portable one that works on two 64-bit words per block (the "word at
// a time" tricks), for every other processor and for builds that define
// MJSON_VECTOR_PORTABLE. This is the only file of the library that uses the
// processor's vector instructions.
//
// The word helpers at the top serve the portable backend and the scans'
// short tails alike: they read a word's bytes in memory order, which is
// little-endian order (MjsonPlatform.h asserts it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "MjsonPlatform.h"

#if defined(MJSON_VECTOR_PORTABLE)
#define MJSON_VECTOR_WORDS 1
#elif defined(__SSE2__)
#define MJSON_VECTOR_SSE2 1
#include <emmintrin.h>
#elif defined(__aarch64__) && defined(__ARM_NEON)
#define MJSON_VECTOR_NEON 1
#include <arm_neon.h>
#else
#define MJSON_VECTOR_WORDS 1
#endif

namespace mjson::detail::vec {

inline constexpr size_t kBlockBytes = 16;

// ---------------------------------------------------------------------------
// Eight bytes in a word

inline constexpr uint64_t kOnes = 0x0101010101010101ull;
inline constexpr uint64_t kHighs = 0x8080808080808080ull;

inline uint64_t Load8(const char* p) {
  uint64_t w;
  memcpy(&w, p, 8);
  return w;
}

// Bit 7 of each byte lane is set where the lane is zero. Exact for the
// first such lane only (a borrow may flag lanes above it), which is all
// that a search for the first one needs, in three operations.
inline uint64_t FirstZeroLanes(uint64_t w) {
  return (w - kOnes) & ~w & kHighs;
}

// Lanes holding a double quote, a backslash or a control byte; exact for
// the first such lane only.
inline uint64_t FirstSpecialLanes(uint64_t w) {
  uint64_t quote = FirstZeroLanes(w ^ (kOnes * '"'));
  uint64_t backslash = FirstZeroLanes(w ^ (kOnes * '\\'));
  uint64_t control = (w - kOnes * 0x20) & ~w & kHighs;
  return quote | backslash | control;
}

// Exact forms, lane by lane: bit 7 of each byte lane is set where the lane
// is zero, and where the lane is below `bound` (1 to 0x80).
inline uint64_t ZeroLanes(uint64_t w) {
  return ~(((w & ~kHighs) + ~kHighs) | w) & kHighs;
}
inline uint64_t LanesBelow(uint64_t w, uint8_t bound) {
  return ~(((w & ~kHighs) + kOnes * static_cast<uint8_t>(0x80 - bound)) | w) & kHighs;
}

// The flags of a word's lanes (bit 7 of each byte) as eight bits, lane i as
// bit i: each flag lands on its own bit of the product's top byte.
inline uint32_t LaneBits(uint64_t lanes) {
  return static_cast<uint32_t>(((lanes >> 7) * 0x0102040810204080ull) >> 56);
}

// ---------------------------------------------------------------------------
// Sixteen bytes in a block

#if defined(MJSON_VECTOR_SSE2)

inline constexpr const char* kBackend = "sse2";

struct Block {
  __m128i v;
};
// A lane is flagged when its top bit is set.
struct Mask {
  __m128i v;
};

inline Block Load(const char* p) {
  return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
}
inline Block operator|(Block a, Block b) {
  return {_mm_or_si128(a.v, b.v)};
}
inline Mask operator|(Mask a, Mask b) {
  return {_mm_or_si128(a.v, b.v)};
}
inline Mask operator&(Mask a, Mask b) {
  return {_mm_and_si128(a.v, b.v)};
}

inline Mask Equal(Block b, uint8_t c) {
  return {_mm_cmpeq_epi8(b.v, _mm_set1_epi8(static_cast<char>(c)))};
}
// Lanes below `bound` (1 to 0x80), unsigned: those that an unsigned minimum
// with bound - 1 leaves unchanged.
inline Mask Below(Block b, uint8_t bound) {
  const __m128i top = _mm_set1_epi8(static_cast<char>(bound - 1));
  return {_mm_cmpeq_epi8(_mm_min_epu8(b.v, top), b.v)};
}
// Lanes whose bits under `bits` are `value`.
inline Mask MaskedEqual(Block b, uint8_t bits, uint8_t value) {
  return {_mm_cmpeq_epi8(_mm_and_si128(b.v, _mm_set1_epi8(static_cast<char>(bits))),
                         _mm_set1_epi8(static_cast<char>(value)))};
}
// Lanes of 0x80 and above, the bytes of UTF-8 sequences.
inline Mask NonAscii(Block b) {
  return {b.v};
}
// Whether any lane is 0x80 or above: the test of text for pure ASCII.
inline bool AnyNonAscii(Block b) {
  return _mm_movemask_epi8(b.v) != 0;
}

inline uint32_t Bits(Mask m) {
  return static_cast<uint32_t>(_mm_movemask_epi8(m.v));
}
inline bool Any(Mask m) {
  return Bits(m) != 0;
}
inline bool All(Mask m) {
  return Bits(m) == 0xFFFF;
}
// The first flagged lane; there must be one.
inline unsigned FirstSet(Mask m) {
  return static_cast<unsigned>(__builtin_ctz(Bits(m)));
}
// The first lane not flagged; there must be one.
inline unsigned FirstClear(Mask m) {
  return static_cast<unsigned>(__builtin_ctz(~Bits(m)));
}

#elif defined(MJSON_VECTOR_NEON)

inline constexpr const char* kBackend = "neon";

struct Block {
  uint8x16_t v;
};
// A lane is flagged when it is all ones, and clear when it is zero.
struct Mask {
  uint8x16_t v;
};

inline Block Load(const char* p) {
  return {vld1q_u8(reinterpret_cast<const uint8_t*>(p))};
}
inline Block operator|(Block a, Block b) {
  return {vorrq_u8(a.v, b.v)};
}
inline Mask operator|(Mask a, Mask b) {
  return {vorrq_u8(a.v, b.v)};
}
inline Mask operator&(Mask a, Mask b) {
  return {vandq_u8(a.v, b.v)};
}

inline Mask Equal(Block b, uint8_t c) {
  return {vceqq_u8(b.v, vdupq_n_u8(c))};
}
inline Mask Below(Block b, uint8_t bound) {
  return {vcltq_u8(b.v, vdupq_n_u8(bound))};
}
inline Mask MaskedEqual(Block b, uint8_t bits, uint8_t value) {
  return {vceqq_u8(vandq_u8(b.v, vdupq_n_u8(bits)), vdupq_n_u8(value))};
}
inline Mask NonAscii(Block b) {
  return {vcltzq_s8(vreinterpretq_s8_u8(b.v))};
}
// The largest lane says it in one instruction.
inline bool AnyNonAscii(Block b) {
  return vmaxvq_u8(b.v) >= 0x80;
}

// NEON has no byte mask move. Narrowing each 16-bit pair of lanes by four
// bits gives four bits per lane in one word, which is all that testing and
// finding the first lane need.
inline uint64_t Nibbles(Mask m) {
  return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(m.v), 4)), 0);
}
inline bool Any(Mask m) {
  return Nibbles(m) != 0;
}
inline bool All(Mask m) {
  return Nibbles(m) == ~uint64_t(0);
}
inline unsigned FirstSet(Mask m) {
  return static_cast<unsigned>(__builtin_ctzll(Nibbles(m)) >> 2);
}
inline unsigned FirstClear(Mask m) {
  return static_cast<unsigned>(__builtin_ctzll(~Nibbles(m)) >> 2);
}
// Exact bits: each lane keeps its own bit of a byte, and pairwise sums
// gather the bytes, eight lanes to a byte.
inline uint8x16_t LaneWeights(Mask m) {
  static constexpr uint8_t kWeights[16] = {1, 2, 4, 8, 16, 32, 64, 128,
                                           1, 2, 4, 8, 16, 32, 64, 128};
  return vandq_u8(m.v, vld1q_u8(kWeights));
}
inline uint32_t Bits(Mask m) {
  uint8x16_t t = LaneWeights(m);
  t = vpaddq_u8(t, t);
  t = vpaddq_u8(t, t);
  t = vpaddq_u8(t, t);
  return vgetq_lane_u16(vreinterpretq_u16_u8(t), 0);
}
inline uint64_t Bits64(Mask a, Mask b, Mask c, Mask d) {
  uint8x16_t ab = vpaddq_u8(LaneWeights(a), LaneWeights(b));
  uint8x16_t cd = vpaddq_u8(LaneWeights(c), LaneWeights(d));
  uint8x16_t t = vpaddq_u8(ab, cd);
  t = vpaddq_u8(t, t);
  return vgetq_lane_u64(vreinterpretq_u64_u8(t), 0);
}

#else

inline constexpr const char* kBackend = "words";

struct Block {
  uint64_t lo, hi;
};
// A lane is flagged when its top bit is set; every other bit is zero.
struct Mask {
  uint64_t lo, hi;
};

inline Block Load(const char* p) {
  return {Load8(p), Load8(p + 8)};
}
inline Block operator|(Block a, Block b) {
  return {a.lo | b.lo, a.hi | b.hi};
}
inline Mask operator|(Mask a, Mask b) {
  return {a.lo | b.lo, a.hi | b.hi};
}
inline Mask operator&(Mask a, Mask b) {
  return {a.lo & b.lo, a.hi & b.hi};
}

inline Mask Equal(Block b, uint8_t c) {
  return {ZeroLanes(b.lo ^ (kOnes * c)), ZeroLanes(b.hi ^ (kOnes * c))};
}
inline Mask Below(Block b, uint8_t bound) {
  return {LanesBelow(b.lo, bound), LanesBelow(b.hi, bound)};
}
inline Mask MaskedEqual(Block b, uint8_t bits, uint8_t value) {
  return {ZeroLanes((b.lo & (kOnes * bits)) ^ (kOnes * value)),
          ZeroLanes((b.hi & (kOnes * bits)) ^ (kOnes * value))};
}
inline Mask NonAscii(Block b) {
  return {b.lo & kHighs, b.hi & kHighs};
}
inline bool AnyNonAscii(Block b) {
  return ((b.lo | b.hi) & kHighs) != 0;
}

inline bool Any(Mask m) {
  return (m.lo | m.hi) != 0;
}
inline bool All(Mask m) {
  return (m.lo & m.hi) == kHighs;
}
inline unsigned FirstSet(Mask m) {
  return m.lo ? static_cast<unsigned>(__builtin_ctzll(m.lo) >> 3)
              : 8 + static_cast<unsigned>(__builtin_ctzll(m.hi) >> 3);
}
inline unsigned FirstClear(Mask m) {
  return FirstSet(Mask{m.lo ^ kHighs, m.hi ^ kHighs});
}
inline uint32_t Bits(Mask m) {
  return LaneBits(m.lo) | LaneBits(m.hi) << 8;
}

#endif

#if !defined(MJSON_VECTOR_NEON)
// Four blocks' flags in one word, the first block's in the low bits.
inline uint64_t Bits64(Mask a, Mask b, Mask c, Mask d) {
  return Bits(a) | static_cast<uint64_t>(Bits(b)) << 16 | static_cast<uint64_t>(Bits(c)) << 32 |
         static_cast<uint64_t>(Bits(d)) << 48;
}
#endif

}  // namespace mjson::detail::vec
