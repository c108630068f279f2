#include "platform/kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

namespace {

void abortingAssertHandler(const char* expr, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, expr);
  std::fflush(stderr);
  std::abort();
}

AssertHandler gHandler = &abortingAssertHandler;

}  // namespace

AssertHandler assertHandlerIs(AssertHandler handler) noexcept {
  AssertHandler previous = gHandler;
  gHandler = handler ? handler : &abortingAssertHandler;
  return previous == &abortingAssertHandler ? nullptr : previous;
}

void throwingAssertHandler(const char* expr, const char*, int) { throw AssertionException(expr); }

void assertFailed(const char* expr, const char* file, int line) { gHandler(expr, file, line); }

}  // namespace Kel
