// The leak entities: how leak routes are created, filed and replaced, and the texts of their
// failures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

template <class F>
std::string rangeErrorOf(F&& f) {
  try {
    f();
  } catch (const Kel::RangeException& e) {
    return e.what();
  }
  return "no error";
}

template <class F>
std::string nameInUseErrorOf(F&& f) {
  try {
    f();
  } catch (const Kel::NameInUseException& e) {
    return e.what();
  }
  return "no error";
}

struct ConfigRecorder : LeakRouteConfig::NotifieeConst {
  explicit ConfigRecorder(const LeakRouteConfig::PtrConst& c) { notifierIs(c); }
  void onLeakRoute(const Routing::RouteKey& k) override { log.push_back(k.str()); }
  std::vector<std::string> log;
};

TEST(LeakModel, LeakRouteIsReturnsTheExistingLeakRouteForTheSameRoute) {
  auto dir = leakRouteDirFactory();
  auto route = Routing::routeFactory(key("10.0.0.0/8"));
  auto first = dir->leakRouteIs(v4(1), route);
  auto again = dir->leakRouteIs(v4(1), route);
  EXPECT_EQ(first, again);
  EXPECT_EQ(dir->leakRoutes(), 1u);
  EXPECT_EQ(first->key(), key("10.0.0.0/8"));
  EXPECT_EQ(first->parent(), dir.get());
}

TEST(LeakModel, LeakRouteForAnotherRouteObjectUnderTheSameKeyIsRefused) {
  auto dir = leakRouteDirFactory();
  auto route = Routing::routeFactory(key("10.0.0.0/8"));
  auto other = Routing::routeFactory(key("10.0.0.0/8"));
  auto lr = dir->leakRouteIs(v4(1), route);
  std::string vrfAfError = nameInUseErrorOf([&] { dir->leakRouteIs(v4(2), route); });
  EXPECT_EQ(vrfAfError.rfind(
                "Reinstantiating the entity with fullName " + lr->fullName() +
                    " where constructor parameter attribute 'vrfAf' has a different value of "
                    "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 2, 'af': 'ipv4'})",
                0),
            0u)
      << vrfAfError;
  std::string routeError = nameInUseErrorOf([&] { dir->leakRouteIs(v4(1), other); });
  EXPECT_EQ(routeError.rfind(
                "Reinstantiating the entity with fullName " + lr->fullName() +
                    " where constructor parameter attribute 'route' has a different value of",
                0),
            0u)
      << routeError;
  EXPECT_EQ(dir->leakRoute(key("10.0.0.0/8")), lr);
  // Deleting the old one first is how a key comes to point at another route.
  EXPECT_TRUE(dir->leakRouteDel(key("10.0.0.0/8")));
  EXPECT_EQ(dir->leakRouteIs(v4(1), other)->route(), other);
}

TEST(LeakModel, ReplacingAPointerMemberNotifiesOnceWithItsKey) {
  auto config = leakRouteConfigFactory(v4(9));
  ConfigRecorder rec(config);
  auto route = Routing::routeFactory(key("10.0.0.0/8"));
  auto a = leakRouteFactory(v4(1), route);
  auto b = leakRouteFactory(v4(2), route);
  config->leakRouteIs(a);
  config->leakRouteIs(a);
  config->leakRouteIs(b);
  EXPECT_EQ(rec.log, (std::vector<std::string>{"10.0.0.0/8", "10.0.0.0/8"}));
  EXPECT_EQ(config->leakRoute(key("10.0.0.0/8")), b);
  EXPECT_EQ(config->leakRoutes(), 1u);
}

TEST(LeakModel, NullMembersAreRefusedWithTheAttributesTextAndChangeNothing) {
  auto config = leakRouteConfigFactory(v4(9));
  auto list = leakRouteListFactory(pair4(1, 9));
  auto setDir = leakRouteListSetDirFactory();
  auto ptrSet = leakRouteListPtrSetFactory(v4(9));
  auto ptrSetDir = leakRouteListPtrSetDirFactory();
  EXPECT_EQ(rangeErrorOf([&] { config->leakRouteIs(nullptr); }),
            "null _leakRoute parameter to mutator for "
            "Routing::Protocol::LeakRouteConfig::leakRoute not allowed\"");
  EXPECT_EQ(rangeErrorOf([&] { list->leakRouteIs(nullptr); }),
            "null _leakRoute parameter to mutator for Routing::Protocol::LeakRouteList::leakRoute "
            "not allowed\"");
  EXPECT_EQ(rangeErrorOf([&] { setDir->lrlSetIs(nullptr); }),
            "null _lrlSet parameter to mutator for Routing::Protocol::LeakRouteListSetDir::lrlSet "
            "not allowed\"");
  EXPECT_EQ(rangeErrorOf([&] { ptrSet->leakRouteListIs(nullptr); }),
            "null _leakRouteList parameter to mutator for "
            "Routing::Protocol::LeakRouteListPtrSet::leakRouteList "
            "not allowed\"");
  EXPECT_EQ(rangeErrorOf([&] { ptrSetDir->lrlpSetIs(nullptr); }),
            "null _lrlpSet parameter to mutator for "
            "Routing::Protocol::LeakRouteListPtrSetDir::lrlpSet not allowed\"");
  EXPECT_EQ(config->leakRoutes() + list->leakRoutes() + setDir->lrlSets() +
                ptrSet->leakRouteLists() + ptrSetDir->lrlpSets(),
            0u);
  EXPECT_EQ(
      rangeErrorOf([&] { leakRouteFactory(v4(1), nullptr); }),
      "null _route parameter to mutator for Routing::Protocol::LeakRoute::route not allowed\"");
}

TEST(LeakModel, LeakRouteHeldElsewhereOutlivesItsDirectoryWithoutADanglingParent) {
  auto route = Routing::routeFactory(key("10.1.0.0/16"));
  auto config = leakRouteConfigFactory(v4(9));
  {
    auto dir = leakRouteDirFactory();
    config->leakRouteIs(dir->leakRouteIs(v4(1), route));
  }
  auto lr = config->leakRoute(key("10.1.0.0/16"));
  ASSERT_TRUE(lr);
  EXPECT_EQ(lr->parent(), nullptr);
  EXPECT_EQ(lr->fullName(), "Value('Routing::RouteKey', ** {'prefix': '10.1.0.0/16'})");
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
