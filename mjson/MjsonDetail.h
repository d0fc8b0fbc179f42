// The building blocks that the value classes of Mjson.h are made of: the
// two-word string of keys and string values, the pooled lists of
// containers, and the byte order of the MessagePack writer. They are here
// because the classes embed them; their layout is not part of the library's
// interface, and nothing outside the library needs to use them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class JsonValue;

// Blocks for the element and member lists of containers. Small ones come
// from the same per-thread pool as the nodes: most containers of a parsed
// document are small, and the general-purpose heap spends more on them than
// the parser does. Larger blocks go to operator new.
void* JsonPoolAllocate(size_t bytes);
void JsonPoolFree(void* p, size_t bytes) noexcept;

template <class T>
struct JsonPoolAllocator {
  using value_type = T;
  JsonPoolAllocator() noexcept = default;
  template <class U>
  JsonPoolAllocator(const JsonPoolAllocator<U>&) noexcept {}
  T* allocate(size_t n) { return static_cast<T*>(JsonPoolAllocate(n * sizeof(T))); }
  void deallocate(T* p, size_t n) noexcept { JsonPoolFree(p, n * sizeof(T)); }
  template <class U>
  bool operator==(const JsonPoolAllocator<U>&) const noexcept {
    return true;
  }
};

using JsonValueList = std::vector<JsonValue*, JsonPoolAllocator<JsonValue*>>;

// Copies up to 31 bytes with a few fixed-size moves instead of a call:
// keys and most strings are that short. Moves overlap but never leave
// [0, n) on either side.
inline void CopyShortBytes(char* dst, const char* src, size_t n) {
  if (n >= 16) {
    __builtin_memcpy(dst, src, 16);
    __builtin_memcpy(dst + n - 16, src + n - 16, 16);
  } else if (n >= 8) {
    __builtin_memcpy(dst, src, 8);
    __builtin_memcpy(dst + n - 8, src + n - 8, 8);
  } else if (n >= 4) {
    __builtin_memcpy(dst, src, 4);
    __builtin_memcpy(dst + n - 4, src + n - 4, 4);
  } else if (n) {
    dst[0] = src[0];
    dst[n / 2] = src[n / 2];
    dst[n - 1] = src[n - 1];
  }
}

// An owned byte string in two words, for member keys and string values.
// Up to 12 bytes sit inline; longer ones live in a pooled block. Most keys
// and many values of real documents are short, and a document holds a great
// many of them, so this saves both the heap call and the space of a
// std::string. Inline strings keep their unused bytes zero, which makes
// comparing two short strings a compare of two words.
class alignas(8) CompactString {
 public:
  static constexpr size_t kInline = 12;

  CompactString() noexcept { Zero(); }
  CompactString(const char* p, size_t n) { Init(p, n); }
  explicit CompactString(std::string_view s) { Init(s.data(), s.size()); }
  CompactString(const CompactString& other) { Init(other.Data(), other.Size()); }
  CompactString(CompactString&& other) noexcept {
    __builtin_memcpy(fBytes, other.fBytes, sizeof fBytes);
    other.Zero();
  }
  CompactString& operator=(const CompactString& other) {
    if (this != &other) *this = CompactString(other);
    return *this;
  }
  CompactString& operator=(CompactString&& other) noexcept {
    if (this != &other) {
      Free();
      __builtin_memcpy(fBytes, other.fBytes, sizeof fBytes);
      other.Zero();
    }
    return *this;
  }
  ~CompactString() { Free(); }

  size_t Size() const { return SizeField() != kHuge ? SizeField() : HugeSize(); }
  bool Empty() const { return SizeField() == 0; }
  const char* Data() const { return IsInline() ? fBytes + 4 : HeapBytes(); }
  std::string_view View() const { return {Data(), Size()}; }
  operator std::string_view() const { return View(); }
  std::string Str() const { return std::string(Data(), Size()); }

  bool operator==(const CompactString& other) const {
    if (Word(0) != other.Word(0)) return false;  // size, and inline the first bytes
    if (IsInline()) return Word(1) == other.Word(1);
    return View() == other.View();
  }
  bool operator==(std::string_view s) const {
    return Size() == s.size() && __builtin_memcmp(Data(), s.data(), s.size()) == 0;
  }

 private:
  // Sizes from this one up are kept in front of the heap bytes.
  static constexpr uint32_t kHuge = UINT32_MAX;

  uint32_t SizeField() const {
    uint32_t n;
    __builtin_memcpy(&n, fBytes, 4);
    return n;
  }
  uint64_t Word(int i) const {
    uint64_t w;
    __builtin_memcpy(&w, fBytes + 8 * i, 8);
    return w;
  }
  bool IsInline() const { return SizeField() <= kInline; }
  char* Block() const {
    char* p;
    __builtin_memcpy(&p, fBytes + 8, sizeof p);
    return p;
  }
  const char* HeapBytes() const { return SizeField() != kHuge ? Block() : Block() + 8; }
  size_t HugeSize() const {
    size_t n;
    __builtin_memcpy(&n, Block(), sizeof n);
    return n;
  }
  void Zero() { __builtin_memset(fBytes, 0, sizeof fBytes); }
  void Init(const char* p, size_t n) {
    Zero();
    if (n > kInline) {
      InitHeap(p, n);
      return;
    }
    uint32_t n32 = static_cast<uint32_t>(n);
    __builtin_memcpy(fBytes, &n32, 4);
    CopyShortBytes(fBytes + 4, p, n);
  }
  void InitHeap(const char* p, size_t n);
  void Free() {
    if (!IsInline()) FreeHeap();
  }
  void FreeHeap();

  char fBytes[16];
};

// Byte order: the library assumes a little-endian host and always swaps.
// clang-format off
inline uint16_t Reverse16(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t Reverse32(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t Reverse64(uint64_t v) { return __builtin_bswap64(v); }
inline uint16_t BigEndian16(uint16_t v) { return Reverse16(v); }
inline uint32_t BigEndian32(uint32_t v) { return Reverse32(v); }
inline uint64_t BigEndian64(uint64_t v) { return Reverse64(v); }
// clang-format on
