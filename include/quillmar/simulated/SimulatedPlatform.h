#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "quillmar/platform/InProcessNotificationCenter.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/platform/Platform.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "quillmar/simulated/RecordingLogSink.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"

namespace quillmar::simulated {

/// A whole platform in memory, on a clock and an executor that are moved by hand: deterministic, and a life of 36 days
/// takes milliseconds. The members may be replaced before `platform()` is called.
///
/// Null for `service` is one that works: it answers requests for the configuration as `setConfiguration` says, takes
/// every event, and knows an attribution. Its first configuration is that of an app "simulated-app" without rules.
struct SimulatedPlatform {
  /// `start` is what the clock shows, `systemVersion` the device's system, which decides on the ad network's interface.
  explicit SimulatedPlatform(platform::Clock::TimePoint start, std::string systemVersion = "17.4",
                             InMemoryHttpTransport::Service service = nullptr);

  /// Drops what is posted, and what waits for the clock or an answer: a test may end in the middle of anything. Nothing
  /// runs any more in an instance that is still there.
  ~SimulatedPlatform();

  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;

  /// The bundle to make a `Quillmar` with.
  platform::Platform platform() const;

  /// Puts the working service in place, with this answer to `GET /ios/config`, for example
  /// `{"app_id":"my-app","sdk_enabled":true,"values":[...],"lockWindows":{}}`.
  void setConfiguration(std::string json);

  /// Runs everything that can run now, on the calling thread. No time passes.
  void settle();

  /// Lets the time pass, and everything run that comes due.
  void advance(std::chrono::nanoseconds by);

  std::shared_ptr<ManualExecutor> executor;
  std::shared_ptr<ManualClock> clock;
  std::shared_ptr<InMemoryHttpTransport> http;
  std::shared_ptr<InMemoryFileManager> files;
  std::shared_ptr<InMemoryUserDefaultsProvider> userDefaults;
  std::shared_ptr<SimulatedDevice> device;
  std::shared_ptr<SimulatedAdNetwork> adNetwork;
  std::shared_ptr<platform::InProcessNotificationCenter> notifications;
  std::shared_ptr<RecordingLogSink> logSink;
  std::shared_ptr<SimulatedAttributionToken> attributionToken;
  std::shared_ptr<platform::InProcessSubscriptionUpdates> subscriptionUpdates;
};

}  // namespace quillmar::simulated
