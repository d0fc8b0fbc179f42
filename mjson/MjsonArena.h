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

namespace mjson {

class Arena {
 public:
  static constexpr size_t kPageBytes = 4096;

  // A new arena for a document of about `expectedBytes` of nodes and data.
  static Arena* Create(size_t expectedBytes);
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
  const char* CopyOut(const char* p, size_t n);
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
};

}  // namespace mjson

inline CompactString::CompactString(const char* p, size_t n, mjson::Arena* arena) {
  if (n <= kInline || !arena)
    Init(p, n);
  else
    InitBorrowed(arena->CopyOut(p, n), n);
}

namespace mjson::pool {
struct PendingDeletes;
// Queues `arena`'s hold, to be dropped after the entries pushed after it.
void PushArenaHold(PendingDeletes* pending, Arena* arena);
}  // namespace mjson::pool
