// The protocol's route list: route keys as values, and routes replaced under their key.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/kel/Kel.h"
#include "platform/routing/RouteList.h"

namespace Routing {
namespace {

RouteKey key(const char* prefix) { return RouteKey(Velnet::IpGenPrefix::parse(prefix)); }

TEST(RouteKey, ReadsBackFromItsTextAndHashesAndOrdersAsItsPrefix) {
  for (const char* p : {"10.0.0.0/8", "2001:db8::/32", ""}) {
    std::string text = Kel::valueToStrep(key(p));
    EXPECT_EQ(Kel::strepToValue<RouteKey>(text), key(p)) << text;
  }
  EXPECT_EQ(Kel::valueToStrep(key("10.0.0.0/8")),
            "Value('Routing::RouteKey', ** {'prefix': '10.0.0.0/8'})");
  EXPECT_EQ(key("10.0.0.0/8").str(), "10.0.0.0/8");
  EXPECT_EQ(key("192.168.1.0/24").hash(), Velnet::IpGenPrefix::parse("192.168.1.0/24").hash());
  EXPECT_LT(key("10.0.0.0/8"), key("10.0.0.0/9"));
  EXPECT_LT(key("10.0.0.0/8"), key("2001:db8::/32"));
}

TEST(RouteKey, MalformedTextIsAParseErrorAndABadPrefixNamesTheField) {
  EXPECT_THROW(
      Kel::strepToValue<RouteKey>("Value('Routing::RouteKey', ** {'prefix': '10.0.0.0/8'}"),
      Kel::ParseException);
  try {
    Kel::strepToValue<RouteKey>("Value('Routing::RouteKey', ** {'prefix': '10.0.0.0/33'})");
    FAIL();
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "prefix");
  }
}

struct ListRecorder : RouteList::NotifieeConst {
  explicit ListRecorder(const RouteList::PtrConst& l) { notifierIs(l); }
  void onRoute(const RouteKey& k) override {
    log.push_back(k.str() + (notifier()->routeHas(k) ? " present" : " absent"));
  }
  std::vector<std::string> log;
};

TEST(RouteList, ReplacingARouteObjectUnderItsKeyNotifiesOnce) {
  auto list = routeListFactory();
  ListRecorder rec(list);
  auto first = routeFactory(key("10.0.0.0/8"));
  auto second = routeFactory(key("10.0.0.0/8"));
  list->routeIs(first);
  list->routeIs(first);
  list->routeIs(second);
  list->routeDel(key("10.0.0.0/8"));
  EXPECT_EQ(rec.log, (std::vector<std::string>{"10.0.0.0/8 present", "10.0.0.0/8 present",
                                               "10.0.0.0/8 absent"}));
  EXPECT_EQ(list->routes(), 0u);
}

TEST(RouteList, ReflectionCreatesAnEmptyListAndKnowsTheKeyType) {
  auto e = Kel::createEntity("Routing::RouteList");
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->typeName(), "Routing::RouteList");
  const Kel::TypeInfo* t = Kel::Registry::instance().find("Routing::RouteKey");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->ctorParams, (std::vector<std::string>{"prefix"}));
}

}  // namespace
}  // namespace Routing
