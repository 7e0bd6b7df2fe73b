#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;

class StartUp : public ::testing::Test, protected FacadeHarness {};
class Reset : public StartUp {};

TEST_F(StartUp, firstConfigurationRecordsTheInstallOnceAndStoresTheKey) {
  configure();
  const auto id = defaults->string("QuillmarId");
  ASSERT_TRUE(id);
  EXPECT_EQ(id->size(), 36u);
  EXPECT_EQ(defaults->date("QuillmarFirstRunDate"), startOfTests);
  EXPECT_EQ(defaults->string("QuillmarVerificationKey"), "the-key");
  EXPECT_TRUE(quillmar->isInitialized());
  EXPECT_TRUE(logged("info: First run date saved: 2026-01-01 00:00:00 +0000"));

  advance(days(1));
  restart();
  configure();
  EXPECT_EQ(defaults->string("QuillmarId"), id);
  EXPECT_EQ(defaults->date("QuillmarFirstRunDate"), startOfTests);
  EXPECT_TRUE(logged("info: First run date: 2026-01-01 00:00:00 +0000. Days since first run: 1."));

  defaults->set("QuillmarFirstRunDate", "of another type");
  restart();
  configure();
  EXPECT_EQ(defaults->string("QuillmarId"), id);
  EXPECT_EQ(defaults->date("QuillmarFirstRunDate"), startOfTests + days(1));
}

TEST(DayLimits, ofTheTwoPathsDifferOnPurpose) {
  const struct {
    bool mock;
    int daysAgo;
    bool starts;
    const char* line;
  } cases[] = {
      {false, 37, true, "Days since first run: 37."},
      {false, 38, false, "SDK not initialized. More than 37 days have passed since the first run."},
      {true, 35, true, "Less than 35 days since first run. Continuing with initialization."},
      {true, 36, false, "More than 35 days have passed since first run. SDK will not be initialized."},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.line);
    FacadeHarness host;
    Quillmar::setUseMock(test.mock);
    host.defaults->set("QuillmarFirstRunDate", startOfTests - days(test.daysAgo));
    host.configure();
    EXPECT_EQ(host.quillmar->isInitialized(), test.starts);
    EXPECT_TRUE(host.logged(test.line));
    EXPECT_EQ(host.quillmar->conversionValuesRepository() != nullptr, test.starts);
    EXPECT_EQ(host.logged("Quillmar initialized with appId: the-key"), test.starts);
    EXPECT_EQ(host.configRequests(), test.starts && !test.mock ? 1u : 0u);
  }
}

TEST_F(StartUp, mockPathConfiguresOnTheCallersThreadWithoutKeyOrFetch) {
  Quillmar::setUseMock(true);
  quillmar->configure("the-key");
  EXPECT_TRUE(quillmar->isInitialized());
  EXPECT_FALSE(quillmar->hasFetchedConversionValues());
  EXPECT_EQ(quillmar->verificationKeyRepository(), nullptr);
  EXPECT_FALSE(logged("Starting configuration"));
  activate();  // its first activation fetches, and the mock's document is no configuration response
  EXPECT_TRUE(logged("Failed to fetch conversion values: keyNotFound: \"app_id\" is missing in the document"));
  EXPECT_TRUE(simulated.http->requests().empty());
}

TEST_F(StartUp, requestsCarryTheKeyAndGoToThePlatformsService) {
  auto platform = simulated.platform();
  platform.serviceUrl = "https://staging.example";
  quillmar = QuillmarFactory::createQuillmar(platform);
  configure();
  send("session");
  const auto requests = simulated.http->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].url, "https://staging.example/ios/config");
  EXPECT_EQ(requests[1].url, "https://staging.example/ios/events");
  for (const auto& request : requests) {
    EXPECT_EQ(request.headers.at("Authorization"), "the-key");
  }
  EXPECT_NE(requests[1].body.find("\"app_id\":\"app-1\""), std::string::npos);
}

TEST_F(StartUp, configuringTwiceObservesTwiceAndResetRemovesBoth) {
  configure();
  configure();
  activate();
  EXPECT_EQ(countLines("Application did become active"), 2u);
  quillmar->reset();
  log.clear();
  activate();
  EXPECT_FALSE(logged("Application did become active"));
}

TEST_F(Reset, forgetsWhatTheServiceSentAndKeepsTheInstall) {
  configure();
  send("session");
  Quillmar::setUseMock(true);
  Quillmar::setConsecutiveAPIFailures(4);
  SharedState::instance().setEventRetryCount(2, "x");
  quillmar->reset();
  settle();
  for (const char* key :
       {"LastConversionValuesFetchTimestamp", "ServerAppId", "SdkEnabled", "com.quillmar.completedEvents"}) {
    EXPECT_FALSE(defaults->object(key)) << key;
  }
  for (const char* key : {"QuillmarFirstRunDate", "QuillmarId", "QuillmarVerificationKey", "LastWindowValue"}) {
    EXPECT_TRUE(defaults->object(key)) << key;
  }
  EXPECT_FALSE(quillmar->isInitialized());
  EXPECT_FALSE(quillmar->hasFetchedConversionValues());
  EXPECT_EQ(quillmar->quillmarVerificationKey(), "");
  EXPECT_EQ(quillmar->logLevel(), LogLevel::off);
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  EXPECT_EQ(SharedState::instance().getEventRetryCount("x"), 0);
  EXPECT_TRUE(Quillmar::useMock());
  EXPECT_NE(quillmar->conversionValuesRepository(), nullptr);
  EXPECT_TRUE(logged("debug: Quillmar - SDK state reset"));
}

TEST_F(Reset, emptiesTheParkedEventsAndTheLibraryStartsAgain) {
  configStatus = 500;
  configure();
  send("parked");
  quillmar->reset();
  settle();
  EXPECT_EQ(quillmar->statistics().parked, 0u);
  configStatus = 200;
  quillmar->setLogLevel(LogLevel::info);
  configure();
  send("session");
  EXPECT_EQ(eventNames(), std::vector<std::string>{"session"});

  core().resetConfigurationState();
  send("parked again");
  EXPECT_EQ(quillmar->statistics().parked, 1u);
  core().markConfigurationAsLoaded();
  settle();
  EXPECT_EQ(eventNames().back(), "parked again");
}

TEST_F(Reset, withRequestsInFlightIsHarmless) {
  configure();
  delay = 1s;
  quillmar->sendEvent("session");
  advance(2h);
  simulated.notifications->post(platform::Notification::applicationDidBecomeActive);
  quillmar->sendEvent("session");
  settle();
  quillmar->reset();
  advance(1min);
  EXPECT_TRUE(quillmar->drain(0ms));
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
}

}  // namespace
}  // namespace quillmar::test
