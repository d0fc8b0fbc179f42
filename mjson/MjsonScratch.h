// Scratch vectors for the parsers, kept per thread between parses.
//
// A parse collects children on stacks before moving them into their
// container. Allocating those stacks afresh for every document cost more than
// parsing a small one, so each thread keeps one vector per use and lends it
// out; a nested or concurrent borrower on the same thread gets a fresh one.
// Vectors that grew very large are trimmed on return, so one huge document
// does not pin its scratch memory for the thread's lifetime.
//
// The per-thread slots live with the library's other thread state, in
// MjsonPool.cpp.
#pragma once

#include <cstddef>
#include <vector>

namespace mjson::detail {

// The uses that keep a scratch vector per thread.
enum class ScratchUse : size_t {
  kTextFrames,
  kTextPairs,
  kTextValues,
  kMsgPackFrames,
  kMsgPackPairs,
  kMsgPackValues,
  kKeyTable,
  kCount
};

// This thread's slot for `use`: an owned object and how to destroy it,
// both null while the slot is empty (or lent out). ThreadScratchSlot gives
// null once the thread's state has ended (at thread or process exit).
struct ScratchSlot {
  void* object = nullptr;
  void (*destroy)(void*) = nullptr;
};
ScratchSlot* ThreadScratchSlot(ScratchUse use);

template <class T, ScratchUse kUse>
class Scratch {
 public:
  Scratch() : fVector(Take()) {}
  ~Scratch() {
    fVector->clear();
    if (fVector->capacity() * sizeof(T) > kKeepBytes) fVector->shrink_to_fit();
    ScratchSlot* slot = ThreadScratchSlot(kUse);
    if (!slot || slot->object) {
      delete fVector;
    } else {
      slot->object = fVector;
      slot->destroy = [](void* p) { delete static_cast<std::vector<T>*>(p); };
    }
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::vector<T>& Get() { return *fVector; }

 private:
  static constexpr size_t kKeepBytes = 1 << 20;

  static std::vector<T>* Take() {
    ScratchSlot* slot = ThreadScratchSlot(kUse);
    if (!slot || !slot->object) return new std::vector<T>();
    auto* vector = static_cast<std::vector<T>*>(slot->object);
    slot->object = nullptr;
    return vector;
  }

  std::vector<T>* fVector;
};

}  // namespace mjson::detail
