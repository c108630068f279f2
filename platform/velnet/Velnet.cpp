#include "platform/velnet/Velnet.h"

#include <atomic>
#include <bit>
#include <cstdio>
#include <mutex>
#include <unordered_map>

#include "platform/kel/Assert.h"
#include "platform/kel/Hash.h"

namespace Velnet {

namespace {

// Bounds how much of a refused text goes into an error message.
std::string shown(std::string_view text) {
  constexpr size_t kMax = 48;
  if (text.size() > kMax) return Kel::quote(text.substr(0, kMax)) + "...";
  return Kel::quote(text);
}

bool isDigit(char ch) { return ch >= '0' && ch <= '9'; }

int hexValue(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
  return -1;
}

uint32_t swap32(uint32_t v) {
  if constexpr (std::endian::native == std::endian::big) return v;
  return (v >> 24) | ((v >> 8) & 0xff00u) | ((v << 8) & 0xff0000u) | (v << 24);
}

// The parsers below throw ParseException at the first shape error but only note the first range
// error in `range` and carry on with a clamped value: the caller raises it once the whole text
// has proved well formed.
struct RangeNote {
  std::string what;
  void note(std::string text) {
    if (what.empty()) what = std::move(text);
  }
  void raise() const {
    if (!what.empty()) throw Kel::RangeException(what);
  }
};

// Reads a decimal number without leading zeros at s[i], advancing i. Values past `max` are noted
// and clamped. Returns false (reading nothing) when no digit is there.
bool readDecimal(std::string_view s, size_t& i, unsigned max, unsigned& out, const char* what,
                 RangeNote& range) {
  size_t start = i;
  uint64_t v = 0;
  while (i < s.size() && isDigit(s[i])) {
    if (v <= max) v = v * 10 + static_cast<unsigned>(s[i] - '0');
    ++i;
  }
  if (i == start) return false;
  if (i - start > 1 && s[start] == '0') {
    throw Kel::ParseException(std::string(what) + " with a leading zero in " + shown(s));
  }
  if (v > max) {
    range.note(std::string(what) + " " + std::string(s.substr(start, i - start)) + " > " +
               std::to_string(max) + " not allowed");
    v = max;
  }
  out = static_cast<unsigned>(v);
  return true;
}

// Parses exactly the dotted quad `s`; returns it in host order.
uint32_t parseDottedQuad(std::string_view s, RangeNote& range) {
  size_t i = 0;
  uint32_t v = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (i >= s.size() || s[i] != '.') {
        throw Kel::ParseException("malformed IPv4 address " + shown(s));
      }
      ++i;
    }
    unsigned o = 0;
    if (!readDecimal(s, i, 255, o, "IPv4 address octet", range)) {
      throw Kel::ParseException("malformed IPv4 address " + shown(s));
    }
    v = v << 8 | o;
  }
  if (i != s.size()) throw Kel::ParseException("malformed IPv4 address " + shown(s));
  return v;
}

// Parses exactly the IPv6 address `s` (RFC 4291 text forms, no zone).
Ip6Addr::Bytes parseIp6(std::string_view s, RangeNote& range) {
  auto bad = [&s](const char* why) {
    return Kel::ParseException("malformed IPv6 address " + shown(s) + ": " + why);
  };
  // Groups before and after the "::", if any.
  uint16_t groups[8] = {};
  int count = 0;
  int gapAt = -1;
  size_t i = 0;
  if (s.substr(0, 2) == "::") {
    gapAt = 0;
    i = 2;
  }
  // Each pass reads one group and the separator after it, so the group limit ends the loop
  // within nine passes whatever the input.
  while (!(gapAt == 0 && count == 0 && i == s.size())) {
    size_t start = i;
    while (i < s.size() && hexValue(s[i]) >= 0 && i - start <= 4) ++i;
    if (i < s.size() && s[i] == '.') {
      // An embedded dotted quad fills the last two groups and must end the text.
      if (count > 6) throw bad("too many groups");
      uint32_t v4 = parseDottedQuad(s.substr(start), range);
      groups[count++] = static_cast<uint16_t>(v4 >> 16);
      groups[count++] = static_cast<uint16_t>(v4);
      break;
    }
    if (i == start) throw bad("expected a hexadecimal group");
    if (i - start > 4) throw bad("a group has more than four digits");
    if (count == 8) throw bad("too many groups");
    unsigned g = 0;
    for (size_t k = start; k < i; ++k) g = g * 16 + static_cast<unsigned>(hexValue(s[k]));
    groups[count++] = static_cast<uint16_t>(g);
    if (i == s.size()) break;
    if (s[i] != ':') throw bad("unexpected character");
    ++i;
    if (i < s.size() && s[i] == ':') {
      if (gapAt >= 0) throw bad("more than one \"::\"");
      gapAt = count;
      ++i;
      if (i == s.size()) break;
    } else if (i == s.size()) {
      throw bad("trailing ':'");
    }
  }
  if (gapAt < 0 && count != 8) throw bad("fewer than eight groups");
  // "::" stands for at least one zero group.
  if (gapAt >= 0 && count > 7) throw bad("\"::\" with eight groups");
  Ip6Addr::Bytes bytes{};
  int tail = gapAt < 0 ? 0 : count - gapAt;
  int head = count - tail;
  for (int g = 0; g < count; ++g) {
    int slot = g < head ? g : 8 - tail + (g - head);
    bytes[2 * slot] = static_cast<uint8_t>(groups[g] >> 8);
    bytes[2 * slot + 1] = static_cast<uint8_t>(groups[g]);
  }
  return bytes;
}

std::string dottedQuad(uint32_t host) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", host >> 24, (host >> 16) & 0xff, (host >> 8) & 0xff,
                host & 0xff);
  return buf;
}

// Reads one quoted text and hands its contents to `parse`; the cursor moves only on success.
template <class F>
auto parseQuoted(Kel::TextCursor& c, F parse) {
  Kel::TextCursor probe = c;
  std::string text = probe.readQuoted();
  auto v = parse(text);
  c = probe;
  return v;
}

}  // namespace

// ---- AddressFamily

namespace {
constexpr const char* kAfNames[] = {"none", "ipv4", "ipv6"};
}  // namespace

const char* afName(AddressFamily af) noexcept {
  auto v = static_cast<uint32_t>(af);
  return v < std::size(kAfNames) ? kAfNames[v] : "invalid";
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) {
  return os << Kel::Strep<AddressFamily>::print(af);
}

// ---- IpAddr

IpAddr IpAddr::fromHostOrder(uint32_t v) noexcept {
  IpAddr a;
  a.value_ = swap32(v);
  return a;
}

IpAddr IpAddr::fromNetworkOrder(uint32_t v) noexcept {
  IpAddr a;
  a.value_ = v;
  return a;
}

uint32_t IpAddr::hostOrder() const noexcept { return swap32(value_); }

IpAddr IpAddr::parse(std::string_view text) {
  RangeNote range;
  uint32_t v = parseDottedQuad(text, range);
  range.raise();
  return fromHostOrder(v);
}

IpAddr::IpAddr(Kel::TextCursor& c)
    : IpAddr(parseQuoted(c, [](const std::string& t) { return parse(t); })) {}

uint32_t IpAddr::hash() const noexcept { return Ip6Addr::v4Mapped(*this).hash(); }

std::string IpAddr::str() const { return dottedQuad(hostOrder()); }

// ---- Ip6Addr

Ip6Addr Ip6Addr::v4Mapped(IpAddr a) noexcept {
  Bytes b{};
  b[10] = 0xff;
  b[11] = 0xff;
  uint32_t h = a.hostOrder();
  b[12] = static_cast<uint8_t>(h >> 24);
  b[13] = static_cast<uint8_t>(h >> 16);
  b[14] = static_cast<uint8_t>(h >> 8);
  b[15] = static_cast<uint8_t>(h);
  return Ip6Addr(b);
}

Ip6Addr Ip6Addr::parse(std::string_view text) {
  RangeNote range;
  Bytes b = parseIp6(text, range);
  range.raise();
  return Ip6Addr(b);
}

Ip6Addr::Ip6Addr(Kel::TextCursor& c)
    : Ip6Addr(parseQuoted(c, [](const std::string& t) { return parse(t); })) {}

bool Ip6Addr::isV4Mapped() const noexcept {
  for (int i = 0; i < 10; ++i) {
    if (bytes_[i] != 0) return false;
  }
  return bytes_[10] == 0xff && bytes_[11] == 0xff;
}

uint32_t Ip6Addr::hash() const noexcept {
  const uint64_t h = Kel::loadLe64(bytes_.data()) * 0xc2b2ae3d27d4eb4fULL +
                     Kel::loadLe64(bytes_.data() + 8) * 0x165667b19e3779f9ULL;
  return Kel::mix64To32(h);
}

std::string Ip6Addr::str() const {
  if (isV4Mapped()) {
    return "::ffff:" + dottedQuad(uint32_t{bytes_[12]} << 24 | uint32_t{bytes_[13]} << 16 |
                                  uint32_t{bytes_[14]} << 8 | bytes_[15]);
  }
  unsigned groups[8];
  for (int g = 0; g < 8; ++g) groups[g] = unsigned{bytes_[2 * g]} << 8 | bytes_[2 * g + 1];
  // The longest run of at least two zero groups, the first one on a tie.
  int bestAt = -1, bestLen = 1;
  for (int g = 0; g < 8;) {
    if (groups[g] != 0) {
      ++g;
      continue;
    }
    int at = g;
    while (g < 8 && groups[g] == 0) ++g;
    if (g - at > bestLen) {
      bestAt = at;
      bestLen = g - at;
    }
  }
  std::string out;
  char buf[8];
  for (int g = 0; g < 8; ++g) {
    if (g == bestAt) {
      out += "::";
      g += bestLen - 1;
      continue;
    }
    if (!out.empty() && out.back() != ':') out += ':';
    std::snprintf(buf, sizeof buf, "%x", groups[g]);
    out += buf;
  }
  return out;
}

// ---- IpGenAddr

IpGenAddr::IpGenAddr(IpAddr a) noexcept : af_(static_cast<uint8_t>(AddressFamily::ipv4)) {
  uint32_t h = a.hostOrder();
  bytes_[0] = static_cast<uint8_t>(h >> 24);
  bytes_[1] = static_cast<uint8_t>(h >> 16);
  bytes_[2] = static_cast<uint8_t>(h >> 8);
  bytes_[3] = static_cast<uint8_t>(h);
}

IpGenAddr::IpGenAddr(Ip6Addr a) noexcept
    : af_(static_cast<uint8_t>(AddressFamily::ipv6)), bytes_(a.bytes()) {}

IpGenAddr IpGenAddr::parse(std::string_view text) {
  if (text.empty()) return IpGenAddr();
  if (text.find(':') != std::string_view::npos) return IpGenAddr(Ip6Addr::parse(text));
  return IpGenAddr(IpAddr::parse(text));
}

IpGenAddr::IpGenAddr(Kel::TextCursor& c)
    : IpGenAddr(parseQuoted(c, [](const std::string& t) { return parse(t); })) {}

IpAddr IpGenAddr::v4() const {
  KEL_ASSERT(af() == AddressFamily::ipv4);
  return IpAddr(bytes_[0], bytes_[1], bytes_[2], bytes_[3]);
}

Ip6Addr IpGenAddr::v6() const {
  KEL_ASSERT(af() == AddressFamily::ipv6);
  return Ip6Addr(bytes_);
}

bool IpGenAddr::isLinkLocal() const noexcept {
  return af() == AddressFamily::ipv6 && Ip6Addr(bytes_).isLinkLocal();
}

Ip6Addr::Bytes IpGenAddr::asV6Bytes() const noexcept {
  if (af() != AddressFamily::ipv4) return bytes_;
  return Ip6Addr::v4Mapped(IpAddr(bytes_[0], bytes_[1], bytes_[2], bytes_[3])).bytes();
}

uint32_t IpGenAddr::hash() const noexcept { return Ip6Addr(asV6Bytes()).hash(); }

std::string IpGenAddr::str() const {
  switch (af()) {
    case AddressFamily::ipv4: return v4().str();
    case AddressFamily::ipv6: return v6().str();
    default: return std::string();
  }
}

// ---- IpGenPrefix

unsigned IpGenPrefix::maxLength(AddressFamily af) noexcept {
  switch (af) {
    case AddressFamily::ipv4: return 32;
    case AddressFamily::ipv6: return 128;
    default: return 0;
  }
}

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, unsigned len) : addr_(addr) {
  unsigned max = maxLength(addr.af());
  if (len > max) {
    throw Kel::RangeException("IpGenPrefix length " + std::to_string(len) + " > " +
                              std::to_string(max) + " not allowed");
  }
  len_ = static_cast<uint8_t>(len);
  // Clear every bit past the length; the bytes past the family's width are zero already.
  for (unsigned byte = len / 8; byte < 16; ++byte) {
    unsigned keep = byte == len / 8 ? len % 8 : 0;
    addr_.bytes_[byte] &= static_cast<uint8_t>(0xff00u >> keep);
  }
}

IpGenPrefix IpGenPrefix::parse(std::string_view text) {
  if (text.empty()) return IpGenPrefix();
  size_t slash = text.find('/');
  if (slash == std::string_view::npos) {
    throw Kel::ParseException("malformed prefix " + shown(text) + ": expected '/'");
  }
  std::string_view addrText = text.substr(0, slash);
  bool v6 = addrText.find(':') != std::string_view::npos;
  RangeNote range;
  IpGenAddr addr;
  if (v6) {
    addr = IpGenAddr(Ip6Addr(parseIp6(addrText, range)));
  } else {
    addr = IpGenAddr(IpAddr::fromHostOrder(parseDottedQuad(addrText, range)));
  }
  std::string_view lenText = text.substr(slash + 1);
  size_t i = 0;
  unsigned len = 0;
  if (!readDecimal(lenText, i, maxLength(addr.af()), len, "prefix length", range) ||
      i != lenText.size()) {
    throw Kel::ParseException("malformed prefix " + shown(text) + ": bad length");
  }
  range.raise();
  return IpGenPrefix(addr, len);
}

IpGenPrefix::IpGenPrefix(Kel::TextCursor& c)
    : IpGenPrefix(parseQuoted(c, [](const std::string& t) { return parse(t); })) {}

bool IpGenPrefix::contains(const IpGenAddr& addr) const noexcept {
  if (isEmpty() || addr.af() != af()) return false;
  return IpGenPrefix(addr, len_) == *this;
}

uint32_t IpGenPrefix::hash() const noexcept {
  uint32_t k;
  switch (af()) {
    case AddressFamily::ipv4: k = addr_.v4().hostOrder() ^ len_; break;
    case AddressFamily::ipv6: k = addr_.v6().hash() ^ len_; break;
    default: return 0;
  }
  return Kel::wangHash32(k);
}

std::string IpGenPrefix::str() const {
  if (isEmpty()) return std::string();
  return addr_.str() + "/" + std::to_string(len_);
}

// ---- IntfId

namespace {

bool isIntfNameChar(char ch) {
  return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || isDigit(ch) || ch == '/' ||
         ch == '.' || ch == '_' || ch == ':' || ch == '-';
}

// Interned names. Entries live in fixed chunks that never move or die, so a name's std::string
// and the views the index holds into it stay valid for the process, and a reader needs no lock:
// it finds the chunk through an atomic pointer, and the entry itself was written before the id
// that names it could reach any thread. Interning takes the lock.
class IntfTable {
 public:
  struct Entry {
    std::string name;
    uint32_t hash = 0;
  };
  static constexpr uint32_t kChunkBits = 8;
  static constexpr uint32_t kChunkSize = 1u << kChunkBits;
  static constexpr uint32_t kMaxChunks = 4096;

  IntfTable() { chunks_[0].store(new Entry[kChunkSize], std::memory_order_release); }

  const Entry& entry(uint32_t id) const noexcept {
    return chunks_[id >> kChunkBits].load(std::memory_order_acquire)[id & (kChunkSize - 1)];
  }

  uint32_t intern(std::string_view name) {
    if (name.empty()) return 0;
    std::lock_guard<std::mutex> lock(mu_);
    auto it = byName_.find(name);
    if (it != byName_.end()) return it->second;
    if (count_ == kChunkSize * kMaxChunks) {
      throw Kel::RangeException("more than " + std::to_string(count_) +
                                " interface names not allowed");
    }
    uint32_t id = count_;
    Entry* chunk = chunks_[id >> kChunkBits].load(std::memory_order_relaxed);
    if (chunk == nullptr) {
      chunk = new Entry[kChunkSize];
      chunks_[id >> kChunkBits].store(chunk, std::memory_order_release);
    }
    Entry& e = chunk[id & (kChunkSize - 1)];
    e.name.assign(name);
    e.hash = Kel::stringHash(name);
    byName_.emplace(std::string_view(e.name), id);
    ++count_;
    return id;
  }

 private:
  std::mutex mu_;
  std::unordered_map<std::string_view, uint32_t> byName_;
  std::atomic<Entry*> chunks_[kMaxChunks] = {};
  uint32_t count_ = 1;  // id 0 is the empty name
};

// Deliberately never destroyed: ids may be used by other objects' destructors at exit.
IntfTable& intfTable() {
  static IntfTable* table = new IntfTable;
  return *table;
}

void checkIntfName(std::string_view name) {
  if (name.size() > IntfId::maxNameLength) {
    throw Kel::RangeException("interface name " + shown(name) + " longer than " +
                              std::to_string(IntfId::maxNameLength) + " bytes not allowed");
  }
  for (char ch : name) {
    if (!isIntfNameChar(ch)) {
      throw Kel::RangeException("interface name " + shown(name) + " with character " +
                                Kel::quote(std::string_view(&ch, 1)) + " not allowed");
    }
  }
}

}  // namespace

IntfId::IntfId(std::string_view name) {
  checkIntfName(name);
  id_ = intfTable().intern(name);
}

IntfId::IntfId(Kel::TextCursor& c)
    : IntfId(parseQuoted(c, [](const std::string& t) { return IntfId(t); })) {}

const std::string& IntfId::name() const noexcept { return intfTable().entry(id_).name; }

uint32_t IntfId::hash() const noexcept { return intfTable().entry(id_).hash; }

std::strong_ordering IntfId::operator<=>(const IntfId& o) const noexcept {
  if (id_ == o.id_) return std::strong_ordering::equal;
  int c = name().compare(o.name());
  return c < 0 ? std::strong_ordering::less : std::strong_ordering::greater;
}

// ---- streams

std::ostream& operator<<(std::ostream& os, const IpAddr& a) { return os << a.strep(); }
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) { return os << a.strep(); }
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) { return os << a.strep(); }
std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p) { return os << p.strep(); }
std::ostream& operator<<(std::ostream& os, const IntfId& i) { return os << i.strep(); }

// ---- enumerations

namespace detail {

size_t enumIndex(std::string_view name, std::span<const char* const> names) noexcept {
  for (size_t i = 0; i < names.size(); ++i) {
    if (name == names[i]) return i;
  }
  return names.size();
}

std::string enumStrep(uint64_t value, std::span<const char* const> names) {
  if (value < names.size()) return Kel::quote(names[value]);
  return std::to_string(value);
}

uint64_t enumParse(Kel::TextCursor& c, std::span<const char* const> names, uint64_t max,
                   const char* typeName) {
  if (!c.atEnd() && isDigit(*c.pos())) return c.readUnsigned(max);
  Kel::TextCursor probe = c;
  std::string name = probe.readQuoted();
  size_t i = enumIndex(name, names);
  if (i == names.size()) {
    throw Kel::RangeException("unknown " + std::string(typeName) + " " + shown(name) +
                              " not allowed");
  }
  c = probe;
  return i;
}

}  // namespace detail

}  // namespace Velnet

namespace Kel {

std::string Strep<Velnet::AddressFamily>::print(Velnet::AddressFamily af) {
  return Velnet::detail::enumStrep(static_cast<uint32_t>(af), Velnet::kAfNames);
}

Velnet::AddressFamily Strep<Velnet::AddressFamily>::parse(TextCursor& c) {
  return static_cast<Velnet::AddressFamily>(
      Velnet::detail::enumParse(c, Velnet::kAfNames, UINT32_MAX, "Velnet::AddressFamily"));
}

}  // namespace Kel
