// Value keys: hashes recomputed here independently, orders, text forms and their parsing.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>

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
  return std::string{char(v & 0xff), char((v >> 8) & 0xff), char((v >> 16) & 0xff),
                     char((v >> 24) & 0xff)};
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

// The key prints as `text`, and every way of reading a key reads that text back as it.
template <class K>
void expectText(const K& k, const std::string& text) {
  EXPECT_EQ(valueToStrep(k), text);
  std::ostringstream os;
  os << k;
  EXPECT_EQ(os.str(), text);
  EXPECT_EQ(Kel::strepToValue<K>(text), k) << text;
  if constexpr (std::is_constructible_v<K, const char*, const char*>) {
    EXPECT_EQ(K(text.data(), text.data() + text.size()), k) << text;
  }
}

// The field a key's range constructor names when it refuses `text`.
template <class K>
std::string refusedField(const std::string& text) {
  try {
    K k(text.data(), text.data() + text.size());
  } catch (const Kel::DeserializationException& e) {
    return e.field();
  }
  return "accepted";
}

TEST(ContainerKey, HashIsTheNameHashXorTheFamilyAndOnlyTheDefaultKeyIsEmpty) {
  EXPECT_EQ(ContainerKey(L3::VrfName("red"), AddressFamily::ipv4).hash(), oat("red") ^ 1u);
  EXPECT_EQ(ContainerKey(L3::VrfName(""), AddressFamily::ipv6).hash(), 2u);
  EXPECT_EQ(ContainerKey().hash(), 0u);
  EXPECT_TRUE(!ContainerKey());
  EXPECT_FALSE(!ContainerKey(L3::VrfName("red"), AddressFamily::none));
  EXPECT_FALSE(!ContainerKey(L3::VrfName(""), AddressFamily::ipv6));
}

TEST(RouteStatusKey, HashIsOneAtATimeOverLittleEndianFields) {
  RouteStatusKey k(0x01020304u, AddressFamily::ipv6);
  EXPECT_EQ(k.hash(), oat(le32(0x01020304u) + le32(2)));
  EXPECT_EQ(VrfIdAf(0x01020304u, AddressFamily::ipv6).hash(), k.hash());
  EXPECT_EQ(VrfPairAf(5, 7, AddressFamily::ipv4).hash(), oat(le32(5) + le32(7) + le32(1)));
}

// The prefix enters as its own hash, the preference as one byte; a key without a family hashes
// its prefix as 0.
TEST(PrefixPrefVrfId, HashMixesThePrefixHashWithPreferenceAndVrf) {
  for (const char* p : {"10.1.0.0/16", "2001:db8::/32", ""}) {
    EXPECT_EQ(PrefixPrefVrfId(prefix(p), 7, 3).hash(),
              oat(le32(prefix(p).hash()) + std::string(1, char(7)) + le32(3)))
        << p;
  }
}

TEST(KeyOrder, VrfComesFirstAndFamiliesOrderAsSignedNumbers) {
  auto negative = static_cast<AddressFamily>(0x80000000u);
  RouteStatusKey a(3, negative), b(3, AddressFamily::ipv4), c(2, AddressFamily::ipv6);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(c < a);
  PrefixPrefVrfId p(Velnet::IpGenPrefix(), 1, 9), q(Velnet::IpGenPrefix(), 2, 0),
      r(Velnet::IpGenPrefix(), 2, 1);
  EXPECT_TRUE(p < q);
  EXPECT_TRUE(q < r);
  EXPECT_FALSE(r < q);
}

TEST(KeyText, EachKeyPrintsItsFieldsAndReadsBack) {
  expectText(ContainerKey(L3::VrfName("it's"), AddressFamily::ipv6),
             "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'it\\'s', 'af': 'ipv6'})");
  expectText(RouteStatusKey(17, AddressFamily::ipv4),
             "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 17, 'af': 'ipv4'})");
  expectText(PrefixPrefVrfId(prefix("10.0.0.0/8"), 20, 5),
             "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '10.0.0.0/8', 'pref': 20, "
             "'vrfId': 5})");
  expectText(VrfIdAf(3, AddressFamily::ipv4),
             "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 3, 'af': 'ipv4'})");
  expectText(VrfPairAf(1, 2, AddressFamily::ipv6),
             "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 2, 'af': 'ipv6'})");
  // The short forms that traces show; two of them begin with a blank.
  EXPECT_EQ(RouteStatusKey(0, AddressFamily::ipv4).str(), " (RSK 0, ipv4)");
  EXPECT_EQ(PrefixPrefVrfId(prefix("10.0.0.0/8"), 20, 5).str(), " (10.0.0.0/8, pref: 20, vrf: 5)");
  EXPECT_EQ(VrfIdAf(4, AddressFamily::ipv6).str(), "(4, ipv6)");
  EXPECT_EQ(VrfPairAf(4, 9, AddressFamily::ipv4).str(), "(4-9, ipv4)");
}

TEST(KeyText, RefusedFieldIsNamedAndMissingFieldIsParseError) {
  const std::string ck = "Value('Routing::Protocol::ContainerKey', ** {";
  EXPECT_EQ(
      refusedField<ContainerKey>(ck + "'vrfName': '" + std::string(101, 'x') + "', 'af': 'ipv4'})"),
      "vrfName");
  EXPECT_EQ(refusedField<ContainerKey>(ck + "'vrfName': 'red', 'af': 'ipv9'})"), "af");
  EXPECT_EQ(refusedField<RouteStatusKey>("Value('Routing::Protocol::RouteStatusKey', ** "
                                         "{'vrfId': 4294967296, 'af': 'ipv4'})"),
            "vrfId");
  EXPECT_EQ(refusedField<PrefixPrefVrfId>("Value('Routing::Protocol::PrefixPrefVrfId', ** "
                                          "{'prefix': '10.0.0.0/8', 'pref': 256, 'vrfId': 5})"),
            "pref");
  const std::string missing = ck + "'vrfName': 'red'})";
  EXPECT_THROW(ContainerKey(missing.data(), missing.data() + missing.size()), Kel::ParseException);
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
  EXPECT_NO_THROW(t->parseCheck(
      "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '10.0.0.0/8', 'pref': 1, "
      "'vrfId': 0})"));
  EXPECT_NE(Kel::Registry::instance().find("Routing::Protocol::ContainerKeySet")->createEmpty,
            nullptr);
}

}  // namespace
}  // namespace Routing::Protocol
