// The framework's failure types. Every error that bad input can cause is one of these, carrying
// the exact text the system documents; broken invariants are assertions instead (Assert.h).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Kel {

// Base of every framework error, so that a caller can catch them all in one place.
class Exception : public std::runtime_error {
 public:
  explicit Exception(const std::string& what) : std::runtime_error(what) {}
};

// A value out of its range: a too-long name, an index past its limit, a null pointer handed to a
// collection mutator.
class RangeException : public Exception {
 public:
  explicit RangeException(const std::string& what) : Exception(what) {}
};

// A table at its capacity refusing a new entry. Unlike the other range errors it says nothing
// about the entry itself: the same write succeeds once room is made, so a writer may keep the
// entry and try again instead of giving it up.
class TableFullException : public RangeException {
 public:
  TableFullException(const std::string& table, uint32_t capacity)
      : RangeException(table + " is full (capacity " + std::to_string(capacity) + "): insert not allowed") {}
};

// An entity re-created under a name already in use with different constructor parameters.
class NameInUseException : public Exception {
 public:
  explicit NameInUseException(const std::string& what) : Exception(what) {}
};

// Text that does not have the expected shape (a missing literal piece of a text form).
class ParseException : public Exception {
 public:
  explicit ParseException(const std::string& what) : Exception(what) {}
};

// A field of a text form that parsed but whose value was refused; names the field.
class DeserializationException : public Exception {
 public:
  DeserializationException(const std::string& field, const std::string& what)
      : Exception("error deserializing field '" + field + "': " + what), field_(field) {}
  const std::string& field() const noexcept { return field_; }

 private:
  std::string field_;
};

// A shared table whose contents can no longer be trusted.
class CorruptionException : public Exception {
 public:
  explicit CorruptionException(const std::string& what) : Exception(what) {}
};

// An operation that the current state does not allow (a full table, an unknown name asked of a
// registry).
class InvalidOperationException : public Exception {
 public:
  explicit InvalidOperationException(const std::string& what) : Exception(what) {}
};

}  // namespace Kel
