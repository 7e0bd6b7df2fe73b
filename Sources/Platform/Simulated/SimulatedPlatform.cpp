#include "quillmar/simulated/SimulatedPlatform.h"

#include <utility>

namespace quillmar::simulated {

SimulatedPlatform::SimulatedPlatform(platform::Clock::TimePoint start, std::string systemVersion,
                                     InMemoryHttpTransport::Service service)
    : executor(std::make_shared<ManualExecutor>()),
      clock(std::make_shared<ManualClock>(start, executor)),
      http(std::make_shared<InMemoryHttpTransport>(clock, std::move(service))),
      files(std::make_shared<InMemoryFileManager>()),
      userDefaults(std::make_shared<InMemoryUserDefaultsProvider>()),
      device(std::make_shared<SimulatedDevice>(std::move(systemVersion))),
      adNetwork(std::make_shared<SimulatedAdNetwork>(clock, device)),
      notifications(std::make_shared<platform::InProcessNotificationCenter>()),
      logSink(std::make_shared<RecordingLogSink>()),
      attributionToken(std::make_shared<SimulatedAttributionToken>()),
      subscriptionUpdates(std::make_shared<InMemorySubscriptionUpdates>()) {}

platform::Platform SimulatedPlatform::platform() const {
  platform::Platform bundle;
  bundle.executor = executor;
  bundle.clock = clock;
  bundle.http = http;
  bundle.files = files;
  bundle.userDefaults = userDefaults;
  bundle.storeKitAdNetwork = adNetwork;
  bundle.adAttributionKit = adNetwork;
  bundle.device = device;
  bundle.notifications = notifications;
  bundle.logSink = logSink;
  bundle.attributionToken = attributionToken;
  bundle.subscriptionUpdates = subscriptionUpdates;
  return bundle;
}

}  // namespace quillmar::simulated
