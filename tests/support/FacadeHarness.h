#pragma once

#include <algorithm>
#include <numeric>

#include "Facade/QuillmarCore.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/ConfigurationBuilder.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/LogCapture.h"

namespace quillmar::test {

inline const platform::Clock::TimePoint startOfTests = std::chrono::sys_days{std::chrono::year(2026) / 1 / 1};

/// In each window a "Session" rule, and a "Purchase" rule that wants a revenue of 10 to 50.
inline simulated::ConfigurationBuilder configuration(bool enabled = true) {
  const ConversionValues::RequiredEvent purchase{"purchase", 10, 50}, session{"session", {}, {}};
  simulated::ConfigurationBuilder builder("app-1", enabled);
  for (const Window window : {Window::window0, Window::window1, Window::window2}) {
    builder.rule("Purchase", window, {{{40, {purchase}}}, {{CoarseValue::high, {purchase}}}});
    builder.rule("Session", window, {{{1, {session}}}, {{CoarseValue::low, {session}}}});
  }
  return builder;
}

/// How many events are in some count.
inline std::uint64_t sumOf(const QuillmarHealth& health) {
  const auto inMemory = health.queued + health.underWay + health.parked;
  return std::reduce(health.ended.begin(), health.ended.end(), inMemory + health.kept);
}

/// Lets something happen as a line with the part is written.
struct InterruptingSink final : simulated::RecordingLogSink {
  InterruptingSink(std::string line, std::function<void()> act) : part(std::move(line)), happen(std::move(act)) {}
  void write(std::string_view, std::string_view, platform::LogSeverity, std::string_view line) noexcept override {
    if (line.find(part) != std::string_view::npos) {
      happen();
    }
  }
  const std::string part;
  const std::function<void()> happen;
};

/// A host on a simulated platform, with a service in the same process. Time goes only by `advance`.
class FacadeHarness {
 public:
  FacadeHarness()
      : simulated(startOfTests, "17.4", [this](const platform::HttpRequest& request) { return answer(request); }),
        log(LogLevel::info, simulated.clock),
        defaults(quillMarDefaults(simulated.userDefaults)) {
    simulated.logSink = log.sink();
    restart();
  }
  virtual ~FacadeHarness() {
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
  void send(const std::string& event) {
    quillmar->sendEvent(event);
    settle();
  }
  void send(const std::string& event, EventParameters params) {
    quillmar->sendEvent(event, std::move(params));
    settle();
  }
  void activate() {
    simulated.notifications->post(platform::Notification::applicationDidBecomeActive);
    settle();
  }
  /// Runs all that can run now.
  void settle() { advance(std::chrono::nanoseconds(0)); }
  void advance(std::chrono::nanoseconds by) { simulated.clock->advance(by); }

  QuillmarCore& core() { return QuillmarCore::of(*quillmar); }
  auto calls() const { return simulated.adNetwork->calls(); }

  std::size_t countLines(const std::string& part) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        log.messages(), [&part](const auto& line) { return line.find(part) != std::string::npos; }));
  }
  bool logged(const std::string& part) const { return countLines(part) > 0; }

  /// The bodies of the events that the service was sent, in order.
  std::vector<std::string> eventBodies() const {
    std::vector<std::string> bodies;
    for (const auto& request : simulated.http->requests()) {
      if (request.url.ends_with("/ios/events")) {
        bodies.push_back(request.body);
      }
    }
    return bodies;
  }
  std::vector<std::string> eventNames() const {
    std::vector<std::string> names = eventBodies();
    for (std::string& name : names) {
      name.erase(0, name.find("\"event_name\":\"") + 14);
      name.erase(name.find('"'));
    }
    return names;
  }
  std::size_t configRequests() const {
    return static_cast<std::size_t>(
        std::ranges::count(simulated.http->requests(), "GET", &platform::HttpRequest::method));
  }

  // What the service answers.
  int configStatus = 200;
  std::string configBody = configuration().json();
  int eventStatus = 200;
  std::string eventBody = R"({"status":"success","message":"ok"})";
  std::string retryAfter;
  std::chrono::nanoseconds delay{0};

  simulated::SimulatedPlatform simulated;
  LogCapture log;
  std::shared_ptr<platform::UserDefaults> defaults;
  std::vector<std::string> printed;  // on the standard output
  std::shared_ptr<Quillmar> quillmar;

 protected:
  virtual simulated::InMemoryAnswer answer(const platform::HttpRequest& request) const {
    const bool isConfig = request.method == "GET";
    return {{{}, request.url, isConfig ? configStatus : eventStatus, isConfig ? configBody : eventBody, retryAfter},
            delay};
  }
};

}  // namespace quillmar::test
