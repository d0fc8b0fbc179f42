// Document arenas: the memory of a document that a parse, a MessagePack
// read or a deep copy builds, in a few large chunks instead of one block per
// value. Internal to the library.
//
// A document is built by one thread into its own arena: nodes go into node
// chunks, and everything a node points to (element and member lists, the
// bytes of longer strings and keys, number texts, member indexes) into data
// chunks. None of it is freed on its own. When the document dies, the arena
// gives its chunks back in one step, without visiting a node, as long as
// two things hold:
//
//   - no node but the root was ever held from outside the tree. Every
//     reference to a node is counted in the node as always; the first one
//     taken to a node other than the root (a reader returning a shared
//     sub-node, say) marks the node as escaped and counts a hold on the
//     arena;
//   - no container of the tree was changed. A change may give the tree
//     nodes, lists and keys of other memory, which must be freed one by one.
//
// (Memory that readers add later without changing anything, the member
// index a first lookup makes, is handed to the arena as a side block and
// freed with it.)
//
// Otherwise the root's death walks the tree like any other: children are
// released, a node whose count reaches zero is destroyed in place, and an
// escaped node that is still held elsewhere lives on. The arena then lives
// until its last hold is dropped: the tree's (when the walk is over) and
// one for every escaped node (when that node dies). A hold is dropped only
// after the children of the node that carried it are gone, so no chunk is
// freed under a node still being destroyed.
//
//   root ---> [ node chunk | page | page | ... ]   Arena: holds = 1 (tree)
//                  each 4 KB page starts with       + 1 per escaped node
//                  the arena's address                changed = false
//             [ data chunk: lists, keys, texts ]
//             [ large block ] ...
//
// A copy made to be changed (JsonValue::CopyToChange: every script
// function that changes a document changes such a copy) keeps dying in one
// step after its change. Its arena records the changes instead of giving up:
// each container that changes is noted with the first child position the
// change touched (children before it are as the copy made them), up to
// kRecordSlots containers. When such a document dies with no node held from
// outside, the arena first lets go of what those containers hold that is not
// its own (children from elsewhere, keys and lists and indexes of their
// own), from the noted positions on, and then gives its chunks back; no
// other node is visited. A recorded container that grows takes its new list
// from the arena. More changed containers than the record holds fall back to
// the walk, and so does a held node: escaped nodes keep the rules above.
//
//   copy ---> [ root array: 8,000 elements of the arena | 1 appended ]
//             record: { root array, from 8,000 }   -> on death: release
//                                                     element 8,000, then
//                                                     the chunks
//
// A node finds its arena from its own address: node chunks are aligned to
// pages, every page begins with the arena's address, and no node straddles
// a page. Which thread drops the last hold does not matter; the holds and
// the root's count are atomic, with the orderings of the reference counts.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "Mjson.h"
#include "MjsonPlatform.h"

namespace mjson::detail {

class Arena {
 public:
  static constexpr size_t kPageBytes = 4096;

  // A new arena for a document of about `expectedBytes` of nodes and data.
  static Arena* Create(size_t expectedBytes);
  // An arena for a deep copy of `source`, sized after it, recording its
  // changes when `toChange` (see above).
  static Arena* ForCopy(const JsonValue& source, bool toChange);
  // An arena for a document read from `inputBytes` of text or MessagePack,
  // or null for input so short that a few blocks of the pool serve better.
  static Arena* ForInput(size_t inputBytes) {
    return inputBytes < sMinInput.load(std::memory_order_relaxed) ? nullptr
                                                                  : Create(2 * inputBytes);
  }
  // Where "so short" ends. Fuzzing lowers it to send small documents
  // through arenas too.
  static constexpr size_t kDefaultMinInput = 2048;
  static void SetMinInput(size_t bytes) { sMinInput.store(bytes, std::memory_order_relaxed); }
  static Arena* Of(const JsonValue* node) {
    return *reinterpret_cast<Arena* const*>(reinterpret_cast<uintptr_t>(node) & ~(kPageBytes - 1));
  }

  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // --- Building, by one thread.

  template <class T, class... Args>
  T* New(Args&&... args) {
    void* memory = NodeMemory(sizeof(T));
    T* node = ::new (memory) T(std::forward<Args>(args)...);
    node->fType |= JsonValue::kInArena;
    return node;
  }
  // Eight-byte aligned memory for what nodes point to.
  void* Data(size_t bytes) {
    bytes = (bytes + 7) & ~size_t(7);
    if (static_cast<size_t>(fDataEnd - fDataCut) < bytes) [[unlikely]]
      return DataSlow(bytes);
    char* p = fDataCut;
    fDataCut += bytes;
    return p;
  }
  template <class T>
  T* Array(size_t n) {
    return static_cast<T*>(Data(n * sizeof(T)));
  }
  // The bytes of a string longer than fits inline, copied here in the form
  // CompactString borrows (see CompactString::BorrowedBlockBytes).
  const char* CopyOut(const char* p, size_t n) {
    const size_t bytes = CompactString::BorrowedBlockBytes(n);
    char* block = static_cast<char*>(Data(bytes));
    if (n < 32) {  // most of them: no call
      CopyShortBytes(block, p, n);
    } else if (bytes == n) {
      __builtin_memcpy(block, p, n);
    } else {
      __builtin_memcpy(block, &n, 8);
      __builtin_memcpy(block + 8, p, n);
    }
    return block;
  }
  // A block of memory a reader made for a node after the build (a member
  // index), freed with the arena. `block` has kSideHeader bytes in front
  // for the arena's use. Any thread, at any time while the node is held.
  static constexpr size_t kSideHeader = 16;
  void Keep(void* block) noexcept {
    auto* side = static_cast<SideBlock*>(block);
    SideBlock* head = fSide.load(std::memory_order_relaxed);
    do {
      side->next = head;
    } while (!fSide.compare_exchange_weak(head, side, std::memory_order_release,
                                          std::memory_order_relaxed));
  }

  // The build is over and the tree hangs from `root`.
  void Seal(JsonValue* root) {
    root->fType |= JsonValue::kArenaRoot;
    fChanged.store(false, std::memory_order_relaxed);  // building is no change
  }
  // The build failed: every chunk goes back. No node of the arena may be
  // referenced any more.
  void Discard() noexcept { Free(); }
  // The end of a build by a reader: sealed with its root, or discarded
  // when there is none (the read failed).
  void Finish(JsonValue* root) noexcept {
    if (root)
      Seal(root);
    else
      Discard();
  }

  // --- The tree's life.

  // The root's last reference is gone; `pending` is the queue of the
  // deletion under way, if any.
  static void DisposeNode(const JsonValue* node, pool::PendingDeletes* pending) noexcept;
  void AddHold() noexcept { fHolds.fetch_add(1, std::memory_order_relaxed); }
  // Drops a hold; the last one gives the arena back.
  void DropHold() noexcept {
    if (fHolds.fetch_sub(1, std::memory_order_acq_rel) == 1) Free();
  }
  void NoteChange() noexcept {
    if (!fChanged.load(std::memory_order_relaxed)) fChanged.store(true, std::memory_order_relaxed);
  }
  // `container` changes from child position `from` on.
  void NoteChange(const JsonValue* container, size_t from) noexcept;
  // A container that may have been noted dies before the tree.
  void Forget(const JsonValue* container) noexcept;
  bool RecordsChanges() const { return fRecords; }
  // Room for a recorded container's list that is full, taken from the
  // arena: the list then never leaves it.
  template <class T>
  void Grow(NodeList<T>& list) {
    const size_t capacity = NodeList<T>::Grown(list.size() + 1);
    T* storage;
    {
      ChangeLock lock(this);
      storage = Array<T>(capacity);
    }
    list.MoveToBorrowed(storage, capacity);
  }

  // For tests: nodes destroyed one by one in arenas so far, process-wide.
  static uint64_t NodesDestroyedOneByOne();

 private:
  struct Block;

  Arena() = default;
  ~Arena() = default;

  void* NodeMemory(size_t bytes) {
    if (static_cast<size_t>(fPageEnd - fNodeCut) < bytes) [[unlikely]]
      NextNodePage();
    char* p = fNodeCut;
    fNodeCut += bytes;
    return p;
  }
  void NextNodePage();
  void* DataSlow(size_t bytes);
  void* NewBlock(size_t& bytes, bool pages);
  // Gives every block back, this arena with them.
  void Free() noexcept;

  // What a changed container of a recording arena holds that is not the
  // arena's, released before the arena goes.
  void ReleaseForeign(const JsonValue* container, size_t from) noexcept;
  bool Owns(const JsonValue* node) const { return node->InArena() && Of(node) == this; }

  // After the build, threads that change parts of the tree (a part held
  // from elsewhere may change on another thread than the rest) take the
  // arena's memory and note their changes under this lock.
  class ChangeLock {
   public:
    explicit ChangeLock(Arena* arena) : fArena(arena) {
      while (fArena->fChangeLock.exchange(true, std::memory_order_acquire)) YieldThread();
    }
    ~ChangeLock() { fArena->fChangeLock.store(false, std::memory_order_release); }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;

   private:
    Arena* fArena;
  };

  // Building state.
  char* fNodeCut = nullptr;  // next free byte of the current node page
  char* fPageEnd = nullptr;
  char* fChunkEnd = nullptr;  // end of the current node chunk
  char* fDataCut = nullptr;
  char* fDataEnd = nullptr;
  size_t fNextNodeChunk = 0;
  size_t fNextDataChunk = 0;
  Block* fBlocks = nullptr;  // every chunk and large block, newest first
  size_t fBlockBytes = 0;

  static inline std::atomic<size_t> sMinInput{kDefaultMinInput};

  struct SideBlock {
    SideBlock* next;
  };
  std::atomic<SideBlock*> fSide{nullptr};

  // The tree's life.
  std::atomic<int64_t> fHolds{1};
  std::atomic<bool> fChanged{false};

  // Changes recorded by a copy made to be changed. A slot is emptied when
  // its container dies first, on whichever thread that is.
  static constexpr uint32_t kRecordSlots = 16;
  struct Change {
    std::atomic<const JsonValue*> container{nullptr};
    size_t from = 0;
  };
  bool fRecords = false;
  std::atomic<bool> fChangeLock{false};
  std::atomic<uint32_t> fRecorded{0};
  Change fRecord[kRecordSlots];
};

inline CompactString::CompactString(const char* p, size_t n, Arena* arena) {
  if (n <= kInline || !arena)
    Init(p, n);
  else
    InitBorrowed(arena->CopyOut(p, n), n);
}

inline CompactString::CompactString(const CompactString& other, Arena* arena) {
  if (other.IsInline())
    __builtin_memcpy(fBytes, other.fBytes, sizeof fBytes);  // unused bytes are zero
  else if (arena)
    InitBorrowed(arena->CopyOut(other.Data(), other.Size()), other.Size());
  else
    Init(other.Data(), other.Size());
}

namespace pool {
struct PendingDeletes;
// Queues `arena`'s hold, to be dropped after the entries pushed after it.
void PushArenaHold(PendingDeletes* pending, Arena* arena);
}  // namespace pool

}  // namespace mjson::detail
