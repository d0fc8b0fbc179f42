// Document arenas (see MjsonArena.h).
#include "MjsonArena.h"

#include <algorithm>
#include <cstring>

#include "MjsonInternal.h"

#if defined(__SANITIZE_ADDRESS__)
#define MJSON_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MJSON_POISON 1
#endif
#endif
#if defined(MJSON_POISON)
#include <sanitizer/asan_interface.h>
#endif

namespace mjson {

namespace {

// Chunks start small, so that a small document takes little, and double up
// to this; anything larger than a quarter of it gets a block of its own.
// The first chunks are sized from the input but kept small, as a value may
// be read from the front of a long buffer (a stream of values, say).
constexpr size_t kMaxChunkBytes = 64 * 1024;
constexpr size_t kMaxFirstChunk = 16 * 1024;
constexpr size_t kFirstDataChunk = 1024;

// After an arena this large dies, the C library is asked to give free pages
// back to the system (see pool::ReturnFreedPages); below it a program that
// parses and frees documents in a loop keeps reusing the same memory.
constexpr size_t kTrimAfterBytes = 16 << 20;

std::atomic<uint64_t> gDestroyedOneByOne{0};

size_t RoundUp(size_t n, size_t to) {
  return (n + to - 1) / to * to;
}

// The memory of a destroyed node stays in its chunk until the arena goes;
// under AddressSanitizer a later use of it is still an error it reports.
void Poison(const void* p, size_t bytes) {
#if defined(MJSON_POISON)
  ASAN_POISON_MEMORY_REGION(p, bytes);
#else
  (void)p;
  (void)bytes;
#endif
}

}  // namespace

// Every chunk and large block starts with one of these (a node chunk after
// its first page's arena address), linking the arena's blocks.
struct Arena::Block {
  Block* next;
  size_t bytes;
  bool pages;  // a node chunk, aligned to pages
};

Arena* Arena::Create(size_t expectedBytes) {
  auto* arena = new Arena();
  // Nodes take somewhat more than half of a parsed document's memory.
  arena->fNextNodeChunk =
      std::clamp(RoundUp(expectedBytes / 2, kPageBytes), kPageBytes, kMaxFirstChunk);
  arena->fNextDataChunk =
      std::clamp(RoundUp(expectedBytes / 2, 1024), kFirstDataChunk, kMaxFirstChunk);
  return arena;
}

// Blocks are sized to their class (see pool::BlockClassBytes), so that a
// block kept from a dead arena serves the next arena that asks for its
// class; `bytes` is rounded up and the block's size returned in it.
void* Arena::NewBlock(size_t& bytes, bool pages) {
  bytes = pool::BlockClassBytes(bytes);
  void* memory = pool::TakeKeptBlock(bytes, pages);
  if (!memory)
    memory = pages ? ::operator new(bytes, std::align_val_t(kPageBytes)) : ::operator new(bytes);
  char* start = static_cast<char*>(memory);
  Block* block;
  if (pages) {
    Arena* self = this;
    memcpy(start, &self, sizeof self);
    block = reinterpret_cast<Block*>(start + sizeof(Arena*));
  } else {
    block = reinterpret_cast<Block*>(start);
  }
  block->next = fBlocks;
  block->bytes = bytes;
  block->pages = pages;
  fBlocks = block;
  fBlockBytes += bytes;
  return memory;
}

void Arena::NextNodePage() {
  char* page = fPageEnd;
  if (!page || page == fChunkEnd) {
    size_t bytes = fNextNodeChunk;
    fNextNodeChunk = std::min(bytes * 2, kMaxChunkBytes);
    char* chunk = static_cast<char*>(NewBlock(bytes, true));
    fChunkEnd = chunk + bytes;
    fNodeCut = chunk + RoundUp(sizeof(Arena*) + sizeof(Block), 16);
    fPageEnd = chunk + kPageBytes;
    return;
  }
  Arena* self = this;
  memcpy(page, &self, sizeof self);
  fNodeCut = page + sizeof(Arena*);
  fPageEnd = page + kPageBytes;
}

void* Arena::DataSlow(size_t bytes) {
  const size_t header = RoundUp(sizeof(Block), 8);
  if (bytes > kMaxChunkBytes / 4) {
    size_t blockBytes = header + bytes;
    char* block = static_cast<char*>(NewBlock(blockBytes, false));
    return block + header;
  }
  size_t chunkBytes = fNextDataChunk;
  while (chunkBytes < header + bytes) chunkBytes *= 2;
  fNextDataChunk = std::min(chunkBytes * 2, kMaxChunkBytes);
  char* chunk = static_cast<char*>(NewBlock(chunkBytes, false));
  fDataCut = chunk + header + bytes;
  fDataEnd = chunk + chunkBytes;
  return chunk + header;
}

const char* Arena::CopyOut(const char* p, size_t n) {
  const size_t bytes = CompactString::BorrowedBlockBytes(n);
  char* block = static_cast<char*>(Data(bytes));
  if (bytes == n) {
    memcpy(block, p, n);
  } else {
    memcpy(block, &n, 8);
    memcpy(block + 8, p, n);
  }
  return block;
}

void Arena::Free() noexcept {
  for (SideBlock* side = fSide.load(std::memory_order_acquire); side;) {
    SideBlock* next = side->next;
    ::operator delete(side);
    side = next;
  }
  const size_t total = fBlockBytes;
  Block* block = fBlocks;
  while (block) {
    Block* next = block->next;
    const bool pages = block->pages;
    const size_t bytes = block->bytes;
    void* start =
        pages ? reinterpret_cast<char*>(block) - sizeof(Arena*) : static_cast<void*>(block);
#if defined(MJSON_POISON)
    ASAN_UNPOISON_MEMORY_REGION(start, bytes);
#endif
    if (!pool::KeepBlock(start, bytes, pages)) {
      if (pages)
        ::operator delete(start, std::align_val_t(kPageBytes));
      else
        ::operator delete(start);
    }
    block = next;
  }
  delete this;
  if (total >= kTrimAfterBytes) pool::ReturnFreedPages();
}

void Arena::DisposeNode(const JsonValue* node, pool::PendingDeletes* pending) noexcept {
  Arena* arena = Of(node);
  const bool root = (node->fType & JsonValue::kArenaRoot) != 0;
  if (root && arena->fHolds.load(std::memory_order_acquire) == 1 &&
      !arena->fChanged.load(std::memory_order_acquire)) {
    arena->Free();
    return;
  }
  // The root carries the tree's hold, an escaped node one of its own. The
  // hold is dropped after the node's children are gone: at once when
  // there is no queue (they were destroyed inside the destructor), else
  // when the queue reaches the entry pushed before them.
  const bool holds = root || node->CountFlag();
  if (holds && pending) pool::PushArenaHold(pending, arena);
  const_cast<JsonValue*>(node)->~JsonValue();
  Poison(node, sizeof(JsonValue));
  gDestroyedOneByOne.fetch_add(1, std::memory_order_relaxed);
  if (holds && !pending) arena->DropHold();
}

uint64_t Arena::NodesDestroyedOneByOne() {
  return gDestroyedOneByOne.load(std::memory_order_relaxed);
}

}  // namespace mjson

// ---------------------------------------------------------------------------
// The hooks of the value classes

void JsonValue::NoteEscape() const noexcept {
  mjson::Arena* arena = mjson::Arena::Of(this);
  // The hold is counted before the mark is set, so whoever sees the mark
  // also sees the hold. The caller's own reference keeps the arena alive
  // (through the tree or an escaped node), so the drop below is never the
  // last.
  arena->AddHold();
  if (!SetCountFlag()) arena->DropHold();
}

void JsonValue::NoteArenaChange() const noexcept {
  mjson::Arena::Of(this)->NoteChange();
}

void JsonValue::Dispose(mjson::pool::PendingDeletes* pending) const noexcept {
  if (fType & kInArena) [[unlikely]] {
    mjson::Arena::DisposeNode(this, pending);
    return;
  }
  delete this;
}
