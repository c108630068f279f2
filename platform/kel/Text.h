// Text forms of values.
//
// Every value type prints as a Python-literal-like text and parses back from it: strings in single
// quotes with backslash escapes, integers in decimal, enumerators as a quoted name, and composite
// values as "Value('<type>', ** {'<field>': <text>, ...})". `TextCursor` reads such texts and
// `Strep<T>` is the one customisation point that tells the framework how to print and parse a T.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/kel/Exception.h"

namespace Kel {

// A read position in a text. Every read either consumes what it returns or throws ParseException
// (or RangeException for a well-formed number out of range) and leaves the position where it was.
class TextCursor {
 public:
  TextCursor(const char* begin, const char* end) : pos_(begin), end_(end) {}
  explicit TextCursor(std::string_view text) : pos_(text.data()), end_(text.data() + text.size()) {}

  const char* pos() const noexcept { return pos_; }
  bool atEnd() const noexcept { return pos_ == end_; }
  std::string_view rest() const noexcept { return {pos_, static_cast<size_t>(end_ - pos_)}; }

  // Consumes `literal` or throws ParseException naming it.
  void expect(std::string_view literal);
  // Consumes `literal` if it comes next.
  bool accept(std::string_view literal);
  void skipBlanks();
  // Reads a single-quoted string with backslash escapes.
  std::string readQuoted();
  // Reads an unsigned decimal number no larger than `max`.
  uint64_t readUnsigned(uint64_t max);
  // Reads an optionally negative decimal number within [min, max].
  int64_t readSigned(int64_t min, int64_t max);
  // Reads a decimal floating point number.
  double readDouble();
  // Reads "True"/"False" (also accepts "true"/"false").
  bool readBool();
  // Throws ParseException unless the whole text was consumed.
  void expectEnd();

 private:
  const char* pos_;
  const char* end_;
};

// Quotes a string as a single-quoted literal with backslash escapes.
std::string quote(std::string_view s);

// How a value type prints and parses. Specialise for platform types, or give the type a
// `static constexpr bool kelHasStrep = true`, a `std::string strep() const` and a constructor
// from `Kel::TextCursor&`.
template <class T, class Enable = void>
struct Strep;

template <class T>
struct Strep<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
  static std::string print(T v) { return std::to_string(v); }
  static T parse(TextCursor& c) {
    if constexpr (std::is_unsigned_v<T>) {
      return static_cast<T>(c.readUnsigned(std::numeric_limits<T>::max()));
    } else {
      return static_cast<T>(c.readSigned(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    }
  }
};

template <>
struct Strep<bool> {
  static std::string print(bool v) { return v ? "True" : "False"; }
  static bool parse(TextCursor& c) { return c.readBool(); }
};

template <>
struct Strep<double> {
  static std::string print(double v);
  static double parse(TextCursor& c) { return c.readDouble(); }
};

template <>
struct Strep<std::string> {
  static std::string print(const std::string& v) { return quote(v); }
  static std::string parse(TextCursor& c) { return c.readQuoted(); }
};

template <class T>
struct Strep<T, std::enable_if_t<T::kelHasStrep>> {
  static std::string print(const T& v) { return v.strep(); }
  static T parse(TextCursor& c) { return T(c); }
};

template <class T>
std::string valueToStrep(const T& v) {
  return Strep<T>::print(v);
}

// Parses a whole text as a T; trailing text is a parse error.
template <class T>
T strepToValue(std::string_view text) {
  TextCursor c(text);
  T v = Strep<T>::parse(c);
  c.expectEnd();
  return v;
}

// Parses one field of a composite text form. A RangeException raised while reading the field is
// raised again as a DeserializationException naming the field.
template <class T>
T parseField(TextCursor& c, const char* field) {
  try {
    return Strep<T>::parse(c);
  } catch (const RangeException& e) {
    throw DeserializationException(field, e.what());
  }
}

// Writes the text form of a composite value:
//   Value('<type>', ** {'<field>': <text>, ...})
class ValueFormWriter {
 public:
  explicit ValueFormWriter(std::string_view type) {
    out_ = "Value('";
    out_ += type;
    out_ += "', ** {";
  }
  template <class T>
  ValueFormWriter& field(std::string_view name, const T& v) {
    if (!first_) out_ += ", ";
    first_ = false;
    out_ += '\'';
    out_ += name;
    out_ += "': ";
    out_ += Strep<T>::print(v);
    return *this;
  }
  std::string str() const { return out_ + "})"; }

 private:
  std::string out_;
  bool first_ = true;
};

// Reads the text form written by ValueFormWriter, field by field in the same order. A missing
// literal piece is a ParseException; a field whose value is refused is a
// DeserializationException naming the field.
class ValueFormReader {
 public:
  ValueFormReader(TextCursor& c, std::string_view type) : c_(c) {
    c_.expect("Value('");
    c_.expect(type);
    c_.expect("', ** {");
  }
  template <class T>
  T field(std::string_view name) {
    if (!first_) c_.expect(", ");
    first_ = false;
    c_.expect("'");
    c_.expect(name);
    c_.expect("': ");
    return parseField<T>(c_, std::string(name).c_str());
  }
  void end() { c_.expect("})"); }

 private:
  TextCursor& c_;
  bool first_ = true;
};

}  // namespace Kel
