// What the value library needs to know about the compiler, the processor
// and the system it runs on, in one place: the compiler and its sanitizers,
// byte order, the spin hint, giving freed memory back to the system, one
// pointer per thread and a call when a thread ends. Every other source of
// the library is free of such tests (the vector layer, MjsonVector.h, has
// its own for the processor's vector unit). Internal to the library.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>

// The library leans on the builtins and attributes of GCC and clang
// (__builtin_ctz, __builtin_memcpy, [[gnu::noinline]], ...).
#if !defined(__GNUC__)
#error "the value library is built with GCC or clang"
#endif

// ---------------------------------------------------------------------------
// Sanitizers. GCC says so with a macro, clang through __has_feature.

#if defined(__SANITIZE_ADDRESS__)
#define MJSON_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MJSON_ADDRESS_SANITIZER 1
#endif
#endif

#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#define MJSON_MEMORY_SANITIZER 1
#endif
#endif

// ---------------------------------------------------------------------------
// Byte order. The MessagePack codec swaps every multi-byte field
// unconditionally, and the scans read a word's bytes in memory order as its
// low bytes first: both are right on little-endian processors only.

static_assert(std::endian::native == std::endian::little,
              "the value library is written for little-endian processors");

// ---------------------------------------------------------------------------
// Thread storage in the initial-exec model on ELF systems: a load at a fixed
// offset from the thread pointer. A library's thread storage in the general
// model costs a call into the dynamic linker on every access.

#if defined(__ELF__)
#define MJSON_TLS_FAST __attribute__((tls_model("initial-exec")))
#else
#define MJSON_TLS_FAST
#endif

namespace mjson::detail {

// ---------------------------------------------------------------------------
// Waiting

// The processor's hint that this is a spin loop waiting on another thread:
// for waits of a few stores.
inline void SpinPause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ __volatile__("yield" ::: "memory");
#endif
}

// Lets another thread run: for waits that may last as long as an allocation.
void YieldThread() noexcept;

// ---------------------------------------------------------------------------
// Memory

// Asks the C library to give its free pages back to the system; other
// systems' allocators do that themselves. Called after freeing something
// large, so its cost is proportional.
void ReturnFreedPages() noexcept;

// ---------------------------------------------------------------------------
// Diagnostics

// The name the process was started under, as the C library's assert prints it.
const char* ProgramName() noexcept;

// ---------------------------------------------------------------------------
// One pointer per thread, and a call when the thread ends.
//
// The word is null on a thread that never set it. The allocation fast
// paths read it on every call: it is thread storage in the initial-exec
// model on ELF systems, a slot of the system's thread storage on Windows
// (MinGW emulates thread storage through the threads library, with a lock
// per access, and frees it before the destructors of thread_local objects
// run, so none may have one there).

using ThreadEndFunction = void (*)(void* word);

// Makes `word` this thread's word and has `end(word)` called on this thread
// when it ends. One `end` serves the whole process. False, with nothing
// changed, when the system has no slot left.
bool StartThreadWord(void* word, ThreadEndFunction end) noexcept;

#if defined(_WIN32)
extern "C" __declspec(dllimport) void* __stdcall TlsGetValue(unsigned long index);
extern std::atomic<unsigned long> gThreadWordSlot;  // set once, before any thread's word
inline void* ThreadWord() noexcept {
  return TlsGetValue(gThreadWordSlot.load(std::memory_order_relaxed));
}
void SetThreadWord(void* word) noexcept;
#else
extern constinit thread_local void* tThreadWord MJSON_TLS_FAST;
inline void* ThreadWord() noexcept {
  return tThreadWord;
}
inline void SetThreadWord(void* word) noexcept {
  tThreadWord = word;
}
#endif

}  // namespace mjson::detail
