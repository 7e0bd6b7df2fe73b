#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

class Refresh : public ::testing::Test, protected FacadeHarness {};

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
  advance(4999ms);
  EXPECT_EQ(configRequests(), 1u);
  advance(1ms);
  EXPECT_EQ(configRequests(), 2u);
  advance(9999ms);
  EXPECT_EQ(configRequests(), 2u);
  EXPECT_TRUE(quillmar->hasFetchedConversionValues());
  advance(1ms);
  EXPECT_EQ(configRequests(), 3u);
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

}  // namespace
}  // namespace quillmar::test
