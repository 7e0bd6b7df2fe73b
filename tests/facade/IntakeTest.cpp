#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(Intake, eventsBeforeTheConfigurationAreReplayedInTheirOrder) {
  FacadeHarness host;
  host.configStatus = 503;
  host.configure();
  for (const char* event : {"a", "b", "a", "c"}) {
    host.quillmar->sendEvent(event);
  }
  host.settle();
  EXPECT_TRUE(host.eventNames().empty());
  EXPECT_EQ(host.quillmar->statistics().parked, 4u);
  EXPECT_TRUE(host.logged("debug: Configuration not ready - isConfigLoaded: false, hasAppId: false"));
  EXPECT_TRUE(host.logged("debug: Event processing deferred - adding to pending queue: c"));
  EXPECT_TRUE(host.logged("debug: Event added to pending queue. Total pending: 4"));
  host.configStatus = 200;
  host.advance(5s);
  EXPECT_THAT(host.eventNames(), ElementsAre("a", "b", "a", "c"));
  EXPECT_TRUE(host.logged("debug: Processing 4 pending events"));
  EXPECT_EQ(host.countLines("debug: Processing deferred event: "), 4u);
  EXPECT_EQ(host.quillmar->statistics().parked, 0u);
  EXPECT_EQ(host.quillmar->statistics().logged, 4u);
}

TEST(Intake, eventThatIsParkedAsTheConfigurationArrivesIsNotLeftBehind) {
  FacadeHarness host;
  host.defaults->set("ServerAppId", "app-1");
  host.quillmar->sendEvent("late");
  // One step before the parked event reaches the list, another thread's drain has already passed.
  host.simulated.executor->runOne();
  while (!host.logged("deferred - adding to pending queue: late") && host.simulated.executor->runOne()) {
  }
  host.core().markConfigurationAsLoaded();
  host.settle();
  EXPECT_EQ(host.quillmar->statistics().parked, 0u);
  EXPECT_TRUE(host.logged("Processing deferred event: late"));
}

TEST(Intake, disabledLibraryDropsEvents) {
  FacadeHarness host;
  host.configBody = configuration("{}", false);
  host.configure();
  host.send("session");
  EXPECT_TRUE(host.logged("debug: SDK enabled status: false"));
  EXPECT_TRUE(host.logged("debug: SDK is disabled by server configuration, skipping event: session"));
  EXPECT_TRUE(host.eventNames().empty());
  EXPECT_EQ(host.quillmar->statistics().dropped, 1u);
  EXPECT_EQ(host.quillmar->statistics().parked, 0u);
}

TEST(Intake, parametersAreNamedAndBadTextIsMended) {
  FacadeHarness host;
  host.configure();
  host.send("purchase", {{{ASEventParam::revenue, 9.99}}});
  EXPECT_TRUE(host.logged("debug: Sending event: purchase with params: [\"revenue\": 9.99]"));
  const std::string bad("x\xC3(\xED\xA0\x80\0y", 8);
  host.send(bad, {{{ASEventParam::revenue, std::string("\xFF"
                                                       "1")}}});
  EXPECT_TRUE(host.logged("Sending event: x\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"));
  host.send("");
  host.send(std::string(1 << 20, 'n'));
  EXPECT_TRUE(host.logged("Sending event:  with params: [:]"));
  const auto tracked = host.core().eventTracker()->getAllTrackedEvents();
  ASSERT_EQ(tracked.size(), 4u);
  EXPECT_EQ(tracked[0].parameters.at("revenue"), 9.99);
  EXPECT_TRUE(tracked[1].parameters.empty());
  EXPECT_EQ(tracked[3].name.size(), std::size_t{1} << 20);
  EXPECT_EQ(host.quillmar->statistics().logged, 4u);
}

TEST(Intake, burstKeepsFewRequestsInFlightAndLogsAll) {
  FacadeHarness host;
  host.configure();
  host.delay = 1s;
  for (int i = 0; i < 500; ++i) {
    host.quillmar->sendEvent("session");
  }
  host.settle();
  EXPECT_LE(host.eventNames().size(), 64u);
  EXPECT_FALSE(host.quillmar->drain(0ms));
  host.advance(20s);
  EXPECT_EQ(host.eventNames().size(), 500u);
  EXPECT_EQ(host.quillmar->statistics().logged, 500u);
  EXPECT_TRUE(host.quillmar->drain(0ms));
}

TEST(Intake, eventsOfAHostThatIsGoneAreDropped) {
  FacadeHarness host;
  host.configure();
  host.delay = 1s;
  host.quillmar->sendEvent("in flight");
  host.settle();
  host.quillmar->sendEvent("queued");
  host.quillmar.reset();
  host.advance(5s);
  EXPECT_THAT(host.eventNames(), ElementsAre("in flight"));
  EXPECT_TRUE(host.simulated.adNetwork->calls().empty());
}

}  // namespace
}  // namespace quillmar::test
