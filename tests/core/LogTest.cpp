#include "Logging/Log.h"

#include <gmock/gmock.h>

#include "support/LogCapture.h"

using namespace quillmar;
using namespace std::chrono_literals;

namespace {

TEST(Log, thresholdLetsInfoThroughLast) {
  for (std::size_t raw = 0; raw <= 3; ++raw) {
    const test::LogCapture log(*logLevelFromRawValue(static_cast<int>(raw)));
    Log::error("error");
    Log::debug("debug");
    Log::info("info");
    EXPECT_EQ(log.lines().size(), raw);
  }
}

TEST(Log, textsOfOthersDoNotBreakOutOfTheirLine) {
  const test::LogCapture log(LogLevel::error);
  const std::string fine = "100 % of {braces} %s \u00e9\u00c2\u00a0\u2027\u202f\u20ac\u2065\u206a\U0001F600 \\n ~";
  Log::error("{}", fine + "\n\r\t\x1b[2J\x1f\x7f" + std::string(1, '\0') + "\u0080\u009f");
  Log::error("{}", "\u2028\u2029\u202a\u202e\u2066\u2069\xE2\n\xE2\xC2\x9b\xC2");
  Log::error("{:{}}", "a width that cannot be", -1);  // stays inside
  Log::errorInLines("{\n  \x1b\r\n}");
  EXPECT_THAT(log.messages(),
              testing::ElementsAre("error: " + fine + R"(\n\r\t\u001b[2J\u001f\u007f\u0000\u0080\u009f)",
                                   "error: \\u2028\\u2029\\u202a\\u202e\\u2066\\u2069\xE2\\n\xE2\\u009b\xC2",
                                   "error: {\n  \\u001b\\r\n}"));
}

/// Ends the process with 0 when its first line, and a later one, carry this timestamp.
[[noreturn]] void exitWithFirstLine(std::chrono::milliseconds now, std::chrono::seconds offset, const char* expected) {
  const auto clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(now));
  clock->setTimeZone([offset](platform::Clock::TimePoint) { return offset; });
  const test::LogCapture log(LogLevel::error, clock);
  Log::error("first");
  clock->advance(3s);
  Log::error("second");
  const auto lines = log.lines();
  const std::string prefix = std::string("[Quillmar] - [") + expected + "] ";
  std::exit(lines.size() == 2 && lines[0].text == prefix + "first" && lines[1].text == prefix + "second" ? 0 : 1);
}

TEST(LogDeathTest, timestampIsThatOfTheFirstLineInLocalTime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: the timestamp is made once in each
  const auto march4 = 1772615702123ms;             // 2026-03-04 09:15:02.123 UTC
  EXPECT_EXIT(exitWithFirstLine(march4, 1h, "Mar 4, 10:15:02:123+0100"), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithFirstLine(march4, -9h - 30min, "Mar 3, 23:45:02:123-0930"), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithFirstLine(-1ms, 0s, "Dec 31, 23:59:59:999+0000"), testing::ExitedWithCode(0), "");
}

}  // namespace
