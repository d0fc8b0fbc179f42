// A barrier for tests that make threads meet round after round: a mutex and
// a condition variable, with a step run by the last thread to arrive before
// the others go on. std::barrier would do, but on some systems (MinGW's
// standard library) its waits can miss their wake-up and hang.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <utility>

class TestBarrier {
 public:
  explicit TestBarrier(size_t threads, std::function<void()> step = {})
      : fThreads(threads), fStep(std::move(step)) {}

  void ArriveAndWait() {
    std::unique_lock<std::mutex> lock(fMutex);
    const size_t round = fRound;
    if (++fArrived == fThreads) {
      if (fStep) fStep();
      fArrived = 0;
      ++fRound;
      fChanged.notify_all();
      return;
    }
    fChanged.wait(lock, [&] { return fRound != round; });
  }

 private:
  const size_t fThreads;
  const std::function<void()> fStep;
  std::mutex fMutex;
  std::condition_variable fChanged;
  size_t fArrived = 0;
  size_t fRound = 0;
};
