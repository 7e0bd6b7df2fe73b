#include "Conversion/ConversionTrackingManager.h"

#include <algorithm>
#include <any>
#include <atomic>
#include <limits>
#include <utility>

#include "Conversion/LastWindowValue.h"
#include "Conversion/Withholding.h"
#include "Logging/Guarded.h"
#include "Logging/Log.h"
#include "Platform/SystemVersion.h"
#include "Settings/StoreSetting.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

struct SimulatedVersion {
  std::mutex mutex;
  std::optional<std::string> version;
};

SimulatedVersion& simulatedVersion() {
  static SimulatedVersion& instance = *new SimulatedVersion;  // never destroyed: exit must not race with it
  return instance;
}

/// The first required event of the fine value, else that of the coarse value, else null.
const ConversionValues::RequiredEvent* firstRequiredEvent(const ConversionValues::WindowValue& value) {
  if (value.fineValue && !value.fineValue->requiredEvents.empty()) {
    return &value.fineValue->requiredEvents.front();
  }
  if (value.coarseValue && !value.coarseValue->requiredEvents.empty()) {
    return &value.coarseValue->requiredEvents.front();
  }
  return nullptr;
}

void addNames(std::set<std::string>& names, const std::vector<ConversionValues::RequiredEvent>& events) {
  for (const auto& event : events) {
    names.insert(event.name);
  }
}

}  // namespace

int ConversionTrackingManager::Update::platformFine() const noexcept {
  constexpr std::int64_t lowest = std::numeric_limits<int>::min();
  constexpr std::int64_t highest = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(fine(), lowest, highest));
}

std::optional<CoarseValue> ConversionTrackingManager::Update::coarse() const noexcept {
  return windowValue.coarseValue ? std::optional(windowValue.coarseValue->value) : std::nullopt;
}

/// A call to the platform that has not been answered. Lives in the completion, so that it also ends with that.
class ConversionTrackingManager::OpenCall {
 public:
  OpenCall(Activity activity, std::shared_ptr<DecisionTrace> trace) noexcept
      : activity_(std::move(activity)), trace_(std::move(trace)) {}

  /// True for the first answer only: a platform that answers twice must not be recorded twice.
  bool answer() noexcept { return !answered_.exchange(true); }
  void record(const std::optional<platform::PlatformError>& error) {
    if (trace_) {
      trace_->record.answer = error ? Decision::Answer::failure : Decision::Answer::success;
      trace_->record.error = error ? error->localizedDescription : "";
    }
  }
  void end() noexcept {
    trace_.reset();
    activity_.end();
  }

 private:
  Activity activity_;
  std::shared_ptr<DecisionTrace> trace_;
  std::atomic<bool> answered_{false};
};

ConversionTrackingManager::ConversionTrackingManager(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                     std::shared_ptr<SKAdNetworkProtocol> skAdNetwork,
                                                     std::shared_ptr<platform::AdAttributionKit> adAttributionKit,
                                                     std::shared_ptr<platform::Device> device,
                                                     std::shared_ptr<platform::Executor> mainExecutor,
                                                     std::shared_ptr<ActivityCounter> activity,
                                                     std::shared_ptr<HealthRecord> health) noexcept
    : userDefaults_(std::move(userDefaults)),
      skAdNetwork_(std::move(skAdNetwork)),
      adAttributionKit_(std::move(adAttributionKit)),
      device_(std::move(device)),
      mainExecutor_(std::move(mainExecutor)),
      activity_(std::move(activity)),
      health_(std::move(health)) {}

std::optional<std::string> ConversionTrackingManager::simulatediOSVersion() {
  SimulatedVersion& simulated = simulatedVersion();
  const std::lock_guard lock(simulated.mutex);
  return simulated.version;
}

void ConversionTrackingManager::setSimulatediOSVersion(std::optional<std::string> version) {
  SimulatedVersion& simulated = simulatedVersion();
  const std::lock_guard lock(simulated.mutex);
  simulated.version = std::move(version);
}

void ConversionTrackingManager::send(const ConversionValues::ConversionValue& conversionValue, Window window,
                                     bool forceLockWindow) {
  send(conversionValue, window, forceLockWindow, {}, nullptr, {});
}

void ConversionTrackingManager::send(const ConversionValues::ConversionValue& conversionValue, Window window,
                                     bool forceLockWindow, const QuillmarOptions& options,
                                     std::shared_ptr<DecisionTrace> trace, Epoch::Term term) {
  Log::debug("ConversionTrackingManager - Sending event with key: {} for window: {}", conversionValue.key,
             rawValue(window));
  const ConversionValues::WindowValue* const windowValue = conversionValue.windowValue(window);
  if (windowValue == nullptr) {
    Log::error("ConversionTrackingManager - No conversion value available for window {} in event: {}", rawValue(window),
               conversionValue.key);
    return;
  }
  Update update{*windowValue, conversionValue.key, forceLockWindow, std::move(trace)};
  update.term = std::move(term);
  if (comparesWithLast(options)) {
    update.window = window;
  }
  startUpdate(std::move(update), options);
}

void ConversionTrackingManager::startUpdate(Update update, const QuillmarOptions& options) {
  const std::string system = device_->systemVersion();
  const std::string version = simulatediOSVersion().value_or(system);
  const auto isAtLeast = [&](std::string_view tier) {
    return isVersionAtLeast(system, tier) && isVersionAtLeast(version, tier);
  };
  if (isAtLeast("18.0")) {
    if (options.updateBothNetworks) {
      update.taken = std::make_shared<std::atomic<bool>>(false);
    }
    sendEventWithAttributionKit(update);
    if (update.taken) {
      update.trace = nullptr;  // has the first call; the platform may answer both at the same time
      auto inFlight = std::make_shared<Activity>(activity_);
      mainExecutor_->post([weak = weak_from_this(), update = std::move(update), inFlight = std::move(inFlight)] {
        guarded("SKAdNetwork", [&] {
          if (const auto self = weak.lock(); self && !update.term.isOver()) {
            self->sendEventSKAdNetwork4(update);
          }
        });
      });
    }
  } else if (isAtLeast("16.1")) {
    sendEventSKAdNetwork4(update);
  } else if (isAtLeast("15.4")) {
    sendEventSKAdNetwork3(update);
  } else if (isAtLeast("14.0")) {
    sendEventSKAdNetwork2(update);
  } else {
    registerForAttribution(update);
  }
}

void ConversionTrackingManager::sendEventWithAttributionKit(const Update& update) {
  platform::PostbackUpdate postback{update.platformFine(), update.forceLockWindow, std::nullopt};
  if (const std::optional<CoarseValue> coarse = update.coarse()) {
    postback.coarseConversionValue = toAttributionKitCoarseValue(*coarse);
  }
  auto done = completion(
      update, "adAttributionKit", update.forceLockWindow,
      {"Attribution: AdAttributionKit postback failed ",
       update.taken ? "ConversionTrackingManager - AdAttributionKit update successful" : std::string_view()});
  // A task of its own: the update that asks for it is over before the platform is called.
  mainExecutor_->post([weak = weak_from_this(), postback, done = std::move(done), term = update.term] {
    guarded("AdAttributionKit", [&] {
      if (const auto self = weak.lock(); self && !term.isOver()) {
        self->adAttributionKit_->updateConversionValue(postback, done);
      }
    });
  });
}

void ConversionTrackingManager::sendEventSKAdNetwork4(const Update& update) {
  const std::optional<CoarseValue> coarse = update.coarse();
  auto done = completion(update, coarse ? "skAdNetwork4" : "skAdNetwork4WithoutCoarse", update.forceLockWindow,
                         {"ConversionTrackingManager - SKAdNetwork 4.0 update failed: ",
                          "ConversionTrackingManager - SKAdNetwork 4.0 update successful"});
  if (coarse) {
    std::any coarseValue = toSKAdNetworkCoarseConversionValue(*coarse);
    skAdNetwork_->updatePostbackConversionValue_iOS16_1_WithCoarse(update.platformFine(), std::move(coarseValue),
                                                                   update.forceLockWindow, std::move(done));
  } else {
    skAdNetwork_->updatePostbackConversionValue_iOS16_1_WithoutCoarse(update.platformFine(), update.forceLockWindow,
                                                                      std::move(done));
  }
}

void ConversionTrackingManager::sendEventSKAdNetwork3(const Update& update) {
  auto done = completion(update, "skAdNetwork3", false,
                         {"ConversionTrackingManager - SKAdNetwork 3.0 update failed: ",
                          "ConversionTrackingManager - SKAdNetwork 3.0 update successful"});
  skAdNetwork_->updatePostbackConversionValue_iOS15_4(update.platformFine(), std::move(done));
}

void ConversionTrackingManager::sendEventSKAdNetwork2(const Update& update) {
  called(update, "skAdNetwork2");
  skAdNetwork_->updateConversionValue_iOS14_0(update.platformFine());
  saveLastWindowValue(update, false);
  Log::debug("ConversionTrackingManager - SKAdNetwork 2.0 update successful");
}

void ConversionTrackingManager::registerForAttribution(const Update& update) {
  if (userDefaults_->boolean(adNetworkRegisteredKey)) {
    return;
  }
  called(update, "registration");
  skAdNetwork_->registerAppForAdNetworkAttribution();
  saveLastWindowValue(update, false);
  update.term.during([this] { storeSetting(*userDefaults_, adNetworkRegisteredKey, true); });
  Log::debug("ConversionTrackingManager - App registered for ad network attribution");
}

std::uint64_t ConversionTrackingManager::called(const Update& update, const char* interface) const {
  if (update.trace) {
    update.trace->record.interface = interface;
    update.trace->end(Decision::Outcome::sent);
  }
  return health_ ? health_->noteCall(interface) : 0;
}

platform::AdNetworkCompletion ConversionTrackingManager::completion(Update update, const char* interface,
                                                                    bool lockWindow, OutcomeLines lines) {
  const std::uint64_t number = called(update, interface);
  auto open = std::make_shared<OpenCall>(Activity(activity_), std::move(update.trace));
  return [weakSelf = weak_from_this(), update = std::move(update), lockWindow, lines, number, health = health_,
          call = std::move(open)](const std::optional<platform::PlatformError>& error) {
    guarded("The answer of the platform", [&] {
      if (!call->answer()) {
        return;
      }
      call->record(error);
      if (health) {
        health->noteAnswer(number, error ? std::optional(error->localizedDescription) : std::nullopt);
      }
      if (error) {
        Log::error("{}{}", lines.failed, error->localizedDescription);
      } else if (const auto self = weakSelf.lock()) {
        self->saveLastWindowValue(update, lockWindow);
        if (!lines.successful.empty()) {
          Log::debug(lines.successful);
        }
      }
      call->end();
    });
  };
}

void ConversionTrackingManager::saveLastWindowValue(const Update& update, bool lockWindow) {
  if (update.taken && update.taken->exchange(true)) {
    return;  // a later value may have been saved since
  }
  update.term.during([&] { save(update, lockWindow); });
}

void ConversionTrackingManager::save(const Update& update, bool lockWindow) {
  const std::lock_guard lock(lastWindowValueQueue_);
  std::optional<LastWindowValue> previous = readLastWindowValue(*userDefaults_);
  LastWindowValue value{update.key, update.fine(), update.coarse(), lockWindow, {}, std::nullopt, std::nullopt};
  if (previous) {
    value.completedEvents = std::move(previous->completedEvents);  // merged whatever its key
  }
  if (const auto& fine = update.windowValue.fineValue) {
    addNames(value.completedEvents, fine->requiredEvents);
  }
  if (const auto& coarse = update.windowValue.coarseValue) {
    addNames(value.completedEvents, coarse->requiredEvents);
  }
  // The bounds are a pair: both come from one event, or both from the previous value.
  if (const auto* const event = firstRequiredEvent(update.windowValue)) {
    value.revenueMin = event->revenueMin;
    value.revenueMax = event->revenueMax;
  } else if (previous) {
    value.revenueMin = previous->revenueMin;
    value.revenueMax = previous->revenueMax;
  }
  value.window = update.window;
  if (update.window && previous && previous->window == update.window) {
    value.lockWindow = lockWindow || previous->lockWindow.value_or(false);  // a lock holds for the rest of the window
  }
  // A store that cannot write now keeps the value in memory and writes it with the next one.
  storeSetting(*userDefaults_, Config::lastWindowValue, value.toDictionary());
  Log::debug("ConversionTrackingManager - Saved last window value: fine={}, coarse={}", value.fineValue,
             value.coarseValue ? rawValue(*value.coarseValue) : "nil");
}

}  // namespace quillmar
