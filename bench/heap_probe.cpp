// Measures the heap that one parsed document holds, for one library, in a
// process of its own:
//
//   zentor_heap_probe LIBRARY SOURCE
//
// prints "<retained bytes> <peak bytes>": the heap in use right after the
// parse while the document is alive, and the highest it reached during the
// parse (scratch space and input copies included).
//
// Why a separate process: allocators that keep freed memory for reuse (our
// node slabs, for one) would hide a document's cost from any later
// measurement in the same process, and counting every allocation would slow
// the timed benchmarks. Here the counting is done at the malloc level, not
// by replacing operator new, because our node slabs, RapidJSON's pools and
// msgpack zones call malloc directly. Blocks are counted at their usable
// size, which is what they really take.
#include <malloc.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "BenchLibraries.h"

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer owns malloc in such builds; there is nothing to measure.
int main() {
  std::fprintf(stderr, "no heap measurement in a sanitizer build\n");
  return 2;
}
#else

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* p);
}

namespace {

// The probe is single-threaded; no library under test starts threads.
bool gCounting = false;
long long gInUse = 0;
long long gPeak = 0;

void Counted(void* p) {
  if (!gCounting || !p) return;
  gInUse += static_cast<long long>(malloc_usable_size(p));
  if (gInUse > gPeak) gPeak = gInUse;
}

void Uncounted(void* p) {
  if (gCounting && p) gInUse -= static_cast<long long>(malloc_usable_size(p));
}

}  // namespace

// The C library's allocator, with every block that comes and goes counted.
extern "C" {
void* malloc(size_t size) noexcept {
  void* p = __libc_malloc(size);
  Counted(p);
  return p;
}
void* calloc(size_t count, size_t size) noexcept {
  void* p = __libc_calloc(count, size);
  Counted(p);
  return p;
}
void* realloc(void* old, size_t size) noexcept {
  Uncounted(old);
  void* p = __libc_realloc(old, size);
  Counted(p ? p : (size ? old : nullptr));  // a failed realloc keeps the old block
  return p;
}
void free(void* p) noexcept {
  Uncounted(p);
  __libc_free(p);
}
void* memalign(size_t alignment, size_t size) noexcept {
  void* p = __libc_memalign(alignment, size);
  Counted(p);
  return p;
}
void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) noexcept {
  if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
  void* p = memalign(alignment, size);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s LIBRARY SOURCE\n", argv[0]);
    return 2;
  }
  std::string text;
  if (!LoadSource(argv[2], text)) {
    std::fprintf(stderr, "cannot read %s\n", argv[2]);
    return 2;
  }
  for (const Library& lib : AvailableLibraries()) {
    if (lib.name != argv[1] || !lib.hold) continue;
    gInUse = gPeak = 0;
    gCounting = true;
    std::shared_ptr<void> document = lib.hold(text);
    long long retained = gInUse;
    long long peak = gPeak;
    gCounting = false;
    if (!document) {
      std::fprintf(stderr, "%s failed to parse %s\n", argv[1], argv[2]);
      return 1;
    }
    std::printf("%lld %lld\n", retained, peak);
    return 0;
  }
  std::fprintf(stderr, "no heap measurement for library %s\n", argv[1]);
  return 2;
}

#endif  // !__SANITIZE_ADDRESS__
