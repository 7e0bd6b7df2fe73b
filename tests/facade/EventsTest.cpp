#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;
using ::testing::ElementsAre;

MATCHER_P3(isCall, fine, coarse, lock, "") {
  return arg.fineValue == fine && arg.coarseValue == coarse && arg.lockWindow == lock;
}

class Intake : public ::testing::Test, protected FacadeHarness {
 protected:
  auto calls() const { return simulated.adNetwork->calls(); }
};
class Pipeline : public Intake {};

TEST_F(Intake, eventsBeforeTheConfigurationAreReplayedInTheirOrder) {
  configStatus = 503;
  configure();
  for (const char* event : {"a", "b", "a", "c"}) {
    quillmar->sendEvent(event);
  }
  settle();
  EXPECT_TRUE(eventNames().empty());
  EXPECT_EQ(quillmar->statistics().parked, 4u);
  EXPECT_TRUE(logged("debug: Configuration not ready - isConfigLoaded: false, hasAppId: false"));
  EXPECT_TRUE(logged("debug: Event processing deferred - adding to pending queue: c"));
  EXPECT_TRUE(logged("debug: Event added to pending queue. Total pending: 4"));
  configStatus = 200;
  advance(5s);
  EXPECT_THAT(eventNames(), ElementsAre("a", "b", "a", "c"));
  EXPECT_TRUE(logged("debug: Processing 4 pending events"));
  EXPECT_EQ(countLines("debug: Processing deferred event: "), 4u);
  EXPECT_EQ(quillmar->statistics().parked, 0u);
  EXPECT_EQ(quillmar->statistics().logged, 4u);
}

TEST_F(Intake, eventThatIsParkedAsTheConfigurationArrivesIsNotLeftBehind) {
  defaults->set("ServerAppId", "app-1");
  quillmar->sendEvent("late");
  // One step before the parked event reaches the list, another thread's drain has already passed.
  simulated.executor->runOne();
  while (!logged("deferred - adding to pending queue: late") && simulated.executor->runOne()) {
  }
  core().markConfigurationAsLoaded();
  settle();
  EXPECT_EQ(quillmar->statistics().parked, 0u);
  EXPECT_TRUE(logged("Processing deferred event: late"));
}

TEST_F(Intake, disabledLibraryDropsEvents) {
  configBody = configuration("{}", false);
  configure();
  send("session");
  EXPECT_TRUE(logged("debug: SDK enabled status: false"));
  EXPECT_TRUE(logged("debug: SDK is disabled by server configuration, skipping event: session"));
  EXPECT_TRUE(eventNames().empty());
  EXPECT_EQ(quillmar->statistics().dropped, 1u);
  EXPECT_EQ(quillmar->statistics().parked, 0u);
}

TEST_F(Intake, parametersAreNamedAndBadTextIsMended) {
  configure();
  send("purchase", {{{ASEventParam::revenue, 9.99}}});
  EXPECT_TRUE(logged("debug: Sending event: purchase with params: [\"revenue\": 9.99]"));
  const std::string bad("x\xC3(\xED\xA0\x80\0y", 8);
  send(bad, {{{ASEventParam::revenue, std::string("\xFF"
                                                  "1")}}});
  EXPECT_TRUE(logged("Sending event: x\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"));
  send("");
  send(std::string(1 << 20, 'n'));
  EXPECT_TRUE(logged("Sending event:  with params: [:]"));
  const auto tracked = core().eventTracker()->getAllTrackedEvents();
  ASSERT_EQ(tracked.size(), 4u);
  EXPECT_EQ(tracked[0].parameters.at("revenue"), 9.99);
  EXPECT_TRUE(tracked[1].parameters.empty());
  EXPECT_EQ(tracked[3].name.size(), std::size_t{1} << 20);
  EXPECT_EQ(quillmar->statistics().logged, 4u);
}

TEST_F(Intake, burstKeepsFewRequestsInFlightAndLogsAll) {
  configure();
  delay = 1s;
  for (int i = 0; i < 500; ++i) {
    quillmar->sendEvent("session");
  }
  settle();
  EXPECT_LE(eventNames().size(), 64u);
  EXPECT_FALSE(quillmar->drain(0ms));
  advance(20s);
  EXPECT_EQ(eventNames().size(), 500u);
  EXPECT_EQ(quillmar->statistics().logged, 500u);
  EXPECT_TRUE(quillmar->drain(0ms));
}

TEST_F(Intake, eventsOfAHostThatIsGoneAreDropped) {
  configure();
  delay = 1s;
  quillmar->sendEvent("in flight");
  settle();
  quillmar->sendEvent("queued");
  quillmar.reset();
  advance(5s);
  EXPECT_THAT(eventNames(), ElementsAre("in flight"));
  EXPECT_TRUE(calls().empty());
}

TEST_F(Pipeline, eventBecomesALogEntryAHistoryEntryAndAPlatformCall) {
  configure();
  send("purchase", {{{ASEventParam::revenue, "25"}}});
  EXPECT_THAT(calls(), ElementsAre(isCall(40, "high", false)));
  EXPECT_EQ(calls()[0].interface, "skAdNetwork4");
  EXPECT_EQ(core().eventTracker()->getTrackedEventNames().count("purchase"), 1u);

  send("session");  // both rules are complete now: the lowest-ranked one is reported
  EXPECT_EQ(calls().back().fineValue, 1);
  send("unknown");
  EXPECT_EQ(calls().back().fineValue, 1);
  quillmar->clearTrackedEvents();
  EXPECT_TRUE(logged("debug: Quillmar - Cleared all tracked events"));
  send("unknown");
  EXPECT_TRUE(logged("debug: No completed conversion values found for event: unknown"));
}

TEST_F(Pipeline, windowFollowsTheDaysSinceTheFirstRun) {
  const int beyondEveryClock = -1000;
  configure();
  using Case = std::pair<int, std::optional<int>>;  // the day and its window
  for (const auto& [day, window] :
       {Case{0, 0}, {2, 0}, {3, 1}, {7, 1}, {8, 2}, {35, 2}, {36, {}}, {-1, {}}, {beyondEveryClock, {}}}) {
    SCOPED_TRACE(day);
    simulated.clock->setNow(startOfTests + days(day) + (day < 0 ? 0h : 23h));
    if (day == beyondEveryClock) {
      defaults->set("QuillmarFirstRunDate", platform::Clock::TimePoint::max());
    }
    EXPECT_EQ(quillmar->state().window, window);
    const std::size_t callsBefore = calls().size(), eventsBefore = eventNames().size();
    log.clear();
    send("session");
    EXPECT_EQ(calls().size() - callsBefore, window ? 1u : 0u);
    EXPECT_EQ(logged("info: No event sent. The event window has expired."), !window);
    EXPECT_EQ(eventNames().size() - eventsBefore, 1u) << "logged to the service in any case";
  }
}

TEST_F(Pipeline, tenFailuresInARowInvalidateTheKeyAndASuccessStartsTheCountAgain) {
  configure();
  eventStatus = 500;
  for (int i = 0; i < 9; ++i) {
    send("session");
  }
  EXPECT_EQ(calls().size(), 9u) << "a failed log entry does not stop the event";
  eventStatus = 200;
  send("session");
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  eventBody = R"({"status":"Success"})";  // only "success" is one
  for (int i = 0; i < 10; ++i) {
    send("session");
  }
  EXPECT_TRUE(Quillmar::isVerificationKeyInvalid());
  EXPECT_FALSE(quillmar->state().verificationKeyValid);
  EXPECT_EQ(calls().size(), 19u) << "the tenth failure's event goes no further";
  EXPECT_TRUE(logged("error: Verification key considered invalid after 10 consecutive failures"));
  EXPECT_EQ(countLines("error: Failed to log event to server: failedToLogEvent"), 19u);
  EXPECT_EQ(printed, std::vector<std::string>(19, "Failed to log event to server: failedToLogEvent"));
  const std::size_t requests = eventNames().size();
  send("session");
  EXPECT_EQ(eventNames().size(), requests);
  EXPECT_TRUE(logged("error: Event processing skipped: verification key is considered invalid"));
  QuillmarCore::resetVerificationKeyState();
  eventBody = R"({"status":"success"})";
  send("session");
  EXPECT_EQ(calls().size(), 20u);
}

TEST_F(Pipeline, unreadableConfigurationIsTriedTwiceAnEventName) {
  configure();
  configStatus = 500;
  simulated.files->writeFile("/documents/Quillmar/quill-mar-conv-val.json", "{\"values\":[",
                             platform::WriteMode::direct);
  send("session");
  EXPECT_TRUE(logged("debug: Could not obtain conversion values. Attempt 1 for event: session"));
  EXPECT_TRUE(logged("debug: First attempt to get conversion values failed, triggering fetch..."));
  EXPECT_TRUE(logged("debug: Event processing deferred until conversion values are available: session"));
  send("session");
  EXPECT_TRUE(logged("debug: Could not obtain conversion values. Attempt 2 for event: session"));
  EXPECT_EQ(countLines("triggering fetch"), 1u);
  send("session");
  EXPECT_TRUE(logged("error: Maximum number of attempts reached for event: session. Aborting processing."));
  send("session");
  EXPECT_EQ(countLines("Attempt 1 for event: session"), 2u) << "the refusal cleared the count";
  EXPECT_TRUE(core().eventTracker()->getAllTrackedEvents().empty());
  Quillmar::setConsecutiveAPIFailures(9);
  eventStatus = 500;
  send("other");
  EXPECT_TRUE(Quillmar::isVerificationKeyInvalid());
}

TEST_F(Pipeline, disabledInFlightNeitherLogsNorCounts) {
  configure();
  Quillmar::setConsecutiveAPIFailures(3);
  defaults->set("SdkEnabled", false);
  spawn(simulated.executor, QuillmarCore::processEvent(core().weak_from_this(), "session", std::nullopt));
  settle();
  EXPECT_TRUE(logged("EventServerLogRepository - SDK is disabled by server configuration, skipping event: session"));
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 3);
  EXPECT_EQ(quillmar->statistics().logged, 0u);
}

TEST(LockWindows, highOneIsLockedByAHighValueOfItsOwn) {
  const struct {
    const char *lock, *event;
    bool locks;
  } cases[] = {{R"({"window0":{"type":"high"}})", "purchase", true},
               {R"({"window0":{"type":"high"}})", "session", false},
               {R"({"window1":{"type":"high"}})", "purchase", false},
               {R"({"window0":{"type":"time","value":0}})", "purchase", false}};
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.lock) + test.event);
    FacadeHarness host("18.1");
    host.configBody = configuration(test.lock);
    host.configure();
    host.send(test.event, {{{ASEventParam::revenue, 20}}});
    const auto calls = host.simulated.adNetwork->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].interface, "adAttributionKit");
    EXPECT_EQ(calls[0].lockWindow, test.locks);
  }
}

TEST_F(Pipeline, timedLockIsSentAgainWhenItsHoursHavePassed) {
  configBody = configuration(R"({"window0":{"type":"time","value":48},"window1":{"type":"high"},)"
                             R"("window2":{"type":"time","value":240}})");
  configure();
  send("purchase", {{{ASEventParam::revenue, 20}}});
  const std::pair<std::chrono::seconds, std::size_t> cases[] = {
      {48h - 1s, 1},
      {49h, 2},
      {days(5), 2},  // a window that locks at high is not timed
      {days(18) - 1s, 2},
      {days(18) + 1h, 3}};  // 10 days into window 2
  for (const auto& [passed, expected] : cases) {
    simulated.clock->advanceTo(startOfTests + passed);
    activate();
    EXPECT_EQ(calls().size(), expected) << passed.count();
  }
  EXPECT_THAT(calls(), ElementsAre(isCall(40, "high", false), isCall(40, "high", true), isCall(40, "high", true)));
}

TEST_F(Pipeline, missingPartIsFilledFromTheLastUpdateButDoesNotLock) {
  configBody = R"({"app_id":"a","sdk_enabled":true,"lockWindows":{"window0":{"type":"high"}},"values":[)"
               R"({"key":"A","windows":{"window0":{"coarseValue":{"value":"high","requiredEvents":[{"name":"a"}]}}}},)"
               R"({"key":"B","windows":{"window0":{"fineValue":{"value":7,"requiredEvents":[{"name":"b"}]}}}}]})";
  configure();
  send("a");
  quillmar->clearTrackedEvents();
  send("b");
  EXPECT_THAT(calls(), ElementsAre(isCall(0, "high", true), isCall(7, "high", false)));
}

}  // namespace
}  // namespace quillmar::test
