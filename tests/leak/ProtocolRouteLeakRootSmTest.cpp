// Route leaking end to end: VRFs created and deleted through the root in any order, the wiring
// between sources and destinations, reflection, and the root's and wiring's texts.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

using LeakRootTest = LeakWorld;

TEST_F(LeakRootTest, RouteLeaksFromItsSourceIntoTheVrfItNamesAndMovesWithIt) {
  createVrf(1);
  createVrf(2);
  createVrf(3);
  auto r1 = routeIs(1, "10.1.0.0/16", "vrf2");
  settle();
  EXPECT_EQ(leakedInto(2), (std::vector<std::string>{"10.1.0.0/16<-1"}));
  EXPECT_TRUE(leakedInto(1).empty());
  EXPECT_TRUE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  // Once the first pass is done, a change reaches the destinations within the same change.
  auto r2 = routeIs(1, "10.2.0.0/16", "vrf2");
  EXPECT_EQ(vrfs[2].config->leakRoutes(), 2u);
  r1->leakToVrfIs(L3::VrfName("vrf3"));
  r2->leakToVrfIs(L3::VrfName("vrf3"));
  EXPECT_EQ(leakedInto(3), (std::vector<std::string>{"10.1.0.0/16<-1", "10.2.0.0/16<-1"}));
  EXPECT_TRUE(leakedInto(2).empty());
  EXPECT_FALSE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  EXPECT_FALSE(outputSet(1)->leakRouteListHas(pair4(1, 2)));
  settle();
  EXPECT_TRUE(leakedInto(2).empty());
  EXPECT_EQ(vrfs[3].config->leakRoutes(), 2u);
}

TEST_F(LeakRootTest, NewSourceReachesEveryExistingDestinationItNames) {
  createVrf(2);
  createVrf(3);
  routeIs(1, "10.1.0.0/16", "vrf2");
  routeIs(1, "10.2.0.0/16", "vrf3");
  routeIs(1, "10.3.0.0/16", "vrf3");
  createVrf(1);
  EXPECT_EQ(ptrSet(2)->leakRouteLists(), 0u);
  settle();
  EXPECT_EQ(ptrSet(2)->leakRouteList(pair4(1, 2)), outputSet(1)->leakRouteList(pair4(1, 2)));
  EXPECT_TRUE(ptrSet(3)->leakRouteListHas(pair4(1, 3)));
  EXPECT_EQ(leakedInto(2), (std::vector<std::string>{"10.1.0.0/16<-1"}));
  EXPECT_EQ(vrfs[3].config->leakRoutes(), 2u);
}

TEST_F(LeakRootTest, ListToAVrfWithoutDemultiplexerWaitsUntilThatVrfIsCreated) {
  nameIs("vrf2", 2);
  routeIs(1, "10.1.0.0/16", "vrf2");
  createVrf(1);
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/9");
  settle();
  EXPECT_TRUE(contains(capture.texts(), "handleLrl no demux SM for " + vrfText(2)));
  EXPECT_TRUE(outputSet(1)->leakRouteListHas(pair4(1, 2)));

  capture.clear();
  createVrf(2);
  EXPECT_TRUE(contains(capture.texts(),
                       "handleLrlpSet adding lrl for " + pairText(1, 2) + " to " + vrfText(2)));
  EXPECT_TRUE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  settle();
  EXPECT_EQ(leakedInto(2), (std::vector<std::string>{"10.1.0.0/16<-1"}));
}

TEST_F(LeakRootTest, DeleteVrfEmptiesItsConfigurationAndUnwiresItsLists) {
  createVrf(1);
  createVrf(2);
  createVrf(3);
  routeIs(1, "10.1.0.0/16", "vrf2");
  routeIs(2, "10.2.0.0/16", "vrf1");
  routeIs(3, "10.3.0.0/16", "vrf2");
  settle();
  ASSERT_EQ(leakedInto(1), (std::vector<std::string>{"10.2.0.0/16<-2"}));
  ASSERT_EQ(vrfs[2].config->leakRoutes(), 2u);

  root->deleteVrf(v4(1));
  EXPECT_EQ(vrfs[1].config->leakRoutes(), 0u);
  EXPECT_FALSE(root->muxSm(v4(1)));
  EXPECT_FALSE(root->demuxSm(v4(1)));
  EXPECT_FALSE(root->demuxSmSet(v4(1)));
  EXPECT_FALSE(ptrSet(1));
  EXPECT_FALSE(outputSet(1));
  EXPECT_FALSE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  settle();
  EXPECT_EQ(leakedInto(2), (std::vector<std::string>{"10.3.0.0/16<-3"}));
  EXPECT_EQ(vrfs[1].config->leakRoutes(), 0u);

  // The VRF can come back, and both directions work again.
  createVrf(1);
  settle();
  EXPECT_EQ(leakedInto(1), (std::vector<std::string>{"10.2.0.0/16<-2"}));
  EXPECT_EQ(vrfs[2].config->leakRoutes(), 2u);
}

TEST_F(LeakRootTest, CreateAndDeleteAreCallableByNameThroughReflection) {
  nameIs("vrf2", 2);
  vrfs[1].routes = Routing::routeListFactory();
  vrfs[1].config = leakRouteConfigFactory(v4(1));
  const Kel::TypeInfo* t = Kel::Registry::instance().find("Routing::Protocol::Leak::RootSm");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->handlers.at("createVrf").params,
            (std::vector<std::string>{"vrfIdAf", "routeConfig", "leakRouteConfig"}));

  auto args = [&](Kel::Value routes) {
    return Kel::NamedArgs{{"vrfIdAf", vrfText(1)},
                          {"routeConfig", routes},
                          {"leakRouteConfig", Kel::Value(vrfs[1].config)}};
  };
  Kel::NamedArgs missing{{"vrfIdAf", vrfText(1)}, {"routeConfig", Kel::Value(vrfs[1].routes)}};
  EXPECT_THROW(Kel::callHandler(*root, "createVrf", missing), Kel::InvalidOperationException);
  EXPECT_THROW(Kel::callHandler(*root, "createVrf", args(Kel::Value())), Kel::RangeException);
  EXPECT_EQ(root->muxSms() + root->demuxSms() + root->demuxSmSets(), 0u);

  Kel::callHandler(*root, "createVrf", args(Kel::Value(vrfs[1].routes)));
  ASSERT_TRUE(root->muxSm(v4(1)));
  EXPECT_EQ(root->muxSm(v4(1))->routeConfig(), vrfs[1].routes);
  EXPECT_EQ(root->demuxSm(v4(1))->leakRouteConfig(), vrfs[1].config);

  Kel::callHandler(*root, "deleteVrf", {{"vrfIdAf", vrfText(1)}});
  EXPECT_FALSE(root->muxSm(v4(1)));
  EXPECT_FALSE(root->demuxSm(v4(1)));
}

TEST_F(LeakRootTest, EntryAndDetailTracesHaveTheirExactTexts) {
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8-9");
  routeIs(2, "10.2.0.0/16", "vrf1");
  createVrf(1);
  createVrf(2);
  settle();
  root->deleteVrf(v4(2));
  auto texts = capture.texts();
  const std::string rootSm = "void Routing::Protocol::Leak::RootSm::";
  const std::string wiringSm = "void Routing::Protocol::Leak::WiringSm::";
  EXPECT_EQ(texts.front(), rootSm +
                               "createVrf(const Routing::Protocol::VrfIdAf&, const PtrConst&, "
                               "const Ptr&) for " +
                               vrfText(1));
  for (const std::string& t : {
           wiringSm + "handleLrlpSet(const Routing::Protocol::VrfIdAf&) for " + vrfText(1),
           wiringSm + "handleLrlSet(const Routing::Protocol::VrfIdAf&) for " + vrfText(2),
           "handleLrl adding lrl for " + pairText(2, 1) + " to " + vrfText(1),
           rootSm + "deleteVrf(const Routing::Protocol::VrfIdAf&) for " + vrfText(2),
           std::string("handleLrlpSet set deleted, nothing to do."),
           "handleLrlSet removing lrl for " + pairText(2, 1) + " from " + vrfText(1),
       }) {
    EXPECT_TRUE(contains(texts, t)) << t;
  }
}

TEST_F(LeakRootTest, RootHandleInitializedIsTracedWhenTheRootIsBuilt) {
  Kel::ScopedTraceCapture capture("Quill::ProtocolRouteLeakSm/8");
  auto other = Leak::rootSmFactory(map);
  EXPECT_EQ(
      capture.texts(),
      (std::vector<std::string>{"void Routing::Protocol::Leak::RootSm::handleInitialized()"}));
  EXPECT_TRUE(other->muxSmSetDir() && other->demuxSmSetDir() && other->wiringSm());
  EXPECT_EQ(other->wiringSm()->demuxSmSetDir(), other->demuxSmSetDir());
}

TEST_F(LeakRootTest, MisuseIsReportedWithTheAssertionTexts) {
  createVrf(1);
  createVrf(2);
  routeIs(1, "10.1.0.0/16", "vrf2");
  settle();
  Kel::ScopedThrowingAsserts asserts;
  using Assertion = Kel::AssertionException;
  EXPECT_THAT([&] { root->createVrf(v4(1), vrfs[1].routes, vrfs[1].config); },
              throwsText<Assertion>("!demuxSm( vrfIdAf ) && !demuxSmSet( vrfIdAf )"));
  auto* reactor = root->wiringSm()->lrlSet(v4(1));
  ASSERT_NE(reactor, nullptr);
  EXPECT_THAT([&] { reactor->handleLrl(pair4(1, 2)); },
              throwsText<Assertion>("!lrlps->leakRouteList( vpa )"));
  // As if the set had just appeared, with a list already in it.
  EXPECT_THAT([&] { root->wiringSm()->handleLrlSet(v4(1)); },
              throwsText<Assertion>("!lrlSet || lrlSet->leakRouteLists() == 0"));
  ptrSet(2)->leakRouteListDel(pair4(1, 2));  // unwired behind the wiring's back
  EXPECT_THAT([&] { outputSet(1)->leakRouteListDel(pair4(1, 2)); },
              throwsText<Assertion>("lrlps->leakRouteList( vpa )"));
}

TEST_F(LeakRootTest, RecreatingMachinesWithOtherInputsIsRefused) {
  createVrf(1);
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[&] { root->muxSmIs(v4(1), Routing::routeListFactory(), map); }, "_routeConfig"},
      {[&] { root->muxSmIs(v4(1), vrfs[1].routes, Vrf::VrfIdMap::nameToIdMapFactory()); },
       "_vrfNameToIdMap"},
      {[&] { root->demuxSmIs(v4(1), leakRouteListPtrSetFactory(v4(1)), vrfs[1].config); },
       "_inputLeakRouteListSet"},
      {[&] { root->demuxSmIs(v4(1), root->demuxSmSet(v4(1)), leakRouteConfigFactory(v4(1))); },
       "_leakRouteConfig"},
  };
  for (const auto& [recreate, attr] : cases) {
    EXPECT_THAT(recreate, testing::ThrowsMessage<Kel::NameInUseException>(testing::StartsWith(
                              std::string("Reinstantiating the pointer interface where "
                                          "constructor parameter attribute ") +
                              attr + " has a different value of")));
  }
  EXPECT_THAT([&] { root->wiringSm()->lrlSetIs(nullptr); },
              throwsText<Kel::RangeException>(
                  "null _lrlSet parameter to mutator for Routing::Protocol::Leak::WiringSm::lrlSet "
                  "not allowed\""));
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
