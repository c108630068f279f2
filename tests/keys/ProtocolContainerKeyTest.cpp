// Value keys: hashes recomputed here independently, orders, text forms and their parsing.
#include <gtest/gtest.h>

#include <string>

#include "keys/ProtocolContainerKey.h"

namespace Routing::Protocol {
namespace {

using Velnet::AddressFamily;

// One-at-a-time over a byte string, written out again so that the keys' hashes are checked
// against an independent computation.
uint32_t oat(const std::string& bytes) {
  uint32_t h = 0;
  for (unsigned char b : bytes) {
    h += b;
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return h;
}

std::string le32(uint32_t v) {
  return std::string{char(v & 0xff), char((v >> 8) & 0xff), char((v >> 16) & 0xff), char((v >> 24) & 0xff)};
}

uint32_t wang(uint32_t k) {
  k = ~k + (k << 15);
  k ^= k >> 12;
  k += k << 2;
  k ^= k >> 4;
  k *= 2057;
  k ^= k >> 16;
  return k;
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

TEST(ContainerKey, DefaultKeyHashesToZeroAndIsFalse) {
  ContainerKey none;
  EXPECT_EQ(none.hash(), 0u);
  EXPECT_TRUE(!none);
  EXPECT_FALSE(!ContainerKey(L3::VrfName("red"), AddressFamily::none));
  EXPECT_FALSE(!ContainerKey(L3::VrfName(""), AddressFamily::ipv6));
  EXPECT_EQ(ContainerKey(L3::VrfName(""), AddressFamily::ipv6).hash(), 2u);
}

TEST(ContainerKey, HashIsTheNameHashXorTheFamily) {
  ContainerKey k(L3::VrfName("red"), AddressFamily::ipv4);
  EXPECT_EQ(k.hash(), oat("red") ^ 1u);
}

TEST(ContainerKey, NameOfExactlyOneHundredBytesIsAcceptedAndOneMoreRefused) {
  std::string hundred(100, 'v');
  EXPECT_EQ(ContainerKey(L3::VrfName(hundred), AddressFamily::ipv4).vrfName().str(), hundred);
  try {
    L3::VrfName tooLong(hundred + "v");
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "VrfName::bytes > VrfName::maxLength not allowed");
  }
}

TEST(ContainerKey, TextFormIsExactAndParsesBack) {
  ContainerKey k(L3::VrfName("it's"), AddressFamily::ipv6);
  std::string text = valueToStrep(k);
  EXPECT_EQ(text, "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'it\\'s', 'af': 'ipv6'})");
  EXPECT_EQ(ContainerKey(text.data(), text.data() + text.size()), k);
  std::ostringstream os;
  os << k;
  EXPECT_EQ(os.str(), text);
}

TEST(ContainerKey, ParsingNamesTheRefusedFieldAndRejectsMissingPieces) {
  std::string text = "Value('Routing::Protocol::ContainerKey', ** {'vrfName': '" + std::string(101, 'x') +
                     "', 'af': 'ipv4'})";
  try {
    ContainerKey k(text.data(), text.data() + text.size());
    FAIL();
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "vrfName");
  }
  std::string badAf = "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': 'ipv9'})";
  try {
    ContainerKey k(badAf.data(), badAf.data() + badAf.size());
    FAIL();
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "af");
  }
  std::string missing = "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red'})";
  EXPECT_THROW(ContainerKey(missing.data(), missing.data() + missing.size()), Kel::ParseException);
}

TEST(RouteStatusKey, HashIsOneAtATimeOverLittleEndianFields) {
  RouteStatusKey k(0x01020304u, AddressFamily::ipv6);
  EXPECT_EQ(k.hash(), oat(le32(0x01020304u) + le32(2)));
  EXPECT_EQ(VrfIdAf(0x01020304u, AddressFamily::ipv6).hash(), k.hash());
  EXPECT_EQ(VrfPairAf(5, 7, AddressFamily::ipv4).hash(), oat(le32(5) + le32(7) + le32(1)));
}

TEST(RouteStatusKey, FamiliesOrderAsSignedNumbers) {
  auto negative = static_cast<AddressFamily>(0x80000000u);
  RouteStatusKey a(3, negative), b(3, AddressFamily::ipv4), c(2, AddressFamily::ipv6);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(c < a);  // the VRF number comes first
}

TEST(RouteStatusKey, ShortFormBeginsWithABlank) {
  EXPECT_EQ(RouteStatusKey(0, AddressFamily::ipv4).str(), " (RSK 0, ipv4)");
  EXPECT_EQ(VrfIdAf(4, AddressFamily::ipv6).str(), "(4, ipv6)");
  EXPECT_EQ(VrfPairAf(4, 9, AddressFamily::ipv4).str(), "(4-9, ipv4)");
}

TEST(RouteStatusKey, TextFormsRoundTrip) {
  RouteStatusKey k(17, AddressFamily::ipv4);
  std::string text = valueToStrep(k);
  EXPECT_EQ(text, "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 17, 'af': 'ipv4'})");
  EXPECT_EQ(RouteStatusKey(text.data(), text.data() + text.size()), k);
  VrfPairAf vpa(1, 2, AddressFamily::ipv6);
  EXPECT_EQ(vpa.strep(), "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 2, 'af': 'ipv6'})");
  EXPECT_EQ(Kel::strepToValue<VrfPairAf>(vpa.strep()), vpa);
  VrfIdAf via(3, AddressFamily::ipv4);
  EXPECT_EQ(Kel::strepToValue<VrfIdAf>(via.strep()), via);
  std::string overflow = "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 4294967296, 'af': 'ipv4'})";
  try {
    RouteStatusKey bad(overflow.data(), overflow.data() + overflow.size());
    FAIL();
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "vrfId");
  }
}

TEST(PrefixPrefVrfId, HashMixesTheWangHashOfThePrefixWithPreferenceAndVrf) {
  PrefixPrefVrfId v4(prefix("10.1.0.0/16"), 7, 3);
  uint32_t p4 = wang(0x0A010000u ^ 16u);
  EXPECT_EQ(v4.hash(), oat(le32(p4) + std::string(1, char(7)) + le32(3)));
  PrefixPrefVrfId v6(prefix("2001:db8::/32"), 1, 0);
  uint32_t p6 = wang(Velnet::Ip6Addr::parse("2001:db8::").hash() ^ 32u);
  EXPECT_EQ(v6.hash(), oat(le32(p6) + std::string(1, char(1)) + le32(0)));
}

TEST(PrefixPrefVrfId, KeyWithoutFamilyStillHashesAndOrders) {
  PrefixPrefVrfId a(Velnet::IpGenPrefix(), 1, 9), b(Velnet::IpGenPrefix(), 2, 0), c(Velnet::IpGenPrefix(), 2, 1);
  EXPECT_EQ(a.hash(), oat(le32(0) + std::string(1, char(1)) + le32(9)));
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(b < c);
  EXPECT_FALSE(c < b);
}

TEST(PrefixPrefVrfId, TextAndShortForms) {
  PrefixPrefVrfId k(prefix("10.0.0.0/8"), 20, 5);
  EXPECT_EQ(k.str(), " (10.0.0.0/8, pref: 20, vrf: 5)");
  std::string text = valueToStrep(k);
  EXPECT_EQ(text, "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '10.0.0.0/8', 'pref': 20, 'vrfId': 5})");
  EXPECT_EQ(PrefixPrefVrfId(text.data(), text.data() + text.size()), k);
  std::string badPref = "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '10.0.0.0/8', 'pref': 256, 'vrfId': 5})";
  try {
    PrefixPrefVrfId bad(badPref.data(), badPref.data() + badPref.size());
    FAIL();
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "pref");
  }
}

TEST(ContainerKeySet, AddingAKeyTwiceKeepsOneMemberAndNotifiesOnce) {
  auto set = containerKeySetFactory();
  struct Counter : ContainerKeySet::NotifieeConst {
    int n = 0;
    void onContainerKey(const ContainerKey&) override { ++n; }
  } counter;
  counter.notifierIs(set);
  ContainerKey k(L3::VrfName("red"), AddressFamily::ipv4);
  set->containerKeyIs(k);
  set->containerKeyIs(k);
  EXPECT_EQ(set->containerKeys(), 1u);
  EXPECT_EQ(counter.n, 1);
  EXPECT_TRUE(set->containerKeyDel(k));
  EXPECT_FALSE(set->containerKeyDel(k));
  EXPECT_EQ(counter.n, 2);
}

TEST(KeyReflection, KeysAreRegisteredWithTheirFieldsAndTypeNames) {
  const Kel::TypeInfo* t = Kel::Registry::instance().find("Routing::Protocol::PrefixPrefVrfId");
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(t->ctorParams, (std::vector<std::string>{"prefix", "pref", "vrfId"}));
  EXPECT_EQ(t->attrs[1].typeName, "Routing::RoutePreference");
  EXPECT_NO_THROW(t->parseCheck("Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '10.0.0.0/8', 'pref': 1, 'vrfId': 0})"));
  EXPECT_NE(Kel::Registry::instance().find("Routing::Protocol::ContainerKeySet")->createEmpty, nullptr);
}

}  // namespace
}  // namespace Routing::Protocol
