#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/Log.h"
#include "Settings/StoreSetting.h"
#include "quillmar/Config.h"

namespace quillmar {

// What was begun before ends without effect: a fetch, an activation, a call of `configure`, an event on its way.
void QuillmarCore::reset() {
  if (mayWork()) {
    resetNow();
  } else {
    epoch_->raise([this] { forget(); });  // nothing is stored
  }
}

void QuillmarCore::resetNow() {
  std::vector<platform::NotificationCenter::ObserverId> observers;
  NetworkGate::Requests held;  // their tasks go with it, outside the lock
  epoch_->raise([&] {
    {
      const std::lock_guard lock(collaboratorsMutex_);
      observers.swap(observers_);
    }
    forget();
    for (const std::string_view key :
         {Config::lastConversionValuesFetchTimestamp, Config::serverAppId, Config::sdkEnabled}) {
      removeSetting(*userDefaults_, key);
    }
    SharedState::instance().reset();
    if (deliversReliably()) {
      outbox_->clear();  // before the history: what a kill leaves must not come back there
    }
    eventTracker_->clearCompletedEvents();
    held = gate_->takeHeld();
  });
  for (const auto observer : observers) {
    platform_.notifications->removeObserver(observer);
  }
  emptyPendingEvents();
  health_->noteChange();  // the key counts as valid again
  Log::debug("Quillmar - SDK state reset");
}

void QuillmarCore::forget() {
  {
    const std::lock_guard lock(collaboratorsMutex_);
    quillmarVerificationKey_.clear();
    configurations_.clear();
    isFetching_.reset();
    isRetriying_ = false;
  }
  isInitialized_.store(false, std::memory_order_relaxed);
  setHasFetchedConversionValues(false);
  isConfigLoaded_.store(false, std::memory_order_relaxed);
  setLogLevel(LogLevel::off);
}

void QuillmarCore::clearTrackedEvents() {
  if (!mayWork()) {
    return;
  }
  eventTracker_->clearCompletedEvents();
  Log::debug("Quillmar - Cleared all tracked events");
}

void QuillmarCore::resetConfigurationState() {
  isConfigLoaded_.store(false, std::memory_order_relaxed);
  emptyPendingEvents();
  Log::debug("Configuration state reset for testing");
}

void QuillmarCore::markConfigurationAsLoaded() {
  isConfigLoaded_.store(true, std::memory_order_relaxed);
  processPendingEvents(thisLife());
  Log::debug("Configuration marked as loaded for testing");
}

void QuillmarCore::resetVerificationKeyState() {
  SharedState::instance().resetConsecutiveAPIFailures();
  SharedState::instance().setVerificationKeyInvalid(false);
  Log::info("Verification key state has been reset");
}

}  // namespace quillmar
