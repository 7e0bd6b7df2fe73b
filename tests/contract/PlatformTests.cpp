#include "quillmar/platform/Platform.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include "Logging/Log.h"
#include "Platform/PlatformMembers.h"
#include "Platform/Posix/StderrLogSink.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedPlatform.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;

TEST(DefaultPlatform, dataFolderIsTheUsersOwn) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"/chosen/./here/", "/data", "/chosen/here/documents"},
      {"/chosen/not/../here", "/data", "/chosen/here/documents"},
      {"", "/data", "/data/quillmar/documents"},
      {"", "relative", "/home/me/.local/share/quillmar/documents"},
      {"", "", "/home/me/.local/share/quillmar/documents"},
  };
  for (const auto& [chosen, data, documents] : rows) {
    ::setenv("XDG_DATA_HOME", data, 1);
    ::setenv("HOME", "/home/me/", 1);
    EXPECT_EQ(makeDefaultPlatform({chosen, {}, {}, {}}).files->documentsDirectory(), documents);
  }
}

TEST(DefaultPlatform, sharedPlatformCanBeReplacedAndTakesTheLog) {
  const simulated::SimulatedPlatform simulated(Clock::TimePoint{1'795'000'000s});
  const Platform& before = sharedPlatform();
  const auto defaultClock = before.clock;
  setSharedPlatform(simulated.platform());
  EXPECT_EQ(sharedPlatform().clock, simulated.clock);
  EXPECT_EQ(before.clock, defaultClock) << "a reference that is out stays good";
  Log::setLogLevel(LogLevel::error);
  Log::error("line");
  Log::setLogLevel(LogLevel::off);
  EXPECT_EQ(simulated.logSink->lines().size(), 1U);
}

TEST(InProcessNotificationCenter, observersAreCalledInOrderUntilTheyAreRemoved) {
  InProcessNotificationCenter center;
  std::string calls;
  const auto active = Notification::applicationDidBecomeActive;
  // What an observer owns may call the centre when it is destroyed.
  std::shared_ptr<void> owned(nullptr, [&](void*) { center.removeObserver(0); });
  const std::weak_ptr<void> isOwned = owned;
  NotificationCenter::ObserverId first = 0;
  NotificationCenter::ObserverId second = 0;
  first = center.addObserver(active, [&, token = std::move(owned)] {
    calls += 'a';
    center.removeObserver(first);
    center.removeObserver(second);
    EXPECT_FALSE(isOwned.expired()) << "it is still running";
    center.addObserver(active, [&] { calls += 'd'; });
  });
  second = center.addObserver(active, [&] { calls += 'b'; });
  center.addObserver(Notification::sceneDidActivate, [&] { calls += 'x'; });
  center.addObserver(active, [&] { calls += 'c'; });
  center.post(active);
  EXPECT_EQ(calls, "ac");
  EXPECT_TRUE(isOwned.expired());
  center.post(active);
  EXPECT_EQ(calls, "accd");
}

// A signal that waited for its turn would end the process after the call.
TEST(StderrLogSink, aPipeThatNobodyReadsCostsTheLineOnly) {
  int ends[2]{};
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  StderrLogSink(ends[1]).write("", "", LogSeverity::error, "line");
  ::close(ends[1]);
}

TEST(PlatformMembers, whatIsMissingIsNamed) {
  const simulated::SimulatedPlatform simulated(Clock::TimePoint{});
  const Platform whole = simulated.platform();
  Platform platform;
  std::string missing;
  const auto fillIn = [&](auto... members) {
    ((missing += std::string(missingMember(platform).value_or("-")) + " ", platform.*members = whole.*members), ...);
  };
  fillIn(&Platform::executor, &Platform::clock, &Platform::http, &Platform::files, &Platform::userDefaults,
         &Platform::storeKitAdNetwork, &Platform::adAttributionKit, &Platform::device, &Platform::notifications,
         &Platform::logSink, &Platform::attributionToken, &Platform::subscriptionUpdates);
  EXPECT_EQ(missing,
            "executor clock http files userDefaults storeKitAdNetwork adAttributionKit device notifications logSink "
            "attributionToken subscriptionUpdates ");
  EXPECT_EQ(missingMember(platform), std::nullopt) << "the rest may be left out";
}

TEST(PlatformMembers, originsEndWithoutASlash) {
  EXPECT_EQ(originOf("", "https://built.in/"), "https://built.in");
  EXPECT_EQ(originOf("https://host:8443/path//", "https://built.in"), "https://host:8443/path");
}

TEST(SimulatedPlatform, nothingIsLeftOfATestThatEndsInTheMiddle) {
  for (const int status : {500, 0}) {  // a fetch that waits for its next attempt, and a request without an answer
    SCOPED_TRACE(status);
    std::optional<simulated::SimulatedPlatform> simulated(
        std::in_place, Clock::TimePoint{1s}, "17.4",
        [status](const auto&) { return simulated::InMemoryAnswer{{{}, "", status, "{}"}, 0s, status == 0}; });
    auto goesFirst = QuillmarFactory::createQuillmar(simulated->platform());
    auto goesLast = QuillmarFactory::createQuillmarASAAttribution(simulated->platform());
    const std::weak_ptr<void> seams[] = {simulated->executor, simulated->clock, simulated->http,
                                         simulated->subscriptionUpdates};
    goesFirst->configure("the-key");
    simulated->settle();
    EXPECT_EQ(simulated->clock->pendingTimers(), 1U);
    goesLast->enableASAAttributionTracking();
    simulated->settle();
    EXPECT_EQ(simulated->subscriptionUpdates->listeners(), 1U);
    goesFirst->configure("posts work");
    goesFirst.reset();
    simulated.reset();
    goesLast->disableASAAttributionTracking();  // nobody will run what this posts
    goesLast.reset();
    for (const auto& seam : seams) {
      EXPECT_TRUE(seam.expired()) << &seam - seams;
    }
  }
}

}  // namespace
}  // namespace quillmar::platform
