#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "platform/kel/Exception.h"
#include "platform/kel/Trace.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Texts = std::vector<std::string>;

constexpr const char* kTraceSource = "TraceTest";

int gEvaluations = 0;

std::string counted(const std::string& text) {
  ++gEvaluations;
  return text;
}

// The registry is process-wide: every test puts back the rules, levels, sink and PROTORIB_TRACE it
// found, and uses handle names of its own.
class TraceTest : public ::testing::Test {
 protected:
  TraceTest() : previousSink_(Kel::traceSink()) {
    gEvaluations = 0;
    if (const char* env = std::getenv(Kel::kTraceEnvironmentVariable)) previousEnv_ = env;
  }
  ~TraceTest() override {
    Kel::traceSinkIs(previousSink_);
    environmentIs(previousEnv_ ? previousEnv_->c_str() : nullptr);
  }
  static void environmentIs(const char* value) {
    if (value) {
      setenv(Kel::kTraceEnvironmentVariable, value, 1);
    } else {
      unsetenv(Kel::kTraceEnvironmentVariable);
    }
  }

  Kel::ScopedTraceSettings settings_;
  std::shared_ptr<Kel::TraceSink> previousSink_;
  std::optional<std::string> previousEnv_;
};

TEST_F(TraceTest, SameNameGivesTheSameHandleAndNamesRulesCannotAddressAreRefused) {
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Identity::A");
  EXPECT_EQ(&a, &Kel::TraceHandle::handle(std::string("Test::Identity::") + "A"));
  EXPECT_NE(&a, &Kel::TraceHandle::handle("Test::Identity::B"));
  EXPECT_EQ(a.name(), "Test::Identity::A");
  for (const char* bad : {"", "Test/Slash", "Test,Comma", "Test*", "Test Blank"}) {
    EXPECT_THROW(Kel::TraceHandle::handle(bad), Kel::RangeException) << bad;
  }
}

// A disabled trace does not evaluate its text; an enabled one is captured with where it came from.
TEST_F(TraceTest, CaptureRecordsEnabledTracesWithTextLevelSourceLineAndFunction) {
  Kel::ScopedTraceCapture capture("Test::Capture::*/8");
  auto& a = Kel::TraceHandle::handle("Test::Capture::A");
  auto& b = Kel::TraceHandle::handle("Test::Capture::B");
  KEL_TRACE(a, 9, counted("above"));
  KEL_TRACE(b, 7, counted("below"));
  EXPECT_EQ(gEvaluations, 0);
  EXPECT_TRUE(capture.records().empty());
  const int line = __LINE__ + 1;
  KEL_TRACE(a, 8, "handleRoute (" << 42 << "),  Preference: " << 1.5);
  KEL_TRACE_FROM(b, 8, "ProtocolIntfSm", "explicit");
  KEL_TRACE(a, 8, counted("a2"));
  EXPECT_EQ(gEvaluations, 1);
  const std::vector<Kel::TraceRecord> records = capture.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].handle, "Test::Capture::A");
  EXPECT_EQ(records[0].level, 8);
  EXPECT_EQ(records[0].text, "handleRoute (42),  Preference: 1.5");
  EXPECT_EQ(records[0].source, "TraceTest");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].function, "TestBody");
  EXPECT_EQ(records[1].source, "ProtocolIntfSm");
  EXPECT_EQ(records[1].line, line + 1);
  EXPECT_EQ(capture.textsOf("Test::Capture::A"), (Texts{records[0].text, "a2"}));
  EXPECT_EQ(capture.texts(), (Texts{records[0].text, "explicit", "a2"}));
  capture.clear();
  EXPECT_TRUE(capture.texts().empty());
}

TEST_F(TraceTest, ConfigEnablesLevelRangesSingleLevelsWholeHandlesAndPrefixes) {
  auto& a = Kel::TraceHandle::handle("Test::Cfg::A");
  auto& b = Kel::TraceHandle::handle("Test::Cfg::B");
  auto& c = Kel::TraceHandle::handle("Test::Cfg::C");
  auto& d = Kel::TraceHandle::handle("Test::Cfg::D");
  d.enable(1);
  Kel::traceConfigIs("Test::Cfg::A/8-9, Test::Cfg::B/3,Test::Cfg::C,Test::Cfg::Later/7");
  EXPECT_EQ(a.levels(), 0x300u);
  EXPECT_EQ(b.levels(), 0x8u);
  EXPECT_EQ(c.levels(), 0x3FFu);
  EXPECT_EQ(d.levels(), 0u);
  EXPECT_TRUE(a.enabled(8));
  EXPECT_FALSE(a.enabled(7));
  // Rules reach handles made after them.
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Cfg::Later").levels(), 1u << 7);

  Kel::traceConfigIs("*/2");
  EXPECT_EQ(a.levels(), 1u << 2);
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Star::After").levels(), 1u << 2);
  Kel::traceConfigIs("Test::Prefix::*/4, */2");
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Prefix::One").levels(), (1u << 4) | (1u << 2));
  EXPECT_EQ(a.levels(), 1u << 2);
}

TEST_F(TraceTest, ConfigRoundTripsThroughItsCanonicalForm) {
  Kel::traceConfigIs(" Test::Canon::A/8-9 , */3, Test::Canon::B/4-4,Test::Canon::P*,X/0-9 ");
  const std::string canonical = Kel::traceConfig();
  EXPECT_EQ(canonical, "Test::Canon::A/8-9,*/3,Test::Canon::B/4,Test::Canon::P*,X");
  Kel::traceConfigIs(canonical);
  EXPECT_EQ(Kel::traceConfig(), canonical);
  Kel::traceConfigIs("");
  EXPECT_EQ(Kel::traceConfig(), "");
}

TEST_F(TraceTest, MalformedConfigNamesTheBadPieceAndChangesNothing) {
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Bad::H");
  Kel::traceConfigIs("Test::Bad::H/5");
  struct Case {
    const char* config;
    const char* piece;
  };
  const Case cases[] = {
      {"Test::Bad::H/9,Test::A/10", "'Test::A/10'"},
      {"Test::A/9-8", "'Test::A/9-8'"},
      {"/9", "'/9'"},
      {"Test::A/", "'Test::A/'"},
      {"Test::A/x", "'Test::A/x'"},
      {"Test::A/8-", "'Test::A/8-'"},
      {"Test::A/8/9", "'Test::A/8/9'"},
      {"Test::A,,Test::B", "''"},
      {"Test::A,", "''"},
      {"Te*st/9", "'Te*st/9'"},
      {"Test A/9", "'Test A/9'"},
      {"Test::A/-3", "'Test::A/-3'"},
  };
  for (const Case& c : cases) {
    EXPECT_THAT([&] { Kel::traceConfigIs(c.config); },
                ThrowsMessage<Kel::ParseException>(HasSubstr(c.piece)))
        << c.config;
    EXPECT_EQ(Kel::traceConfig(), "Test::Bad::H/5") << c.config;
    EXPECT_EQ(h.levels(), 1u << 5) << c.config;
  }
}

TEST_F(TraceTest, EnvironmentAppliesGoodPiecesAndReportsBadOnes) {
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Env::A");
  environmentIs("Test::Env::A/8-9,Test::Env::B/12,Test::Env::C");
  EXPECT_THAT(Kel::traceConfigFromEnvironment(),
              testing::ElementsAre(HasSubstr("'Test::Env::B/12'")));
  EXPECT_EQ(a.levels(), 0x300u);
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Env::C").levels(), 0x3FFu);
  EXPECT_EQ(Kel::traceConfig(), "Test::Env::A/8-9,Test::Env::C");
  environmentIs(nullptr);
  EXPECT_TRUE(Kel::traceConfigFromEnvironment().empty());
  EXPECT_EQ(a.levels(), 0u);
}

TEST_F(TraceTest, HandleMutatorsAddLevelsAndRefuseOutOfRange) {
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Levels");
  h.disable();
  h.enable(2, 4);
  h.enable(7);
  EXPECT_EQ(h.levels(), 0x9Cu);
  EXPECT_THROW(h.enable(3, 10), Kel::RangeException);
  EXPECT_THROW(h.enable(-1, 2), Kel::RangeException);
  EXPECT_THROW(h.enable(5, 4), Kel::RangeException);
  EXPECT_THROW(h.levelsIs(1u << 10), Kel::RangeException);
  EXPECT_EQ(h.levels(), 0x9Cu);
  h.levelsIs(0x201);
  EXPECT_TRUE(h.enabled(0));
  EXPECT_TRUE(h.enabled(9));
  EXPECT_FALSE(h.enabled(4));
  EXPECT_THROW(h.record(10, "x", "S", 1, "f"), Kel::RangeException);
}

std::vector<uint32_t> gObserved;
void observe(uint32_t levels) { gObserved.push_back(levels); }

TEST_F(TraceTest, LevelsObserverSeesEveryChangeUntilRemoved) {
  gObserved.clear();
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Observed");
  h.levelsIs(0x1);
  h.levelsObserverIs(&observe);
  h.enable(9);
  Kel::traceConfigIs("Test::Observed/3");
  h.disable();
  h.levelsObserverIs(nullptr);
  h.enable(4);
  EXPECT_EQ(gObserved, (std::vector<uint32_t>{0x1, 0x201, 0x8, 0x0}));
}

TEST_F(TraceTest, ScopedCaptureRestoresPreviousSinkRulesAndLevels) {
  auto outer = std::make_shared<Kel::CaptureTraceSink>();
  Kel::traceSinkIs(outer);
  Kel::traceConfigIs("Test::Scoped::*/2");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Scoped::H");
  h.enable(5);
  {
    Kel::ScopedTraceCapture capture("Test::Scoped::H/9");
    EXPECT_EQ(h.levels(), 1u << 9);
    EXPECT_EQ(Kel::TraceHandle::handle("Test::Scoped::New").levels(), 0u);
    h.enable(1);
    KEL_TRACE(h, 9, "inside");
    EXPECT_EQ(capture.texts(), Texts{"inside"});
  }
  EXPECT_EQ(Kel::traceSink(), outer);
  EXPECT_EQ(h.levels(), (1u << 2) | (1u << 5));
  // Made inside the scope: it gets what the restored rules say.
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Scoped::New").levels(), 1u << 2);
  KEL_TRACE(h, 5, "after");
  EXPECT_EQ(outer->texts(), Texts{"after"});

  EXPECT_THROW(Kel::ScopedTraceCapture("Test::Scoped::H/x"), Kel::ParseException);
  EXPECT_EQ(Kel::traceSink(), outer);
  EXPECT_EQ(h.levels(), (1u << 2) | (1u << 5));
}

TEST_F(TraceTest, StreamSinkWritesOneFormattedLinePerRecordAndNullSinkRestoresStderr) {
  EXPECT_THROW(Kel::StreamTraceSink(nullptr), Kel::RangeException);
  std::ostringstream out;
  Kel::traceSinkIs(std::make_shared<Kel::StreamTraceSink>(&out));
  Kel::traceConfigIs("Test::Format/9");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Format");
  const std::string vrf = "red";
  const int line = __LINE__ + 1;
  KEL_TRACE_FROM(h, 9, "ProtocolRouteStatusSm", "Vrf: " << vrf << ", handleRoute");
  KEL_TRACE_FROM(h, 9, "ProtocolRouteStatusSm", "second");
  EXPECT_EQ(out.str(), "Test::Format/9 ProtocolRouteStatusSm:" + std::to_string(line) +
                           " TestBody: Vrf: red, handleRoute\n"
                           "Test::Format/9 ProtocolRouteStatusSm:" +
                           std::to_string(line + 1) + " TestBody: second\n");
  Kel::traceSinkIs(nullptr);
  EXPECT_NE(dynamic_cast<Kel::StderrTraceSink*>(Kel::traceSink().get()), nullptr);
}

TEST_F(TraceTest, FileSinkAppendsAfterWhatTheFileHeldAndNamesAPathItCannotOpen) {
  EXPECT_THAT([] { Kel::FileTraceSink("/nonexistent-protorib-dir/trace.log"); },
              ThrowsMessage<Kel::InvalidOperationException>(
                  HasSubstr("/nonexistent-protorib-dir/trace.log")));
  const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("protorib-trace-test-" + std::to_string(getpid()) + ".log");
  std::ofstream(path) << "earlier\n";
  Kel::traceConfigIs("Test::File/8");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::File");
  Kel::traceSinkIs(std::make_shared<Kel::FileTraceSink>(path.string()));
  KEL_TRACE_FROM(h, 8, "Src", "one");
  // Replacing the sink closes the first file; the second sink appends after its line.
  Kel::traceSinkIs(std::make_shared<Kel::FileTraceSink>(path.string()));
  KEL_TRACE_FROM(h, 8, "Src", "two");
  Kel::traceSinkIs(nullptr);

  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string l; std::getline(in, l);) lines.push_back(l);
  std::filesystem::remove(path);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "earlier");
  EXPECT_TRUE(lines[1].starts_with("Test::File/8 Src:")) << lines[1];
  EXPECT_TRUE(lines[1].ends_with(" TestBody: one")) << lines[1];
  EXPECT_TRUE(lines[2].ends_with(" TestBody: two")) << lines[2];
}

}  // namespace
