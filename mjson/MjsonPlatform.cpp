// The system-dependent parts of the value library (see MjsonPlatform.h).
#include "MjsonPlatform.h"

#include <stdlib.h>

#include <thread>

#if defined(__GLIBC__)
#include <errno.h>
#include <malloc.h>
#endif

#if defined(_WIN32)
#include <windows.h>
#endif

namespace mjson::detail {

void YieldThread() noexcept {
  std::this_thread::yield();
}

// glibc keeps freed blocks in its heap, resident, until it is told to give
// their pages back.
void ReturnFreedPages() noexcept {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

const char* ProgramName() noexcept {
#if defined(__GLIBC__)
  return program_invocation_short_name;
#elif defined(__APPLE__) || defined(__FreeBSD__)
  return getprogname();
#elif defined(_WIN32)
  const char* path = _pgmptr ? _pgmptr : "";
  const char* name = path;
  for (const char* p = path; *p; ++p)
    if (*p == '/' || *p == '\\') name = p + 1;
  return name;
#else
  return "mjson";
#endif
}

namespace {

std::atomic<ThreadEndFunction> gThreadEnd{nullptr};

}  // namespace

#if defined(_WIN32)

std::atomic<unsigned long> gThreadWordSlot{TLS_OUT_OF_INDEXES};

namespace {

// Runs on the thread that ends, with the word it set.
void WINAPI EndThreadCallback(void* word) {
  gThreadEnd.load(std::memory_order_relaxed)(word);
}

// The fiber-local slot's callback is code of the library that holds it, and
// it runs whenever a thread that set its word ends, however long after the
// host unloaded that library: it would then run in unmapped code. So the
// library is pinned, once, before the slot exists: a host's FreeLibrary no
// longer unmaps it, and a later load finds it still there with its slots
// (one pair per process, not one per load).
DWORD EndSlot() {
  static const DWORD slot = [] {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&EndThreadCallback), &self);
    gThreadWordSlot.store(TlsAlloc(), std::memory_order_relaxed);
    return FlsAlloc(EndThreadCallback);
  }();
  return slot;
}

}  // namespace

bool StartThreadWord(void* word, ThreadEndFunction end) noexcept {
  gThreadEnd.store(end, std::memory_order_relaxed);
  const DWORD endSlot = EndSlot();
  const DWORD slot = gThreadWordSlot.load(std::memory_order_relaxed);
  if (endSlot == FLS_OUT_OF_INDEXES || slot == TLS_OUT_OF_INDEXES) return false;
  FlsSetValue(endSlot, word);
  TlsSetValue(slot, word);
  return true;
}

void SetThreadWord(void* word) noexcept {
  TlsSetValue(gThreadWordSlot.load(std::memory_order_relaxed), word);
}

#else

constinit thread_local void* tThreadWord MJSON_TLS_FAST = nullptr;

namespace {

// Calls the end function when its thread ends; made when the thread sets
// its word. (Built on systems other than Windows only: see above.)
struct ThreadEnd {
  void Arm() {}
  ~ThreadEnd() {
    if (ThreadEndFunction end = gThreadEnd.load(std::memory_order_relaxed)) end(tThreadWord);
  }
};
thread_local ThreadEnd tThreadEnd MJSON_TLS_FAST;

}  // namespace

bool StartThreadWord(void* word, ThreadEndFunction end) noexcept {
  gThreadEnd.store(end, std::memory_order_relaxed);
  tThreadWord = word;
  tThreadEnd.Arm();  // constructs it, so that its destructor runs at thread exit
  return true;
}

#endif

}  // namespace mjson::detail
