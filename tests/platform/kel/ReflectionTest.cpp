// The reflection registry: attributes in declaration order, handlers called by name.
#include <gtest/gtest.h>

#include "platform/kel/Kel.h"

namespace {

class Gadget : public Kel::Entity {
 public:
  KEL_ENTITY(Gadget, "Test::Gadget");
  class NotifieeConst : public Kel::NotifieeConstOf<Gadget> {
   public:
    virtual void onLevel() {}
    virtual void onMark(const uint32_t&) {}
  };
  KEL_CREATOR(Gadget);
  KEL_SCALAR(uint32_t, level, Level);
  KEL_SET(uint32_t, mark, Mark);

  std::string describe(const std::string& prefix, uint32_t times, bool loud) {
    std::string out = prefix;
    for (uint32_t i = 0; i < times; ++i) out += loud ? "!" : ".";
    levelIs(times);
    return out;
  }

 private:
  Gadget() = default;
};

KEL_REGISTER_ENTITY(Gadget);
KEL_REGISTER_HANDLER(Gadget, describe, "prefix", "times", "loud");

TEST(Reflection, AttributesAreListedInDeclarationOrderWithTypesAndKinds) {
  const Kel::TypeInfo* t = Kel::Registry::instance().find("Test::Gadget");
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(t->attrs.size(), 2u);
  EXPECT_EQ(t->attrs[0].name, "level");
  EXPECT_EQ(t->attrs[0].typeName, "uint32_t");
  EXPECT_EQ(t->attrs[0].kind, Kel::AttrKind::scalar);
  EXPECT_EQ(t->attrs[1].name, "mark");
  EXPECT_EQ(t->attrs[1].kind, Kel::AttrKind::collection);
}

TEST(Reflection, HandlerIsCalledByNameWithNamedArgumentsGivenAsValuesOrTexts) {
  auto e = Kel::createEntity("Test::Gadget");
  Kel::Value out =
      Kel::callHandler(*e, "describe", {{"prefix", "go"}, {"times", "3"}, {"loud", true}});
  EXPECT_EQ(std::get<std::string>(out.storage()), "go!!!");
  EXPECT_EQ(Kel::ptrCast<Gadget>(e)->level(), 3u);
}

TEST(Reflection, BadCallsAreRefusedWithClearErrors) {
  auto e = Kel::createEntity("Test::Gadget");
  EXPECT_THROW(Kel::callHandler(*e, "nosuch", {}), Kel::InvalidOperationException);
  EXPECT_THROW(
      Kel::callHandler(*e, "describe", {{"prefix", "a"}, {"times", 1}, {"loud", false}, {"x", 1}}),
      Kel::InvalidOperationException);
  EXPECT_THROW(Kel::callHandler(*e, "describe", {{"prefix", "a"}, {"times", -1}, {"loud", false}}),
               Kel::RangeException);
  EXPECT_THROW(Kel::callHandler(*e, "describe", {{"prefix", "a"}, {"times", "x"}, {"loud", false}}),
               Kel::ParseException);
  EXPECT_THROW(Kel::createEntity("Test::NoSuchType"), Kel::InvalidOperationException);
}

}  // namespace
