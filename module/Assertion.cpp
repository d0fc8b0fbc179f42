// The module's assertion: how a broken programming assumption ends the
// process. Apart from the exports, so that the module's parts link into
// tests and other programs without carrying them.
#include <cstdio>
#include <cstdlib>

#include "zentorMacros.h"

[[noreturn]] void Zentor::AssertionFailed(const char* expression, const char* file,
                                          unsigned int line, const char* function) noexcept {
  std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, expression);
  std::fflush(stderr);
  std::abort();
}
