// The byte scans of the codecs, written once on the vector layer
// (MjsonVector.h): where a string ends or needs escaping, runs of blanks,
// and the UTF-8 screen. Internal to the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "MjsonVector.h"

namespace mjson::detail {

inline bool IsSpecialByte(unsigned char c) {
  return c == '"' || c == '\\' || c < 0x20;
}

// Lanes holding a double quote, a backslash or a control byte.
inline vec::Mask SpecialBytes(vec::Block b) {
  return vec::Equal(b, '"') | vec::Equal(b, '\\') | vec::Below(b, 0x20);
}

// Whether a string of at most 16 bytes holds a byte that needs escaping,
// in a word or two read over it: most keys and many values are that short.
inline bool ShortHasSpecial(const char* p, size_t n) {
  if (n >= 8)
    return (vec::FirstSpecialLanes(vec::Load8(p)) |
            vec::FirstSpecialLanes(vec::Load8(p + n - 8))) != 0;
  if (n >= 4) {
    uint32_t a, b;
    memcpy(&a, p, 4);
    memcpy(&b, p + n - 4, 4);
    return vec::FirstSpecialLanes(a | (static_cast<uint64_t>(b) << 32)) != 0;
  }
  for (size_t i = 0; i < n; ++i)
    if (IsSpecialByte(static_cast<unsigned char>(p[i]))) return true;
  return false;
}

// The first double quote, backslash or control byte at or after `p`, or
// `end` when there is none: where a string ends or needs escaping.
inline const char* FindSpecial(const char* p, const char* end) {
  const char* const start = p;
  while (end - p >= 16) {
    const vec::Mask special = SpecialBytes(vec::Load(p));
    if (vec::Any(special)) return p + vec::FirstSet(special);
    p += 16;
  }
  while (end - p >= 8) {
    uint64_t lanes = vec::FirstSpecialLanes(vec::Load8(p));
    if (lanes) return p + (__builtin_ctzll(lanes) >> 3);
    p += 8;
  }
  if (p == end) return end;
  // The last few bytes in one word: the last eight of the string, reaching
  // back over bytes already passed (none of them special, so the first lane
  // flagged is a true one), or for a string shorter than that the short
  // test, which only says whether to look byte by byte.
  if (end - start >= 8) {
    uint64_t lanes = vec::FirstSpecialLanes(vec::Load8(end - 8));
    return lanes ? end - 8 + (__builtin_ctzll(lanes) >> 3) : end;
  }
  if (!ShortHasSpecial(p, static_cast<size_t>(end - p))) return end;
  while (!IsSpecialByte(static_cast<unsigned char>(*p))) ++p;
  return p;
}

// Skips a run of blanks (0x20) at `data[p]`, of `n` bytes, a block at a
// time, for indentation: returns the position of the first byte that is not
// a blank, or one fewer than sixteen bytes before the end, from which the
// caller goes on byte by byte. (Positions, not pointers: the whitespace loop
// counts in positions, and converting back and forth cost it a tenth more
// instructions.)
inline size_t SkipBlanks(const char* data, size_t p, size_t n) {
  while (n - p >= 16) {
    const vec::Mask blanks = vec::Equal(vec::Load(data + p), ' ');
    if (!vec::All(blanks)) return p + vec::FirstClear(blanks);
    p += 16;
  }
  return p;
}

// Whether a string of at most 16 bytes is all ASCII, in a word or two read
// over it: most keys and many values are that short.
inline bool ShortIsAscii(const char* p, size_t n) {
  uint64_t bits;
  if (n >= 8) {
    bits = vec::Load8(p) | vec::Load8(p + n - 8);
  } else if (n >= 4) {
    uint32_t a, b;
    memcpy(&a, p, 4);
    memcpy(&b, p + n - 4, 4);
    bits = a | b;
  } else {
    bits = n ? static_cast<unsigned char>(p[0]) | static_cast<unsigned char>(p[n / 2]) |
                   static_cast<unsigned char>(p[n - 1])
             : 0;
  }
  return (bits & vec::kHighs) == 0;
}

// Skips ASCII at `p` in blocks and words: returns the first byte of 0x80
// and above or a position at most seven bytes before it, from which the
// caller goes on byte by byte.
inline const char* SkipAscii(const char* p, const char* end) {
  while (end - p >= 16) {
    const vec::Mask high = vec::NonAscii(vec::Load(p));
    if (vec::Any(high)) return p + vec::FirstSet(high);
    p += 16;
  }
  while (end - p >= 8 && (vec::Load8(p) & vec::kHighs) == 0) p += 8;
  return p;
}

// Sixteen bytes of UTF-8: a byte must be a continuation (10xxxxxx) exactly
// where a lead byte in front of it asks for one. A lead 110xxxxx asks for the
// next byte, 1110xxxx for two, 11110xxx for three; 11111xxx is never valid.
// That is the very rule of the byte-by-byte walk of JsonValue::IsUTF8,
// stated as bit masks, so the two agree on every input. `carry` holds the
// requests that reach past the block into the next one.
inline bool Utf8BlockOk(vec::Block b, uint32_t& carry) {
  const uint32_t cont = vec::Bits(vec::MaskedEqual(b, 0xC0, 0x80));
  const uint32_t lead2 = vec::Bits(vec::MaskedEqual(b, 0xC0, 0xC0));
  const uint32_t lead3 = vec::Bits(vec::MaskedEqual(b, 0xE0, 0xE0));
  const uint32_t lead4 = vec::Bits(vec::MaskedEqual(b, 0xF0, 0xF0));
  const bool never = vec::Any(vec::MaskedEqual(b, 0xF8, 0xF8));
  const uint32_t wanted = (lead2 << 1) | (lead3 << 2) | (lead4 << 3) | carry;
  carry = wanted >> 16;
  return !never && (wanted & 0xFFFF) == cont;
}

// The same rule over sixty-four bytes, four blocks, with the lanes of each
// kind gathered into one word: a quarter of the gathering that four calls of
// the above make (NEON has no single instruction for it).
inline bool Utf8ChunkOk(vec::Block a, vec::Block b, vec::Block c, vec::Block d, uint64_t& carry) {
  auto lanes = [&](uint8_t bits, uint8_t value) {
    return vec::Bits64(vec::MaskedEqual(a, bits, value), vec::MaskedEqual(b, bits, value),
                       vec::MaskedEqual(c, bits, value), vec::MaskedEqual(d, bits, value));
  };
  const uint64_t cont = lanes(0xC0, 0x80);
  const uint64_t lead2 = lanes(0xC0, 0xC0);
  const uint64_t lead3 = lanes(0xE0, 0xE0);
  const uint64_t lead4 = lanes(0xF0, 0xF0);
  const vec::Mask never = vec::MaskedEqual(a, 0xF8, 0xF8) | vec::MaskedEqual(b, 0xF8, 0xF8) |
                          vec::MaskedEqual(c, 0xF8, 0xF8) | vec::MaskedEqual(d, 0xF8, 0xF8);
  const uint64_t wanted = (lead2 << 1) | (lead3 << 2) | (lead4 << 3) | carry;
  carry = (lead2 >> 63) | (lead3 >> 62) | (lead4 >> 61);
  return !vec::Any(never) && wanted == cont;
}

// True when `data[0, n)` is UTF-8 by the rule above: a fast screen only,
// the exact answer (and the position of a fault) comes from the walk.
// Inline in its caller, the check of every string value a reader makes: as
// a call of its own it cost a MessagePack read of twitter 1% more
// instructions.
[[gnu::always_inline]] inline bool Utf8BlocksOk(const char* data, size_t n) {
  uint64_t wide = 0;
  size_t i = 0;
  for (; n - i >= 64; i += 64) {
    const vec::Block a = vec::Load(data + i);
    const vec::Block b = vec::Load(data + i + 16);
    const vec::Block c = vec::Load(data + i + 32);
    const vec::Block d = vec::Load(data + i + 48);
    if (wide == 0 && !vec::AnyNonAscii((a | b) | (c | d))) continue;  // all ASCII
    if (!Utf8ChunkOk(a, b, c, d, wide)) return false;
  }
  uint32_t carry = static_cast<uint32_t>(wide);
  for (; n - i >= 16; i += 16)
    if (!Utf8BlockOk(vec::Load(data + i), carry)) return false;
  if (i == n) return carry == 0;
  // An ASCII tail with nothing asked of it passes, checked with a load
  // that reaches back over bytes already checked.
  if (carry == 0 && n >= 16 && !vec::AnyNonAscii(vec::Load(data + n - 16))) return true;
  // The tail, zero padded: a zero byte is no continuation, so a sequence
  // cut short by the end fails here, as does a request still in `carry`.
  alignas(16) char tail[16] = {};
  memcpy(tail, data + i, n - i);
  return Utf8BlockOk(vec::Load(tail), carry) && carry == 0;
}

}  // namespace mjson::detail
