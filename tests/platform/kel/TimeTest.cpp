#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/kel/Exception.h"
#include "platform/kel/Time.h"

namespace {

TEST(ManualTimeSource, EachReadStepsByStepPerReadAndPeekingDoesNot) {
  Kel::ManualTimeSource clock(10.0);
  Kel::ScopedTimeSource installed(clock);
  EXPECT_EQ(Kel::currentTime(), 10.0);
  EXPECT_EQ(Kel::currentTime(), 10.0);
  clock.stepPerReadIs(0.25);
  EXPECT_EQ(Kel::currentTime(), 10.0);
  EXPECT_EQ(Kel::currentTime(), 10.25);
  EXPECT_EQ(clock.time(), 10.5);
  EXPECT_EQ(clock.time(), 10.5);
  clock.advance(1.0);
  EXPECT_EQ(Kel::currentTime(), 11.5);
  EXPECT_EQ(clock.time(), 11.75);
}

TEST(ManualTimeSource, RefusesToGoBackwardsOrLeaveFiniteTime) {
  const double inf = std::numeric_limits<double>::infinity();
  Kel::ManualTimeSource clock(10.0, 0.5);
  EXPECT_THROW(clock.timeIs(9.5), Kel::RangeException);
  EXPECT_THROW(clock.timeIs(std::nan("")), Kel::RangeException);
  EXPECT_THROW(clock.timeIs(inf), Kel::RangeException);
  EXPECT_THROW(clock.advance(-0.001), Kel::RangeException);
  EXPECT_THROW(clock.advance(std::nan("")), Kel::RangeException);
  EXPECT_THROW(clock.advance(inf), Kel::RangeException);
  EXPECT_THROW(clock.stepPerReadIs(-0.1), Kel::RangeException);
  EXPECT_THROW(clock.stepPerReadIs(inf), Kel::RangeException);
  EXPECT_THROW(Kel::ManualTimeSource(0.0, -1.0), Kel::RangeException);
  EXPECT_EQ(clock.time(), 10.0);
  EXPECT_EQ(clock.stepPerRead(), 0.5);
  clock.timeIs(10.0);
  clock.advance(2.5);
  EXPECT_EQ(clock.now(), 12.5);
  EXPECT_EQ(clock.now(), 13.0);
}

TEST(TimeSource, InstallReturnsThePreviousSourceAndScopedSourcesNest) {
  Kel::ManualTimeSource a(1.0), b(2.0);
  EXPECT_EQ(Kel::timeSourceIs(&a), nullptr);
  EXPECT_EQ(Kel::timeSourceIs(&b), &a);
  EXPECT_EQ(Kel::timeSourceIs(nullptr), &b);
  EXPECT_GE(Kel::currentTime(), 0.0);
  {
    Kel::ScopedTimeSource outer(a);
    EXPECT_EQ(Kel::currentTime(), 1.0);
    {
      Kel::ScopedTimeSource inner(b);
      EXPECT_EQ(Kel::currentTime(), 2.0);
    }
    EXPECT_EQ(Kel::currentTime(), 1.0);
  }
  // The default was back in place: installing it again reports it as nullptr.
  EXPECT_EQ(Kel::timeSourceIs(nullptr), nullptr);
}

TEST(TimeSource, OnlyDestroyingTheInstalledSourceFallsBackToTheDefault) {
  {
    Kel::ManualTimeSource installed(7.0);
    Kel::ScopedTimeSource scope(installed);
    { Kel::ManualTimeSource other(3.0); }
    EXPECT_EQ(Kel::currentTime(), 7.0);
  }
  {
    Kel::ManualTimeSource clock(-5.0);
    Kel::timeSourceIs(&clock);
  }
  EXPECT_EQ(Kel::timeSourceIs(nullptr), nullptr);
  EXPECT_GE(Kel::currentTime(), 0.0);
}

}  // namespace
