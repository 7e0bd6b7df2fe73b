#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Facade/QuillmarCore.h"
#include "Settings/Config.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/LogCapture.h"

namespace quillmar::test {

inline const platform::Clock::TimePoint startOfTests = std::chrono::sys_days{std::chrono::year(2026) / 1 / 1};

/// A configuration in which each window has a "Session" rule and a "Purchase" rule that wants a revenue of 10 to 50.
inline std::string configuration(const std::string& lockWindows = "{}", bool enabled = true) {
  const std::string windowValue = R"({"fineValue":{"value":FINE,"requiredEvents":[{"name":"EVENT" BOUNDS}]},)"
                                  R"("coarseValue":{"value":"COARSE","requiredEvents":[{"name":"EVENT" BOUNDS}]}})";
  const auto rule = [&](const char* key, const char* fine, const char* coarse, const char* event, const char* bounds) {
    std::string value = windowValue;
    for (const auto& [from, to] : {std::pair("FINE", fine), {"COARSE", coarse}, {"EVENT", event}, {"BOUNDS", bounds}}) {
      for (auto at = value.find(from); at != std::string::npos; at = value.find(from)) {
        value.replace(at, std::string(from).size(), to);
      }
    }
    return R"({"key":")" + std::string(key) + R"(","windows":{"window0":)" + value + R"(,"window1":)" + value +
           R"(,"window2":)" + value + "}}";
  };
  return R"({"app_id":"app-1","sdk_enabled":)" + std::string(enabled ? "true" : "false") + R"(,"values":[)" +
         rule("Purchase", "40", "high", "purchase", R"(,"revenueMin":10,"revenueMax":50)") + "," +
         rule("Session", "1", "low", "session", "") + R"(],"lockWindows":)" + lockWindows + "}";
}

/// A host on a simulated platform, with a service in the same process. Time goes only by `advance`.
class FacadeHarness {
 public:
  explicit FacadeHarness(std::string systemVersion = "17.4")
      : simulated(startOfTests, std::move(systemVersion),
                  [this](const platform::HttpRequest& request) { return answer(request); }),
        log(LogLevel::info, simulated.clock),
        defaults(quillMarDefaults(simulated.userDefaults)) {
    Quillmar::resetStaticState();
    Quillmar::setUseMock(false);
    restart();
  }
  ~FacadeHarness() {
    Quillmar::resetStaticState();
    Quillmar::setUseMock(false);
  }

  /// A new process on the same settings and files.
  void restart() {
    auto platform = simulated.platform();
    platform.standardOutput = [this](std::string_view line) { printed.emplace_back(line); };
    quillmar = QuillmarFactory::createQuillmar(platform);
    quillmar->setLogLevel(LogLevel::info);
  }

  void configure() {
    quillmar->configure("the-key");
    settle();
  }

  void send(const std::string& event, std::optional<EventParameters> params = std::nullopt) {
    if (params) {
      quillmar->sendEvent(event, *params);
    } else {
      quillmar->sendEvent(event);
    }
    settle();
  }

  /// Runs all that can run now.
  void settle() { simulated.clock->advance(std::chrono::nanoseconds(0)); }
  void advance(std::chrono::nanoseconds by) { simulated.clock->advance(by); }
  void activate() {
    simulated.notifications->post(platform::Notification::applicationDidBecomeActive);
    settle();
  }

  QuillmarCore& core() { return quillmar->core(); }

  std::size_t countLines(const std::string& part) const {
    const auto lines = log.messages();
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&part](const auto& line) { return line.find(part) != std::string::npos; }));
  }
  bool logged(const std::string& part) const { return countLines(part) > 0; }

  /// The event names that the service was sent, in order.
  std::vector<std::string> eventNames() const {
    std::vector<std::string> names;
    for (const auto& request : simulated.http->requests()) {
      if (request.method == "POST") {
        const auto from = request.body.find("\"event_name\":\"") + 14;
        names.push_back(request.body.substr(from, request.body.find('"', from) - from));
      }
    }
    return names;
  }
  std::size_t configRequests() const {
    const auto requests = simulated.http->requests();
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(), [](const auto& r) { return r.method == "GET"; }));
  }

  // What the service answers.
  int configStatus = 200;
  std::string configBody = configuration();
  int eventStatus = 200;
  std::string eventBody = R"({"status":"success","message":"ok"})";
  std::chrono::nanoseconds delay{0};

  simulated::SimulatedPlatform simulated;
  LogCapture log;
  std::shared_ptr<platform::UserDefaults> defaults;
  std::vector<std::string> printed;  // on the standard output
  std::shared_ptr<Quillmar> quillmar;

 private:
  simulated::InMemoryAnswer answer(const platform::HttpRequest& request) const {
    simulated::InMemoryAnswer answer;
    const bool isConfig = request.method == "GET";
    answer.result.url = request.url;
    answer.result.statusCode = isConfig ? configStatus : eventStatus;
    answer.result.body = isConfig ? configBody : eventBody;
    answer.delay = delay;
    return answer;
  }
};

}  // namespace quillmar::test
