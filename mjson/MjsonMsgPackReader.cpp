// Reading MessagePack: a cursor over a byte range, failures reported
// through ParserContext like the text parser's, containers on an explicit
// stack on the heap so that depth costs memory, never call stack.
#include <string.h>

#include <bit>
#include <type_traits>

#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonScratch.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// Reading

namespace {

using namespace mjson::detail::msgpack;

inline uint8_t Byte(const char* p) {
  return static_cast<uint8_t>(*p);
}

// The big-endian number of sizeof(T) bytes at `p`, as a T.
template <class T>
inline T LoadBig(const char* p) {
  if constexpr (sizeof(T) == 1) {
    return std::bit_cast<T>(Byte(p));
  } else if constexpr (sizeof(T) == 2) {
    uint16_t v;
    memcpy(&v, p, 2);
    return std::bit_cast<T>(BigEndian16(v));
  } else if constexpr (sizeof(T) == 4) {
    uint32_t v;
    memcpy(&v, p, 4);
    return std::bit_cast<T>(BigEndian32(v));
  } else {
    uint64_t v;
    memcpy(&v, p, 8);
    return std::bit_cast<T>(BigEndian64(v));
  }
}

inline void Fail(ParserContext& ctx, const char* message) {
  ctx.fError = message;
}

// Keys and short strings are mostly plain ASCII; those need no call.
inline bool IsUTF8(const char* p, size_t n) {
  if (n <= 16) {
    unsigned char high = 0;
    for (size_t i = 0; i < n; ++i) high |= static_cast<unsigned char>(p[i]);
    if (high < 0x80) return true;
  }
  return JsonValue::IsUTF8(std::string_view(p, n));
}

// Reads a length field of sizeof(T) bytes at `cur` and moves past it.
template <class T>
inline bool TakeLength(const char*& cur, const char* end, ParserContext& ctx, size_t& length) {
  if (static_cast<size_t>(end - cur) < sizeof(T)) {
    Fail(ctx, "unexpected end of input");
    return false;
  }
  length = LoadBig<T>(cur);
  cur += sizeof(T);
  return true;
}

// Locates the bytes of the string whose type byte `code` was consumed and
// moves `cur` past them. No UTF-8 check.
inline bool StringSpan(unsigned char code, const char*& cur, const char* end, ParserContext& ctx,
                       const char*& bytes, size_t& length) {
  bool ok;
  if (code >= kFixStr && code < kNil) {
    length = code & kFixStrLengthMask;
    ok = true;
  } else if (code == kStr8) {
    ok = TakeLength<uint8_t>(cur, end, ctx, length);
  } else if (code == kStr16) {
    ok = TakeLength<uint16_t>(cur, end, ctx, length);
  } else if (code == kStr32) {
    ok = TakeLength<uint32_t>(cur, end, ctx, length);
  } else {
    Fail(ctx, "string expected");
    return false;
  }
  if (!ok) return false;
  if (static_cast<size_t>(end - cur) < length) {
    Fail(ctx, "unexpected end of input");
    return false;
  }
  bytes = cur;
  cur += length;
  return true;
}

// The bits of a compiled-object key's flags that admit a value of a type:
// strings, numbers, booleans, null, then the container flags of the table.
constexpr unsigned kStringBit = 0x0001;
constexpr unsigned kNumberBit = 0x0002;
constexpr unsigned kBooleanBit = 0x0004;
constexpr unsigned kNullBit = 0x0008;

inline unsigned TypeBit(JsonValue::EJsonValueType t) {
  switch (t) {
    case JsonValue::String:
      return kStringBit;
    case JsonValue::Integer:
    case JsonValue::Real:
      return kNumberBit;
    case JsonValue::True:
    case JsonValue::False:
      return kBooleanBit;
    case JsonValue::Null:
      return kNullBit;
    case JsonValue::Array:
      return JsonCompiledObjectContext::kArrayMask;
    case JsonValue::Object:
      return JsonCompiledObjectContext::kPlainObject;
    case JsonValue::CompiledObject:
      return JsonCompiledObjectContext::kCompiledObject;
  }
  return 0;
}

// Decodes one value and everything below it. Open containers are frames on
// a heap stack. Their children wait on two scratch stacks shared by all
// levels (elements, and key/value pairs) and move into the container in one
// piece when it is complete, so a container costs one allocation for its
// storage however it was announced; a header's count is trusted for nothing
// but the number of children to read. Compiled objects are filled in place.
class MsgPackReader {
 public:
  MsgPackReader(const char* cur, const char* end, ParserContext& ctx)
      : fCur(cur), fEnd(end), fCtx(ctx), fKeepOrder(ctx.fKeepObjectOrder) {}

  ~MsgPackReader() {
    ReleaseLeftovers();
    if (fArena) fArena->Discard();  // a read cut short by an exception
  }

  const char* Cursor() const { return fCur; }

  // One complete value at the cursor.
  JsonValue* ReadValue(const JsonCompiledObjectContext* table) {
    Open();
    return Seal(Finish(Begin(table)));
  }

  // The `count` children of a container whose header was consumed.
  JsonValue* ReadArray(size_t count, const JsonCompiledObjectContext* table) {
    Open();
    return Seal(Finish(OpenArray(count, table)));
  }
  JsonValue* ReadObject(size_t count) {
    Open();
    return Seal(Finish(OpenMap(count, nullptr)));
  }
  JsonValue* ReadCompiled(size_t count, const JsonCompiledObjectContext* table) {
    Open();
    return Seal(Finish(OpenCompiled(count, table)));
  }

 private:
  enum Kind : uint8_t { kArray, kObject, kCompiled };
  struct Frame {
    const JsonCompiledObjectContext* table;  // array: for its elements; compiled: its keys
    JsonCompiledObject* compiled;            // compiled: the object being filled
    const char* valueStart;                  // compiled: where the pending value began
    size_t base;                             // first scratch entry; compiled: pending slot
    size_t remaining;                        // children still to read
    Kind kind;
    bool dropValue;  // the pending value is not kept
    uint16_t mask;   // compiled: type flags of the pending slot
  };

  // What starting a value gave: a finished value (a scalar or an empty
  // container), or a container frame pushed to be filled, or neither: a
  // failure, with the error set.
  struct Began {
    JsonValue* value;
    bool opened;
  };
  static Began Done(JsonValue* value) { return {value, false}; }
  Began Opened(const Frame& f) {
    if (fFrames.empty()) fFrames.reserve(16);
    fFrames.push_back(f);
    return {nullptr, true};
  }
  JsonValue* Finish(Began began) { return began.opened ? Run() : began.value; }

  // The document is read into an arena of its own unless the input is short.
  void Open() { fArena = mjson::detail::Arena::ForInput(static_cast<size_t>(fEnd - fCur)); }
  JsonValue* Seal(JsonValue* value) {
    if (fArena) {
      if (!value) ReleaseLeftovers();  // before their memory goes
      fArena->Finish(value);
      fArena = nullptr;
    }
    return value;
  }
  // What a failed read leaves half built.
  void ReleaseLeftovers() {
    for (JsonObject::Member& m : fPairs)
      if (m.value) m.value->Release();
    fPairs.clear();
    for (JsonValue* v : fValues) v->Release();
    fValues.clear();
    for (Frame& f : fFrames)
      if (f.compiled) f.compiled->Release();
    fFrames.clear();
  }
  template <class T, class... Args>
  T* Make(Args&&... args) {
    return mjson::detail::MakeNode<T>(fArena, std::forward<Args>(args)...);
  }

  Began Begin(const JsonCompiledObjectContext* table);
  [[gnu::always_inline]] JsonValue* ReadScalar();
  // Each gives an empty container at once, or pushes its frame.
  Began OpenArray(size_t count, const JsonCompiledObjectContext* table);
  Began OpenMap(size_t count, const JsonCompiledObjectContext* table);
  Began OpenCompiled(size_t count, const JsonCompiledObjectContext* table);
  // A container header's count field of sizeof(T) bytes, then the container.
  template <class T>
  Began OpenSized(bool isArray, const JsonCompiledObjectContext* table) {
    if (static_cast<size_t>(fEnd - fCur) < sizeof(T)) return Done(Truncated());
    const size_t count = LoadBig<T>(fCur);
    fCur += sizeof(T);
    return isArray ? OpenArray(count, table) : OpenMap(count, table);
  }
  // Fixed-width scalars: the value's bytes follow the type code.
  template <class T>
  JsonValue* ReadInteger() {
    if (static_cast<size_t>(fEnd - fCur) < sizeof(T)) return Truncated();
    const T v = LoadBig<T>(fCur);
    fCur += sizeof(T);
    if constexpr (std::is_same_v<T, uint64_t>)  // large ones are flagged unsigned
      return Make<JsonInteger>(static_cast<unsigned long long>(v), true);
    else
      return Make<JsonInteger>(static_cast<long long>(v));
  }
  template <class T>
  JsonValue* ReadReal() {
    if (static_cast<size_t>(fEnd - fCur) < sizeof(T)) return Truncated();
    const T v = LoadBig<T>(fCur);
    fCur += sizeof(T);
    return Make<JsonReal>(static_cast<double>(v), 0);
  }
  JsonValue* ReadString(unsigned char code) {
    const char* bytes;
    size_t n;
    if (!StringSpan(code, fCur, fEnd, fCtx, bytes, n)) return nullptr;
    return MakeString(bytes, n);
  }
  JsonValue* Run();
  bool Attach(JsonValue* value);
  JsonValue* Close();
  bool ReadKey(const char*& bytes, size_t& length);
  JsonValue* Unsupported() {
    --fCur;  // the position names the refused type byte
    Fail(fCtx, "unsupported MsgPack type code");
    return nullptr;
  }
  // A string value; bytes that are not UTF-8 give the empty string unless
  // the caller vouches for its input.
  JsonValue* MakeString(const char* p, size_t n) {
    if (!fCtx.fNoUTF8Check && !IsUTF8(p, n)) n = 0;
    return Make<JsonString>(p, n, fArena, JsonString::Trusted{});
  }
  JsonValue* Truncated() {
    Fail(fCtx, "unexpected end of input");
    return nullptr;
  }

  const char* fCur;
  const char* const fEnd;
  ParserContext& fCtx;
  const bool fKeepOrder;
  mjson::detail::Scratch<Frame, mjson::detail::ScratchUse::kMsgPackFrames> fFramesScratch;
  std::vector<Frame>& fFrames = fFramesScratch.Get();
  mjson::detail::Scratch<JsonValue*, mjson::detail::ScratchUse::kMsgPackValues> fValuesScratch;
  std::vector<JsonValue*>& fValues = fValuesScratch.Get();
  mjson::detail::Scratch<JsonObject::Member, mjson::detail::ScratchUse::kMsgPackPairs>
      fPairsScratch;
  std::vector<JsonObject::Member>& fPairs = fPairsScratch.Get();
  std::string fKey;
  mjson::detail::Arena* fArena = nullptr;
};

MsgPackReader::Began MsgPackReader::OpenArray(size_t count,
                                              const JsonCompiledObjectContext* table) {
  if (count == 0) return Done(Make<JsonArray>());
  // Short arrays are mostly all scalars (points, pairs, small lists): read
  // them straight into their storage. A frame opens only at the first
  // container element, taking over the elements read so far.
  constexpr size_t kLeafRun = 16;
  size_t base = fValues.size();
  if (count <= kLeafRun) {
    JsonValue* run[kLeafRun];
    size_t k = 0;
    for (; k < count; ++k) {
      JsonValue* v;
      if (fCur >= fEnd) {
        v = Truncated();
      } else {
        if (IsContainerCode(Byte(fCur))) break;
        v = ReadScalar();
      }
      if (!v) {
        for (size_t i = 0; i < k; ++i) run[i]->Release();
        return Done(nullptr);
      }
      run[k] = v;
    }
    if (k == count) {
      auto* array = Make<JsonArray>();
      array->AdoptValues(run, count, fArena);
      return Done(array);
    }
    fValues.insert(fValues.end(), run, run + k);
    count -= k;
  }
  return Opened({table, nullptr, nullptr, base, count, kArray, false, 0});
}

// Maps read against a key table become compiled objects, others plain ones.
MsgPackReader::Began MsgPackReader::OpenMap(size_t count, const JsonCompiledObjectContext* table) {
  if (table) return OpenCompiled(count, table);
  if (count == 0) return Done(Make<JsonObject>(fKeepOrder));
  return Opened({nullptr, nullptr, nullptr, fPairs.size(), count, kObject, false, 0});
}

MsgPackReader::Began MsgPackReader::OpenCompiled(size_t count,
                                                 const JsonCompiledObjectContext* table) {
  auto* object = Make<JsonCompiledObject>(table, fArena);
  if (count == 0) return Done(object);
  return Opened({table, object, nullptr, 0, count, kCompiled, false, 0});
}

// Reads the type byte at the cursor and what it announces.
MsgPackReader::Began MsgPackReader::Begin(const JsonCompiledObjectContext* table) {
  if (fCur >= fEnd) return Done(Truncated());
  const unsigned char code = Byte(fCur);
  if (!IsContainerCode(code)) return Done(ReadScalar());
  ++fCur;
  if (code < kFixArray) return OpenMap(code & kFixCountMask, table);
  if (code < kFixStr) return OpenArray(code & kFixCountMask, table);
  switch (code) {
    case kArray16:
      return OpenSized<uint16_t>(true, table);
    case kMap16:
      return OpenSized<uint16_t>(false, table);
    case kArray32:
      return OpenSized<uint32_t>(true, table);
    default:  // kMap32
      return OpenSized<uint32_t>(false, table);
  }
}

// A value whose type byte, at the cursor, is no container's.
inline JsonValue* MsgPackReader::ReadScalar() {
  const unsigned char code = Byte(fCur++);
  if (code < kFixMap) return Make<JsonInteger>(static_cast<long long>(code));
  if (code >= kNegativeFixInt)
    return Make<JsonInteger>(static_cast<long long>(static_cast<int8_t>(code)));
  if (code >= kFixStr && code < kNil) {  // fixstr, the form of most strings
    const size_t n = code & kFixStrLengthMask;
    if (static_cast<size_t>(fEnd - fCur) < n) return Truncated();
    JsonValue* s = MakeString(fCur, n);
    fCur += n;
    return s;
  }
  switch (code) {
    case kNil:
      return Make<JsonNull>();
    case kFalse:
      return Make<JsonFalse>();
    case kTrue:
      return Make<JsonTrue>();
    case kFloat32:
      return ReadReal<float>();
    case kFloat64:
      return ReadReal<double>();
    case kUInt8:
      return ReadInteger<uint8_t>();
    case kUInt16:
      return ReadInteger<uint16_t>();
    case kUInt32:
      return ReadInteger<uint32_t>();
    case kUInt64:
      return ReadInteger<uint64_t>();
    case kInt8:
      return ReadInteger<int8_t>();
    case kInt16:
      return ReadInteger<int16_t>();
    case kInt32:
      return ReadInteger<int32_t>();
    case kInt64:
      return ReadInteger<int64_t>();
    case kStr8:
    case kStr16:
    case kStr32:
      return ReadString(code);
    default:  // C1, bin, ext and fixext
      return Unsupported();
  }
}

// A map key. At the very end of the input the key's type byte is taken to
// be the zero byte that terminates a std::string, which is not a string
// code: the result is "string expected" with the cursor one past the end.
// That byte is never actually read, so other buffers behave the same.
bool MsgPackReader::ReadKey(const char*& bytes, size_t& length) {
  if (fCur >= fEnd) {
    fCur = fEnd + 1;
    Fail(fCtx, "string expected");
    return false;
  }
  unsigned char code = Byte(fCur++);
  if (code >= kFixStr && code < kNil) [[likely]] {
    length = code & kFixStrLengthMask;
    if (static_cast<size_t>(fEnd - fCur) < length) {
      Fail(fCtx, "unexpected end of input");
      return false;
    }
    bytes = fCur;
    fCur += length;
    return true;
  }
  return StringSpan(code, fCur, fEnd, fCtx, bytes, length);
}

// Hands a finished value to the top frame. False on failure (the value is
// released).
bool MsgPackReader::Attach(JsonValue* value) {
  Frame& f = fFrames.back();
  switch (f.kind) {
    case kArray:
      fValues.push_back(value);
      return true;
    case kObject:
      if (f.dropValue) {
        // A key that is not UTF-8 cannot be stored; the member is dropped,
        // or refused when the caller wants every member kept.
        value->Release();
        if (fCtx.fFailOnDuplicateKey) {
          Fail(fCtx, "duplicate key");
          return false;
        }
        return true;
      }
      fPairs.back().value = value;
      return true;
    case kCompiled:
      if (f.dropValue) {  // a key the table does not know
        value->Release();
        return true;
      }
      if (f.mask && !(TypeBit(value->Type()) & f.mask)) {
        value->Release();
        fCur = f.valueStart;
        Fail(fCtx, "value is not of expected type");
        return false;
      }
      if (!f.compiled->InsertValueInternal(f.base, value) && fCtx.fFailOnDuplicateKey) {
        fCur = f.valueStart;
        Fail(fCtx, "duplicate key");
        return false;
      }
      return true;
  }
  return true;
}

// Builds the top frame's container from its children and pops it.
JsonValue* MsgPackReader::Close() {
  Frame& f = fFrames.back();
  JsonValue* done;
  switch (f.kind) {
    case kArray: {
      auto* array = Make<JsonArray>();
      array->AdoptValues(fValues.data() + f.base, fValues.size() - f.base, fArena);
      fValues.resize(f.base);
      done = array;
      break;
    }
    case kObject: {
      auto* object = Make<JsonObject>(fKeepOrder);
      object->AdoptMembers(fPairs.data() + f.base, fPairs.size() - f.base, fArena);
      fPairs.resize(f.base);
      done = object;
      break;
    }
    default:
      done = f.compiled;
      f.compiled = nullptr;
      break;
  }
  fFrames.pop_back();
  return done;
}

JsonValue* MsgPackReader::Run() {
  JsonValue* value = nullptr;
  for (;;) {
    // Hand finished values up until one is needed again.
    while (value) {
      if (fFrames.empty()) return value;
      if (!Attach(value)) return nullptr;
      value = nullptr;
    }
    Frame& f = fFrames.back();
    if (f.remaining == 0) {
      value = Close();
      continue;
    }
    --f.remaining;
    const JsonCompiledObjectContext* table = nullptr;
    if (f.kind == kArray) {
      table = f.table;
    } else {
      const char* key;
      size_t keyLength;
      if (!ReadKey(key, keyLength)) return nullptr;
      if (f.kind == kObject) {
        f.dropValue = !IsUTF8(key, keyLength);
        if (!f.dropValue) {
          fPairs.emplace_back(key, keyLength, fArena);
        }
      } else {
        fKey.assign(key, keyLength);
        size_t slot =
            f.table ? f.table->GetIndexForKey(fKey) : JsonCompiledObjectContext::sMaxIndex;
        f.dropValue = slot >= f.compiled->SlotCount();
        if (!f.dropValue) {
          f.base = slot;
          f.mask = f.table->KeyFlags(slot);
          f.valueStart = fCur;
          table = f.table->SubContext(slot);
        }
      }
    }
    const Began began = Begin(table);
    if (!began.value && !began.opened) return nullptr;
    value = began.value;
  }
}

}  // namespace

bool ParseStringFromMsgPack(unsigned char code, const char*& cur, const char* end,
                            ParserContext& ctx, std::string& out) {
  const char* bytes;
  size_t length;
  if (!StringSpan(code, cur, end, ctx, bytes, length)) return false;
  out.assign(bytes, length);
  return true;
}

JsonValue* JsonValue::ParseFromMsgPack(const char*& cur, const char* end, ParserContext& ctx,
                                       const JsonCompiledObjectContext* compiled) {
  MsgPackReader reader(cur, end, ctx);
  JsonValue* v = reader.ReadValue(compiled);
  cur = reader.Cursor();
  return v;
}

JsonValue* JsonObject::ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                        ParserContext& ctx) {
  MsgPackReader reader(cur, end, ctx);
  JsonValue* v = reader.ReadObject(count);
  cur = reader.Cursor();
  return v;
}

JsonValue* JsonArray::ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                       ParserContext& ctx,
                                       const JsonCompiledObjectContext* compiled) {
  MsgPackReader reader(cur, end, ctx);
  JsonValue* v = reader.ReadArray(count, compiled);
  cur = reader.Cursor();
  return v;
}

JsonValue* JsonCompiledObject::ParseFromMsgPack(const char*& cur, const char* end, size_t count,
                                                ParserContext& ctx,
                                                const JsonCompiledObjectContext* compiled) {
  MsgPackReader reader(cur, end, ctx);
  JsonValue* v = reader.ReadCompiled(count, compiled);
  cur = reader.Cursor();
  return v;
}

JsonAutoRefPtr<JsonValue> JsonValue::ReadFromMsgPack(const std::string& data, ParserContext* ctx,
                                                     const JsonCompiledObjectContext* compiled) {
  ParserContext local;
  if (ctx)
    ctx->Reset();
  else
    ctx = &local;
  if (data.empty()) {
    ctx->fError = "empty input";
    return {};
  }
  const char* start = data.data();
  const char* cur = start + ctx->fPosition;
  JsonValue* v = ParseFromMsgPack(cur, start + data.size(), *ctx, compiled);
  ctx->fPosition = static_cast<size_t>(cur - start);
  // Blanks after the value are tolerated, as after JSON text.
  return mjson::detail::FinishRead(data, *ctx, JsonAutoRefPtr<JsonValue>(v));
}

JsonAutoRefPtr<JsonObject> JsonObject::ReadFromMsgPack(const std::string& data,
                                                       ParserContext* ctx) {
  return ConvertToObject(JsonValue::ReadFromMsgPack(data, ctx, nullptr));
}

JsonAutoRefPtr<JsonArray> JsonArray::ReadFromMsgPack(const std::string& data, ParserContext* ctx,
                                                     const JsonCompiledObjectContext* compiled) {
  return ConvertToArray(JsonValue::ReadFromMsgPack(data, ctx, compiled));
}

JsonAutoRefPtr<JsonCompiledObject> JsonCompiledObject::ReadFromMsgPack(
    const std::string& data, const JsonCompiledObjectContext* compiled, ParserContext* ctx) {
  return ConvertToCompiledObject(JsonValue::ReadFromMsgPack(data, ctx, compiled));
}
