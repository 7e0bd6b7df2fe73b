#include "quillmar/platform/Platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Logging/Logger.h"
#include "Platform/Posix/StderrLogSink.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::InMemoryAnswer;
using simulated::InMemoryHttpTransport;
using simulated::SimulatedPlatform;
using testing::ElementsAre;
using testing::HasSubstr;

const Clock::TimePoint start{1'795'000'000s};

/// Sets a variable of the environment, or removes it, for one scope.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = ::getenv(name)) {
      old_ = old;
    }
    assign(value);
  }
  ~EnvironmentVariable() { assign(old_); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  void assign(const std::optional<std::string>& value) {
    value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
  }

  const char* name_;
  std::optional<std::string> old_;
};

TEST(DefaultPlatform, dataFolderIsTheUsersOwn) {
  const struct {
    const char* chosen;
    std::optional<std::string> data, home;
    const char* documents;
  } rows[] = {
      {"/chosen/./here/", "/data", "/home/me", "/chosen/here/documents"},
      {"", "/data", "/home/me", "/data/quillmar/documents"},
      {"", "relative", "/home/me", "/home/me/.local/share/quillmar/documents"},
      {"", std::nullopt, "/home/me/", "/home/me/.local/share/quillmar/documents"},
  };
  for (const auto& row : rows) {
    const EnvironmentVariable data("XDG_DATA_HOME", row.data);
    const EnvironmentVariable home("HOME", row.home);
    EXPECT_EQ(makeDefaultPlatform({row.chosen, {}, {}}).files->documentsDirectory(), row.documents);
  }
}

TEST(DefaultPlatform, isWholeAndTouchesNothingBeforeItIsUsed) {
  const test::TemporaryFolder folder;
  DefaultPlatformOptions options;
  options.dataDirectory = folder / "data";
  options.serviceUrl = "http://127.0.0.1:1";
  const Platform platform = makeDefaultPlatform(options);
  EXPECT_TRUE(platform.executor && platform.clock && platform.http && platform.files && platform.userDefaults &&
              platform.storeKitAdNetwork && platform.adAttributionKit && platform.device && platform.notifications &&
              platform.logSink);
  EXPECT_EQ(platform.serviceUrl, options.serviceUrl);
  EXPECT_FALSE(std::filesystem::exists(folder / "data"));
  ASSERT_FALSE(platform.userDefaults->openSuite("suite")->set("key", true));
  EXPECT_TRUE(std::filesystem::exists(folder / "data/settings/suite.sqlite"));
  // The ad networks that are not there never answer.
  const AdNetworkCompletion unexpected = [](const std::optional<PlatformError>&) { ADD_FAILURE(); };
  platform.storeKitAdNetwork->updatePostbackConversionValue(1, unexpected);
  platform.storeKitAdNetwork->updatePostbackConversionValue(1, SKAdNetworkCoarseConversionValue::low, true, unexpected);
  platform.adAttributionKit->updateConversionValue({1, true, std::nullopt}, unexpected);
  EXPECT_EQ(platform.device->systemVersion(), "0");
}

TEST(DefaultPlatform, sharedPlatformCanBeReplacedAndTakesTheLog) {
  const SimulatedPlatform simulated(start);
  const Platform& before = sharedPlatform();
  EXPECT_EQ(&before, &sharedPlatform());
  const auto defaultClock = before.clock;
  setSharedPlatform(simulated.platform());
  EXPECT_EQ(sharedPlatform().clock, simulated.clock);
  EXPECT_EQ(before.clock, defaultClock) << "a reference that is out stays good";

  const test::TemporaryFolder folder;
  std::ofstream(folder / "data") << "in the way";
  const LogLevel level = Logger::logLevel();
  Logger::setLogLevel(LogLevel::error);
  EXPECT_EQ(makeDefaultPlatform({folder / "data", {}, {}}).userDefaults->openSuite("suite"), nullptr);
  Logger::setLogLevel(level);
  ASSERT_EQ(simulated.logSink->lines().size(), 1U);
  EXPECT_THAT(simulated.logSink->lines()[0].text, HasSubstr("UserDefaults - The settings folder " + (folder / "data")));
  EXPECT_EQ(simulated.logSink->lines()[0].severity, LogSeverity::error);
}

TEST(Bundle, mainIsTheExecutable) {
  EXPECT_EQ(Bundle::main().identifier, "test_contract");
}

TEST(StderrLogSink, writesLinesInOnePiece) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  StderrLogSink sink(ends[1]);
  const std::string lines[] = {"a % {} \xff", std::string(3000, 'b')};
  std::vector<std::thread> threads;
  for (const std::string& line : lines) {
    threads.emplace_back([&] {
      for (int i = 0; i < 5; ++i) {
        sink.write("subsystem", "category", LogSeverity::info, line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  ::close(ends[1]);
  std::string all(100'000, '\0');
  std::size_t size = 0;
  for (ssize_t count = 1; count > 0; size += static_cast<std::size_t>(count)) {
    count = ::read(ends[0], all.data() + size, all.size() - size);
    ASSERT_GE(count, 0);
  }
  ::close(ends[0]);
  std::istringstream stream(all.substr(0, size));
  std::vector<std::string> seen;
  for (std::string line; std::getline(stream, line);) {
    seen.push_back(line);
  }
  std::vector<std::string> expected(5, lines[0]);
  expected.insert(expected.end(), 5, lines[1]);
  EXPECT_THAT(seen, testing::UnorderedElementsAreArray(expected));
}

TEST(InProcessNotificationCenter, observersAreCalledInOrderUntilTheyAreRemoved) {
  InProcessNotificationCenter center;
  std::string calls;
  NotificationCenter::ObserverId second = 0;
  const auto active = Notification::applicationDidBecomeActive;
  center.addObserver(active, [&] { calls += 'a'; });
  second = center.addObserver(active, [&] {
    calls += 'b';
    center.removeObserver(second);
    center.addObserver(active, [&] { calls += 'd'; });
  });
  const auto token = std::make_shared<int>();
  const auto scene = center.addObserver(Notification::sceneDidActivate, [&calls, token] { calls += 'c'; });
  center.post(active);
  EXPECT_EQ(calls, "ab");
  center.post(active);
  EXPECT_EQ(calls, "abad");
  center.post(Notification::sceneDidActivate);
  EXPECT_EQ(calls, "abadc");
  center.removeObserver(scene);
  center.removeObserver(scene);
  EXPECT_EQ(token.use_count(), 1);
  center.post(Notification::sceneDidActivate);
  EXPECT_EQ(calls, "abadc");
}

TEST(SimulatedAdNetwork, namesTheInterfaceOfEachCall) {
  const SimulatedPlatform simulated(start);
  const Platform platform = simulated.platform();
  std::vector<std::string> completions;
  const AdNetworkCompletion completion = [&](const std::optional<PlatformError>& error) {
    completions.push_back(error ? error->localizedDescription : "success");
  };
  platform.storeKitAdNetwork->registerAppForAdNetworkAttribution();
  platform.storeKitAdNetwork->updateConversionValue(1);
  for (const char* version : {"9.3", "16", "16.0.9", "16.1", "16.10", "17.0.1", "x"}) {
    simulated.device->setSystemVersion(version);
    platform.storeKitAdNetwork->updatePostbackConversionValue(2, completion);
  }
  simulated.clock->advance(5s);
  simulated.adNetwork->setError("refused");
  platform.storeKitAdNetwork->updatePostbackConversionValue(3, SKAdNetworkCoarseConversionValue::medium, true,
                                                            completion);
  platform.adAttributionKit->updateConversionValue({4, false, AttributionKitCoarseValue::high}, completion);
  platform.adAttributionKit->updateConversionValue({5, true, std::nullopt}, nullptr);

  std::vector<std::string> calls;
  for (const auto& call : simulated.adNetwork->calls()) {
    calls.push_back(call.interface + " " + (call.fineValue ? std::to_string(*call.fineValue) : "-") + " " +
                    call.coarseValue.value_or("-") + " " + (call.lockWindow ? (*call.lockWindow ? "yes" : "no") : "-") +
                    " " + std::to_string((call.at - start) / 1s));
  }
  EXPECT_THAT(calls, ElementsAre("registration - - - 0", "skAdNetwork2 1 - - 0", "skAdNetwork3 2 - - 0",
                                 "skAdNetwork3 2 - - 0", "skAdNetwork3 2 - - 0", "skAdNetwork4WithoutCoarse 2 - - 0",
                                 "skAdNetwork4WithoutCoarse 2 - - 0", "skAdNetwork4WithoutCoarse 2 - - 0",
                                 "skAdNetwork3 2 - - 0", "skAdNetwork4 3 medium yes 5", "adAttributionKit 4 high no 5",
                                 "adAttributionKit 5 - yes 5"));
  EXPECT_EQ(completions.size(), 9U);
  EXPECT_THAT(std::vector(completions.end() - 3, completions.end()), ElementsAre("success", "refused", "refused"));
}

TEST(InMemoryHttpTransport, answersAfterTheirDelayOrTimesOut) {
  SimulatedPlatform simulated(start, "17.4", [](const HttpRequest& request) {
    InMemoryAnswer answer;
    answer.result.statusCode = 200;
    answer.result.body = request.body;
    answer.delay = std::chrono::seconds(request.body.size());
    answer.never = request.method == "NEVER";
    return answer;
  });
  std::vector<std::string> ends;
  const auto start3 = [&](const char* method, const char* body, const char* url = "https://host/path") {
    return simulated.http->start({url, method, {}, body, 3s, {}}, [&ends, method](const HttpResult& result) {
      ends.push_back(std::string(method) + " " + result.body + (result.error ? result.error.message() : result.url));
    });
  };
  start3("POST", "ab");
  start3("POST", "abcd");
  start3("NEVER", "");
  start3("GET", "");
  start3("NONE", "", "");
  const auto cancelled = start3("CANCELLED", "abc");
  EXPECT_THAT(ends, ElementsAre()) << "not inside start()";
  simulated.clock->advance(0s);
  EXPECT_THAT(ends, ElementsAre("GET https://host/path", "NONE The URL's scheme is not supported."));
  ends.clear();
  simulated.http->cancel(cancelled);
  simulated.http->cancel(cancelled);
  simulated.http->cancel(4711);
  simulated.clock->advance(10s);
  EXPECT_THAT(ends, ElementsAre("CANCELLED The request was cancelled.", "POST abhttps://host/path",
                                "POST The request timed out.", "NEVER The request timed out."));
  EXPECT_EQ(simulated.http->requests().size(), 6U);
  EXPECT_EQ(simulated.clock->pendingTimers(), 0U);
}

TEST(InMemoryHttpTransport, destroyedTransportDestroysItsCompletions) {
  SimulatedPlatform simulated(start);
  const auto token = std::make_shared<int>();
  HttpRequest request;
  request.url = "https://host";
  int status = 0;
  simulated.http->start(request, [&](const HttpResult& result) { status = result.statusCode.value_or(0); });
  simulated.clock->advance(0s);
  EXPECT_EQ(status, 404) << "nobody plays the service";
  simulated.http->start(request, [token](const HttpResult&) { FAIL(); });
  EXPECT_EQ(token.use_count(), 2);
  simulated.http.reset();
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(simulated.clock->pendingTimers(), 0U);
}

}  // namespace
}  // namespace quillmar::platform
