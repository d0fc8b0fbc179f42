// The building blocks that the value classes of Mjson.h are made of: the
// two-word string of keys and string values, the pooled lists of
// containers (all in namespace mjson::detail), and the byte order of the
// MessagePack writer. They are here because the classes embed them; they
// are not part of the library's interface, and nothing outside the library
// needs to use them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class JsonValue;

namespace mjson::detail {

class Arena;

// Blocks for the element and member lists of containers. Small ones come
// from the same per-thread pool as the nodes: most containers of a parsed
// document are small, and the general-purpose heap spends more on them than
// the parser does. Larger blocks go to operator new.
void* JsonPoolAllocate(size_t bytes);
void JsonPoolFree(void* p, size_t bytes) noexcept;
[[noreturn]] void JsonListTooLong();

// The child list of a container: pointer, size and capacity in two words
// (a std::vector takes three). Its storage is the list's own, from the
// pool, or borrowed: placed by whoever built the container (a document
// arena) and never given back by the list. A list whose borrowed storage
// must grow moves to storage of its own. The interface is the part of
// std::vector's that the containers and their readers use.
template <class T>
class NodeList {
 public:
  NodeList() noexcept = default;
  NodeList(size_t n, const T& value) {
    reserve(n);
    for (size_t i = 0; i < n; ++i) new (fData + i) T(value);
    fSize = static_cast<uint32_t>(n);
  }
  NodeList(const NodeList&) = delete;
  NodeList& operator=(const NodeList&) = delete;
  NodeList(NodeList&& other) noexcept
      : fData(other.fData), fSize(other.fSize), fCapacity(other.fCapacity) {
    other.fData = nullptr;
    other.fSize = other.fCapacity = 0;
  }
  NodeList& operator=(NodeList&& other) noexcept {
    if (this != &other) {
      FreeStorage();
      fData = other.fData;
      fSize = other.fSize;
      fCapacity = other.fCapacity;
      other.fData = nullptr;
      other.fSize = other.fCapacity = 0;
    }
    return *this;
  }
  ~NodeList() { FreeStorage(); }

  // Takes `storage`, room for `capacity` elements that stays its owner's,
  // as this empty list's storage.
  void Borrow(T* storage, size_t capacity) {
    FreeStorage();
    fData = storage;
    fSize = 0;
    fCapacity = static_cast<uint32_t>(capacity) | kBorrowed;
  }
  // The same for storage that already holds `n` elements, all of it.
  void BorrowFilled(T* storage, size_t n) {
    FreeStorage();
    fData = storage;
    fSize = static_cast<uint32_t>(n);
    fCapacity = static_cast<uint32_t>(n) | kBorrowed;
  }
  bool Borrowed() const { return (fCapacity & kBorrowed) != 0; }
  // For a builder that constructs elements in the reserved room itself: the
  // list now holds its first `n` slots (at most its capacity).
  void AssumeFilled(size_t n) { fSize = static_cast<uint32_t>(n); }
  // Moves the elements to `storage`, room for `capacity` elements that
  // stays its owner's, and gives up the storage they leave if it was the
  // list's own.
  void MoveToBorrowed(T* storage, size_t capacity) {
    for (size_t i = 0; i < fSize; ++i) {
      new (storage + i) T(std::move(fData[i]));
      fData[i].~T();
    }
    if (fData && !Borrowed()) mjson::detail::JsonPoolFree(fData, this->capacity() * sizeof(T));
    fData = storage;
    fCapacity = static_cast<uint32_t>(capacity) | kBorrowed;
  }
  // Forgets the elements without destroying them (whoever calls this has
  // dealt with them) and gives up the storage if it is the list's own.
  void Abandon() noexcept {
    if (fData && !Borrowed()) mjson::detail::JsonPoolFree(fData, capacity() * sizeof(T));
    fData = nullptr;
    fSize = fCapacity = 0;
  }
  // The size a list that is full grows to, to take `needed` elements.
  static size_t Grown(size_t needed) {
    if (needed > kMaxSize) mjson::detail::JsonListTooLong();
    return needed < 4 ? 4 : std::max(needed, std::min<size_t>(needed * 2, kMaxSize));
  }

  size_t size() const { return fSize; }
  bool empty() const { return fSize == 0; }
  size_t capacity() const { return fCapacity & ~kBorrowed; }
  T* data() { return fData; }
  const T* data() const { return fData; }
  T* begin() { return fData; }
  T* end() { return fData + fSize; }
  const T* begin() const { return fData; }
  const T* end() const { return fData + fSize; }
  T& operator[](size_t i) { return fData[i]; }
  const T& operator[](size_t i) const { return fData[i]; }
  T& back() { return fData[fSize - 1]; }
  const T& back() const { return fData[fSize - 1]; }

  void reserve(size_t n) {
    if (n > capacity()) MoveTo(n);
  }
  template <class... Args>
  T& emplace_back(Args&&... args) {
    if (fSize == capacity()) MoveTo(Grown(fSize + 1));
    T* slot = new (fData + fSize) T(std::forward<Args>(args)...);
    ++fSize;
    return *slot;
  }
  void push_back(const T& v) { emplace_back(v); }
  void push_back(T&& v) { emplace_back(std::move(v)); }
  void pop_back() {
    --fSize;
    fData[fSize].~T();
  }
  void clear() {
    for (T* p = fData; p != fData + fSize; ++p) p->~T();
    fSize = 0;
  }
  void assign(const T* first, const T* last) {
    clear();
    reserve(static_cast<size_t>(last - first));
    for (; first != last; ++first) new (fData + fSize++) T(*first);
  }
  void assign(size_t n, const T& value) {
    clear();
    reserve(n);
    for (; fSize < n; ++fSize) new (fData + fSize) T(value);
  }
  // Inserts before `pos`; returns where the first inserted element is.
  T* insert(T* pos, const T* first, const T* last) {
    const size_t at = static_cast<size_t>(pos - fData);
    const size_t n = static_cast<size_t>(last - first);
    if (n == 0) return fData + at;
    if (fSize + n > capacity()) MoveTo(Grown(fSize + n));
    // Open a gap of n at `at` by moving the tail up, last element first.
    for (size_t i = fSize; i-- > at;) {
      new (fData + i + n) T(std::move(fData[i]));
      fData[i].~T();
    }
    for (size_t i = 0; i < n; ++i) new (fData + at + i) T(first[i]);
    fSize += static_cast<uint32_t>(n);
    return fData + at;
  }
  T* insert(T* pos, const T& value) {
    T copy(value);  // `value` may live in this list
    return insert(pos, &copy, &copy + 1);
  }
  // Removes [first, last); returns where the element after them now is.
  T* erase(T* first, T* last) {
    const size_t at = static_cast<size_t>(first - fData);
    const size_t n = static_cast<size_t>(last - first);
    for (size_t i = at; i + n < fSize; ++i) fData[i] = std::move(fData[i + n]);
    for (size_t i = fSize - n; i < fSize; ++i) fData[i].~T();
    fSize -= static_cast<uint32_t>(n);
    return fData + at;
  }
  T* erase(T* pos) { return erase(pos, pos + 1); }

 private:
  static constexpr uint32_t kBorrowed = 0x80000000u;
  static constexpr size_t kMaxSize = 0x7FFFFFFFu;

  // Moves the elements to storage of its own for `n` elements.
  void MoveTo(size_t n) {
    if (n > kMaxSize) mjson::detail::JsonListTooLong();
    T* moved = static_cast<T*>(mjson::detail::JsonPoolAllocate(n * sizeof(T)));
    for (size_t i = 0; i < fSize; ++i) {
      new (moved + i) T(std::move(fData[i]));
      fData[i].~T();
    }
    if (fData && !Borrowed()) mjson::detail::JsonPoolFree(fData, capacity() * sizeof(T));
    fData = moved;
    fCapacity = static_cast<uint32_t>(n);
  }
  void FreeStorage() {
    clear();
    if (fData && !Borrowed()) mjson::detail::JsonPoolFree(fData, capacity() * sizeof(T));
    fData = nullptr;
    fCapacity = 0;
  }

  T* fData = nullptr;
  uint32_t fSize = 0;
  uint32_t fCapacity = 0;  // the top bit marks borrowed storage
};

using JsonValueList = NodeList<JsonValue*>;

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

// A byte string in two words, for member keys and string values. Up to 12
// bytes sit inline; longer ones live in a pooled block of the string's own,
// or in a block it borrows (from a document arena), which it never frees. Most keys
// and many values of real documents are short, and a document holds a great
// many of them, so this saves both the heap call and the space of a
// std::string. Inline strings keep their unused bytes zero, which makes
// comparing two short strings a compare of two words.
class alignas(8) CompactString {
 public:
  static constexpr size_t kInline = 12;

  CompactString() noexcept { Zero(); }
  CompactString(const char* p, size_t n) { Init(p, n); }
  // The same, a longer string copied into `arena` and borrowed from it when
  // there is one. Built in place: a short string put together on the stack
  // and then moved costs a stalled load of the two words just stored.
  CompactString(const char* p, size_t n, mjson::detail::Arena* arena);
  // A copy of `other`: an inline string in one move of its two words, a
  // longer one copied into `arena` and borrowed from it when there is one.
  CompactString(const CompactString& other, mjson::detail::Arena* arena);
  // Bytes of the block a longer string borrows: from kHuge bytes up the
  // block starts with the length in eight bytes.
  static size_t BorrowedBlockBytes(size_t n) { return n < kHuge ? n : n + 8; }
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
  // The block's address, with the low bit marking a borrowed block (blocks
  // are at least two-byte aligned, so the bit is free).
  static constexpr uintptr_t kBorrowedBit = 1;
  uintptr_t TaggedBlock() const {
    uintptr_t p;
    __builtin_memcpy(&p, fBytes + 8, sizeof p);
    return p;
  }
  char* Block() const { return reinterpret_cast<char*>(TaggedBlock() & ~kBorrowedBit); }
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
  void InitBorrowed(const char* block, size_t n) {
    Zero();
    const uint32_t n32 = n < kHuge ? static_cast<uint32_t>(n) : kHuge;
    __builtin_memcpy(fBytes, &n32, 4);
    const uintptr_t tagged = reinterpret_cast<uintptr_t>(block) | kBorrowedBit;
    __builtin_memcpy(fBytes + 8, &tagged, sizeof tagged);
  }
  void Free() {
    if (!IsInline() && !(TaggedBlock() & kBorrowedBit)) FreeHeap();
  }
  void FreeHeap();

  char fBytes[16];
};

}  // namespace mjson::detail

// Byte order: the library assumes a little-endian host and always swaps.
// clang-format off
inline uint16_t Reverse16(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t Reverse32(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t Reverse64(uint64_t v) { return __builtin_bswap64(v); }
inline uint16_t BigEndian16(uint16_t v) { return Reverse16(v); }
inline uint32_t BigEndian32(uint32_t v) { return Reverse32(v); }
inline uint64_t BigEndian64(uint64_t v) { return Reverse64(v); }
// clang-format on
