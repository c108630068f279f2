// Network value types: address families, IPv4/IPv6 addresses, prefixes and interface ids.
//
// A router holds millions of routes and every one of them carries a prefix and next-hop
// addresses, so these types are plain bytes: no heap storage, no std::string. An IpGenAddr is
// 17 bytes and an IpGenPrefix 18, both byte-aligned so that they pack tightly inside keys. An
// IntfId is a 4-byte index into a process-wide table of interned names (a router has a few
// thousand interfaces at most; the table never shrinks, so an id stays valid for the process).
//
// Invariants every constructor keeps, and that equality and hashing rely on:
// - An IpGenAddr of family ipv4 holds its address in the first 4 bytes (network order) and zeros
//   in the other 12; one of family none is all zeros.
// - An IpGenPrefix has its host bits (past the length) cleared and a length within its family's
//   maximum; the empty prefix has family none and length 0.
// - Two IntfIds are equal exactly when their names are equal.
//
// Text forms are quoted so that they can fill a key's "Value(...)" form: '10.1.2.3',
// '2001:db8::1', '10.1.0.0/16', 'Ethernet1'. The empty address, prefix and interface print as ''
// and parse back from it. IPv6 addresses print in the canonical form of RFC 5952 (lower case,
// leading zeros dropped, the longest run of two or more zero groups, the first on a tie, written
// "::"), IPv4-mapped addresses as ::ffff:a.b.c.d as that RFC recommends. Parsing accepts every
// RFC 4291 form (leading zeros in groups, a single zero group compressed, an embedded IPv4 tail)
// and no zone suffix. Dotted quads and prefix lengths are strict: decimal, no leading zeros.
//
// Errors: text that does not have the shape of the value is a Kel::ParseException; text of the
// right shape whose number is out of range (octet 256, length 33) is a Kel::RangeException. The
// whole text is checked for shape before any range error is raised, so "256.1.2" is a parse
// error. Every parser runs in time linear in its input and never reads past it.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "platform/kel/Hash.h"
#include "platform/kel/Text.h"

namespace Velnet {

// Held as a 32-bit value by the keys; values without an enumerator can exist only by a cast.
enum class AddressFamily : uint32_t { none = 0, ipv4 = 1, ipv6 = 2 };

// "none", "ipv4", "ipv6"; "invalid" for a value with no enumerator.
const char* afName(AddressFamily af) noexcept;
std::ostream& operator<<(std::ostream& os, AddressFamily af);

// An IPv4 address.
class IpAddr {
 public:
  static constexpr bool kelHasStrep = true;

  IpAddr() = default;
  IpAddr(uint8_t a, uint8_t b, uint8_t c, uint8_t d) noexcept
      : IpAddr(fromHostOrder(uint32_t{a} << 24 | uint32_t{b} << 16 | uint32_t{c} << 8 | d)) {}
  explicit IpAddr(Kel::TextCursor& c);

  static IpAddr fromHostOrder(uint32_t v) noexcept;
  static IpAddr fromNetworkOrder(uint32_t v) noexcept;
  // Parses an unquoted dotted quad ("10.1.2.3"); the whole text must be the address.
  static IpAddr parse(std::string_view text);

  // The address as stored: a network-order word (its bytes in memory are a, b, c, d).
  uint32_t value() const noexcept { return value_; }
  uint32_t hostOrder() const noexcept;

  bool operator==(const IpAddr&) const = default;
  std::strong_ordering operator<=>(const IpAddr& o) const noexcept {
    return hostOrder() <=> o.hostOrder();
  }
  // The same hash as the IpGenAddr holding this address.
  uint32_t hash() const noexcept;
  std::string str() const;
  std::string strep() const { return Kel::quote(str()); }

 private:
  uint32_t value_ = 0;
};

// Whether two 16-byte addresses are equal, in two word compares: the defaulted comparison of the
// arrays is a call to memcmp, and addresses are compared in every lookup by prefix or via key.
inline bool sameAddressBytes(const std::array<uint8_t, 16>& a,
                             const std::array<uint8_t, 16>& b) noexcept {
  return ((Kel::loadLe64(a.data()) ^ Kel::loadLe64(b.data())) |
          (Kel::loadLe64(a.data() + 8) ^ Kel::loadLe64(b.data() + 8))) == 0;
}

// An IPv6 address.
class Ip6Addr {
 public:
  static constexpr bool kelHasStrep = true;
  using Bytes = std::array<uint8_t, 16>;

  Ip6Addr() = default;
  explicit Ip6Addr(const Bytes& bytes) noexcept : bytes_(bytes) {}
  explicit Ip6Addr(Kel::TextCursor& c);

  // ::ffff:a.b.c.d
  static Ip6Addr v4Mapped(IpAddr a) noexcept;
  // Parses an unquoted address ("2001:db8::1"); the whole text must be the address.
  static Ip6Addr parse(std::string_view text);

  const Bytes& bytes() const noexcept { return bytes_; }
  bool isLinkLocal() const noexcept { return bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80; }
  bool isV4Mapped() const noexcept;

  bool operator==(const Ip6Addr& o) const noexcept { return sameAddressBytes(bytes_, o.bytes_); }
  auto operator<=>(const Ip6Addr&) const = default;
  // The IPv6 address hash: the two halves of the address in network order, each read as a
  // little-endian word, multiplied by their own odd constants, summed and mixed (MurmurHash3's
  // finaliser), the high and low halves folded. Every address and IPv6 prefix hash, and so the
  // iteration order of every table keyed by them, is built on it; it is hot enough (several
  // times per route in every table operation) that a byte-at-a-time hash showed in profiles.
  uint32_t hash() const noexcept;
  std::string str() const;
  std::string strep() const { return Kel::quote(str()); }

 private:
  Bytes bytes_{};
};

// An address of either family, or none.
class IpGenAddr {
 public:
  static constexpr bool kelHasStrep = true;

  IpGenAddr() = default;
  IpGenAddr(IpAddr a) noexcept;   // NOLINT: an IPv4 address is an address
  IpGenAddr(Ip6Addr a) noexcept;  // NOLINT: so is an IPv6 one
  explicit IpGenAddr(Kel::TextCursor& c);

  // Parses an unquoted address of either family; "" is the empty address.
  static IpGenAddr parse(std::string_view text);

  AddressFamily af() const noexcept { return static_cast<AddressFamily>(af_); }
  bool isEmpty() const noexcept { return af_ == 0; }
  bool operator!() const noexcept { return isEmpty(); }
  // Preconditions: af() is ipv4 (v4) or ipv6 (v6); asserted.
  IpAddr v4() const;
  Ip6Addr v6() const;
  // Only IPv6 has link-local next hops that need an interface to be meaningful.
  bool isLinkLocal() const noexcept;
  // The address as 16 bytes: IPv6 as is, IPv4 mapped as ::ffff:a.b.c.d, none as ::.
  Ip6Addr::Bytes asV6Bytes() const noexcept;

  bool operator==(const IpGenAddr& o) const noexcept {
    return af_ == o.af_ && sameAddressBytes(bytes_, o.bytes_);
  }
  // Family, then the address bytes in network order.
  auto operator<=>(const IpGenAddr&) const = default;
  // The address hash taken over the address as a 16-byte IPv6 value (asV6Bytes), so that an
  // IPv4 address and its mapped IPv6 form hash alike; the empty address hashes as ::.
  uint32_t hash() const noexcept;
  std::string str() const;
  std::string strep() const { return Kel::quote(str()); }

 private:
  friend class IpGenPrefix;
  uint8_t af_ = 0;
  Ip6Addr::Bytes bytes_{};
};

// A prefix: family, address, length, host bits cleared.
class IpGenPrefix {
 public:
  static constexpr bool kelHasStrep = true;

  IpGenPrefix() = default;
  // Clears the host bits of `addr`. A length past the family's maximum (32, 128, 0 for none) is a
  // RangeException.
  IpGenPrefix(const IpGenAddr& addr, unsigned len);
  explicit IpGenPrefix(Kel::TextCursor& c);

  // Parses an unquoted prefix ("10.1.0.0/16"); "" is the empty prefix.
  static IpGenPrefix parse(std::string_view text);
  static unsigned maxLength(AddressFamily af) noexcept;

  AddressFamily af() const noexcept { return addr_.af(); }
  const IpGenAddr& address() const noexcept { return addr_; }
  unsigned len() const noexcept { return len_; }
  bool isEmpty() const noexcept { return addr_.isEmpty(); }
  bool operator!() const noexcept { return isEmpty(); }
  // True when `addr` is of this prefix's family and its first len() bits match. The empty prefix
  // contains nothing.
  bool contains(const IpGenAddr& addr) const noexcept;

  bool operator==(const IpGenPrefix&) const = default;
  // Family, then address bytes in network order, then length.
  auto operator<=>(const IpGenPrefix&) const = default;
  // Wang's integer hash of k, where k = the host-order IPv4 address ^ len, or the IPv6 address
  // hash ^ len; 0 for the empty prefix. Keys mix this value into their own hashes.
  uint32_t hash() const noexcept;
  std::string str() const;
  std::string strep() const { return Kel::quote(str()); }

 private:
  IpGenAddr addr_;
  uint8_t len_ = 0;
};

// An interface, by name; the empty name is "no interface".
class IntfId {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr size_t maxNameLength = 64;

  IntfId() = default;
  // Interns `name`: 0 to 64 bytes of [A-Za-z0-9/._:-], else a RangeException.
  explicit IntfId(std::string_view name);
  explicit IntfId(Kel::TextCursor& c);

  // Stable for the life of the process.
  const std::string& name() const noexcept;
  // The intern-table index: equal ids mean equal names, but ids depend on interning order, so
  // nothing observable (hash, order, text) is derived from them.
  uint32_t id() const noexcept { return id_; }
  bool operator!() const noexcept { return id_ == 0; }

  bool operator==(const IntfId&) const = default;
  // By name, byte-wise.
  std::strong_ordering operator<=>(const IntfId& o) const noexcept;
  // The framework's string hash of the name (0 for none).
  uint32_t hash() const noexcept;
  std::string strep() const { return Kel::quote(name()); }

 private:
  uint32_t id_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddr& a);
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);
std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p);
std::ostream& operator<<(std::ostream& os, const IntfId& i);

namespace detail {

// The text form shared by the platform's enumerations: the enumerator's name, quoted. A value
// with no enumerator (reachable only by a cast) prints as its decimal number and a decimal number
// up to `max` parses back, so that every value of the underlying type survives a round trip. An
// unknown name is a RangeException naming `typeName`. `names[v]` is the name of value v.
std::string enumStrep(uint64_t value, std::span<const char* const> names);
uint64_t enumParse(Kel::TextCursor& c, std::span<const char* const> names, uint64_t max,
                   const char* typeName);
// The index of `name` in `names`, or names.size().
size_t enumIndex(std::string_view name, std::span<const char* const> names) noexcept;

}  // namespace detail

}  // namespace Velnet

namespace Kel {

template <>
struct Strep<Velnet::AddressFamily> {
  static std::string print(Velnet::AddressFamily af);
  static Velnet::AddressFamily parse(TextCursor& c);
};

}  // namespace Kel
