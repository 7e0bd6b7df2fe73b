#include "Facade/KeptEvents.h"

#include "Logging/Log.h"
#include "Settings/EnabledFlag.h"
#include "quillmar/Config.h"

namespace quillmar {

// A configuration of an earlier run will do: an event counts when it happened, also while the service is away.
bool KeptEvents::mayTrack(std::uint64_t epoch) {
  const auto core = life(epoch).lock();
  if (!core || core->consent_->isDenied() || SharedState::instance().getVerificationKeyInvalid() ||
      core->isSwitchedOff() || !core->userDefaults_->string(Config::serverAppId)) {
    return false;
  }
  window_ = core->getCurrentWindow();
  configuration_ = window_ ? core->storedConfiguration() : nullptr;
  if (!window_ || configuration_) {
    return true;
  }
  Log::debug("Outbox - Events wait for a configuration");
  if (core->isConfigLoaded_.load(std::memory_order_relaxed)) {
    core->fetchAndSaveConversionValues(life(epoch));  // it was fetched, and cannot be read
  }
  return false;
}

bool KeptEvents::maySend(std::uint64_t epoch) {
  const auto core = life(epoch).lock();
  return core && core->eventServerLogRepository() && !SharedState::instance().getVerificationKeyInvalid() &&
         core->userDefaults_->string(Config::serverAppId) && isSDKEnabled(*core->userDefaults_);
}

bool KeptEvents::mayStore() {
  const auto core = core_.lock();
  return core && !core->consent_->isDenied();
}

bool KeptEvents::accept(const Intake::Event& event) {
  const auto core = core_.lock();
  return core && core->isAccepted(event.name, [&event] { return event.parameters; });
}

std::error_code KeptEvents::track(const std::vector<TrackedEvent>& events, Tails tails) {
  const auto core = core_.lock();
  if (!core) {
    return std::make_error_code(std::errc::operation_canceled);
  }
  if (!window_) {
    Log::info("No event sent. The event window has expired.");
    return core->userDefaults_->replaceDataTails(tails);
  }
  return core->eventTracker_->trackEvents(events, std::move(tails));
}

// Those that came into the history together are decided about together.
void KeptEvents::tracked(std::uint64_t epoch, const std::string& name) {
  if (const auto core = core_.lock(); core && window_) {
    core->eventProcessingQueue_->post([life = life(epoch), name, configuration = configuration_, window = *window_] {
      return QuillmarCore::decideAboutKept(life, name, configuration, window);
    });
  }
}

void KeptEvents::send(std::uint64_t epoch, OutboxRecord record, Done done) {
  if (const auto core = core_.lock()) {
    spawn(core->eventExecutor_,
          QuillmarCore::deliver(life(epoch), std::move(record), std::move(done), Activity(core->activity_)));
  }
}

}  // namespace quillmar
