#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Logging/Log.h"
#include "Platform/Curl/CurlHttpTransport.h"
#include "Platform/Linux/HostDevice.h"
#include "Platform/Linux/NoAttributionToken.h"
#include "Platform/NoAdAttributionKit.h"
#include "Platform/NoStoreKitAdNetwork.h"
#include "Platform/Posix/PosixFileManager.h"
#include "Platform/Posix/StderrLogSink.h"
#include "Platform/Posix/SystemClock.h"
#include "Platform/Posix/ThreadPoolExecutor.h"
#include "Platform/Sqlite/SqliteUserDefaultsProvider.h"
#include "quillmar/platform/Bundle.h"
#include "quillmar/platform/InProcessNotificationCenter.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/platform/Platform.h"

// Chooses the adapters. For another system, CMake takes another file that defines these two functions.

namespace quillmar::platform {

namespace {

/// Empty in a program that runs with more rights than whoever started it.
std::string environment(const char* name) {
  const char* value = ::secure_getenv(name);
  return value != nullptr ? value : "";
}

/// The first of the two that is set.
std::string environment(const char* name, const char* otherwise) {
  const std::string value = environment(name);
  return value.empty() ? environment(otherwise) : value;
}

/// The home folder of the user's account, for a process whose environment does not name it.
std::string homeOfAccount() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  const int result = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return result == 0 && found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

/// Whether std::filesystem would leave the path as it is.
bool isAbsoluteAndNormal(const std::string& path) {
  const std::string closed = path + "/";
  return path.starts_with('/') && closed.find("//") == std::string::npos && closed.find("/./") == std::string::npos &&
         closed.find("/../") == std::string::npos;
}

/// The folder of the library, absolute and without a trailing "/"; empty when there is none. The first call of a host
/// comes through here: the usual path stays clear of std::filesystem, whose pages and symbols cost 30 µs when it is
/// touched for the first time.
std::string dataFolder(const std::string& chosen) {
  std::string folder = chosen;
  if (folder.empty()) {
    if (const std::string data = environment("XDG_DATA_HOME"); data.starts_with('/')) {
      folder = data + "/quillmar";
    } else {
      std::string home = environment("HOME");
      if (!home.starts_with('/')) {
        home = homeOfAccount();
      }
      if (!home.starts_with('/')) {
        return "";
      }
      folder = home + "/.local/share/quillmar";
    }
  }
  if (!isAbsoluteAndNormal(folder)) {
    std::error_code failure;
    folder = std::filesystem::absolute(folder, failure).lexically_normal().string();
    while (!folder.empty() && folder.back() == '/') {
      folder.pop_back();
    }
  }
  return folder;
}

}  // namespace

Platform makeDefaultPlatform(const DefaultPlatformOptions& options) {
  const std::string folder = dataFolder(options.dataDirectory);
  // One thread: an event's way is one queue anyway, and going back and forth between two costs more than it gains.
  const auto executor = std::make_shared<ThreadPoolExecutor>(1);
  CurlHttpTransportOptions http;
  http.caFile = options.caFile;
  http.proxy = options.proxy;
  if (http.proxy.empty() && options.proxyFromEnvironment) {
    http.proxy = environment("https_proxy", "HTTPS_PROXY");
    http.noProxy = environment("no_proxy", "NO_PROXY");
  }
  http.maxBodyBytes = options.maxAnswerBytes;
  http.maxConnections = options.maxConnections;

  Platform platform;
  platform.executor = executor;
  platform.clock = std::make_shared<SystemClock>(executor);
  platform.http = std::make_shared<CurlHttpTransport>(std::move(http));
  platform.files =
      std::make_shared<PosixFileManager>(folder.empty() ? std::nullopt : std::optional(folder + "/documents"));
  platform.userDefaults = std::make_shared<SqliteUserDefaultsProvider>(
      folder.empty() ? std::string() : folder + "/settings",
      [](std::string_view text) { Log::error("UserDefaults - {}", text); });
  platform.storeKitAdNetwork = std::make_shared<NoStoreKitAdNetwork>();
  platform.adAttributionKit = std::make_shared<NoAdAttributionKit>();
  platform.device = std::make_shared<HostDevice>();
  platform.notifications = std::make_shared<InProcessNotificationCenter>();
  platform.logSink = std::make_shared<StderrLogSink>();
  platform.serviceUrl = options.serviceUrl;
  platform.attributionToken = std::make_shared<NoAttributionToken>();
  platform.subscriptionUpdates = std::make_shared<InProcessSubscriptionUpdates>();  // nobody posts any
  platform.attributionUrl = options.attributionUrl;
  return platform;
}

Bundle Bundle::main() {
  // The path that the program was started by: it costs nothing, where the first look into /proc costs 30 µs.
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel hands an address over as a number.
  const auto* const path = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
  const std::string_view executable = path != nullptr ? path : "";
  const std::string name(executable.substr(executable.rfind('/') + 1));
  return {name, name};
}

}  // namespace quillmar::platform
