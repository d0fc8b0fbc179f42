// Values, containers, compiled objects, conversions, deep copy and equality
// of the JSON value library.
#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonPool.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <mutex>
#include <new>
#include <random>

// ---------------------------------------------------------------------------
// Reference counting

// Written like the C library's assert, which NDEBUG would silence: these
// checks must survive release builds.
void MjsonAssertionFailed(const char* expression, const char* file, unsigned line,
                          const char* function) noexcept {
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name, file,
          line, function, expression);
  fflush(stderr);
  abort();
}

void JsonUseCounted::FailUseCountCheck() noexcept {
  MjsonAssertionFailed("fUseCount > 0", "JsonAutoRefPtr", 372, "Release");
}

void* JsonValue::operator new(size_t size) { return mjson_pool::Allocate(size); }

void JsonValue::operator delete(void* p, size_t size) noexcept { mjson_pool::Free(p, size); }

// Scalars are deleted through their own (final) class: no virtual call, and
// the node goes straight back to the pool.
void JsonValue::ReleaseChild(const JsonValue* v) noexcept {
  if (v->SoleOwner()) {
    switch (v->fType) {
      case String:
        delete static_cast<const JsonString*>(v);
        return;
      case Integer:
        delete static_cast<const JsonInteger*>(v);
        return;
      case Real:
        delete static_cast<const JsonReal*>(v);
        return;
      case True:
        delete static_cast<const JsonTrue*>(v);
        return;
      case False:
        delete static_cast<const JsonFalse*>(v);
        return;
      case Null:
        delete static_cast<const JsonNull*>(v);
        return;
      default:
        break;
    }
  }
  v->Release();
}

// ---------------------------------------------------------------------------
// JsonValue basics

const char* const JsonValue::fTypeStrings[9] = {"String", "Integer", "Real", "Object",
                                                "CompiledObject", "Array", "True", "False",
                                                "Null"};

void JsonValue::AppendToString(std::string&) const {}

JsonValue* JsonValue::GetSubNode(const std::string&) { return nullptr; }

void JsonValue::PrintCounter() {
  fputs("*** Object counters not activated\n", stdout);
  fflush(stdout);
}

void CompactString::InitHeap(const char* p, size_t n) {
  char* block;
  if (n < kHuge) {
    block = static_cast<char*>(mjson_pool::Allocate(n));
    memcpy(block, p, n);
    uint32_t n32 = static_cast<uint32_t>(n);
    memcpy(fBytes, &n32, 4);
  } else {
    block = static_cast<char*>(mjson_pool::Allocate(n + 8));
    memcpy(block, &n, 8);
    memcpy(block + 8, p, n);
    memcpy(fBytes, &kHuge, 4);
  }
  memcpy(fBytes + 8, &block, sizeof block);
}

void CompactString::FreeHeap() {
  uint32_t n = SizeField();
  mjson_pool::Free(Block(), n != kHuge ? n : HugeSize() + 8);
}

JsonString::JsonString(std::string_view s, bool* isKnownUTF8, bool* isValid)
    : JsonValue(String) {
  bool valid = (isKnownUTF8 && *isKnownUTF8) || IsUTF8(s);
  if (valid) fValue = CompactString(s);
  if (isValid) *isValid = valid;
}

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
struct RealText {
  RealText(int d, std::string t) : digits(d), text(std::move(t)) {}
  int digits;
  std::string text;
  std::atomic<uint64_t> value{0};
  std::atomic<bool> settled{false};
};

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

void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
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
      Pause();
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

int JsonReal::Digits() const { return DigitsOf(Load()); }

bool JsonReal::HasPendingText() const {
  Form form = Load();
  if (form.State() == kText) return !TextOf(form.bits)->settled.load(std::memory_order_acquire);
  return form.State() != kSettled;
}

JsonReal::JsonReal(std::string&& text, int digits) : JsonValue(Real), fBits(0) {
  fBits = BitsOf(new RealText(digits, std::move(text)));
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

// The copy starts in the state the source is in now: pending text stays
// pending, a settled value stays settled.
JsonReal::JsonReal(const JsonReal& other) : JsonValue(Real), fBits(0) {
  Form form = other.Load();
  if (form.State() == kText) {
    RealText* text = TextOf(form.bits);
    if (text->settled.load(std::memory_order_acquire)) {
      SetValue(BitsAsDouble(text->value.load(std::memory_order_relaxed)), text->digits);
    } else {
      fBits = BitsOf(new RealText(text->digits, text->text));
      SetFormUnshared(kText);
    }
    return;
  }
  fBits = form.bits;
  SetFormUnshared(form.word);
}

// The last owner is the only one left to look: no settle can be under way.
JsonReal::~JsonReal() {
  if ((StateByte().load(std::memory_order_relaxed) & kStateMask) == kText)
    delete TextOf(Bits().load(std::memory_order_relaxed));
}

void JsonReal::AppendText(const Form& form, std::string& out) {
  if (form.State() == kText) {
    out.append(TextOf(form.bits)->text);
    return;
  }
  char buf[48];
  char* p = buf;
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
  out.append(buf, static_cast<size_t>(p - buf));
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
        double v = StrToDouble(text->text.data(), text->text.size());
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
// Conversions

namespace {

// Reads the number at the start of `s`, as the text parser would.
JsonAutoRefPtr<JsonValue> NumberPrefix(std::string_view s) {
  ParserContext ctx;
  return JsonAutoRefPtr<JsonValue>(JsonValue::ParseNumber(std::string(s), ctx));
}

}  // namespace

bool JsonValue::GetAsString(std::string& out) const {
  if (fType == String) {
    out = static_cast<const JsonString*>(this)->Value();
    return true;
  }
  out.clear();
  AppendToString(out);
  return true;
}

std::string JsonValue::GetAsString() const {
  std::string out;
  GetAsString(out);
  return out;
}

bool JsonValue::GetAsInteger(long long& out) const {
  switch (fType) {
    case Integer: {
      auto* i = static_cast<const JsonInteger*>(this);
      out = i->Get();
      return !i->IsLargeUnsigned();
    }
    case Real: {
      double v = static_cast<const JsonReal*>(this)->Get();
      if (v >= static_cast<double>(JsonInteger::sMinInt64) &&
          v <= static_cast<double>(JsonInteger::sMaxInt64)) {
        // 2^63 passes the range test, since the largest integer rounds up to
        // it as a double; it truncates to the value the processor's
        // conversion gives for it, the most negative integer.
        out = v >= 9223372036854775807.0 ? JsonInteger::sMinInt64 : static_cast<long long>(v);
        return true;
      }
      out = 0;
      return false;
    }
    case String: {
      JsonAutoRefPtr<JsonValue> n = NumberPrefix(static_cast<const JsonString*>(this)->Value());
      if (n) return n->GetAsInteger(out);
      out = 0;
      return false;
    }
    case True:
      out = 1;
      return true;
    case False:
      out = 0;
      return true;
    default:
      out = 0;
      return false;
  }
}

long long JsonValue::GetAsInteger() const {
  if (fType == Integer) return static_cast<const JsonInteger*>(this)->Get();
  long long out;
  GetAsInteger(out);
  return out;
}

bool JsonValue::GetAsReal(double& out) const {
  switch (fType) {
    case Real:
      out = static_cast<const JsonReal*>(this)->Get();
      return true;
    case Integer: {
      auto* i = static_cast<const JsonInteger*>(this);
      out = i->IsLargeUnsigned() ? static_cast<double>(static_cast<unsigned long long>(i->RawValue()))
                                 : static_cast<double>(i->RawValue());
      return true;
    }
    case String: {
      JsonAutoRefPtr<JsonValue> n = NumberPrefix(static_cast<const JsonString*>(this)->Value());
      if (n) return n->GetAsReal(out);
      out = 0.0;
      return false;
    }
    case True:
      out = 1.0;
      return true;
    case False:
      out = 0.0;
      return true;
    default:
      out = 0.0;
      return false;
  }
}

double JsonValue::GetAsReal() const {
  if (fType == Real) return static_cast<const JsonReal*>(this)->Get();
  double out;
  GetAsReal(out);
  return out;
}

bool JsonValue::GetAsBool(bool& out) const {
  switch (fType) {
    case True:
      out = true;
      return true;
    case False:
      out = false;
      return true;
    case String:
      out = !static_cast<const JsonString*>(this)->Value().empty();
      return true;
    case Integer: {
      auto* i = static_cast<const JsonInteger*>(this);
      out = i->IsLargeUnsigned() || i->RawValue() != 0;
      return true;
    }
    case Real:
      out = static_cast<const JsonReal*>(this)->Get() != 0.0;
      return true;
    default:
      out = false;
      return false;
  }
}

bool JsonValue::GetAsBool() const {
  if (fType == True) return true;
  if (fType == False) return false;
  bool out;
  GetAsBool(out);
  return out;
}

// ---------------------------------------------------------------------------
// Deep copy, without recursion over the depth of the tree

namespace {

bool IsContainer(const JsonValue* v) {
  auto t = v->Type();
  return t == JsonValue::Object || t == JsonValue::Array || t == JsonValue::CompiledObject;
}

}  // namespace

// Copies the children of `src` into the empty container `dst` (of the same
// type), and the children's children, breadth being driven by an explicit
// stack instead of the call stack.
class TreeCopier {
 public:
  static void CopyChildren(JsonValue* dst, const JsonValue* src) {
    struct Frame {
      JsonValue* dst;
      const JsonValue* src;
      size_t next;
    };
    std::vector<Frame> stack;
    stack.push_back({dst, src, 0});
    while (!stack.empty()) {
      Frame& f = stack.back();
      const JsonValue* child = nullptr;
      JsonValue* copy = nullptr;
      switch (f.src->Type()) {
        case JsonValue::Object: {
          auto* s = static_cast<const JsonObject*>(f.src);
          auto* d = static_cast<JsonObject*>(f.dst);
          if (f.next == s->fMembers.size()) {
            d->RebuildIndex();
            stack.pop_back();
            continue;
          }
          const JsonObject::Member& m = s->fMembers[f.next++];
          child = m.value;
          copy = ShallowCopy(*child);
          d->fMembers.push_back({m.key, copy});
          break;
        }
        case JsonValue::Array: {
          auto* s = static_cast<const JsonArray*>(f.src);
          auto* d = static_cast<JsonArray*>(f.dst);
          if (f.next == s->fValues.size()) {
            stack.pop_back();
            continue;
          }
          child = s->fValues[f.next++];
          copy = ShallowCopy(*child);
          d->fValues.push_back(copy);
          break;
        }
        default: {  // CompiledObject
          auto* s = static_cast<const JsonCompiledObject*>(f.src);
          auto* d = static_cast<JsonCompiledObject*>(f.dst);
          while (f.next < s->fSlots.size() && !s->fSlots[f.next]) ++f.next;
          if (f.next >= s->fSlots.size()) {
            stack.pop_back();
            continue;
          }
          size_t i = f.next++;
          child = s->fSlots[i];
          copy = ShallowCopy(*child);
          d->fSlots[i] = copy;
          break;
        }
      }
      if (IsContainer(child)) stack.push_back({copy, child, 0});
    }
  }

  // A copy of `v` with all its own fields but none of its children.
  static JsonValue* ShallowCopy(const JsonValue& v);
};

JsonValue* TreeCopier::ShallowCopy(const JsonValue& v) {
  switch (v.Type()) {
    case JsonValue::String:
      return new JsonString(static_cast<const JsonString&>(v));
    case JsonValue::Integer:
      return new JsonInteger(static_cast<const JsonInteger&>(v));
    case JsonValue::Real:
      return new JsonReal(static_cast<const JsonReal&>(v));
    case JsonValue::Object: {
      auto& o = static_cast<const JsonObject&>(v);
      auto* copy = new JsonObject(o.KeepsOrder());
      copy->fMembers.reserve(o.Size());
      return copy;
    }
    case JsonValue::CompiledObject: {
      auto& o = static_cast<const JsonCompiledObject&>(v);
      auto* copy = new JsonCompiledObject(o.Context());
      copy->fSlots.assign(o.SlotCount(), nullptr);
      copy->fCountFilled = o.fCountFilled;
      return copy;
    }
    case JsonValue::Array: {
      auto* copy = new JsonArray();
      copy->fValues.reserve(static_cast<const JsonArray&>(v).Size());
      return copy;
    }
    case JsonValue::True:
      return new JsonTrue();
    case JsonValue::False:
      return new JsonFalse();
    default:
      return new JsonNull();
  }
}

JsonValue* JsonValue::CopyNoARefPtr(const JsonValue& value) {
  JsonValue* copy = TreeCopier::ShallowCopy(value);
  if (IsContainer(copy)) TreeCopier::CopyChildren(copy, &value);
  return copy;
}

JsonAutoRefPtr<JsonValue> JsonValue::Copy(const JsonValue& value) {
  return JsonAutoRefPtr<JsonValue>(CopyNoARefPtr(value));
}

// ---------------------------------------------------------------------------
// Equality, without recursion over the depth of the trees

bool operator==(const JsonValue& a, const JsonValue& b) {
  std::vector<std::pair<const JsonValue*, const JsonValue*>> pending;
  pending.emplace_back(&a, &b);
  while (!pending.empty()) {
    auto [x, y] = pending.back();
    pending.pop_back();
    if (x == y) continue;
    if (!x || !y) return false;
    if (x->Type() != y->Type()) return false;
    switch (x->Type()) {
      case JsonValue::String:
        if (!static_cast<const JsonString*>(x)->IsEqual(*static_cast<const JsonString*>(y)))
          return false;
        break;
      case JsonValue::Integer:
        if (!static_cast<const JsonInteger*>(x)->IsEqual(*static_cast<const JsonInteger*>(y)))
          return false;
        break;
      case JsonValue::Real:
        if (!static_cast<const JsonReal*>(x)->IsEqual(*static_cast<const JsonReal*>(y)))
          return false;
        break;
      case JsonValue::Object: {
        auto* ox = static_cast<const JsonObject*>(x);
        auto* oy = static_cast<const JsonObject*>(y);
        if (ox->Size() != oy->Size()) return false;
        for (const JsonObject::Member& m : ox->Members()) {
          const JsonValue* other = oy->Peek(m.key);
          if (!other) return false;
          pending.emplace_back(m.value, other);
        }
        break;
      }
      case JsonValue::Array: {
        auto& vx = static_cast<const JsonArray*>(x)->Values();
        auto& vy = static_cast<const JsonArray*>(y)->Values();
        if (vx.size() != vy.size()) return false;
        for (size_t i = 0; i < vx.size(); ++i) pending.emplace_back(vx[i], vy[i]);
        break;
      }
      case JsonValue::CompiledObject: {
        auto* cx = static_cast<const JsonCompiledObject*>(x);
        auto* cy = static_cast<const JsonCompiledObject*>(y);
        if (cx->Context() != cy->Context() || cx->SlotCount() != cy->SlotCount()) return false;
        for (size_t i = 0; i < cx->SlotCount(); ++i) {
          const JsonValue* sx = cx->Slots()[i];
          const JsonValue* sy = cy->Slots()[i];
          if (!sx && !sy) continue;
          pending.emplace_back(sx, sy);
        }
        break;
      }
      default:  // literals of one type are always equal
        break;
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// JsonObject

namespace {

constexpr size_t kIndexThreshold = 8;

// With the index at most half full, probe runs of ordinary keys stay short;
// a run this long means the keys were chosen to collide.
constexpr size_t kMaxProbeRun = 64;

// Index header: the slot mask, then the hash in use; the slots follow.
constexpr size_t kIndexHeader = 2;
enum IndexHash : uint32_t { kFastHash = 0, kKeyedHash = 1 };

}  // namespace

uint64_t MjsonFastKeyHash(const char* p, size_t n) {
  // Multiply-mix over 8-byte words: fast for the short keys of real
  // documents, and good enough spread for an open-addressing table.
  uint64_t h = 0x9E3779B97F4A7C15ull ^ (n * 0xC2B2AE3D27D4EB4Full);
  while (n >= 8) {
    uint64_t w;
    memcpy(&w, p, 8);
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
    p += 8;
    n -= 8;
  }
  uint64_t w = 0;
  memcpy(&w, p, n);
  h = (h ^ w) * 0xC4CEB9FE1A85EC53ull;
  h ^= h >> 29;
  return h;
}

namespace {

// SipHash-1-3 with a key drawn once per process: what an object's index
// falls back to when its keys collide under the fast hash. Without the key,
// nobody can choose keys that collide under it.
struct SipKey {
  uint64_t k0, k1;
};

const SipKey& ProcessSipKey() {
  static const SipKey key = [] {
    std::random_device device;
    auto word = [&] { return (static_cast<uint64_t>(device()) << 32) ^ device(); };
    return SipKey{word(), word()};
  }();
  return key;
}

inline uint64_t Rotl(uint64_t x, int b) { return (x << b) | (x >> (64 - b)); }

struct SipState {
  uint64_t v0, v1, v2, v3;
  void Round() {
    v0 += v1;
    v1 = Rotl(v1, 13);
    v1 ^= v0;
    v0 = Rotl(v0, 32);
    v2 += v3;
    v3 = Rotl(v3, 16);
    v3 ^= v2;
    v0 += v3;
    v3 = Rotl(v3, 21);
    v3 ^= v0;
    v2 += v1;
    v1 = Rotl(v1, 17);
    v1 ^= v2;
    v2 = Rotl(v2, 32);
  }
  void Absorb(uint64_t m) {
    v3 ^= m;
    Round();
    v0 ^= m;
  }
};

uint64_t KeyedHash(const char* p, size_t n) {
  const SipKey& key = ProcessSipKey();
  SipState s{key.k0 ^ 0x736f6d6570736575ull, key.k1 ^ 0x646f72616e646f6dull,
             key.k0 ^ 0x6c7967656e657261ull, key.k1 ^ 0x7465646279746573ull};
  const uint64_t length = n;
  while (n >= 8) {
    uint64_t m;
    memcpy(&m, p, 8);
    s.Absorb(m);
    p += 8;
    n -= 8;
  }
  uint64_t last = length << 56;
  for (size_t i = 0; i < n; ++i) last |= static_cast<uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
  s.Absorb(last);
  s.v2 ^= 0xff;
  s.Round();
  s.Round();
  s.Round();
  return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

inline uint64_t IndexHashOf(uint32_t which, const char* p, size_t n) {
  return which == kFastHash ? MjsonFastKeyHash(p, n) : KeyedHash(p, n);
}

inline bool SameKey(const CompactString& a, std::string_view b) { return a == b; }

}  // namespace

JsonObject::JsonObject(bool keepOrder) : JsonValue(Object) { fAux8 = keepOrder; }

JsonObject::JsonObject(const JsonObject& other) : JsonValue(other) {
  fMembers.reserve(other.fMembers.size());
  TreeCopier::CopyChildren(this, &other);
}

JsonObject& JsonObject::operator=(const JsonObject& other) {
  if (this == &other) return *this;
  JsonObject copy(other);
  *this = std::move(copy);
  return *this;
}

JsonObject& JsonObject::operator=(JsonObject&& other) noexcept {
  if (this == &other) return *this;
  ClearMembers();
  fMembers = std::move(other.fMembers);
  fIndex = other.fIndex;
  fAux8 = other.fAux8;
  other.fMembers.clear();
  other.fIndex = nullptr;
  return *this;
}

JsonObject::~JsonObject() { ClearMembers(); }

void JsonObject::ClearMembers() {
  for (Member& m : fMembers) ReleaseChild(m.value);
  fMembers.clear();
  DropIndex();
}

void JsonObject::DropIndex() {
  delete[] fIndex;
  fIndex = nullptr;
}

size_t JsonObject::Find(std::string_view key) const {
  if (!fIndex) {
    for (size_t i = 0; i < fMembers.size(); ++i)
      if (SameKey(fMembers[i].key, key)) return i;
    return kNotFound;
  }
  size_t mask = fIndex[0];
  const uint32_t* slots = fIndex + kIndexHeader;
  for (size_t slot = IndexHashOf(fIndex[1], key.data(), key.size()) & mask;;
       slot = (slot + 1) & mask) {
    uint32_t e = slots[slot];
    if (e == 0) return kNotFound;
    if (SameKey(fMembers[e - 1].key, key)) return e - 1;
  }
}

void JsonObject::RebuildIndex() { RebuildIndex(fIndex ? fIndex[1] : kFastHash); }

// Builds the index with the given hash. A fast index whose keys pile up in
// one long probe run is built again with the keyed hash, which then stays.
void JsonObject::RebuildIndex(uint32_t hash) {
  DropIndex();
  if (fMembers.size() <= kIndexThreshold) return;
  size_t capacity = 16;
  size_t wanted = std::max(fMembers.size(), fMembers.capacity());
  while (capacity < wanted * 2) capacity *= 2;
  fIndex = new uint32_t[capacity + kIndexHeader]();
  fIndex[0] = static_cast<uint32_t>(capacity - 1);
  fIndex[1] = hash;
  uint32_t* slots = fIndex + kIndexHeader;
  size_t mask = capacity - 1;
  for (size_t i = 0; i < fMembers.size(); ++i) {
    std::string_view k = fMembers[i].key;
    size_t slot = IndexHashOf(hash, k.data(), k.size()) & mask;
    for (size_t run = 0; slots[slot]; slot = (slot + 1) & mask) {
      if (++run == kMaxProbeRun && hash == kFastHash) {
        RebuildIndex(kKeyedHash);
        return;
      }
    }
    slots[slot] = static_cast<uint32_t>(i + 1);
  }
}

void JsonObject::Store(CompactString&& key, JsonValue* value) {
  if (!fIndex) {
    for (Member& m : fMembers) {
      if (m.key == key) {
        JsonValue* old = m.value;
        m.value = value;
        old->Release();
        return;
      }
    }
    fMembers.push_back({std::move(key), value});
    if (fMembers.size() > kIndexThreshold) RebuildIndex(kFastHash);
    return;
  }
  // One probe finds either the key or the free slot it would take.
  size_t mask = fIndex[0];
  uint32_t* slots = fIndex + kIndexHeader;
  size_t slot = IndexHashOf(fIndex[1], key.Data(), key.Size()) & mask;
  size_t run = 0;
  for (; slots[slot]; slot = (slot + 1) & mask, ++run) {
    Member& m = fMembers[slots[slot] - 1];
    if (m.key == key) {
      JsonValue* old = m.value;
      m.value = value;
      old->Release();
      return;
    }
  }
  fMembers.push_back({std::move(key), value});
  if (fMembers.size() * 2 > mask + 1)
    RebuildIndex();
  else if (run >= kMaxProbeRun && fIndex[1] == kFastHash)
    RebuildIndex(kKeyedHash);
  else
    slots[slot] = static_cast<uint32_t>(fMembers.size());
}

void JsonObject::EraseAt(size_t pos) {
  JsonValue* old = fMembers[pos].value;
  fMembers.erase(fMembers.begin() + static_cast<ptrdiff_t>(pos));
  if (fIndex) RebuildIndex();
  old->Release();
}

void JsonObject::AdoptMembers(Member* first, size_t count) {
  fMembers.reserve(fMembers.size() + count);
  for (size_t i = 0; i < count; ++i) Store(std::move(first[i].key), first[i].value);
}

bool JsonObject::InsertValueWithNonUTF8KeyInternal(std::string&& key, JsonValue* value) {
  if (!value) {
    Erase(key);
    return true;
  }
  Store(CompactString(key), value);
  return true;
}

bool JsonObject::InsertValueWithNonUTF8KeyInternal(const std::string& key, JsonValue* value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value);
}

bool JsonObject::InsertValueInternal(std::string&& key, JsonValue* value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) {
    if (value) value->Release();
    return false;
  }
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value);
}

bool JsonObject::InsertValueInternal(const std::string& key, JsonValue* value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) {
    if (value) value->Release();
    return false;
  }
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value);
}

namespace {
inline JsonValue* Share(const JsonAutoRefPtr<JsonValue>& v) {
  if (v) v->AddRef();
  return v.get();
}
}  // namespace

bool JsonObject::InsertValue(const std::string& key, const JsonAutoRefPtr<JsonValue>& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), Share(value));
}

bool JsonObject::InsertValue(std::string&& key, const JsonAutoRefPtr<JsonValue>& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key), Share(value));
}

bool JsonObject::InsertValue(const std::string& key, JsonAutoRefPtr<JsonValue>&& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value.release());
}

bool JsonObject::InsertValue(std::string&& key, JsonAutoRefPtr<JsonValue>&& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value.release());
}

bool JsonObject::InsertValue(const std::string& key, const JsonValue& value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), CopyNoARefPtr(value));
}

bool JsonObject::InsertValueWithNonUTF8Key(const std::string& key,
                                           const JsonAutoRefPtr<JsonValue>& value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), Share(value));
}

bool JsonObject::InsertValueWithNonUTF8Key(std::string&& key, JsonAutoRefPtr<JsonValue>&& value) {
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value.release());
}

bool JsonObject::InsertValueWithNonUTF8Key(const std::string& key, const JsonValue& value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), CopyNoARefPtr(value));
}

bool JsonObject::InsertString(const std::string& key, const std::string& value, bool keyIsUTF8,
                              bool valueIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  if (!valueIsUTF8 && !IsUTF8(value)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key),
                                           new JsonString(std::string(value), JsonString::Trusted{}));
}

bool JsonObject::InsertString(std::string&& key, std::string&& value, bool keyIsUTF8,
                              bool valueIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  if (!valueIsUTF8 && !IsUTF8(value)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key),
                                           new JsonString(std::move(value), JsonString::Trusted{}));
}

bool JsonObject::InsertInteger(const std::string& key, long long value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(value), keyIsUTF8);
}

bool JsonObject::InsertInteger(const std::string& key, unsigned long long value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(value, true), keyIsUTF8);
}

bool JsonObject::InsertInteger(const std::string& key, int value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(static_cast<long long>(value)), keyIsUTF8);
}

bool JsonObject::InsertReal(const std::string& key, double value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonReal(value, 0), keyIsUTF8);
}

bool JsonObject::InsertBool(const std::string& key, bool value, bool keyIsUTF8) {
  return InsertValueInternal(
      key, value ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse(), keyIsUTF8);
}

bool JsonObject::InsertNull(const std::string& key, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonNull(), keyIsUTF8);
}

bool JsonObject::Erase(const std::string& key) {
  size_t pos = Find(key);
  if (pos == kNotFound) return false;
  EraseAt(pos);
  return true;
}

JsonAutoRefPtr<JsonValue> JsonObject::At(const std::string& key) const {
  size_t pos = Find(key);
  if (pos == kNotFound) return {};
  JsonValue* v = fMembers[pos].value;
  v->AddRef();
  return JsonAutoRefPtr<JsonValue>(v);
}

JsonValue* JsonObject::GetSubNode(const std::string& key) {
  size_t pos = Find(key);
  return pos == kNotFound ? nullptr : fMembers[pos].value;
}

std::string JsonObject::KeyValAsString(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? std::string() : fMembers[pos].value->GetAsString();
}

long long JsonObject::KeyValAsInteger(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? 0 : fMembers[pos].value->GetAsInteger();
}

double JsonObject::KeyValAsReal(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? 0.0 : fMembers[pos].value->GetAsReal();
}

bool JsonObject::KeyValAsBool(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? false : fMembers[pos].value->GetAsBool();
}

JsonAutoRefPtr<JsonObject> JsonObject::KeyValAsObject(const std::string& key) const {
  return ConvertToObject(At(key));
}

JsonAutoRefPtr<JsonArray> JsonObject::KeyValAsArray(const std::string& key) const {
  return ConvertToArray(At(key));
}

void JsonObject::ForEach(
    const std::function<void(const std::string&, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fMembers.size(); ++i) {
    JsonAutoRefPtr<JsonValue> v(fMembers[i].value);
    v->AddRef();
    fn(fMembers[i].key.Str(), v);
  }
}

bool JsonObject::IsEqual(const JsonObject& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}

std::string ObjectStepper::Key() const { return fObject->fMembers[fIndex].key.Str(); }

JsonAutoRefPtr<JsonValue> ObjectStepper::Value() const {
  JsonValue* v = fObject->fMembers[fIndex].value;
  if (!v) return JsonAutoRefPtr<JsonValue>(new JsonNull());
  v->AddRef();
  return JsonAutoRefPtr<JsonValue>(v);
}

// ---------------------------------------------------------------------------
// JsonArray

JsonArray::JsonArray(const JsonArray& other) : JsonValue(other) {
  fValues.reserve(other.fValues.size());
  TreeCopier::CopyChildren(this, &other);
}

JsonArray& JsonArray::operator=(const JsonArray& other) {
  if (this == &other) return *this;
  JsonArray copy(other);
  for (JsonValue* v : fValues) v->Release();
  fValues = std::move(copy.fValues);
  copy.fValues.clear();
  return *this;
}

JsonArray::~JsonArray() {
  for (JsonValue* v : fValues)
    if (v) ReleaseChild(v);
}

void JsonArray::Append(JsonValue* value) { fValues.push_back(value); }

void JsonArray::AdoptValues(JsonValue* const* first, size_t count) {
  if (fValues.empty())
    fValues.assign(first, first + count);  // exact storage, no growth path
  else
    fValues.insert(fValues.end(), first, first + count);
}

void JsonArray::AddValue(const JsonAutoRefPtr<JsonValue>& value) {
  if (value) Append(Share(value));
}

void JsonArray::AddValue(JsonAutoRefPtr<JsonValue>&& value) {
  if (value) Append(value.release());
}

void JsonArray::AddValue(const JsonValue& value) { Append(CopyNoARefPtr(value)); }

void JsonArray::AddValueInternal(JsonValue* value) {
  if (value) Append(value);
}

void JsonArray::AddString(const std::string& s, bool* added, bool isUTF8) {
  AddString(std::string(s), added, isUTF8);
}

void JsonArray::AddString(std::string&& s, bool* added, bool isUTF8) {
  bool ok = isUTF8 || IsUTF8(s);
  if (added) *added = ok;
  if (ok) Append(new JsonString(std::move(s), JsonString::Trusted{}));
}

void JsonArray::AddInteger(long long v) { Append(new JsonInteger(v)); }
void JsonArray::AddReal(double v) { Append(new JsonReal(v, 0)); }
void JsonArray::AddBool(bool v) {
  Append(v ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse());
}
void JsonArray::AddNull() { Append(new JsonNull()); }

void JsonArray::InsertValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  // Appending is AddValue's job; an index at or past the end does nothing.
  if (!value || index >= fValues.size()) return;
  fValues.insert(fValues.begin() + static_cast<ptrdiff_t>(index), Share(value));
}

void JsonArray::SetValueAtIndexInternal(size_t index, JsonValue* value) {
  if (index >= fValues.size()) {
    if (value) value->Release();
    return;
  }
  JsonValue* old = fValues[index];
  if (value) {
    fValues[index] = value;
  } else if (index + 1 == fValues.size()) {
    fValues.pop_back();
  } else {
    fValues[index] = new JsonNull();
  }
  if (old) old->Release();
}

void JsonArray::SetValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  if (index >= fValues.size()) return;
  SetValueAtIndexInternal(index, Share(value));
}

void JsonArray::EraseAtIndex(size_t index) { Erase(index, 1); }

size_t JsonArray::Erase(size_t first, size_t count) {
  if (first >= fValues.size() || first >= 9223372036854775807ull) return 0;
  size_t n = std::min(count, fValues.size() - first);
  JsonValueList removed(fValues.begin() + static_cast<ptrdiff_t>(first),
                        fValues.begin() + static_cast<ptrdiff_t>(first + n));
  fValues.erase(fValues.begin() + static_cast<ptrdiff_t>(first),
                fValues.begin() + static_cast<ptrdiff_t>(first + n));
  for (JsonValue* v : removed)
    if (v) v->Release();
  return n;
}

JsonAutoRefPtr<JsonValue> JsonArray::AtIndex(size_t index) const {
  if (index >= fValues.size() || !fValues[index]) return {};
  fValues[index]->AddRef();
  return JsonAutoRefPtr<JsonValue>(fValues[index]);
}

JsonValue* JsonArray::GetSubNode(const std::string& key) {
  if (key.empty() || key[0] < '0' || key[0] > '9') return nullptr;
  size_t index = strtoull(key.c_str(), nullptr, 10);
  return index < fValues.size() ? fValues[index] : nullptr;
}

std::string JsonArray::AtIndexAsString(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsString() : std::string();
}

long long JsonArray::AtIndexAsInteger(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsInteger() : 0;
}

double JsonArray::AtIndexAsReal(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsReal() : 0.0;
}

bool JsonArray::AtIndexAsBool(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsBool() : false;
}

JsonAutoRefPtr<JsonObject> JsonArray::AtIndexAsObject(size_t index) const {
  return ConvertToObject(AtIndex(index));
}

JsonAutoRefPtr<JsonArray> JsonArray::AtIndexAsArray(size_t index) const {
  return ConvertToArray(AtIndex(index));
}

void JsonArray::ForEach(
    const std::function<void(size_t, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fValues.size(); ++i) {
    JsonAutoRefPtr<JsonValue> v(fValues[i]);
    if (v) v->AddRef();
    fn(i, v);
  }
}

bool JsonArray::ForEachWithUserData(
    const std::function<void(size_t, const JsonValue*, void*, bool&, std::string*)>& fn,
    void* userData, std::string* errors) const {
  bool ok = true;
  size_t recorded = 0;
  for (size_t i = 0; i < fValues.size(); ++i) {
    std::string error;
    fn(i, fValues[i], userData, ok, &error);
    if (!error.empty() && errors && recorded < 20) {
      if (!errors->empty()) errors->append(", ");
      errors->append("Item '").append(std::to_string(i + 1)).append("' has error '");
      errors->append(error).append("'");
      ++recorded;
    }
  }
  return ok;
}

bool JsonArray::IsEqual(const JsonArray& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}

// ---------------------------------------------------------------------------
// Compiled objects

size_t JsonCompiledObjectContext::AddKey(const std::string& key, unsigned short flags,
                                         JsonCompiledObjectContext* sub) {
  auto it = fIndexOfKey.find(key);
  if (it != fIndexOfKey.end()) return it->second;
  // A nested compiled object without a key table can only be kept as a
  // plain object.
  if ((flags & kCompiledObject) && !sub) flags = (flags & ~kCompiledObject) | kPlainObject;
  size_t index = fKeys.size();
  fKeys.push_back(key);
  fKeyFlags.push_back(flags);
  fSubContexts.push_back(sub);
  fIndexOfKey.emplace(key, index);
  return index;
}

size_t JsonCompiledObjectContext::GetIndexForKey(const std::string& key) const {
  auto it = fIndexOfKey.find(key);
  return it == fIndexOfKey.end() ? sMaxIndex : it->second;
}

JsonCompiledObject::JsonCompiledObject(const JsonCompiledObjectContext* context)
    : JsonValue(CompiledObject),
      fContext(context),
      fCountFilled(0),
      fSlots(context ? context->KeyCount() : 0, nullptr) {}

JsonCompiledObject::JsonCompiledObject(const JsonCompiledObject& other)
    : JsonValue(other),
      fContext(other.fContext),
      fCountFilled(other.fCountFilled),
      fSlots(other.fSlots.size(), nullptr) {
  TreeCopier::CopyChildren(this, &other);
}

JsonCompiledObject& JsonCompiledObject::operator=(const JsonCompiledObject& other) {
  if (this == &other) return *this;
  JsonCompiledObject copy(other);
  for (JsonValue* v : fSlots)
    if (v) v->Release();
  fContext = copy.fContext;
  fCountFilled = copy.fCountFilled;
  fSlots = std::move(copy.fSlots);
  copy.fSlots.clear();
  return *this;
}

JsonCompiledObject::~JsonCompiledObject() {
  for (JsonValue* v : fSlots)
    if (v) ReleaseChild(v);
}

bool JsonCompiledObject::InsertValueInternal(size_t index, JsonValue* value) {
  if (index >= fSlots.size()) {
    if (value) value->Release();
    return false;
  }
  JsonValue* old = fSlots[index];
  fSlots[index] = value;
  if (value) ++fCountFilled;
  if (old) {
    old->Release();
    --fCountFilled;
  }
  return true;
}

bool JsonCompiledObject::InsertValue(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  if (index >= fSlots.size()) return false;
  return InsertValueInternal(index, Share(value));
}

bool JsonCompiledObject::InsertValue(size_t index, const JsonValue& value) {
  if (index >= fSlots.size()) return false;
  return InsertValueInternal(index, CopyNoARefPtr(value));
}

bool JsonCompiledObject::InsertString(size_t index, const std::string& value) {
  if (!IsUTF8(value)) return false;
  return InsertValueInternal(index, new JsonString(std::string(value), JsonString::Trusted{}));
}

bool JsonCompiledObject::InsertInteger(size_t index, long long value) {
  return InsertValueInternal(index, new JsonInteger(value));
}

bool JsonCompiledObject::InsertInteger(size_t index, unsigned long long value) {
  return InsertValueInternal(index, new JsonInteger(value, true));
}

bool JsonCompiledObject::InsertReal(size_t index, double value) {
  return InsertValueInternal(index, new JsonReal(value, 0));
}

bool JsonCompiledObject::InsertBool(size_t index, bool value) {
  return InsertValueInternal(index,
                             value ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse());
}

bool JsonCompiledObject::InsertNull(size_t index) { return InsertValueInternal(index, new JsonNull()); }

JsonAutoRefPtr<JsonValue> JsonCompiledObject::At(size_t index) const {
  if (index >= fSlots.size() || !fSlots[index]) return {};
  fSlots[index]->AddRef();
  return JsonAutoRefPtr<JsonValue>(fSlots[index]);
}

JsonAutoRefPtr<JsonValue> JsonCompiledObject::At(const std::string& key) const {
  if (!fContext) return {};
  return At(fContext->GetIndexForKey(key));
}

bool JsonCompiledObject::Erase(size_t index) {
  if (index >= fSlots.size() || !fSlots[index]) return false;
  JsonValue* old = fSlots[index];
  fSlots[index] = nullptr;
  // The filled count is deliberately left as it was.
  old->Release();
  return true;
}

bool JsonCompiledObject::Erase(const std::string& key) {
  if (!fContext) return false;
  return Erase(fContext->GetIndexForKey(key));
}

bool JsonCompiledObject::HasKey(const std::string& key) const {
  if (!fContext) return false;
  return HasKey(fContext->GetIndexForKey(key));
}

std::string JsonCompiledObject::KeyName(size_t index) const {
  if (!fContext || index >= fSlots.size()) return std::string();
  return fContext->Key(index);
}

std::string JsonCompiledObject::KeyValAsString(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsString() : std::string();
}

long long JsonCompiledObject::KeyValAsInteger(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsInteger() : 0;
}

double JsonCompiledObject::KeyValAsReal(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsReal() : 0.0;
}

bool JsonCompiledObject::KeyValAsBool(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsBool() : false;
}

JsonAutoRefPtr<JsonObject> JsonCompiledObject::KeyValAsObject(size_t index) const {
  return ConvertToObject(At(index));
}

JsonAutoRefPtr<JsonCompiledObject> JsonCompiledObject::KeyValAsCompObject(size_t index) const {
  return ConvertToCompiledObject(At(index));
}

JsonAutoRefPtr<JsonArray> JsonCompiledObject::KeyValAsArray(size_t index) const {
  return ConvertToArray(At(index));
}

bool JsonCompiledObject::Completed() const {
  if (!fContext) return true;
  for (size_t i = 0; i < fSlots.size(); ++i)
    if ((fContext->KeyFlags(i) & JsonCompiledObjectContext::kRequired) && !fSlots[i]) return false;
  return true;
}

JsonValue* JsonCompiledObject::GetSubNode(const std::string& key) {
  if (!fContext) return nullptr;
  size_t index = fContext->GetIndexForKey(key);
  return index < fSlots.size() ? fSlots[index] : nullptr;
}

void JsonCompiledObject::ForEach(
    const std::function<void(size_t, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fSlots.size(); ++i) {
    if (!fSlots[i]) continue;
    JsonAutoRefPtr<JsonValue> v(fSlots[i]);
    v->AddRef();
    fn(i, v);
  }
}

bool JsonCompiledObject::IsEqual(const JsonCompiledObject& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}

// ---------------------------------------------------------------------------
// Typed views and proxies

JsonValue* NewEmptyValue(JsonValue::EJsonValueType type) {
  switch (type) {
    case JsonValue::String:
      return new JsonString(std::string_view(), JsonString::Trusted{});
    case JsonValue::Integer:
      return new JsonInteger(0LL);
    case JsonValue::Real:
      return new JsonReal(0.0, 0);
    case JsonValue::Object:
      return new JsonObject(false);
    case JsonValue::Array:
      return new JsonArray();
    case JsonValue::True:
      return new JsonTrue();
    case JsonValue::False:
      return new JsonFalse();
    default:
      return new JsonNull();
  }
}

size_t ContainerSize(const JsonValue& value) {
  switch (value.Type()) {
    case JsonValue::Array:
      return static_cast<const JsonArray&>(value).Size();
    case JsonValue::Object:
      return static_cast<const JsonObject&>(value).Size();
    case JsonValue::CompiledObject:
      return static_cast<const JsonCompiledObject&>(value).Size();
    default:
      return 0;
  }
}

bool IsEmptyValue(const JsonValue* value) {
  if (!value) return true;
  switch (value->Type()) {
    case JsonValue::Null:
      return true;
    case JsonValue::String:
      return static_cast<const JsonString*>(value)->Value().empty();
    case JsonValue::Object:
      return static_cast<const JsonObject*>(value)->Empty();
    case JsonValue::CompiledObject:
      return static_cast<const JsonCompiledObject*>(value)->Empty();
    case JsonValue::Array:
      return static_cast<const JsonArray*>(value)->Empty();
    default:
      return false;
  }
}

JsonAutoRefPtr<JsonObject> ConvertToObject(const JsonAutoRefPtr<JsonValue>& value) {
  if (!value || value->Type() != JsonValue::Object) return {};
  value->AddRef();
  return JsonAutoRefPtr<JsonObject>(static_cast<JsonObject*>(value.get()));
}

JsonAutoRefPtr<JsonArray> ConvertToArray(const JsonAutoRefPtr<JsonValue>& value) {
  if (!value || value->Type() != JsonValue::Array) return {};
  value->AddRef();
  return JsonAutoRefPtr<JsonArray>(static_cast<JsonArray*>(value.get()));
}

JsonAutoRefPtr<JsonCompiledObject> ConvertToCompiledObject(const JsonAutoRefPtr<JsonValue>& value) {
  if (!value || value->Type() != JsonValue::CompiledObject) return {};
  value->AddRef();
  return JsonAutoRefPtr<JsonCompiledObject>(static_cast<JsonCompiledObject*>(value.get()));
}

namespace {
template <class T>
JsonAutoRefPtr<T> Hold(T* p) {
  if (p) p->AddRef();
  return JsonAutoRefPtr<T>(p);
}
}  // namespace

ObjectRef::ObjectRef(JsonObject* object, std::string key)
    : fObject(Hold(object)), fKey(std::move(key)) {
  if (fObject) fValue = fObject->At(fKey);
}

ObjectRef& ObjectRef::operator=(const JsonAutoRefPtr<JsonValue>& value) {
  if (fObject) fObject->InsertValue(fKey, value, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(const std::string& value) {
  if (fObject) fObject->InsertString(fKey, value, false, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(long long value) {
  if (fObject) fObject->InsertInteger(fKey, value, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(unsigned long long value) {
  if (fObject) fObject->InsertInteger(fKey, value, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(int value) {
  if (fObject) fObject->InsertInteger(fKey, value, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(double value) {
  if (fObject) fObject->InsertReal(fKey, value, false);
  return *this;
}
ObjectRef& ObjectRef::operator=(const ObjectRef& other) {
  if (this != &other && fObject) fObject->InsertValue(fKey, other.fValue, false);
  return *this;
}

ArrayRef::ArrayRef(JsonArray* array, size_t index) : fArray(Hold(array)), fIndex(index) {
  if (fArray) fValue = fArray->AtIndex(fIndex);
}

ArrayRef& ArrayRef::operator=(const JsonAutoRefPtr<JsonValue>& value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, Share(value));
  return *this;
}
ArrayRef& ArrayRef::operator=(const std::string& value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, new JsonString(value));
  return *this;
}
ArrayRef& ArrayRef::operator=(long long value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, new JsonInteger(value));
  return *this;
}
ArrayRef& ArrayRef::operator=(unsigned long long value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, new JsonInteger(value, true));
  return *this;
}
ArrayRef& ArrayRef::operator=(int value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, new JsonInteger(static_cast<long long>(value)));
  return *this;
}
ArrayRef& ArrayRef::operator=(double value) {
  if (fArray) fArray->SetValueAtIndexInternal(fIndex, new JsonReal(value, 0));
  return *this;
}
ArrayRef& ArrayRef::operator=(const ArrayRef& other) {
  if (this != &other && fArray) fArray->SetValueAtIndex(fIndex, other.fValue);
  return *this;
}

CompObjectRef::CompObjectRef(JsonCompiledObject* object, size_t index)
    : fObject(Hold(object)), fIndex(index) {
  if (fObject) fValue = fObject->At(fIndex);
}

CompObjectRef& CompObjectRef::operator=(const JsonAutoRefPtr<JsonValue>& value) {
  if (fObject) fObject->InsertValue(fIndex, value);
  return *this;
}
CompObjectRef& CompObjectRef::operator=(const std::string& value) {
  if (fObject) fObject->InsertString(fIndex, value);
  return *this;
}
CompObjectRef& CompObjectRef::operator=(long long value) {
  if (fObject) fObject->InsertInteger(fIndex, value);
  return *this;
}
CompObjectRef& CompObjectRef::operator=(unsigned long long value) {
  if (fObject) fObject->InsertInteger(fIndex, value);
  return *this;
}
CompObjectRef& CompObjectRef::operator=(int value) {
  if (fObject) fObject->InsertInteger(fIndex, static_cast<long long>(value));
  return *this;
}
CompObjectRef& CompObjectRef::operator=(double value) {
  if (fObject) fObject->InsertReal(fIndex, value);
  return *this;
}
CompObjectRef& CompObjectRef::operator=(const CompObjectRef& other) {
  if (this != &other && fObject) fObject->InsertValue(fIndex, other.fValue);
  return *this;
}
