// Node memory of the value library, and all of its per-thread state: the
// small-block pool that nodes, container lists and string blocks come from,
// the queue that keeps freeing a tree iterative, and the parsers' scratch
// vectors.
#include "MjsonPool.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <stdexcept>
#include <vector>

#include "Mjson.h"
#include "MjsonArena.h"
#include "MjsonScratch.h"

using namespace mjson::detail;

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

namespace mjson::detail::pool {

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
// Each thread has a node cache, a queue of values waiting to be deleted, the
// parsers' scratch vectors and the blocks of dead arenas it keeps. They live
// in one heap object, made on the thread's first use, and go back when the
// thread ends: the cache's nodes to the shared pool, the rest to the heap.
//
// Thread storage holds only a pointer to that object, the thread's word
// (MjsonPlatform.h), whose end call ends the state.

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

// Block classes up to kKeptBlockBytes, eight to an octave from 1 KB.
constexpr int kSmallestOctave = 10;
constexpr size_t kKeptClasses = (22 - kSmallestOctave + 1) * 8;
static_assert(kKeptBlockBytes == size_t(1) << 22);

size_t KeptClass(size_t bytes) {
  const int octave = 63 - __builtin_clzll(bytes);
  return static_cast<size_t>(octave - kSmallestOctave) * 8 + ((bytes >> (octave - 3)) - 8);
}

// Kept blocks, linked through their first word, one list per class and
// kind (aligned to pages or not: the two are freed differently).
struct KeptBlocks {
  struct Link {
    Link* next;
  };
  Link* lists[2][kKeptClasses] = {};
  size_t bytes = 0;
};

void FreeBlock(void* block, bool pages) {
  if (pages)
    ::operator delete(block, std::align_val_t(Arena::kPageBytes));
  else
    ::operator delete(block);
}

struct ThreadState : ThreadCache {
  ThreadState() : ThreadCache{} {}
  PendingDeletes pending;
  ScratchSlot scratch[static_cast<size_t>(ScratchUse::kCount)];
  KeptBlocks kept;
};

// What thread storage points to once the thread's state has ended (at
// thread or process exit): a cache that sends both paths to the slow side,
// where its state sends them to the shared pool. A value released later,
// say by a static freed during static destruction, is deleted directly.
ThreadCache gEndedCache{{}, nullptr, nullptr, ThreadCache::kFlushed};

void EndThread(ThreadState& state) {
  if (state.state == ThreadCache::kLive) FlushThreadCache(state);
  state.state = ThreadCache::kFlushed;
  for (ScratchSlot& slot : state.scratch)
    if (slot.object) slot.destroy(slot.object);
  for (int pages = 0; pages < 2; ++pages)
    for (KeptBlocks::Link* list : state.kept.lists[pages])
      while (list) {
        KeptBlocks::Link* next = list->next;
        FreeBlock(list, pages != 0);
        list = next;
      }
  state.kept.bytes = 0;
}

// Ends the thread's state, on the thread that ends. Whatever runs after
// this on that thread (other libraries' thread-exit code) finds the ended
// state.
void EndThreadWord(void* word) {
  if (ThreadWord() == word) SetThreadWord(&gEndedCache);
  auto* cache = static_cast<ThreadCache*>(word);
  if (cache && cache != &gEndedCache) {
    auto* state = static_cast<ThreadState*>(cache);
    EndThread(*state);
    delete state;
  }
}

[[gnu::noinline]] ThreadState* NewState() {
  auto* state = new ThreadState();
  if (!StartThreadWord(static_cast<ThreadCache*>(state), EndThreadWord)) {
    delete state;
    return nullptr;
  }
  return state;
}

// The thread's state, made on first use; null once it has ended.
ThreadState* State() {
  ThreadCache* cache = ThreadPointer();
  if (cache) [[likely]]
    return cache == &gEndedCache ? nullptr : static_cast<ThreadState*>(cache);
  return NewState();
}

// True when the cache can be used; brings it to life on first use.
bool CacheReady() {
  ThreadCache& cache = Cache();
  if (cache.state != ThreadCache::kUnused) return cache.state == ThreadCache::kLive;
  ThreadState* t = State();
  if (!t) return false;
  if (t->state == ThreadCache::kUnused) {
    for (size_t cls = 0; cls < kClasses; ++cls) t->classes[cls].room = BatchNodes(cls);
    t->state = ThreadCache::kLive;
  }
  return t->state == ThreadCache::kLive;
}

}  // namespace

void* TakeBlock(size_t bytes, bool pages) {
  if (kPoolNodes && bytes <= kKeptBlockBytes) {
    ThreadCache* cache = ThreadPointer();
    if (cache && cache != &gEndedCache) {
      KeptBlocks& kept = static_cast<ThreadState*>(cache)->kept;
      KeptBlocks::Link*& list = kept.lists[pages][KeptClass(bytes)];
      if (KeptBlocks::Link* block = list) {
        list = block->next;
        kept.bytes -= bytes;
        return block;
      }
    }
  }
  return pages ? ::operator new(bytes, std::align_val_t(Arena::kPageBytes)) : ::operator new(bytes);
}

void ReleaseBlock(void* block, size_t bytes, bool pages) noexcept {
  ThreadState* state = kPoolNodes ? State() : nullptr;
  if (!state || state->kept.bytes + bytes > kKeptBlockBytes) {
    FreeBlock(block, pages);
    return;
  }
  auto* link = static_cast<KeptBlocks::Link*>(block);
  KeptBlocks::Link*& list = state->kept.lists[pages][KeptClass(bytes)];
  link->next = list;
  list = link;
  state->kept.bytes += bytes;
}

ThreadCache gUnusedCache{};

}  // namespace mjson::detail::pool

// ---------------------------------------------------------------------------
// Releasing values

namespace {

// A list that grew past this while freeing a wide tree gives its memory
// back once drained.
constexpr size_t kPendingKeep = 4096;

}  // namespace

void JsonUseCounted::Destroy() const noexcept {
  mjson::detail::pool::ThreadState* state = mjson::detail::pool::State();
  if (!state) [[unlikely]] {
    Dispose(nullptr);
    return;
  }
  mjson::detail::pool::PendingDeletes& pending = state->pending;
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
      reinterpret_cast<mjson::detail::Arena*>(tagged & ~uintptr_t(1))->DropHold();
    else
      next->Dispose(&pending);
  }
  if (pending.items.capacity() > kPendingKeep) {
    const bool large = pending.items.capacity() * sizeof(void*) >= mjson::detail::pool::kLargeBlock;
    pending.items.shrink_to_fit();
    if (large) mjson::detail::ReturnFreedPages();
  }
  pending.active = false;
}

mjson::detail::ScratchSlot* mjson::detail::ThreadScratchSlot(ScratchUse use) {
  pool::ThreadState* state = pool::State();
  return state ? &state->scratch[static_cast<size_t>(use)] : nullptr;
}

void* mjson::detail::JsonPoolAllocate(size_t size) {
  return mjson::detail::pool::Allocate(size);
}

void mjson::detail::JsonPoolFree(void* p, size_t size) noexcept {
  mjson::detail::pool::Free(p, size);
}

void mjson::detail::JsonListTooLong() {
  throw std::length_error("a JSON container cannot hold that many children");
}

void* JsonValue::operator new(size_t size) {
  return mjson::detail::pool::Allocate(size);
}

void JsonValue::operator delete(void* p, size_t size) noexcept {
  mjson::detail::pool::Free(p, size);
}
