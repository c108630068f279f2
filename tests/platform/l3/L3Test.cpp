#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/l3/L3.h"

namespace L3 {
namespace {

constexpr const char* kTooLong = "VrfName::bytes > VrfName::maxLength not allowed";

// 100 bytes is the limit whichever way a name is made; a refused read leaves the cursor, and a
// refused field of a composite form is named.
TEST(VrfName, AcceptsExactlyMaxLengthBytesEveryWay) {
  const std::string hundred(100, 'v');
  const std::string quoted101 = "'" + hundred + "v'";
  EXPECT_EQ(VrfName(hundred).str(), hundred);
  EXPECT_EQ(Kel::strepToValue<VrfName>("'" + hundred + "'").str(), hundred);
  const auto tooLong = testing::ThrowsMessage<Kel::RangeException>(testing::StrEq(kTooLong));
  EXPECT_THAT([&] { VrfName(hundred + "v"); }, tooLong);
  Kel::TextCursor c(quoted101);
  EXPECT_THAT([&] { VrfName{c}; }, tooLong);
  EXPECT_EQ(c.pos(), quoted101.data());
  Kel::TextCursor field(quoted101);
  try {
    Kel::parseField<VrfName>(field, "vrfName");
    FAIL() << "parsed 101 bytes";
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "vrfName");
    EXPECT_EQ(e.what(), std::string("error deserializing field 'vrfName': ") + kTooLong);
  }
}

TEST(VrfName, TextRoundTripsQuotedWithEscapes) {
  for (const char* n : {"", "default", "red", "it's", "back\\slash", "tab\there"}) {
    VrfName name(n);
    EXPECT_EQ(Kel::strepToValue<VrfName>(name.strep()), name) << n;
  }
  EXPECT_EQ(VrfName("it's").strep(), "'it\\'s'");
  std::ostringstream os;
  os << defaultVrfName();
  EXPECT_EQ(os.str(), "'default'");
  EXPECT_THROW(Kel::strepToValue<VrfName>("red"), Kel::ParseException);
  EXPECT_THROW(Kel::strepToValue<VrfName>("'red"), Kel::ParseException);
}

TEST(VrfName, HashIsStringHashAndOrderIsBytewiseUnsigned) {
  EXPECT_EQ(VrfName().hash(), 0u);
  // One-at-a-time of "default" and "a", worked out apart from this code.
  EXPECT_EQ(defaultVrfName().hash(), 0xe4df46d5u);
  EXPECT_EQ(VrfName("a").hash(), 0xca2e9442u);
  EXPECT_LT(VrfName(""), VrfName("a"));
  EXPECT_LT(VrfName("a"), VrfName("ab"));
  EXPECT_LT(VrfName("Z"), VrfName("a"));
  // A byte above 0x7f sorts after ASCII whatever the signedness of char.
  EXPECT_LT(VrfName("z"), VrfName("\xc3\xa9"));
}

}  // namespace
}  // namespace L3
