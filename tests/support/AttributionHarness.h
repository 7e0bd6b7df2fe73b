#pragma once

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Attribution/QuillmarASAAttributionCore.h"
#include "Settings/MockSwitch.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/QuillmarASAAttribution.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/LogCapture.h"

namespace quillmar::test {

inline const std::string attributionFile = "/documents/asa_attribution_data.json";

inline platform::SubscriptionStatusUpdate subscriptionUpdate(std::uint64_t identifier) {
  platform::SubscriptionStatusUpdate update;
  update.transaction = {identifier, R"({"transactionId":")" + std::to_string(identifier) + "\"}", std::nullopt};
  update.renewalInfo = {R"({"autoRenewStatus":1})", std::nullopt};
  update.renewalState = 1;
  return update;
}

/// A host on a simulated platform, configured before, with both services in the same process.
class AttributionHarness {
 public:
  AttributionHarness()
      : simulated(platform::Clock::TimePoint{}, "17.4",
                  [this](const platform::HttpRequest& request) { return answer(request); }),
        log(LogLevel::info),
        defaults(quillMarDefaults(simulated.userDefaults)) {
    MockSwitch::set(false);
    defaults->set("QuillmarVerificationKey", "the-key");
    attribution = QuillmarFactory::createQuillmarASAAttribution(simulated.platform());
  }
  ~AttributionHarness() {
    attribution.reset();
    settle();  // the listener ends; what waits in the executor would keep it alive
    MockSwitch::set(false);
  }

  void enable() {
    attribution->enableASAAttributionTracking();
    settle();
  }
  void disable() {
    attribution->disableASAAttributionTracking();
    settle();
  }
  void post(const platform::SubscriptionStatusUpdate& update) {
    simulated.subscriptionUpdates->post(update);
    settle();
  }

  /// Runs all that can run now.
  void settle() { simulated.clock->advance(std::chrono::nanoseconds(0)); }
  void advance(std::chrono::nanoseconds by) { simulated.clock->advance(by); }
  bool isIdle() { return attribution->drain(std::chrono::milliseconds(0)); }

  void writeFile(const std::string& content) {
    simulated.files->createDirectory("/documents");
    simulated.files->writeFile(attributionFile, content, platform::WriteMode::direct);
  }
  std::string readFile() const {
    std::string content = "no file";
    simulated.files->readFile(attributionFile, content);
    return content;
  }

  /// The log lines whose message begins with one of the prefixes, with their severities.
  std::vector<std::string> linesOf(std::initializer_list<std::string_view> prefixes) const {
    std::vector<std::string> lines = log.messages();
    std::erase_if(lines, [&prefixes](const std::string& line) {
      const std::string_view message = std::string_view(line).substr(line.find(": ") + 2);
      return std::none_of(prefixes.begin(), prefixes.end(), [&](auto prefix) { return message.starts_with(prefix); });
    });
    return lines;
  }
  std::vector<std::string> attributionLines() const { return linesOf({"ASA", "Apple", "Failed", "Successfully"}); }
  std::vector<std::string> listenerLines() const { return linesOf({"QuillmarASAAttribution", "PurchaseInterceptor"}); }

  /// The bodies of the purchases that the service was sent, in order.
  std::vector<std::string> purchases() const {
    std::vector<std::string> bodies;
    for (const auto& request : simulated.http->requests()) {
      if (request.url.ends_with("/ios/events")) {
        bodies.push_back(request.body);
      }
    }
    return bodies;
  }

  // What the services answer.
  int attributionStatus = 200;
  std::string attributionBody = R"({"attribution":true,"campaignId":"12","unknown":1})";
  int eventStatus = 200;
  std::string eventBody = R"({"status":"success"})";
  std::chrono::nanoseconds delay{0};

  simulated::SimulatedPlatform simulated;
  LogCapture log;
  std::shared_ptr<platform::UserDefaults> defaults;
  std::shared_ptr<QuillmarASAAttribution> attribution;

 private:
  simulated::InMemoryAnswer answer(const platform::HttpRequest& request) const {
    const bool isEvent = request.url.ends_with("/ios/events");
    simulated::InMemoryAnswer answer;
    answer.result.statusCode = isEvent ? eventStatus : attributionStatus;
    answer.result.body = isEvent ? eventBody : attributionBody;
    answer.delay = delay;
    return answer;
  }
};

}  // namespace quillmar::test
