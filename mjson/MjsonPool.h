// The fast paths of the node pool (MjsonPool.cpp), inline so that freeing a
// tree and building one pay no call per node. Internal to the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace mjson::pool {

// Builds under AddressSanitizer use the plain heap, so that use after free
// and overruns stay visible to it; so does any build that defines
// MJSON_NO_POOL.
#if defined(MJSON_NO_POOL) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool kPoolNodes = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
inline constexpr bool kPoolNodes = false;
#else
inline constexpr bool kPoolNodes = true;
#endif
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

// This thread's cache. On most systems it is thread storage, reached
// directly. Under emulated thread storage (MinGW), which is freed before
// thread_local destructors run, it lives on the heap with the rest of the
// thread's state (MjsonPool.cpp): thread storage then holds a pointer, and
// a thread without a cache yet sees an unused one that is never written.
#if defined(_WIN32)
#define MJSON_STATE_ON_HEAP 1
extern ThreadCache gUnusedCache;
extern constinit thread_local ThreadCache* tCachePtr;
inline ThreadCache& Cache() {
  ThreadCache* cache = tCachePtr;
  return cache ? *cache : gUnusedCache;
}
#else
extern constinit thread_local ThreadCache tCache;
inline ThreadCache& Cache() {
  return tCache;
}
#endif

// Asks the C library to give its free pages back to the system.
void ReturnFreedPages();

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

}  // namespace mjson::pool
