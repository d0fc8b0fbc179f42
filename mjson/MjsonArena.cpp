// Document arenas (see MjsonArena.h).
#include "MjsonArena.h"

#include <algorithm>
#include <cstring>

#include "MjsonInternal.h"

#if defined(MJSON_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace mjson::detail {

namespace {

// Chunks start small, so that a small document takes little, and double up
// to this; anything larger than a quarter of it gets a block of its own.
// The first chunks are sized from the input but kept small, as a value may
// be read from the front of a long buffer (a stream of values, say).
constexpr size_t kMaxChunkBytes = 64 * 1024;
constexpr size_t kMaxFirstChunk = 16 * 1024;
constexpr size_t kFirstDataChunk = 1024;

// After an arena this large dies, the C library is asked to give free pages
// back to the system (see ReturnFreedPages); below it a program that
// parses and frees documents in a loop keeps reusing the same memory.
constexpr size_t kTrimAfterBytes = 16 << 20;

std::atomic<uint64_t> gDestroyedOneByOne{0};

size_t RoundUp(size_t n, size_t to) {
  return (n + to - 1) / to * to;
}

// The memory of a destroyed node stays in its chunk until the arena goes;
// under AddressSanitizer a later use of it is still an error it reports.
void Poison(const void* p, size_t bytes) {
#if defined(MJSON_ADDRESS_SANITIZER)
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
Arena* Arena::ForCopy(const JsonValue& source, bool toChange) {
  auto* arena = new Arena();
  // A copy of a whole document needs about what the document's arena took
  // (less what its readers added): its chunks start at the size they would
  // have grown to. Anything else starts small.
  size_t expected = 0;
  if (source.InArena() && (source.fType & JsonValue::kArenaRoot))
    expected = Of(&source)->fBlockBytes;
  auto firstChunk = [&](size_t smallest) {
    size_t bytes = smallest;
    while (bytes < expected / 2 && bytes < kMaxChunkBytes) bytes *= 2;
    return bytes;
  };
  arena->fNextNodeChunk = firstChunk(kPageBytes);
  arena->fNextDataChunk = firstChunk(kFirstDataChunk);
  arena->fRecords = toChange;
  return arena;
}

void* Arena::NewBlock(size_t& bytes, bool pages) {
  bytes = pool::BlockClassBytes(bytes);
  void* memory = pool::TakeBlock(bytes, pages);
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
#if defined(MJSON_ADDRESS_SANITIZER)
    ASAN_UNPOISON_MEMORY_REGION(start, bytes);
#endif
    pool::ReleaseBlock(start, bytes, pages);
    block = next;
  }
  delete this;
  if (total >= kTrimAfterBytes) ReturnFreedPages();
}

void Arena::NoteChange(const JsonValue* container, size_t from) noexcept {
  if (!fRecords) {
    NoteChange();
    return;
  }
  ChangeLock lock(this);
  if (fChanged.load(std::memory_order_relaxed)) return;  // the tree will be walked anyway
  const uint32_t n = fRecorded.load(std::memory_order_relaxed);
  if (container->fType & JsonValue::kNoted) {
    for (uint32_t i = 0; i < n; ++i) {
      if (fRecord[i].container.load(std::memory_order_relaxed) == container) {
        fRecord[i].from = std::min(fRecord[i].from, from);
        return;
      }
    }
  }
  if (n == kRecordSlots) {
    fChanged.store(true, std::memory_order_relaxed);
    return;
  }
  const_cast<JsonValue*>(container)->fType |= JsonValue::kNoted;
  fRecord[n].container.store(container, std::memory_order_relaxed);
  fRecord[n].from = from;
  fRecorded.store(n + 1, std::memory_order_relaxed);
}

void Arena::Forget(const JsonValue* container) noexcept {
  if (!fRecords) return;
  ChangeLock lock(this);
  const uint32_t n = fRecorded.load(std::memory_order_relaxed);
  for (uint32_t i = 0; i < n; ++i)
    if (fRecord[i].container.load(std::memory_order_relaxed) == container)
      fRecord[i].container.store(nullptr, std::memory_order_relaxed);
}

void Arena::ReleaseForeign(const JsonValue* container, size_t from) noexcept {
  auto release = [this](const JsonValue* child) {
    if (child && !Owns(child)) JsonValue::ReleaseChild(child);
  };
  switch (container->Type()) {
    case JsonValue::Array: {
      JsonValueList& values =
          const_cast<JsonArray*>(static_cast<const JsonArray*>(container))->fValues;
      for (size_t i = from; i < values.size(); ++i) release(values[i]);
      values.Abandon();
      break;
    }
    case JsonValue::Object: {
      auto* object = const_cast<JsonObject*>(static_cast<const JsonObject*>(container));
      // Keys before `from` are inline or the arena's, as the copy made them.
      JsonObject::MemberList& members = object->fMembers;
      for (size_t i = from; i < members.size(); ++i) {
        release(members[i].value);
        members[i].key.~CompactString();
      }
      members.Abandon();
      object->DropIndex();
      break;
    }
    case JsonValue::CompiledObject: {
      JsonValueList& slots =
          const_cast<JsonCompiledObject*>(static_cast<const JsonCompiledObject*>(container))
              ->fSlots;
      for (size_t i = from; i < slots.size(); ++i) release(slots[i]);
      slots.Abandon();
      break;
    }
    default:
      break;
  }
}

void Arena::DisposeNode(const JsonValue* node, pool::PendingDeletes* pending) noexcept {
  Arena* arena = Of(node);
  const bool root = (node->fType & JsonValue::kArenaRoot) != 0;
  if (root && arena->fHolds.load(std::memory_order_acquire) == 1 &&
      !arena->fChanged.load(std::memory_order_acquire)) {
    // Nobody else holds a node of the tree: whoever changed parts of it is
    // done, and what they recorded is all there is to let go of.
    const uint32_t n = arena->fRecorded.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < n; ++i)
      if (const JsonValue* changed = arena->fRecord[i].container.load(std::memory_order_relaxed))
        arena->ReleaseForeign(changed, arena->fRecord[i].from);
    arena->Free();
    return;
  }
  if (node->fType & JsonValue::kNoted) arena->Forget(node);
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

}  // namespace mjson::detail

// ---------------------------------------------------------------------------
// The hooks of the value classes

void JsonValue::NoteEscape() const noexcept {
  mjson::detail::Arena* arena = mjson::detail::Arena::Of(this);
  // The hold is counted before the mark is set, so whoever sees the mark
  // also sees the hold. The caller's own reference keeps the arena alive
  // (through the tree or an escaped node), so the drop below is never the
  // last.
  arena->AddHold();
  if (!SetCountFlag()) arena->DropHold();
}

void JsonValue::NoteArenaChange(size_t from) const noexcept {
  mjson::detail::Arena::Of(this)->NoteChange(this, from);
}

mjson::detail::Arena* JsonValue::RecordingArena() const noexcept {
  mjson::detail::Arena* arena = mjson::detail::Arena::Of(this);
  return arena->RecordsChanges() ? arena : nullptr;
}

void JsonValue::Dispose(mjson::detail::pool::PendingDeletes* pending) const noexcept {
  if (fType & kInArena) [[unlikely]] {
    mjson::detail::Arena::DisposeNode(this, pending);
    return;
  }
  delete this;
}
