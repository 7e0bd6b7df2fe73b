#include <gmock/gmock.h>

#include <stdexcept>

#include "Platform/Posix/SystemClock.h"
#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using namespace ::testing;
using std::chrono::days;

static_assert(eventParamFromRawValue("revenue") == ASEventParam::revenue && !eventParamFromRawValue("Revenue"));

class StartUp : public Test, protected FacadeHarness {};
class Refresh : public StartUp {};
class Reset : public StartUp {};

TEST_F(StartUp, recordsTheInstallOnceUnlessItsDateIsLostAndStoresTheConfiguration) {
  configure();
  const auto id = defaults->string("QuillmarId");
  ASSERT_TRUE(id);
  std::string file;
  EXPECT_FALSE(simulated.files->readFile("/documents/Quillmar/quill-mar-conv-val.json", file));
  EXPECT_NE(file.find("\n  \"values\": ["), std::string::npos) << "pretty-printed";

  advance(days(1));
  for (const bool isLost : {false, true}) {
    if (isLost) {
      defaults->set("QuillmarFirstRunDate", "of another type");
    }
    restart();
    configure();
    EXPECT_EQ(defaults->string("QuillmarId"), id);
    EXPECT_EQ(defaults->date("QuillmarFirstRunDate"), startOfTests + days(isLost ? 1 : 0));
  }
}

TEST_F(StartUp, mockPathConfiguresOnTheCallersThreadWithoutKeyOrFetch) {
  Quillmar::setUseMock(true);
  quillmar->configure("the-key");
  EXPECT_TRUE(quillmar->isInitialized());
  EXPECT_FALSE(quillmar->hasFetchedConversionValues());
  EXPECT_EQ(quillmar->verificationKeyRepository(), nullptr);
  activate();  // fetches, and the mock's document is no configuration response
  EXPECT_TRUE(logged("Failed to fetch conversion values: keyNotFound: \"app_id\" is missing in the document"));
  EXPECT_TRUE(simulated.http->requests().empty());
}

TEST_F(Refresh, comesFirstInAProcessAndThenAtAnActivationAfterExactlyAnHour) {
  defaults->set("LastConversionValuesFetchTimestamp", startOfTests - 1min);
  configure();
  EXPECT_EQ(configRequests(), 1u) << "whatever is stored";
  const std::pair<std::chrono::seconds, std::size_t> rows[] = {{3599s, 1}, {3600s, 2}, {-std::chrono::years(40), 2}};
  for (const auto& [since, requests] : rows) {
    simulated.clock->setNow(startOfTests + since);
    simulated.notifications->post(platform::Notification::sceneDidActivate);
    settle();
    EXPECT_EQ(configRequests(), requests) << since.count();
  }
  EXPECT_TRUE(logged("App became active but conversion values don't need refresh"));
  defaults->remove("LastConversionValuesFetchTimestamp");
  activate();
  EXPECT_EQ(configRequests(), 3u) << "a lost timestamp";
}

TEST_F(Refresh, failuresWaitFiveAndTenSecondsUntilTheThirdOrTheEndOfTheHost) {
  configStatus = 500;
  configure();
  EXPECT_TRUE(quillmar->drain(0ms)) << "a waiting fetch is not in flight";
  activate();  // during the wait
  for (const auto& [passing, expected] : {std::pair(4999ms, 1u), {1ms, 2u}, {9999ms, 2u}, {1ms, 3u}}) {
    EXPECT_TRUE(quillmar->hasFetchedConversionValues());
    advance(passing);
    EXPECT_EQ(configRequests(), expected);
  }
  EXPECT_TRUE(logged("error: Failed to fetch conversion values after 3 attempts. Last error: serverError"));
  EXPECT_FALSE(quillmar->hasFetchedConversionValues());
  configStatus = 200;
  activate();
  EXPECT_EQ(configRequests(), 4u);
  EXPECT_EQ(defaults->string("ServerAppId"), "app-1");

  configStatus = 500;
  advance(1h);
  activate();
  quillmar.reset();  // during the wait
  advance(1min);
  EXPECT_EQ(configRequests(), 5u);
}

TEST_F(Refresh, secondLoopStopsWhileTheFirstIsRetryingAndNoAttemptsKeepTheFlag) {
  configStatus = 500;
  configure();
  const auto expectOfLoop = [&](int attempts, const char* line) {
    log.clear();
    spawn(simulated.executor,
          QuillmarCore::fetchWithRetry(core().thisLife(), attempts, 5.0, Activity(std::make_shared<ActivityCounter>()),
                                       Activity(std::make_shared<ActivityCounter>())));
    settle();
    EXPECT_TRUE(logged(line)) << line;
  };
  expectOfLoop(3, "debug: Already retrying, skipping...");
  advance(1min);
  expectOfLoop(0, "error: Failed to fetch conversion values after 0 attempts. Last error: Unknown");
  expectOfLoop(3, "debug: Already retrying, skipping...");
}

TEST_F(Reset, forgetsWhatTheServiceSentAndKeepsTheInstall) {
  configure();
  configure();
  send("session");
  activate();
  EXPECT_EQ(countLines("Application did become active"), 2u) << "each configuring observes";
  Quillmar::setUseMock(true);
  Quillmar::setConsecutiveAPIFailures(4);
  SharedState::instance().setEventRetryCount(2, "x");
  quillmar->reset();
  activate();
  EXPECT_EQ(countLines("Application did become active"), 2u);
  for (const char* key :
       {"LastConversionValuesFetchTimestamp", "ServerAppId", "SdkEnabled", "com.quillmar.completedEvents"}) {
    EXPECT_FALSE(defaults->object(key)) << key;
  }
  for (const char* key : {"QuillmarFirstRunDate", "QuillmarId", "QuillmarVerificationKey", "LastWindowValue"}) {
    EXPECT_TRUE(defaults->object(key)) << key;
  }
  EXPECT_EQ(quillmar->quillmarVerificationKey(), "");
  EXPECT_EQ(quillmar->logLevel(), LogLevel::off);
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  EXPECT_EQ(SharedState::instance().getEventRetryCount("x"), 0);
  EXPECT_TRUE(Quillmar::useMock());
  EXPECT_NE(quillmar->conversionValuesRepository(), nullptr);
}

TEST_F(Reset, isFinalAtEachStepOfWhatWasBegunBefore) {
  simulated.clock = std::make_shared<simulated::ManualClock>(startOfTests);  // does not run the executor by itself
  simulated.http = std::make_shared<simulated::InMemoryHttpTransport>(
      simulated.clock, [this](const platform::HttpRequest& request) { return answer(request); });
  const auto step = [this] {
    const bool timers = simulated.clock->pendingTimers() > 0;
    return simulated.executor->runOne() || (timers && (simulated.clock->advance(5s), true));
  };
  for (const int status : {200, 500}) {
    configStatus = status;
    restart();
    int steps = 0;
    for (bool ended = false; !ended; ++steps) {
      SCOPED_TRACE(testing::Message() << status << ", after step " << steps);
      quillmar->sendEvent("session");  // parked until the configuration is there
      quillmar->configure("the-key");
      for (int done = 0; done < steps && !ended; ++done) {
        ended = !step();
      }
      const auto requests = configRequests();
      quillmar->reset();
      while (step()) {
      }
      EXPECT_EQ(configRequests(), requests);
      EXPECT_FALSE(quillmar->isInitialized() || quillmar->hasFetchedConversionValues());
      EXPECT_FALSE(defaults->object("ServerAppId"));
      EXPECT_TRUE(core().eventTracker()->getAllTrackedEvents().empty());
      EXPECT_EQ(quillmar->statistics().parked, 0u);
    }
    EXPECT_GT(steps, 10);
  }
}

TEST_F(StartUp, callsOfConfigureKeepTheirOrderOnAnExecutorThatDoesNot) {
  /// Runs what came last first, as threads may.
  struct LastFirstExecutor final : platform::Executor {
    void post(std::function<void()> work) override { waiting.push_back(std::move(work)); }
    std::vector<std::function<void()>> waiting;
  };
  const auto executor = std::make_shared<LastFirstExecutor>();
  auto platform = simulated.platform();
  platform.executor = executor;
  quillmar = QuillmarFactory::createQuillmar(platform);
  quillmar->configure("old");
  quillmar->configure("new");
  for (; !executor->waiting.empty(); settle()) {  // with the fetches
    const auto work = std::move(executor->waiting.back());
    executor->waiting.pop_back();
    work();
  }
  EXPECT_EQ(quillmar->quillmarVerificationKey(), "new");
  EXPECT_EQ(defaults->string("QuillmarVerificationKey"), "new");
}

TEST_F(StartUp, anInstanceWithoutASettingsStoreIsRefused) {
  EXPECT_EQ(QuillmarFactory::createQuillmar(nullptr, {}, simulated.platform()), nullptr);
  EXPECT_TRUE(logged("error: Quillmar - Making an instance failed: the settings store is missing"));
}

TEST_F(StartUp, instancesLeaveNoObserverBehind) {
  struct CountingCenter final : platform::NotificationCenter {
    ObserverId addObserver(platform::Notification, std::function<void()>) override { return ++observers; }
    void removeObserver(ObserverId) noexcept override { --observers; }
    ObserverId observers = 0;
  };
  const auto center = std::make_shared<CountingCenter>();
  auto platform = simulated.platform();
  platform.notifications = center;
  quillmar = QuillmarFactory::createQuillmar(platform);
  configure();
  EXPECT_EQ(center->observers, 2);
  quillmar = nullptr;
  EXPECT_EQ(center->observers, 0);
}

TEST_F(StartUp, collaboratorsThatThrowWhatIsNoExceptionOrAreTakenAwayCostTheirEventOnly) {
  struct Manager final : ConversionTrackingManagerProtocol {
    void send(const ConversionValues::ConversionValue&, Window, bool) override { throw 1; }
  };
  struct LogRepository final : EventServerLogRepositoryProtocol {
    void logEvent(std::string name, Completion) override {
      if (name == "session") {
        throw 2;
      }
      throw std::runtime_error("two\nlines");
    }
  };
  configure();
  const auto values = quillmar->conversionValuesRepository();
  const auto log = quillmar->eventServerLogRepository();
  const auto manager = quillmar->conversionTrackingManager();
  quillmar->setEventServerLogRepository(nullptr);
  send("session");
  quillmar->setEventServerLogRepository(std::make_shared<LogRepository>());
  send("session");
  EXPECT_TRUE(logged("error: Failed to log event to server: an error that is no std::exception"));
  EXPECT_EQ(calls().size(), 2u) << "what is not logged counts all the same";
  send("other");
  EXPECT_EQ(printed.back(), "Failed to log event to server: two\\nlines");
  quillmar->setEventServerLogRepository(log);
  quillmar->setConversionTrackingManager(std::make_shared<Manager>());
  send("session");
  EXPECT_EQ(calls().size(), 3u) << "nobody tells the platform";
  quillmar->setConversionTrackingManager(manager);
  quillmar->setConversionValuesRepository(nullptr);
  send("purchase");
  EXPECT_TRUE(logged("Could not obtain conversion values. Attempt 1 for event: purchase"));
  quillmar->setConversionValuesRepository(values);
  simulated.http->setService([](const platform::HttpRequest&) -> simulated::InMemoryAnswer { throw 3; });
  advance(2h);
  activate();
  EXPECT_TRUE(logged("error: Failed to fetch conversion values: an error that is no std::exception. Attempt: 1"));
  send("session");
  EXPECT_EQ(calls().size(), 4u) << "all is as before";
  EXPECT_TRUE(quillmar->drain(std::chrono::milliseconds::max()));
}

/// In a hurry: what takes 5 s takes 5 ms.
struct HastyClock final : platform::SystemClock {
  using SystemClock::SystemClock;
  TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) override {
    return SystemClock::after(delay / 1000, std::move(callback));
  }
};

TEST_F(StartUp, hostLearnsWhetherAllWasDelivered) {
  int requests = 0;
  const auto pool = std::make_shared<platform::ThreadPoolExecutor>(1);
  auto platform = simulated.platform();
  platform.executor = pool;
  platform.clock = std::make_shared<HastyClock>(pool);
  platform.http =
      std::make_shared<simulated::InMemoryHttpTransport>(platform.clock, [&](const platform::HttpRequest& request) {
        configStatus = ++requests == 1 ? 503 : 200;
        eventStatus = requests == 3 ? 200 : 503;
        return answer(request);
      });
  quillmar = QuillmarFactory::createQuillmar(platform);
  quillmar->sendEvent("session");
  EXPECT_FALSE(quillmar->waitUntilDelivered(std::chrono::hours(1))) << "nothing will come of it: at once";
  quillmar->configure("the-key");
  EXPECT_TRUE(quillmar->waitUntilDelivered(std::chrono::hours(1))) << "with the second attempt to fetch";
  quillmar->sendEvent("refused");
  EXPECT_FALSE(quillmar->waitUntilDelivered(std::chrono::milliseconds::max()));
  quillmar = nullptr;
}

TEST(Shared, instancesAreIndependentButShareTheCounters) {
  FacadeHarness first;
  const auto second = QuillmarFactory::createQuillmar(std::make_shared<simulated::InMemoryUserDefaults>(), {},
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

// How days are counted where clocks change is tested with the calendar.
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
