#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/l3/L3.h"

namespace L3 {
namespace {

constexpr const char* kTooLong = "VrfName::bytes > VrfName::maxLength not allowed";

TEST(VrfName, AcceptsExactlyMaxLengthBytes) {
  EXPECT_EQ(VrfName(std::string(100, 'v')).str().size(), 100u);
  try {
    VrfName name(std::string(101, 'v'));
    FAIL() << "accepted 101 bytes";
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), kTooLong);
  }
}

TEST(VrfName, ParsingRefusesOverlongNameAndLeavesCursor) {
  std::string text = "'" + std::string(101, 'v') + "'";
  Kel::TextCursor c(text);
  try {
    VrfName name(c);
    FAIL() << "parsed 101 bytes";
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), kTooLong);
  }
  EXPECT_EQ(c.pos(), text.data());
  std::string hundred = "'" + std::string(100, 'v') + "'";
  EXPECT_EQ(Kel::strepToValue<VrfName>(hundred).str(), std::string(100, 'v'));
}

TEST(VrfName, OverlongFieldOfACompositeFormNamesTheField) {
  std::string text = "'" + std::string(101, 'v') + "'";
  Kel::TextCursor c(text);
  try {
    Kel::parseField<VrfName>(c, "vrfName");
    FAIL() << "parsed 101 bytes";
  } catch (const Kel::DeserializationException& e) {
    EXPECT_EQ(e.field(), "vrfName");
    EXPECT_STREQ(e.what(),
                 (std::string("error deserializing field 'vrfName': ") + kTooLong).c_str());
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

TEST(VrfName, HashIsStringHashZeroWhenEmpty) {
  EXPECT_EQ(VrfName().hash(), 0u);
  // One-at-a-time of "default", worked out apart from this code.
  EXPECT_EQ(defaultVrfName().hash(), 0xe4df46d5u);
  EXPECT_EQ(VrfName("a").hash(), 0xca2e9442u);
}

TEST(VrfName, OrdersBytewiseUnsigned) {
  EXPECT_LT(VrfName(""), VrfName("a"));
  EXPECT_LT(VrfName("a"), VrfName("ab"));
  EXPECT_LT(VrfName("Z"), VrfName("a"));
  // A byte above 0x7f sorts after ASCII whatever the signedness of char.
  EXPECT_LT(VrfName("z"), VrfName("\xc3\xa9"));
}

}  // namespace
}  // namespace L3
