// Node memory of the value library, and all of its per-thread state: the
// small-block pool that nodes, container lists and string blocks come from,
// the queue that keeps freeing a tree iterative, and the parsers' scratch
// vectors.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <stdexcept>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#if defined(_WIN32)
#include <windows.h>
#endif

#include "Mjson.h"
#include "MjsonArena.h"
#include "MjsonPool.h"
#include "MjsonScratch.h"

// ---------------------------------------------------------------------------
// Node allocation
//
// Nodes are carved from 64 KB slabs into size classes of 8 bytes. Each
// thread keeps a free list per class; a list that grows past a limit hands a
// batch to a shared pool, and an empty list takes a batch back before a new
// slab is cut, so memory freed on one thread serves allocations on another.
//
// A class cuts little from the slab at first and twice as much each time it
// runs dry, up to a batch. A document touches dozens of classes (string
// blocks and small lists of every length) but fills only a few, so cutting
// full batches up front would leave most of the memory a parse takes idle.
//
// Memory goes back: slabs are aligned to their size and count the bytes cut
// from them, so a node tells its slab. When the shared pool holds more than
// a reserve, it tallies its free nodes per slab; every slab whose cut bytes
// are all free there goes back to the system. A thread's own cache is
// bounded, so after a large document dies, a process keeps at most a few
// megabytes per thread.
//
// Builds under AddressSanitizer use the plain heap, so that use after free
// and overruns stay visible to it.

namespace mjson::pool {

// The C library keeps freed blocks in its heap, resident, until it is told
// to give their pages back; other systems' allocators do that themselves.
// Called after freeing something large, so its cost is proportional.
void ReturnFreedPages() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

namespace {

// Blocks at least this big come from the general heap; after freeing one,
// the heap's free pages go back to the system. Smaller frees do not pay for
// that: a program that parses and frees documents in a loop would give
// pages back and fault them in again every time.
constexpr size_t kLargeBlock = 1 << 20;

constexpr size_t kSlabBytes = 64 * 1024;
// Free bytes the shared pool holds before it looks for slabs to give back,
// and the bytes of wholly free slabs it keeps even then: enough that a
// program parsing and freeing documents of a few megabytes in a loop reuses
// the same memory instead of asking the system for it again each time.
constexpr size_t kSharedReserve = 8 << 20;
constexpr size_t kKeptFreeSlabs = 4 << 20;

constexpr size_t ClassSize(size_t cls) {
  return (cls + 1) * kGranule;
}

// Nodes per batch: 256 small ones, or 8 KB of larger ones.
constexpr uint32_t BatchNodes(size_t cls) {
  return static_cast<uint32_t>(std::clamp<size_t>(8192 / ClassSize(cls), 16, 256));
}

// Nodes of the first cut from a slab: about 1 KB, at least four.
constexpr uint32_t FirstCutNodes(size_t cls) {
  return static_cast<uint32_t>(std::max<size_t>(1024 / ClassSize(cls), 4));
}

// The head of every slab. `cutBytes` is written by the one thread that cuts
// from the slab; once that thread moves on it sets `retired`, after which
// the count is final and the slab may be given back. `tally` belongs to
// the shared pool's compaction, which runs under its lock.
struct alignas(64) SlabHeader {
  uint32_t cutBytes = 0;
  uint32_t tally = 0;
  std::atomic<bool> retired{false};
};

constexpr uint32_t kReleasing = UINT32_MAX;

SlabHeader* SlabOf(const void* node) {
  return reinterpret_cast<SlabHeader*>(reinterpret_cast<uintptr_t>(node) & ~(kSlabBytes - 1));
}

// A fresh slab; `cut` and `end` receive the space after its header.
SlabHeader* NewSlab(char*& cut, char*& end) {
  void* memory = ::operator new(kSlabBytes, std::align_val_t(kSlabBytes));
  auto* slab = new (memory) SlabHeader();
  cut = static_cast<char*>(memory) + sizeof(SlabHeader);
  end = static_cast<char*>(memory) + kSlabBytes;
  return slab;
}

void RetireSlab(char* cut) {
  if (cut) SlabOf(cut - 1)->retired.store(true, std::memory_order_release);
}

class SharedPool {
 public:
  void Put(size_t cls, Batch batch) {
    std::lock_guard<std::mutex> lock(fMutex);
    fBatches[cls].push_back(batch);
    fFreeBytes += batch.count * ClassSize(cls);
    if (fFreeBytes > fCompactAt) Compact();
  }
  bool Take(size_t cls, Batch& batch) {
    std::lock_guard<std::mutex> lock(fMutex);
    if (fBatches[cls].empty()) return false;
    batch = fBatches[cls].back();
    fBatches[cls].pop_back();
    fFreeBytes -= batch.count * ClassSize(cls);
    return true;
  }
  // One node at a time, for threads whose cache is already gone.
  void* AllocateOne(size_t cls) {
    std::lock_guard<std::mutex> lock(fMutex);
    size_t size = ClassSize(cls);
    std::vector<Batch>& batches = fBatches[cls];
    if (!batches.empty()) {
      Batch& b = batches.back();
      FreeNode* node = b.head;
      b.head = node->next;
      if (--b.count == 0) batches.pop_back();
      fFreeBytes -= size;
      return node;
    }
    if (static_cast<size_t>(fCutEnd - fCut) < size) {
      RetireSlab(fCut);
      NewSlab(fCut, fCutEnd);
    }
    void* node = fCut;
    fCut += size;
    SlabOf(node)->cutBytes += static_cast<uint32_t>(size);
    return node;
  }

 private:
  // Gives back the retired slabs whose cut bytes are all free here, beyond
  // a few megabytes of them, and rebuilds the batches from the nodes that
  // stay. Runs when the free bytes pass a mark that is at least twice what
  // stayed last time, so its cost stays proportional to the frees that led
  // to it.
  void Compact() {
    for (size_t cls = 0; cls < kClasses; ++cls)
      for (const Batch& b : fBatches[cls])
        for (FreeNode* n = b.head; n; n = n->next)
          SlabOf(n)->tally += static_cast<uint32_t>(ClassSize(cls));

    std::vector<SlabHeader*> released;
    size_t keptFreeSlabs = 0;
    fFreeBytes = 0;
    for (size_t cls = 0; cls < kClasses; ++cls) {
      std::vector<Batch> kept;
      Batch current{nullptr, 0};
      const uint32_t batchNodes = BatchNodes(cls);
      for (const Batch& b : fBatches[cls]) {
        for (FreeNode *n = b.head, *next; n; n = next) {
          next = n->next;
          SlabHeader* slab = SlabOf(n);
          if (slab->tally == kReleasing) continue;
          // Only a retired slab's count is final (and safe to read here).
          if (slab->retired.load(std::memory_order_acquire) && slab->tally == slab->cutBytes) {
            if (keptFreeSlabs >= kKeptFreeSlabs) {
              slab->tally = kReleasing;
              released.push_back(slab);
              continue;
            }
            keptFreeSlabs += kSlabBytes;
          }
          slab->tally = 0;
          n->next = current.head;
          current.head = n;
          if (++current.count == batchNodes) {
            kept.push_back(current);
            current = Batch{nullptr, 0};
          }
        }
      }
      if (current.count) kept.push_back(current);
      for (const Batch& b : kept) fFreeBytes += b.count * ClassSize(cls);
      fBatches[cls] = std::move(kept);
    }
    for (SlabHeader* slab : released) {
      slab->~SlabHeader();
      ::operator delete(slab, std::align_val_t(kSlabBytes));
    }
    fCompactAt = std::max(kSharedReserve, 2 * fFreeBytes);
    if (!released.empty()) ReturnFreedPages();
  }

  std::mutex fMutex;
  std::vector<Batch> fBatches[kClasses];
  size_t fFreeBytes = 0;
  size_t fCompactAt = kSharedReserve;
  char* fCut = nullptr;  // the shared slab that AllocateOne cuts from
  char* fCutEnd = nullptr;
};

SharedPool& Shared() {
  static SharedPool* pool = new SharedPool();  // outlives every thread
  return *pool;
}

// True when this thread's cache can be used; brings it to life on first use
// (the per-thread state, below).
bool CacheReady();

// Gives the cache's nodes to the shared pool, at the end of its thread.
void FlushThreadCache(ThreadCache& t) {
  t.state = ThreadCache::kFlushed;
  RetireSlab(t.cut);
  t.cut = t.cutEnd = nullptr;
  for (size_t cls = 0; cls < kClasses; ++cls) {
    ClassCache& c = t.classes[cls];
    if (c.head) Shared().Put(cls, Batch{c.head, BatchNodes(cls) - c.room});
    for (size_t i = 0; i < c.full; ++i) Shared().Put(cls, c.batches[i]);
    c = ClassCache{};
  }
}

// The current list is full: it becomes a full batch, and the oldest full
// batch goes to the shared pool when there is no room left.
void Retire(size_t cls) {
  ClassCache& c = Cache().classes[cls];
  if (c.full == kLocalBatches) {
    Shared().Put(cls, c.batches[0]);
    std::copy(c.batches + 1, c.batches + kLocalBatches, c.batches);
    --c.full;
  }
  c.batches[c.full++] = Batch{c.head, BatchNodes(cls)};
  c.head = nullptr;
  c.room = BatchNodes(cls);
}

void Refill(size_t cls) {
  ThreadCache& t = Cache();
  ClassCache& c = t.classes[cls];
  Batch batch;
  if (c.full > 0) {
    batch = c.batches[--c.full];
  } else if (!Shared().Take(cls, batch)) {
    size_t size = ClassSize(cls);
    if (static_cast<size_t>(t.cutEnd - t.cut) < size) {
      RetireSlab(t.cut);
      NewSlab(t.cut, t.cutEnd);
    }
    uint32_t want = c.nextCut ? c.nextCut : FirstCutNodes(cls);
    c.nextCut = std::min(want * 2, BatchNodes(cls));
    size_t n = std::min<size_t>(want, static_cast<size_t>(t.cutEnd - t.cut) / size);
    FreeNode* head = nullptr;
    for (size_t i = n; i-- > 0;) {
      auto* node = reinterpret_cast<FreeNode*>(t.cut + i * size);
      node->next = head;
      head = node;
    }
    SlabOf(t.cut)->cutBytes += static_cast<uint32_t>(n * size);
    t.cut += n * size;
    batch = Batch{head, n};
  }
  c.head = batch.head;
  c.room = BatchNodes(cls) - static_cast<uint32_t>(batch.count);
}

}  // namespace

void* AllocateSlow(size_t cls) {
  if (!CacheReady()) return Shared().AllocateOne(cls);
  ClassCache& c = Cache().classes[cls];
  if (!c.head) Refill(cls);
  FreeNode* node = c.head;
  c.head = node->next;
  ++c.room;
  return node;
}

void FreeSlow(size_t cls, void* p) noexcept {
  auto* node = static_cast<FreeNode*>(p);
  if (!CacheReady()) {
    node->next = nullptr;
    Shared().Put(cls, Batch{node, 1});
    return;
  }
  ClassCache& c = Cache().classes[cls];
  if (c.room == 0) Retire(cls);
  node->next = c.head;
  c.head = node;
  --c.room;
}

void FreeUnpooled(void* p, size_t size) noexcept {
  ::operator delete(p);
  if (kPoolNodes && size >= kLargeBlock) ReturnFreedPages();
}

// ---------------------------------------------------------------------------
// Per-thread state
//
// Each thread has a node cache, a queue of values waiting to be deleted, and
// the parsers' scratch vectors. When the thread ends they are given back:
// the cache's nodes to the shared pool, the vectors to the heap.
//
// On most systems the cache is thread storage of its own, which the
// allocation fast paths reach directly, and one thread_local object ends
// the state in its destructor. Where the compiler emulates thread storage
// (MinGW), that storage is already freed when thread_local destructors run;
// there the whole state, cache included, is a heap object that the callback
// of a fiber-local slot ends. The callback receives the object itself and
// touches no thread storage.

// Values whose last reference went away while another value was being
// deleted wait here; the outermost deletion drains the list, so tearing
// down a tree never nests destructor calls more than one level deep. An
// entry with its low bit set is no value but an arena's hold, dropped once
// the entries above it (the children of the value that pushed it) are gone.
struct PendingDeletes {
  std::vector<const JsonUseCounted*> items;
  bool active = false;
};

void PushArenaHold(PendingDeletes* pending, Arena* arena) {
  pending->items.push_back(
      reinterpret_cast<const JsonUseCounted*>(reinterpret_cast<uintptr_t>(arena) | 1));
}

namespace {

struct ThreadState {
  PendingDeletes pending;
  ScratchSlot scratch[static_cast<size_t>(ScratchUse::kCount)];
#if defined(MJSON_STATE_ON_HEAP)
  ThreadCache cache{};
#endif
};

void EndThread(ThreadState& state, ThreadCache& cache) {
  if (cache.state == ThreadCache::kLive) FlushThreadCache(cache);
  cache.state = ThreadCache::kFlushed;
  for (ScratchSlot& slot : state.scratch)
    if (slot.object) slot.destroy(slot.object);
}

#if defined(MJSON_STATE_ON_HEAP)

void WINAPI EndThreadCallback(void* p) {
  auto* state = static_cast<ThreadState*>(p);
  EndThread(*state, state->cache);
  delete state;
}

// The slot's callback is code of the library that holds this pool, and it
// runs whenever a thread that used the pool ends, however long after the
// host unloaded that library: it would then run in unmapped code. So the
// library is pinned, once, before the slot exists: a host's FreeLibrary no
// longer unmaps it, and a later load finds it still there with its slot
// (one slot per process, not one per load).
DWORD StateSlot() {
  static const DWORD slot = [] {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&EndThreadCallback), &self);
    return FlsAlloc(EndThreadCallback);
  }();
  return slot;
}

constinit thread_local ThreadState* tState = nullptr;

// The thread's state, made on first use. The fiber-local slot is asked
// when thread storage has nothing: it outlives thread storage.
ThreadState* State() {
  if (ThreadState* state = tState) return state;
  auto* state = static_cast<ThreadState*>(FlsGetValue(StateSlot()));
  if (!state) {
    state = new ThreadState();
    FlsSetValue(StateSlot(), state);
  }
  tState = state;
  return state;
}

ThreadCache& StateCache() {
  ThreadCache& cache = State()->cache;
  tCachePtr = &cache;
  return cache;
}

#else

// Set when the thread's state has ended (at thread or process exit); a
// value released later, say by a static freed during static destruction,
// is then deleted directly, and nodes go to the shared pool.
constinit thread_local bool tEnded = false;

struct ThreadStateHolder {
  ThreadState state;
  ~ThreadStateHolder() {
    EndThread(state, tCache);
    tEnded = true;
  }
};

thread_local ThreadStateHolder tHolder;

ThreadState* State() {
  return tEnded ? nullptr : &tHolder.state;
}

ThreadCache& StateCache() {
  State();  // the state ends the cache with the thread
  return tCache;
}

#endif

// True when the cache can be used; brings it to life on first use.
bool CacheReady() {
  ThreadCache& cache = Cache();
  if (cache.state != ThreadCache::kUnused) return cache.state == ThreadCache::kLive;
  ThreadCache& t = StateCache();
  if (t.state == ThreadCache::kUnused) {
    for (size_t cls = 0; cls < kClasses; ++cls) t.classes[cls].room = BatchNodes(cls);
    t.state = ThreadCache::kLive;
  }
  return t.state == ThreadCache::kLive;
}

}  // namespace

#if defined(MJSON_STATE_ON_HEAP)
ThreadCache gUnusedCache{};
constinit thread_local ThreadCache* tCachePtr = nullptr;
#else
constinit thread_local ThreadCache tCache{};
#endif

}  // namespace mjson::pool

// ---------------------------------------------------------------------------
// Releasing values

namespace {

// A list that grew past this while freeing a wide tree gives its memory
// back once drained.
constexpr size_t kPendingKeep = 4096;

}  // namespace

void JsonUseCounted::Destroy() const noexcept {
  mjson::pool::ThreadState* state = mjson::pool::State();
  if (!state) [[unlikely]] {
    Dispose(nullptr);
    return;
  }
  mjson::pool::PendingDeletes& pending = state->pending;
  if (pending.active) {
    pending.items.push_back(this);
    return;
  }
  pending.active = true;
  Dispose(&pending);
  while (!pending.items.empty()) {
    const JsonUseCounted* next = pending.items.back();
    pending.items.pop_back();
    const auto tagged = reinterpret_cast<uintptr_t>(next);
    if (tagged & 1)
      reinterpret_cast<mjson::Arena*>(tagged & ~uintptr_t(1))->DropHold();
    else
      next->Dispose(&pending);
  }
  if (pending.items.capacity() > kPendingKeep) {
    const bool large = pending.items.capacity() * sizeof(void*) >= mjson::pool::kLargeBlock;
    pending.items.shrink_to_fit();
    if (large) mjson::pool::ReturnFreedPages();
  }
  pending.active = false;
}

mjson::ScratchSlot* mjson::ThreadScratchSlot(ScratchUse use) {
  pool::ThreadState* state = pool::State();
  return state ? &state->scratch[static_cast<size_t>(use)] : nullptr;
}

void* JsonPoolAllocate(size_t size) {
  return mjson::pool::Allocate(size);
}

void JsonPoolFree(void* p, size_t size) noexcept {
  mjson::pool::Free(p, size);
}

void JsonListTooLong() {
  throw std::length_error("a JSON container cannot hold that many children");
}

void* JsonValue::operator new(size_t size) {
  return mjson::pool::Allocate(size);
}

void JsonValue::operator delete(void* p, size_t size) noexcept {
  mjson::pool::Free(p, size);
}
