#include "quillmar/simulated/SimulatedPlatform.h"

#include <string_view>
#include <utility>

namespace quillmar::simulated {

namespace {

constexpr const char* configurationWithoutRules =
    R"({"app_id":"simulated-app","sdk_enabled":true,"values":[],"lockWindows":{}})";
constexpr const char* attributionRecord =
    R"({"attribution":true,"orgId":"1","campaignId":"2","adGroupId":"3","conversionType":"Download"})";

InMemoryHttpTransport::Service workingService(std::string configuration) {
  return [configuration = std::move(configuration)](const platform::HttpRequest& request) {
    const auto asksFor = [&request](std::string_view method, std::string_view path) {
      return request.method == method && request.url.ends_with(path);
    };
    InMemoryAnswer answer;
    answer.result.statusCode = 200;
    if (asksFor("GET", "/ios/config")) {
      answer.result.body = configuration;
    } else if (asksFor("POST", "/ios/events")) {
      answer.result.body = R"({"status":"success"})";
    } else if (asksFor("POST", "/api/v1")) {
      answer.result.body = attributionRecord;
    } else {
      answer.result.statusCode = 404;
    }
    return answer;
  };
}

}  // namespace

SimulatedPlatform::SimulatedPlatform(platform::Clock::TimePoint start, std::string systemVersion,
                                     InMemoryHttpTransport::Service service)
    : executor(std::make_shared<ManualExecutor>()),
      clock(std::make_shared<ManualClock>(start, executor)),
      http(std::make_shared<InMemoryHttpTransport>(
          clock, service ? std::move(service) : workingService(configurationWithoutRules))),
      files(std::make_shared<InMemoryFileManager>()),
      userDefaults(std::make_shared<InMemoryUserDefaultsProvider>()),
      device(std::make_shared<SimulatedDevice>(std::move(systemVersion))),
      adNetwork(std::make_shared<SimulatedAdNetwork>(clock, device)),
      notifications(std::make_shared<platform::InProcessNotificationCenter>()),
      logSink(std::make_shared<RecordingLogSink>()),
      attributionToken(std::make_shared<SimulatedAttributionToken>()),
      subscriptionUpdates(std::make_shared<platform::InProcessSubscriptionUpdates>()) {}

SimulatedPlatform::~SimulatedPlatform() {
  // The executor first: what is dropped afterwards may post once more.
  executor->shutDown();
  clock->cancelAll();
  http->dropUnanswered();
}

void SimulatedPlatform::setConfiguration(std::string json) {
  http->setService(workingService(std::move(json)));
}

void SimulatedPlatform::settle() {
  advance(std::chrono::nanoseconds(0));
}

void SimulatedPlatform::advance(std::chrono::nanoseconds by) {
  clock->advance(by);
}

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
