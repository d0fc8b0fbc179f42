// Reading MessagePack: a cursor over a byte range, failures reported
// through ParserContext like the text parser's, containers on an explicit
// stack on the heap so that depth costs memory, never call stack.
#include <string.h>

#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonScratch.h"

// ---------------------------------------------------------------------------
// Reading

namespace {

inline uint8_t Byte(const char* p) { return static_cast<uint8_t>(*p); }
inline uint16_t Load16(const char* p) {
  uint16_t v;
  memcpy(&v, p, 2);
  return BigEndian16(v);
}
inline uint32_t Load32(const char* p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return BigEndian32(v);
}
inline uint64_t Load64(const char* p) {
  uint64_t v;
  memcpy(&v, p, 8);
  return BigEndian64(v);
}

inline void Fail(ParserContext& ctx, const char* message) { ctx.fError = message; }

// Keys and short strings are mostly plain ASCII; those need no call.
inline bool IsUTF8(const char* p, size_t n) {
  if (n <= 16) {
    unsigned char high = 0;
    for (size_t i = 0; i < n; ++i) high |= static_cast<unsigned char>(p[i]);
    if (high < 0x80) return true;
  }
  return JsonValue::IsUTF8(std::string_view(p, n));
}

// Locates the bytes of the string whose type byte `code` was consumed and
// moves `cur` past them. No UTF-8 check.
inline bool StringSpan(unsigned char code, const char*& cur, const char* end, ParserContext& ctx,
                       const char*& bytes, size_t& length) {
  if (code >= 0xA0 && code <= 0xBF) {
    length = code & 0x1F;
  } else if (code == 0xD9) {
    if (end - cur < 1) {
      Fail(ctx, "unexpected end of input");
      return false;
    }
    length = Byte(cur);
    cur += 1;
  } else if (code == 0xDA) {
    if (end - cur < 2) {
      Fail(ctx, "unexpected end of input");
      return false;
    }
    length = Load16(cur);
    cur += 2;
  } else if (code == 0xDB) {
    if (end - cur < 4) {
      Fail(ctx, "unexpected end of input");
      return false;
    }
    length = Load32(cur);
    cur += 4;
  } else {
    Fail(ctx, "string expected");
    return false;
  }
  if (static_cast<size_t>(end - cur) < length) {
    Fail(ctx, "unexpected end of input");
    return false;
  }
  bytes = cur;
  cur += length;
  return true;
}

// The type bit that a compiled-object key's flags must hold for a value.
inline unsigned TypeBit(JsonValue::EJsonValueType t) {
  switch (t) {
    case JsonValue::String:
      return 0x0001;
    case JsonValue::Integer:
    case JsonValue::Real:
      return 0x0002;
    case JsonValue::True:
    case JsonValue::False:
      return 0x0004;
    case JsonValue::Null:
      return 0x0008;
    case JsonValue::Array:
      return 0x00F0;
    case JsonValue::Object:
      return 0x0100;
    case JsonValue::CompiledObject:
      return 0x0200;
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
    for (JsonObject::Member& m : fPairs)
      if (m.value) m.value->Release();
    for (JsonValue* v : fValues) v->Release();
    for (Frame& f : fFrames)
      if (f.compiled) f.compiled->Release();
  }

  const char* Cursor() const { return fCur; }

  // One complete value at the cursor.
  JsonValue* ReadValue(const JsonCompiledObjectContext* table) {
    bool opened = false;
    JsonValue* v = Begin(table, &opened);
    return opened ? Run() : v;
  }

  // The `count` children of a container whose header was consumed.
  JsonValue* ReadArray(size_t count, const JsonCompiledObjectContext* table) {
    bool opened = false;
    JsonValue* v = OpenArray(count, table, &opened);
    return opened ? Run() : v;
  }
  JsonValue* ReadObject(size_t count) {
    bool opened = false;
    JsonValue* v = OpenMap(count, nullptr, &opened);
    return opened ? Run() : v;
  }
  JsonValue* ReadCompiled(size_t count, const JsonCompiledObjectContext* table) {
    bool opened = false;
    JsonValue* v = OpenCompiled(count, table, &opened);
    return opened ? Run() : v;
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

  JsonValue* Begin(const JsonCompiledObjectContext* table, bool* opened);
  // Each returns an empty container at once, or pushes a frame, sets
  // `*opened` and returns null.
  JsonValue* OpenArray(size_t count, const JsonCompiledObjectContext* table, bool* opened);
  JsonValue* OpenMap(size_t count, const JsonCompiledObjectContext* table, bool* opened);
  JsonValue* OpenCompiled(size_t count, const JsonCompiledObjectContext* table, bool* opened);
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
    return mjson::NewNode<JsonString>(std::string_view(p, n), JsonString::Trusted{});
  }
  JsonValue* Truncated() {
    Fail(fCtx, "unexpected end of input");
    return nullptr;
  }
  void Push(const Frame& f) {
    if (fFrames.empty()) fFrames.reserve(16);
    fFrames.push_back(f);
  }

  const char* fCur;
  const char* const fEnd;
  ParserContext& fCtx;
  const bool fKeepOrder;
  Scratch<Frame> fFramesScratch;
  std::vector<Frame>& fFrames = fFramesScratch.Get();
  Scratch<JsonValue*> fValuesScratch;
  std::vector<JsonValue*>& fValues = fValuesScratch.Get();
  Scratch<JsonObject::Member> fPairsScratch;
  std::vector<JsonObject::Member>& fPairs = fPairsScratch.Get();
  std::string fKey;
};

// True for the type bytes of arrays and maps.
inline bool IsContainerCode(unsigned char code) {
  return (code >= 0x80 && code <= 0x9F) || (code >= 0xDC && code <= 0xDF);
}

JsonValue* MsgPackReader::OpenArray(size_t count, const JsonCompiledObjectContext* table,
                                    bool* opened) {
  if (count == 0) return mjson::NewNode<JsonArray>();
  // Short arrays are mostly all scalars (points, pairs, small lists): read
  // them straight into their storage. A frame opens only at the first
  // container element, taking over the elements read so far.
  constexpr size_t kLeafRun = 16;
  size_t base = fValues.size();
  if (count <= kLeafRun) {
    JsonValue* run[kLeafRun];
    size_t k = 0;
    for (; k < count; ++k) {
      if (fCur < fEnd && IsContainerCode(Byte(fCur))) break;
      bool scalarOnly = false;
      JsonValue* v = Begin(nullptr, &scalarOnly);
      if (!v) {
        for (size_t i = 0; i < k; ++i) run[i]->Release();
        return nullptr;
      }
      run[k] = v;
    }
    if (k == count) {
      auto* array = mjson::NewNode<JsonArray>();
      array->AdoptValues(run, count);
      return array;
    }
    fValues.insert(fValues.end(), run, run + k);
    count -= k;
  }
  Push({table, nullptr, nullptr, base, count, kArray, false, 0});
  *opened = true;
  return nullptr;
}

// Maps read against a key table become compiled objects, others plain ones.
JsonValue* MsgPackReader::OpenMap(size_t count, const JsonCompiledObjectContext* table,
                                  bool* opened) {
  if (table) return OpenCompiled(count, table, opened);
  if (count == 0) return mjson::NewNode<JsonObject>(fKeepOrder);
  Push({nullptr, nullptr, nullptr, fPairs.size(), count, kObject, false, 0});
  *opened = true;
  return nullptr;
}

JsonValue* MsgPackReader::OpenCompiled(size_t count, const JsonCompiledObjectContext* table,
                                       bool* opened) {
  auto* object = mjson::NewNode<JsonCompiledObject>(table);
  if (count == 0) return object;
  Push({table, object, nullptr, 0, count, kCompiled, false, 0});
  *opened = true;
  return nullptr;
}

// Reads the type byte at the cursor. Returns a complete value (a scalar or
// an empty container), or null with `*opened` set when a container became
// the top frame, or null for failure.
JsonValue* MsgPackReader::Begin(const JsonCompiledObjectContext* table, bool* opened) {
  if (fCur >= fEnd) return Truncated();
  const unsigned char code = Byte(fCur++);
  if (code < 0x80) return mjson::NewNode<JsonInteger>(static_cast<long long>(code));
  if (code >= 0xE0) return mjson::NewNode<JsonInteger>(static_cast<long long>(static_cast<int8_t>(code)));
  if (code < 0x90) return OpenMap(code & 0x0F, table, opened);
  if (code < 0xA0) return OpenArray(code & 0x0F, table, opened);
  const size_t left = static_cast<size_t>(fEnd - fCur);
  if (code < 0xC0) {
    size_t n = code & 0x1F;
    if (left < n) return Truncated();
    JsonValue* s = MakeString(fCur, n);
    fCur += n;
    return s;
  }
  switch (code) {
    case 0xC0:
      return mjson::NewNode<JsonNull>();
    case 0xC2:
      return mjson::NewNode<JsonFalse>();
    case 0xC3:
      return mjson::NewNode<JsonTrue>();
    case 0xCA: {
      if (left < 4) return Truncated();
      uint32_t bits = Load32(fCur);
      fCur += 4;
      float f;
      memcpy(&f, &bits, 4);
      return mjson::NewNode<JsonReal>(static_cast<double>(f), 0);
    }
    case 0xCB: {
      if (left < 8) return Truncated();
      uint64_t bits = Load64(fCur);
      fCur += 8;
      double d;
      memcpy(&d, &bits, 8);
      return mjson::NewNode<JsonReal>(d, 0);
    }
    case 0xCC:
      if (left < 1) return Truncated();
      return mjson::NewNode<JsonInteger>(static_cast<long long>(Byte(fCur++)));
    case 0xCD: {
      if (left < 2) return Truncated();
      long long v = Load16(fCur);
      fCur += 2;
      return mjson::NewNode<JsonInteger>(v);
    }
    case 0xCE: {
      if (left < 4) return Truncated();
      long long v = Load32(fCur);
      fCur += 4;
      return mjson::NewNode<JsonInteger>(v);
    }
    case 0xCF: {
      if (left < 8) return Truncated();
      uint64_t v = Load64(fCur);
      fCur += 8;
      if (v <= static_cast<uint64_t>(JsonInteger::sMaxInt64))
        return mjson::NewNode<JsonInteger>(static_cast<long long>(v));
      return mjson::NewNode<JsonInteger>(static_cast<unsigned long long>(v), true);
    }
    case 0xD0:
      if (left < 1) return Truncated();
      return mjson::NewNode<JsonInteger>(static_cast<long long>(static_cast<int8_t>(Byte(fCur++))));
    case 0xD1: {
      if (left < 2) return Truncated();
      long long v = static_cast<int16_t>(Load16(fCur));
      fCur += 2;
      return mjson::NewNode<JsonInteger>(v);
    }
    case 0xD2: {
      if (left < 4) return Truncated();
      long long v = static_cast<int32_t>(Load32(fCur));
      fCur += 4;
      return mjson::NewNode<JsonInteger>(v);
    }
    case 0xD3: {
      if (left < 8) return Truncated();
      long long v = static_cast<long long>(Load64(fCur));
      fCur += 8;
      return mjson::NewNode<JsonInteger>(v);
    }
    case 0xD9:
    case 0xDA:
    case 0xDB: {
      const char* bytes;
      size_t n;
      if (!StringSpan(code, fCur, fEnd, fCtx, bytes, n)) return nullptr;
      return MakeString(bytes, n);
    }
    case 0xDC:
    case 0xDE: {
      if (left < 2) return Truncated();
      size_t count = Load16(fCur);
      fCur += 2;
      return code == 0xDC ? OpenArray(count, table, opened) : OpenMap(count, table, opened);
    }
    case 0xDD:
    case 0xDF: {
      if (left < 4) return Truncated();
      size_t count = Load32(fCur);
      fCur += 4;
      return code == 0xDD ? OpenArray(count, table, opened) : OpenMap(count, table, opened);
    }
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
  if (code >= 0xA0 && code <= 0xBF) [[likely]] {
    length = code & 0x1F;
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
      auto* array = mjson::NewNode<JsonArray>();
      array->AdoptValues(fValues.data() + f.base, fValues.size() - f.base);
      fValues.resize(f.base);
      done = array;
      break;
    }
    case kObject: {
      auto* object = mjson::NewNode<JsonObject>(fKeepOrder);
      object->AdoptMembers(fPairs.data() + f.base, fPairs.size() - f.base);
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
          fPairs.emplace_back(key, keyLength);
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
    bool opened = false;
    value = Begin(table, &opened);
    if (!value && !opened) return nullptr;
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
  if (!v) return {};
  JsonAutoRefPtr<JsonValue> value(v);
  // Blanks after the value are tolerated, as after JSON text.
  SkipWhitespace(data, *ctx);
  if (ctx->fPosition < data.size()) {
    ctx->fError = "illegal trailing characters after value";
    return {};
  }
  ctx->fCompleted = true;
  return value;
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
