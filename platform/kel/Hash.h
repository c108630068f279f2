// The framework's hash functions. Hash values decide the iteration order of every hash collection
// (ascending bit-reversed hash), so they are part of observable behaviour: change none of them
// without expecting review order and tests to change with it.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kel {

// Bob Jenkins' one-at-a-time hash, fed byte by byte so that keys can hash their fields in a fixed
// little-endian layout whatever the host.
class OneAtATime {
 public:
  void add(uint8_t b) noexcept {
    h_ += b;
    h_ += h_ << 10;
    h_ ^= h_ >> 6;
  }
  void addLe32(uint32_t v) noexcept {
    add(static_cast<uint8_t>(v));
    add(static_cast<uint8_t>(v >> 8));
    add(static_cast<uint8_t>(v >> 16));
    add(static_cast<uint8_t>(v >> 24));
  }
  uint32_t value() const noexcept {
    uint32_t h = h_;
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    return h;
  }

 private:
  uint32_t h_ = 0;
};

// Thomas Wang's 32-bit integer hash.
constexpr uint32_t wangHash32(uint32_t k) noexcept {
  k = ~k + (k << 15);
  k ^= k >> 12;
  k += k << 2;
  k ^= k >> 4;
  k *= 2057;
  k ^= k >> 16;
  return k;
}

// Eight bytes as a little-endian word, whatever the host, so that hashes built on it agree
// everywhere.
inline uint64_t loadLe64(const uint8_t* p) noexcept {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
  if constexpr (std::endian::native == std::endian::big) v = __builtin_bswap64(v);
  return v;
}

// The 64-bit finaliser of MurmurHash3: every input bit reaches every output bit.
constexpr uint64_t fmix64(uint64_t k) noexcept {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return k;
}

// A 64-bit sum of keyed words mixed down to a 32-bit hash: fmix64, then its halves folded.
constexpr uint32_t mix64To32(uint64_t h) noexcept {
  const uint64_t m = fmix64(h);
  return static_cast<uint32_t>(m ^ (m >> 32));
}

// The framework's string hash (one-at-a-time over the bytes). An empty string hashes to 0.
inline uint32_t stringHash(std::string_view s) noexcept {
  if (s.empty()) return 0;
  OneAtATime h;
  for (char c : s) h.add(static_cast<uint8_t>(c));
  return h.value();
}

// How a collection hashes its keys: a key type supplies `uint32_t hash() const`; integers and
// strings are hashed here.
template <class T, class Enable = void>
struct Hash {
  uint32_t operator()(const T& v) const noexcept { return v.hash(); }
};

template <class T>
struct Hash<T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>>> {
  uint32_t operator()(T v) const noexcept {
    auto u = static_cast<uint64_t>(v);
    return wangHash32(static_cast<uint32_t>(u) ^ static_cast<uint32_t>(u >> 32));
  }
};

template <>
struct Hash<std::string> {
  uint32_t operator()(const std::string& s) const noexcept { return stringHash(s); }
};

// Reverses the bits of a 32-bit word: collections iterate in ascending order of this value. Every
// hash-table operation takes it, and left to itself the compiler called it out of line from over
// two hundred places.
[[gnu::always_inline]] constexpr uint32_t bitReverse32(uint32_t v) noexcept {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
  return __builtin_bswap32(v);
}

}  // namespace Kel
