// UTF-8: checking bytes, sixteen at a time where the processor allows, and
// encoding code points; the hexadecimal digits of \u escapes.
#include <string.h>

#include "Mjson.h"
#include "MjsonInternal.h"

using mjson::kHighs;
using mjson::Load8;

// ---------------------------------------------------------------------------
// UTF-8

namespace {

#if defined(__SSE2__)
// Sixteen bytes at a time: a byte must be a continuation (10xxxxxx) exactly
// where a lead byte in front of it asks for one. A lead 110xxxxx asks for the
// next byte, 1110xxxx for two, 11110xxx for three; 11111xxx is never valid.
// That is the very rule the byte-by-byte walk below applies, stated as bit
// masks, so the two agree on every input. `carry` holds the requests that
// reach past the block into the next one.
inline bool Utf8BlockOk(__m128i v, uint32_t& carry) {
  auto top = [v](int bits, int value) {
    __m128i m = _mm_set1_epi8(static_cast<char>(bits));
    return static_cast<uint32_t>(_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_and_si128(v, m), _mm_set1_epi8(static_cast<char>(value)))));
  };
  uint32_t cont = top(0xC0, 0x80);
  uint32_t lead2 = top(0xC0, 0xC0);
  uint32_t lead3 = top(0xE0, 0xE0);
  uint32_t lead4 = top(0xF0, 0xF0);
  uint32_t never = top(0xF8, 0xF8);
  uint32_t wanted = (lead2 << 1) | (lead3 << 2) | (lead4 << 3) | carry;
  carry = wanted >> 16;
  return never == 0 && (wanted & 0xFFFF) == cont;
}

// True when `data[0, n)` is UTF-8 by the rule above; a fast screen only,
// the exact answer (and the position of a fault) comes from the walk.
bool Utf8BlocksOk(const unsigned char* data, size_t n) {
  uint32_t carry = 0;
  size_t i = 0;
  for (; n - i >= 64; i += 64) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 16));
    __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 32));
    __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 48));
    if (carry == 0 && _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0)
      continue;  // all ASCII
    if (!Utf8BlockOk(a, carry) || !Utf8BlockOk(b, carry) || !Utf8BlockOk(c, carry) ||
        !Utf8BlockOk(d, carry))
      return false;
  }
  for (; n - i >= 16; i += 16)
    if (!Utf8BlockOk(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i)), carry))
      return false;
  if (i == n) return carry == 0;
  // An ASCII tail with nothing asked of it passes, checked with a load
  // that reaches back over bytes already checked.
  if (carry == 0 && n >= 16 &&
      _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + n - 16))) == 0)
    return true;
  // The tail, zero padded: a zero byte is no continuation, so a sequence
  // cut short by the end fails here, as does a request still in `carry`.
  alignas(16) unsigned char tail[16] = {};
  memcpy(tail, data + i, n - i);
  return Utf8BlockOk(_mm_load_si128(reinterpret_cast<const __m128i*>(tail)), carry) && carry == 0;
}
#endif

}  // namespace

bool JsonValue::IsUTF8(std::string_view s, size_t* badPos) {
  // Short ASCII strings, most keys and many values, in a few loads of
  // whole registers (overlapping where the length is not a power of two).
  if (s.size() <= 16) {
    const char* p = s.data();
    const size_t n = s.size();
    uint64_t bits;
    if (n >= 8) {
      bits = Load8(p) | Load8(p + n - 8);
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
    if ((bits & kHighs) == 0) {
      if (badPos) *badPos = n;
      return true;
    }
  }
#if defined(__SSE2__)
  if (Utf8BlocksOk(reinterpret_cast<const unsigned char*>(s.data()), s.size())) {
    if (badPos) *badPos = s.size();
    return true;
  }
#endif
  const unsigned char* data = reinterpret_cast<const unsigned char*>(s.data());
  size_t n = s.size();
  size_t i = 0;
  while (i < n) {
    // Skip runs of ASCII a block at a time; most text is mostly ASCII.
#if defined(__SSE2__)
    while (n - i >= 16) {
      int high = _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i)));
      if (high) {
        i += static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(high)));
        break;
      }
      i += 16;
    }
#endif
    while (n - i >= 8 && (Load8(s.data() + i) & kHighs) == 0) i += 8;
    if (i >= n) break;
    unsigned char c = data[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    if ((c & 0xE0) == 0xC0)
      extra = 1;
    else if ((c & 0xF0) == 0xE0)
      extra = 2;
    else if ((c & 0xF8) == 0xF0)
      extra = 3;
    else
      extra = 0;
    bool ok = extra != 0 && n - i > extra;
    for (size_t k = 1; ok && k <= extra; ++k) ok = (data[i + k] & 0xC0) == 0x80;
    if (!ok) {
      if (badPos) *badPos = i;
      return false;
    }
    i += extra + 1;
  }
  if (badPos) *badPos = n;
  return true;
}

void AppendUnicodeAsUTF8(std::string& out, unsigned int cp) {
  char buf[4];
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    buf[0] = static_cast<char>(0xC0 | (cp >> 6));
    buf[1] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 2);
  } else if (cp < 0x10000) {
    buf[0] = static_cast<char>(0xE0 | (cp >> 12));
    buf[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    buf[2] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 3);
  } else if (cp < 0x110000) {
    buf[0] = static_cast<char>(0xF0 | (cp >> 18));
    buf[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    buf[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    buf[3] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 4);
  }
}

bool IsHexDigit(char c, unsigned char& value) {
  if (c >= '0' && c <= '9') {
    value = static_cast<unsigned char>(c - '0');
  } else if (c >= 'A' && c <= 'F') {
    value = static_cast<unsigned char>(c - 'A' + 10);
  } else if (c >= 'a' && c <= 'f') {
    value = static_cast<unsigned char>(c - 'a' + 10);
  } else {
    return false;
  }
  return true;
}

bool Parse4HexDigits(const std::string& text, ParserContext& ctx, unsigned short& code) {
  // Always consumes four bytes; callers have checked that they exist.
  bool ok = true;
  unsigned value = 0;
  for (int k = 0; k < 4; ++k) {
    unsigned char digit = 0;
    if (!IsHexDigit(text[ctx.fPosition + k], digit)) ok = false;
    value = (value << 4) | digit;
  }
  ctx.fPosition += 4;
  code = static_cast<unsigned short>(value);
  return ok;
}
