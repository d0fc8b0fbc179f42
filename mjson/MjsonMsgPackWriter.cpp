// Writing MessagePack: the byte sink, a chain of doubling heap blocks
// copied into the caller's string once at the end, and the tree writer,
// which walks containers with an explicit stack on the heap.
#include <float.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <vector>

#include "Mjson.h"
#include "MjsonInternal.h"

using namespace mjson::detail;
using namespace mjson::detail::msgpack;

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
  // The file and line are part of the message users see; they never change.
  if (!str) mjson::detail::AssertionFailed("str", "Mjson", 3509, "BigEndianWriter");
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
  if (n < kFixStrLimit) {
    p = w->Add<char>(1 + n);
    *p = static_cast<char>(kFixStr | n);
    CopyShortBytes(p + 1, s, n);
    return;
  }
  if (n <= 0xFF) {
    p = w->Add<char>(2 + n);
    p[0] = static_cast<char>(kStr8);
    p[1] = static_cast<char>(n);
    p += 2;
  } else if (n <= 0xFFFF) {
    p = w->Add<char>(3 + n);
    p[0] = static_cast<char>(kStr16);
    uint16_t be = BigEndian16(static_cast<uint16_t>(n));
    memcpy(p + 1, &be, 2);
    p += 3;
  } else if (n <= 0xFFFFFFFFull) {
    p = w->Add<char>(5 + n);
    p[0] = static_cast<char>(kStr32);
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

void BigEndianWriter::AddString(const std::string& s) {
  PutString(this, s.data(), s.size());
}

void BigEndianWriter::AddString(std::string_view s) {
  PutString(this, s.data(), s.size());
}

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
    w->Write8_64(kUInt64, static_cast<unsigned long long>(v));
  } else if (v < 128) {
    if (v >= -32)
      w->Write8(static_cast<unsigned char>(v));
    else if (v >= -128)
      w->Write8_8(kInt8, static_cast<unsigned char>(v));
    else if (v >= -32768)
      w->Write8_16(kInt16, static_cast<unsigned short>(v));
    else if (v >= -2147483648LL)
      w->Write8_32(kInt32, static_cast<unsigned int>(v));
    else
      w->Write8_64(kInt64, static_cast<unsigned long long>(v));
  } else if (v < 256) {
    w->Write8_8(kUInt8, static_cast<unsigned char>(v));
  } else if (v < 65536) {
    w->Write8_16(kUInt16, static_cast<unsigned short>(v));
  } else if (v < 4294967296LL) {
    w->Write8_32(kUInt32, static_cast<unsigned int>(v));
  } else {
    w->Write8_64(kUInt64, static_cast<unsigned long long>(v));
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
      w->Write8_32(kFloat32, bits);
      return;
    }
  }
  uint64_t bits;
  memcpy(&bits, &d, 8);
  w->Write8_64(kFloat64, bits);
}

// Container headers; false (and the writer's error flag) for counts that do
// not fit in 32 bits, in which case nothing of the container is written.
inline bool WriteArrayHeader(size_t n, BigEndianWriter* w) {
  if (n < kFixCountLimit)
    w->Write8(static_cast<unsigned char>(kFixArray | n));
  else if (n <= 0xFFFF)
    w->Write8_16(kArray16, static_cast<unsigned short>(n));
  else if (n <= 0xFFFFFFFFull)
    w->Write8_32(kArray32, static_cast<unsigned int>(n));
  else {
    w->SetError();
    return false;
  }
  return true;
}

inline bool WriteMapHeader(size_t n, BigEndianWriter* w) {
  if (n < kFixCountLimit)
    w->Write8(static_cast<unsigned char>(kFixMap | n));
  else if (n <= 0xFFFF)
    w->Write8_16(kMap16, static_cast<unsigned short>(n));
  else if (n <= 0xFFFFFFFFull)
    w->Write8_32(kMap32, static_cast<unsigned int>(n));
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
  // A child position: an element (or a compiled object's slot) or a member.
  union Cursor {
    JsonValue* const* element;
    const JsonObject::Member* member;
  };
  Cursor cur;  // the next child not yet written
  Cursor end;
  const JsonCompiledObject* compiled;
  size_t count;
  Kind kind;
};

// Writes a scalar; false, writing nothing, for a container. Inlined into
// the loop over elements, where long runs of numbers are common (a call per
// element cost canada a quarter of its time); called from the loop over
// members, where inlining it made objects slower.
[[gnu::always_inline]] inline bool WriteScalarInline(const JsonValue* v, BigEndianWriter* w) {
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
      w->Write8(kTrue);
      return true;
    case JsonValue::False:
      w->Write8(kFalse);
      return true;
    case JsonValue::Null:
      w->Write8(kNil);
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
inline bool WriteScalar(const JsonValue* v, BigEndianWriter* w) {
  return WriteScalarInline(v, w);
}

inline JsonValue* const* WriteElements(JsonValue* const* cur, JsonValue* const* end,
                                       BigEndianWriter* w) {
  for (; cur != end; ++cur) {
    if (!*cur)
      w->Write8(kNil);  // an empty element pointer
    else if (!WriteScalarInline(*cur, w))
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
      w->Write8(kNil);
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
    stack.push_back({{.element = cur + 1}, {.element = end}, nullptr, 0, WriteFrame::kArray});
    return *cur;
  }
  if (v->Type() == JsonValue::Object) {
    const auto& members = static_cast<const JsonObject*>(v)->Members();
    if (!WriteMapHeader(members.size(), w)) return nullptr;
    const JsonObject::Member* end = members.data() + members.size();
    const JsonObject::Member* m = WriteMembers(members.data(), end, w);
    if (m == end) return nullptr;
    stack.push_back({{.member = m + 1}, {.member = end}, nullptr, 0, WriteFrame::kObject});
    return m->value;
  }
  auto* c = static_cast<const JsonCompiledObject*>(v);
  if (!c->Context()) {
    w->Write8(kFixMap);  // no key table: an empty map
  } else if (WriteMapHeader(c->Size(), w)) {
    const auto& slots = c->Slots();
    stack.push_back({{.element = slots.data()},
                     {.element = slots.data() + slots.size()},
                     c,
                     0,
                     WriteFrame::kCompiled});
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
        JsonValue* const* cur = WriteElements(f.cur.element, f.end.element, w);
        if (cur != f.end.element) {
          next = *cur;
          f.cur.element = cur + 1;
        }
        break;
      }
      case WriteFrame::kObject: {
        const JsonObject::Member* m = WriteMembers(f.cur.member, f.end.member, w);
        if (m != f.end.member) {
          next = m->value;
          f.cur.member = m + 1;
        }
        break;
      }
      case WriteFrame::kCompiled: {
        const JsonCompiledObject* c = f.compiled;
        JsonValue* const* slot = f.cur.element;
        JsonValue* const* end = f.end.element;
        JsonValue* const* first = c->Slots().data();
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
        f.cur.element = slot;
        if (next) break;
        // The file and line are part of the message users see.
        if (f.count != filled)
          mjson::detail::AssertionFailed("count == fCountFilled", "Mjson", 3830, "AppendToMsgPack");
        // Unreachable while the check above is on; it keeps the member
        // count equal to the header's should the check ever be dropped.
        for (; f.count < filled; ++f.count) w->Write8_8(kFixStr, kNil);
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
void JsonValue::AppendToMsgPack(BigEndianWriter* writer) const {
  writer->Write8(kNil);
}

void JsonString::AppendToMsgPack(BigEndianWriter* writer) const {
  writer->AddString(fValue);
}

void JsonInteger::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteInteger(fValue, IsLargeUnsigned(), writer);
}

// Reading the value settles a real that still holds its source text.
void JsonReal::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteReal(Get(), writer);
}

void JsonTrue::AppendToMsgPack(BigEndianWriter* writer) const {
  writer->Write8(kTrue);
}
void JsonFalse::AppendToMsgPack(BigEndianWriter* writer) const {
  writer->Write8(kFalse);
}
void JsonNull::AppendToMsgPack(BigEndianWriter* writer) const {
  writer->Write8(kNil);
}

void JsonObject::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteTree(this, writer);
}
void JsonArray::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteTree(this, writer);
}
void JsonCompiledObject::AppendToMsgPack(BigEndianWriter* writer) const {
  WriteTree(this, writer);
}
