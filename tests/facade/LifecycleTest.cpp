#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;

class StartUp : public ::testing::Test, protected FacadeHarness {};
class Refresh : public StartUp {};
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

TEST_F(Refresh, comesFirstInAProcessAndThenAtAnActivationAfterExactlyAnHour) {
  defaults->set("LastConversionValuesFetchTimestamp", startOfTests - 1min);
  configure();
  EXPECT_EQ(configRequests(), 1u) << "whatever is stored";
  EXPECT_TRUE(logged("debug: First fetch in this session, proceeding..."));
  advance(3599s);
  activate();
  EXPECT_EQ(configRequests(), 1u);
  EXPECT_TRUE(logged("debug: Time since last fetch: 3599s (threshold: 3600s), should refresh: false"));
  EXPECT_TRUE(logged("debug: App became active but conversion values don't need refresh"));
  advance(1s);
  simulated.notifications->post(platform::Notification::sceneDidActivate);
  settle();
  EXPECT_EQ(configRequests(), 2u);
  EXPECT_TRUE(logged("info: Scene did activate"));
  EXPECT_TRUE(logged("debug: Saved last fetch timestamp: 2026-01-01 01:00:00 +0000"));
  simulated.clock->setNow(startOfTests - std::chrono::years(40));
  activate();
  EXPECT_EQ(configRequests(), 2u) << "a clock that was set back";
  defaults->remove("LastConversionValuesFetchTimestamp");
  activate();
  EXPECT_EQ(configRequests(), 3u) << "a lost timestamp";
}

TEST_F(Refresh, threeFailuresWaitFiveAndTenSecondsAndGiveUp) {
  configStatus = 500;
  configure();
  EXPECT_EQ(configRequests(), 1u);
  EXPECT_TRUE(quillmar->drain(0ms)) << "a waiting fetch is not in flight";
  activate();  // during the wait
  EXPECT_TRUE(logged("debug: Fetch already in progress, skipping..."));
  for (const auto& [passing, expected] : {std::pair(4999ms, 1u), {1ms, 2u}, {9999ms, 2u}, {1ms, 3u}}) {
    EXPECT_TRUE(quillmar->hasFetchedConversionValues());
    advance(passing);
    EXPECT_EQ(configRequests(), expected);
  }
  for (const char* attempt : {"1", "2", "3"}) {
    EXPECT_TRUE(logged(std::string("error: Failed to fetch conversion values: serverError. Attempt: ") + attempt));
  }
  EXPECT_TRUE(logged("error: Failed to fetch conversion values after 3 attempts. Last error: serverError"));
  EXPECT_FALSE(quillmar->hasFetchedConversionValues());
  configStatus = 200;
  activate();
  EXPECT_EQ(configRequests(), 4u);
  EXPECT_EQ(defaults->string("ServerAppId"), "app-1");
}

TEST_F(Refresh, secondLoopStopsWhileTheFirstIsRetryingAndNoAttemptsKeepTheFlag) {
  configStatus = 500;
  configure();
  auto counter = std::make_shared<ActivityCounter>();
  const auto loop = [&](int attempts) {
    spawn(simulated.executor, QuillmarCore::fetchWithRetry(core().weak_from_this(), attempts, 5.0, Activity(counter)));
    settle();
  };
  loop(3);
  EXPECT_TRUE(logged("debug: Already retrying, skipping..."));
  advance(1min);
  loop(0);
  EXPECT_TRUE(logged("error: Failed to fetch conversion values after 0 attempts. Last error: Unknown"));
  log.clear();
  loop(3);
  EXPECT_TRUE(logged("Already retrying")) << "the loop without attempts leaves the flag set";
}

TEST_F(Refresh, badAnswersLeaveTheStoredConfigurationAlone) {
  configure();
  const auto stored = [this] {
    std::string content;
    EXPECT_FALSE(simulated.files->readFile("/documents/Quillmar/quill-mar-conv-val.json", content));
    return content;
  };
  const std::string before = stored();
  EXPECT_NE(before.find("\n  \"values\": ["), std::string::npos) << "pretty-printed";
  const struct {
    int status;
    const char *body, *error;
  } cases[] = {
      {200, "<html>Sign in to the network</html>", "dataCorrupted: not valid JSON at line 1, column 1: syntax error"},
      {200, "", "dataCorrupted: not valid JSON at line 1, column 1: the document is empty"},
      {204, "", "dataCorrupted"},
      {200, R"({"app_id":"x","sdk_enabled":"yes"})", "typeMismatch: sdk_enabled: expected a Boolean, found a string"},
      {302, "", "unexpectedStatusCode"},
      {401, "", "invalidRequest"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.error);
    advance(2h);
    configStatus = test.status;
    configBody = test.body;
    activate();
    advance(15s);
    EXPECT_EQ(countLines(std::string("error: Failed to fetch conversion values: ") + test.error), 3u);
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(defaults->string("ServerAppId"), "app-1");
    log.clear();
  }
}

TEST_F(Refresh, hostThatIsGoneMakesNoFurtherAttempt) {
  configStatus = 500;
  configure();
  quillmar.reset();
  advance(1min);
  EXPECT_EQ(configRequests(), 1u);
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
}

TEST_F(StartUp, collaboratorsCanBeReplacedAndTakenAway) {
  configure();
  const auto values = quillmar->conversionValuesRepository();
  const auto log = quillmar->eventServerLogRepository();
  const auto manager = quillmar->conversionTrackingManager();
  ASSERT_TRUE(values && log && manager && quillmar->verificationKeyRepository());
  quillmar->setEventServerLogRepository(nullptr);
  send("session");
  EXPECT_THAT(eventNames(), testing::IsEmpty()) << "nobody logs it";
  EXPECT_EQ(simulated.adNetwork->calls().size(), 1u) << "but it counts";
  quillmar->setEventServerLogRepository(log);
  quillmar->setConversionTrackingManager(nullptr);
  send("session");
  EXPECT_EQ(eventNames().size(), 1u);
  EXPECT_EQ(simulated.adNetwork->calls().size(), 1u) << "nobody tells the platform";
  quillmar->setConversionTrackingManager(manager);
  quillmar->setConversionValuesRepository(nullptr);
  quillmar->setVerificationKeyRepository(nullptr);
  send("purchase");
  EXPECT_TRUE(logged("Could not obtain conversion values. Attempt 1 for event: purchase"));
  EXPECT_FALSE(core().eventTracker()->areEventsCompleted({"purchase"}));
  quillmar->setConversionValuesRepository(values);
  send("session");
  EXPECT_EQ(simulated.adNetwork->calls().size(), 2u) << "all is as before";
}

}  // namespace
}  // namespace quillmar::test
