#include <gtest/gtest.h>

#include <string>

#include "platform/bfd/Bfd.h"
#include "platform/kel/Text.h"

namespace Bfd {
namespace {

// A BFD session state in its text form reads like every other platform enumeration.
TEST(BfdOperStateText, RefusedNameLeavesCursorWhereItWas) {
  // Found by fuzzing (fuzz/corpus/enums/regress-bfd-state-unknown-name): the name was consumed
  // before it was refused, so a caller trying another reading started past it.
  const std::string text = "'inDown'";
  Kel::TextCursor c(text);
  EXPECT_THROW(Kel::Strep<OperState>::parse(c), Kel::RangeException);
  EXPECT_EQ(c.pos(), text.data());
}

TEST(BfdOperStateText, EveryValueRoundTripsAndNothingPastIt) {
  for (unsigned v = 0; v <= 255; ++v) {
    const auto s = static_cast<OperState>(v);
    const std::string printed = Kel::valueToStrep(s);
    EXPECT_EQ(Kel::strepToValue<OperState>(printed), s) << printed;
  }
  EXPECT_EQ(Kel::valueToStrep(OperState::adminDown), "'adminDown'");
  EXPECT_EQ(Kel::valueToStrep(static_cast<OperState>(9)), "9");
  EXPECT_THROW(Kel::strepToValue<OperState>("256"), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<OperState>("'up"), Kel::ParseException);
}

}  // namespace
}  // namespace Bfd
