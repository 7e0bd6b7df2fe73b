#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

TEST(Refresh, firstFetchOfAProcessIgnoresTheStoredTimestamp) {
  FacadeHarness host;
  host.defaults->set("LastConversionValuesFetchTimestamp", startOfTests - 1min);
  host.configure();
  EXPECT_EQ(host.configRequests(), 1u);
  EXPECT_TRUE(host.logged("debug: First fetch in this session, proceeding..."));
}

TEST(Refresh, activationFetchesAgainAfterExactlyAnHour) {
  FacadeHarness host;
  host.configure();
  host.advance(3599s);
  host.activate();
  EXPECT_EQ(host.configRequests(), 1u);
  EXPECT_TRUE(host.logged("debug: Time since last fetch: 3599s (threshold: 3600s), should refresh: false"));
  EXPECT_TRUE(host.logged("debug: App became active but conversion values don't need refresh"));
  host.advance(1s);
  host.simulated.notifications->post(platform::Notification::sceneDidActivate);
  host.settle();
  EXPECT_EQ(host.configRequests(), 2u);
  EXPECT_TRUE(host.logged("info: Scene did activate"));
  EXPECT_TRUE(host.logged("debug: Saved last fetch timestamp: 2026-01-01 01:00:00 +0000"));
}

TEST(Refresh, clockSetBackDoesNotRefreshAndLostTimestampDoes) {
  FacadeHarness host;
  host.configure();
  host.simulated.clock->setNow(startOfTests - std::chrono::years(40));
  host.activate();
  EXPECT_EQ(host.configRequests(), 1u);
  host.defaults->remove("LastConversionValuesFetchTimestamp");
  host.activate();
  EXPECT_EQ(host.configRequests(), 2u);
}

TEST(Refresh, threeFailuresWaitFiveAndTenSecondsAndGiveUp) {
  FacadeHarness host;
  host.configStatus = 500;
  host.configure();
  EXPECT_EQ(host.configRequests(), 1u);
  EXPECT_TRUE(host.quillmar->drain(0ms)) << "a waiting fetch is not in flight";
  host.activate();  // during the wait
  EXPECT_TRUE(host.logged("debug: Fetch already in progress, skipping..."));
  host.advance(4999ms);
  EXPECT_EQ(host.configRequests(), 1u);
  host.advance(1ms);
  EXPECT_EQ(host.configRequests(), 2u);
  host.advance(9999ms);
  EXPECT_EQ(host.configRequests(), 2u);
  EXPECT_TRUE(host.quillmar->hasFetchedConversionValues());
  host.advance(1ms);
  EXPECT_EQ(host.configRequests(), 3u);
  for (const char* attempt : {"1", "2", "3"}) {
    EXPECT_TRUE(host.logged(std::string("error: Failed to fetch conversion values: serverError. Attempt: ") + attempt));
  }
  EXPECT_TRUE(host.logged("error: Failed to fetch conversion values after 3 attempts. Last error: serverError"));
  EXPECT_FALSE(host.quillmar->hasFetchedConversionValues());
  host.configStatus = 200;
  host.activate();
  EXPECT_EQ(host.configRequests(), 4u);
  EXPECT_EQ(host.defaults->string("ServerAppId"), "app-1");
}

TEST(Refresh, secondLoopStopsWhileTheFirstIsRetryingAndNoAttemptsKeepTheFlag) {
  FacadeHarness host;
  host.configStatus = 500;
  host.configure();
  auto counter = std::make_shared<ActivityCounter>();
  const auto loop = [&](int attempts) {
    spawn(host.simulated.executor,
          QuillmarCore::fetchWithRetry(host.core().weak_from_this(), attempts, 5.0, Activity(counter)));
    host.settle();
  };
  loop(3);
  EXPECT_TRUE(host.logged("debug: Already retrying, skipping..."));
  host.advance(1min);
  loop(0);
  EXPECT_TRUE(host.logged("error: Failed to fetch conversion values after 0 attempts. Last error: Unknown"));
  host.log.clear();
  loop(3);
  EXPECT_TRUE(host.logged("Already retrying")) << "the loop without attempts leaves the flag set";
}

TEST(Refresh, badAnswersLeaveTheStoredConfigurationAlone) {
  FacadeHarness host;
  host.configure();
  const auto stored = [&host] {
    std::string content;
    EXPECT_FALSE(host.simulated.files->readFile("/documents/Quillmar/quill-mar-conv-val.json", content));
    return content;
  };
  const std::string before = stored();
  EXPECT_NE(before.find("\n  \"values\": ["), std::string::npos) << "pretty-printed";
  struct Case {
    int status;
    const char* body;
    const char* error;
  };
  const Case cases[] = {
      {200, "<html>Sign in to the network</html>", "dataCorrupted: not valid JSON at line 1, column 1: syntax error"},
      {200, "", "dataCorrupted: not valid JSON at line 1, column 1: the document is empty"},
      {204, "", "dataCorrupted"},
      {200, R"({"app_id":"x","sdk_enabled":"yes"})", "typeMismatch: sdk_enabled: expected a Boolean, found a string"},
      {302, "", "unexpectedStatusCode"},
      {401, "", "invalidRequest"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.error);
    host.advance(2h);
    host.configStatus = test.status;
    host.configBody = test.body;
    host.activate();
    host.advance(15s);
    EXPECT_EQ(host.countLines(std::string("error: Failed to fetch conversion values: ") + test.error), 3u);
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(host.defaults->string("ServerAppId"), "app-1");
    host.log.clear();
  }
}

TEST(Refresh, hostThatIsGoneMakesNoFurtherAttempt) {
  FacadeHarness host;
  host.configStatus = 500;
  host.configure();
  host.quillmar.reset();
  host.advance(1min);
  EXPECT_EQ(host.configRequests(), 1u);
}

}  // namespace
}  // namespace quillmar::test
