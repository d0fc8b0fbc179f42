// Numbers: scanning them from text, the lazy real with its shaped and text
// forms and its thread-safe settle, conversion of decimal text to double,
// and the writer's integer and real formatting.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <charconv>
#include <cmath>

#include "Mjson.h"
#include "MjsonInternal.h"

using namespace mjson::detail;

double JsonReal::StrToDouble(const char* text, size_t length) {
  // The fast, exact conversion serves every number of the normal range;
  // anything near or past the edges takes the long way below, so that
  // range errors are handled exactly as the C library reports them.
  double value = 0.0;
  auto [end, ec] = std::from_chars(text, text + length, value);
  if (ec == std::errc() && end == text + length && std::fabs(value) >= DBL_MIN &&
      std::fabs(value) <= DBL_MAX)
    return value;
  return StrToDouble(std::string(text, length));
}

double JsonReal::StrToDouble(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  double value = strtod(begin, &end);
  if (end == begin) return 0.0;
  if (errno == ERANGE) {
    errno = 0;
    long double wide = strtold(begin, &end);
    if (errno != ERANGE && wide >= static_cast<long double>(sLowest) &&
        wide <= static_cast<long double>(sMax))
      return static_cast<double>(wide);
    return sInfinity;
  }
  return value;
}

namespace {

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Layout of a shaped number's form word, above the two state bits.
constexpr uint32_t kNegative = 1u << 2;
constexpr int kIntShift = 3;  // 5 bits
constexpr uint32_t kHasFraction = 1u << 8;
constexpr int kFracShift = 9;  // 5 bits
constexpr uint32_t kHasExponent = 1u << 14;
constexpr uint32_t kUpperE = 1u << 15;
constexpr int kExpSignShift = 16;   // 2 bits: none, '+', '-'
constexpr int kExpDigitShift = 18;  // 4 bits

}  // namespace

namespace {

// The pending text of a real too long to shape, with its digit count. It is
// never freed before the real itself: a reader on another thread may be
// copying the text while the value is being settled, so the settled value
// is kept here beside it, published by `settled`.
//
// The text's bytes follow the structure in the same block, which is the
// real's own or, for a real of a document arena, the arena's.
struct RealText {
  RealText(int d, size_t n) : digits(d), length(n) {}
  int digits;
  size_t length;
  std::atomic<uint64_t> value{0};
  std::atomic<bool> settled{false};

  std::string_view Text() const { return {reinterpret_cast<const char*>(this + 1), length}; }
  static size_t BlockBytes(size_t n) { return sizeof(RealText) + n; }
};

RealText* NewRealText(std::string_view text, int digits, mjson::detail::Arena* arena) {
  const size_t bytes = RealText::BlockBytes(text.size());
  void* memory = arena ? arena->Data(bytes) : ::operator new(bytes);
  auto* real = new (memory) RealText(digits, text.size());
  memcpy(reinterpret_cast<char*>(real + 1), text.data(), text.size());
  return real;
}

RealText* TextOf(uint64_t bits) {
  RealText* text;
  memcpy(&text, &bits, sizeof text);
  return text;
}

uint64_t BitsOf(const void* p) {
  uint64_t bits = 0;
  memcpy(&bits, &p, sizeof p);
  return bits;
}

uint64_t DoubleBits(double v) {
  uint64_t bits;
  memcpy(&bits, &v, sizeof bits);
  return bits;
}

}  // namespace

// A settled real never changes again, and a text real only changes inside
// its RealText, so those two states are final for the header. A shaped real
// is settled by one thread at most: it claims the real by moving the state
// byte to busy, stores the double and the digit count, and releases the new
// state. Its stores are releases and the loads here acquires, so a reader
// that saw any of the new bytes also sees the state change when it checks
// the state byte again, and tries anew.
JsonReal::Form JsonReal::LoadPending() const {
  for (;;) {
    uint8_t state = StateByte().load(std::memory_order_acquire);
    if ((state & kStateMask) == kBusy) {
      mjson::detail::SpinPause();
      continue;
    }
    uint16_t high = FormHigh().load(std::memory_order_acquire);
    uint64_t bits = Bits().load(std::memory_order_acquire);
    Form form{state | static_cast<uint32_t>(high) << 8, bits};
    if (form.State() != kShaped || StateByte().load(std::memory_order_acquire) == state)
      return form;
  }
}

int JsonReal::DigitsOf(const Form& form) {
  switch (form.State()) {
    case kShaped:
      return static_cast<int>(((form.word >> kIntShift) & 31) + ((form.word >> kFracShift) & 31));
    case kText:
      return TextOf(form.bits)->digits;
    default:
      return static_cast<int>(form.word >> 2);
  }
}

int JsonReal::Digits() const {
  return DigitsOf(Load());
}

bool JsonReal::HasPendingText() const {
  Form form = Load();
  if (form.State() == kText) return !TextOf(form.bits)->settled.load(std::memory_order_acquire);
  return form.State() != kSettled;
}

JsonReal::JsonReal(std::string&& text, int digits) : JsonValue(Real), fBits(0) {
  SetText(text, digits, nullptr);
}

JsonReal::JsonReal(std::string_view text, int digits, mjson::detail::Arena* arena)
    : JsonValue(Real), fBits(0) {
  SetText(text, digits, arena);
}

void JsonReal::SetText(std::string_view text, int digits, mjson::detail::Arena* arena) {
  fBits = BitsOf(NewRealText(text, digits, arena));
  SetFormUnshared(kText);
}

JsonReal::JsonReal(uint64_t digitsValue, const Shape& shape, int)
    : JsonValue(Real), fBits(digitsValue) {
  uint32_t form = kShaped;
  if (shape.negative) form |= kNegative;
  form |= static_cast<uint32_t>(shape.intDigits) << kIntShift;
  if (shape.hasFraction) form |= kHasFraction;
  form |= static_cast<uint32_t>(shape.fracDigits) << kFracShift;
  if (shape.hasExponent) form |= kHasExponent;
  if (shape.upperE) form |= kUpperE;
  uint32_t sign = shape.exponentSign == '+' ? 1 : shape.exponentSign == '-' ? 2 : 0;
  form |= sign << kExpSignShift;
  form |= static_cast<uint32_t>(shape.exponentDigit) << kExpDigitShift;
  SetFormUnshared(form);
}

void JsonReal::CopyUnsettled(const JsonReal& other, mjson::detail::Arena* arena) {
  fBits = 0;
  const Form form = other.Load();
  if (form.State() == kText) {
    CopyText(form, arena);
    return;
  }
  fBits = form.bits;
  SetFormUnshared(form.word);
}

void JsonReal::CopyText(const Form& form, mjson::detail::Arena* arena) {
  RealText* text = TextOf(form.bits);
  if (text->settled.load(std::memory_order_acquire))
    SetValue(BitsAsDouble(text->value.load(std::memory_order_relaxed)), text->digits);
  else
    SetText(text->Text(), text->digits, arena);
}

void JsonReal::DeleteText(uint64_t bits) {
  RealText* text = TextOf(bits);
  text->~RealText();
  ::operator delete(text);
}

void JsonReal::AppendText(const Form& form, std::string& out) {
  if (form.State() == kText) {
    out.append(TextOf(form.bits)->Text());
    return;
  }
  char buf[48];  // sign, 19 digits, point, exponent
  out.append(buf, static_cast<size_t>(WriteShaped(form, buf) - buf));
}

char* JsonReal::WriteText(char* p) const {
  // What AppendToString writes, form by form.
  const Form form = Load();
  if (form.State() == kShaped) return WriteShaped(form, p);
  if (form.State() == kSettled)
    return mjson::detail::WriteReal(p, BitsAsDouble(form.bits), DigitsOf(form));
  const RealText* text = TextOf(form.bits);
  if (text->settled.load(std::memory_order_acquire))
    return mjson::detail::WriteReal(p, BitsAsDouble(text->value.load(std::memory_order_relaxed)),
                                    text->digits);
  const std::string_view source = text->Text();
  if (source.size() > kMaxRealText) return nullptr;
  memcpy(p, source.data(), source.size());
  return p + source.size();
}

char* JsonReal::WriteShaped(const Form& form, char* p) {
  uint32_t word = form.word;
  if (word & kNegative) *p++ = '-';
  int intDigits = static_cast<int>((word >> kIntShift) & 31);
  int fracDigits = static_cast<int>((word >> kFracShift) & 31);
  int width = intDigits + fracDigits;
  char digits[20];
  uint64_t v = form.bits;
  int i = width;
  while (i >= 2) {
    memcpy(digits + i - 2, kDigitPairs + (v % 100) * 2, 2);
    v /= 100;
    i -= 2;
  }
  if (i) digits[0] = static_cast<char>('0' + v);
  memcpy(p, digits, static_cast<size_t>(intDigits));
  p += intDigits;
  if (word & kHasFraction) {
    *p++ = '.';
    memcpy(p, digits + intDigits, static_cast<size_t>(fracDigits));
    p += fracDigits;
  }
  if (word & kHasExponent) {
    *p++ = (word & kUpperE) ? 'E' : 'e';
    uint32_t sign = (word >> kExpSignShift) & 3;
    if (sign) *p++ = sign == 1 ? '+' : '-';
    *p++ = static_cast<char>('0' + ((word >> kExpDigitShift) & 15));
  }
  return p;
}

// Settling is a one-way step that several threads may take at once. Each
// computes the value from the text it sees; a text real publishes it in its
// RealText, a shaped real in its header (one thread wins the claim, the
// others wait the few stores it takes). The text itself is never freed here.
double JsonReal::SettleAndGet() const {
  for (;;) {
    Form form = Load();
    switch (form.State()) {
      case kSettled:
        return BitsAsDouble(form.bits);
      case kText: {
        RealText* text = TextOf(form.bits);
        if (text->settled.load(std::memory_order_acquire))
          return BitsAsDouble(text->value.load(std::memory_order_relaxed));
        double v = StrToDouble(text->Text().data(), text->Text().size());
        text->value.store(DoubleBits(v), std::memory_order_relaxed);
        text->settled.store(true, std::memory_order_release);
        return v;
      }
      default: {  // shaped
        std::string source;
        AppendText(form, source);
        double v = StrToDouble(source.data(), source.size());
        int digits = DigitsOf(form);
        uint8_t expected = static_cast<uint8_t>(form.word);
        if (!StateByte().compare_exchange_strong(
                expected, static_cast<uint8_t>((form.word & ~kStateMask) | kBusy),
                std::memory_order_acquire, std::memory_order_acquire))
          continue;  // another thread settles it; read its result
        uint32_t settled = kSettled | (static_cast<uint32_t>(std::min(digits, kMaxDigits)) << 2);
        Bits().store(DoubleBits(v), std::memory_order_release);
        FormHigh().store(static_cast<uint16_t>(settled >> 8), std::memory_order_release);
        StateByte().store(static_cast<uint8_t>(settled), std::memory_order_release);
        return v;
      }
    }
  }
}

// ---------------------------------------------------------------------------
// Scanning numbers from text

JsonValue* JsonValue::ParseNumber(const std::string& text, ParserContext& ctx) {
  return mjson::detail::ParseNumber(text, ctx, nullptr);
}

JsonValue* mjson::detail::ParseNumber(const std::string& text, ParserContext& ctx, Arena* arena) {
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
    result = mjson::detail::MakeNode<JsonInteger>(arena, -static_cast<long long>(value));
  } else if (!isReal && !negative) {
    result = mjson::detail::MakeNode<JsonInteger>(arena, value, true);
  } else if (exponentDigits >= 2 || fractionDigits >= 18) {
    double d = JsonReal::StrToDouble(data + start, p - start);
    if (d >= JsonReal::sInfinity) {
      ctx.fPosition = p;
      ctx.fError = "real number out of double range";
      return nullptr;
    }
    result = mjson::detail::MakeNode<JsonReal>(arena, d, digits);
  } else if (intDigits + static_cast<size_t>(fractionDigits) <= 19) {
    JsonReal::Shape shape{negative,           static_cast<uint8_t>(intDigits),
                          fractionDigits > 0, static_cast<uint8_t>(fractionDigits),
                          exponentDigits > 0, upperE,
                          exponentSign,       static_cast<uint8_t>(exponentDigit)};
    result = mjson::detail::MakeNode<JsonReal>(arena, allDigits, shape, digits);
  } else {
    result = mjson::detail::MakeNode<JsonReal>(
        arena, std::string_view(data + start, static_cast<size_t>(p - start)), digits, arena);
  }
  ctx.fPosition = p;
  return result;
}

// ---------------------------------------------------------------------------
// Writing numbers

namespace mjson::detail {

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
  char buf[kMaxIntegerText];
  out.append(buf, static_cast<size_t>(WriteInteger(buf, raw, largeUnsigned) - buf));
}

// Decimal digits two at a time from a table, the halves of a number split
// first so that their divisions do not wait on each other: the compact
// writer of documents full of ids and counts spends its time here.
inline char* WriteTwoDigits(char* p, uint32_t v) {
  memcpy(p, kDigitPairs + v * 2, 2);
  return p + 2;
}
inline char* WriteFourDigits(char* p, uint32_t v) {  // v < 10^4, zeros kept
  WriteTwoDigits(p, v / 100);
  return WriteTwoDigits(p + 2, v % 100);
}
inline char* WriteEightDigits(char* p, uint32_t v) {  // v < 10^8, zeros kept
  WriteFourDigits(p, v / 10000);
  return WriteFourDigits(p + 4, v % 10000);
}
inline char* WriteDecimalBelow1e4(char* p, uint32_t v) {
  if (v < 100) {
    if (v < 10) {
      *p = static_cast<char>('0' + v);
      return p + 1;
    }
    return WriteTwoDigits(p, v);
  }
  const uint32_t high = v / 100;
  if (high < 10)
    *p++ = static_cast<char>('0' + high);
  else
    p = WriteTwoDigits(p, high);
  return WriteTwoDigits(p, v % 100);
}
inline char* WriteDecimalBelow1e8(char* p, uint32_t v) {
  if (v < 10000) return WriteDecimalBelow1e4(p, v);
  p = WriteDecimalBelow1e4(p, v / 10000);
  return WriteFourDigits(p, v % 10000);
}

char* WriteInteger(char* p, long long raw, bool largeUnsigned) {
  char* const limit = p + kMaxIntegerText;
  unsigned long long magnitude = static_cast<unsigned long long>(raw);
  if (!largeUnsigned && raw < 0) {
    *p++ = '-';
    magnitude = 0ull - magnitude;
  }
  if (magnitude >= 10000000000000ull) {
    // The writer's own count may be one more than the digits: a zero leads.
    int digits = WriterDigitCount(magnitude);
    char* end = std::to_chars(p, limit, magnitude).ptr;
    if (end - p < digits) {
      memmove(p + 1, p, static_cast<size_t>(end - p));
      *p = '0';
      ++end;
    }
    return end;
  }
  if (magnitude >= 100000000) {
    const uint64_t high = magnitude / 100000000;  // below 10^5 here
    p = WriteDecimalBelow1e8(p, static_cast<uint32_t>(high));
    return WriteEightDigits(p, static_cast<uint32_t>(magnitude - high * 100000000));
  }
  return WriteDecimalBelow1e8(p, static_cast<uint32_t>(magnitude));
}

// std::to_chars with a precision gives printf's "%.*g" and "%.*f" digit for
// digit, without the format parsing and locale work of the printf family.
// The buffer holds any double at any precision: "%g" drops trailing zeros,
// so no output is longer than the exact decimal expansion of a double.
void AppendReal(std::string& out, double v, int digits) {
  char buf[kMaxRealText];
  out.append(buf, static_cast<size_t>(WriteReal(buf, v, digits) - buf));
}

char* WriteReal(char* p, double v, int digits) {
  // The digits proper get all the room but what a ".0" after them takes.
  char* const limit = p + kMaxRealText - 2;
  if (digits >= 1) {
    auto [end, ec] = std::to_chars(p, limit, v, std::chars_format::general, digits);
    size_t n = ec == std::errc() ? static_cast<size_t>(end - p) : 0;
    if (!memchr(p, '.', n) && !memchr(p, 'e', n) && !memchr(p, 'E', n)) {
      memcpy(p + n, ".0", 2);
      n += 2;
    }
    return p + n;
  }
  if (std::isnan(v)) {
    memcpy(p, "nan", 3);
    return p + 3;
  }
  if (std::isinf(v)) {
    memcpy(p, "inf", 3);  // the sign is dropped on purpose
    return p + 3;
  }
  if (v >= -9223372036854775808.0 && v < 9223372036854775808.0 &&
      v == static_cast<double>(static_cast<long long>(v))) {
    char* end = WriteInteger(p, static_cast<long long>(v), false);
    memcpy(end, ".0", 2);
    return end + 2;
  }
  // Six decimals, as "%f" gives them, then without the trailing zeros.
  auto [end, ec] = std::to_chars(p, limit, v, std::chars_format::fixed, 6);
  std::string_view fixed(p, ec == std::errc() ? static_cast<size_t>(end - p) : 0);
  size_t dot = fixed.find('.');
  if (dot != std::string_view::npos) {
    size_t last = fixed.find_last_not_of('0');
    if (last == dot) last = dot + 1;
    fixed = fixed.substr(0, last + 1);
  }
  return p + fixed.size();
}

}  // namespace mjson::detail

void JsonInteger::AppendToString(std::string& out) const {
  AppendInteger(out, fValue, IsLargeUnsigned());
}

void JsonReal::AppendSettledOrText(const Form& form, std::string& out) const {
  if (form.State() == kSettled) {
    AppendReal(out, BitsAsDouble(form.bits), DigitsOf(form));
    return;
  }
  // Text: written as it came until a numeric read settles it.
  const RealText* text = TextOf(form.bits);
  if (!text->settled.load(std::memory_order_acquire)) {
    out.append(text->Text());
    return;
  }
  AppendReal(out, BitsAsDouble(text->value.load(std::memory_order_relaxed)), text->digits);
}
