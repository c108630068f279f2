// The demultiplexer: the choice among sources for one key, lists leaving the input set, and its
// review, which keeps walking once its quantum is spent.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

class DemuxSmTest : public LoopTest {
 protected:
  void TearDown() override {
    demux = nullptr;
    LoopTest::TearDown();
  }

  // The list from `src` into VRF 7, made on first use (not yet in the input set).
  LeakRouteList::Ptr listFrom(VrfId src) {
    auto& list = lists[src];
    if (!list) list = leakRouteListFactory(pair4(src, 7));
    return list;
  }
  LeakRoute::Ptr leak(VrfId src, const char* prefix, AddressFamily af = AddressFamily::ipv4) {
    auto lr = leakRouteFactory(VrfIdAf(src, af), Routing::routeFactory(key(prefix)));
    listFrom(src)->leakRouteIs(lr);
    return lr;
  }
  void start() { demux = Leak::demuxSmFactory(v4(7), input, config); }

  LeakRouteListPtrSet::Ptr input = leakRouteListPtrSetFactory(v4(7));
  LeakRouteConfig::Ptr config = leakRouteConfigFactory(v4(7));
  std::map<VrfId, LeakRouteList::Ptr> lists;
  Leak::DemuxSm::Ptr demux;
};

TEST_F(DemuxSmTest, LowestSourceVrfWinsAndTheNextTakesOverWhenItDrops) {
  auto from5 = leak(5, "10.0.0.0/8");
  auto from3 = leak(3, "10.0.0.0/8");
  input->leakRouteListIs(listFrom(5));
  input->leakRouteListIs(listFrom(3));
  start();
  settle();
  EXPECT_EQ(config->leakRoute(key("10.0.0.0/8")), from3);
  listFrom(3)->leakRouteDel(key("10.0.0.0/8"));
  EXPECT_EQ(config->leakRoute(key("10.0.0.0/8")), from5);
  listFrom(5)->leakRouteDel(key("10.0.0.0/8"));
  EXPECT_EQ(config->leakRoutes(), 0u);
}

TEST_F(DemuxSmTest, CandidateWinsWhenEitherFieldIsLowerWhateverTheOther) {
  // (3, ipv6) against (4, ipv4): each is lower in one field, so whichever the set yields second
  // wins, where an order by VRF then family would always pick VRF 3.
  auto low = leak(3, "10.0.0.0/8", AddressFamily::ipv6);
  auto high = leak(4, "10.0.0.0/8", AddressFamily::ipv4);
  input->leakRouteListIs(listFrom(4));
  input->leakRouteListIs(listFrom(3));
  std::vector<VrfId> order;
  for (const auto& l : input->leakRouteListColl()) order.push_back(l->key().srcVrf());
  // The hash order of these two lists puts VRF 4 second, which is what makes the case telling.
  ASSERT_EQ(order, (std::vector<VrfId>{3, 4}));
  start();
  settle();
  EXPECT_EQ(config->leakRoute(key("10.0.0.0/8")), high);
  EXPECT_NE(low, high);
}

TEST_F(DemuxSmTest, ListLeavingTheInputSetMakesEveryKeyBeDecidedAgain) {
  leak(1, "10.1.0.0/16");
  leak(1, "10.2.0.0/16");
  leak(2, "10.3.0.0/16");
  input->leakRouteListIs(listFrom(1));
  input->leakRouteListIs(listFrom(2));
  start();
  settle();
  ASSERT_EQ(config->leakRoutes(), 3u);
  input->leakRouteListDel(pair4(1, 7));
  auto backlog = prefixes(demux->backlogColl());
  EXPECT_EQ(std::set<std::string>(backlog.begin(), backlog.end()),
            (std::set<std::string>{"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16"}));
  settle();
  EXPECT_EQ(leaked(*config), (std::vector<std::string>{"10.3.0.0/16<-2"}));
}

TEST_F(DemuxSmTest, ReviewHandlesEverySecondKeyOnceTheQuantumIsSpent) {
  for (int i = 0; i < 10; ++i) leak(1, ("10." + std::to_string(i) + ".0.0/16").c_str());
  input->leakRouteListIs(listFrom(1));
  start();
  const std::vector<std::string> order = prefixes(demux->backlogColl());
  ASSERT_EQ(order.size(), 10u);
  // Every read of the time moves it on by one second: the first key spends the quantum.
  demux->reviewQuantumIs(1);
  time.stepPerReadIs(1);
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  Kel::activityManager().runOnce();
  std::vector<std::string> first, passedOver;
  for (size_t i = 0; i < order.size(); ++i) (i % 2 == 0 ? first : passedOver).push_back(order[i]);
  EXPECT_EQ(config->leakRoutes(), 5u);
  for (const auto& p : first) EXPECT_TRUE(config->leakRouteHas(key(p.c_str()))) << p;
  EXPECT_EQ(prefixes(demux->backlogColl()), passedOver);
  std::vector<std::string> suspensions, expected;
  for (const auto& t : capture.texts()) {
    if (t.find("review suspending") != std::string::npos) suspensions.push_back(t);
  }
  for (int i = 1; i <= 5; ++i) {
    expected.push_back("doReview review suspending after " + std::to_string(i) +
                       " passes this run.");
  }
  EXPECT_EQ(suspensions, expected);
  const std::string complete =
      "void Routing::Protocol::Leak::DemuxSm::doReview() review complete after 5 passes this run.";
  EXPECT_EQ(lastOf(capture.texts()), complete);
  EXPECT_FALSE(demux->bookmarkValid());

  // The next run starts from the beginning again and takes the keys passed over.
  time.stepPerReadIs(0);
  capture.clear();
  Kel::activityManager().runOnce();
  EXPECT_EQ(config->leakRoutes(), 10u);
  EXPECT_EQ(demux->backlogs(), 0u);
  EXPECT_EQ(lastOf(capture.texts()), complete);
}

TEST_F(DemuxSmTest, ForeignListsAndNullReactorsAreReportedWithTheirTexts) {
  start();
  Kel::ScopedThrowingAsserts asserts;
  using Assertion = Kel::AssertionException;
  EXPECT_THAT([&] { demux->handleLeakRouteList(pair4(1, 8)); },
              throwsText<Assertion>("key.dstVrf() == vrfIdAf().vrfId()"));
  EXPECT_THAT([&] { demux->handleLeakRouteList(VrfPairAf(1, 7, AddressFamily::ipv6)); },
              throwsText<Assertion>("key.af() == vrfIdAf().af()"));
  EXPECT_THAT([&] { demux->leakRouteListIs(nullptr); },
              throwsText<Kel::RangeException>(
                  "null _leakRouteList parameter to mutator for "
                  "Routing::Protocol::Leak::DemuxSm::leakRouteList not allowed\""));
}

TEST_F(DemuxSmTest, EntryTracesNameTheDestinationAndTheList) {
  leak(3, "10.0.0.0/8");
  start();
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8");
  input->leakRouteListIs(listFrom(3));
  const std::string dst = vrfText(7);
  const std::string demuxSm = "void Routing::Protocol::Leak::DemuxSm::";
  EXPECT_EQ(capture.texts(),
            (std::vector<std::string>{
                demuxSm + "handleLeakRouteList(const Routing::Protocol::VrfPairAf&) dst " + dst +
                    " for " + pairText(3, 7),
                demuxSm + "scheduleReview() dst " + dst,
                demuxSm + "KelLeakRouteList::handleLeakRoute() dst " + dst,
                demuxSm + "scheduleReview() dst " + dst}));
  capture.clear();
  settle();
  ASSERT_GE(capture.texts().size(), 2u);
  EXPECT_EQ(capture.texts()[1], demuxSm + "handleLeakRoute(const Routing::RouteKey&) dst " + dst +
                                    " for Value('Routing::RouteKey', ** {'prefix': '10.0.0.0/8'})");
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
