// Internals that the value library's sources share: assertions, number
// bounds and formatting, the MessagePack type codes, deep copy, node
// allocation and deletion, the member-key hash. Not part of the library's
// interface; tests may look.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "Mjson.h"
#include "MjsonArena.h"
#include "MjsonPlatform.h"
#include "MjsonPool.h"
#include "MjsonScan.h"

namespace mjson::detail {

// Reports a failed internal check the way the C library's assert does and
// ends the process. Used for the few checks that stay on in release builds.
[[noreturn]] void AssertionFailed(const char* expression, const char* file, unsigned line,
                                  const char* function) noexcept;

// ---------------------------------------------------------------------------
// Number bounds

// 2^63 as a double: the first double above every signed 64-bit integer.
// The largest such integer, 2^63 - 1, rounds to it as a double too.
inline constexpr double kTwoTo63 = 9223372036854775808.0;

inline bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// ---------------------------------------------------------------------------
// MessagePack type codes, as the format defines them. Codes that carry a
// value in their low bits are the first code of their range.

namespace msgpack {

enum Code : uint8_t {
  kPositiveFixInt = 0x00,  // 0x00..0x7F: the value itself
  kFixMap = 0x80,          // 0x80..0x8F: a map of up to 15 pairs
  kFixArray = 0x90,        // 0x90..0x9F: an array of up to 15 elements
  kFixStr = 0xA0,          // 0xA0..0xBF: a string of up to 31 bytes
  kNil = 0xC0,
  kFalse = 0xC2,
  kTrue = 0xC3,
  kFloat32 = 0xCA,
  kFloat64 = 0xCB,
  kUInt8 = 0xCC,
  kUInt16 = 0xCD,
  kUInt32 = 0xCE,
  kUInt64 = 0xCF,
  kInt8 = 0xD0,
  kInt16 = 0xD1,
  kInt32 = 0xD2,
  kInt64 = 0xD3,
  kStr8 = 0xD9,
  kStr16 = 0xDA,
  kStr32 = 0xDB,
  kArray16 = 0xDC,
  kArray32 = 0xDD,
  kMap16 = 0xDE,
  kMap32 = 0xDF,
  kNegativeFixInt = 0xE0,  // 0xE0..0xFF: -32..-1
};

inline constexpr uint8_t kFixCountMask = 0x0F;  // count bits of fixmap and fixarray
inline constexpr uint8_t kFixStrLengthMask = 0x1F;
inline constexpr size_t kFixCountLimit = 16;  // counts below this fit a fix code
inline constexpr size_t kFixStrLimit = 32;    // lengths below this fit fixstr

// True for the type codes of arrays and maps.
inline bool IsContainerCode(unsigned char code) {
  return (code >= kFixMap && code < kFixStr) || (code >= kArray16 && code <= kMap32);
}

}  // namespace msgpack

// ---------------------------------------------------------------------------
// Number formatting (MjsonNumber.cpp), shared by the text writer's loops.

// An integer as the writer spells it, with the writer's own digit count.
void AppendInteger(std::string& out, long long raw, bool largeUnsigned);
// The same written at `p`, which has room for kMaxIntegerText bytes; returns
// the end.
inline constexpr size_t kMaxIntegerText = 24;
char* WriteInteger(char* p, long long raw, bool largeUnsigned);
// A real: with `digits` significant digits when it came from text, else in
// the form the writer gives reals made by code.
void AppendReal(std::string& out, double v, int digits);
// The same written at `p`, which has room for kMaxRealText bytes (any
// double at any precision: "%g" drops trailing zeros, so no output is longer
// than the exact decimal expansion); returns the end.
inline constexpr size_t kMaxRealText = JsonReal::kMaxRealText;
char* WriteReal(char* p, double v, int digits);

// ---------------------------------------------------------------------------
// Ownership and copies

// A new reference to `value` (or null) for a container to own.
inline JsonValue* NewReference(const JsonAutoRefPtr<JsonValue>& value) {
  return JsonShare(value.get()).release();
}

// Deep copy, without recursion over the depth of the tree (MjsonValue.cpp).
// A friend of the containers, which copy through it.
class TreeCopier {
 public:
  // A deep copy of `value`: in an arena of its own when it is a container
  // of some size, in the pool otherwise. `toChange`: see
  // JsonValue::CopyToChange.
  static JsonValue* Copy(const JsonValue& value, bool toChange);
  // Copies the children of `src` into the empty container `dst` of the same
  // type, and their children, on a stack of its own; with `arena`, every
  // node and list of the copy comes from it.
  static void CopyChildren(JsonValue* dst, const JsonValue* src, Arena* arena = nullptr);
  // A copy of `v` with all its own fields but none of its children; a
  // container's list has room for `room` children more than `v` has.
  static JsonValue* ShallowCopy(const JsonValue& v, Arena* arena = nullptr, size_t room = 0);
};

// ---------------------------------------------------------------------------
// Ending a read

// What text and MessagePack reads share after the value: blanks may
// follow, nothing else may. Returns `value`, or null with the error set.
JsonAutoRefPtr<JsonValue> FinishRead(const std::string& input, ParserContext& ctx,
                                     JsonAutoRefPtr<JsonValue> value);

// The hash that objects index their members with first. It has no secret:
// keys can be chosen to collide under it, and an object whose probe runs
// grow long moves to a hash keyed per process instead.
uint64_t FastKeyHash(const char* p, size_t n);

// ---------------------------------------------------------------------------
// Making and deleting nodes

// A new node from the pool, with the pool's fast path inline (operator new
// of JsonValue is a call). Deleting it the usual way gives it back.
template <class T, class... Args>
inline T* NewNode(Args&&... args) {
  void* memory = pool::Allocate(sizeof(T));
  try {
    return ::new (memory) T(std::forward<Args>(args)...);
  } catch (...) {
    pool::Free(memory, sizeof(T));
    throw;
  }
}

// A new node of `arena`, or from the pool when there is none.
template <class T, class... Args>
inline T* MakeNode(Arena* arena, Args&&... args) {
  if (arena) return arena->New<T>(std::forward<Args>(args)...);
  return NewNode<T>(std::forward<Args>(args)...);
}

// The text parser's number step, building in `arena` when there is one.
JsonValue* ParseNumber(const std::string& text, ParserContext& ctx, Arena* arena);

// Destroys a node whose last reference is gone and hands its memory to the
// pool, through the node's own (final) class: no virtual call, and the
// pool's fast path inline wherever this is used.
template <class T>
inline void DeleteNode(const T* node) noexcept {
  if (node->InArena()) [[unlikely]] {
    Arena::DisposeNode(node, nullptr);
    return;
  }
  node->~T();
  pool::Free(const_cast<T*>(node), sizeof(T));
}

}  // namespace mjson::detail

// A container drops its reference to a child. A scalar owned by the
// container alone is deleted on the spot: it has no children of its own, so
// it needs no place in the queue that keeps freeing iterative.
inline void JsonValue::ReleaseChild(const JsonValue* v) noexcept {
  if (v->SoleOwner()) {
    switch (v->Type()) {
      case String:
        return mjson::detail::DeleteNode(static_cast<const JsonString*>(v));
      case Integer:
        return mjson::detail::DeleteNode(static_cast<const JsonInteger*>(v));
      case Real:
        return mjson::detail::DeleteNode(static_cast<const JsonReal*>(v));
      case True:
        return mjson::detail::DeleteNode(static_cast<const JsonTrue*>(v));
      case False:
        return mjson::detail::DeleteNode(static_cast<const JsonFalse*>(v));
      case Null:
        return mjson::detail::DeleteNode(static_cast<const JsonNull*>(v));
      default:
        break;
    }
  }
  v->Release();
}
