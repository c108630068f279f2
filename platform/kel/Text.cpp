#include "platform/kel/Text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kel {

namespace {

std::string shown(std::string_view rest) {
  constexpr size_t kMax = 24;
  if (rest.size() > kMax) return std::string(rest.substr(0, kMax)) + "...";
  return std::string(rest);
}

}  // namespace

void TextCursor::expect(std::string_view literal) {
  if (!accept(literal)) {
    throw ParseException("expected \"" + std::string(literal) + "\" at \"" + shown(rest()) + "\"");
  }
}

bool TextCursor::accept(std::string_view literal) {
  if (rest().substr(0, literal.size()) != literal) return false;
  pos_ += literal.size();
  return true;
}

void TextCursor::skipBlanks() {
  while (pos_ != end_ && (*pos_ == ' ' || *pos_ == '\t')) ++pos_;
}

std::string TextCursor::readQuoted() {
  const char* p = pos_;
  if (p == end_ || *p != '\'') throw ParseException("expected a quoted string at \"" + shown(rest()) + "\"");
  ++p;
  std::string out;
  while (true) {
    if (p == end_) throw ParseException("unterminated quoted string");
    char ch = *p++;
    if (ch == '\'') break;
    if (ch == '\\') {
      if (p == end_) throw ParseException("unterminated escape in quoted string");
      char e = *p++;
      switch (e) {
        case 'n': out.push_back('\n'); break;
        case 't': out.push_back('\t'); break;
        case 'r': out.push_back('\r'); break;
        case '0': out.push_back('\0'); break;
        case 'x': {
          if (end_ - p < 2) throw ParseException("short \\x escape in quoted string");
          auto hex = [](char h) -> int {
            if (h >= '0' && h <= '9') return h - '0';
            if (h >= 'a' && h <= 'f') return h - 'a' + 10;
            if (h >= 'A' && h <= 'F') return h - 'A' + 10;
            return -1;
          };
          int hi = hex(p[0]), lo = hex(p[1]);
          if (hi < 0 || lo < 0) throw ParseException("bad \\x escape in quoted string");
          out.push_back(static_cast<char>(hi * 16 + lo));
          p += 2;
          break;
        }
        default: out.push_back(e); break;  // \\ \' and any other escaped character
      }
    } else {
      out.push_back(ch);
    }
  }
  pos_ = p;
  return out;
}

uint64_t TextCursor::readUnsigned(uint64_t max) {
  const char* p = pos_;
  if (p == end_ || *p < '0' || *p > '9') throw ParseException("expected a number at \"" + shown(rest()) + "\"");
  uint64_t v = 0;
  bool overflow = false;
  while (p != end_ && *p >= '0' && *p <= '9') {
    unsigned d = static_cast<unsigned>(*p - '0');
    if (v > (UINT64_MAX - d) / 10) overflow = true;
    else v = v * 10 + d;
    ++p;
  }
  if (overflow || v > max) {
    throw RangeException("value " + std::string(pos_, p) + " > " + std::to_string(max) + " not allowed");
  }
  pos_ = p;
  return v;
}

int64_t TextCursor::readSigned(int64_t min, int64_t max) {
  const char* start = pos_;
  bool neg = accept("-");
  uint64_t mag;
  try {
    mag = readUnsigned(UINT64_MAX);
  } catch (...) {
    pos_ = start;
    throw;
  }
  if ((!neg && mag > static_cast<uint64_t>(max)) ||
      (neg && mag > static_cast<uint64_t>(-(min + 1)) + 1)) {
    std::string text(start, pos_);
    pos_ = start;
    throw RangeException("value " + text + " out of range not allowed");
  }
  if (neg) return mag == 0 ? 0 : -static_cast<int64_t>(mag - 1) - 1;
  return static_cast<int64_t>(mag);
}

double TextCursor::readDouble() {
  std::string buf(rest().substr(0, 64));
  errno = 0;
  char* endp = nullptr;
  double v = std::strtod(buf.c_str(), &endp);
  if (endp == buf.c_str()) throw ParseException("expected a number at \"" + shown(rest()) + "\"");
  if (errno == ERANGE) throw RangeException("value " + std::string(buf.c_str(), static_cast<const char*>(endp)) + " out of range not allowed");
  pos_ += endp - buf.c_str();
  return v;
}

bool TextCursor::readBool() {
  if (accept("True") || accept("true")) return true;
  if (accept("False") || accept("false")) return false;
  throw ParseException("expected True or False at \"" + shown(rest()) + "\"");
}

void TextCursor::expectEnd() {
  if (!atEnd()) throw ParseException("unexpected text \"" + shown(rest()) + "\"");
}

std::string quote(std::string_view s) {
  std::string out;
  out.reserve(s.size() + 2);
  out.push_back('\'');
  for (char ch : s) {
    switch (ch) {
      case '\'': out += "\\'"; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f) {
          static const char* kHex = "0123456789abcdef";
          out += "\\x";
          out.push_back(kHex[(static_cast<unsigned char>(ch) >> 4) & 0xf]);
          out.push_back(kHex[static_cast<unsigned char>(ch) & 0xf]);
        } else {
          out.push_back(ch);
        }
    }
  }
  out.push_back('\'');
  return out;
}

std::string Strep<double>::print(double v) {
  char buf[64];
  // Shortest text that reads back to the same double.
  for (int prec = 6; prec <= 17; ++prec) {
    std::snprintf(buf, sizeof buf, "%.*g", prec, v);
    if (std::strtod(buf, nullptr) == v) break;
  }
  return buf;
}

}  // namespace Kel
