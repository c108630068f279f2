// What every fuzz target checks beyond "did not crash".
//
// A parser that accepts a text must give a value whose printed form parses back to the same value
// and prints the same again: text -> value -> text -> value. That catches the faults a crash-only
// fuzzer misses: a printer that writes what its parser refuses, a parser that keeps a bit the
// printer drops, two texts of one value that print differently. A refusal must be a Kel
// exception; any other exception escapes the target and libFuzzer reports it like a crash, and so
// does a failed check here (it aborts with both texts, quoted, so that the report says what went
// wrong without a debugger).
//
// Targets read their input as text after one selector character that picks the parser under test.
// Seeds start with a readable character (see each target's table); any other byte picks a parser
// by its value, so every input exercises something.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "platform/kel/Exception.h"
#include "platform/kel/Text.h"

namespace ProtoribFuzz {

[[noreturn]] inline void fail(std::string_view what, std::string_view input,
                              std::string_view detail) {
  std::fprintf(stderr, "round-trip failure: %.*s\n  input:  %s\n  detail: %s\n",
               static_cast<int>(what.size()), what.data(), Kel::quote(input).c_str(),
               Kel::quote(detail).c_str());
  std::abort();
}

inline void check(bool ok, std::string_view what, std::string_view input,
                  std::string_view detail = {}) {
  if (!ok) fail(what, input, detail);
}

// Values compare with ==, except that every NaN is the same value and -0.0 is not +0.0: the text
// form keeps the sign of zero and cannot keep a NaN's payload.
template <class T>
bool sameValue(const T& a, const T& b) {
  return a == b;
}
inline bool sameValue(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return a == b && std::signbit(a) == std::signbit(b);
}

// How a refused read leaves the cursor. TextCursor's own reads and the quoted single values
// restore it; composite value forms make no such promise.
enum class OnRefusal { cursorKept, cursorAnywhere };

// Parses `text` as a whole T through its text form; when it is accepted, checks the round trip.
// Returns the value, or nullopt when the text was refused.
template <class T>
std::optional<T> strepRoundTrip(std::string_view text,
                                OnRefusal onRefusal = OnRefusal::cursorAnywhere) {
  std::optional<T> v;
  {
    Kel::TextCursor c(text);
    try {
      v.emplace(Kel::Strep<T>::parse(c));
    } catch (const Kel::Exception&) {
      if (onRefusal == OnRefusal::cursorKept) {
        check(c.pos() == text.data(), "a refused read moved the cursor", text);
      }
      return std::nullopt;
    }
    if (!c.atEnd()) return std::nullopt;
  }
  std::string printed = Kel::Strep<T>::print(*v);
  std::optional<T> again;
  try {
    again.emplace(Kel::strepToValue<T>(printed));
  } catch (const Kel::Exception& e) {
    fail("the printed form is refused", text, printed + " -> " + e.what());
  }
  check(sameValue(*v, *again), "the printed form parses to another value", text, printed);
  std::string reprinted = Kel::Strep<T>::print(*again);
  check(reprinted == printed, "the value prints differently once parsed back", text,
        printed + " vs " + reprinted);
  return v;
}

// For the keys that mount paths also build from a range of characters: whenever the whole text is
// the key's text form, the range constructor reads the same key.
template <class T>
void rangeAgrees(std::string_view text, const std::optional<T>& v) {
  if (!v) return;
  std::optional<T> fromRange;
  try {
    fromRange.emplace(text.data(), text.data() + text.size());
  } catch (const Kel::Exception& e) {
    fail("the range constructor refuses a valid text", text, e.what());
  }
  check(*fromRange == *v, "the range constructor reads another key", text);
}

// The selector and the text after it.
struct Input {
  uint8_t selector = 0;
  std::string_view text;
};

inline std::optional<Input> split(const uint8_t* data, size_t size) {
  if (size == 0) return std::nullopt;
  return Input{data[0], std::string_view(reinterpret_cast<const char*>(data + 1), size - 1)};
}

// The index of `selector` in `letters`, or for any other byte its value modulo their number.
inline size_t pick(uint8_t selector, std::string_view letters) {
  size_t i = letters.find(static_cast<char>(selector));
  return i != std::string_view::npos ? i : selector % letters.size();
}

}  // namespace ProtoribFuzz
