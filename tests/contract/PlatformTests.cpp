#include "quillmar/platform/Platform.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "Logging/Logger.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;

TEST(DefaultPlatformDeathTest, dataFolderIsTheUsersOwn) {
  const struct {
    const char* chosen;
    const char* data;
    const char* documents;
  } rows[] = {
      {"/chosen/./here/", "/data", "/chosen/here/documents"},
      {"/chosen/not/../here", "/data", "/chosen/here/documents"},
      {"", "/data", "/data/quillmar/documents"},
      {"", "relative", "/home/me/.local/share/quillmar/documents"},
      {"", "", "/home/me/.local/share/quillmar/documents"},
  };
  const auto exitWithFolder = [](const auto& row) {
    ::setenv("XDG_DATA_HOME", row.data, 1);
    ::setenv("HOME", "/home/me/", 1);
    ::_exit(makeDefaultPlatform({row.chosen, {}, {}}).files->documentsDirectory() == row.documents ? 42 : 1);
  };
  for (const auto& row : rows) {
    EXPECT_EXIT(exitWithFolder(row), testing::ExitedWithCode(42), "") << row.documents;
  }
}

TEST(DefaultPlatform, touchesNothingBeforeItIsUsed) {
  const test::TemporaryFolder folder;
  const Platform platform = makeDefaultPlatform({folder / "data", {}, {}});
  EXPECT_FALSE(std::filesystem::exists(folder / "data"));
  EXPECT_EQ(Bundle::main().identifier, "test_contract");
  ASSERT_FALSE(platform.userDefaults->openSuite("suite")->set("key", true));
  EXPECT_TRUE(std::filesystem::exists(folder / "data/settings/suite.sqlite"));
}

TEST(DefaultPlatform, sharedPlatformCanBeReplacedAndTakesTheLog) {
  const simulated::SimulatedPlatform simulated(Clock::TimePoint{1'795'000'000s});
  const Platform& before = sharedPlatform();
  const auto defaultClock = before.clock;
  setSharedPlatform(simulated.platform());
  EXPECT_EQ(sharedPlatform().clock, simulated.clock);
  EXPECT_EQ(before.clock, defaultClock) << "a reference that is out stays good";
  Logger::setLogLevel(LogLevel::error);
  Logger::error("line");
  Logger::setLogLevel(LogLevel::off);
  EXPECT_EQ(simulated.logSink->lines().size(), 1U);
}

TEST(InProcessNotificationCenter, observersAreCalledInOrderUntilTheyAreRemoved) {
  InProcessNotificationCenter center;
  std::string calls;
  const auto active = Notification::applicationDidBecomeActive;
  const auto token = std::make_shared<int>();
  NotificationCenter::ObserverId first = 0;
  first = center.addObserver(active, [&, token] {
    calls += 'a';
    center.removeObserver(first);
    center.addObserver(active, [&] { calls += 'c'; });
  });
  center.addObserver(active, [&] { calls += 'b'; });
  center.post(active);
  EXPECT_EQ(calls, "ab");
  center.post(active);
  EXPECT_EQ(calls, "abbc");
  center.removeObserver(first);
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace quillmar::platform
