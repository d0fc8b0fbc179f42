// Scratch vectors for the parsers, kept per thread between parses.
//
// A parse collects children on stacks before moving them into their
// container. Allocating those stacks afresh for every document cost more than
// parsing a small one, so each thread keeps one vector per element type and
// lends it out; a nested or concurrent borrower on the same thread gets a
// fresh one. Vectors that grew very large are trimmed on return, so one huge
// document does not pin its scratch memory for the thread's lifetime.
#pragma once

#include <memory>
#include <vector>

template <class T>
class Scratch {
 public:
  Scratch() : fVector(Take()) {}
  ~Scratch() {
    fVector->clear();
    if (fVector->capacity() * sizeof(T) > kKeepBytes) fVector->shrink_to_fit();
    std::unique_ptr<std::vector<T>>& slot = Slot();
    if (!slot) slot = std::move(fVector);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::vector<T>& Get() { return *fVector; }

 private:
  static constexpr size_t kKeepBytes = 1 << 20;

  static std::unique_ptr<std::vector<T>>& Slot() {
    thread_local std::unique_ptr<std::vector<T>> slot;
    return slot;
  }
  static std::unique_ptr<std::vector<T>> Take() {
    std::unique_ptr<std::vector<T>>& slot = Slot();
    if (slot) return std::move(slot);
    return std::make_unique<std::vector<T>>();
  }

  std::unique_ptr<std::vector<T>> fVector;
};
