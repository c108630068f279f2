// Route leaking end to end: VRFs created and deleted through the root in any order, the wiring
// between sources and destinations, reflection, and the root's and wiring's texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/leak/LeakTestSupport.h"

namespace Routing::Protocol::LeakTest {
namespace {

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

std::string vrfText(VrfId id) {
  return "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': " + std::to_string(id) +
         ", 'af': 'ipv4'})";
}
std::string pairText(VrfId src, VrfId dst) {
  return "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': " + std::to_string(src) +
         ", 'dstVrf': " + std::to_string(dst) + ", 'af': 'ipv4'})";
}

using LeakRootTest = LeakWorld;

TEST_F(LeakRootTest, RouteLeaksFromItsSourceIntoTheVrfItNames) {
  createVrf(1);
  createVrf(2);
  routeIs(1, "10.1.0.0/16", "vrf2");
  settle();
  EXPECT_EQ(leakedInto(2), (std::vector<std::string>{"10.1.0.0/16<-1"}));
  EXPECT_TRUE(leakedInto(1).empty());
  EXPECT_TRUE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  // Once the first pass is done, a new route reaches the destination within the same change.
  routeIs(1, "10.2.0.0/16", "vrf2");
  EXPECT_EQ(vrfs[2].config->leakRoutes(), 2u);
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

TEST_F(LeakRootTest, MovedLeakEndsUpInTheNewDestinationOnly) {
  createVrf(1);
  createVrf(2);
  createVrf(3);
  auto route = routeIs(1, "10.1.0.0/16", "vrf2");
  settle();
  route->leakToVrfIs(L3::VrfName("vrf3"));
  EXPECT_EQ(leakedInto(3), (std::vector<std::string>{"10.1.0.0/16<-1"}));
  EXPECT_TRUE(leakedInto(2).empty());
  EXPECT_FALSE(ptrSet(2)->leakRouteListHas(pair4(1, 2)));
  EXPECT_FALSE(outputSet(1)->leakRouteListHas(pair4(1, 2)));
  settle();
  EXPECT_TRUE(leakedInto(2).empty());
  EXPECT_EQ(leakedInto(3), (std::vector<std::string>{"10.1.0.0/16<-1"}));
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

  Kel::NamedArgs missing{{"vrfIdAf", vrfText(1)}, {"routeConfig", Kel::Value(vrfs[1].routes)}};
  EXPECT_THROW(Kel::callHandler(*root, "createVrf", missing), Kel::InvalidOperationException);
  Kel::NamedArgs nullRoutes{{"vrfIdAf", vrfText(1)},
                            {"routeConfig", Kel::Value()},
                            {"leakRouteConfig", Kel::Value(vrfs[1].config)}};
  EXPECT_THROW(Kel::callHandler(*root, "createVrf", nullRoutes), Kel::RangeException);
  EXPECT_EQ(root->muxSms() + root->demuxSms() + root->demuxSmSets(), 0u);

  Kel::NamedArgs args{{"vrfIdAf", vrfText(1)},
                      {"routeConfig", Kel::Value(vrfs[1].routes)},
                      {"leakRouteConfig", Kel::Value(vrfs[1].config)}};
  Kel::callHandler(*root, "createVrf", args);
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
  EXPECT_EQ(texts.front(),
            "void Routing::Protocol::Leak::RootSm::createVrf(const Routing::Protocol::VrfIdAf&, "
            "const PtrConst&, "
            "const Ptr&) for " +
                vrfText(1));
  for (const std::string& t : {
           "void Routing::Protocol::Leak::WiringSm::handleLrlpSet(const "
           "Routing::Protocol::VrfIdAf&) for " +
               vrfText(1),
           "void Routing::Protocol::Leak::WiringSm::handleLrlSet(const "
           "Routing::Protocol::VrfIdAf&) for " +
               vrfText(2),
           "void Routing::Protocol::Leak::WiringSm::KelLrlSet::handleLrl(const "
           "Routing::Protocol::VrfPairAf&) for mux " +
               vrfText(2) + " and vpa " + pairText(2, 1),
           "handleLrl adding lrl for " + pairText(2, 1) + " to " + vrfText(1),
           "void Routing::Protocol::Leak::RootSm::deleteVrf(const Routing::Protocol::VrfIdAf&) "
           "for " +
               vrfText(2),
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
  try {
    root->createVrf(v4(1), vrfs[1].routes, vrfs[1].config);
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "!demuxSm( vrfIdAf ) && !demuxSmSet( vrfIdAf )");
  }
  auto* reactor = root->wiringSm()->lrlSet(v4(1));
  ASSERT_NE(reactor, nullptr);
  try {
    reactor->handleLrl(pair4(1, 2));
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "!lrlps->leakRouteList( vpa )");
  }
  try {
    root->wiringSm()->handleLrlSet(v4(1));  // as if the set had just appeared, with a list in it
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "!lrlSet || lrlSet->leakRouteLists() == 0");
  }
  ptrSet(2)->leakRouteListDel(pair4(1, 2));  // unwired behind the wiring's back
  try {
    outputSet(1)->leakRouteListDel(pair4(1, 2));
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "lrlps->leakRouteList( vpa )");
  }
}

TEST_F(LeakRootTest, RecreatingMachinesWithOtherInputsIsRefused) {
  createVrf(1);
  auto otherRoutes = Routing::routeListFactory();
  auto expectPrefix = [](const std::string& what, const std::string& prefix) {
    EXPECT_EQ(what.rfind(prefix, 0), 0u) << what;
  };
  try {
    root->muxSmIs(v4(1), otherRoutes, map);
    FAIL();
  } catch (const Kel::NameInUseException& e) {
    expectPrefix(e.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_routeConfig has a "
                 "different value of");
  }
  try {
    root->muxSmIs(v4(1), vrfs[1].routes, Vrf::VrfIdMap::nameToIdMapFactory());
    FAIL();
  } catch (const Kel::NameInUseException& e) {
    expectPrefix(e.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_vrfNameToIdMap has a "
                 "different value of");
  }
  try {
    root->demuxSmIs(v4(1), leakRouteListPtrSetFactory(v4(1)), vrfs[1].config);
    FAIL();
  } catch (const Kel::NameInUseException& e) {
    expectPrefix(e.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_inputLeakRouteListSet "
                 "has a different value of");
  }
  try {
    root->demuxSmIs(v4(1), root->demuxSmSet(v4(1)), leakRouteConfigFactory(v4(1)));
    FAIL();
  } catch (const Kel::NameInUseException& e) {
    expectPrefix(e.what(),
                 "Reinstantiating the pointer interface where constructor parameter attribute "
                 "_leakRouteConfig has "
                 "a different value of");
  }
  try {
    root->wiringSm()->lrlSetIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "null _lrlSet parameter to mutator for Routing::Protocol::Leak::WiringSm::lrlSet "
                 "not allowed\"");
  }
}

}  // namespace
}  // namespace Routing::Protocol::LeakTest
