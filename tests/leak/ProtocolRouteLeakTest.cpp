// The leak entities: how leak routes are created and filed, and the texts of their failures.
// Replacing a member of a pointer collection is the framework's, tested in its own right.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

TEST(LeakModel, LeakRouteIsKeepsTheOneLeakRouteOfARouteAndRefusesAnotherUnderItsKey) {
  auto dir = leakRouteDirFactory();
  auto route = Routing::routeFactory(key("10.0.0.0/8"));
  auto other = Routing::routeFactory(key("10.0.0.0/8"));
  auto lr = dir->leakRouteIs(v4(1), route);
  EXPECT_EQ(dir->leakRouteIs(v4(1), route), lr);
  EXPECT_EQ(dir->leakRoutes(), 1u);
  EXPECT_EQ(lr->key(), key("10.0.0.0/8"));
  EXPECT_EQ(lr->parent(), dir.get());

  const std::string head = "Reinstantiating the entity with fullName " + lr->fullName() +
                           " where constructor parameter attribute ";
  using testing::StartsWith;
  EXPECT_THAT([&] { dir->leakRouteIs(v4(2), route); },
              testing::ThrowsMessage<Kel::NameInUseException>(StartsWith(
                  head + "'vrfAf' has a different value of "
                         "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 2, 'af': 'ipv4'})")));
  EXPECT_THAT([&] { dir->leakRouteIs(v4(1), other); },
              testing::ThrowsMessage<Kel::NameInUseException>(
                  StartsWith(head + "'route' has a different value of")));
  EXPECT_EQ(dir->leakRoute(key("10.0.0.0/8")), lr);
  // Deleting the old one first is how a key comes to point at another route.
  EXPECT_TRUE(dir->leakRouteDel(key("10.0.0.0/8")));
  EXPECT_EQ(dir->leakRouteIs(v4(1), other)->route(), other);
}

TEST(LeakModel, NullMembersAreRefusedWithTheAttributesTextAndChangeNothing) {
  auto config = leakRouteConfigFactory(v4(9));
  auto list = leakRouteListFactory(pair4(1, 9));
  auto setDir = leakRouteListSetDirFactory();
  auto ptrSet = leakRouteListPtrSetFactory(v4(9));
  auto ptrSetDir = leakRouteListPtrSetDirFactory();
  struct Case {
    std::function<void()> mutate;
    const char* attr;
    const char* owner;
  };
  const Case cases[] = {
      {[&] { config->leakRouteIs(nullptr); }, "leakRoute", "LeakRouteConfig"},
      {[&] { list->leakRouteIs(nullptr); }, "leakRoute", "LeakRouteList"},
      {[&] { setDir->lrlSetIs(nullptr); }, "lrlSet", "LeakRouteListSetDir"},
      {[&] { ptrSet->leakRouteListIs(nullptr); }, "leakRouteList", "LeakRouteListPtrSet"},
      {[&] { ptrSetDir->lrlpSetIs(nullptr); }, "lrlpSet", "LeakRouteListPtrSetDir"},
      {[&] { leakRouteFactory(v4(1), nullptr); }, "route", "LeakRoute"},
  };
  for (const Case& c : cases) {
    EXPECT_THAT(c.mutate,
                throwsText<Kel::RangeException>(std::string("null _") + c.attr +
                                                " parameter to mutator for Routing::Protocol::" +
                                                c.owner + "::" + c.attr + " not allowed\""));
  }
  EXPECT_EQ(config->leakRoutes() + list->leakRoutes() + setDir->lrlSets() +
                ptrSet->leakRouteLists() + ptrSetDir->lrlpSets(),
            0u);
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
