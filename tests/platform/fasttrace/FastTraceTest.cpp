#include <gtest/gtest.h>

#include <sstream>

#include "platform/fasttrace/FastTrace.h"
#include "platform/kel/Exception.h"

namespace {

constexpr const char* kTraceSource = "FastTraceTest";

int gEvaluations = 0;

std::string counted(const std::string& text) {
  ++gEvaluations;
  return text;
}

using Lines = std::vector<std::string>;

// The ring and the trace rules are process-wide: each test starts from an empty, disabled ring and
// puts back the capacity and rules it found.
class FastTraceTest : public ::testing::Test {
 protected:
  FastTraceTest() : capacity_(FastTrace::capacity()) {
    Kel::traceConfigIs("");
    FastTrace::clear();
    gEvaluations = 0;
  }
  ~FastTraceTest() override {
    FastTrace::capacityIs(capacity_);
    FastTrace::clear();
  }

  Kel::ScopedTraceSettings settings_;
  size_t capacity_;
};

void recordNumbers(int from, int to) {
  for (int i = from; i <= to; ++i) FastTrace::record(std::to_string(i));
}

TEST_F(FastTraceTest, RingKeepsTheNewestLinesInOrderAfterWrapping) {
  FastTrace::capacityIs(3);
  recordNumbers(1, 2);
  EXPECT_EQ(FastTrace::lines(), (Lines{"1", "2"}));
  recordNumbers(3, 5);
  EXPECT_EQ(FastTrace::lines(), (Lines{"3", "4", "5"}));
  recordNumbers(6, 6);
  EXPECT_EQ(FastTrace::lines(), (Lines{"4", "5", "6"}));
  recordNumbers(7, 17);
  EXPECT_EQ(FastTrace::lines(), (Lines{"15", "16", "17"}));
  std::ostringstream out;
  FastTrace::dump(out);
  EXPECT_EQ(out.str(), "15\n16\n17\n");
  FastTrace::clear();
  recordNumbers(18, 18);
  EXPECT_EQ(FastTrace::lines(), (Lines{"18"}));
}

TEST_F(FastTraceTest, ResizingKeepsTheNewestLinesThatFitAndZeroIsRefused) {
  FastTrace::capacityIs(4);
  recordNumbers(1, 6);  // wrapped: the oldest held line is not in the first slot
  FastTrace::capacityIs(2);
  EXPECT_EQ(FastTrace::lines(), (Lines{"5", "6"}));
  recordNumbers(7, 7);
  EXPECT_EQ(FastTrace::lines(), (Lines{"6", "7"}));
  FastTrace::capacityIs(5);
  EXPECT_EQ(FastTrace::lines(), (Lines{"6", "7"}));
  recordNumbers(8, 11);
  EXPECT_EQ(FastTrace::lines(), (Lines{"7", "8", "9", "10", "11"}));
  EXPECT_THROW(FastTrace::capacityIs(0), Kel::RangeException);
  EXPECT_EQ(FastTrace::capacity(), 5u);
  EXPECT_EQ(FastTrace::lines(), (Lines{"7", "8", "9", "10", "11"}));
}

TEST_F(FastTraceTest, DisabledRingDoesNotEvaluateItsText) {
  KEL_FAST_TRACE(counted("Vrf Id: ") << 3);
  EXPECT_EQ(gEvaluations, 0);
  EXPECT_TRUE(FastTrace::lines().empty());
  FastTrace::enabledIs(true);
  KEL_FAST_TRACE(counted("Vrf Id: ") << 3);
  EXPECT_EQ(gEvaluations, 1);
  EXPECT_EQ(FastTrace::lines(), (Lines{"Vrf Id: 3"}));
}

TEST_F(FastTraceTest, RingFollowsTheFastTraceHandleInTheRules) {
  const std::pair<const char*, bool> cases[] = {
      {"FastTrace", true}, {"Quill::RouteStatusSm/9", false}, {"FastTrace/3", true}, {"*/9", true}};
  for (const auto& [rules, enabled] : cases) {
    Kel::traceConfigIs(rules);
    EXPECT_EQ(FastTrace::enabled(), enabled) << rules;
  }
  Kel::traceConfigIs("");
  {
    Kel::ScopedTraceSettings scope;
    FastTrace::enabledIs(true);
    EXPECT_EQ(Kel::TraceHandle::handle(FastTrace::kHandleName).levels(),
              Kel::TraceHandle::kAllLevels);
  }
  EXPECT_FALSE(FastTrace::enabled());
}

TEST_F(FastTraceTest, DualTraceComposesOnceAndWritesOnceToEach) {
  Kel::ScopedTraceCapture capture("Test::Dual/8,FastTrace");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Dual");
  const int line = __LINE__ + 1;
  KEL_DUAL_TRACE(h, 8, counted("Vrf Id: ") << 7 << ", handleRoute");
  EXPECT_EQ(gEvaluations, 1);
  EXPECT_EQ(FastTrace::lines(), (Lines{"Vrf Id: 7, handleRoute"}));
  const std::vector<Kel::TraceRecord> records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "Vrf Id: 7, handleRoute");
  EXPECT_EQ(records[0].source, "FastTraceTest");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].level, 8);
}

TEST_F(FastTraceTest, DualTraceWritesOnlyWhereEnabled) {
  Kel::ScopedTraceCapture capture("Test::DualOnly/8");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::DualOnly");
  KEL_DUAL_TRACE_FROM(h, 8, "Src", "handle only");
  EXPECT_EQ(capture.texts(), (Lines{"handle only"}));
  EXPECT_TRUE(FastTrace::lines().empty());

  FastTrace::enabledIs(true);
  KEL_DUAL_TRACE_FROM(h, 9, "Src", "ring only");
  EXPECT_EQ(capture.texts(), (Lines{"handle only"}));
  EXPECT_EQ(FastTrace::lines(), (Lines{"ring only"}));

  FastTrace::enabledIs(false);
  KEL_DUAL_TRACE_FROM(h, 9, "Src", counted("nowhere"));
  EXPECT_EQ(gEvaluations, 0);
  EXPECT_EQ(FastTrace::lines(), (Lines{"ring only"}));
}

}  // namespace
