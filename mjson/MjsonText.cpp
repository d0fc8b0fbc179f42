// JSON text in and out: the strict parser and the compact and indented
// writers. Both walk containers with an explicit stack, so document depth is
// bounded by memory alone.
#include <assert.h>
#include <stdio.h>
#include <string.h>

#include <charconv>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "Mjson.h"
#include "MjsonScratch.h"

namespace {

// ---------------------------------------------------------------------------
// Word-at-a-time byte scans

constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;

inline uint64_t Load8(const char* p) {
  uint64_t w;
  memcpy(&w, p, 8);
  return w;
}

// Bit 7 of each byte lane is set where the lane is zero (exact for the
// first such lane, which is all that callers use).
inline uint64_t ZeroLanes(uint64_t w) { return (w - kOnes) & ~w & kHighs; }

// Lanes holding a double quote, a backslash or a control byte.
inline uint64_t SpecialLanes(uint64_t w) {
  uint64_t quote = ZeroLanes(w ^ (kOnes * '"'));
  uint64_t backslash = ZeroLanes(w ^ (kOnes * '\\'));
  uint64_t control = (w - kOnes * 0x20) & ~w & kHighs;
  return quote | backslash | control;
}

inline bool IsSpecialByte(unsigned char c) { return c == '"' || c == '\\' || c < 0x20; }

// Offset of the first double quote, backslash or control byte at or after
// `p`, or `end - begin` when there is none.
inline const char* FindSpecial(const char* p, const char* end) {
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i below = _mm_set1_epi8(0x1F);
  while (end - p >= 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    // Control bytes are those that stay unchanged under an unsigned min with 0x1F.
    __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                                   _mm_cmpeq_epi8(_mm_min_epu8(v, below), v));
    int mask = _mm_movemask_epi8(special);
    if (mask) return p + __builtin_ctz(static_cast<unsigned>(mask));
    p += 16;
  }
#endif
  while (end - p >= 8) {
    uint64_t lanes = SpecialLanes(Load8(p));
    if (lanes) return p + (__builtin_ctzll(lanes) >> 3);
    p += 8;
  }
  while (p < end && !IsSpecialByte(static_cast<unsigned char>(*p))) ++p;
  return p;
}

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

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
    return static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(v, m), _mm_set1_epi8(static_cast<char>(value)))));
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
    if (!Utf8BlockOk(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i)), carry)) return false;
  // The tail, zero padded: a zero byte is no continuation, so a sequence
  // cut short by the end fails here, as does a request still in `carry`.
  alignas(16) unsigned char tail[16] = {};
  memcpy(tail, data + i, n - i);
  return Utf8BlockOk(_mm_load_si128(reinterpret_cast<const __m128i*>(tail)), carry) && carry == 0;
}
#endif

}  // namespace

bool JsonValue::IsUTF8(std::string_view s, size_t* badPos) {
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

// ---------------------------------------------------------------------------
// Lexical steps

void JsonValue::SkipBOM(const std::string& text, ParserContext& ctx) {
  size_t p = ctx.fPosition;
  if (p + 3 <= text.size() && static_cast<unsigned char>(text[p]) == 0xEF &&
      static_cast<unsigned char>(text[p + 1]) == 0xBB &&
      static_cast<unsigned char>(text[p + 2]) == 0xBF)
    ctx.fPosition = p + 3;
}

void JsonValue::SkipWhitespace(const std::string& text, ParserContext& ctx) {
  const char* data = text.data();
  size_t n = text.size();
  size_t p = ctx.fPosition;
  while (p < n) {
    char c = data[p];
    if (static_cast<unsigned char>(c) > ' ') break;
    if (c == ' ' || c == '\t') {
      ++p;
      // Indentation comes in runs of blanks.
#if defined(__SSE2__)
      while (n - p >= 16) {
        unsigned blanks = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + p)), _mm_set1_epi8(' '))));
        if (blanks != 0xFFFF) {
          p += static_cast<size_t>(__builtin_ctz(~blanks));
          break;
        }
        p += 16;
      }
#else
      while (n - p >= 8 && Load8(data + p) == kOnes * ' ') p += 8;
#endif
    } else if (c == '\n' || c == '\r') {
      ++p;
      // CR LF and LF CR are one break; CR CR is two.
      char other = c == '\n' ? '\r' : '\n';
      if (p < n && data[p] == other) ++p;
      ++ctx.fLine;
      ctx.fLineStart = p;
    } else {
      break;
    }
  }
  ctx.fPosition = p;
}

bool JsonValue::ParseString(const std::string& text, std::string& out, ParserContext& ctx) {
  const char* data = text.data();
  const char* end = data + text.size();
  size_t pos = ctx.fPosition;
  if (pos >= text.size() || data[pos] != '"') {
    out.clear();
    return false;
  }
  const char* start = data + pos + 1;
  const char* p = FindSpecial(start, end);
  if (p < end && *p == '"') {
    out.assign(start, p);
    ctx.fPosition = static_cast<size_t>(p + 1 - data);
  } else {
    out.assign(start, p);
    bool failed = false;
    for (;;) {
      if (p >= end) {
        failed = true;
        break;
      }
      unsigned char c = static_cast<unsigned char>(*p);
      if (c == '"') {
        ++p;
        break;
      }
      if (c < 0x20) {
        ctx.fPosition = static_cast<size_t>(p - data);
        if (ctx.fError.empty()) ctx.fError = "control character must be quoted";
        failed = true;
        break;
      }
      if (c != '\\') {
        const char* run = FindSpecial(p, end);
        out.append(p, run);
        p = run;
        continue;
      }
      // A backslash that ends the text is an ordinary byte.
      if (p + 1 >= end) {
        out.push_back('\\');
        ++p;
        continue;
      }
      char e = p[1];
      p += 2;
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out.push_back(e);
          break;
        case 'b':
          out.push_back('\b');
          break;
        case 'f':
          out.push_back('\f');
          break;
        case 'n':
          out.push_back('\n');
          break;
        case 'r':
          out.push_back('\r');
          break;
        case 't':
          out.push_back('\t');
          break;
        case 'u': {
          ctx.fPosition = static_cast<size_t>(p - data);
          unsigned short code = 0;
          if (end - p < 5 || !Parse4HexDigits(text, ctx, code)) {
            if (ctx.fError.empty()) ctx.fError = "incorrect utf16 char quoting";
            failed = true;
            break;
          }
          p = data + ctx.fPosition;
          if (code >= 0xD800 && code <= 0xDBFF && end - p > 6 && p[0] == '\\' && p[1] == 'u') {
            ctx.fPosition += 2;
            unsigned short low = 0;
            if (!Parse4HexDigits(text, ctx, low)) {
              if (ctx.fError.empty()) ctx.fError = "incorrect utf32 char quoting";
              failed = true;
              break;
            }
            p = data + ctx.fPosition;
            if (low >= 0xDC00 && low <= 0xDFFF) {
              // Joined with OR, not addition: for high surrogates from
              // D840 up, bit 16 merges instead of carrying. Kept on purpose.
              unsigned cp = ((static_cast<unsigned>(code) - 0xD800) << 10) |
                            (static_cast<unsigned>(low) - 0xDC00) | 0x10000;
              AppendUnicodeAsUTF8(out, cp);
            } else {
              AppendUnicodeAsUTF8(out, code);
              AppendUnicodeAsUTF8(out, low);
            }
          } else {
            AppendUnicodeAsUTF8(out, code);
          }
          break;
        }
        default:
          ctx.fPosition = static_cast<size_t>(p - 1 - data);
          if (ctx.fError.empty()) ctx.fError = "illegally quoted character";
          failed = true;
          break;
      }
      if (failed) break;
    }
    if (failed) {
      out.clear();
      if (ctx.fError.empty()) ctx.fError = "string quote sign expected";
      if (p >= end) ctx.fPosition = text.size();
      return false;
    }
    ctx.fPosition = static_cast<size_t>(p - data);
  }
  if (ctx.fNoUTF8Check || ctx.fInputIsUTF8) return true;
  size_t badPos = 0;
  if (IsUTF8(out, &badPos)) return true;
  out.resize(std::min<size_t>(badPos, 20));
  ctx.fPosition += badPos;
  ctx.fError = "illegal UTF8 character found at position " + std::to_string(badPos);
  if (!out.empty()) {
    ctx.fError += " in string which starts with \"";
    ctx.fError += out;
    ctx.fError += '"';
  }
  out.clear();
  return false;
}

JsonValue* JsonValue::ParseNumber(const std::string& text, ParserContext& ctx) {
  const char* data = text.data();
  size_t n = text.size();
  size_t start = ctx.fPosition;
  size_t p = start;
  if (p >= n) {
    ctx.fError = "unexpected end of input";
    return nullptr;
  }
  bool negative = data[p] == '-';
  if (!IsDigit(data[p]) && !(negative && p + 1 < n && IsDigit(data[p + 1]))) {
    ctx.fError = "not a number";
    return nullptr;
  }
  if (negative) ++p;

  bool isReal = false;
  unsigned long long value = 0;
  int digits = 0;
  size_t intStart = p;
  if (data[p] == '0') {
    ++p;
    digits = 1;
  } else {
    while (p < n && IsDigit(data[p])) {
      unsigned d = static_cast<unsigned>(data[p] - '0');
      if (!isReal && (value < JsonInteger::sMaxUInt64Div10 ||
                      (value == JsonInteger::sMaxUInt64Div10 && d <= 5))) {
        value = value * 10 + d;
        ++digits;
      } else {
        isReal = true;
      }
      ++p;
    }
  }
  size_t intDigits = p - intStart;
  // The integer and fraction digits as one number, while they fit.
  unsigned long long allDigits = value;
  int fractionDigits = 0;
  if (p < n && data[p] == '.') {
    isReal = true;
    ++p;
    while (p < n && IsDigit(data[p])) {
      if (intDigits + static_cast<size_t>(fractionDigits) < 19)
        allDigits = allDigits * 10 + static_cast<unsigned>(data[p] - '0');
      ++p;
      ++fractionDigits;
    }
    if (fractionDigits == 0) {
      ctx.fPosition = p;
      ctx.fError = "minimum one digit after decimal dot required";
      return nullptr;
    }
  }
  int exponentDigits = 0;
  bool upperE = false;
  char exponentSign = 0;
  unsigned exponentDigit = 0;
  if (p < n && (data[p] == 'e' || data[p] == 'E')) {
    isReal = true;
    upperE = data[p] == 'E';
    ++p;
    if (p < n && (data[p] == '+' || data[p] == '-')) exponentSign = data[p++];
    while (p < n && IsDigit(data[p])) {
      exponentDigit = static_cast<unsigned>(data[p] - '0');
      ++p;
      ++exponentDigits;
    }
    if (exponentDigits == 0) {
      ctx.fPosition = p;
      ctx.fError = "minimum one digit after exponent required";
      return nullptr;
    }
  }
  digits += fractionDigits;

  JsonValue* result;
  if (!isReal && negative && value <= static_cast<unsigned long long>(JsonInteger::sMaxInt64)) {
    result = new JsonInteger(-static_cast<long long>(value));
  } else if (!isReal && !negative) {
    result = new JsonInteger(value, true);
  } else if (exponentDigits >= 2 || fractionDigits >= 18) {
    double d = JsonReal::StrToDouble(data + start, p - start);
    if (d >= JsonReal::sInfinity) {
      ctx.fPosition = p;
      ctx.fError = "real number out of double range";
      return nullptr;
    }
    result = new JsonReal(d, digits);
  } else if (intDigits + static_cast<size_t>(fractionDigits) <= 19) {
    JsonReal::Shape shape{negative,
                          static_cast<uint8_t>(intDigits),
                          fractionDigits > 0,
                          static_cast<uint8_t>(fractionDigits),
                          exponentDigits > 0,
                          upperE,
                          exponentSign,
                          static_cast<uint8_t>(exponentDigit)};
    result = new JsonReal(allDigits, shape, digits);
  } else {
    result = new JsonReal(std::string(data + start, p - start), digits);
  }
  ctx.fPosition = p;
  return result;
}

// ---------------------------------------------------------------------------
// The parser

namespace {

// How the next value must look.
enum class ValueMode : uint8_t {
  kAny,           // any value; objects become compiled objects when a table is given
  kCompiledOnly,  // an object, parsed against the table
  kObjectOnly,    // a plain object
  kArrayOnly,     // an array whose elements are compiled objects when a table is given
};

class TextParser {
 public:
  TextParser(const std::string& text, ParserContext& ctx) : fText(text), fCtx(ctx) {}

  ~TextParser() {
    for (JsonObject::Member& m : fPairs)
      if (m.value) m.value->Release();
    for (JsonValue* v : fValues) v->Release();
    for (Frame& f : fFrames)
      if (f.compiled) f.compiled->Release();
  }

  JsonValue* Run(ValueMode mode, const JsonCompiledObjectContext* table);

 private:
  enum class Kind : uint8_t { kObject, kArray, kCompiled };
  struct Frame {
    Kind kind;
    char previous;  // the byte examined on the previous pass
    bool droppingValue;  // compiled: the pending value belongs to an unknown key
    size_t base;         // first scratch entry of this frame
    size_t count;        // pairs or elements parsed so far
    size_t slot;         // compiled: slot of the pending value
    const JsonCompiledObjectContext* table;  // compiled: its table; array: element table
    JsonCompiledObject* compiled;
  };

  bool AtEnd() const { return fCtx.fPosition >= fText.size(); }
  char Peek() const { return fText[fCtx.fPosition]; }
  void Fail(const char* message) {
    if (fCtx.fError.empty()) fCtx.fError = message;
  }
  // Most tokens are followed by nothing or by one blank; only longer runs
  // and line breaks take the full scan.
  void SkipWs() {
    const size_t p = fCtx.fPosition;
    const size_t n = fText.size();
    const unsigned char* data = reinterpret_cast<const unsigned char*>(fText.data());
    if (p < n && data[p] > ' ') return;
    if (n - p >= 2 && data[p] == ' ' && data[p + 1] > ' ') {
      fCtx.fPosition = p + 1;
      return;
    }
    JsonValue::SkipWhitespace(fText, fCtx);
  }

  // The string at the cursor. One without escapes, in input already known
  // to be UTF-8, is a span of the input itself; any other is decoded and
  // checked into fKey by the full routine. Either way `out` is valid until
  // the next string is scanned.
  bool ScanString(std::string_view& out) {
    const char* data = fText.data();
    const char* end = data + fText.size();
    const size_t pos = fCtx.fPosition;
    if (pos < fText.size() && data[pos] == '"' && (fCtx.fNoUTF8Check || fCtx.fInputIsUTF8)) {
      const char* start = data + pos + 1;
      const char* p = FindSpecial(start, end);
      if (p < end && *p == '"') {
        out = std::string_view(start, static_cast<size_t>(p - start));
        fCtx.fPosition = static_cast<size_t>(p + 1 - data);
        return true;
      }
    }
    if (!JsonValue::ParseString(fText, fKey, fCtx)) return false;
    out = fKey;
    return true;
  }

  // Starts a value: returns a finished scalar, or pushes a container frame
  // and returns null with `*opened` set; null without `*opened` is failure.
  JsonValue* BeginValue(ValueMode mode, const JsonCompiledObjectContext* table, bool* opened);
  JsonValue* ParseScalar();
  void OpenFrame(Kind kind, const JsonCompiledObjectContext* table);
  // One step of the top frame. Returns a finished container, or null with
  // `*next` describing the value to parse next; null with no next value and
  // an error means failure.
  JsonValue* StepFrame(bool* wantValue, ValueMode* mode, const JsonCompiledObjectContext** table);
  bool Attach(JsonValue* value);
  void Unwind(bool failedInValue);

  const std::string& fText;
  ParserContext& fCtx;
  Scratch<Frame> fFramesScratch;
  std::vector<Frame>& fFrames = fFramesScratch.Get();
  Scratch<JsonObject::Member> fPairsScratch;
  std::vector<JsonObject::Member>& fPairs = fPairsScratch.Get();
  Scratch<JsonValue*> fValuesScratch;
  std::vector<JsonValue*>& fValues = fValuesScratch.Get();
  std::string fKey;
};

JsonValue* TextParser::ParseScalar() {
  const std::string& t = fText;
  size_t p = fCtx.fPosition;
  char c = t[p];
  switch (c) {
    case '"': {
      std::string_view s;
      if (!ScanString(s)) return nullptr;
      return new JsonString(s, JsonString::Trusted{});
    }
    case 't':
      if (t.size() - p >= 4 && memcmp(t.data() + p, "true", 4) == 0) {
        fCtx.fPosition = p + 4;
        return new JsonTrue();
      }
      break;
    case 'f':
      if (t.size() - p >= 5 && memcmp(t.data() + p, "false", 5) == 0) {
        fCtx.fPosition = p + 5;
        return new JsonFalse();
      }
      break;
    case 'n':
      if (t.size() - p >= 4 && memcmp(t.data() + p, "null", 4) == 0) {
        fCtx.fPosition = p + 4;
        return new JsonNull();
      }
      break;
    default:
      if (c == '-' || IsDigit(c)) return JsonValue::ParseNumber(t, fCtx);
      break;
  }
  Fail("not a JSON value");
  return nullptr;
}

void TextParser::OpenFrame(Kind kind, const JsonCompiledObjectContext* table) {
  Frame f{};
  f.kind = kind;
  f.previous = fText[fCtx.fPosition];
  f.table = table;
  if (kind == Kind::kCompiled) {
    f.compiled = new JsonCompiledObject(table);
  } else {
    f.base = kind == Kind::kObject ? fPairs.size() : fValues.size();
  }
  fFrames.push_back(f);
  ++fCtx.fPosition;  // the opening bracket
  SkipWs();
}

JsonValue* TextParser::BeginValue(ValueMode mode, const JsonCompiledObjectContext* table,
                                  bool* opened) {
  *opened = false;
  switch (mode) {
    case ValueMode::kCompiledOnly:
      if (!table || AtEnd() || Peek() != '{') {
        Fail("illegal compiled object");
        return nullptr;
      }
      OpenFrame(Kind::kCompiled, table);
      *opened = true;
      return nullptr;
    case ValueMode::kObjectOnly:
      if (AtEnd() || Peek() != '{') {
        Fail("illegal object");
        return nullptr;
      }
      OpenFrame(Kind::kObject, nullptr);
      *opened = true;
      return nullptr;
    case ValueMode::kArrayOnly:
      if (AtEnd() || Peek() != '[') {
        Fail("illegal array");
        return nullptr;
      }
      OpenFrame(Kind::kArray, table);
      *opened = true;
      return nullptr;
    case ValueMode::kAny:
      break;
  }
  if (AtEnd()) {
    Fail("unexpected end of input");
    return nullptr;
  }
  char c = Peek();
  if (c == '{') {
    OpenFrame(table ? Kind::kCompiled : Kind::kObject, table);
    *opened = true;
    return nullptr;
  }
  if (c == '[') {
    OpenFrame(Kind::kArray, table);
    *opened = true;
    return nullptr;
  }
  return ParseScalar();
}

JsonValue* TextParser::StepFrame(bool* wantValue, ValueMode* mode,
                                 const JsonCompiledObjectContext** table) {
  *wantValue = false;
  Frame& f = fFrames.back();
  const bool isArray = f.kind == Kind::kArray;
  const bool isCompiled = f.kind == Kind::kCompiled;
  for (;;) {
    if (AtEnd()) {
      Fail(isArray ? "illegal array" : isCompiled ? "illegal compiled object" : "illegal object");
      return nullptr;
    }
    char c = Peek();
    bool empty = isCompiled ? f.compiled->Empty() : f.count == 0;
    if (c == (isArray ? ']' : '}')) {
      if (f.previous == ',') {
        Fail(isArray ? "array must not end with comma"
             : isCompiled ? "object list must not end with comma"
                          : "object list must not end with a comma");
        return nullptr;
      }
      ++fCtx.fPosition;
      SkipWs();
      JsonValue* done;
      if (isArray) {
        auto* array = new JsonArray();
        array->AdoptValues(fValues.data() + f.base, fValues.size() - f.base);
        fValues.resize(f.base);
        done = array;
      } else if (isCompiled) {
        done = f.compiled;
        f.compiled = nullptr;
      } else {
        auto* object = new JsonObject(fCtx.fKeepObjectOrder);
        object->AdoptMembers(fPairs.data() + f.base, fPairs.size() - f.base);
        fPairs.resize(f.base);
        done = object;
      }
      fFrames.pop_back();
      return done;
    }
    if (c == ',') {
      if (f.previous == ',' || empty) {
        Fail(isArray ? "expected value in front before comma"
                     : "expected key value pair in front before comma");
        return nullptr;
      }
      f.previous = ',';
      ++fCtx.fPosition;
      SkipWs();
      continue;
    }
    if (f.previous != ',' && !empty) {
      Fail(isArray ? "comma separator expected between values"
                   : "comma separator expected between key value pairs");
      return nullptr;
    }
    f.previous = c;
    *wantValue = true;
    if (isArray) {
      *mode = f.table ? ValueMode::kCompiledOnly : ValueMode::kAny;
      *table = f.table;
      return nullptr;
    }
    // A key, a colon, and then the value.
    std::string_view key;
    if (!ScanString(key)) {
      if (fCtx.fError.empty())
        fCtx.fError = "key (string) expected";
      else
        fCtx.fError += " while parsing a key";
      *wantValue = false;
      return nullptr;
    }
    SkipWs();
    if (AtEnd() || Peek() != ':') {
      Fail("colon expected");
      *wantValue = false;
      return nullptr;
    }
    ++fCtx.fPosition;
    SkipWs();
    *mode = ValueMode::kAny;
    *table = nullptr;
    if (!isCompiled) {
      fPairs.emplace_back(key.data(), key.size());
      return nullptr;
    }
    if (key.data() != fKey.data()) fKey.assign(key);
    size_t slot = f.table->GetIndexForKey(fKey);
    f.slot = slot;
    f.droppingValue = slot >= f.compiled->SlotCount();
    if (!f.droppingValue) {
      unsigned short flags = f.table->KeyFlags(slot);
      const JsonCompiledObjectContext* sub = f.table->SubContext(slot);
      if ((flags & JsonCompiledObjectContext::kCompiledObject) && sub) {
        *mode = ValueMode::kCompiledOnly;
        *table = sub;
      } else if (flags & JsonCompiledObjectContext::kPlainObject) {
        *mode = ValueMode::kObjectOnly;
      } else if (flags & JsonCompiledObjectContext::kArrayMask) {
        *mode = ValueMode::kArrayOnly;
        *table = sub;
      }
    }
    return nullptr;
  }
}

bool TextParser::Attach(JsonValue* value) {
  Frame& f = fFrames.back();
  ++f.count;
  switch (f.kind) {
    case Kind::kArray:
      fValues.push_back(value);
      break;
    case Kind::kObject:
      fPairs.back().value = value;
      break;
    case Kind::kCompiled:
      if (f.droppingValue) {
        value->Release();
        // For compiled objects this option rejects keys the table lacks.
        if (fCtx.fFailOnDuplicateKey) {
          Fail("duplicate key");
          return false;
        }
      } else {
        f.compiled->InsertValueInternal(f.slot, value);
      }
      break;
  }
  SkipWs();
  return true;
}

void TextParser::Unwind(bool failedInValue) {
  // Every enclosing level adds its phrase, so the message tells how deep
  // the failure lay.
  while (!fFrames.empty()) {
    Frame& f = fFrames.back();
    if (failedInValue) {
      if (f.kind == Kind::kObject) {
        if (!fCtx.fError.empty()) fCtx.fError += " while parsing a value";
      } else if (f.kind == Kind::kCompiled) {
        if (fCtx.fError.empty())
          fCtx.fError = "value is not of expected type";
        else
          fCtx.fError += " while parsing value";
      }
    }
    if (f.kind == Kind::kObject) {
      for (size_t i = f.base; i < fPairs.size(); ++i)
        if (fPairs[i].value) fPairs[i].value->Release();
      fPairs.resize(f.base);
    } else if (f.kind == Kind::kArray) {
      for (size_t i = f.base; i < fValues.size(); ++i) fValues[i]->Release();
      fValues.resize(f.base);
    } else if (f.compiled) {
      f.compiled->Release();
    }
    fFrames.pop_back();
    failedInValue = true;
  }
}

JsonValue* TextParser::Run(ValueMode mode, const JsonCompiledObjectContext* table) {
  bool opened = false;
  JsonValue* value = BeginValue(mode, table, &opened);
  for (;;) {
    if (!value && !opened) {
      Unwind(true);
      return nullptr;
    }
    while (value) {
      if (fFrames.empty()) return value;
      if (!Attach(value)) {
        Unwind(false);
        return nullptr;
      }
      value = nullptr;
    }
    // Step the top frame until it closes or asks for a value.
    bool wantValue = false;
    value = StepFrame(&wantValue, &mode, &table);
    if (value) continue;
    if (!wantValue) {
      Unwind(false);
      return nullptr;
    }
    value = BeginValue(mode, table, &opened);
  }
}

}  // namespace

JsonValue* JsonValue::Parse(const std::string& text, ParserContext& ctx,
                            const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kAny, compiled);
}

JsonValue* JsonObject::Parse(const std::string& text, ParserContext& ctx) {
  return TextParser(text, ctx).Run(ValueMode::kObjectOnly, nullptr);
}

JsonValue* JsonArray::Parse(const std::string& text, ParserContext& ctx,
                            const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kArrayOnly, compiled);
}

JsonValue* JsonCompiledObject::Parse(const std::string& text, ParserContext& ctx,
                                     const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kCompiledOnly, compiled);
}

JsonAutoRefPtr<JsonValue> JsonValue::ReadFromString(const std::string& text, ParserContext* ctx,
                                                    const JsonCompiledObjectContext* compiled) {
  ParserContext local;
  if (ctx) {
    if (ctx->fDetectMsgPack && !text.empty()) {
      unsigned char first = static_cast<unsigned char>(text[0]);
      if ((first >= 0x80 && first <= 0x9F) || (first >= 0xDC && first <= 0xDF))
        return ReadFromMsgPack(text, ctx, compiled);
    }
    ctx->Reset();
  } else {
    ctx = &local;
  }
  if (!ctx->fNoUTF8Check && ctx->fCheckInputUTF8) ctx->fInputIsUTF8 = IsUTF8(text);
  SkipBOM(text, *ctx);
  SkipWhitespace(text, *ctx);
  JsonAutoRefPtr<JsonValue> value(Parse(text, *ctx, compiled));
  if (!value) return value;
  SkipWhitespace(text, *ctx);
  if (ctx->fPosition < text.size()) {
    ctx->fError = "illegal trailing characters after value";
    return {};
  }
  ctx->fCompleted = true;
  return value;
}

JsonAutoRefPtr<JsonObject> JsonObject::ReadFromString(const std::string& text,
                                                      ParserContext* ctx) {
  return ConvertToObject(JsonValue::ReadFromString(text, ctx, nullptr));
}

JsonAutoRefPtr<JsonArray> JsonArray::ReadFromString(const std::string& text, ParserContext* ctx,
                                                    const JsonCompiledObjectContext* compiled) {
  return ConvertToArray(JsonValue::ReadFromString(text, ctx, compiled));
}

JsonAutoRefPtr<JsonCompiledObject> JsonCompiledObject::ReadFromString(
    const std::string& text, const JsonCompiledObjectContext* compiled, ParserContext* ctx) {
  return ConvertToCompiledObject(JsonValue::ReadFromString(text, ctx, compiled));
}

// ---------------------------------------------------------------------------
// Writing scalars

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

void AppendEscapedTail(const char* p, const char* end, std::string& out) {
  while (p < end) {
    const char* run = FindSpecial(p, end);
    out.append(p, run);
    if (run == end) break;
    unsigned char c = static_cast<unsigned char>(*run);
    switch (c) {
      case '"':
        out.append("\\\"", 2);
        break;
      case '\\':
        out.append("\\\\", 2);
        break;
      case 0x08:
        out.append("\\b", 2);
        break;
      case 0x09:
        out.append("\\t", 2);
        break;
      case 0x0A:
        out.append("\\n", 2);
        break;
      case 0x0C:
        out.append("\\f", 2);
        break;
      case 0x0D:
        out.append("\\r", 2);
        break;
      default: {
        char buf[6] = {'\\', 'u', '0', '0', kHexDigits[c >> 4], kHexDigits[c & 15]};
        out.append(buf, 6);
        break;
      }
    }
    p = run + 1;
  }
}

// Decimal digits of `magnitude` as the writer counts them: the integer part
// of log10 of the magnitude as a double, plus one. Near powers of ten the
// double rounds up, and so does the count; the text then gets a leading
// zero. Below 10^13 log10 cannot round up, so the exact count is used.
int WriterDigitCount(unsigned long long magnitude) {
  if (magnitude < 10000000000000ull) {
    int digits = 1;
    for (unsigned long long limit = 10; digits < 13 && magnitude >= limit; limit *= 10) ++digits;
    return digits;
  }
  return static_cast<int>(std::log10(static_cast<double>(magnitude))) + 1;
}

// std::to_chars puts out two digits per step from a table: the ids and
// counts that fill many documents come several times faster than by one
// division per digit.
void AppendInteger(std::string& out, long long raw, bool largeUnsigned) {
  char buf[24];
  char* p = buf;
  unsigned long long magnitude = static_cast<unsigned long long>(raw);
  if (!largeUnsigned && raw < 0) {
    *p++ = '-';
    magnitude = 0ull - magnitude;
  }
  if (magnitude >= 10000000000000ull) {
    // The writer's own count may be one more than the digits: a zero leads.
    int digits = WriterDigitCount(magnitude);
    char* end = std::to_chars(p, buf + sizeof buf, magnitude).ptr;
    if (end - p < digits) {
      memmove(p + 1, p, static_cast<size_t>(end - p));
      *p = '0';
      ++end;
    }
    p = end;
  } else {
    p = std::to_chars(p, buf + sizeof buf, magnitude).ptr;
  }
  out.append(buf, static_cast<size_t>(p - buf));
}

// std::to_chars with a precision gives printf's "%.*g" and "%.*f" digit for
// digit, without the format parsing and locale work of the printf family.
// The buffer holds any double at any precision: "%g" drops trailing zeros,
// so no output is longer than the exact decimal expansion of a double.
void AppendReal(std::string& out, double v, int digits) {
  char buf[1100];
  if (digits >= 1) {
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, digits);
    size_t n = ec == std::errc() ? static_cast<size_t>(end - buf) : 0;
    out.append(buf, n);
    if (!memchr(buf, '.', n) && !memchr(buf, 'e', n) && !memchr(buf, 'E', n)) out.append(".0", 2);
    return;
  }
  if (std::isnan(v)) {
    out.append("nan", 3);
    return;
  }
  if (std::isinf(v)) {
    out.append("inf", 3);  // the sign is dropped on purpose
    return;
  }
  if (v >= -9223372036854775808.0 && v < 9223372036854775808.0 &&
      v == static_cast<double>(static_cast<long long>(v))) {
    AppendInteger(out, static_cast<long long>(v), false);
    out.append(".0", 2);
    return;
  }
  // Six decimals, as "%f" gives them, then without the trailing zeros.
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 6);
  std::string_view fixed(buf, ec == std::errc() ? static_cast<size_t>(end - buf) : 0);
  size_t dot = fixed.find('.');
  if (dot != std::string_view::npos) {
    size_t last = fixed.find_last_not_of('0');
    if (last == dot) last = dot + 1;
    fixed = fixed.substr(0, last + 1);
  }
  out.append(fixed);
}

}  // namespace

void AppendQuotedString(std::string_view s, std::string& out) {
  const char* p = s.data();
  const char* end = p + s.size();
  const char* first = FindSpecial(p, end);
  if (first == end) {
    out.append(p, s.size());
    return;
  }
  out.append(p, first);
  AppendEscapedTail(first, end, out);
}

void AppendQuotedString(const std::string& s, std::string& out) {
  AppendQuotedString(std::string_view(s), out);
}

void PrettyPrintStartNewLine(std::string& out, const std::string& indentUnit,
                             const std::string& newline, int depth) {
  out.append(newline);
  for (int i = 0; i < depth; ++i) out.append(indentUnit);
}

void JsonString::AppendToString(std::string& out) const {
  out.push_back('"');
  AppendQuotedString(std::string_view(fValue), out);
  out.push_back('"');
}

void JsonInteger::AppendToString(std::string& out) const {
  AppendInteger(out, fValue, IsLargeUnsigned());
}

void JsonReal::AppendToString(std::string& out) const {
  Form form = Load();
  switch (form.State()) {
    case kSettled:
      AppendReal(out, BitsAsDouble(form.bits), DigitsOf(form));
      return;
    case kText:
      if (HasPendingText()) break;
      AppendReal(out, Get(), DigitsOf(form));
      return;
    default:
      break;
  }
  AppendText(form, out);
}

void JsonTrue::AppendToString(std::string& out) const { out.append("true", 4); }
void JsonFalse::AppendToString(std::string& out) const { out.append("false", 5); }
void JsonNull::AppendToString(std::string& out) const { out.append("null", 4); }

// ---------------------------------------------------------------------------
// Writing containers

namespace {

struct Layout {
  const std::string* indentUnit;  // null for the compact form
  const std::string* newline;
};

struct WriteFrame {
  const JsonValue* container;
  size_t next;
  int depth;
  bool wroteAny;
};

inline void AppendKey(std::string& out, std::string_view key, const char* after, size_t n) {
  out.push_back('"');
  AppendQuotedString(key, out);
  out.append(after, n);
}

// A scalar as text; false, writing nothing, for a container. Both layouts
// write scalars alike.
inline bool WriteScalar(const JsonValue* v, std::string& out) {
  switch (v->Type()) {
    case JsonValue::String: {
      out.push_back('"');
      AppendQuotedString(static_cast<const JsonString*>(v)->Value(), out);
      out.push_back('"');
      return true;
    }
    case JsonValue::Integer: {
      auto* i = static_cast<const JsonInteger*>(v);
      AppendInteger(out, i->RawValue(), i->IsLargeUnsigned());
      return true;
    }
    case JsonValue::Real:
      static_cast<const JsonReal*>(v)->AppendToString(out);
      return true;
    case JsonValue::Object:
    case JsonValue::Array:
    case JsonValue::CompiledObject:
      return false;
    default:
      v->AppendToString(out);
      return true;
  }
}

// The compact form, on its own loop: the common case, and the one where the
// indented form's bookkeeping shows most. Children are written in runs up
// to the next container child; a frame opens only for a container that
// holds containers, so small leaf containers never touch the stack. Empty
// element and member slots are stepped over, as in the indented form.

struct CompactFrame {
  const void* cur;  // the next child not yet written
  const void* end;
  bool isArray;
  bool wroteAny;
};

// Writes elements from `cur` up to the first container, whose separator is
// written; returns it, or `end` when the run reached the end.
inline JsonValue* const* WriteCompactElements(JsonValue* const* cur, JsonValue* const* end,
                                              bool& wroteAny, std::string& out) {
  for (; cur != end; ++cur) {
    if (!*cur) continue;
    if (wroteAny) out.push_back(',');
    wroteAny = true;
    if (!WriteScalar(*cur, out)) break;
  }
  return cur;
}

// The same for members; the key of the member left for the caller is
// written.
inline const JsonObject::Member* WriteCompactMembers(const JsonObject::Member* m,
                                                     const JsonObject::Member* end,
                                                     bool& wroteAny, std::string& out) {
  for (; m != end; ++m) {
    if (!m->value) continue;
    if (wroteAny) out.push_back(',');
    wroteAny = true;
    AppendKey(out, m->key, "\":", 2);
    if (!WriteScalar(m->value, out)) break;
  }
  return m;
}

void WriteTree(const JsonValue* root, std::string& out, const Layout& layout, int depth);

// Opens `v`: writes its bracket and its children up to the first container
// child, which it returns for opening next with a frame pushed to go on
// after it; null when `v` is complete.
inline const JsonValue* OpenCompact(const JsonValue* v, std::vector<CompactFrame>& stack,
                                    std::string& out) {
  bool wroteAny = false;
  if (v->Type() == JsonValue::Array) {
    const auto& values = static_cast<const JsonArray*>(v)->Values();
    out.push_back('[');
    JsonValue* const* end = values.data() + values.size();
    JsonValue* const* cur = WriteCompactElements(values.data(), end, wroteAny, out);
    if (cur == end) {
      out.push_back(']');
      return nullptr;
    }
    stack.push_back({cur + 1, end, true, true});
    return *cur;
  }
  if (v->Type() == JsonValue::Object) {
    const auto& members = static_cast<const JsonObject*>(v)->Members();
    out.push_back('{');
    const JsonObject::Member* end = members.data() + members.size();
    const JsonObject::Member* m = WriteCompactMembers(members.data(), end, wroteAny, out);
    if (m == end) {
      out.push_back('}');
      return nullptr;
    }
    stack.push_back({m + 1, end, false, true});
    return m->value;
  }
  // Compiled objects are rare; the general loop writes them, with all they
  // hold, on its own stack.
  WriteTree(v, out, {nullptr, nullptr}, 0);
  return nullptr;
}

void WriteCompactTree(const JsonValue* root, std::string& out) {
  std::vector<CompactFrame> stack;
  const JsonValue* next = root;  // a container to open
  for (;;) {
    while (next) next = OpenCompact(next, stack, out);
    if (stack.empty()) return;
    CompactFrame& f = stack.back();
    if (f.isArray) {
      auto* end = static_cast<JsonValue* const*>(f.end);
      auto* cur = WriteCompactElements(static_cast<JsonValue* const*>(f.cur), end, f.wroteAny, out);
      if (cur != end) {
        next = *cur;
        f.cur = cur + 1;
        continue;
      }
      out.push_back(']');
    } else {
      auto* end = static_cast<const JsonObject::Member*>(f.end);
      auto* m =
          WriteCompactMembers(static_cast<const JsonObject::Member*>(f.cur), end, f.wroteAny, out);
      if (m != end) {
        next = m->value;
        f.cur = m + 1;
        continue;
      }
      out.push_back('}');
    }
    stack.pop_back();
  }
}

// Writes `root` (a container) at `depth`. Objects, arrays and compiled
// objects share one loop; the frame remembers which child comes next.
void WriteTree(const JsonValue* root, std::string& out, const Layout& layout, int depth) {
  const bool pretty = layout.indentUnit != nullptr;
  std::vector<WriteFrame> stack;
  auto open = [&](const JsonValue* c, int d) {
    if (c->Type() == JsonValue::Array) {
      out.push_back('[');
    } else {
      out.push_back('{');
      // A compiled object without a key table writes as an empty object.
      if (c->Type() == JsonValue::CompiledObject &&
          !static_cast<const JsonCompiledObject*>(c)->Context()) {
        out.push_back('}');
        return;
      }
    }
    stack.push_back({c, 0, d, false});
  };
  open(root, depth);
  while (!stack.empty()) {
    WriteFrame& f = stack.back();
    const JsonValue* child = nullptr;
    std::string_view key;
    const char* keyEnd = "\":";
    size_t keyEndLength = 2;
    bool hasKey = false;
    switch (f.container->Type()) {
      case JsonValue::Array: {
        auto& values = static_cast<const JsonArray*>(f.container)->Values();
        while (f.next < values.size() && !values[f.next]) ++f.next;
        if (f.next < values.size()) child = values[f.next++];
        break;
      }
      case JsonValue::Object: {
        auto& members = static_cast<const JsonObject*>(f.container)->Members();
        while (f.next < members.size() && !members[f.next].value) ++f.next;
        if (f.next < members.size()) {
          const JsonObject::Member& m = members[f.next++];
          child = m.value;
          key = m.key;
          hasKey = true;
          if (pretty) {
            keyEnd = "\": ";
            keyEndLength = 3;
          }
        }
        break;
      }
      default: {
        auto* compiled = static_cast<const JsonCompiledObject*>(f.container);
        auto& slots = compiled->Slots();
        while (f.next < slots.size() && !slots[f.next]) ++f.next;
        if (f.next < slots.size()) {
          key = compiled->Context()->Key(f.next);
          child = slots[f.next++];
          hasKey = true;
        }
        break;
      }
    }
    if (!child) {
      if (pretty && f.wroteAny)
        PrettyPrintStartNewLine(out, *layout.indentUnit, *layout.newline, f.depth);
      out.push_back(f.container->Type() == JsonValue::Array ? ']' : '}');
      stack.pop_back();
      continue;
    }
    if (f.wroteAny) out.push_back(',');
    f.wroteAny = true;
    int childDepth = f.depth + 1;
    if (pretty) PrettyPrintStartNewLine(out, *layout.indentUnit, *layout.newline, childDepth);
    if (hasKey) AppendKey(out, key, keyEnd, keyEndLength);
    if (!WriteScalar(child, out)) open(child, childDepth);  // invalidates `f`
  }
}

}  // namespace

void JsonValue::AppendToStringPretty(std::string& out, const std::string&, const std::string&,
                                     int) const {
  AppendToString(out);
}

void JsonObject::AppendToString(std::string& out) const { WriteCompactTree(this, out); }
void JsonArray::AppendToString(std::string& out) const { WriteCompactTree(this, out); }
void JsonCompiledObject::AppendToString(std::string& out) const {
  WriteTree(this, out, {nullptr, nullptr}, 0);
}

void JsonObject::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                      const std::string& newline, int depth) const {
  WriteTree(this, out, {&indentUnit, &newline}, depth);
}
void JsonArray::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                     const std::string& newline, int depth) const {
  WriteTree(this, out, {&indentUnit, &newline}, depth);
}
void JsonCompiledObject::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                              const std::string& newline, int depth) const {
  WriteTree(this, out, {&indentUnit, &newline}, depth);
}

void JsonValue::WriteToString(std::string& out) const {
  out.clear();
  AppendToString(out);
}

void JsonValue::WriteToStringPretty(std::string& out, const std::string& indentUnit,
                                    const std::string& newline) const {
  out.clear();
  AppendToStringPretty(out, indentUnit, newline, 0);
}
