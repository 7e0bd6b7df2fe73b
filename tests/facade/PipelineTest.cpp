#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Persistence/ConversionValuesPersistence.h"
#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;

const char* const configurationFile = "/documents/Quillmar/quill-mar-conv-val.json";

TEST(Pipeline, eventBecomesALogEntryAHistoryEntryAndAPlatformCall) {
  FacadeHarness host;
  host.configure();
  host.send("purchase", {{{ASEventParam::revenue, "25"}}});
  const auto calls = host.simulated.adNetwork->calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].interface, "skAdNetwork4");
  EXPECT_EQ(calls[0].fineValue, 40);
  EXPECT_EQ(calls[0].coarseValue, "high");
  EXPECT_EQ(calls[0].lockWindow, false);
  EXPECT_EQ(host.core().eventTracker()->getTrackedEventNames().count("purchase"), 1u);

  host.send("session");  // both rules are complete now: the lowest-ranked one is reported
  EXPECT_EQ(host.simulated.adNetwork->calls().back().fineValue, 1);
  host.send("unknown");
  EXPECT_EQ(host.simulated.adNetwork->calls().back().fineValue, 1);
  host.quillmar->clearTrackedEvents();
  EXPECT_TRUE(host.logged("debug: Quillmar - Cleared all tracked events"));
  host.send("unknown");
  EXPECT_TRUE(host.logged("debug: No completed conversion values found for event: unknown"));
}

TEST(Pipeline, windowFollowsTheDaysSinceTheFirstRun) {
  struct Case {
    int day;
    std::optional<int> window;
  };
  const int beyondEveryClock = -1000;
  for (const Case& test :
       {Case{0, 0}, {2, 0}, {3, 1}, {7, 1}, {8, 2}, {35, 2}, {36, {}}, {-1, {}}, {beyondEveryClock, {}}}) {
    SCOPED_TRACE(test.day);
    FacadeHarness host;
    host.configure();
    host.simulated.clock->setNow(startOfTests + days(test.day) + (test.day < 0 ? 0h : 23h));
    if (test.day == beyondEveryClock) {
      host.defaults->set("QuillmarFirstRunDate", platform::Clock::TimePoint::max());
    }
    EXPECT_EQ(host.quillmar->state().window, test.window);
    host.send("session");
    EXPECT_EQ(host.simulated.adNetwork->calls().size(), test.window ? 1u : 0u);
    EXPECT_EQ(host.logged("info: No event sent. The event window has expired."), !test.window);
    EXPECT_EQ(host.eventNames().size(), 1u) << "logged to the service in any case";
  }
}

TEST(Pipeline, tenFailuresInARowInvalidateTheKeyAndASuccessStartsTheCountAgain) {
  FacadeHarness host;
  host.configure();
  host.eventStatus = 500;
  for (int i = 0; i < 9; ++i) {
    host.send("session");
  }
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 9u) << "a failed log entry does not stop the event";
  host.eventStatus = 200;
  host.send("session");
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  host.eventBody = R"({"status":"Success"})";  // only "success" is one
  for (int i = 0; i < 10; ++i) {
    host.send("session");
  }
  EXPECT_TRUE(Quillmar::isVerificationKeyInvalid());
  EXPECT_FALSE(host.quillmar->state().verificationKeyValid);
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 19u) << "the tenth failure's event goes no further";
  EXPECT_TRUE(host.logged("error: Verification key considered invalid after 10 consecutive failures"));
  EXPECT_EQ(host.countLines("error: Failed to log event to server: failedToLogEvent"), 19u);
  const std::size_t requests = host.eventNames().size();
  host.send("session");
  EXPECT_EQ(host.eventNames().size(), requests);
  EXPECT_TRUE(host.logged("error: Event processing skipped: verification key is considered invalid"));
  QuillmarCore::resetVerificationKeyState();
  host.eventBody = R"({"status":"success"})";
  host.send("session");
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 20u);
}

TEST(Pipeline, failureIsPrintedToo) {
  FacadeHarness host;
  std::vector<std::string> printed;
  auto platform = host.simulated.platform();
  platform.standardOutput = [&printed](std::string_view line) { printed.emplace_back(line); };
  host.quillmar = QuillmarFactory::createQuillmar(platform);
  host.configure();
  host.eventStatus = 401;
  host.send("session");
  EXPECT_THAT(printed, ::testing::ElementsAre("Failed to log event to server: failedToLogEvent"));
}

TEST(Pipeline, unreadableConfigurationIsTriedTwiceAnEventName) {
  FacadeHarness host;
  host.configure();
  host.configStatus = 500;
  host.simulated.files->writeFile(configurationFile, "{\"values\":[", platform::WriteMode::direct);
  host.send("session");
  EXPECT_TRUE(host.logged("debug: Could not obtain conversion values. Attempt 1 for event: session"));
  EXPECT_TRUE(host.logged("debug: First attempt to get conversion values failed, triggering fetch..."));
  EXPECT_TRUE(host.logged("debug: Event processing deferred until conversion values are available: session"));
  host.send("session");
  EXPECT_TRUE(host.logged("debug: Could not obtain conversion values. Attempt 2 for event: session"));
  EXPECT_EQ(host.countLines("triggering fetch"), 1u);
  host.send("session");
  EXPECT_TRUE(host.logged("error: Maximum number of attempts reached for event: session. Aborting processing."));
  host.send("session");
  EXPECT_EQ(host.countLines("Attempt 1 for event: session"), 2u) << "the refusal cleared the count";
  EXPECT_TRUE(host.core().eventTracker()->getAllTrackedEvents().empty());
  Quillmar::setConsecutiveAPIFailures(9);
  host.eventStatus = 500;
  host.send("other");
  EXPECT_TRUE(Quillmar::isVerificationKeyInvalid());
}

TEST(Pipeline, disabledInFlightNeitherLogsNorCounts) {
  FacadeHarness host;
  host.configure();
  Quillmar::setConsecutiveAPIFailures(3);
  host.defaults->set("SdkEnabled", false);
  spawn(host.simulated.executor, QuillmarCore::processEvent(host.core().weak_from_this(), "session", std::nullopt));
  host.settle();
  EXPECT_TRUE(
      host.logged("EventServerLogRepository - SDK is disabled by server configuration, skipping event: session"));
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 3);
  EXPECT_EQ(host.quillmar->statistics().logged, 0u);
}

TEST(Pipeline, highLockWindowIsLockedByAHighValueOfItsOwn) {
  struct Case {
    const char* lock;
    const char* event;
    bool locks;
  };
  for (const Case& test : {Case{R"({"window0":{"type":"high"}})", "purchase", true},
                           {R"({"window0":{"type":"high"}})", "session", false},
                           {R"({"window1":{"type":"high"}})", "purchase", false},
                           {R"({"window0":{"type":"time","value":0}})", "purchase", false}}) {
    SCOPED_TRACE(std::string(test.lock) + test.event);
    FacadeHarness host("18.1");
    host.configBody = configuration(test.lock);
    host.configure();
    host.send(test.event, {{{ASEventParam::revenue, 20}}});
    ASSERT_EQ(host.simulated.adNetwork->calls().size(), 1u);
    EXPECT_EQ(host.simulated.adNetwork->calls()[0].interface, "adAttributionKit");
    EXPECT_EQ(host.simulated.adNetwork->calls()[0].lockWindow, test.locks);
  }
}

TEST(Pipeline, timedLockIsSentAgainWhenItsHoursHavePassed) {
  FacadeHarness host;
  host.configBody = configuration(R"({"window0":{"type":"time","value":48},"window1":{"type":"high"},)"
                                  R"("window2":{"type":"time","value":240}})");
  host.configure();
  host.send("purchase", {{{ASEventParam::revenue, 20}}});
  ASSERT_EQ(host.simulated.adNetwork->calls().size(), 1u);
  host.advance(48h - 1s);
  host.activate();
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 1u);
  host.advance(1h + 1s);
  host.activate();
  ASSERT_EQ(host.simulated.adNetwork->calls().size(), 2u);
  const auto locked = host.simulated.adNetwork->calls().back();
  EXPECT_EQ(locked.fineValue, 40);
  EXPECT_EQ(locked.coarseValue, "high");
  EXPECT_EQ(locked.lockWindow, true);
  host.simulated.clock->advanceTo(startOfTests + days(5));
  host.activate();
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 2u) << "a window that locks at high is not timed";
  host.simulated.clock->advanceTo(startOfTests + days(18) - 1s);
  host.activate();
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 2u);
  host.simulated.clock->advanceTo(startOfTests + days(18) + 1h);  // 10 days into window 2
  host.activate();
  EXPECT_EQ(host.simulated.adNetwork->calls().size(), 3u);
}

TEST(Pipeline, missingPartIsFilledFromTheLastUpdateButDoesNotLock) {
  FacadeHarness host;
  host.configBody =
      R"({"app_id":"a","sdk_enabled":true,"lockWindows":{"window0":{"type":"high"}},"values":[)"
      R"({"key":"A","windows":{"window0":{"coarseValue":{"value":"high","requiredEvents":[{"name":"a"}]}}}},)"
      R"({"key":"B","windows":{"window0":{"fineValue":{"value":7,"requiredEvents":[{"name":"b"}]}}}}]})";
  host.configure();
  host.send("a");
  host.quillmar->clearTrackedEvents();
  host.send("b");
  const auto calls = host.simulated.adNetwork->calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].fineValue, 0);
  EXPECT_EQ(calls[0].lockWindow, true);
  EXPECT_EQ(calls[1].fineValue, 7);
  EXPECT_EQ(calls[1].coarseValue, "high");
  EXPECT_EQ(calls[1].lockWindow, false);
}

}  // namespace
}  // namespace quillmar::test
