#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class Intake : public ::testing::Test, protected FacadeHarness {};

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
  EXPECT_TRUE(simulated.adNetwork->calls().empty());
}

}  // namespace
}  // namespace quillmar::test
