// Writing JSON text, compact and indented, with an explicit stack so that
// document depth is bounded by memory alone.
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonPool.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// Writing scalars

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// The output of the compact and indented loops. Bytes go into a buffer on
// the stack and, once that is full, into blocks that the thread keeps from
// write to write; the caller's string is then sized once, to the exact
// length, and filled in one pass. A small write is one bounds check and a
// copy of known shape, where each std::string::append costs a call, its own
// checks and a memmove. Growing the caller's string as the text comes, by
// doubling, copied the text again at every step and took fresh memory each
// time, which the C library may have given back to the system in between:
// a loop of writes into fresh strings then faulted every page in anew.
class TextSink {
 public:
  explicit TextSink(std::string& out) : fOut(out) {}
  ~TextSink() {
    // Normally everything has gone out; after an exception it is dropped.
    ReleaseBlocks();
  }
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // Room for `n` (at most kMaxReserve) bytes at the returned position; the
  // writer then hands the end of what it wrote to Commit.
  char* Reserve(size_t n) {
    if (static_cast<size_t>(fLimit - fCur) < n) [[unlikely]]
      NextBlock();
    return fCur;
  }
  void Commit(char* end) { fCur = end; }
  void Put(char c) { *Reserve(1) = c, ++fCur; }
  void Append(const char* p, size_t n) {
    if (n <= 16) {
      char* d = Reserve(16);
      CopyShortBytes(d, p, n);
      fCur = d + n;
    } else if (n <= kMaxReserve) {
      char* d = Reserve(n);
      memcpy(d, p, n);
      fCur = d + n;
    } else {
      AppendLong(p, n);
    }
  }
  void Append(std::string_view s) { Append(s.data(), s.size()); }
  // The caller's string, with everything written so far, for writers that
  // append to it themselves.
  std::string& Out() {
    Flush();
    return fOut;
  }
  // Moves everything written into the caller's string; `last` when
  // nothing more follows, so that the string is sized exactly.
  void Flush(bool last = true);

  // The most that one Reserve may ask for: enough for any number.
  static constexpr size_t kMaxReserve = 4096;

 private:
  static constexpr size_t kFirstBytes = 8192;
  // Blocks after the first double from this size up to kBlockMax; both are
  // sizes in which the thread keeps blocks.
  static constexpr size_t kBlockMin = 64 << 10;
  static constexpr size_t kBlockMax = 1 << 20;
  static constexpr size_t kMaxSegments = 24;
  static_assert(kMaxReserve <= kFirstBytes / 2);

  struct Segment {
    char* start;
    size_t used;
    size_t bytes;  // of the block; 0 for the buffer on the stack
  };

  void NextBlock();
  void AppendLong(const char* p, size_t n);
  void ReleaseBlocks() noexcept;
  size_t Used() const { return static_cast<size_t>(fCur - fStart); }

  std::string& fOut;
  char* fStart = fFirst;  // the block being filled
  char* fCur = fFirst;
  char* fLimit = fFirst + kFirstBytes;
  size_t fBlockBytes = 0;  // of the block being filled; 0 for fFirst
  size_t fNextBytes = kBlockMin;
  size_t fFilledBytes = 0;  // in fSegments
  size_t fSegmentCount = 0;
  Segment fSegments[kMaxSegments];
  char fFirst[kFirstBytes];
};

void TextSink::NextBlock() {
  if (fSegmentCount == kMaxSegments) {
    // A text this long (tens of megabytes) goes to the string in parts.
    Flush(false);
    return;
  }
  fSegments[fSegmentCount++] = {fStart, Used(), fBlockBytes};
  fFilledBytes += Used();
  const size_t bytes = fNextBytes;
  fStart = fCur = static_cast<char*>(pool::TakeBlock(bytes, false));
  fLimit = fStart + bytes;
  fBlockBytes = bytes;
  if (fNextBytes < kBlockMax) fNextBytes *= 2;
}

void TextSink::AppendLong(const char* p, size_t n) {
  while (n) {
    size_t room = static_cast<size_t>(fLimit - fCur);
    if (room == 0) {
      NextBlock();
      room = static_cast<size_t>(fLimit - fCur);
    }
    const size_t take = n < room ? n : room;
    memcpy(fCur, p, take);
    fCur += take;
    p += take;
    n -= take;
  }
}

void TextSink::Flush(bool last) {
  // One allocation of the string for all of it, then the pieces in order.
  // A part of a longer text leaves room to grow into, as the string would.
  const size_t needed = fOut.size() + fFilledBytes + Used();
  if (needed > fOut.capacity()) fOut.reserve(last ? needed : std::max(needed, 2 * fOut.capacity()));
  for (size_t i = 0; i < fSegmentCount; ++i) fOut.append(fSegments[i].start, fSegments[i].used);
  fOut.append(fStart, Used());
  ReleaseBlocks();
}

void TextSink::ReleaseBlocks() noexcept {
  // The buffer on the stack is written again from its start; the blocks go
  // back to the thread for the next write.
  for (size_t i = 0; i < fSegmentCount; ++i)
    if (fSegments[i].bytes) pool::ReleaseBlock(fSegments[i].start, fSegments[i].bytes, false);
  if (fBlockBytes) pool::ReleaseBlock(fStart, fBlockBytes, false);
  fSegmentCount = 0;
  fFilledBytes = 0;
  fBlockBytes = 0;
  fStart = fCur = fFirst;
  fLimit = fFirst + kFirstBytes;
}

// The escapes of the bytes from `p`, which needs one, up to `end`, and the
// runs between them.
void PutEscapes(TextSink& sink, const char* p, const char* end) {
  while (p < end) {
    const unsigned char c = static_cast<unsigned char>(*p);
    char* d = sink.Reserve(6);
    d[0] = '\\';
    switch (c) {
      case '"':
      case '\\':
        d[1] = static_cast<char>(c);
        break;
      case 0x08:
        d[1] = 'b';
        break;
      case 0x09:
        d[1] = 't';
        break;
      case 0x0A:
        d[1] = 'n';
        break;
      case 0x0C:
        d[1] = 'f';
        break;
      case 0x0D:
        d[1] = 'r';
        break;
      default:
        memcpy(d + 1, "u00", 3);
        d[4] = kHexDigits[c >> 4];
        d[5] = kHexDigits[c & 15];
        d += 4;
        break;
    }
    sink.Commit(d + 2);
    const char* run = FindSpecial(p + 1, end);
    sink.Append(p + 1, static_cast<size_t>(run - (p + 1)));
    p = run;
  }
}

// A quoted string followed by `after` (nothing, or a key's colon): one
// reservation for all of it unless the string needs escapes or is long.
inline void PutQuoted(TextSink& sink, std::string_view s, std::string_view after = {}) {
  const char* p = s.data();
  const size_t n = s.size();
  const char* first = n <= 16 && !ShortHasSpecial(p, n) ? p + n : FindSpecial(p, p + n);
  if (first == p + n && n <= 2048) {
    char* d = sink.Reserve(n + 2 + after.size());
    *d++ = '"';
    if (n <= 16) {
      CopyShortBytes(d, p, n);
    } else {
      memcpy(d, p, n);
    }
    d += n;
    *d++ = '"';
    CopyShortBytes(d, after.data(), after.size());
    sink.Commit(d + after.size());
    return;
  }
  sink.Put('"');
  sink.Append(p, static_cast<size_t>(first - p));
  PutEscapes(sink, first, p + n);
  sink.Put('"');
  sink.Append(after);
}

// A member's key and what follows it (":" or ": "). Keys of up to twelve
// bytes sit inline in their member, followed by the member's value pointer,
// so sixteen bytes can be read from them whatever their length: one fixed
// copy, and the closing quote written over what it brought along.
static_assert(offsetof(JsonObject::Member, key) == 0 &&
              sizeof(JsonObject::Member) >= sizeof(CompactString) + 4);
[[gnu::always_inline]] inline void PutKey(TextSink& sink, const JsonObject::Member& m,
                                          std::string_view after) {
  const size_t n = m.key.Size();
  const char* p = m.key.Data();
  if (n > CompactString::kInline || ShortHasSpecial(p, n)) [[unlikely]] {
    PutQuoted(sink, m.key, after);
    return;
  }
  char* d = sink.Reserve(1 + 16 + 1 + 2);
  d[0] = '"';
  memcpy(d + 1, p, 16);
  d[1 + n] = '"';
  memcpy(d + 2 + n, after.data(), 2);  // ":" writes one byte more, which the next write covers
  sink.Commit(d + 2 + n + after.size());
}

inline bool WriteScalar(const JsonValue* v, TextSink& sink) {
  switch (v->Type()) {
    case JsonValue::String:
      PutQuoted(sink, static_cast<const JsonString*>(v)->Value());
      return true;
    case JsonValue::Integer: {
      auto* i = static_cast<const JsonInteger*>(v);
      sink.Commit(mjson::detail::WriteInteger(sink.Reserve(mjson::detail::kMaxIntegerText),
                                              i->RawValue(), i->IsLargeUnsigned()));
      return true;
    }
    case JsonValue::Real: {
      auto* r = static_cast<const JsonReal*>(v);
      char* end = r->WriteText(sink.Reserve(JsonReal::kMaxRealText));
      if (end)
        sink.Commit(end);
      else
        r->AppendToString(sink.Out());
      return true;
    }
    case JsonValue::True:
      sink.Append("true", 4);
      return true;
    case JsonValue::False:
      sink.Append("false", 5);
      return true;
    case JsonValue::Null:
      sink.Append("null", 4);
      return true;
    case JsonValue::Object:
    case JsonValue::Array:
    case JsonValue::CompiledObject:
      return false;
    default:
      v->AppendToString(sink.Out());
      return true;
  }
}

}  // namespace

void AppendQuotedString(std::string_view s, std::string& out) {
  const char* p = s.data();
  const char* end = p + s.size();
  const char* first = FindSpecial(p, end);
  out.append(p, first);
  if (first == end) return;
  TextSink sink(out);
  PutEscapes(sink, first, end);
  sink.Flush();
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

void JsonTrue::AppendToString(std::string& out) const {
  out.append("true", 4);
}
void JsonFalse::AppendToString(std::string& out) const {
  out.append("false", 5);
}
void JsonNull::AppendToString(std::string& out) const {
  out.append("null", 4);
}

// ---------------------------------------------------------------------------
// Writing containers

namespace {

// Separators and indentation of the indented form: ",", the newline and a
// child's indentation written with one append, cut from a run of
// indentation units that grows with the deepest level seen.
class IndentRuns {
 public:
  // Bytes readable past the end of every run: a run of up to this many
  // bytes is copied with a move of fixed size, whatever its length.
  static constexpr size_t kSlack = 64;

  IndentRuns(const std::string& unit, const std::string& newline)
      : fUnit(unit), fBase(1 + newline.size()) {
    fRun.reserve(fBase + 16 * unit.size() + kSlack);
    fRun.push_back(',');
    fRun.append(newline);
    fLength = fRun.size();
    fRun.append(kSlack, ' ');
  }
  // ",", the newline, then `depth` units. Valid until the next call.
  std::string_view Separator(int depth) {
    const size_t n = fBase + static_cast<size_t>(depth) * fUnit.size();
    if (n > fLength) [[unlikely]]
      Grow(n);
    return {fRun.data(), n};
  }
  // The same without the comma.
  std::string_view NewLine(int depth) { return Separator(depth).substr(1); }

 private:
  void Grow(size_t n) {
    fRun.resize(fLength);
    while (fRun.size() < n) fRun.append(fUnit);
    fLength = fRun.size();
    fRun.append(kSlack, ' ');
  }

  const std::string& fUnit;
  const size_t fBase;
  size_t fLength;  // of the run; kSlack bytes of padding follow
  std::string fRun;
};

// A run cut from IndentRuns: one fixed-size move of 32 or 64 bytes, which
// may copy padding past its end for the next write to cover.
inline void PutRun(TextSink& out, std::string_view run) {
  static_assert(IndentRuns::kSlack >= 64 && TextSink::kMaxReserve >= 64);
  const size_t n = run.size();
  if (n <= 32) {
    char* d = out.Reserve(32);
    __builtin_memcpy(d, run.data(), 32);
    out.Commit(d + n);
  } else if (n <= 64) {
    char* d = out.Reserve(64);
    __builtin_memcpy(d, run.data(), 64);
    out.Commit(d + n);
  } else {
    out.Append(run);
  }
}

const std::string kNothing;

void WriteTree(const JsonValue* root, TextSink& out, IndentRuns& runs, std::string_view afterKey,
               int depth);

// The two layouts, for the loop below. A layout gives the separator that
// goes before each child at a depth (its first child's without the comma),
// what closes a container, and what follows a member's key. The compact
// one writes its lone comma directly: through the indented one's runs it
// cost a third of citm_catalog's compact write.
class CompactLayout {
 public:
  struct Sep {};
  static constexpr std::string_view kAfterKey = ":";
  Sep Separator(int) { return {}; }
  static void Put(TextSink& out, Sep, bool first) {
    if (!first) out.Put(',');
  }
  void Close(TextSink&, int) {}
  void WriteCompiled(const JsonValue* v, TextSink& out, int depth) {
    IndentRuns none(kNothing, kNothing);
    WriteTree(v, out, none, kAfterKey, depth);
  }
};

class IndentedLayout {
 public:
  using Sep = std::string_view;
  static constexpr std::string_view kAfterKey = ": ";
  IndentedLayout(const std::string& unit, const std::string& newline) : fRuns(unit, newline) {}
  Sep Separator(int depth) { return fRuns.Separator(depth); }
  static void Put(TextSink& out, Sep sep, bool first) { PutRun(out, first ? sep.substr(1) : sep); }
  void Close(TextSink& out, int depth) { PutRun(out, fRuns.NewLine(depth)); }
  void WriteCompiled(const JsonValue* v, TextSink& out, int depth) {
    WriteTree(v, out, fRuns, kAfterKey, depth);
  }

 private:
  IndentRuns fRuns;
};

// Arrays and objects are written by this loop. Children are written in runs
// up to the next container child; a frame opens only for a container that
// holds containers, so small leaf containers never touch the stack. Empty
// element and member slots are stepped over.
struct Frame {
  // A child position: an element of an array or a member of an object.
  union Cursor {
    JsonValue* const* element;
    const JsonObject::Member* member;
  };
  Cursor cur;  // the next child not yet written
  Cursor end;
  int depth;  // of the container
  bool isArray;
};

// Writes elements from `cur` up to the first container, each after its
// separator; returns the container, whose separator is written, or `end`.
template <class L>
inline JsonValue* const* WriteElements(JsonValue* const* cur, JsonValue* const* end, bool& wroteAny,
                                       typename L::Sep sep, TextSink& out) {
  for (; cur != end; ++cur) {
    if (!*cur) continue;
    L::Put(out, sep, !wroteAny);
    wroteAny = true;
    if (!WriteScalar(*cur, out)) break;
  }
  return cur;
}

// The same for members; the key of the member left for the caller is
// written.
template <class L>
inline const JsonObject::Member* WriteMembers(const JsonObject::Member* m,
                                              const JsonObject::Member* end, bool& wroteAny,
                                              typename L::Sep sep, TextSink& out) {
  for (; m != end; ++m) {
    if (!m->value) continue;
    L::Put(out, sep, !wroteAny);
    wroteAny = true;
    PutKey(out, *m, L::kAfterKey);
    if (!WriteScalar(m->value, out)) break;
  }
  return m;
}

// Opens `v` at `depth`: writes its bracket and its children up to the first
// container child, which it returns for opening next at `depth + 1`, with a
// frame pushed to go on after it; null when `v` is complete.
template <class L>
inline const JsonValue* Open(const JsonValue* v, int depth, std::vector<Frame>& stack, L& layout,
                             TextSink& out) {
  bool wroteAny = false;
  if (v->Type() == JsonValue::Array) {
    const auto& values = static_cast<const JsonArray*>(v)->Values();
    out.Put('[');
    JsonValue* const* end = values.data() + values.size();
    JsonValue* const* cur =
        WriteElements<L>(values.data(), end, wroteAny, layout.Separator(depth + 1), out);
    if (cur == end) {
      if (wroteAny) layout.Close(out, depth);
      out.Put(']');
      return nullptr;
    }
    stack.push_back({{.element = cur + 1}, {.element = end}, depth, true});
    return *cur;
  }
  if (v->Type() == JsonValue::Object) {
    const auto& members = static_cast<const JsonObject*>(v)->Members();
    out.Put('{');
    const JsonObject::Member* end = members.data() + members.size();
    const JsonObject::Member* m =
        WriteMembers<L>(members.data(), end, wroteAny, layout.Separator(depth + 1), out);
    if (m == end) {
      if (wroteAny) layout.Close(out, depth);
      out.Put('}');
      return nullptr;
    }
    stack.push_back({{.member = m + 1}, {.member = end}, depth, false});
    return m->value;
  }
  // Compiled objects are rare; the general loop writes them, with all they
  // hold, on its own stack.
  layout.WriteCompiled(v, out, depth);
  return nullptr;
}

template <class L>
void WriteLaidOut(const JsonValue* root, std::string& result, L& layout, int depth) {
  TextSink out(result);
  std::vector<Frame> stack;
  const JsonValue* next = root;  // a container to open, at `nextDepth`
  int nextDepth = depth;
  for (;;) {
    while (next) {
      next = Open(next, nextDepth, stack, layout, out);
      if (next) nextDepth = stack.back().depth + 1;
    }
    if (stack.empty()) {
      out.Flush();
      return;
    }
    Frame& f = stack.back();
    bool wroteAny = true;  // the container child just written
    const typename L::Sep sep = layout.Separator(f.depth + 1);
    if (f.isArray) {
      JsonValue* const* cur = WriteElements<L>(f.cur.element, f.end.element, wroteAny, sep, out);
      if (cur != f.end.element) {
        next = *cur;
        nextDepth = f.depth + 1;
        f.cur.element = cur + 1;
        continue;
      }
      layout.Close(out, f.depth);
      out.Put(']');
    } else {
      const JsonObject::Member* m = WriteMembers<L>(f.cur.member, f.end.member, wroteAny, sep, out);
      if (m != f.end.member) {
        next = m->value;
        nextDepth = f.depth + 1;
        f.cur.member = m + 1;
        continue;
      }
      layout.Close(out, f.depth);
      out.Put('}');
    }
    stack.pop_back();
  }
}

struct TreeFrame {
  const JsonValue* container;
  size_t next;
  int depth;
  bool wroteAny;
};

// Writes `root` (a container) at `depth`: the loop for compiled objects
// and all they hold. Objects, arrays and compiled objects share it; the
// frame remembers which child comes next. A compiled object's keys are
// followed by a bare colon in either layout, a plain object's by
// `afterKey`.
void WriteTree(const JsonValue* root, TextSink& out, IndentRuns& runs, std::string_view afterKey,
               int depth) {
  std::vector<TreeFrame> stack;
  auto open = [&](const JsonValue* c, int d) {
    if (c->Type() == JsonValue::Array) {
      out.Put('[');
    } else {
      out.Put('{');
      // A compiled object without a key table writes as an empty object.
      if (c->Type() == JsonValue::CompiledObject &&
          !static_cast<const JsonCompiledObject*>(c)->Context()) {
        out.Put('}');
        return;
      }
    }
    stack.push_back({c, 0, d, false});
  };
  open(root, depth);
  while (!stack.empty()) {
    TreeFrame& f = stack.back();
    const JsonValue* child = nullptr;
    std::string_view key;
    std::string_view keyEnd = ":";
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
          keyEnd = afterKey;
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
      if (f.wroteAny) PutRun(out, runs.NewLine(f.depth));
      out.Put(f.container->Type() == JsonValue::Array ? ']' : '}');
      stack.pop_back();
      continue;
    }
    const int childDepth = f.depth + 1;
    PutRun(out, f.wroteAny ? runs.Separator(childDepth) : runs.NewLine(childDepth));
    f.wroteAny = true;
    if (hasKey) PutQuoted(out, key, keyEnd);
    if (!WriteScalar(child, out)) open(child, childDepth);  // invalidates `f`
  }
}

void WriteCompact(const JsonValue* root, std::string& out) {
  CompactLayout layout;
  WriteLaidOut(root, out, layout, 0);
}

void WriteIndented(const JsonValue* root, std::string& out, const std::string& indentUnit,
                   const std::string& newline, int depth) {
  IndentedLayout layout(indentUnit, newline);
  WriteLaidOut(root, out, layout, depth);
}

}  // namespace

void JsonValue::AppendToStringPretty(std::string& out, const std::string&, const std::string&,
                                     int) const {
  AppendToString(out);
}

void JsonObject::AppendToString(std::string& out) const {
  WriteCompact(this, out);
}
void JsonArray::AppendToString(std::string& out) const {
  WriteCompact(this, out);
}
void JsonCompiledObject::AppendToString(std::string& out) const {
  WriteCompact(this, out);
}

void JsonObject::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                      const std::string& newline, int depth) const {
  WriteIndented(this, out, indentUnit, newline, depth);
}
void JsonArray::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                     const std::string& newline, int depth) const {
  WriteIndented(this, out, indentUnit, newline, depth);
}
void JsonCompiledObject::AppendToStringPretty(std::string& out, const std::string& indentUnit,
                                              const std::string& newline, int depth) const {
  WriteIndented(this, out, indentUnit, newline, depth);
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
