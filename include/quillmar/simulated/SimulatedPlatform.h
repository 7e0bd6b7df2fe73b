#pragma once

#include <memory>
#include <string>

#include "quillmar/platform/InProcessNotificationCenter.h"
#include "quillmar/platform/Platform.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/InMemorySubscriptionUpdates.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "quillmar/simulated/RecordingLogSink.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"

namespace quillmar::simulated {

/// A whole platform in memory, on a clock and an executor that are moved by hand: deterministic, and a life of 36 days
/// takes milliseconds. The members may be replaced before `platform()` is called.
struct SimulatedPlatform {
  explicit SimulatedPlatform(platform::Clock::TimePoint start, std::string systemVersion = "17.4",
                             InMemoryHttpTransport::Service service = nullptr);

  /// The bundle to make a `Quillmar` with.
  platform::Platform platform() const;

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
  std::shared_ptr<InMemorySubscriptionUpdates> subscriptionUpdates;
};

}  // namespace quillmar::simulated
