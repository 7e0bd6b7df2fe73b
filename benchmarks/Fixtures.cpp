#include "Fixtures.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Json/JsonWriter.h"
#include "Model/ConfigResponse.h"
#include "Platform/Posix/SystemClock.h"
#include "Platform/Posix/ThreadPoolExecutor.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"

namespace quillmar::bench {

namespace {

class AcceptingAdAttributionKit final : public platform::AdAttributionKit {
 public:
  void updateConversionValue(const platform::PostbackUpdate&, platform::AdNetworkCompletion completion) override {
    completion(std::nullopt);
  }
};

class DiscardingLogSink final : public platform::LogSink {
 public:
  void write(std::string_view, std::string_view, platform::LogSeverity, std::string_view) noexcept override {}
};

class OneSuite final : public platform::UserDefaultsProvider {
 public:
  explicit OneSuite(std::string file) : file_(std::move(file)) {}

  std::shared_ptr<platform::UserDefaults> openSuite(const std::string& /*name*/) override {
    auto store = platform::SqliteUserDefaults::open(
        file_, [](std::string_view problem) { throw std::runtime_error(std::string(problem)); });
    if (!store) {
      throw std::runtime_error("the store cannot be opened");
    }
    return store;
  }
  std::shared_ptr<platform::UserDefaults> standard() override { throw std::logic_error("the suite takes its place"); }

 private:
  const std::string file_;
};

}  // namespace

Folder::Folder() : path_((std::filesystem::temp_directory_path() / "quillmar-bench-XXXXXX").string()) {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

EventParameters eventParameters() {
  return {{ASEventParam::revenue, 9.99}};
}

NamedParameters namedEventParameters() {
  return parameters(eventParameters());
}

ConversionValues rules(int count) {
  ConversionValues document;
  for (int i = 0; i < count; ++i) {
    const std::string other = i % 2 == 0 ? std::string(eventName) : fmt::format("level_{}_reached", i);
    const std::vector<ConversionValues::RequiredEvent> events{{eventName, 0.99, 100.0 + i}, {other, {}, {}}};
    ConversionValues::ConversionValue value;
    value.key = fmt::format("rule_{}", i);
    for (const Window window : allWindows) {
      ConversionValues::WindowValue windowValue;
      windowValue.fineValue = {i, events};
      windowValue.coarseValue = {CoarseValue::medium, events};
      value.windows.emplace(rawValue(window), std::move(windowValue));
    }
    document.values.push_back(std::move(value));
  }
  document.lockWindows.emplace("window0", ConversionValues::LockWindowConfiguration{});
  return document;
}

std::string configurationResponse() {
  ConversionValues document = rules();
  const ConfigResponse response{"bench-app", true, std::move(document.values), std::move(document.lockWindows)};
  JsonWriter writer;
  response.encode(writer);
  return writer.take();
}

std::shared_ptr<platform::UserDefaults> openStore(const std::string& folder) {
  return quillMarDefaults(std::make_shared<OneSuite>(folder + "/store.sqlite"));
}

History::History(std::size_t events)
    : store(openStore(folder.path())),
      clock(std::make_shared<platform::SystemClock>(std::make_shared<platform::ThreadPoolExecutor>(1))),
      tracker(store, clock) {
  trackOneByOne(tracker, events);
}

void trackOneByOne(EventTracker& tracker, std::size_t events) {
  for (std::size_t i = 0; i < events; ++i) {
    tracker.trackEvent(eventName, namedEventParameters());
  }
}

InstantTransport::InstantTransport(std::shared_ptr<platform::Executor> executor)
    : executor_(std::move(executor)), configuration_(configurationResponse()) {}

platform::HttpTransport::RequestId InstantTransport::start(platform::HttpRequest request, Completion completion) {
  platform::HttpResult result{{}, std::move(request.url), 200, {}};
  result.body = request.method == "GET" ? configuration_ : R"({"status":"success","message":"Event logged"})";
  executor_->post([result = std::move(result), completion = std::move(completion)] { completion(result); });
  return 1;
}

void InstantTransport::cancel(RequestId) noexcept {}

platform::Platform makePlatform(const std::string& folder, const std::string& serviceUrl) {
  platform::DefaultPlatformOptions options;
  options.dataDirectory = folder;
  options.serviceUrl = serviceUrl.empty() ? "http://127.0.0.1:1" : serviceUrl;
  platform::Platform platform = platform::makeDefaultPlatform(options);
  if (serviceUrl.empty()) {
    platform.http = std::make_shared<InstantTransport>(platform.executor);
  }
  platform.adAttributionKit = std::make_shared<AcceptingAdAttributionKit>();
  platform.device = std::make_shared<simulated::SimulatedDevice>("18.0");
  platform.logSink = std::make_shared<DiscardingLogSink>();
  platform.standardOutput = [](std::string_view) {};
  return platform;
}

void setChosenOptions(Quillmar& quillmar) {
  QuillmarOptions options;
  const std::map<std::string_view, std::function<void()>> switches{
      {"reliableDelivery", [&] { options.reliableDelivery = true; }},
      {"strictSwitch", [&] { options.strictSwitch = true; }},
      {"onlyCompleteHalves", [&] { options.onlyCompleteHalves = true; }},
      {"skipRepeatedUpdates", [&] { options.skipRepeatedUpdates = true; }},
      {"requireConsent", [&] { options.requireConsent = true; }},
      {"limits", [&] {
         options.limits.parkedEvents = options.limits.queuedEvents = 1'000'000;
         options.limits.eventBytes = 4096;
       }}};
  const char* const variable = std::getenv("QUILLMAR_BENCH_OPTIONS");
  std::istringstream names(variable != nullptr ? variable : "");
  for (std::string name; std::getline(names, name, ',');) {
    const auto chosen = switches.find(name);
    if (chosen == switches.end()) {
      throw std::invalid_argument("QUILLMAR_BENCH_OPTIONS: no option is called \"" + name + "\" here");
    }
    chosen->second();
  }
  quillmar.setOptions(options);
  quillmar.grantConsent();
}

std::shared_ptr<Quillmar> makeReady(const platform::Platform& platform) {
  platform::setSharedPlatform(platform);
  auto quillmar = QuillmarFactory::createQuillmar(platform);
  setChosenOptions(*quillmar);
  quillmar->configure("bench-key");
  if (!quillmar->drain(std::chrono::seconds(30)) || !quillmar->state().appId) {
    throw std::runtime_error("the configuration was not fetched");
  }
  return quillmar;
}

void requireAllLogged(const Quillmar& quillmar, std::uint64_t events) {
  if (const std::uint64_t logged = quillmar.statistics().logged; logged != events) {
    throw std::runtime_error(fmt::format("{} of {} events were logged", logged, events));
  }
}

double quantileOf(std::vector<double>& values, double quantile) {
  const auto position = static_cast<std::ptrdiff_t>(quantile * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + position, values.end());
  return values[static_cast<std::size_t>(position)];
}

}  // namespace quillmar::bench
