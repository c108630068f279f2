// The suite driver's own logic: its command line, the lines a case prints and the driver reads
// back, how plain figures, medians and aims come together, and the two output forms.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "bench/BenchTable.h"
#include "platform/kel/Exception.h"

namespace Bench {
namespace {

// The text of the ParseException that parsing `args` throws, or "" when it parses.
std::string parseError(const std::vector<std::string>& args) {
  try {
    parseOptions(args);
  } catch (const Kel::ParseException& e) {
    return e.what();
  }
  return "";
}

Row row(const std::string& workload, const std::string& family, uint64_t routes,
        const std::string& figure, double value, bool withRatio = false, Aim aim = {}) {
  Row r;
  r.workload = workload;
  r.family = family;
  r.routes = routes;
  r.figure = figure;
  r.value = value;
  r.unit = "s";
  r.withRatio = withRatio;
  r.aim = aim;
  return r;
}

TEST(BenchOptions, QuickKeepsOnlyTheSmallTableUnlessSizesAreGiven) {
  Options quick = parseOptions({"--quick"});
  EXPECT_EQ(quick.routes, std::vector<uint64_t>{100'000});
  EXPECT_EQ(quick.churnSeconds, 1.0);
  // The sizes win whichever comes first, in either spelling.
  EXPECT_EQ(parseOptions({"--quick", "--routes", "1000"}).routes, std::vector<uint64_t>{1000});
  EXPECT_EQ(parseOptions({"--routes=2000,30000", "--quick"}).routes,
            (std::vector<uint64_t>{2000, 30000}));
  EXPECT_EQ(parseOptions({"--churn-seconds", "0.5", "--quick"}).churnSeconds, 0.5);
}

TEST(BenchOptions, RefusesTableSizesTheWorkloadsCannotBuild) {
  EXPECT_NE(
      parseError({"--routes", "999"}).find("999 is not a multiple of 10 from 1,000 to 10,000,000"),
      std::string::npos);
  EXPECT_NE(parseError({"--routes", "1005"}).find("1005"), std::string::npos);
  EXPECT_NE(parseError({"--routes", "20000000"}).find("20000000"), std::string::npos);
  EXPECT_EQ(parseError({"--routes", "1000,x"}), "--routes: 'x' is not a whole number");
  EXPECT_EQ(parseError({"--routes", "1000,"}), "--routes: '' is not a whole number");
  EXPECT_EQ(parseError({"--routes", "-1000"}), "--routes: '-1000' is not a whole number");
}

TEST(BenchOptions, NamesTheArgumentThatIsWrong) {
  EXPECT_EQ(parseError({"--only", "install,bogus"}),
            "--only: unknown workload 'bogus' (install, failover, fanout, review, leaking, churn)");
  EXPECT_EQ(parseError({"--frobnicate"}), "unknown argument '--frobnicate' (try --help)");
  EXPECT_EQ(parseError({"--json"}), "--json needs a value");
  EXPECT_EQ(parseError({"--json="}), "--json needs a file name");
  EXPECT_EQ(parseError({"--repeat", "0"}), "--repeat: 0 is not from 1 to 9");
  EXPECT_EQ(parseError({"--churn-seconds", "0"}),
            "--churn-seconds: expected more than 0 and at most 600");
  EXPECT_EQ(parseError({"--churn-seconds", "1s"}), "--churn-seconds: '1s' is not a number");
  EXPECT_EQ(parseError({"--churn-seconds", "nan"}), "--churn-seconds: 'nan' is not a number");
}

TEST(BenchOptions, OnlySelectsEachNamedWorkloadOnce) {
  Options o = parseOptions({"--only", "churn,install,churn"});
  EXPECT_EQ(o.only, (std::vector<std::string>{"churn", "install"}));
  EXPECT_TRUE(selected(o, "install"));
  EXPECT_FALSE(selected(o, "failover"));
  EXPECT_TRUE(selected(parseOptions({}), "failover"));
}

// The text of the ParseException that parsing the soak's `args` throws, or "" when they parse.
std::string soakError(const std::vector<std::string>& args) {
  try {
    parseSoakOptions(args);
  } catch (const Kel::ParseException& e) {
    return e.what();
  }
  return "";
}

TEST(BenchSoakOptions, TakesValuesInEitherSpellingOverTheDefaults) {
  const SoakOptions defaults = parseSoakOptions({});
  EXPECT_EQ(defaults.routes, 1'000'000u);
  EXPECT_FALSE(defaults.ipv6);
  EXPECT_EQ(defaults.seconds, 600);
  EXPECT_EQ(defaults.every, 30);
  const SoakOptions o =
      parseSoakOptions({"--routes=20000", "--family", "ipv6", "--seconds", "90.5", "--every=0.5"});
  EXPECT_EQ(o.routes, 20'000u);
  EXPECT_TRUE(o.ipv6);
  EXPECT_EQ(o.seconds, 90.5);
  EXPECT_EQ(o.every, 0.5);
  EXPECT_FALSE(parseSoakOptions({"--family", "ipv6", "--family", "ipv4"}).ipv6);  // the last wins
  EXPECT_TRUE(parseSoakOptions({"--seconds", "10", "--help"}).help);
}

TEST(BenchSoakOptions, RefusesWhatCannotRunWithTheArgumentNamed) {
  EXPECT_EQ(soakError({"--routes", "999"}),
            "--routes: 999 is not a multiple of 10 from 1,000 to 10,000,000");
  EXPECT_EQ(soakError({"--routes", "1000,2000"}), "--routes: '1000,2000' is not a whole number");
  EXPECT_EQ(soakError({"--family", "IPv4"}), "--family: 'IPv4' is not ipv4 or ipv6");
  EXPECT_EQ(soakError({"--family="}), "--family: '' is not ipv4 or ipv6");
  EXPECT_EQ(soakError({"--seconds", "0"}),
            "--seconds: expected more than 0 and at most 604,800 (a week)");
  EXPECT_EQ(soakError({"--seconds", "604801"}),
            "--seconds: expected more than 0 and at most 604,800 (a week)");
  EXPECT_EQ(soakError({"--seconds", "inf"}), "--seconds: 'inf' is not a number");
  EXPECT_EQ(soakError({"--every", "0.05"}), "--every: expected at least 0.1 (seconds)");
  EXPECT_EQ(soakError({"--every", "10s"}), "--every: '10s' is not a number");
  EXPECT_EQ(soakError({"--every"}), "--every needs a value");
  // The suite's options are not the soak's.
  EXPECT_EQ(soakError({"--churn-seconds", "5"}),
            "unknown soak argument '--churn-seconds' (try soak --help)");
  EXPECT_EQ(soakError({"--quick=yes"}), "unknown soak argument '--quick=yes' (try soak --help)");
}

TEST(BenchSoakOptions, RefusesAnIntervalLongerThanTheRunInEitherOrder) {
  EXPECT_EQ(soakError({"--seconds", "20", "--every", "30"}),
            "--every: 30.0 s is longer than the run (20.0 s)");
  EXPECT_EQ(soakError({"--every", "30", "--seconds", "20"}),
            "--every: 30.0 s is longer than the run (20.0 s)");
  EXPECT_EQ(soakError({"--every", "700"}), "--every: 700 s is longer than the run (600 s)");
  EXPECT_EQ(parseSoakOptions({"--seconds", "20", "--every", "20"}).every, 20);
  // Without an interval of its own, a short run prints one line, at its end.
  EXPECT_EQ(parseSoakOptions({"--seconds", "10"}).every, 10);
  EXPECT_EQ(parseSoakOptions({"--seconds", "40"}).every, 30);
}

TEST(BenchCaseLine, CarriesEveryFieldBackExactly) {
  Row r = row("x", "IPv4", 1, "per route, K=10", 0.1 + 0.2, true,
              Aim{Aim::Kind::ratioAtMost, 4, "<= 4x plain"});
  r.unit = "ns";
  auto back = parseCaseLine(caseLine(r));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->figure, "per route, K=10");
  EXPECT_EQ(back->value, 0.1 + 0.2);  // bit for bit: medians and ratios are taken from it
  EXPECT_EQ(back->unit, "ns");
  EXPECT_TRUE(back->withRatio);
  EXPECT_EQ(back->aim, r.aim);

  Row plain = row("x", "IPv4", 1, "rate", 1e7);
  auto plainBack = parseCaseLine(caseLine(plain));
  ASSERT_TRUE(plainBack);
  EXPECT_FALSE(plainBack->withRatio);
  EXPECT_EQ(plainBack->aim, Aim{});
}

TEST(BenchCaseLine, SkipsNotesAndRefusesBrokenRows) {
  EXPECT_FALSE(parseCaseLine("the case says hello"));
  EXPECT_FALSE(parseCaseLine(""));
  EXPECT_THROW(parseCaseLine("row\ttime\t1\ts"), Kel::ParseException);
  EXPECT_THROW(parseCaseLine("row\ttime\tfast\ts\t-\t-\t0\t-"), Kel::ParseException);
  EXPECT_THROW(parseCaseLine("row\ttime\t1\ts\t-\tsometimes\t0\t-"), Kel::ParseException);
  EXPECT_THROW(parseCaseLine("row\ttime\t1\ts\tmaybe\t-\t0\t-"), Kel::ParseException);
}

TEST(BenchCaseLine, RefusesFieldsThatWouldBreakTheLine) {
  EXPECT_THROW(caseLine(row("x", "IPv4", 1, "two\tcolumns", 1)), Kel::RangeException);
  EXPECT_THROW(caseLine(row("x", "IPv4", 1, "", 1)), Kel::RangeException);
  Row r = row("x", "IPv4", 1, "t", 1);
  r.aim.text = "line\nbreak";
  EXPECT_THROW(caseLine(r), Kel::RangeException);
}

TEST(BenchMerge, PlainFiguresMatchOnlyTheirOwnCase) {
  std::vector<Row> rows{row("install", "IPv4", 1000, "time", 2.0, true),
                        row("install", "IPv6", 1000, "time", 3.0, true),
                        row("install", "IPv4", 1000, "rate", 500.0),
                        row("install", "IPv4", 2000, "time", 9.0, true)};
  std::vector<Row> plain{row("install", "IPv4", 1000, "time", 0.5),
                         row("install", "IPv4", 1000, "rate", 2000.0),
                         row("failover", "IPv6", 1000, "time", 1.0)};
  mergePlain(rows, plain);
  EXPECT_EQ(rows[0].plain, 0.5);
  EXPECT_EQ(rows[0].ratio, 4.0);
  EXPECT_FALSE(rows[1].plain);  // another family
  EXPECT_EQ(rows[2].plain, 2000.0);
  EXPECT_FALSE(rows[2].ratio);  // rates show the plain rate, no ratio
  EXPECT_FALSE(rows[3].plain);  // another size
}

TEST(BenchMerge, ZeroPlainGivesNoRatio) {
  std::vector<Row> rows{row("install", "IPv4", 1000, "heap per prefix", 100, true)};
  mergePlain(rows, {row("install", "IPv4", 1000, "heap per prefix", 0)});
  EXPECT_EQ(rows[0].plain, 0.0);
  EXPECT_FALSE(rows[0].ratio);
}

TEST(BenchMerge, AimsAreDecidedOnValueOrRatio) {
  std::vector<Row> rows{
      row("a", "IPv4", 1, "at most", 400, false, Aim{Aim::Kind::atMost, 400, "<= 400"}),
      row("a", "IPv4", 1, "at least", 999'999, false, Aim{Aim::Kind::atLeast, 1e6, ">= 1e6"}),
      row("a", "IPv4", 1, "ratio", 5, true, Aim{Aim::Kind::ratioAtMost, 4, "<= 4x"}),
      row("a", "IPv4", 1, "ratio, no plain", 5, true, Aim{Aim::Kind::ratioAtMost, 4, "<= 4x"}),
      row("a", "IPv4", 1, "no aim", 5)};
  mergePlain(rows, {row("a", "IPv4", 1, "ratio", 2)});
  decideAims(rows);
  EXPECT_EQ(rows[0].met, true);  // the bound itself meets an "at most"
  EXPECT_EQ(rows[1].met, false);
  EXPECT_EQ(rows[2].met, true);  // 5 / 2 = 2.5x
  EXPECT_FALSE(rows[3].met);     // nothing to compare with: undecided, not failed
  EXPECT_FALSE(rows[4].met);
}

TEST(BenchMedian, TakesTheMiddleOfEachFigure) {
  auto run = [](double time, double rate) {
    return std::vector<Row>{row("install", "IPv4", 1000, "time", time),
                            row("install", "IPv4", 1000, "rate", rate)};
  };
  auto odd = medianOf({run(3, 10), run(1, 30), run(2, 20)});
  ASSERT_EQ(odd.size(), 2u);
  EXPECT_EQ(odd[0].value, 2);
  EXPECT_EQ(odd[1].value, 20);
  auto even = medianOf({run(4, 10), run(1, 40)});
  EXPECT_EQ(even[0].value, 2.5);
  EXPECT_TRUE(medianOf({}).empty());
  EXPECT_THROW(medianOf({run(1, 1), {row("install", "IPv4", 1000, "time", 1)}}),
               Kel::InvalidOperationException);
}

TEST(BenchFormat, NumbersKeepThreeFiguresOrSeparateThousands) {
  EXPECT_EQ(formatNumber(0), "0");
  EXPECT_EQ(formatNumber(0.0123456), "0.0123");
  EXPECT_EQ(formatNumber(1.23456), "1.23");
  EXPECT_EQ(formatNumber(12.3456), "12.3");
  EXPECT_EQ(formatNumber(123.456), "123");
  EXPECT_EQ(formatNumber(999.6), "1,000");
  EXPECT_EQ(formatNumber(99.96), "100");
  EXPECT_EQ(formatNumber(0.99996), "1.00");
  EXPECT_EQ(formatNumber(1234.5), "1,235");
  EXPECT_EQ(formatNumber(1'000'000), "1,000,000");
  EXPECT_EQ(formatNumber(-25'000), "-25,000");
  EXPECT_EQ(formatNumber(std::nan("")), "-");
  EXPECT_EQ(formatCount(10), "10");
  EXPECT_EQ(formatCount(100'000), "100,000");
}

TEST(BenchFormat, TableAlignsNumbersOnTheRight) {
  std::vector<Row> rows{row("install", "IPv4", 100'000, "time", 5.0, true),
                        row("review", "IPv6", 1'000'000, "rate", 2e6)};
  rows[0].plain = 2.5;
  rows[0].ratio = 2.0;
  rows[0].aim.text = "<= 4x plain";
  rows[0].met = true;
  rows[1].met = false;
  std::istringstream table(formatTable(rows));
  std::vector<std::string> lines;
  for (std::string l; std::getline(table, l);) lines.push_back(l);
  ASSERT_EQ(lines.size(), 4u);  // header, rule, two rows
  EXPECT_EQ(lines[0].rfind("workload", 0), 0u);
  // The value column ends at the same place on every line.
  const size_t end = lines[0].find("value") + 5;
  EXPECT_EQ(lines[2].find("5.00") + 4, end);
  EXPECT_EQ(lines[3].find("2,000,000") + 9, end);
  EXPECT_NE(lines[2].find("2.00x"), std::string::npos);
  EXPECT_NE(lines[2].find("yes"), std::string::npos);
  EXPECT_NE(lines[3].find("NO"), std::string::npos);
  EXPECT_NE(lines[3].find("1,000,000"), std::string::npos);
}

TEST(BenchFormat, JsonHasEveryRowWithNullsForWhatIsMissing) {
  std::vector<Row> rows{row("install", "IPv4", 1000, "time", 0.5, true),
                        row("churn", "IPv6", 1000, "rate", 7)};
  rows[0].plain = 0.25;
  rows[0].ratio = 2;
  rows[0].aim.text = "<= 4x \"plain\"";
  rows[0].met = true;
  const std::string json = formatJson(rows, {{"commit", "abc\\def"}});
  EXPECT_NE(json.find("\"commit\": \"abc\\\\def\""), std::string::npos);
  EXPECT_NE(
      json.find("\"plain\": 0.25, \"ratio\": 2, \"aim\": \"<= 4x \\\"plain\\\"\", \"met\": true"),
      std::string::npos);
  EXPECT_NE(
      json.find(
          "\"routes\": 1000, \"figure\": \"rate\", \"value\": 7, \"unit\": \"s\", \"plain\": null, "
          "\"ratio\": null, \"aim\": null, \"met\": null"),
      std::string::npos);
  EXPECT_EQ(formatJson({}, {}), "{\n  \"run\": {},\n  \"rows\": []\n}\n");
}

}  // namespace
}  // namespace Bench
