#include "quillmar/platform/Platform.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Logging/Logger.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::SimulatedPlatform;
using testing::HasSubstr;

const Clock::TimePoint start{1'795'000'000s};

TEST(DefaultPlatformDeathTest, dataFolderIsTheUsersOwn) {
  const struct {
    const char* chosen;
    const char* data;
    const char* documents;
  } rows[] = {
      {"/chosen/./here/", "/data", "/chosen/here/documents"},
      {"/chosen/not/../here", "/data", "/chosen/here/documents"},
      {"/.chosen/h..ere", "/data", "/.chosen/h..ere/documents"},
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

TEST(DefaultPlatform, isWholeAndTouchesNothingBeforeItIsUsed) {
  const test::TemporaryFolder folder;
  const Platform platform = makeDefaultPlatform({folder / "data", {}, {}});
  EXPECT_TRUE(platform.executor && platform.clock && platform.http && platform.files && platform.userDefaults &&
              platform.storeKitAdNetwork && platform.adAttributionKit && platform.device && platform.notifications &&
              platform.logSink);
  EXPECT_FALSE(std::filesystem::exists(folder / "data"));
  EXPECT_EQ(Bundle::main().identifier, "test_contract");
  ASSERT_FALSE(platform.userDefaults->openSuite("suite")->set("key", true));
  EXPECT_TRUE(std::filesystem::exists(folder / "data/settings/suite.sqlite"));
}

TEST(DefaultPlatform, sharedPlatformCanBeReplacedAndTakesTheLog) {
  const SimulatedPlatform simulated(start);
  const Platform& before = sharedPlatform();
  const auto defaultClock = before.clock;
  setSharedPlatform(simulated.platform());
  EXPECT_EQ(sharedPlatform().clock, simulated.clock);
  EXPECT_EQ(before.clock, defaultClock) << "a reference that is out stays good";

  const test::TemporaryFolder folder;
  std::ofstream(folder / "data") << "in the way";
  Logger::setLogLevel(LogLevel::error);
  EXPECT_EQ(makeDefaultPlatform({folder / "data", {}, {}}).userDefaults->openSuite("suite"), nullptr);
  Logger::setLogLevel(LogLevel::off);
  ASSERT_EQ(simulated.logSink->lines().size(), 1U);
  EXPECT_THAT(simulated.logSink->lines()[0].text, HasSubstr("UserDefaults - The settings folder " + (folder / "data")));
}

TEST(InProcessNotificationCenter, observersAreCalledInOrderUntilTheyAreRemoved) {
  InProcessNotificationCenter center;
  std::string calls;
  NotificationCenter::ObserverId second = 0;
  const auto active = Notification::applicationDidBecomeActive;
  const auto token = std::make_shared<int>();
  const auto first = center.addObserver(active, [&, token] { calls += 'a'; });
  second = center.addObserver(active, [&] {
    calls += 'b';
    center.removeObserver(second);
    center.addObserver(active, [&] { calls += 'd'; });
  });
  center.post(active);
  EXPECT_EQ(calls, "ab");
  center.post(active);
  EXPECT_EQ(calls, "abad");
  center.removeObserver(first);
  center.removeObserver(first);
  EXPECT_EQ(token.use_count(), 1);
  center.post(active);
  EXPECT_EQ(calls, "abadd");
}

}  // namespace
}  // namespace quillmar::platform
