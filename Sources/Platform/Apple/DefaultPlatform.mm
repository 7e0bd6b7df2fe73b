#import <Foundation/Foundation.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Logging/Log.h"
#include "Platform/Apple/AdServicesToken.h"
#include "Platform/Apple/AppleFileManager.h"
#include "Platform/Apple/DispatchClock.h"
#include "Platform/Apple/DispatchExecutor.h"
#include "Platform/Apple/FirstUnlock.h"
#include "Platform/Apple/FoundationDevice.h"
#include "Platform/Apple/FoundationNotificationCenter.h"
#include "Platform/Apple/FoundationUserDefaultsProvider.h"
#include "Platform/Apple/HeldExecutor.h"
#include "Platform/Apple/NoHttpTransport.h"
#include "Platform/Apple/OsLogSink.h"
#include "Platform/Apple/SKAdNetworkAdapter.h"
#include "Platform/Apple/Strong.h"
#include "Platform/NoAdAttributionKit.h"
#include "quillmar/platform/Bundle.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/platform/Platform.h"

namespace quillmar::platform {

// Three seams speak to interfaces that only Swift has: URL sessions as the library wants them, AdAttributionKit and the
// subscription updates of StoreKit 2. The app replaces these members with adapters of its own. Until then requests
// fail, postbacks of AdAttributionKit are dropped and no updates come.
Platform makeDefaultPlatform(const DefaultPlatformOptions& options) {
  std::optional<std::string> documents = appDocumentsFolder();
  std::string support = appSupportFolder();
  if (!options.dataDirectory.empty()) {
    documents = options.dataDirectory + "/documents";
    support = options.dataDirectory;
  }
  const std::string folder = support.empty() ? std::string() : support + "/Quillmar";
  const auto clock = std::make_shared<DispatchClock>();
  const auto unlock = std::make_shared<FirstUnlock>(folder);
  const auto unlocked = [unlock] { return unlock->hasHappened(); };
  // Nothing of the library runs before the first unlock, so nothing takes the app for a new one.
  const auto executor = std::make_shared<HeldExecutor>(DispatchExecutor::utility(), clock, unlocked);

  Platform platform;
  platform.executor = executor;
  platform.mainExecutor = DispatchExecutor::main();
  platform.clock = clock;
  platform.http = std::make_shared<NoHttpTransport>(executor);
  platform.files = std::make_shared<AppleFileManager>(documents);
  platform.userDefaults = std::make_shared<FoundationUserDefaultsProvider>(
      folder.empty() ? std::string() : folder + "/settings",
      [](std::string_view text) { Log::error("UserDefaults - {}", text); }, unlocked);
  platform.storeKitAdNetwork = std::make_shared<SKAdNetworkAdapter>();
  platform.adAttributionKit = std::make_shared<NoAdAttributionKit>();
  platform.device = std::make_shared<FoundationDevice>();
  platform.notifications = std::make_shared<FoundationNotificationCenter>();
  platform.logSink = std::make_shared<OsLogSink>();
  platform.serviceUrl = options.serviceUrl;
  platform.attributionToken = std::make_shared<AdServicesToken>();
  platform.subscriptionUpdates = std::make_shared<InProcessSubscriptionUpdates>();
  platform.attributionUrl = options.attributionUrl;
  return platform;
}

Bundle Bundle::main() {
  @autoreleasepool {
    NSBundle* const app = [NSBundle mainBundle];
    const auto text = [app](NSString* key) {
      id value = [app objectForInfoDictionaryKey:key];
      return [value isKindOfClass:[NSString class]] ? utf8(value).value_or("") : std::string();
    };
    return {utf8(app.bundleIdentifier).value_or(""), text(@"CFBundleName"), text(@"CFBundleShortVersionString")};
  }
}

}  // namespace quillmar::platform
