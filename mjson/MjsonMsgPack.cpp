// MessagePack in and out.
//
// The writer collects bytes in a chain of doubling heap blocks and copies
// them into the caller's string once at the end. The reader decodes a byte
// range with a cursor and reports failures through ParserContext, like the
// text parser. Both walk containers with an explicit stack on the heap, so a
// document's depth costs memory, never call stack.
#include <float.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>

#include "Mjson.h"
#include "MjsonScratch.h"

// ---------------------------------------------------------------------------
// BigEndianWriter

BigEndianWriter::BigEndianWriter(std::string* str)
    : fOut(str),
      fRetired(),
      fPosition(nullptr),
      fEnd(nullptr),
      fStart(nullptr),
      fBufferSize(1000),
      fRetiredTotal(0),
      fOk(true) {
  if (!str) MjsonAssertionFailed("str", "Mjson", 3509, "BigEndianWriter");
  fStart = static_cast<char*>(malloc(fBufferSize));
  fPosition = fStart;
  fEnd = fStart + fBufferSize;
}

BigEndianWriter::~BigEndianWriter() {
  Finish();
  free(fStart);
}

void BigEndianWriter::AppendBytes(const char* p, size_t n) {
  char* dst = Add<char>(n);
  if (n) memcpy(dst, p, n);
}

void BigEndianWriter::GrowBuffer(size_t needed) {
  // The full block is kept as it is; Finish copies it out in order. Blocks
  // double, unless one reservation is larger than the current size, so a
  // reservation always lands in one piece.
  size_t used = static_cast<size_t>(fPosition - fStart);
  fRetired.emplace_back(fStart, used);
  fRetiredTotal += used;
  fBufferSize = needed > fBufferSize ? fBufferSize + needed : fBufferSize * 2;
  fStart = static_cast<char*>(malloc(fBufferSize));
  fPosition = fStart;
  fEnd = fStart + fBufferSize;
}

namespace {

// A string header chosen by length, then the bytes. Header and bytes take
// one reservation, so a string costs one bounds check whatever its form.
inline void PutString(BigEndianWriter* w, const char* s, size_t n) {
  char* p;
  if (n < 32) {
    p = w->Add<char>(1 + n);
    *p = static_cast<char>(0xA0 | n);
    CopyShortBytes(p + 1, s, n);
    return;
  }
  if (n <= 0xFF) {
    p = w->Add<char>(2 + n);
    p[0] = static_cast<char>(0xD9);
    p[1] = static_cast<char>(n);
    p += 2;
  } else if (n <= 0xFFFF) {
    p = w->Add<char>(3 + n);
    p[0] = static_cast<char>(0xDA);
    uint16_t be = BigEndian16(static_cast<uint16_t>(n));
    memcpy(p + 1, &be, 2);
    p += 3;
  } else if (n <= 0xFFFFFFFFull) {
    p = w->Add<char>(5 + n);
    p[0] = static_cast<char>(0xDB);
    uint32_t be = BigEndian32(static_cast<uint32_t>(n));
    memcpy(p + 1, &be, 4);
    p += 5;
  } else {
    w->SetError();  // no MessagePack string is that long
    return;
  }
  memcpy(p, s, n);
}

}  // namespace

void BigEndianWriter::AddString(const std::string& s) { PutString(this, s.data(), s.size()); }

void BigEndianWriter::AddString(std::string_view s) { PutString(this, s.data(), s.size()); }

bool BigEndianWriter::Finish() {
  size_t used = static_cast<size_t>(fPosition - fStart);
  if (used == 0 && fRetired.empty()) return fOk;
  if (fOk) fOut->reserve(fOut->size() + fRetiredTotal + used);
  for (const auto& block : fRetired) {
    if (fOk) fOut->append(block.first, block.second);
    free(block.first);
  }
  fRetired.clear();
  fRetiredTotal = 0;
  if (fOk) fOut->append(fStart, used);
  fPosition = fStart;
  return fOk;
}

// ---------------------------------------------------------------------------
// Writing values

namespace {

inline void WriteInteger(long long v, bool largeUnsigned, BigEndianWriter* w) {
  // Unsigned codes for everything above 127, signed codes only below -32.
  if (largeUnsigned) {
    w->Write8_64(0xCF, static_cast<unsigned long long>(v));
  } else if (v < 128) {
    if (v >= -32)
      w->Write8(static_cast<unsigned char>(v));
    else if (v >= -128)
      w->Write8_8(0xD0, static_cast<unsigned char>(v));
    else if (v >= -32768)
      w->Write8_16(0xD1, static_cast<unsigned short>(v));
    else if (v >= -2147483648LL)
      w->Write8_32(0xD2, static_cast<unsigned int>(v));
    else
      w->Write8_64(0xD3, static_cast<unsigned long long>(v));
  } else if (v < 256) {
    w->Write8_8(0xCC, static_cast<unsigned char>(v));
  } else if (v < 65536) {
    w->Write8_16(0xCD, static_cast<unsigned short>(v));
  } else if (v < 4294967296LL) {
    w->Write8_32(0xCE, static_cast<unsigned int>(v));
  } else {
    w->Write8_64(0xCF, static_cast<unsigned long long>(v));
  }
}

inline void WriteReal(double d, BigEndianWriter* w) {
  // Four bytes whenever they lose nothing. Finite values beyond the float
  // range cannot survive the narrowing, so they are not narrowed at all.
  if (!(std::fabs(d) > FLT_MAX) || std::isinf(d)) {
    float f = static_cast<float>(d);
    if (static_cast<double>(f) == d) {
      uint32_t bits;
      memcpy(&bits, &f, 4);
      w->Write8_32(0xCA, bits);
      return;
    }
  }
  uint64_t bits;
  memcpy(&bits, &d, 8);
  w->Write8_64(0xCB, bits);
}

// Container headers; false (and the writer's error flag) for counts that do
// not fit in 32 bits, in which case nothing of the container is written.
inline bool WriteArrayHeader(size_t n, BigEndianWriter* w) {
  if (n < 16)
    w->Write8(static_cast<unsigned char>(0x90 | n));
  else if (n <= 0xFFFF)
    w->Write8_16(0xDC, static_cast<unsigned short>(n));
  else if (n <= 0xFFFFFFFFull)
    w->Write8_32(0xDD, static_cast<unsigned int>(n));
  else {
    w->SetError();
    return false;
  }
  return true;
}

inline bool WriteMapHeader(size_t n, BigEndianWriter* w) {
  if (n < 16)
    w->Write8(static_cast<unsigned char>(0x80 | n));
  else if (n <= 0xFFFF)
    w->Write8_16(0xDE, static_cast<unsigned short>(n));
  else if (n <= 0xFFFFFFFFull)
    w->Write8_32(0xDF, static_cast<unsigned int>(n));
  else {
    w->SetError();
    return false;
  }
  return true;
}

// One open container of the writer. Arrays and objects step a pointer
// through their element or member vector; compiled objects step through
// their slots and count the members written against the header's count.
struct WriteFrame {
  enum Kind : uint8_t { kArray, kObject, kCompiled };
  const void* cur;
  const void* end;
  const JsonCompiledObject* compiled;
  size_t count;
  Kind kind;
};

// Writes a scalar; false, writing nothing, for a container.
inline bool WriteScalar(const JsonValue* v, BigEndianWriter* w) {
  switch (v->Type()) {
    case JsonValue::String: {
      const std::string_view str = static_cast<const JsonString*>(v)->Value();
      PutString(w, str.data(), str.size());
      return true;
    }
    case JsonValue::Integer: {
      auto* i = static_cast<const JsonInteger*>(v);
      WriteInteger(i->RawValue(), i->IsLargeUnsigned(), w);
      return true;
    }
    case JsonValue::Real:
      WriteReal(static_cast<const JsonReal*>(v)->Get(), w);
      return true;
    case JsonValue::True:
      w->Write8(0xC3);
      return true;
    case JsonValue::False:
      w->Write8(0xC2);
      return true;
    case JsonValue::Null:
      w->Write8(0xC0);
      return true;
    case JsonValue::Object:
    case JsonValue::Array:
    case JsonValue::CompiledObject:
      return false;
  }
  v->AppendToMsgPack(w);
  return true;
}

// Write children from `cur` until one is a container, which is left for the
// caller to open; return where they stopped (`end` when all were written).
inline JsonValue* const* WriteElements(JsonValue* const* cur, JsonValue* const* end,
                                       BigEndianWriter* w) {
  for (; cur != end; ++cur) {
    if (!*cur)
      w->Write8(0xC0);  // an empty element pointer
    else if (!WriteScalar(*cur, w))
      break;
  }
  return cur;
}

// The same for members; a member whose value is a container is left with
// its key already written.
inline const JsonObject::Member* WriteMembers(const JsonObject::Member* m,
                                              const JsonObject::Member* end, BigEndianWriter* w) {
  for (; m != end; ++m) {
    PutString(w, m->key.Data(), m->key.Size());
    if (!m->value)
      w->Write8(0xC0);
    else if (!WriteScalar(m->value, w))
      break;
  }
  return m;
}

// Writes a container's header and its children up to the first container
// among them, which it returns for opening next, with a frame pushed to go
// on after it. Returns null when the container is complete: the many small
// leaf containers of a document never touch the stack.
inline const JsonValue* OpenContainer(const JsonValue* v, std::vector<WriteFrame>& stack,
                                      BigEndianWriter* w) {
  if (v->Type() == JsonValue::Array) {
    const auto& values = static_cast<const JsonArray*>(v)->Values();
    if (!WriteArrayHeader(values.size(), w)) return nullptr;
    JsonValue* const* end = values.data() + values.size();
    JsonValue* const* cur = WriteElements(values.data(), end, w);
    if (cur == end) return nullptr;
    stack.push_back({cur + 1, end, nullptr, 0, WriteFrame::kArray});
    return *cur;
  }
  if (v->Type() == JsonValue::Object) {
    const auto& members = static_cast<const JsonObject*>(v)->Members();
    if (!WriteMapHeader(members.size(), w)) return nullptr;
    const JsonObject::Member* end = members.data() + members.size();
    const JsonObject::Member* m = WriteMembers(members.data(), end, w);
    if (m == end) return nullptr;
    stack.push_back({m + 1, end, nullptr, 0, WriteFrame::kObject});
    return m->value;
  }
  auto* c = static_cast<const JsonCompiledObject*>(v);
  if (!c->Context()) {
    w->Write8(0x80);
  } else if (WriteMapHeader(c->Size(), w)) {
    const auto& slots = c->Slots();
    stack.push_back({slots.data(), slots.data() + slots.size(), c, 0, WriteFrame::kCompiled});
  }
  return nullptr;
}

// Writes `root` and everything below it. A frame's position is the next
// child not yet written; a container child found there is opened, and the
// frame goes on after it once it is complete.
void WriteTree(const JsonValue* root, BigEndianWriter* w) {
  if (WriteScalar(root, w)) return;
  std::vector<WriteFrame> stack;
  stack.reserve(16);
  const JsonValue* next = root;  // a container to open
  for (;;) {
    while (next) next = OpenContainer(next, stack, w);
    if (stack.empty()) return;
    WriteFrame& f = stack.back();
    switch (f.kind) {
      case WriteFrame::kArray: {
        auto* end = static_cast<JsonValue* const*>(f.end);
        auto* cur = WriteElements(static_cast<JsonValue* const*>(f.cur), end, w);
        if (cur != end) {
          next = *cur;
          f.cur = cur + 1;
        }
        break;
      }
      case WriteFrame::kObject: {
        auto* end = static_cast<const JsonObject::Member*>(f.end);
        auto* m = WriteMembers(static_cast<const JsonObject::Member*>(f.cur), end, w);
        if (m != end) {
          next = m->value;
          f.cur = m + 1;
        }
        break;
      }
      case WriteFrame::kCompiled: {
        const JsonCompiledObject* c = f.compiled;
        auto* slot = static_cast<JsonValue* const*>(f.cur);
        auto* end = static_cast<JsonValue* const*>(f.end);
        auto* first = c->Slots().data();
        const size_t filled = c->Size();
        // Absent members are not written: empty slots are stepped over.
        for (; slot != end && f.count < filled; ++slot) {
          if (!*slot) continue;
          w->AddString(c->Context()->Key(static_cast<size_t>(slot - first)));
          ++f.count;
          if (!WriteScalar(*slot, w)) {
            next = *slot++;
            break;
          }
        }
        f.cur = slot;
        if (next) break;
        if (f.count != filled)
          MjsonAssertionFailed("count == fCountFilled", "Mjson", 3830, "AppendToMsgPack");
        // Unreachable while the check above is on; it keeps the member
        // count equal to the header's should the check ever be dropped.
        for (; f.count < filled; ++f.count) w->Write8_8(0xA0, 0xC0);
        break;
      }
    }
    if (!next) stack.pop_back();
  }
}

}  // namespace

bool JsonValue::WriteToMsgPack(std::string& out) const {
  out.clear();
  BigEndianWriter writer(&out);
  AppendToMsgPack(&writer);
  return writer.Finish();
}

// Every concrete class has its own form; a value of no known class is nil.
void JsonValue::AppendToMsgPack(BigEndianWriter* writer) const { writer->Write8(0xC0); }

void JsonString::AppendToMsgPack(BigEndianWriter* writer) const { writer->AddString(fValue); }

void JsonInteger::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteInteger(fValue, IsLargeUnsigned(), writer);
}

// Reading the value settles a real that still holds its source text.
void JsonReal::AppendToMsgPack(BigEndianWriter* writer) const { WriteReal(Get(), writer); }

void JsonTrue::AppendToMsgPack(BigEndianWriter* writer) const { writer->Write8(0xC3); }
void JsonFalse::AppendToMsgPack(BigEndianWriter* writer) const { writer->Write8(0xC2); }
void JsonNull::AppendToMsgPack(BigEndianWriter* writer) const { writer->Write8(0xC0); }

void JsonObject::AppendToMsgPack(BigEndianWriter* writer) const { WriteTree(this, writer); }
void JsonArray::AppendToMsgPack(BigEndianWriter* writer) const { WriteTree(this, writer); }
void JsonCompiledObject::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteTree(this, writer);
}

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
    return new JsonString(std::string_view(p, n), JsonString::Trusted{});
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
  if (count == 0) return new JsonArray();
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
      auto* array = new JsonArray();
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
  if (count == 0) return new JsonObject(fKeepOrder);
  Push({nullptr, nullptr, nullptr, fPairs.size(), count, kObject, false, 0});
  *opened = true;
  return nullptr;
}

JsonValue* MsgPackReader::OpenCompiled(size_t count, const JsonCompiledObjectContext* table,
                                       bool* opened) {
  auto* object = new JsonCompiledObject(table);
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
  if (code < 0x80) return new JsonInteger(static_cast<long long>(code));
  if (code >= 0xE0) return new JsonInteger(static_cast<long long>(static_cast<int8_t>(code)));
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
      return new JsonNull();
    case 0xC2:
      return new JsonFalse();
    case 0xC3:
      return new JsonTrue();
    case 0xCA: {
      if (left < 4) return Truncated();
      uint32_t bits = Load32(fCur);
      fCur += 4;
      float f;
      memcpy(&f, &bits, 4);
      return new JsonReal(static_cast<double>(f), 0);
    }
    case 0xCB: {
      if (left < 8) return Truncated();
      uint64_t bits = Load64(fCur);
      fCur += 8;
      double d;
      memcpy(&d, &bits, 8);
      return new JsonReal(d, 0);
    }
    case 0xCC:
      if (left < 1) return Truncated();
      return new JsonInteger(static_cast<long long>(Byte(fCur++)));
    case 0xCD: {
      if (left < 2) return Truncated();
      long long v = Load16(fCur);
      fCur += 2;
      return new JsonInteger(v);
    }
    case 0xCE: {
      if (left < 4) return Truncated();
      long long v = Load32(fCur);
      fCur += 4;
      return new JsonInteger(v);
    }
    case 0xCF: {
      if (left < 8) return Truncated();
      uint64_t v = Load64(fCur);
      fCur += 8;
      if (v <= static_cast<uint64_t>(JsonInteger::sMaxInt64))
        return new JsonInteger(static_cast<long long>(v));
      return new JsonInteger(static_cast<unsigned long long>(v), true);
    }
    case 0xD0:
      if (left < 1) return Truncated();
      return new JsonInteger(static_cast<long long>(static_cast<int8_t>(Byte(fCur++))));
    case 0xD1: {
      if (left < 2) return Truncated();
      long long v = static_cast<int16_t>(Load16(fCur));
      fCur += 2;
      return new JsonInteger(v);
    }
    case 0xD2: {
      if (left < 4) return Truncated();
      long long v = static_cast<int32_t>(Load32(fCur));
      fCur += 4;
      return new JsonInteger(v);
    }
    case 0xD3: {
      if (left < 8) return Truncated();
      long long v = static_cast<long long>(Load64(fCur));
      fCur += 8;
      return new JsonInteger(v);
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
      auto* array = new JsonArray();
      array->AdoptValues(fValues.data() + f.base, fValues.size() - f.base);
      fValues.resize(f.base);
      done = array;
      break;
    }
    case kObject: {
      auto* object = new JsonObject(fKeepOrder);
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
