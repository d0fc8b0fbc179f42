// The value base: assertions, type names, scalar strings, the conversions
// every script function uses, deep copy and equality (both without
// recursion over the depth of a tree), and typed views of values.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "Mjson.h"
#include "MjsonInternal.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// Reference counting

// Written like the C library's assert, which NDEBUG would silence: these
// checks must survive release builds.
void mjson::detail::AssertionFailed(const char* expression, const char* file, unsigned line,
                                    const char* function) noexcept {
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", ProgramName(), file, line, function,
          expression);
  fflush(stderr);
  abort();
}

// The expression, file, line and function are the message users see when a
// reference is released once too often; they never change.
void JsonUseCounted::FailUseCountCheck() noexcept {
  mjson::detail::AssertionFailed("fUseCount > 0", "JsonAutoRefPtr", 372, "Release");
}

// ---------------------------------------------------------------------------
// JsonValue basics

const char* const JsonValue::fTypeStrings[9] = {
    "String", "Integer", "Real", "Object", "CompiledObject", "Array", "True", "False", "Null"};

void JsonValue::AppendToString(std::string&) const {}

JsonValue* JsonValue::GetSubNode(const std::string&) {
  return nullptr;
}

void JsonValue::PrintCounter() {
  fputs("*** Object counters not activated\n", stdout);
  fflush(stdout);
}

void CompactString::InitHeap(const char* p, size_t n) {
  char* block;
  if (n < kHuge) {
    block = static_cast<char*>(mjson::detail::pool::Allocate(n));
    memcpy(block, p, n);
    uint32_t n32 = static_cast<uint32_t>(n);
    memcpy(fBytes, &n32, 4);
  } else {
    block = static_cast<char*>(mjson::detail::pool::Allocate(n + 8));
    memcpy(block, &n, 8);
    memcpy(block + 8, p, n);
    memcpy(fBytes, &kHuge, 4);
  }
  memcpy(fBytes + 8, &block, sizeof block);
}

void CompactString::FreeHeap() {
  uint32_t n = SizeField();
  mjson::detail::pool::Free(Block(), n != kHuge ? n : HugeSize() + 8);
}

JsonString::JsonString(std::string_view s, bool* isKnownUTF8, bool* isValid) : JsonValue(String) {
  bool valid = (isKnownUTF8 && *isKnownUTF8) || IsUTF8(s);
  if (valid) fValue = CompactString(s);
  if (isValid) *isValid = valid;
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
  if (Type() == String) {
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
  switch (Type()) {
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
  if (Type() == Integer) return static_cast<const JsonInteger*>(this)->Get();
  long long out;
  GetAsInteger(out);
  return out;
}

bool JsonValue::GetAsReal(double& out) const {
  switch (Type()) {
    case Real:
      out = static_cast<const JsonReal*>(this)->Get();
      return true;
    case Integer: {
      auto* i = static_cast<const JsonInteger*>(this);
      out = i->IsLargeUnsigned()
                ? static_cast<double>(static_cast<unsigned long long>(i->RawValue()))
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
  if (Type() == Real) return static_cast<const JsonReal*>(this)->Get();
  double out;
  GetAsReal(out);
  return out;
}

bool JsonValue::GetAsBool(bool& out) const {
  switch (Type()) {
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
  if (Type() == True) return true;
  if (Type() == False) return false;
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

namespace {

// A copy of the scalar `v`, or null for a container. Inline in the copy's
// loops: most of a copy's nodes are scalars.
[[gnu::always_inline]] inline JsonValue* CopyScalar(const JsonValue& v,
                                                    mjson::detail::Arena* arena) {
  // Tests in the order of how common the kinds are, rather than a jump
  // table: a mispredicted indirect jump costs the copy its overlap of the
  // loads of the next children.
  const JsonValue::EJsonValueType type = v.Type();
  if (type == JsonValue::String)
    return mjson::detail::MakeNode<JsonString>(arena, static_cast<const JsonString&>(v), arena);
  if (type == JsonValue::Real)
    return mjson::detail::MakeNode<JsonReal>(arena, static_cast<const JsonReal&>(v), arena);
  if (type == JsonValue::Integer)
    return mjson::detail::MakeNode<JsonInteger>(arena, static_cast<const JsonInteger&>(v));
  if (type == JsonValue::True) return mjson::detail::MakeNode<JsonTrue>(arena);
  if (type == JsonValue::False) return mjson::detail::MakeNode<JsonFalse>(arena);
  if (type == JsonValue::Null) return mjson::detail::MakeNode<JsonNull>(arena);
  return nullptr;
}

}  // namespace

// The copy walks the source with a stack of its own, breadth-first within
// each container, so a document of any depth copies on constant call stack.
void TreeCopier::CopyChildren(JsonValue* dst, const JsonValue* src, mjson::detail::Arena* arena) {
  struct Frame {
    JsonValue* dst;
    const JsonValue* src;
    size_t next;
  };
  std::vector<Frame> stack;
  stack.push_back({dst, src, 0});
  // Each pass copies the top container's children up to its next container
  // child, which is then entered; scalars never leave the inner loops.
  while (!stack.empty()) {
    Frame& f = stack.back();
    const JsonValue* inner = nullptr;  // the container child to enter
    JsonValue* innerCopy = nullptr;
    switch (f.src->Type()) {
      case JsonValue::Object: {
        auto* s = static_cast<const JsonObject*>(f.src);
        auto* d = static_cast<JsonObject*>(f.dst);
        // As for arrays below: the members go straight into the room the
        // copy's list has for them.
        const JsonObject::Member* from = s->fMembers.data();
        const size_t n = s->fMembers.size();
        JsonObject::MemberList& list = d->fMembers;
        JsonObject::Member* to = list.data() + list.size();
        size_t i = f.next;
        for (; i < n; ++i) {
          const JsonObject::Member& m = from[i];
          JsonValue* copy = CopyScalar(*m.value, arena);
          if (!copy) {
            inner = m.value;
            innerCopy = copy = ShallowCopy(*m.value, arena);
          }
          new (to++) JsonObject::Member(m, arena, copy);
          if (inner) {
            ++i;
            break;
          }
        }
        list.AssumeFilled(static_cast<size_t>(to - list.data()));
        f.next = i;
        if (!inner) d->CopyIndex(*s, arena);
        break;
      }
      case JsonValue::Array: {
        auto* s = static_cast<const JsonArray*>(f.src);
        auto* d = static_cast<JsonArray*>(f.dst);
        // The copy's list has room for all of them (ShallowCopy made it so):
        // scalars go straight into it, up to the next container.
        JsonValue* const* from = s->fValues.data();
        const size_t n = s->fValues.size();
        JsonValueList& list = d->fValues;
        JsonValue** to = list.data() + list.size();
        size_t i = f.next;
        for (; i < n; ++i) {
          JsonValue* copy = CopyScalar(*from[i], arena);
          if (!copy) break;
          *to++ = copy;
        }
        list.AssumeFilled(static_cast<size_t>(to - list.data()));
        if (i < n) {
          inner = from[i++];
          innerCopy = ShallowCopy(*inner, arena);
          list.push_back(innerCopy);
        }
        f.next = i;
        break;
      }
      default: {  // CompiledObject
        auto* s = static_cast<const JsonCompiledObject*>(f.src);
        auto* d = static_cast<JsonCompiledObject*>(f.dst);
        while (f.next < s->fSlots.size()) {
          const size_t i = f.next++;
          const JsonValue* child = s->fSlots[i];
          if (!child) continue;
          JsonValue* copy = CopyScalar(*child, arena);
          const bool container = !copy;
          if (container) copy = ShallowCopy(*child, arena);
          d->fSlots[i] = copy;
          if (container) {
            inner = child;
            innerCopy = copy;
            break;
          }
        }
        break;
      }
    }
    if (inner)
      stack.push_back({innerCopy, inner, 0});
    else
      stack.pop_back();
  }
}

JsonValue* TreeCopier::ShallowCopy(const JsonValue& v, mjson::detail::Arena* arena, size_t room) {
  switch (v.Type()) {
    case JsonValue::Object: {
      auto& o = static_cast<const JsonObject&>(v);
      auto* copy = mjson::detail::MakeNode<JsonObject>(arena, o.KeepsOrder());
      const size_t n = o.Size() + room;
      if (arena)
        copy->fMembers.Borrow(arena->Array<JsonObject::Member>(n), n);
      else
        copy->fMembers.reserve(n);
      return copy;
    }
    case JsonValue::CompiledObject: {
      auto& o = static_cast<const JsonCompiledObject&>(v);
      auto* copy = mjson::detail::MakeNode<JsonCompiledObject>(arena, o.Context(), arena);
      if (copy->fSlots.size() != o.SlotCount()) {  // the table grew since `o` was made
        if (arena) copy->fSlots.Borrow(arena->Array<JsonValue*>(o.SlotCount()), o.SlotCount());
        copy->fSlots.assign(o.SlotCount(), nullptr);
      }
      copy->fCountFilled = o.fCountFilled;
      return copy;
    }
    case JsonValue::Array: {
      auto& a = static_cast<const JsonArray&>(v);
      auto* copy = mjson::detail::MakeNode<JsonArray>(arena);
      const size_t n = a.Size() + room;
      if (arena)
        copy->fValues.Borrow(arena->Array<JsonValue*>(n), n);
      else
        copy->fValues.reserve(n);
      return copy;
    }
    default:
      return CopyScalar(v, arena);
  }
}

namespace {

// Copies of trees with fewer nodes than this stay in the pool, where a few
// small blocks serve them better than an arena's chunks.
constexpr size_t kArenaCopyNodes = 64;

// True when the tree of the container `root` has at least `n` nodes. Looks
// at no more than that many, on a fixed stack: a tree deeper than the stack
// counts as large.
bool HasAtLeastNodes(const JsonValue& root, size_t n) {
  struct Frame {
    const JsonValue* container;
    size_t next;
  };
  constexpr size_t kDepth = 16;
  Frame stack[kDepth];
  size_t depth = 0, seen = 1;
  stack[depth++] = {&root, 0};
  while (depth > 0) {
    Frame& f = stack[depth - 1];
    const JsonValue* child = nullptr;
    switch (f.container->Type()) {
      case JsonValue::Object: {
        auto& members = static_cast<const JsonObject*>(f.container)->Members();
        if (f.next < members.size()) child = members[f.next++].value;
        break;
      }
      case JsonValue::Array: {
        auto& values = static_cast<const JsonArray*>(f.container)->Values();
        if (f.next < values.size()) child = values[f.next++];
        break;
      }
      default: {
        auto& slots = static_cast<const JsonCompiledObject*>(f.container)->Slots();
        while (f.next < slots.size() && !child) child = slots[f.next++];
        break;
      }
    }
    if (!child) {
      --depth;
      continue;
    }
    if (++seen >= n) return true;
    if (IsContainer(child)) {
      if (depth == kDepth) return true;
      stack[depth++] = {child, 0};
    }
  }
  return false;
}

}  // namespace

// A container read from a document of some size (it lies in an arena), or
// one of many nodes, is copied into an arena of its own, which is then
// freed in one step as well; scalars and small trees are copied into the
// pool.
JsonValue* TreeCopier::Copy(const JsonValue& value, bool toChange) {
  if (!IsContainer(&value) || (!value.InArena() && !HasAtLeastNodes(value, kArenaCopyNodes))) {
    JsonValue* copy = ShallowCopy(value);
    if (IsContainer(copy)) CopyChildren(copy, &value);
    return copy;
  }
  mjson::detail::Arena* arena = mjson::detail::Arena::ForCopy(value, toChange);
  try {
    // A copy to be changed gets room to grow by a few children at its
    // root, where most changes of a script happen: a loop of appends or
    // member sets then never moves the root's list.
    const size_t room = toChange ? 4 + ContainerSize(value) / 16 : 0;
    JsonValue* copy = ShallowCopy(value, arena, room);
    CopyChildren(copy, &value, arena);
    arena->Seal(copy);
    return copy;
  } catch (...) {
    arena->Discard();  // every node of the copy is the arena's
    throw;
  }
}

JsonValue* JsonValue::CopyNoARefPtr(const JsonValue& value) {
  return TreeCopier::Copy(value, false);
}

JsonAutoRefPtr<JsonValue> JsonValue::Copy(const JsonValue& value) {
  return JsonAutoRefPtr<JsonValue>(TreeCopier::Copy(value, false));
}

JsonAutoRefPtr<JsonValue> JsonValue::CopyToChange(const JsonValue& value) {
  return JsonAutoRefPtr<JsonValue>(TreeCopier::Copy(value, true));
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
// Typed views and proxies

namespace mjson {

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

JsonValue* MemberOf(const JsonValue& container, const std::string& key) {
  switch (container.Type()) {
    case JsonValue::Object:
      return const_cast<JsonValue*>(static_cast<const JsonObject&>(container).Peek(key));
    case JsonValue::CompiledObject:
      return const_cast<JsonCompiledObject&>(static_cast<const JsonCompiledObject&>(container))
          .GetSubNode(key);
    default:
      return nullptr;
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

}  // namespace mjson

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
