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

constexpr const char* kTraceSource = "TraceTest";

int gEvaluations = 0;

std::string counted(const std::string& text) {
  ++gEvaluations;
  return text;
}

// The registry is process-wide: every test puts back the rules, levels and sink it found, and uses
// handle names of its own.
class TraceTest : public ::testing::Test {
 protected:
  TraceTest() : previousSink_(Kel::traceSink()) { gEvaluations = 0; }
  ~TraceTest() override { Kel::traceSinkIs(previousSink_); }

  Kel::ScopedTraceSettings settings_;
  std::shared_ptr<Kel::TraceSink> previousSink_;
};

// Sets PROTORIB_TRACE for one test and puts the old value back.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(const char* value) {
    if (const char* old = std::getenv(Kel::kTraceEnvironmentVariable)) old_ = old;
    if (value) {
      setenv(Kel::kTraceEnvironmentVariable, value, 1);
    } else {
      unsetenv(Kel::kTraceEnvironmentVariable);
    }
  }
  ~ScopedEnvironment() {
    if (old_) {
      setenv(Kel::kTraceEnvironmentVariable, old_->c_str(), 1);
    } else {
      unsetenv(Kel::kTraceEnvironmentVariable);
    }
  }

 private:
  std::optional<std::string> old_;
};

TEST_F(TraceTest, SameNameGivesTheSameHandle) {
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Identity::A");
  EXPECT_EQ(&a, &Kel::TraceHandle::handle(std::string("Test::Identity::") + "A"));
  EXPECT_NE(&a, &Kel::TraceHandle::handle("Test::Identity::B"));
  EXPECT_EQ(a.name(), "Test::Identity::A");
}

TEST_F(TraceTest, HandleNamesThatRulesCannotAddressAreRefused) {
  EXPECT_THROW(Kel::TraceHandle::handle(""), Kel::RangeException);
  EXPECT_THROW(Kel::TraceHandle::handle("Test/Slash"), Kel::RangeException);
  EXPECT_THROW(Kel::TraceHandle::handle("Test,Comma"), Kel::RangeException);
  EXPECT_THROW(Kel::TraceHandle::handle("Test*"), Kel::RangeException);
  EXPECT_THROW(Kel::TraceHandle::handle("Test Blank"), Kel::RangeException);
}

TEST_F(TraceTest, DisabledTraceDoesNotEvaluateItsText) {
  Kel::ScopedTraceCapture capture("Test::Lazy/8");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Lazy");
  KEL_TRACE(h, 9, counted("detail"));
  KEL_TRACE(h, 7, counted("other"));
  EXPECT_EQ(gEvaluations, 0);
  EXPECT_TRUE(capture.records().empty());
  KEL_TRACE(h, 8, counted("entry"));
  EXPECT_EQ(gEvaluations, 1);
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"entry"});
}

TEST_F(TraceTest, CaptureRecordsTextLevelSourceLineAndFunction) {
  Kel::ScopedTraceCapture capture("Test::Capture/9");
  Kel::TraceHandle& h = Kel::TraceHandle::handle("Test::Capture");
  const int line = __LINE__ + 1;
  KEL_TRACE(h, 9, "handleRoute (" << 42 << "),  Preference: " << 1.5);
  KEL_TRACE_FROM(h, 9, "ProtocolIntfSm", "explicit");
  const std::vector<Kel::TraceRecord> records = capture.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].handle, "Test::Capture");
  EXPECT_EQ(records[0].level, 9);
  EXPECT_EQ(records[0].text, "handleRoute (42),  Preference: 1.5");
  EXPECT_EQ(records[0].source, "TraceTest");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].function, "TestBody");
  EXPECT_EQ(records[1].source, "ProtocolIntfSm");
  EXPECT_EQ(records[1].line, line + 1);
}

TEST_F(TraceTest, CaptureSelectsTextsOfOneHandle) {
  Kel::ScopedTraceCapture capture("Test::Select::*");
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Select::A");
  Kel::TraceHandle& b = Kel::TraceHandle::handle("Test::Select::B");
  KEL_TRACE(a, 8, "a1");
  KEL_TRACE(b, 8, "b1");
  KEL_TRACE(a, 9, "a2");
  EXPECT_EQ(capture.textsOf("Test::Select::A"), (std::vector<std::string>{"a1", "a2"}));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"a1", "b1", "a2"}));
  capture.clear();
  EXPECT_TRUE(capture.texts().empty());
}

TEST_F(TraceTest, ConfigEnablesLevelRangesSingleLevelsAndWholeHandles) {
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Cfg::A");
  Kel::TraceHandle& b = Kel::TraceHandle::handle("Test::Cfg::B");
  Kel::TraceHandle& c = Kel::TraceHandle::handle("Test::Cfg::C");
  Kel::TraceHandle& d = Kel::TraceHandle::handle("Test::Cfg::D");
  d.enable(1);
  Kel::traceConfigIs("Test::Cfg::A/8-9, Test::Cfg::B/3,Test::Cfg::C");
  EXPECT_EQ(a.levels(), 0x300u);
  EXPECT_EQ(b.levels(), 0x8u);
  EXPECT_EQ(c.levels(), 0x3FFu);
  EXPECT_EQ(d.levels(), 0u);
  EXPECT_TRUE(a.enabled(8));
  EXPECT_FALSE(a.enabled(7));
}

TEST_F(TraceTest, ConfigReachesHandlesCreatedLater) {
  Kel::traceConfigIs("Test::Later::Made/7");
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Later::Made").levels(), 1u << 7);
}

TEST_F(TraceTest, StarMatchesEveryHandleAndPrefixStarItsPrefix) {
  Kel::TraceHandle& before = Kel::TraceHandle::handle("Test::Star::Before");
  Kel::traceConfigIs("*/2");
  EXPECT_EQ(before.levels(), 1u << 2);
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Star::After").levels(), 1u << 2);

  Kel::traceConfigIs("Test::Prefix::*/4, */2");
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Prefix::One").levels(), (1u << 4) | (1u << 2));
  EXPECT_EQ(before.levels(), 1u << 2);
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
    try {
      Kel::traceConfigIs(c.config);
      ADD_FAILURE() << "accepted " << c.config;
    } catch (const Kel::ParseException& e) {
      EXPECT_NE(std::string(e.what()).find(c.piece), std::string::npos) << e.what();
    }
    EXPECT_EQ(Kel::traceConfig(), "Test::Bad::H/5") << c.config;
    EXPECT_EQ(h.levels(), 1u << 5) << c.config;
  }
}

TEST_F(TraceTest, EnvironmentAppliesGoodPiecesAndReportsBadOnes) {
  Kel::TraceHandle& a = Kel::TraceHandle::handle("Test::Env::A");
  {
    ScopedEnvironment env("Test::Env::A/8-9,Test::Env::B/12,Test::Env::C");
    const std::vector<std::string> errors = Kel::traceConfigFromEnvironment();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("'Test::Env::B/12'"), std::string::npos) << errors[0];
    EXPECT_EQ(a.levels(), 0x300u);
    EXPECT_EQ(Kel::TraceHandle::handle("Test::Env::C").levels(), 0x3FFu);
    EXPECT_EQ(Kel::traceConfig(), "Test::Env::A/8-9,Test::Env::C");
  }
  ScopedEnvironment unset(nullptr);
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
    EXPECT_EQ(capture.texts(), std::vector<std::string>{"inside"});
  }
  EXPECT_EQ(Kel::traceSink(), outer);
  EXPECT_EQ(h.levels(), (1u << 2) | (1u << 5));
  // Made inside the scope: it gets what the restored rules say.
  EXPECT_EQ(Kel::TraceHandle::handle("Test::Scoped::New").levels(), 1u << 2);
  KEL_TRACE(h, 5, "after");
  EXPECT_EQ(outer->texts(), std::vector<std::string>{"after"});

  EXPECT_THROW(Kel::ScopedTraceCapture("Test::Scoped::H/x"), Kel::ParseException);
  EXPECT_EQ(Kel::traceSink(), outer);
  EXPECT_EQ(h.levels(), (1u << 2) | (1u << 5));
}

TEST_F(TraceTest, NullSinkRestoresTheStderrDefault) {
  Kel::traceSinkIs(std::make_shared<Kel::CaptureTraceSink>());
  Kel::traceSinkIs(nullptr);
  EXPECT_NE(dynamic_cast<Kel::StderrTraceSink*>(Kel::traceSink().get()), nullptr);
}

TEST_F(TraceTest, StreamSinkWritesOneFormattedLinePerRecord) {
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
}

TEST_F(TraceTest, FileSinkAppendsAfterWhatTheFileHeld) {
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

TEST_F(TraceTest, FileSinkThatCannotOpenNamesThePath) {
  try {
    Kel::FileTraceSink sink("/nonexistent-protorib-dir/trace.log");
    ADD_FAILURE() << "opened a file in a missing directory";
  } catch (const Kel::InvalidOperationException& e) {
    EXPECT_NE(std::string(e.what()).find("/nonexistent-protorib-dir/trace.log"), std::string::npos);
  }
}

}  // namespace
