// The event loop and its clocks, under a manual time source.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/kel/Kel.h"

namespace {

using Log = std::vector<std::string>;

class Ticker : public Kel::Clock::NotifieeConst {
 public:
  Ticker(const Kel::Ptr<Kel::Clock>& c, Log* log, std::string name)
      : log_(log), name_(std::move(name)) {
    notifierIs(c);
  }
  void onTime() override {
    log_->push_back(name_ + "@" + std::to_string(static_cast<int>(Kel::currentTime())));
    if (rearmIn >= 0) notifier()->timeMinIs(Kel::currentTime() + rearmIn);
  }
  double rearmIn = -1;

 private:
  Log* log_;
  std::string name_;
};

class ActivityTest : public ::testing::Test {
 protected:
  void SetUp() override { Kel::activityManager().reset(); }
  void TearDown() override { Kel::activityManager().reset(); }
  Kel::ManualTimeSource time{100.0};
  Kel::ScopedTimeSource scoped{time};
  Kel::ActivityManager& loop = Kel::activityManager();
  Log log;
};

TEST_F(ActivityTest, DueClocksRunInTimeOrderThenArmingOrder) {
  auto a = loop.clockNew(), b = loop.clockNew(), c = loop.clockNew();
  Ticker ta(a, &log, "a"), tb(b, &log, "b"), tc(c, &log, "c");
  c->timeMinIs(50);
  a->timeMinIs(90);
  b->timeMinIs(50);
  EXPECT_EQ(loop.runOnce(), 3u);
  EXPECT_EQ(log, (Log{"c@100", "b@100", "a@100"}));
  EXPECT_EQ(loop.runOnce(), 0u);  // each arming fires once
}

TEST_F(ActivityTest, FutureClockWaitsRearmingReplacesItsTimeAndDisarmedClocksDoNotFire) {
  auto a = loop.clockNew(), c = loop.clockNew();
  Ticker ta(a, &log, "a"), tc(c, &log, "c");
  {
    auto b = loop.clockNew();
    Ticker tb(b, &log, "b");
    b->timeMinIs(0);
  }
  c->timeMinIs(0);
  c->timeMinDel();
  loop.runUntilIdle();
  EXPECT_TRUE(log.empty());
  a->timeMinIs(105);
  EXPECT_EQ(loop.runOnce(), 0u);
  a->timeMinIs(103);
  loop.runUntil(104);
  EXPECT_EQ(log, (Log{"a@103"}));
  EXPECT_DOUBLE_EQ(time.time(), 104);
  loop.runUntil(200);
  EXPECT_EQ(log, (Log{"a@103"}));  // the 105 arming was replaced
}

TEST_F(ActivityTest, ClockArmedDuringATurnRunsOnTheNextTurn) {
  auto a = loop.clockNew(), b = loop.clockNew();
  Ticker ta(a, &log, "a"), tb(b, &log, "b");
  ta.rearmIn = 0;  // a slice that re-arms itself for now
  a->timeMinIs(100);
  EXPECT_EQ(loop.runOnce(), 1u);
  b->timeMinIs(100);
  EXPECT_EQ(loop.runOnce(), 2u);  // same time: a's re-arming came first, then b's
  EXPECT_EQ(log, (Log{"a@100", "a@100", "b@100"}));
  ta.rearmIn = -1;
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_FALSE(loop.pending());
}

TEST_F(ActivityTest, RunUntilStepsTimeFromOneDueClockToTheNext) {
  auto a = loop.clockNew();
  Ticker ta(a, &log, "a");
  ta.rearmIn = 10;
  a->timeMinIs(101);
  loop.runUntil(135);
  EXPECT_EQ(log, (Log{"a@101", "a@111", "a@121", "a@131"}));
  EXPECT_DOUBLE_EQ(loop.nextTime(), 141);
}

}  // namespace
