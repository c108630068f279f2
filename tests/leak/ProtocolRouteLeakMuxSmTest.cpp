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

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

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

TEST_F(MuxSmTest, FirstPassRunsOnALaterTurnOfTheLoop) {
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

TEST_F(MuxSmTest, ReplacedRouteObjectIsLeakedAfreshInTheSameList) {
  routeIs("10.1.0.0/16", "blue");
  routeIs("10.2.0.0/16", "blue");
  start();
  settle();
  auto list = listTo(2);
  ASSERT_TRUE(list);
  auto oldLr = list->leakRoute(key("10.1.0.0/16"));
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/9");
  auto replacement = routeIs("10.1.0.0/16", "blue");
  EXPECT_TRUE(contains(capture.texts(),
                       "handleRoute route leaked with key Value('Routing::RouteKey', ** {'prefix': "
                       "'10.1.0.0/16'}) has "
                       "changed, deleting old one and recreating"));
  auto newLr = list->leakRoute(key("10.1.0.0/16"));
  ASSERT_TRUE(newLr);
  EXPECT_NE(newLr, oldLr);
  EXPECT_EQ(newLr->route(), replacement);
  EXPECT_EQ(listTo(2), list);
  EXPECT_EQ(mux->leakRouteDir()->leakRoute(key("10.1.0.0/16")), newLr);
}

TEST_F(MuxSmTest, HandlingAnUnchangedKeyAgainChangesNothing) {
  routeIs("10.1.0.0/16", "blue");
  start();
  settle();
  struct ListRecorder : LeakRouteList::NotifieeConst {
    int n = 0;
    void onLeakRoute(const Routing::RouteKey&) override { ++n; }
  } rec;
  rec.notifierIs(listTo(2));
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/9");
  mux->handleRoute(key("10.1.0.0/16"));
  EXPECT_EQ(rec.n, 0);
  EXPECT_EQ(lastOf(capture.texts()),
            "handleRoute no change for Value('Routing::RouteKey', ** {'prefix': '10.1.0.0/16'})");
}

TEST_F(MuxSmTest, RouteLeavingTheListIsWithdrawnAtOnce) {
  routeIs("10.1.0.0/16", "blue");
  routeIs("10.2.0.0/16", "green");
  start();
  settle();
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8");
  routes->routeDel(key("10.1.0.0/16"));
  EXPECT_FALSE(listTo(2));
  EXPECT_EQ(mux->routes(), 1u);
  EXPECT_TRUE(contains(capture.texts(),
                       "void Routing::Protocol::Leak::MuxSm::KelRoute::handleRouteDelete() for "
                       "Value('Routing::RouteKey', ** {'prefix': '10.1.0.0/16'})"));
}

TEST_F(MuxSmTest, ReviewPausesAtTheDeadlineAndResumesAtTheBookmark) {
  for (const char* p :
       {"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16", "10.4.0.0/16", "10.5.0.0/16", "10.6.0.0/16"}) {
    routeIs(p, "blue");
  }
  start();
  const std::vector<std::string> order = prefixes(mux->backlogColl());
  ASSERT_EQ(order.size(), 6u);
  // Every read of the time moves it on by one second: three checks spend a three-second quantum.
  mux->reviewQuantumIs(3);
  time.stepPerReadIs(1);
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), std::vector<std::string>(order.begin(), order.begin() + 3));
  EXPECT_TRUE(contains(capture.texts(), "doReview pausing review after 3 checks this run."));
  EXPECT_EQ(leakedTo(2).size(), 3u);
  EXPECT_TRUE(mux->bookmarkValid());
  EXPECT_EQ(mux->bookmark().str(), order[3]);

  capture.clear();
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), std::vector<std::string>(order.begin() + 3, order.end()));
  EXPECT_EQ(lastOf(capture.texts()), "doReview review complete with 3 checks this run.");
  EXPECT_FALSE(mux->bookmarkValid());
  EXPECT_EQ(leakedTo(2).size(), 6u);
  EXPECT_FALSE(Kel::activityManager().pending());
}

TEST_F(MuxSmTest, ReviewResumesAfterTheBookmarkedKeyLeftTheBacklog) {
  for (const char* p :
       {"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16", "10.4.0.0/16", "10.5.0.0/16"}) {
    routeIs(p, "blue");
  }
  start();
  const std::vector<std::string> order = prefixes(mux->backlogColl());
  mux->reviewQuantumIs(2);
  time.stepPerReadIs(1);
  Kel::activityManager().runOnce();
  ASSERT_EQ(mux->bookmark().str(), order[2]);
  mux->backlogDel(mux->bookmark());
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8");
  Kel::activityManager().runOnce();
  EXPECT_EQ(handled(capture.texts()), (std::vector<std::string>{order[3], order[4]}));
  ASSERT_TRUE(listTo(2));
  EXPECT_FALSE(listTo(2)->leakRouteHas(key(order[2].c_str())));
}

TEST_F(MuxSmTest, EntryAndDetailTracesHaveTheirExactTexts) {
  routeIs("10.1.0.0/16", "blue");
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  start();
  auto texts = capture.texts();
  EXPECT_TRUE(contains(texts,
                       "void Routing::Protocol::Leak::MuxSm::KelRoute::handleRoute() for "
                       "Value('Routing::RouteKey', ** {'prefix': '10.1.0.0/16'})"));
  EXPECT_TRUE(contains(
      texts, std::string("void Routing::Protocol::Leak::MuxSm::handleInitialized() src ") + kSrc));
  EXPECT_TRUE(contains(
      texts, std::string("void Routing::Protocol::Leak::MuxSm::handleRoute() src ") + kSrc));
  capture.clear();
  settle();
  texts = capture.texts();
  EXPECT_TRUE(
      contains(texts, std::string("void Routing::Protocol::Leak::MuxSm::doReview() src ") + kSrc));
  EXPECT_TRUE(contains(texts, "handleRoute leak to vrf is 'blue' (2)"));
  EXPECT_TRUE(contains(
      texts,
      "handleRoute old leak to is Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 16777215, "
      "'af': 'none'})"));
  EXPECT_TRUE(contains(
      texts,
      std::string("Routing::Protocol::LeakRouteList::Ptr "
                  "Routing::Protocol::Leak::MuxSm::findLrl(Vrf::VrfIdMap::VrfId, bool) src ") +
          kSrc + " vrf 2 create: 1"));
  EXPECT_TRUE(contains(texts, std::string("findLrl creating LRL from ") + kSrc + " to 2"));
  EXPECT_TRUE(contains(texts, "maybeCleanupLrl nothing to do!"));
  EXPECT_EQ(lastOf(texts), "doReview review complete with 1 checks this run.");
}

TEST_F(MuxSmTest, NullRouteReactorAndBrokenListInvariantAreReportedWithTheirTexts) {
  routeIs("10.1.0.0/16", "blue");
  start();
  settle();
  try {
    mux->routeIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(
        e.what(),
        "null _route parameter to mutator for Routing::Protocol::Leak::MuxSm::route not allowed\"");
  }
  // The list vanishes behind the multiplexer's back while it still records the leak there.
  mux->outputLeakRouteListSet()->leakRouteListDel(pair4(1, 2));
  Kel::ScopedThrowingAsserts asserts;
  try {
    mux->handleRoute(key("10.1.0.0/16"));
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "oldLrl && ( oldLrl == newLrl )");
  }
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
