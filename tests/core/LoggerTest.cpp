#include "Logging/Logger.h"

#include <gmock/gmock.h>

#include "Json/CodingError.h"
#include "Logging/ErrorDescription.h"
#include "quillmar/platform/URLError.h"
#include "support/LogCapture.h"

using namespace quillmar;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

TEST(Logger, thresholdLetsInfoThroughLast) {
  const std::vector<std::string> expected[] = {
      {}, {"error: e 1"}, {"error: e 1", "debug: d 2"}, {"error: e 1", "debug: d 2", "info: i 3"}};
  for (int raw = 0; raw <= 3; ++raw) {
    const test::LogCapture log(*logLevelFromRawValue(raw));
    Logger::error("e {}", 1);
    Logger::debug("d {}", 2);
    Logger::info("i {}", 3);
    EXPECT_EQ(log.messages(), expected[raw]) << "level " << raw;
  }
}

TEST(Logger, messagesAreVerbatimUnderTheFixedSubsystemAndFailuresStayInside) {
  const test::LogCapture log;
  Logger::error("{:{}}", "a width that cannot be", -1);
  Logger::error("{}", "100 % of {braces} %s");
  EXPECT_THAT(log.messages(), ElementsAre("error: 100 % of {braces} %s"));
  EXPECT_EQ(log.lines()[0].subsystem, "tech.quill-mar.quillmar");
  EXPECT_EQ(log.lines()[0].category, "QuillmarSDK");
}

/// Ends the process with 0 when its first line, and a later one, carry this timestamp.
[[noreturn]] void exitWithFirstLine(std::chrono::milliseconds now, std::chrono::seconds offset, const char* expected) {
  const auto clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(now));
  clock->setTimeZone([offset](platform::Clock::TimePoint) { return offset; });
  const test::LogCapture log(LogLevel::error, clock);
  Logger::error("first");
  clock->advance(3s);
  Logger::error("second");
  const auto lines = log.lines();
  const std::string prefix = std::string("[Quillmar] - [") + expected + "] ";
  std::exit(lines.size() == 2 && lines[0].text == prefix + "first" && lines[1].text == prefix + "second" ? 0 : 1);
}

TEST(LoggerDeathTest, timestampIsThatOfTheFirstLineInLocalTime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: the timestamp is made once in each
  const auto march4 = 1772615702123ms;             // 2026-03-04 09:15:02.123 UTC
  EXPECT_EXIT(exitWithFirstLine(march4, 1h, "Mar 4, 10:15:02:123+0100"), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithFirstLine(march4, -9h - 30min, "Mar 3, 23:45:02:123-0930"), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithFirstLine(-1ms, 0s, "Dec 31, 23:59:59:999+0000"), testing::ExitedWithCode(0), "");
}

TEST(ErrorDescription, namesTheCaseOrTheSentenceAndAddsTheDetail) {
  const std::system_error timedOut(platform::URLError::timedOut);
  const std::system_error outOfRange(std::error_code(999, platform::urlErrorCategory()));
  const DecodingError decoding(DecodingErrorCode::keyNotFound, "\"a\" is missing in b");
  const std::runtime_error plain("plain");
  const struct {
    const std::exception& error;
    const char* textual;
    const char* localized;
  } rows[] = {{timedOut, "timedOut", "The request timed out."},
              {outOfRange, "unknown", "An unknown error occurred."},
              {decoding, "keyNotFound: \"a\" is missing in b", "A required member is missing: \"a\" is missing in b"},
              {plain, "plain", "plain"}};
  for (const auto& row : rows) {
    EXPECT_EQ(textualDescription(row.error), row.textual);
    EXPECT_EQ(localizedDescription(row.error), row.localized);
  }
}

}  // namespace
