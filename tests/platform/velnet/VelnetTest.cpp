#include <gtest/gtest.h>

#include <algorithm>
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

// Reference hashes written out from their published definitions, independent of Kel/Hash.h.
uint32_t refOneAtATime(const std::vector<uint8_t>& bytes) {
  uint32_t h = 0;
  for (uint8_t b : bytes) {
    h += b;
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return h;
}

// The address hash: both halves of the 16 bytes as little-endian words, each times its own
// constant, summed, MurmurHash3's 64-bit finaliser, the two halves of the result folded.
uint32_t refAddrHash(const std::vector<uint8_t>& bytes) {
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

uint32_t refWang(uint32_t k) {
  k = ~k + (k << 15);
  k = k ^ (k >> 12);
  k = k + (k << 2);
  k = k ^ (k >> 4);
  k = k * 2057;
  k = k ^ (k >> 16);
  return k;
}

template <class T>
T fromStrep(const std::string& text) {
  return Kel::strepToValue<T>(text);
}

// RFC 5952's choice of run, checked on the printed text: "::" stands for more zero groups than
// any zero run left in the text, or as many when that run comes later; without "::" no two zero
// groups are adjacent.
bool compressesLongestFirstZeroRun(const std::string& text) {
  size_t gap = text.find("::");
  auto groupsOf = [](const std::string& part) {
    std::vector<std::string> groups;
    std::stringstream ss(part);
    std::string g;
    while (std::getline(ss, g, ':')) groups.push_back(g);
    return groups;
  };
  auto longestZeroRun = [](const std::vector<std::string>& groups) {
    size_t best = 0, run = 0;
    for (const auto& g : groups) {
      run = g == "0" ? run + 1 : 0;
      best = std::max(best, run);
    }
    return best;
  };
  if (gap == std::string::npos) return longestZeroRun(groupsOf(text)) < 2;
  std::string head = text.substr(0, gap), tail = text.substr(gap + 2);
  std::vector<std::string> before = head.empty() ? std::vector<std::string>{} : groupsOf(head);
  std::vector<std::string> after = tail.empty() ? std::vector<std::string>{} : groupsOf(tail);
  size_t shown = before.size() + after.size();
  if (!after.empty() && after.back().find('.') != std::string::npos) ++shown;
  size_t compressed = 8 - shown;
  return compressed >= 2 && longestZeroRun(before) < compressed &&
         longestZeroRun(after) <= compressed;
}

// ---- AddressFamily

TEST(AddressFamilyText, RoundTripsEveryNameQuoted) {
  for (auto af : {AddressFamily::none, AddressFamily::ipv4, AddressFamily::ipv6}) {
    std::string text = Kel::valueToStrep(af);
    EXPECT_EQ(text, "'" + std::string(afName(af)) + "'");
    EXPECT_EQ(fromStrep<AddressFamily>(text), af);
  }
}

TEST(AddressFamilyText, ValueWithoutEnumeratorRoundTripsAsNumber) {
  auto odd = static_cast<AddressFamily>(0xFFFFFFFFu);
  EXPECT_EQ(Kel::valueToStrep(odd), "4294967295");
  EXPECT_EQ(fromStrep<AddressFamily>("4294967295"), odd);
  EXPECT_THROW(fromStrep<AddressFamily>("4294967296"), Kel::RangeException);
}

TEST(AddressFamilyText, UnknownNameIsRangeErrorAndLeavesCursor) {
  std::string text = "'ipv5'";
  Kel::TextCursor c(text);
  try {
    Kel::Strep<AddressFamily>::parse(c);
    FAIL() << "parsed an unknown family";
  } catch (const Kel::RangeException& e) {
    EXPECT_NE(std::string(e.what()).find("ipv5"), std::string::npos) << e.what();
  }
  EXPECT_EQ(c.pos(), text.data());
  EXPECT_THROW(fromStrep<AddressFamily>("ipv4"), Kel::ParseException);
}

// ---- IpAddr

TEST(IpAddr, StoresNetworkOrderWord) {
  IpAddr a = IpAddr::parse("10.1.2.3");
  EXPECT_EQ(a.hostOrder(), 0x0A010203u);
  uint32_t word = a.value();
  const auto* bytes = reinterpret_cast<const uint8_t*>(&word);
  EXPECT_EQ(bytes[0], 10);
  EXPECT_EQ(bytes[1], 1);
  EXPECT_EQ(bytes[2], 2);
  EXPECT_EQ(bytes[3], 3);
  EXPECT_EQ(IpAddr::fromNetworkOrder(word), a);
}

TEST(IpAddr, OrdersByAddressNotByStoredWord) {
  // On a little-endian host the stored words of these two order the other way round.
  EXPECT_LT(IpAddr::parse("10.0.0.255"), IpAddr::parse("10.0.1.0"));
  EXPECT_LT(IpAddr::parse("9.255.255.255"), IpAddr::parse("10.0.0.0"));
}

TEST(IpAddr, TextRoundTrips) {
  for (const char* t : {"0.0.0.0", "10.1.2.3", "255.255.255.255", "192.168.100.1"}) {
    IpAddr a = IpAddr::parse(t);
    EXPECT_EQ(a.str(), t);
    EXPECT_EQ(a.strep(), "'" + std::string(t) + "'");
    EXPECT_EQ(fromStrep<IpAddr>(a.strep()), a);
  }
}

TEST(IpAddr, MalformedTextIsParseErrorOutOfRangeOctetIsRangeError) {
  for (const char* t : {"10.1.2", "", "10.1.2.3.4", "10.1.2.3 ", " 10.1.2.3", "10..2.3", "a.b.c.d",
                        "01.2.3.4", "1.2.3.-4", "256.1.2", "10.1.2.3/8"}) {
    EXPECT_THROW(IpAddr::parse(t), Kel::ParseException) << t;
  }
  for (const char* t : {"256.1.2.3", "1.2.3.999", "99999999999999999999999.1.1.1"}) {
    EXPECT_THROW(IpAddr::parse(t), Kel::RangeException) << t;
  }
}

// ---- Ip6Addr

TEST(Ip6Addr, PrintsCanonicalForm) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"::", "::"},
      {"::1", "::1"},
      {"1::", "1::"},
      {"2001:db8::1", "2001:db8::1"},
      {"2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
      {"2001:db8:1:2:3:4:5:6", "2001:db8:1:2:3:4:5:6"},
      // A lone zero group stays as "0".
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
      {"1::2:3:4:5:6:7", "1:0:2:3:4:5:6:7"},
      // The longest run is compressed; on a tie, the first.
      {"1:0:0:2:0:0:0:3", "1:0:0:2::3"},
      {"1:0:0:2:0:0:3:4", "1::2:0:0:3:4"},
      {"0:0:1:0:0:0:0:0", "0:0:1::"},
      {"fe80::1", "fe80::1"},
      {"::ffff:1.2.3.4", "::ffff:1.2.3.4"},
      {"::ffff:102:304", "::ffff:1.2.3.4"},
      // Only mapped addresses print a dotted tail.
      {"::1.2.3.4", "::102:304"},
      {"64:ff9b::192.0.2.33", "64:ff9b::c000:221"},
  };
  for (const auto& c : cases) {
    Ip6Addr a = Ip6Addr::parse(c.in);
    EXPECT_EQ(a.str(), c.out) << c.in;
    EXPECT_EQ(Ip6Addr::parse(a.str()), a) << c.in;
    EXPECT_EQ(fromStrep<Ip6Addr>(a.strep()), a) << c.in;
  }
}

TEST(Ip6Addr, RandomAddressesRoundTripThroughCanonicalText) {
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
    std::string text = a.str();
    ASSERT_EQ(Ip6Addr::parse(text), a) << text;
    EXPECT_LE(std::count(text.begin(), text.end(), ':'), 7) << text;
    EXPECT_EQ(text.find(":::"), std::string::npos) << text;
    EXPECT_EQ(text.find("::", text.find("::") + 1), std::string::npos) << text;
    EXPECT_TRUE(compressesLongestFirstZeroRun(text)) << text;
  }
}

TEST(Ip6Addr, MalformedTextIsParseError) {
  const char* const malformed[] = {"1:2:3:4:5:6:7:8:9",
                                   ":::",
                                   "",
                                   "1::2::3",
                                   "12345::",
                                   "1:2:3:4:5:6:7:8::",
                                   "::1:2:3:4:5:6:7:8",
                                   "1:2:3:4:5:6:7",
                                   ":1::",
                                   "1:",
                                   ":1",
                                   "1::2:",
                                   "g::",
                                   "fe80::1%eth0",
                                   "::ffff:1.2.3",
                                   "::1.2.3.4:5",
                                   "1:2:3:4:5:6:7:1.2.3.4",
                                   "::ffff:01.2.3.4",
                                   "1.2.3.4",
                                   "::ffff:1.2.3.4 ",
                                   " ::1",
                                   "1::2::",
                                   "::ffff:256.1.2"};
  for (const char* t : malformed) {
    EXPECT_THROW(Ip6Addr::parse(t), Kel::ParseException) << t;
  }
  EXPECT_THROW(Ip6Addr::parse("::ffff:1.2.3.256"), Kel::RangeException);
  EXPECT_THROW(fromStrep<Ip6Addr>("'::1"), Kel::ParseException);
  EXPECT_THROW(fromStrep<Ip6Addr>("'::1'x"), Kel::ParseException);
}

TEST(Ip6Addr, HashMixesBothHalvesOfTheAddress) {
  for (const char* t :
       {"::", "2001:db8::1", "fe80::1:2", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}) {
    Ip6Addr a = Ip6Addr::parse(t);
    std::vector<uint8_t> bytes(a.bytes().begin(), a.bytes().end());
    EXPECT_EQ(a.hash(), refAddrHash(bytes)) << t;
  }
  // Worked out apart from this code, so that the reference itself cannot drift.
  EXPECT_EQ(Ip6Addr::parse("2001:db8::1").hash(), 0x178a09e2u);
  EXPECT_NE(Ip6Addr::parse("::1").hash(), Ip6Addr::parse("1::").hash());
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

TEST(Ip6Addr, LinkLocalIsFe80Slash10) {
  EXPECT_TRUE(Ip6Addr::parse("fe80::1").isLinkLocal());
  EXPECT_TRUE(Ip6Addr::parse("febf:ffff::").isLinkLocal());
  EXPECT_FALSE(Ip6Addr::parse("fec0::1").isLinkLocal());
  EXPECT_FALSE(Ip6Addr::parse("fe7f::1").isLinkLocal());
  EXPECT_FALSE(Ip6Addr::parse("2001:db8::1").isLinkLocal());
}

// ---- IpGenAddr

TEST(IpGenAddr, TextRoundTripsForEachFamily) {
  for (const char* t : {"", "10.0.0.1", "2001:db8::1", "::", "0.0.0.0", "fe80::1"}) {
    IpGenAddr a = IpGenAddr::parse(t);
    EXPECT_EQ(a.str(), t);
    EXPECT_EQ(fromStrep<IpGenAddr>(a.strep()), a) << t;
  }
  EXPECT_EQ(IpGenAddr::parse("").af(), AddressFamily::none);
  EXPECT_EQ(IpGenAddr::parse("::").af(), AddressFamily::ipv6);
  EXPECT_EQ(IpGenAddr::parse("0.0.0.0").af(), AddressFamily::ipv4);
  EXPECT_NE(IpGenAddr::parse("::"), IpGenAddr());
  EXPECT_NE(IpGenAddr::parse("0.0.0.0"), IpGenAddr());
}

TEST(IpGenAddr, HashIsTakenOverTheMappedSixteenBytes) {
  IpGenAddr v4 = IpGenAddr::parse("10.0.0.1");
  std::vector<uint8_t> mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1};
  EXPECT_EQ(v4.hash(), refAddrHash(mapped));
  EXPECT_EQ(v4.hash(), IpGenAddr(Ip6Addr::parse("::ffff:10.0.0.1")).hash());
  EXPECT_EQ(v4.hash(), IpAddr::parse("10.0.0.1").hash());
  IpGenAddr v6 = IpGenAddr::parse("2001:db8::7");
  EXPECT_EQ(v6.hash(), v6.v6().hash());
  EXPECT_EQ(IpGenAddr().hash(), Ip6Addr::parse("::").hash());
  // Same 16 bytes, different families: equal hashes, unequal values.
  EXPECT_NE(v4, IpGenAddr(Ip6Addr::parse("::ffff:10.0.0.1")));
}

TEST(IpGenAddr, OrdersByFamilyThenAddress) {
  std::vector<IpGenAddr> v = {IpGenAddr::parse("::1"), IpGenAddr::parse("10.0.0.2"), IpGenAddr(),
                              IpGenAddr::parse("9.255.0.0"), IpGenAddr::parse("::")};
  std::sort(v.begin(), v.end());
  std::vector<std::string> got;
  for (const auto& a : v) got.push_back(a.str());
  EXPECT_EQ(got, (std::vector<std::string>{"", "9.255.0.0", "10.0.0.2", "::", "::1"}));
}

TEST(IpGenAddr, OnlyIpv6CanBeLinkLocal) {
  EXPECT_TRUE(IpGenAddr::parse("fe80::9").isLinkLocal());
  EXPECT_FALSE(IpGenAddr::parse("169.254.0.1").isLinkLocal());
  EXPECT_FALSE(IpGenAddr().isLinkLocal());
}

TEST(IpGenAddr, WrongFamilyAccessorAsserts) {
  Kel::ScopedThrowingAsserts asserts;
  IpGenAddr v4 = IpGenAddr::parse("10.0.0.1");
  EXPECT_THROW(v4.v6(), Kel::AssertionException);
  EXPECT_THROW(IpGenAddr().v4(), Kel::AssertionException);
}

// ---- IpGenPrefix

TEST(IpGenPrefix, ClearsHostBits) {
  EXPECT_EQ(IpGenPrefix::parse("10.1.2.3/16"), IpGenPrefix::parse("10.1.0.0/16"));
  EXPECT_EQ(IpGenPrefix::parse("10.1.2.3/16").str(), "10.1.0.0/16");
  EXPECT_EQ(IpGenPrefix::parse("10.1.255.3/23").str(), "10.1.254.0/23");
  EXPECT_EQ(IpGenPrefix::parse("255.255.255.255/0").str(), "0.0.0.0/0");
  EXPECT_EQ(IpGenPrefix::parse("10.1.2.3/32").str(), "10.1.2.3/32");
  EXPECT_EQ(IpGenPrefix::parse("2001:db8:ffff::1/33").str(), "2001:db8:8000::/33");
  EXPECT_EQ(IpGenPrefix::parse("ffff::1/0").str(), "::/0");
  EXPECT_EQ(IpGenPrefix::parse("2001:db8::ff/127").str(), "2001:db8::fe/127");
  EXPECT_EQ(IpGenPrefix::parse("2001:db8::ff/128").str(), "2001:db8::ff/128");
  EXPECT_EQ(IpGenPrefix(IpGenAddr::parse("192.168.7.9"), 20).str(), "192.168.0.0/20");
}

TEST(IpGenPrefix, TextRoundTripsIncludingEmpty) {
  for (const char* t : {"", "10.1.0.0/16", "0.0.0.0/0", "2001:db8::/32", "::/0", "fe80::1/128",
                        "::ffff:10.0.0.0/104"}) {
    IpGenPrefix p = IpGenPrefix::parse(t);
    EXPECT_EQ(p.str(), t);
    EXPECT_EQ(fromStrep<IpGenPrefix>(p.strep()), p) << t;
  }
  EXPECT_TRUE(!IpGenPrefix::parse(""));
  EXPECT_EQ(IpGenPrefix().strep(), "''");
}

TEST(IpGenPrefix, LengthPastFamilyMaximumIsRangeError) {
  EXPECT_THROW(IpGenPrefix::parse("10.1.2.3/33"), Kel::RangeException);
  EXPECT_THROW(IpGenPrefix::parse("::/129"), Kel::RangeException);
  EXPECT_THROW(IpGenPrefix::parse("10.0.0.0/99999999999999999999999"), Kel::RangeException);
  EXPECT_THROW(IpGenPrefix(IpGenAddr::parse("10.0.0.0"), 33), Kel::RangeException);
  EXPECT_THROW(IpGenPrefix(IpGenAddr(), 1), Kel::RangeException);
  EXPECT_NO_THROW(IpGenPrefix(IpGenAddr::parse("::"), 128));
  // A range error inside a quoted field is still a range error, so keys can name the field.
  EXPECT_THROW(fromStrep<IpGenPrefix>("'10.1.2.3/33'"), Kel::RangeException);
}

TEST(IpGenPrefix, MalformedTextIsParseError) {
  for (const char* t : {"10.1.2.3", "10.1.2/8", "/8", "10.0.0.0/", "10.0.0.0/016", "10.0.0.0/1x",
                        "10.0.0.0/8/8", "10.0.0.0/-1", ":::/8", "1:2:3:4:5:6:7:8:9/64",
                        "10.0.0.0 /8", "256.0.0/8", "10.0.0.0/33x"}) {
    EXPECT_THROW(IpGenPrefix::parse(t), Kel::ParseException) << t;
  }
  EXPECT_THROW(fromStrep<IpGenPrefix>("'10.0.0.0/8' trailing"), Kel::ParseException);
}

TEST(IpGenPrefix, OrdersByFamilyThenAddressThenLength) {
  std::vector<std::string> texts = {"2001:db8::/32", "10.0.0.0/16", "10.0.0.0/8", "9.0.0.0/8", "",
                                    "::/0",          "10.0.1.0/24", "10.0.0.0/24"};
  std::vector<IpGenPrefix> v;
  for (const auto& t : texts) v.push_back(IpGenPrefix::parse(t));
  std::sort(v.begin(), v.end());
  std::vector<std::string> got;
  for (const auto& p : v) got.push_back(p.str());
  EXPECT_EQ(got, (std::vector<std::string>{"", "9.0.0.0/8", "10.0.0.0/8", "10.0.0.0/16",
                                           "10.0.0.0/24", "10.0.1.0/24", "::/0", "2001:db8::/32"}));
}

TEST(IpGenPrefix, HashMixesHostOrderAddressOrIpv6HashWithLength) {
  EXPECT_EQ(IpGenPrefix::parse("10.1.0.0/16").hash(), refWang(0x0A010000u ^ 16u));
  EXPECT_EQ(IpGenPrefix::parse("192.168.1.0/24").hash(), refWang(0xC0A80100u ^ 24u));
  Ip6Addr six = Ip6Addr::parse("2001:db8::");
  std::vector<uint8_t> bytes(six.bytes().begin(), six.bytes().end());
  EXPECT_EQ(IpGenPrefix::parse("2001:db8::/32").hash(), refWang(refAddrHash(bytes) ^ 32u));
  EXPECT_EQ(IpGenPrefix().hash(), 0u);
  // Values worked out apart from this code, so that the references themselves cannot drift.
  EXPECT_EQ(IpGenPrefix::parse("10.1.0.0/16").hash(), 0xe710d808u);
  EXPECT_EQ(refWang(0), 0xcaa3caa3u);
}

TEST(IpGenPrefix, ContainsOnlyAddressesOfItsFamilyWithinItsBits) {
  IpGenPrefix p = IpGenPrefix::parse("10.1.0.0/16");
  EXPECT_TRUE(p.contains(IpGenAddr::parse("10.1.255.255")));
  EXPECT_FALSE(p.contains(IpGenAddr::parse("10.2.0.0")));
  EXPECT_FALSE(p.contains(IpGenAddr::parse("::ffff:10.1.0.1")));
  EXPECT_TRUE(IpGenPrefix::parse("::/0").contains(IpGenAddr::parse("fe80::1")));
  EXPECT_FALSE(IpGenPrefix::parse("::/0").contains(IpGenAddr::parse("10.0.0.1")));
  EXPECT_TRUE(IpGenPrefix::parse("2001:db8::/33").contains(IpGenAddr::parse("2001:db8:7fff::")));
  EXPECT_FALSE(IpGenPrefix::parse("2001:db8::/33").contains(IpGenAddr::parse("2001:db8:8000::")));
  EXPECT_FALSE(IpGenPrefix().contains(IpGenAddr()));
}

static_assert(sizeof(IpGenPrefix) <= 20, "prefixes are held by millions of routes");
static_assert(sizeof(IntfId) == 4, "interface ids are held by every via");

// ---- IntfId

TEST(IntfId, EqualNamesShareAnId) {
  IntfId a("Ethernet1");
  IntfId b(std::string("Ethernet") + "1");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.id(), b.id());
  EXPECT_NE(a, IntfId("Ethernet2"));
  EXPECT_EQ(IntfId("").id(), 0u);
  EXPECT_TRUE(!IntfId(""));
}

TEST(IntfId, OrderAndHashFollowTheNameNotTheInterningOrder) {
  IntfId late("zzTestIntf9");
  IntfId early("aaTestIntf9");  // interned after, so its id is larger
  EXPECT_GT(early.id(), late.id());
  EXPECT_LT(early, late);
  EXPECT_LT(IntfId(), early);
  EXPECT_EQ(late.hash(), Kel::stringHash("zzTestIntf9"));
  std::vector<uint8_t> bytes = {'V', 'l', 'a', 'n', '1', '0'};
  EXPECT_EQ(IntfId("Vlan10").hash(), refOneAtATime(bytes));
  EXPECT_EQ(IntfId().hash(), 0u);
}

TEST(IntfId, TextRoundTrips) {
  for (const char* n : {"", "Ethernet1", "Ethernet1/2.100", "Port-Channel7", "vx_1:a"}) {
    IntfId i(n);
    EXPECT_EQ(i.strep(), "'" + std::string(n) + "'");
    EXPECT_EQ(fromStrep<IntfId>(i.strep()), i);
  }
}

TEST(IntfId, RefusesBadNamesWithRangeError) {
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
