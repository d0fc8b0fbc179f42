// The JSON value library: reference-counted values, objects that keep
// insertion order, arrays, compiled objects with fixed key slots, a strict
// text parser and writer, and a MessagePack writer and reader.
//
// The library knows nothing of its host. Failures are reported by bool
// results, null pointers and, while parsing, English text in ParserContext;
// no exception crosses this interface.
//
// Nothing here recurses over the nesting depth of a document: parsing,
// writing, copying, comparing and freeing all keep their own stacks on the
// heap, so a document nested a million levels deep costs memory, not stack.
//
// What a program may use: the classes and free functions at global scope
// (the values, ParserContext, JsonAutoRefPtr, BigEndianWriter, the proxies
// of JsonRef.h) and the few conveniences in namespace mjson. Everything in
// mjson::detail is the library's own machinery: the classes embed some of
// it, so it has to be seen here, but it may change in any release.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "JsonAutoRefPtr.h"
#include "MjsonDetail.h"

namespace mjson::detail {
class Arena;
class TreeCopier;
}  // namespace mjson::detail

class BigEndianWriter;
class JsonObject;
class JsonArray;
class JsonCompiledObject;
class JsonCompiledObjectContext;
class ObjectStepper;

// Per-parse state shared by the text parser and the MessagePack reader:
// results that every parse sets afresh (Reset) and options that the caller
// sets once. The two kinds are interleaved, in this order, for programs
// that initialise the fields by position.
struct ParserContext {
  // Results.
  size_t fPosition = 0;   // offset of the next byte; where a failed parse stopped
  size_t fLine = 0;       // line breaks passed while skipping whitespace (zero-based)
  size_t fLineStart = 0;  // offset just after the last counted line break
  std::string fError;     // empty while no error occurred
  // Options.
  bool fFailOnDuplicateKey = false;  // a refused insertion fails the parse
  bool fDetectMsgPack = false;       // ReadFromString hands MessagePack input on
  bool fKeepObjectOrder = false;     // objects keep insertion order
  // Strings are taken as they are, UTF-8 or not. Overrides the next option.
  bool fNoUTF8Check = false;
  // Result: the whole input was consumed by a successful parse.
  bool fCompleted = false;
  // Option: the input is checked once as a whole before parsing, so that
  // its strings need no check of their own when it is valid; when it is
  // not, or when this is off, each string is checked as it is read.
  bool fCheckInputUTF8 = true;
  // Result of that check.
  bool fInputIsUTF8 = false;

  // Clears the per-parse results and keeps the option flags, so one
  // configured context can serve many parses.
  void Reset() {
    fPosition = 0;
    fLine = 0;
    fLineStart = 0;
    fError.clear();
    fCompleted = false;
    fInputIsUTF8 = false;
  }
};

class JsonValue : public JsonUseCounted {
 public:
  enum EJsonValueType : int32_t {
    String = 0,
    Integer = 1,
    Real = 2,
    Object = 3,
    CompiledObject = 4,
    Array = 5,
    True = 6,
    False = 7,
    Null = 8,
  };
  static const char* const fTypeStrings[9];

  EJsonValueType Type() const { return static_cast<EJsonValueType>(fType & kTypeBits); }
  const char* TypeAsString() const { return fTypeStrings[fType & kTypeBits]; }

  // A new reference. The first one to a node of a document arena other than
  // its root tells the arena that the node is held from outside its tree
  // (see MjsonArena.h).
  void AddRef() const noexcept {
    const bool escaped = AddRefSeeingFlag();
    if ((fType & (kInArena | kArenaRoot)) == kInArena && !escaped) [[unlikely]]
      NoteEscape();
  }

  // Where the node's memory lives: in a document arena, or on its own.
  bool InArena() const { return (fType & kInArena) != 0; }

  // Compact JSON text of this value, appended to `out`.
  virtual void AppendToString(std::string& out) const;
  // Indented JSON text; scalars write their compact form.
  virtual void AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                    const std::string& newline, int depth) const;
  // MessagePack form in its shortest encoding.
  virtual void AppendToMsgPack(BigEndianWriter* writer) const;
  // The member or element named by `key`, without adding a reference.
  virtual JsonValue* GetSubNode(const std::string& key);

  void WriteToString(std::string& out) const;
  void WriteToStringPretty(std::string& out, const std::string& indentUnit,
                           const std::string& newline) const;
  bool WriteToMsgPack(std::string& out) const;

  // Conversions; the output is always written, failures zero it.
  bool GetAsString(std::string& out) const;
  std::string GetAsString() const;
  bool GetAsInteger(long long& out) const;
  long long GetAsInteger() const;
  bool GetAsReal(double& out) const;
  double GetAsReal() const;
  bool GetAsBool(bool& out) const;
  bool GetAsBool() const;

  // Deep copies; nothing is shared with the source.
  static JsonValue* CopyNoARefPtr(const JsonValue& value);
  static JsonAutoRefPtr<JsonValue> Copy(const JsonValue& value);
  // The same deep copy, for a caller that is about to change it in a place
  // or two and hand it on: a copy of some size keeps its one-step death
  // through those changes (see MjsonArena.h), and its root container has
  // room for a few more children.
  static JsonAutoRefPtr<JsonValue> CopyToChange(const JsonValue& value);

  // Text reading. `ctx` and `compiled` may be null.
  static JsonAutoRefPtr<JsonValue> ReadFromString(const std::string& text, ParserContext* ctx,
                                                  const JsonCompiledObjectContext* compiled);
  // MessagePack reading. `ctx` and `compiled` may be null.
  static JsonAutoRefPtr<JsonValue> ReadFromMsgPack(const std::string& data, ParserContext* ctx,
                                                   const JsonCompiledObjectContext* compiled);
  // Decodes one MessagePack value at `cur` and advances past it; null on failure.
  static JsonValue* ParseFromMsgPack(const char*& cur, const char* end, ParserContext& ctx,
                                     const JsonCompiledObjectContext* compiled);

  // Steps of the text parser, usable on their own. Each starts at
  // ctx.fPosition and leaves it after what it consumed.
  static void SkipBOM(const std::string& text, ParserContext& ctx);
  static void SkipWhitespace(const std::string& text, ParserContext& ctx);
  static JsonValue* Parse(const std::string& text, ParserContext& ctx,
                          const JsonCompiledObjectContext* compiled);
  static bool ParseString(const std::string& text, std::string& out, ParserContext& ctx);
  static JsonValue* ParseNumber(const std::string& text, ParserContext& ctx);

  // True when `s` is well-formed UTF-8 (the lenient form: overlong forms,
  // surrogates and values above U+10FFFF pass). `badPos` receives the
  // length on success, the offset of the offending lead byte otherwise.
  static bool IsUTF8(std::string_view s, size_t* badPos = nullptr);

  // Reports that object counting is not part of this build.
  static void PrintCounter();

  // Values come from a node allocator with per-thread caches: documents
  // are made of many small nodes, and the general-purpose heap spends more
  // time on them than the parser does.
  static void* operator new(size_t size);
  static void operator delete(void* p, size_t size) noexcept;

 protected:
  explicit JsonValue(EJsonValueType type) : fType(static_cast<uint8_t>(type)) {}
  // A copy has the type and the spare bits, but memory of its own.
  JsonValue(const JsonValue& other)
      : JsonUseCounted(other),
        fType(other.fType & kTypeBits),
        fAux8(other.fAux8),
        fAux16(other.fAux16) {}

  // Drops a container's reference to one of its children. A scalar owned
  // by the container alone is deleted on the spot: it has no children of
  // its own, so it needs no place in the queue that keeps freeing iterative.
  static void ReleaseChild(const JsonValue* v) noexcept;
  JsonValue& operator=(const JsonValue& other) {
    fType = static_cast<uint8_t>((fType & ~kTypeBits) | (other.fType & kTypeBits));
    fAux8 = other.fAux8;
    fAux16 = other.fAux16;
    return *this;
  }
  ~JsonValue() override = default;

  // A container of an arena's tree changes, from child position `from` on:
  // the arena must walk the tree when it dies, or record the change (see
  // MjsonArena.h). Containers call this before every change.
  void NoteChange(size_t from = 0) const {
    if (fType & kInArena) [[unlikely]]
      NoteArenaChange(from);
  }
  // The arena that a container about to grow its list takes the room
  // from, or null for the pool.
  mjson::detail::Arena* GrowthArena() const {
    return (fType & kInArena) ? RecordingArena() : nullptr;
  }

  void Dispose(mjson::detail::pool::PendingDeletes* pending) const noexcept override;

 private:
  friend class mjson::detail::Arena;
  // The type byte holds the type in its low bits and, above them, where the
  // node's memory lives: in an arena, and whether the node is the root of
  // its arena's tree. Both are set before anybody else sees the node.
  static constexpr uint8_t kTypeBits = 0x0F;
  static constexpr uint8_t kInArena = 0x10;
  static constexpr uint8_t kArenaRoot = 0x20;
  // A container whose change its arena has recorded.
  static constexpr uint8_t kNoted = 0x40;

  [[gnu::noinline]] void NoteEscape() const noexcept;
  [[gnu::noinline]] void NoteArenaChange(size_t from) const noexcept;
  mjson::detail::Arena* RecordingArena() const noexcept;

  // Declared first so that it and the spare bits below fill the tail of the
  // reference count's word: the whole header is two words.
  uint8_t fType;

 protected:
  // Spare bits of the node header, for subclasses whose own few flags would
  // otherwise cost a whole word per node.
  mutable uint8_t fAux8 = 0;
  mutable uint16_t fAux16 = 0;
};

bool operator==(const JsonValue& a, const JsonValue& b);
inline bool operator!=(const JsonValue& a, const JsonValue& b) {
  return !(a == b);
}

class JsonString final : public JsonValue {
 public:
  // Bytes that are not valid UTF-8 are never stored: the value becomes the
  // empty string and `*isValid` reports false. A caller that has already
  // validated the bytes passes `*isKnownUTF8` true to skip the check.
  JsonString(const std::string& s, bool* isKnownUTF8 = nullptr, bool* isValid = nullptr)
      : JsonString(std::string_view(s), isKnownUTF8, isValid) {}
  JsonString(std::string_view s, bool* isKnownUTF8 = nullptr, bool* isValid = nullptr);
  // Trusted bytes, no check; used where the bytes are already known to be valid.
  struct Trusted {};
  JsonString(std::string_view s, Trusted) : JsonValue(String), fValue(s) {}
  JsonString(mjson::detail::CompactString&& s, Trusted) : JsonValue(String), fValue(std::move(s)) {}
  // Built in place, a longer string kept in `arena` (when given).
  JsonString(const char* p, size_t n, mjson::detail::Arena* arena, Trusted)
      : JsonValue(String), fValue(p, n, arena) {}
  JsonString(const JsonString&) = default;
  // A copy, a longer string kept in `arena` (when given).
  JsonString(const JsonString& other, mjson::detail::Arena* arena)
      : JsonValue(String), fValue(other.fValue, arena) {}

  void Get(std::string& out) const { out.assign(fValue.Data(), fValue.Size()); }
  std::string Get() const { return fValue.Str(); }
  std::string_view Value() const { return fValue.View(); }
  bool IsEqual(const JsonString& other) const { return fValue == other.fValue; }

  void AppendToString(std::string& out) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;

 private:
  mjson::detail::CompactString fValue;
};

class JsonInteger final : public JsonValue {
 public:
  static constexpr long long sMinInt64 = INT64_MIN;
  static constexpr long long sMaxInt64 = INT64_MAX;
  static constexpr unsigned long long sMaxUInt64 = UINT64_MAX;
  static constexpr unsigned long long sMaxUInt64Div10 = UINT64_MAX / 10;

  explicit JsonInteger(long long v) : JsonValue(Integer), fValue(v) {}
  // The flag follows the value alone; the bool is accepted for callers that
  // state their intent and is otherwise ignored.
  JsonInteger(unsigned long long v, bool) : JsonValue(Integer), fValue(static_cast<long long>(v)) {
    fAux8 = v > static_cast<unsigned long long>(sMaxInt64);
  }
  JsonInteger(const JsonInteger&) = default;

  long long Get() const { return IsLargeUnsigned() ? 0 : fValue; }
  void Get(long long& out) const { out = Get(); }
  void Get(unsigned long long& out) const {
    out = IsLargeUnsigned() ? static_cast<unsigned long long>(fValue)
                            : (fValue < 0 ? 0 : static_cast<unsigned long long>(fValue));
  }
  bool IsLargeUnsigned() const { return fAux8 != 0; }
  // The stored 64-bit pattern, whatever its reading.
  long long RawValue() const { return fValue; }
  bool IsEqual(const JsonInteger& other) const {
    return fValue == other.fValue && IsLargeUnsigned() == other.IsLargeUnsigned();
  }

  void AppendToString(std::string& out) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;

 private:
  long long fValue;
};

class JsonReal final : public JsonValue {
 public:
  static constexpr double sMax = 1.7976931348623157e308;
  static constexpr double sLowest = -1.7976931348623157e308;
  static constexpr double sInfinity = __builtin_huge_val();

  // The shape of a short number text ([-]int[.frac][e|E[+|-]d], at most 19
  // digits in all): with its digits it gives the text back byte for byte,
  // so most lazily converted numbers need no string of their own.
  struct Shape {
    bool negative;
    uint8_t intDigits;  // 1..19
    bool hasFraction;
    uint8_t fracDigits;  // 0..17
    bool hasExponent;
    bool upperE;
    char exponentSign;  // 0, '+' or '-'
    uint8_t exponentDigit;
  };

  JsonReal(double v, int digits) : JsonValue(Real), fBits(0) { SetValue(v, digits); }
  // Keeps the source text and converts it on first read, so a number that is
  // only passed through is written back exactly as it was read.
  JsonReal(std::string&& text, int digits);
  // The same, with the text kept in `arena` when there is one.
  JsonReal(std::string_view text, int digits, mjson::detail::Arena* arena);
  JsonReal(uint64_t digitsValue, const Shape& shape, int digits);
  // The copy starts in the state the source is in now: pending text stays
  // pending, a settled value stays settled.
  JsonReal(const JsonReal& other) : JsonReal(other, nullptr) {}
  // A copy whose pending text, if any, is kept in `arena`. A settled real
  // (the common case in copies) changes no more: its words are copied as
  // they are.
  JsonReal(const JsonReal& other, mjson::detail::Arena* arena) : JsonValue(Real) {
    const uint8_t state = other.StateByte().load(std::memory_order_acquire);
    if ((state & kStateMask) == kSettled) [[likely]] {
      fAux8 = state;
      fAux16 = other.FormHigh().load(std::memory_order_relaxed);
      fBits = other.Bits().load(std::memory_order_relaxed);
      return;
    }
    CopyUnsettled(other, arena);
  }
  JsonReal& operator=(const JsonReal&) = delete;
  // The last owner is the only one left to look: no settle can be under way.
  ~JsonReal() override {
    if ((StateByte().load(std::memory_order_relaxed) & kStateMask) == kText && !InArena())
      DeleteText(Bits().load(std::memory_order_relaxed));
  }

  // The first read converts pending text; every reader on every thread sees
  // the text until then and the value afterwards (see Settle).
  double Get() const {
    uint8_t state = StateByte().load(std::memory_order_acquire);
    if ((state & kStateMask) != kSettled) [[unlikely]]
      return SettleAndGet();
    return BitsAsDouble(Bits().load(std::memory_order_relaxed));
  }
  void Get(double& out) const { out = Get(); }
  bool HasPendingText() const;
  int Digits() const;
  bool IsEqual(const JsonReal& other) const { return Get() == other.Get(); }

  // Decimal text to double. Out-of-range text is retried at long double
  // precision; what still does not fit a double becomes +infinity, text that
  // is not a number 0.0. Never throws.
  static double StrToDouble(const std::string& text);
  static double StrToDouble(const char* text, size_t length);

  // Shaped text (the common case of numbers read from text) is written by
  // the caller's own loop with one call; the rest out of line.
  void AppendToString(std::string& out) const override {
    const Form form = Load();
    if (form.State() == kShaped)
      AppendText(form, out);
    else
      AppendSettledOrText(form, out);
  }
  void AppendToMsgPack(BigEndianWriter* writer) const override;
  // For the text writers: what AppendToString appends, written at `p`,
  // which has room for kMaxRealText bytes; returns the end, or null
  // (writing nothing) for a source text longer than that.
  static constexpr size_t kMaxRealText = 1104;
  char* WriteText(char* p) const;

 private:
  // A real is settled (its value is a double), shaped (a short source text
  // kept as digits plus a shape) or text (a longer source text on the heap).
  // Busy marks the few stores that turn a shaped real into a settled one.
  enum : uint32_t { kSettled = 0, kShaped = 1, kText = 2, kBusy = 3, kStateMask = 3 };
  // The form word lives in the header's spare 24 bits: the state in the low
  // two, above them the digit count of a settled number or the shape of a
  // shaped one.
  struct Form {
    uint32_t word;  // state and shape or digit count
    uint64_t bits;  // the double, the shaped digits or the text's address
    uint32_t State() const { return word & kStateMask; }
  };
  // Digit counts above this are clamped: no double has more significant
  // decimal digits than that, so formatting with more changes nothing.
  static constexpr int kMaxDigits = (1 << 22) - 1;

  // Several threads may read one real at once, and reading settles it. The
  // header bytes and the bits are therefore only touched atomically; on the
  // usual processors these are plain loads and stores.
  std::atomic_ref<uint8_t> StateByte() const { return std::atomic_ref<uint8_t>(fAux8); }
  std::atomic_ref<uint16_t> FormHigh() const { return std::atomic_ref<uint16_t>(fAux16); }
  std::atomic_ref<uint64_t> Bits() const { return std::atomic_ref<uint64_t>(fBits); }
  static double BitsAsDouble(uint64_t bits) {
    double v;
    __builtin_memcpy(&v, &bits, sizeof v);
    return v;
  }
  // A consistent view of form and bits, waiting out a settle in progress.
  // Settled is the common state and final, so it needs no second look.
  // A real being read by nobody else, the usual case, costs four plain
  // loads; a settle in progress (the state busy, or changed under the
  // loads) is waited out by LoadPending.
  Form Load() const {
    const uint8_t state = StateByte().load(std::memory_order_acquire);
    const Form form{state | static_cast<uint32_t>(FormHigh().load(std::memory_order_acquire)) << 8,
                    Bits().load(std::memory_order_acquire)};
    if ((state & kStateMask) == kSettled) [[likely]]
      return form;
    if ((state & kStateMask) != kBusy && StateByte().load(std::memory_order_acquire) == state)
      return form;
    return LoadPending();
  }
  Form LoadPending() const;
  // Only for a real nobody else can see yet (construction).
  void SetValue(double v, int digits) {
    __builtin_memcpy(&fBits, &v, sizeof v);
    uint32_t clamped = static_cast<uint32_t>(digits < 0            ? 0
                                             : digits > kMaxDigits ? kMaxDigits
                                                                   : digits);
    SetFormUnshared(kSettled | (clamped << 2));
  }
  void SetFormUnshared(uint32_t form) {
    fAux8 = static_cast<uint8_t>(form);
    fAux16 = static_cast<uint16_t>(form >> 8);
  }
  [[gnu::noinline]] double SettleAndGet() const;
  void CopyText(const Form& form, mjson::detail::Arena* arena);
  [[gnu::noinline]] void CopyUnsettled(const JsonReal& other, mjson::detail::Arena* arena);
  void SetText(std::string_view text, int digits, mjson::detail::Arena* arena);
  static void DeleteText(uint64_t bits);
  static int DigitsOf(const Form& form);
  void AppendSettledOrText(const Form& form, std::string& out) const;
  // Appends the pending source text of `form`.
  static void AppendText(const Form& form, std::string& out);
  static char* WriteShaped(const Form& form, char* p);

  // The double's bits once settled; before that the shaped number's digits,
  // or the address of its heap text.
  mutable uint64_t fBits;
};

class JsonTrue final : public JsonValue {
 public:
  JsonTrue() : JsonValue(True) {}
  void AppendToString(std::string& out) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
};

class JsonFalse final : public JsonValue {
 public:
  JsonFalse() : JsonValue(False) {}
  void AppendToString(std::string& out) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
};

class JsonNull final : public JsonValue {
 public:
  JsonNull() : JsonValue(Null) {}
  void AppendToString(std::string& out) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
};

// A member position inside an object, for stepping over its members.
class ObjectStepper {
 public:
  bool AtEnd() const { return fIndex >= fEnd; }
  std::string Key() const;
  JsonAutoRefPtr<JsonValue> Value() const;
  ObjectStepper& operator++() {
    ++fIndex;
    return *this;
  }

 private:
  friend class JsonObject;
  ObjectStepper(const JsonObject* object, size_t end) : fObject(object), fIndex(0), fEnd(end) {}
  const JsonObject* fObject;
  size_t fIndex;
  size_t fEnd;
};

// A map from key to value. Members are kept in insertion order; a key that
// is set again keeps its place and takes the new value. That one order
// serves both for writing and for hash-order walks, so the two never
// disagree.
class JsonObject final : public JsonValue {
 public:
  struct Member {
    Member() = default;
    Member(mjson::detail::CompactString&& k, JsonValue* v) : key(std::move(k)), value(v) {}
    Member(const mjson::detail::CompactString& k, JsonValue* v) : key(k), value(v) {}
    // The key built in place: the parsers add members this way.
    Member(const char* k, size_t n) : key(k, n) {}
    Member(const char* k, size_t n, mjson::detail::Arena* arena) : key(k, n, arena) {}
    // A copy of `other`'s key (kept in `arena`, when given) with `v`.
    Member(const Member& other, mjson::detail::Arena* arena, JsonValue* v)
        : key(other.key, arena), value(v) {}

    mjson::detail::CompactString key;
    JsonValue* value = nullptr;  // owns one reference
  };
  using MemberList = mjson::detail::NodeList<Member>;

  explicit JsonObject(bool keepOrder);
  JsonObject(const JsonObject& other);
  JsonObject& operator=(const JsonObject& other);
  JsonObject& operator=(JsonObject&& other) noexcept;
  ~JsonObject() override;

  // Shared inserts; the key is checked for UTF-8 unless `keyIsUTF8`.
  bool InsertValue(const std::string& key, const JsonAutoRefPtr<JsonValue>& value, bool keyIsUTF8);
  bool InsertValue(std::string&& key, const JsonAutoRefPtr<JsonValue>& value, bool keyIsUTF8);
  bool InsertValue(const std::string& key, JsonAutoRefPtr<JsonValue>&& value, bool keyIsUTF8);
  bool InsertValue(std::string&& key, JsonAutoRefPtr<JsonValue>&& value, bool keyIsUTF8);
  // Deep-copying insert.
  bool InsertValue(const std::string& key, const JsonValue& value, bool keyIsUTF8);
  // No key check. A null value erases the key. Always true: the later
  // value of a repeated key wins.
  bool InsertValueWithNonUTF8Key(const std::string& key, const JsonAutoRefPtr<JsonValue>& value);
  bool InsertValueWithNonUTF8Key(std::string&& key, JsonAutoRefPtr<JsonValue>&& value);
  bool InsertValueWithNonUTF8Key(const std::string& key, const JsonValue& value);
  // Adopt the reference that `value` carries; it is released on failure.
  bool InsertValueInternal(const std::string& key, JsonValue* value, bool keyIsUTF8);
  bool InsertValueInternal(std::string&& key, JsonValue* value, bool keyIsUTF8);
  bool InsertValueWithNonUTF8KeyInternal(const std::string& key, JsonValue* value);
  bool InsertValueWithNonUTF8KeyInternal(std::string&& key, JsonValue* value);

  bool InsertString(const std::string& key, const std::string& value, bool keyIsUTF8 = false,
                    bool valueIsUTF8 = false);
  bool InsertString(std::string&& key, std::string&& value, bool keyIsUTF8 = false,
                    bool valueIsUTF8 = false);
  bool InsertInteger(const std::string& key, long long value, bool keyIsUTF8 = false);
  bool InsertInteger(const std::string& key, unsigned long long value, bool keyIsUTF8 = false);
  bool InsertInteger(const std::string& key, int value, bool keyIsUTF8 = false);
  bool InsertReal(const std::string& key, double value, bool keyIsUTF8 = false);
  bool InsertBool(const std::string& key, bool value, bool keyIsUTF8 = false);
  bool InsertNull(const std::string& key, bool keyIsUTF8 = false);

  bool Erase(const std::string& key);
  JsonAutoRefPtr<JsonValue> At(const std::string& key) const;
  bool HasKey(const std::string& key) const { return Find(key) != kNotFound; }
  // The member's value without a new reference, or null.
  const JsonValue* Peek(std::string_view key) const {
    size_t pos = Find(key);
    return pos == kNotFound ? nullptr : fMembers[pos].value;
  }
  size_t Size() const { return fMembers.size(); }
  bool Empty() const { return fMembers.empty(); }
  bool KeepsOrder() const { return fAux8 != 0; }

  std::string KeyValAsString(const std::string& key) const;
  long long KeyValAsInteger(const std::string& key) const;
  double KeyValAsReal(const std::string& key) const;
  bool KeyValAsBool(const std::string& key) const;
  JsonAutoRefPtr<JsonObject> KeyValAsObject(const std::string& key) const;
  JsonAutoRefPtr<JsonArray> KeyValAsArray(const std::string& key) const;

  void ForEach(const std::function<void(const std::string& key,
                                        const JsonAutoRefPtr<JsonValue>& value)>& fn) const;
  ObjectStepper StartTraversal() const { return ObjectStepper(this, fMembers.size()); }

  bool IsEqual(const JsonObject& other) const;

  // Direct, read-only access to the members in their order.
  const MemberList& Members() const { return fMembers; }

  void AppendToString(std::string& out) const override;
  void AppendToStringPretty(std::string& out, const std::string& indentUnit,
                            const std::string& newline, int depth) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
  JsonValue* GetSubNode(const std::string& key) override;

  static JsonAutoRefPtr<JsonObject> ReadFromString(const std::string& text, ParserContext* ctx);
  static JsonAutoRefPtr<JsonObject> ReadFromMsgPack(const std::string& data, ParserContext* ctx);
  static JsonValue* Parse(const std::string& text, ParserContext& ctx);
  static JsonValue* ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                     ParserContext& ctx);

  // Builds an object from parsed pairs in one go: reserves once, and a
  // repeated key replaces the earlier value in its place. Adopts the values.
  void AdoptMembers(Member* first, size_t count);
  // The same for an object being built in `arena`: the members' storage
  // and index come from the arena.
  void AdoptMembers(Member* first, size_t count, mjson::detail::Arena* arena);

 private:
  friend class ObjectStepper;
  friend class mjson::detail::Arena;
  friend class mjson::detail::TreeCopier;
  static constexpr size_t kNotFound = SIZE_MAX;
  size_t Find(std::string_view key) const;
  void Store(mjson::detail::CompactString&& key, JsonValue* value);  // adopts value, never null
  void EraseAt(size_t pos);
  void RebuildIndex();
  static uint32_t* NewIndex(uint32_t hash, size_t members, mjson::detail::Arena* arena,
                            bool side = false);
  // The index of `source`, whose copy this object's members are.
  void CopyIndex(const JsonObject& source, mjson::detail::Arena* arena);
  void RebuildIndex(uint32_t hash, mjson::detail::Arena* arena = nullptr);
  void Store(mjson::detail::CompactString&& key, JsonValue* value, mjson::detail::Arena* arena);
  void DropIndex();
  void ClearMembers();

  MemberList fMembers;
  // Open-addressing index over fMembers, for objects of more than a handful
  // of members: fIndex[0] is the slot mask, fIndex[1] the hash in use, and
  // the slots follow, holding a position + 1, 0 when free. Objects that
  // parsers build get theirs on their first lookup, which may come from
  // several reading threads at once: hence atomic, published once.
  mutable std::atomic<uint32_t*> fIndex{nullptr};
  uint32_t* Index() const { return fIndex.load(std::memory_order_relaxed); }  // changers only
  void SetIndex(uint32_t* index) { fIndex.store(index, std::memory_order_relaxed); }
  const uint32_t* LookupIndex() const;
  uint32_t* BuildIndex(uint32_t hash, mjson::detail::Arena* arena, bool side = false) const;
  static uint32_t* AllocateIndex(size_t words, mjson::detail::Arena* arena, bool side);
  static void* SideBlockOf(uint32_t* index);
  static void FreeIndex(uint32_t* index, bool side);
};

class JsonArray final : public JsonValue {
 public:
  static constexpr size_t npos = SIZE_MAX;

  JsonArray() : JsonValue(Array) {}
  JsonArray(const JsonArray& other);
  JsonArray& operator=(const JsonArray& other);
  ~JsonArray() override;

  void AddValue(const JsonAutoRefPtr<JsonValue>& value);
  void AddValue(JsonAutoRefPtr<JsonValue>&& value);
  void AddValue(const JsonValue& value);
  void AddValueInternal(JsonValue* value);
  void AddString(const std::string& s, bool* added = nullptr, bool isUTF8 = false);
  void AddString(std::string&& s, bool* added = nullptr, bool isUTF8 = false);
  void AddInteger(long long v);
  void AddReal(double v);
  void AddBool(bool v);
  void AddNull();

  void InsertValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value);
  void SetValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value);
  void SetValueAtIndexInternal(size_t index, JsonValue* value);
  void EraseAtIndex(size_t index);
  size_t Erase(size_t first, size_t count);

  JsonAutoRefPtr<JsonValue> AtIndex(size_t index) const;
  std::string AtIndexAsString(size_t index) const;
  long long AtIndexAsInteger(size_t index) const;
  double AtIndexAsReal(size_t index) const;
  bool AtIndexAsBool(size_t index) const;
  JsonAutoRefPtr<JsonObject> AtIndexAsObject(size_t index) const;
  JsonAutoRefPtr<JsonArray> AtIndexAsArray(size_t index) const;

  size_t Size() const { return fValues.size(); }
  bool Empty() const { return fValues.empty(); }
  const mjson::detail::JsonValueList& Values() const { return fValues; }

  void ForEach(
      const std::function<void(size_t index, const JsonAutoRefPtr<JsonValue>& value)>& fn) const;
  bool ForEachWithUserData(
      const std::function<void(size_t index, const JsonValue* value, void* userData, bool& ok,
                               std::string* error)>& fn,
      void* userData, std::string* errors) const;

  bool IsEqual(const JsonArray& other) const;

  void AppendToString(std::string& out) const override;
  void AppendToStringPretty(std::string& out, const std::string& indentUnit,
                            const std::string& newline, int depth) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
  JsonValue* GetSubNode(const std::string& key) override;

  static JsonAutoRefPtr<JsonArray> ReadFromString(const std::string& text, ParserContext* ctx,
                                                  const JsonCompiledObjectContext* compiled);
  static JsonAutoRefPtr<JsonArray> ReadFromMsgPack(const std::string& data, ParserContext* ctx,
                                                   const JsonCompiledObjectContext* compiled);
  static JsonValue* Parse(const std::string& text, ParserContext& ctx,
                          const JsonCompiledObjectContext* compiled);
  static JsonValue* ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                     ParserContext& ctx, const JsonCompiledObjectContext* compiled);

  // Takes over parsed elements in one go. Adopts the values.
  void AdoptValues(JsonValue* const* first, size_t count);
  // The same for an empty array being built in `arena`, with the list's
  // storage from the arena.
  void AdoptValues(JsonValue* const* first, size_t count, mjson::detail::Arena* arena);

 private:
  friend class mjson::detail::Arena;
  friend class mjson::detail::TreeCopier;
  void Append(JsonValue* value);  // adopts, never null
  mjson::detail::JsonValueList fValues;
};

// The shared key table of compiled objects.
class JsonCompiledObjectContext {
 public:
  static constexpr size_t sMaxIndex = SIZE_MAX;

  // Key flags.
  static constexpr unsigned short kArrayMask = 0x00F0;
  static constexpr unsigned short kPlainObject = 0x0100;
  static constexpr unsigned short kCompiledObject = 0x0200;
  static constexpr unsigned short kRequired = 0x0400;

  size_t AddKey(const std::string& key, unsigned short flags, JsonCompiledObjectContext* sub);
  size_t GetIndexForKey(const std::string& key) const;
  size_t KeyCount() const { return fKeys.size(); }
  const std::string& Key(size_t index) const { return fKeys[index]; }
  unsigned short KeyFlags(size_t index) const { return fKeyFlags[index]; }
  const JsonCompiledObjectContext* SubContext(size_t index) const { return fSubContexts[index]; }

 private:
  std::vector<std::string> fKeys;
  std::unordered_map<std::string, size_t> fIndexOfKey;
  std::vector<unsigned short> fKeyFlags;
  std::vector<JsonCompiledObjectContext*> fSubContexts;
};

// An object whose keys are slots of a JsonCompiledObjectContext.
class JsonCompiledObject final : public JsonValue {
 public:
  explicit JsonCompiledObject(const JsonCompiledObjectContext* context);
  // One being built in `arena`, with its slots' storage from the arena.
  JsonCompiledObject(const JsonCompiledObjectContext* context, mjson::detail::Arena* arena);
  JsonCompiledObject(const JsonCompiledObject& other);
  JsonCompiledObject& operator=(const JsonCompiledObject& other);
  ~JsonCompiledObject() override;

  bool InsertValue(size_t index, const JsonAutoRefPtr<JsonValue>& value);
  bool InsertValue(size_t index, const JsonValue& value);
  bool InsertValueInternal(size_t index, JsonValue* value);
  bool InsertString(size_t index, const std::string& value);
  bool InsertInteger(size_t index, long long value);
  bool InsertInteger(size_t index, unsigned long long value);
  bool InsertReal(size_t index, double value);
  bool InsertBool(size_t index, bool value);
  bool InsertNull(size_t index);

  JsonAutoRefPtr<JsonValue> At(size_t index) const;
  JsonAutoRefPtr<JsonValue> At(const std::string& key) const;
  bool Erase(size_t index);
  bool Erase(const std::string& key);
  bool HasKey(const std::string& key) const;
  bool HasKey(size_t index) const { return index < fSlots.size() && fSlots[index] != nullptr; }
  std::string KeyName(size_t index) const;

  std::string KeyValAsString(size_t index) const;
  long long KeyValAsInteger(size_t index) const;
  double KeyValAsReal(size_t index) const;
  bool KeyValAsBool(size_t index) const;
  JsonAutoRefPtr<JsonObject> KeyValAsObject(size_t index) const;
  JsonAutoRefPtr<JsonCompiledObject> KeyValAsCompObject(size_t index) const;
  JsonAutoRefPtr<JsonArray> KeyValAsArray(size_t index) const;

  bool Completed() const;
  size_t Size() const { return fCountFilled; }
  bool Empty() const { return fCountFilled == 0; }
  size_t SlotCount() const { return fSlots.size(); }
  const JsonCompiledObjectContext* Context() const { return fContext; }
  const mjson::detail::JsonValueList& Slots() const { return fSlots; }

  void ForEach(
      const std::function<void(size_t index, const JsonAutoRefPtr<JsonValue>& value)>& fn) const;
  bool IsEqual(const JsonCompiledObject& other) const;

  void AppendToString(std::string& out) const override;
  void AppendToStringPretty(std::string& out, const std::string& indentUnit,
                            const std::string& newline, int depth) const override;
  void AppendToMsgPack(BigEndianWriter* writer) const override;
  JsonValue* GetSubNode(const std::string& key) override;

  static JsonAutoRefPtr<JsonCompiledObject> ReadFromString(
      const std::string& text, const JsonCompiledObjectContext* compiled, ParserContext* ctx);
  static JsonAutoRefPtr<JsonCompiledObject> ReadFromMsgPack(
      const std::string& data, const JsonCompiledObjectContext* compiled, ParserContext* ctx);
  static JsonValue* Parse(const std::string& text, ParserContext& ctx,
                          const JsonCompiledObjectContext* compiled);
  static JsonValue* ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                     ParserContext& ctx, const JsonCompiledObjectContext* compiled);

 private:
  friend class mjson::detail::Arena;
  friend class mjson::detail::TreeCopier;
  const JsonCompiledObjectContext* fContext;
  size_t fCountFilled;
  mjson::detail::JsonValueList fSlots;
};

// Conveniences of this library of its own, beyond the classes above.
namespace mjson {

// A fresh value of `type` that holds nothing: the empty string, 0, 0.0, an
// object that keeps no order, an empty array, true, false; null for Null
// and for CompiledObject, which has no key table to be made with.
JsonValue* NewEmptyValue(JsonValue::EJsonValueType type);

// The member `key` of an object, or of a compiled object through its key
// table, without a new reference; null when there is no such member or
// `container` is neither.
JsonValue* MemberOf(const JsonValue& container, const std::string& key);

// Member or element count of a container; 0 for every other value.
size_t ContainerSize(const JsonValue& value);
// True for no value at all, null, the empty string and empty containers;
// numbers and booleans are never empty.
bool IsEmptyValue(const JsonValue* value);

}  // namespace mjson

// A new reference to `value` when it has the named type, else null.
JsonAutoRefPtr<JsonObject> ConvertToObject(const JsonAutoRefPtr<JsonValue>& value);
JsonAutoRefPtr<JsonArray> ConvertToArray(const JsonAutoRefPtr<JsonValue>& value);
JsonAutoRefPtr<JsonCompiledObject> ConvertToCompiledObject(const JsonAutoRefPtr<JsonValue>& value);

// Text helpers shared by the writer and the parser.
void AppendQuotedString(const std::string& s, std::string& out);
void AppendQuotedString(std::string_view s, std::string& out);
void PrettyPrintStartNewLine(std::string& out, const std::string& indentUnit,
                             const std::string& newline, int depth);
void AppendUnicodeAsUTF8(std::string& out, unsigned int codePoint);
bool IsHexDigit(char c, unsigned char& value);
bool Parse4HexDigits(const std::string& text, ParserContext& ctx, unsigned short& code);

// Decodes the MessagePack string whose type byte `code` was consumed.
bool ParseStringFromMsgPack(unsigned char code, const char*& cur, const char* end,
                            ParserContext& ctx, std::string& out);

// The growable byte sink of the MessagePack writer: output goes into a chain
// of heap blocks whose sizes double, every reservation is contiguous, and
// Finish copies everything into the caller's string with one reservation.
class BigEndianWriter {
 public:
  explicit BigEndianWriter(std::string* str);
  ~BigEndianWriter();
  BigEndianWriter(const BigEndianWriter&) = delete;
  BigEndianWriter& operator=(const BigEndianWriter&) = delete;

  template <class T>
  T* Add(size_t n) {
    char* p = fPosition;
    if (static_cast<size_t>(fEnd - p) < n) [[unlikely]] {
      GrowBuffer(n);
      p = fPosition;
    }
    fPosition = p + n;
    return reinterpret_cast<T*>(p);
  }
  void AppendBytes(const char* p, size_t n);
  void GrowBuffer(size_t needed);

  template <class T>
  void AddTypeWithCode(unsigned char code, T value) {
    char* p = Add<char>(1 + sizeof(T));
    p[0] = static_cast<char>(code);
    __builtin_memcpy(p + 1, &value, sizeof(T));
  }
  void Write8(unsigned char b) { *Add<unsigned char>(1) = b; }
  void Write8_8(unsigned char code, unsigned char b) {
    unsigned char* p = Add<unsigned char>(2);
    p[0] = code;
    p[1] = b;
  }
  void Write8_16(unsigned char code, unsigned short v) {
    AddTypeWithCode<unsigned short>(code, BigEndian16(v));
  }
  void Write8_32(unsigned char code, unsigned int v) {
    AddTypeWithCode<unsigned int>(code, BigEndian32(v));
  }
  void Write8_64(unsigned char code, unsigned long long v) {
    AddTypeWithCode<unsigned long long>(code, BigEndian64(v));
  }
  void AddString(const std::string& s);
  void AddString(std::string_view s);
  void SetError() { fOk = false; }
  bool Ok() const { return fOk; }
  bool Finish();

 private:
  std::string* fOut;
  std::vector<std::pair<char*, size_t>> fRetired;
  char* fPosition;
  char* fEnd;
  char* fStart;
  uint64_t fBufferSize;
  uint64_t fRetiredTotal;
  bool fOk;
};
