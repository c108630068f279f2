#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/Hash.h"
#include "platform/velnet/Velnet.h"

namespace Velnet {
namespace {

// The address hash written out from its definition, independent of Kel/Hash.h: both halves of the
// 16 bytes as little-endian words, each times its own constant, summed, MurmurHash3's 64-bit
// finaliser, the two halves of the result folded.
uint32_t refAddrHash(const Ip6Addr::Bytes& bytes) {
  uint64_t lo = 0, hi = 0;
  for (int i = 7; i >= 0; --i) {
    lo = lo << 8 | bytes[i];
    hi = hi << 8 | bytes[8 + i];
  }
  uint64_t k = lo * 0xc2b2ae3d27d4eb4fULL + hi * 0x165667b19e3779f9ULL;
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return static_cast<uint32_t>(k ^ (k >> 32));
}

template <class T>
T fromStrep(const std::string& text) {
  return Kel::strepToValue<T>(text);
}

using Texts = std::vector<std::string>;
const char* const kParseError = "parse error";
const char* const kRangeError = "range error";

// What parsing `text` as a T gives: the value printed back, or which framework error refused it.
// An accepted value must read back from its printed and from its quoted form.
template <class T>
std::string parsed(std::string_view text) {
  try {
    T v = T::parse(text);
    EXPECT_EQ(T::parse(v.str()), v) << text;
    EXPECT_EQ(fromStrep<T>(v.strep()), v) << text;
    return v.str();
  } catch (const Kel::RangeException&) {
    return kRangeError;
  } catch (const Kel::ParseException&) {
    return kParseError;
  }
}

using Cases = std::vector<std::pair<const char*, const char*>>;

// Each `canonical` text prints as itself, each of `cases` as its second text (or error); the
// `malformed` texts are parse errors.
template <class T>
void expectTexts(std::initializer_list<const char*> canonical, const Cases& cases,
                 std::initializer_list<const char*> malformed) {
  for (const char* t : canonical) EXPECT_EQ(parsed<T>(t), t);
  for (const auto& [in, out] : cases) EXPECT_EQ(parsed<T>(in), out) << in;
  for (const char* t : malformed) EXPECT_EQ(parsed<T>(t), kParseError) << t;
}

template <class T>
Texts sortedTexts(std::initializer_list<const char*> texts) {
  std::vector<T> values;
  for (const char* t : texts) values.push_back(T::parse(t));
  std::sort(values.begin(), values.end());
  Texts out;
  for (const T& v : values) out.push_back(v.str());
  return out;
}

// RFC 5952's text of an address, written out apart from the code under test: lower-case hex
// groups without leading zeros, "::" for the longest run of two or more zero groups (the first
// on a tie), and a dotted tail for IPv4-mapped addresses only.
std::string refCanonical(const Ip6Addr::Bytes& b) {
  if (std::all_of(b.begin(), b.begin() + 10, [](uint8_t x) { return x == 0; }) && b[10] == 0xff &&
      b[11] == 0xff) {
    return "::ffff:" + std::to_string(b[12]) + "." + std::to_string(b[13]) + "." +
           std::to_string(b[14]) + "." + std::to_string(b[15]);
  }
  int g[8];
  for (int i = 0; i < 8; ++i) g[i] = b[2 * i] << 8 | b[2 * i + 1];
  int best = -1, bestLen = 1;
  for (int i = 0, j; i < 8; i = j + 1) {
    for (j = i; j < 8 && g[j] == 0;) ++j;
    if (j - i > bestLen) best = i, bestLen = j - i;
  }
  std::string out;
  char hex[8];
  for (int i = 0; i < 8; ++i) {
    if (i == best) {
      out += "::";
      i += bestLen - 1;
      continue;
    }
    if (!out.empty() && out.back() != ':') out += ':';
    std::snprintf(hex, sizeof hex, "%x", g[i]);
    out += hex;
  }
  return out;
}

// ---- AddressFamily

// A value without an enumerator exists only by a cast, and still survives the text form. An
// unknown name is refused by name, and leaves the cursor where it was.
TEST(AddressFamilyText, QuotedNameOrPlainNumberRoundTripsAndUnknownNamesAreRefused) {
  const std::pair<AddressFamily, const char*> cases[] = {
      {AddressFamily::none, "'none'"},
      {AddressFamily::ipv4, "'ipv4'"},
      {AddressFamily::ipv6, "'ipv6'"},
      {static_cast<AddressFamily>(0xFFFFFFFFu), "4294967295"}};
  for (const auto& [af, text] : cases) {
    EXPECT_EQ(Kel::valueToStrep(af), text);
    EXPECT_EQ(fromStrep<AddressFamily>(text), af) << text;
  }
  EXPECT_THROW(fromStrep<AddressFamily>("4294967296"), Kel::RangeException);
  EXPECT_THROW(fromStrep<AddressFamily>("ipv4"), Kel::ParseException);
  std::string text = "'ipv5'";
  Kel::TextCursor c(text);
  try {
    Kel::Strep<AddressFamily>::parse(c);
    FAIL() << "parsed an unknown family";
  } catch (const Kel::RangeException& e) {
    EXPECT_NE(std::string(e.what()).find("ipv5"), std::string::npos) << e.what();
  }
  EXPECT_EQ(c.pos(), text.data());
}

// ---- IpAddr

TEST(IpAddr, StoresNetworkOrderWordButOrdersByAddress) {
  IpAddr a = IpAddr::parse("10.1.2.3");
  EXPECT_EQ(a.hostOrder(), 0x0A010203u);
  uint32_t word = a.value();
  const auto* bytes = reinterpret_cast<const uint8_t*>(&word);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 4), (std::vector<uint8_t>{10, 1, 2, 3}));
  EXPECT_EQ(IpAddr::fromNetworkOrder(word), a);
  // On a little-endian host the stored words of these order the other way round.
  EXPECT_EQ(sortedTexts<IpAddr>({"10.0.1.0", "10.0.0.255", "10.0.0.0", "9.255.255.255"}),
            (Texts{"9.255.255.255", "10.0.0.0", "10.0.0.255", "10.0.1.0"}));
}

TEST(IpAddr, TextIsAWholeDottedQuad) {
  expectTexts<IpAddr>({"0.0.0.0", "10.1.2.3", "255.255.255.255", "192.168.100.1"},
                      {{"256.1.2.3", kRangeError},
                       {"1.2.3.999", kRangeError},
                       {"99999999999999999999999.1.1.1", kRangeError}},
                      {"10.1.2", "", "10.1.2.3.4", "10.1.2.3 ", " 10.1.2.3", "10..2.3", "a.b.c.d",
                       "01.2.3.4", "1.2.3.-4", "256.1.2", "10.1.2.3/8"});
}

// ---- Ip6Addr

TEST(Ip6Addr, PrintsCanonicalFormAndRefusesMalformedText) {
  expectTexts<Ip6Addr>(
      {"::", "::1", "1::", "2001:db8::1", "2001:db8:1:2:3:4:5:6", "fe80::1", "::ffff:1.2.3.4",
       // A lone zero group stays as "0".
       "2001:db8:0:1:1:1:1:1"},
      {{"2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
       {"1::2:3:4:5:6:7", "1:0:2:3:4:5:6:7"},
       // The longest run is compressed; on a tie, the first.
       {"1:0:0:2:0:0:0:3", "1:0:0:2::3"},
       {"1:0:0:2:0:0:3:4", "1::2:0:0:3:4"},
       {"0:0:1:0:0:0:0:0", "0:0:1::"},
       // Only mapped addresses print a dotted tail.
       {"::ffff:102:304", "::ffff:1.2.3.4"},
       {"::1.2.3.4", "::102:304"},
       {"64:ff9b::192.0.2.33", "64:ff9b::c000:221"},
       {"::ffff:1.2.3.256", kRangeError}},
      {// Too many or too few groups, or "::" where it cannot stand.
       "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8::", "::1:2:3:4:5:6:7:8",
       ":::", "1::2::3", "1::2::", ":1::", "1:", ":1", "1::2:", "",
       // Bad groups, zone ids and blanks.
       "12345::", "g::", "fe80::1%eth0", "::ffff:1.2.3.4 ", " ::1",
       // Bad dotted tails.
       "::ffff:1.2.3", "::1.2.3.4:5", "1:2:3:4:5:6:7:1.2.3.4", "::ffff:01.2.3.4", "1.2.3.4",
       "::ffff:256.1.2"});
  EXPECT_THROW(fromStrep<Ip6Addr>("'::1"), Kel::ParseException);
  EXPECT_THROW(fromStrep<Ip6Addr>("'::1'x"), Kel::ParseException);
}

TEST(Ip6Addr, RandomAddressesPrintCanonicallyAndParseBack) {
  std::mt19937 rng(20240611);
  for (int n = 0; n < 20000; ++n) {
    Ip6Addr::Bytes b{};
    // Mostly zero groups, so that runs of every length and position turn up.
    for (int g = 0; g < 8; ++g) {
      uint32_t r = rng();
      if (r % 3 == 0) continue;
      uint16_t v = static_cast<uint16_t>(r >> 8);
      if (r % 5 == 0) v &= 0xf;
      b[2 * g] = static_cast<uint8_t>(v >> 8);
      b[2 * g + 1] = static_cast<uint8_t>(v);
    }
    if (n % 50 == 0) b[10] = b[11] = 0xff, std::fill(b.begin(), b.begin() + 10, 0);
    Ip6Addr a(b);
    ASSERT_EQ(a.str(), refCanonical(b));
    ASSERT_EQ(Ip6Addr::parse(a.str()), a) << a.str();
  }
}

// Tables place keys by the low bits of the hash (the top of the reversed hash): addresses that
// differ in a few bits anywhere, as consecutive /64 networks or hosts do, must still spread over
// the home slots of a table.
TEST(Ip6Addr, HashSpreadsAddressesThatDifferInFewBits) {
  for (int varying : {7, 15}) {  // the last byte of the network half, of the host half
    std::vector<int> homes(1024, 0);
    for (uint32_t i = 0; i < 4096; ++i) {
      Ip6Addr::Bytes b = Ip6Addr::parse("2001:db8::").bytes();
      b[varying] = static_cast<uint8_t>(i);
      b[varying - 1] = static_cast<uint8_t>(i >> 8);
      ++homes[Kel::bitReverse32(Ip6Addr(b).hash()) >> 22];
    }
    // 4 keys per slot on average; a poor mix leaves most slots empty.
    const auto empty = std::count(homes.begin(), homes.end(), 0);
    EXPECT_LT(empty, 60) << "byte " << varying;
    EXPECT_LT(*std::max_element(homes.begin(), homes.end()), 20) << "byte " << varying;
  }
}

// ---- IpGenAddr

// "" is no address at all, unlike "::" and "0.0.0.0"; order is by family, then address.
TEST(IpGenAddr, EmptyTextIsNoFamilyAndFamilyOrdersFirst) {
  expectTexts<IpGenAddr>({"", "10.0.0.1", "2001:db8::1", "::", "0.0.0.0", "fe80::1"}, {}, {});
  EXPECT_EQ(IpGenAddr::parse("").af(), AddressFamily::none);
  EXPECT_EQ(IpGenAddr::parse("::").af(), AddressFamily::ipv6);
  EXPECT_EQ(IpGenAddr::parse("0.0.0.0").af(), AddressFamily::ipv4);
  EXPECT_NE(IpGenAddr::parse("::"), IpGenAddr());
  EXPECT_NE(IpGenAddr::parse("0.0.0.0"), IpGenAddr());
  EXPECT_EQ(sortedTexts<IpGenAddr>({"::1", "10.0.0.2", "", "9.255.0.0", "::"}),
            (Texts{"", "9.255.0.0", "10.0.0.2", "::", "::1"}));
}

// The address hash mixes both halves of the 16 bytes. An IpGenAddr hashes its 16-byte form, IPv4
// mapped and none as "::", so that values of two families can share a hash but are not equal.
TEST(IpGenAddr, HashIsTheAddressHashOfTheMappedSixteenBytes) {
  for (const char* t :
       {"::", "2001:db8::1", "fe80::1:2", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}) {
    EXPECT_EQ(Ip6Addr::parse(t).hash(), refAddrHash(Ip6Addr::parse(t).bytes())) << t;
    EXPECT_EQ(IpGenAddr::parse(t).hash(), Ip6Addr::parse(t).hash()) << t;
  }
  // Worked out apart from this code, so that the reference itself cannot drift.
  EXPECT_EQ(Ip6Addr::parse("2001:db8::1").hash(), 0x178a09e2u);
  EXPECT_NE(Ip6Addr::parse("::1").hash(), Ip6Addr::parse("1::").hash());
  IpGenAddr v4 = IpGenAddr::parse("10.0.0.1");
  EXPECT_EQ(v4.hash(), refAddrHash({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1}));
  EXPECT_EQ(v4.hash(), IpAddr::parse("10.0.0.1").hash());
  EXPECT_EQ(IpGenAddr().hash(), Ip6Addr::parse("::").hash());
  EXPECT_EQ(v4.hash(), IpGenAddr(Ip6Addr::parse("::ffff:10.0.0.1")).hash());
  EXPECT_NE(v4, IpGenAddr(Ip6Addr::parse("::ffff:10.0.0.1")));
}

// fe80::/10 is the first ten bits, not the first two bytes; IPv4 link-local next hops need no
// interface here.
TEST(IpGenAddr, OnlyIpv6Fe80Slash10IsLinkLocal) {
  const std::pair<const char*, bool> cases[] = {
      {"fe80::1", true},      {"febf:ffff::", true},  {"fec0::1", false}, {"fe7f::1", false},
      {"2001:db8::1", false}, {"169.254.0.1", false}, {"", false}};
  for (const auto& [t, linkLocal] : cases) {
    IpGenAddr a = IpGenAddr::parse(t);
    EXPECT_EQ(a.isLinkLocal(), linkLocal) << t;
    if (a.af() == AddressFamily::ipv6) {
      EXPECT_EQ(a.v6().isLinkLocal(), linkLocal) << t;
    }
  }
}

TEST(IpGenAddr, WrongFamilyAccessorAsserts) {
  Kel::ScopedThrowingAsserts asserts;
  EXPECT_THROW(IpGenAddr::parse("10.0.0.1").v6(), Kel::AssertionException);
  EXPECT_THROW(IpGenAddr().v4(), Kel::AssertionException);
}

// ---- IpGenPrefix

TEST(IpGenPrefix, ClearsHostBitsAndRefusesLengthsPastTheFamily) {
  expectTexts<IpGenPrefix>(
      {"", "10.1.0.0/16", "0.0.0.0/0", "2001:db8::/32", "::/0", "fe80::1/128",
       "::ffff:10.0.0.0/104", "10.1.2.3/32", "2001:db8::ff/128"},
      {{"10.1.2.3/16", "10.1.0.0/16"},
       {"10.1.255.3/23", "10.1.254.0/23"},
       {"255.255.255.255/0", "0.0.0.0/0"},
       {"2001:db8:ffff::1/33", "2001:db8:8000::/33"},
       {"ffff::1/0", "::/0"},
       {"2001:db8::ff/127", "2001:db8::fe/127"},
       {"10.1.2.3/33", kRangeError},
       {"::/129", kRangeError},
       {"10.0.0.0/99999999999999999999999", kRangeError}},
      {"10.1.2.3", "10.1.2/8", "/8", "10.0.0.0/", "10.0.0.0/016", "10.0.0.0/1x", "10.0.0.0/8/8",
       "10.0.0.0/-1", ":::/8", "1:2:3:4:5:6:7:8:9/64", "10.0.0.0 /8", "256.0.0/8", "10.0.0.0/33x"});
  EXPECT_TRUE(!IpGenPrefix::parse(""));
  EXPECT_EQ(IpGenPrefix().strep(), "''");
  // A range error inside a quoted field is still a range error, so keys can name the field.
  EXPECT_THROW(fromStrep<IpGenPrefix>("'10.1.2.3/33'"), Kel::RangeException);
  EXPECT_THROW(fromStrep<IpGenPrefix>("'10.0.0.0/8' trailing"), Kel::ParseException);
  EXPECT_EQ(IpGenPrefix(IpGenAddr::parse("192.168.7.9"), 20).str(), "192.168.0.0/20");
  EXPECT_THROW(IpGenPrefix(IpGenAddr::parse("10.0.0.0"), 33), Kel::RangeException);
  EXPECT_THROW(IpGenPrefix(IpGenAddr(), 1), Kel::RangeException);
  EXPECT_NO_THROW(IpGenPrefix(IpGenAddr::parse("::"), 128));
}

TEST(IpGenPrefix, OrdersByFamilyThenAddressThenLength) {
  EXPECT_EQ(sortedTexts<IpGenPrefix>({"2001:db8::/32", "10.0.0.0/16", "10.0.0.0/8", "9.0.0.0/8", "",
                                      "::/0", "10.0.1.0/24", "10.0.0.0/24"}),
            (Texts{"", "9.0.0.0/8", "10.0.0.0/8", "10.0.0.0/16", "10.0.0.0/24", "10.0.1.0/24",
                   "::/0", "2001:db8::/32"}));
}

// Wang's integer hash of the host-order IPv4 address, or of the IPv6 address hash, xor the
// length: values worked out apart from this code.
TEST(IpGenPrefix, HashIsWangsHashOfTheAddressXorTheLength) {
  EXPECT_EQ(IpGenPrefix::parse("10.1.0.0/16").hash(), 0xe710d808u);
  EXPECT_EQ(IpGenPrefix::parse("192.168.1.0/24").hash(), 0xd16ad139u);
  EXPECT_EQ(IpGenPrefix::parse("2001:db8::/32").hash(), 0xd8a71320u);
  EXPECT_EQ(IpGenPrefix().hash(), 0u);
}

TEST(IpGenPrefix, ContainsOnlyAddressesOfItsFamilyWithinItsBits) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"10.1.0.0/16", "10.1.255.255", true},
      {"10.1.0.0/16", "10.2.0.0", false},
      {"10.1.0.0/16", "::ffff:10.1.0.1", false},
      {"::/0", "fe80::1", true},
      {"::/0", "10.0.0.1", false},
      {"2001:db8::/33", "2001:db8:7fff::", true},
      {"2001:db8::/33", "2001:db8:8000::", false},
      {"", "", false}};
  for (const auto& [prefix, addr, in] : cases) {
    EXPECT_EQ(IpGenPrefix::parse(prefix).contains(IpGenAddr::parse(addr)), in) << prefix << addr;
  }
}

static_assert(sizeof(IpGenPrefix) <= 20, "prefixes are held by millions of routes");
static_assert(sizeof(IntfId) == 4, "interface ids are held by every via");

// ---- IntfId

// Ids depend on the interning order, so nothing observable is derived from them.
TEST(IntfId, EqualNamesShareAnIdButOrderAndHashFollowTheName) {
  IntfId a("Ethernet1");
  EXPECT_EQ(a, IntfId(std::string("Ethernet") + "1"));
  EXPECT_EQ(a.id(), IntfId(std::string("Ethernet") + "1").id());
  EXPECT_NE(a, IntfId("Ethernet2"));
  EXPECT_EQ(IntfId("").id(), 0u);
  EXPECT_TRUE(!IntfId(""));
  IntfId late("zzTestIntf9");
  IntfId early("aaTestIntf9");  // interned after, so its id is larger
  EXPECT_GT(early.id(), late.id());
  EXPECT_LT(early, late);
  EXPECT_LT(IntfId(), early);
  EXPECT_EQ(late.hash(), Kel::stringHash("zzTestIntf9"));
  // One-at-a-time of "Vlan10", worked out apart from this code.
  EXPECT_EQ(IntfId("Vlan10").hash(), 0x1e373ffdu);
  EXPECT_EQ(IntfId().hash(), 0u);
}

TEST(IntfId, TextIsTheQuotedNameAndBadNamesAreRangeErrors) {
  for (const char* n : {"", "Ethernet1", "Ethernet1/2.100", "Port-Channel7", "vx_1:a"}) {
    IntfId i(n);
    EXPECT_EQ(i.strep(), "'" + std::string(n) + "'");
    EXPECT_EQ(fromStrep<IntfId>(i.strep()), i);
  }
  EXPECT_NO_THROW(IntfId(std::string(64, 'e')));
  EXPECT_THROW(IntfId(std::string(65, 'e')), Kel::RangeException);
  for (const char* n : {"Ethernet 1", "Eth\n", "Eth'1", "Eth%1", "\xc3\xa9th"}) {
    EXPECT_THROW(IntfId{std::string_view(n)}, Kel::RangeException) << n;
  }
  EXPECT_THROW(fromStrep<IntfId>("'Ethernet 1'"), Kel::RangeException);
  EXPECT_THROW(fromStrep<IntfId>("Ethernet1"), Kel::ParseException);
}

TEST(IntfId, ConcurrentInterningAgreesOnIds) {
  // More names than one chunk of the table holds, interned from several threads at once.
  constexpr int kNames = 701;  // prime, so every thread's stride visits every name
  constexpr int kThreads = 4;
  std::vector<std::vector<uint32_t>> ids(kThreads, std::vector<uint32_t>(kNames));
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &ids] {
      for (int n = 0; n < kNames; ++n) {
        int k = (n * 7 + t * 101) % kNames;
        ids[t][k] = IntfId("Concurrent" + std::to_string(k)).id();
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int n = 0; n < kNames; ++n) {
    for (int t = 1; t < kThreads; ++t) ASSERT_EQ(ids[t][n], ids[0][n]);
  }
  IntfId last("Concurrent" + std::to_string(kNames - 1));
  EXPECT_EQ(last.name(), "Concurrent" + std::to_string(kNames - 1));
}

// ---- every parser against arbitrary text

TEST(VelnetParsers, MutatedTextEitherRoundTripsOrThrowsFrameworkError) {
  // Valid texts with a few random edits: most stay near the grammar, which is where parsers slip.
  const std::vector<std::string> seeds = {
      "10.1.2.3", "0.0.0.0/0",         "192.168.100.200/24", "2001:db8::1",
      "::",       "::ffff:1.2.3.4/96", "fe80::1:2:3:4",      "1:2:3:4:5:6:7:8/128",
      "::1/128",  "Ethernet1/2.100"};
  const std::string alphabet = "0123456789abcdefABCDEF:./'% -x\\";
  std::mt19937 rng(77);
  int accepted = 0;
  for (int n = 0; n < 40000; ++n) {
    std::string text = seeds[rng() % seeds.size()];
    for (int edits = 1 + static_cast<int>(rng() % 3); edits > 0; --edits) {
      size_t at = text.empty() ? 0 : rng() % (text.size() + 1);
      char ch = alphabet[rng() % alphabet.size()];
      switch (rng() % 3) {
        case 0: text.insert(text.begin() + static_cast<long>(at), ch); break;
        case 1:
          if (at < text.size()) text.erase(at, 1);
          break;
        default:
          if (at < text.size()) text[at] = ch;
          break;
      }
    }
    try {
      IpGenAddr a = IpGenAddr::parse(text);
      ASSERT_EQ(IpGenAddr::parse(a.str()), a) << text;
      ++accepted;
    } catch (const Kel::Exception&) {
    }
    try {
      IpGenPrefix p = IpGenPrefix::parse(text);
      ASSERT_EQ(IpGenPrefix::parse(p.str()), p) << text;
      ASSERT_EQ(IpGenPrefix(p.address(), p.len()), p) << text;
      ++accepted;
    } catch (const Kel::Exception&) {
    }
    try {
      IntfId i = fromStrep<IntfId>("'" + text + "'");
      ASSERT_EQ(fromStrep<IntfId>(i.strep()), i) << text;
    } catch (const Kel::Exception&) {
    }
  }
  // Enough texts got through for the round trips above to mean something.
  EXPECT_GT(accepted, 2000);
}

TEST(VelnetStreams, WriteTheTextForm) {
  std::ostringstream os;
  os << IpGenPrefix::parse("10.0.0.0/8") << ' ' << IntfId("Vlan10") << ' ' << AddressFamily::ipv6
     << ' ' << IpGenAddr();
  EXPECT_EQ(os.str(), "'10.0.0.0/8' 'Vlan10' 'ipv6' ''");
}

}  // namespace
}  // namespace Velnet
