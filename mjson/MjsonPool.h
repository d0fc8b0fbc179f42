// The fast paths of the node pool (MjsonPool.cpp), inline so that freeing a
// tree and building one pay no call per node. Internal to the library.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "MjsonPlatform.h"

namespace mjson::detail::pool {

// Builds under AddressSanitizer use the plain heap, so that use after free
// and overruns stay visible to it; so does any build that defines
// MJSON_NO_POOL.
#if defined(MJSON_NO_POOL) || defined(MJSON_ADDRESS_SANITIZER) || defined(MJSON_MEMORY_SANITIZER)
inline constexpr bool kPoolNodes = false;
#else
inline constexpr bool kPoolNodes = true;
#endif

inline constexpr size_t kGranule = 8;
inline constexpr size_t kClasses = 64;      // nodes and small lists up to 512 bytes
inline constexpr size_t kLocalBatches = 8;  // full batches a thread keeps per class

struct FreeNode {
  FreeNode* next;
};

struct Batch {
  FreeNode* head;
  size_t count;
};

// Per class, a current free list and a few full batches behind it. A batch
// is handed around whole (head and count), so moving nodes between the
// thread and the shared pool never walks a list.
//
// The cache is plain zero-initialised thread storage, so the fast paths pay
// no construction check. Zero is also the state that sends both paths to
// the slow side: no head to allocate from, no room to free into. The slow
// side brings the cache to life and registers its flush at thread exit;
// once flushed, the cache goes back to zero and stays dead, and the thread's
// later calls (during static destruction, say) use the shared pool.
struct ClassCache {
  FreeNode* head;
  uint32_t room;     // nodes the current list takes before it is retired
  uint32_t full;     // full batches in `batches`
  uint32_t nextCut;  // nodes of the next cut from a slab; 0 before the first
  Batch batches[kLocalBatches];
};

struct ThreadCache {
  ClassCache classes[kClasses];
  char* cut;  // the slab this thread cuts from
  char* cutEnd;
  enum State : uint8_t { kUnused, kLive, kFlushed } state;
};

// This thread's cache: the first part of the thread's state, which lives on
// the heap (MjsonPool.cpp). The allocation fast paths reach it through the
// thread's word (MjsonPlatform.h). A thread without a state yet sees an
// unused cache that is never written: its empty lists send both paths to
// the slow side, which makes the state.
extern ThreadCache gUnusedCache;
inline ThreadCache* ThreadPointer() {
  return static_cast<ThreadCache*>(ThreadWord());
}
inline ThreadCache& Cache() {
  ThreadCache* cache = ThreadPointer();
  return cache ? *cache : gUnusedCache;
}

// Blocks of dead document arenas (MjsonArena.h), kept by the thread that
// freed them for the next arena it builds. A loop that copies a document
// and drops the copy before reuses the same memory, already faulted in,
// where the C library would give large blocks back to the system and fault
// them in again on every pass. Block sizes come in classes, eight to an
// octave from 1 KB up, so that a kept block serves the next request of its
// class exactly. A thread keeps at most kKeptBlockBytes; builds without the
// pool keep nothing, so that sanitizers see every block freed.
inline constexpr size_t kKeptBlockBytes = 4 << 20;
inline constexpr size_t kSmallestBlockClass = 1024;
// The class a block of `bytes` is rounded up to.
inline size_t BlockClassBytes(size_t bytes) {
  if (bytes <= kSmallestBlockClass) return kSmallestBlockClass;
  const size_t step = size_t(1) << (63 - __builtin_clzll(bytes) - 3);
  return (bytes + step - 1) & ~(step - 1);
}
// A block of `bytes` (a class size), aligned to pages or not: one the
// thread keeps when it has one of that class, else a new one.
void* TakeBlock(size_t bytes, bool pages);
// Gives back a block of `bytes` (a class size): kept by this thread while
// it keeps less than kKeptBlockBytes, else freed.
void ReleaseBlock(void* block, size_t bytes, bool pages) noexcept;

[[gnu::noinline, gnu::cold]] void* AllocateSlow(size_t cls);
[[gnu::noinline, gnu::cold]] void FreeSlow(size_t cls, void* p) noexcept;
// Blocks too big for a class, and every block when the pool is off.
[[gnu::noinline]] void FreeUnpooled(void* p, size_t size) noexcept;

inline void* Allocate(size_t size) {
  if (!kPoolNodes || size - 1 >= kGranule * kClasses) return ::operator new(size);
  size_t cls = (size - 1) / kGranule;
  ClassCache& c = Cache().classes[cls];
  FreeNode* node = c.head;
  if (!node) [[unlikely]]
    return AllocateSlow(cls);
  c.head = node->next;
  ++c.room;
  return node;
}

inline void Free(void* p, size_t size) noexcept {
  if (!p) return;
  if (!kPoolNodes || size - 1 >= kGranule * kClasses) [[unlikely]] {
    FreeUnpooled(p, size);
    return;
  }
  size_t cls = (size - 1) / kGranule;
  ClassCache& c = Cache().classes[cls];
  if (c.room == 0) [[unlikely]] {
    FreeSlow(cls, p);
    return;
  }
  auto* node = static_cast<FreeNode*>(p);
  node->next = c.head;
  c.head = node;
  --c.room;
}

}  // namespace mjson::detail::pool
