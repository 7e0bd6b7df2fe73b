#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

// How days are counted where clocks change is tested with the calendar.

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;

TEST(CalendarBorders, windowsAreExactToTheSecondAndCloseWhenTheClockIsWrongByYears) {
  FacadeHarness host;
  host.configure();
  const std::tuple<std::chrono::seconds, std::optional<int>, std::optional<int>> rows[] = {
      {0s, {}, 0}, {days(3), 0, 1}, {days(8), 1, 2}, {days(36), 2, {}}, {days(3652), {}, {}}, {0s, {}, 0}};
  for (const auto& [since, before, from] : rows) {
    host.simulated.clock->setNow(startOfTests + since - (since == 0s ? std::chrono::seconds(days(2)) : 1s));
    EXPECT_EQ(host.quillmar->state().window, before) << since.count();
    host.simulated.clock->setNow(startOfTests + since);
    EXPECT_EQ(host.quillmar->state().window, from) << since.count();
  }
  host.simulated.clock->setNow(startOfTests + days(36));
  host.send("session");
  EXPECT_EQ(host.eventNames().size(), 1u) << "logged to the service all the same";
  EXPECT_TRUE(host.logged("info: No event sent. The event window has expired."));
  EXPECT_TRUE(host.calls().empty());
}

TEST(CalendarBorders, dayLimitsOfBothPathsAreExactToTheSecond) {
  const std::tuple<bool, int, const char*> limits[] = {
      {true, 36, "More than 35 days have passed since first run. SDK will not be initialized."},
      {false, 38, "SDK not initialized. More than 37 days have passed since the first run."}};
  FacadeHarness host;
  host.configure();
  const auto starts = [&host](std::chrono::seconds since) {
    host.simulated.clock->setNow(startOfTests + since);
    host.restart();
    host.configure();
    return host.quillmar->isInitialized();
  };
  for (const auto& [mock, day, refusal] : limits) {
    Quillmar::setUseMock(mock);
    EXPECT_TRUE(starts(days(day) - 1s));
    const auto requests = host.configRequests();
    EXPECT_FALSE(starts(days(day)));
    EXPECT_TRUE(host.logged(refusal));
    EXPECT_EQ(host.configRequests(), requests);
  }
}

}  // namespace
}  // namespace quillmar::test
