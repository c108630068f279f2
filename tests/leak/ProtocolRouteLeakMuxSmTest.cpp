// The multiplexer: a source VRF's routes sorted into one list per destination, its time-sliced
// first pass, and its traces and failure texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

constexpr const char* kSrc = "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 1, 'af': 'ipv4'})";
constexpr const char* kHandleRoute =
    "void Routing::Protocol::Leak::MuxSm::handleRoute(const Routing::RouteKey&) src ";

class MuxSmTest : public LoopTest {
 protected:
  void SetUp() override {
    LoopTest::SetUp();
    map->vrfIdIs(L3::VrfName("red"), 1);
    map->vrfIdIs(L3::VrfName("blue"), 2);
    map->vrfIdIs(L3::VrfName("green"), 3);
  }
  void TearDown() override {
    mux = nullptr;
    LoopTest::TearDown();
  }

  Routing::Route::Ptr routeIs(const char* prefix, const char* leakTo) {
    auto route = Routing::routeFactory(key(prefix));
    route->leakToVrfIs(L3::VrfName(leakTo));
    routes->routeIs(route);
    return route;
  }
  void start() { mux = Leak::muxSmFactory(v4(1), routes, map); }
  LeakRouteList::Ptr listTo(VrfId dst) {
    return mux->outputLeakRouteListSet()->leakRouteList(pair4(1, dst));
  }
  std::vector<std::string> leakedTo(VrfId dst) {
    auto list = listTo(dst);
    return list ? prefixes(list->leakRouteColl()) : std::vector<std::string>{};
  }
  // The keys that handleRoute(key) was entered with, in order.
  static std::vector<std::string> handled(const std::vector<std::string>& texts) {
    std::vector<std::string> out;
    const std::string head = std::string(kHandleRoute) + kSrc + " with ";
    for (const auto& t : texts) {
      if (t.rfind(head, 0) == 0)
        out.push_back(Kel::strepToValue<Routing::RouteKey>(t.substr(head.size())).str());
    }
    return out;
  }

  Vrf::VrfIdMap::NameToIdMap::Ptr map = Vrf::VrfIdMap::nameToIdMapFactory();
  Routing::RouteList::Ptr routes = Routing::routeListFactory();
  Leak::MuxSm::Ptr mux;
};

TEST_F(MuxSmTest, FirstPassRunsOnALaterTurnAndARouteLeavingIsWithdrawnAtOnce) {
  routeIs("10.1.0.0/16", "blue");
  routeIs("10.2.0.0/16", "green");
  routeIs("10.3.0.0/16", "");
  start();
  EXPECT_EQ(mux->outputLeakRouteListSet()->leakRouteLists(), 0u);
  EXPECT_EQ(mux->backlogs(), 3u);
  settle();
  EXPECT_EQ(leakedTo(2), (std::vector<std::string>{"10.1.0.0/16"}));
  EXPECT_EQ(leakedTo(3), (std::vector<std::string>{"10.2.0.0/16"}));
  EXPECT_EQ(mux->outputLeakRouteListSet()->leakRouteLists(), 2u);
  EXPECT_EQ(mux->leakRouteDir()->leakRoutes(), 2u);
  EXPECT_EQ(mux->backlogs(), 0u);

  // Its entry trace is checked end to end by the route-leaking scenario.
  routes->routeDel(key("10.1.0.0/16"));
  EXPECT_FALSE(listTo(2));
  EXPECT_EQ(mux->routes(), 2u);
}

TEST_F(MuxSmTest, LeakToItsOwnVrfOrToAnUnknownVrfIsWithdrawn) {
  auto route = routeIs("10.1.0.0/16", "blue");
  start();
  settle();
  ASSERT_EQ(leakedTo(2), (std::vector<std::string>{"10.1.0.0/16"}));
  route->leakToVrfIs(L3::VrfName("red"));
  EXPECT_FALSE(listTo(2));
  EXPECT_FALSE(listTo(1));
  EXPECT_EQ(mux->leakRouteDir()->leakRoutes(), 0u);
  EXPECT_EQ(mux->oldLeakTos(), 0u);

  route->leakToVrfIs(L3::VrfName("blue"));
  ASSERT_TRUE(listTo(2));
  route->leakToVrfIs(L3::VrfName("nowhere"));
  EXPECT_EQ(mux->outputLeakRouteListSet()->leakRouteLists(), 0u);
  EXPECT_EQ(mux->leakRouteDir()->leakRoutes(), 0u);
  // The leak comes back when the route is handled again after the name became known.
  map->vrfIdIs(L3::VrfName("nowhere"), 4);
  mux->handleRoute(key("10.1.0.0/16"));
  EXPECT_EQ(leakedTo(4), (std::vector<std::string>{"10.1.0.0/16"}));
}

TEST_F(MuxSmTest, ChangingTheLeakToVrfMovesTheLeakRouteAndDropsTheEmptiedList) {
  auto r1 = routeIs("10.1.0.0/16", "blue");
  auto r2 = routeIs("10.2.0.0/16", "blue");
  start();
  settle();
  auto lr1 = mux->leakRouteDir()->leakRoute(key("10.1.0.0/16"));
  r1->leakToVrfIs(L3::VrfName("green"));
  EXPECT_EQ(leakedTo(2), (std::vector<std::string>{"10.2.0.0/16"}));
  EXPECT_EQ(leakedTo(3), (std::vector<std::string>{"10.1.0.0/16"}));
  ASSERT_TRUE(listTo(3));
  EXPECT_EQ(listTo(3)->leakRoute(key("10.1.0.0/16")), lr1);
  EXPECT_EQ(mux->oldLeakTo(key("10.1.0.0/16")), v4(3));

  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/9");
  r2->leakToVrfIs(L3::VrfName("green"));
  EXPECT_FALSE(listTo(2));
  EXPECT_EQ(leakedTo(3).size(), 2u);
  auto texts = capture.texts();
  auto moved = std::find(texts.begin(), texts.end(), "handleRoute deleting route from old vrf ");
  auto dropped =
      std::find(texts.begin(), texts.end(), "maybeCleanupLrl deleting LRL destined to 2");
  EXPECT_LT(moved, dropped);
  EXPECT_NE(dropped, texts.end());
}

TEST_F(MuxSmTest, UnchangedKeyChangesNothingAndAReplacedRouteObjectIsLeakedAfresh) {
  routeIs("10.1.0.0/16", "blue");
  routeIs("10.2.0.0/16", "blue");
  start();
  settle();
  auto list = listTo(2);
  ASSERT_TRUE(list);
  struct ListRecorder : LeakRouteList::NotifieeConst {
    int n = 0;
    void onLeakRoute(const Routing::RouteKey&) override { ++n; }
  } rec;
  rec.notifierIs(list);
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/9");
  mux->handleRoute(key("10.1.0.0/16"));
  EXPECT_EQ(rec.n, 0);
  EXPECT_EQ(lastOf(capture.texts()),
            "handleRoute no change for Value('Routing::RouteKey', ** {'prefix': '10.1.0.0/16'})");

  auto oldLr = list->leakRoute(key("10.1.0.0/16"));
  auto replacement = routeIs("10.1.0.0/16", "blue");
  EXPECT_TRUE(contains(capture.texts(),
                       "handleRoute route leaked with key Value('Routing::RouteKey', ** {'prefix': "
                       "'10.1.0.0/16'}) has changed, deleting old one and recreating"));
  auto newLr = list->leakRoute(key("10.1.0.0/16"));
  ASSERT_TRUE(newLr);
  EXPECT_NE(newLr, oldLr);
  EXPECT_EQ(newLr->route(), replacement);
  EXPECT_EQ(listTo(2), list);
  EXPECT_EQ(mux->leakRouteDir()->leakRoute(key("10.1.0.0/16")), newLr);
}

TEST_F(MuxSmTest, ReviewPausesAtTheDeadlineAndResumesAtTheBookmarkEvenWhenItHasLeft) {
  for (int i = 1; i <= 8; ++i) routeIs(("10." + std::to_string(i) + ".0.0/16").c_str(), "blue");
  start();
  const std::vector<std::string> order = prefixes(mux->backlogColl());
  ASSERT_EQ(order.size(), 8u);
  auto part = [&](size_t from, size_t to) {
    return std::vector<std::string>(order.begin() + from, order.begin() + to);
  };
  // Every read of the time moves it on by one second: three checks spend a three-second quantum.
  mux->reviewQuantumIs(3);
  time.stepPerReadIs(1);
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), part(0, 3));
  EXPECT_TRUE(contains(capture.texts(), "doReview pausing review after 3 checks this run."));
  EXPECT_EQ(leakedTo(2).size(), 3u);
  EXPECT_TRUE(mux->bookmarkValid());
  EXPECT_EQ(mux->bookmark().str(), order[3]);

  capture.clear();
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), part(3, 6));
  ASSERT_EQ(mux->bookmark().str(), order[6]);

  // The bookmarked key leaves the backlog: the next run starts at the key after it.
  mux->backlogDel(mux->bookmark());
  capture.clear();
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), part(7, 8));
  EXPECT_EQ(lastOf(capture.texts()), "doReview review complete with 1 checks this run.");
  EXPECT_FALSE(mux->bookmarkValid());
  EXPECT_EQ(leakedTo(2).size(), 7u);
  EXPECT_FALSE(listTo(2)->leakRouteHas(key(order[6].c_str())));
  EXPECT_FALSE(Kel::activityManager().pending());
}

TEST_F(MuxSmTest, EntryAndDetailTracesHaveTheirExactTexts) {
  routeIs("10.1.0.0/16", "blue");
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  const std::string muxSm = "void Routing::Protocol::Leak::MuxSm::";
  const std::string src = std::string(" src ") + kSrc;
  start();
  for (const std::string& t :
       {muxSm + "KelRoute::handleRoute() for Value('Routing::RouteKey', ** {'prefix': "
                "'10.1.0.0/16'})",
        muxSm + "handleInitialized()" + src, muxSm + "handleRoute()" + src}) {
    EXPECT_TRUE(contains(capture.texts(), t)) << t;
  }
  capture.clear();
  settle();
  for (const std::string& t :
       {muxSm + "doReview()" + src, std::string("handleRoute leak to vrf is 'blue' (2)"),
        std::string("handleRoute old leak to is Value('Routing::Protocol::VrfIdAf', ** {'vrfId': "
                    "16777215, 'af': 'none'})"),
        "Routing::Protocol::LeakRouteList::Ptr "
        "Routing::Protocol::Leak::MuxSm::findLrl(Vrf::VrfIdMap::VrfId, bool)" +
            src + " vrf 2 create: 1",
        std::string("findLrl creating LRL from ") + kSrc + " to 2",
        std::string("maybeCleanupLrl nothing to do!")}) {
    EXPECT_TRUE(contains(capture.texts(), t)) << t;
  }
  EXPECT_EQ(lastOf(capture.texts()), "doReview review complete with 1 checks this run.");
}

TEST_F(MuxSmTest, NullRouteReactorAndBrokenListInvariantAreReportedWithTheirTexts) {
  routeIs("10.1.0.0/16", "blue");
  start();
  settle();
  EXPECT_THAT([&] { mux->routeIs(nullptr); },
              throwsText<Kel::RangeException>(
                  "null _route parameter to mutator for Routing::Protocol::Leak::MuxSm::route not "
                  "allowed\""));
  // The list vanishes behind the multiplexer's back while it still records the leak there.
  mux->outputLeakRouteListSet()->leakRouteListDel(pair4(1, 2));
  Kel::ScopedThrowingAsserts asserts;
  EXPECT_THAT([&] { mux->handleRoute(key("10.1.0.0/16")); },
              throwsText<Kel::AssertionException>("oldLrl && ( oldLrl == newLrl )"));
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
