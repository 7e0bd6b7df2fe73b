#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

TEST(Reset, forgetsWhatTheServiceSentAndKeepsTheInstall) {
  FacadeHarness host;
  host.configure();
  host.send("session");
  Quillmar::setUseMock(true);
  Quillmar::setConsecutiveAPIFailures(4);
  SharedState::instance().setEventRetryCount(2, "x");
  host.quillmar->reset();
  host.settle();
  for (const char* key :
       {"LastConversionValuesFetchTimestamp", "ServerAppId", "SdkEnabled", "com.quillmar.completedEvents"}) {
    EXPECT_FALSE(host.defaults->object(key)) << key;
  }
  for (const char* key : {"QuillmarFirstRunDate", "QuillmarId", "QuillmarVerificationKey", "LastWindowValue"}) {
    EXPECT_TRUE(host.defaults->object(key)) << key;
  }
  EXPECT_FALSE(host.quillmar->isInitialized());
  EXPECT_FALSE(host.quillmar->hasFetchedConversionValues());
  EXPECT_EQ(host.quillmar->quillmarVerificationKey(), "");
  EXPECT_EQ(host.quillmar->logLevel(), LogLevel::off);
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  EXPECT_EQ(SharedState::instance().getEventRetryCount("x"), 0);
  EXPECT_TRUE(Quillmar::useMock());
  EXPECT_NE(host.quillmar->conversionValuesRepository(), nullptr);
  EXPECT_TRUE(host.logged("debug: Quillmar - SDK state reset"));
}

TEST(Reset, emptiesTheParkedEventsAndTheLibraryStartsAgain) {
  FacadeHarness host;
  host.configStatus = 500;
  host.configure();
  host.send("parked");
  host.quillmar->reset();
  host.settle();
  EXPECT_EQ(host.quillmar->statistics().parked, 0u);
  host.configStatus = 200;
  host.quillmar->setLogLevel(LogLevel::info);
  host.configure();
  host.send("session");
  EXPECT_EQ(host.eventNames(), std::vector<std::string>{"session"});

  host.core().resetConfigurationState();
  host.send("parked again");
  EXPECT_EQ(host.quillmar->statistics().parked, 1u);
  host.core().markConfigurationAsLoaded();
  host.settle();
  EXPECT_EQ(host.eventNames().back(), "parked again");
}

TEST(Reset, withRequestsInFlightIsHarmless) {
  FacadeHarness host;
  host.configure();
  host.delay = 1s;
  host.quillmar->sendEvent("session");
  host.advance(2h);
  host.simulated.notifications->post(platform::Notification::applicationDidBecomeActive);
  host.quillmar->sendEvent("session");
  host.settle();
  host.quillmar->reset();
  host.advance(1min);
  EXPECT_TRUE(host.quillmar->drain(0ms));
}

TEST(Shared, instancesAreIndependentButShareTheCounters) {
  FacadeHarness first;
  auto second = QuillmarFactory::createQuillmar(std::make_shared<simulated::InMemoryUserDefaults>(), {},
                                                first.simulated.platform());
  first.configure();
  EXPECT_FALSE(second->isInitialized());
  first.eventStatus = 500;
  first.send("session");
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 1);
  second->reset();
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  static_assert(Quillmar::maxConsecutiveFailures == 10);

  platform::setSharedPlatform(first.simulated.platform());
  Quillmar::setShared(nullptr);
  EXPECT_EQ(Quillmar::shared(), Quillmar::shared());
  Quillmar::setShared(second);
  EXPECT_EQ(Quillmar::shared(), second);
  Quillmar::setShared(nullptr);
}

TEST(EventParam, rawValuesMatchExactly) {
  EXPECT_EQ(eventParamFromRawValue("revenue"), ASEventParam::revenue);
  for (const char* other : {"Revenue", "REVENUE", "", "revenue "}) {
    EXPECT_FALSE(eventParamFromRawValue(other)) << other;
  }
  EXPECT_EQ(parameters({{ASEventParam::revenue, 3}}), (NamedParameters{{"revenue", 3}}));
  EXPECT_FALSE(logLevelFromRawValue(4));
  EXPECT_FALSE(logLevelFromRawValue(-1));
  EXPECT_EQ(logLevelFromRawValue(3), LogLevel::info);
}

}  // namespace
}  // namespace quillmar::test
