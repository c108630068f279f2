// Assertions: a broken invariant is a program fault, reported with the failing expression's text.
//
// By default a failed assertion prints the expression with its file and line and aborts. Tests
// install `throwingAssertHandler` (or a handler of their own) so that an assertion's text can be
// checked without a death test.
#pragma once

#include <string>

#include "platform/kel/Exception.h"

namespace Kel {

// Thrown by the throwing handler; `what()` is the expression's text exactly.
class AssertionException : public Exception {
 public:
  explicit AssertionException(const std::string& expr) : Exception(expr) {}
};

using AssertHandler = void (*)(const char* expr, const char* file, int line);

// Installs a handler and returns the previous one; nullptr restores the aborting default. A
// handler that returns (instead of throwing or aborting) makes the failed check a no-op.
AssertHandler assertHandlerIs(AssertHandler handler) noexcept;
[[noreturn]] void throwingAssertHandler(const char* expr, const char* file, int line);
void assertFailed(const char* expr, const char* file, int line);

// Installs the throwing handler for the lifetime of the object.
class ScopedThrowingAsserts {
 public:
  ScopedThrowingAsserts() noexcept : previous_(assertHandlerIs(&throwingAssertHandler)) {}
  ~ScopedThrowingAsserts() { assertHandlerIs(previous_); }
  ScopedThrowingAsserts(const ScopedThrowingAsserts&) = delete;
  ScopedThrowingAsserts& operator=(const ScopedThrowingAsserts&) = delete;

 private:
  AssertHandler previous_;
};

}  // namespace Kel

#define KEL_ASSERT(expr) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertFailed(#expr, __FILE__, __LINE__))

// For an expression whose documented text differs from its C++ spelling.
#define KEL_ASSERT_TEXT(expr, text) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertFailed(text, __FILE__, __LINE__))
