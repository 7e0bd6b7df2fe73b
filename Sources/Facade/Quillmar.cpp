#include "quillmar/Quillmar.h"

#include <mutex>
#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/Guarded.h"
#include "Settings/MockSwitch.h"
#include "quillmar/QuillmarFactory.h"

namespace quillmar {

namespace {

struct Shared {
  std::mutex mutex;
  std::shared_ptr<Quillmar> instance;
};

Shared& sharedInstance() noexcept {
  static Shared& shared = *new Shared;  // never destroyed: exit must not race with tasks
  return shared;
}

}  // namespace

std::shared_ptr<Quillmar> Quillmar::shared() noexcept {
  if (!OwnProcess::isHere()) {
    // The parent's cannot be got at without its lock. This one is as idle as that would be.
    static const auto& idle = *new auto(QuillmarFactory::createQuillmar({}));
    return idle;
  }
  return guarded("Making the shared instance", std::shared_ptr<Quillmar>(), [] {
    Shared& shared = sharedInstance();
    const std::lock_guard lock(shared.mutex);
    if (!shared.instance) {
      shared.instance = QuillmarFactory::createQuillmar(platform::sharedPlatform());
    }
    return shared.instance;
  });
}

void Quillmar::setShared(std::shared_ptr<Quillmar> instance) noexcept {
  guarded("Replacing the shared instance", [&instance] {
    Shared& shared = sharedInstance();
    const std::lock_guard lock(shared.mutex);
    shared.instance.swap(instance);
  });
}

Quillmar::Quillmar(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                   const platform::Platform& platform)
    : core_(std::make_shared<QuillmarCore>(std::move(userDefaults), std::move(bundle), platform)) {}

Quillmar::~Quillmar() {
  if (!OwnProcess::isHere()) {
    OwnProcess::abandon(std::move(core_));
  }
}

LogLevel Quillmar::logLevel() const noexcept {
  return core_->logLevel();
}
void Quillmar::setLogLevel(LogLevel level) noexcept {
  core_->setLogLevel(level);
}

void Quillmar::configure(std::string_view verificationKey) noexcept {
  guarded("configure", [&] { core_->configure(std::string(verificationKey)); });
}

void Quillmar::sendEvent(std::string_view event) noexcept {
  guarded("sendEvent", [&] { core_->sendEvent(std::string(event), std::nullopt); });
}

void Quillmar::sendEvent(std::string_view event, EventParameters params) noexcept {
  guarded("sendEvent", [&] { core_->sendEvent(std::string(event), std::move(params)); });
}

void Quillmar::applicationDidBecomeActive() noexcept {
  guarded("applicationDidBecomeActive", [this] { core_->applicationDidBecomeActive(); });
}

void Quillmar::sceneDidActivate() noexcept {
  guarded("sceneDidActivate", [this] { core_->sceneDidActivate(); });
}

void Quillmar::reset() noexcept {
  guarded("reset", [this] { core_->reset(); });
}

void Quillmar::clearTrackedEvents() noexcept {
  guarded("clearTrackedEvents", [this] { core_->clearTrackedEvents(); });
}

std::string Quillmar::quillmarVerificationKey() const noexcept {
  return guarded("quillmarVerificationKey", std::string(), [this] { return core_->quillmarVerificationKey(); });
}
bool Quillmar::isInitialized() const noexcept {
  return core_->isInitialized();
}
bool Quillmar::hasFetchedConversionValues() const noexcept {
  return core_->hasFetchedConversionValues();
}
void Quillmar::setHasFetchedConversionValues(bool fetched) noexcept {
  core_->setHasFetchedConversionValues(fetched);
}

bool Quillmar::drain(std::chrono::milliseconds timeout) noexcept {
  return guarded("drain", false, [&] { return core_->drain(timeout); });
}

QuillmarStatistics Quillmar::statistics() const noexcept {
  return core_->statistics();
}

QuillmarState Quillmar::state() const noexcept {
  return guarded("state", QuillmarState(), [this] { return core_->state(); });
}

std::shared_ptr<ConversionValuesRepositoryProtocol> Quillmar::conversionValuesRepository() const noexcept {
  return guarded("conversionValuesRepository", std::shared_ptr<ConversionValuesRepositoryProtocol>(),
                 [this] { return core_->conversionValuesRepository(); });
}
void Quillmar::setConversionValuesRepository(std::shared_ptr<ConversionValuesRepositoryProtocol> repository) noexcept {
  guarded("setConversionValuesRepository", [&] { core_->setConversionValuesRepository(std::move(repository)); });
}
std::shared_ptr<VerificationKeyRepositoryProtocol> Quillmar::verificationKeyRepository() const noexcept {
  return guarded("verificationKeyRepository", std::shared_ptr<VerificationKeyRepositoryProtocol>(),
                 [this] { return core_->verificationKeyRepository(); });
}
void Quillmar::setVerificationKeyRepository(std::shared_ptr<VerificationKeyRepositoryProtocol> repository) noexcept {
  guarded("setVerificationKeyRepository", [&] { core_->setVerificationKeyRepository(std::move(repository)); });
}
std::shared_ptr<EventServerLogRepositoryProtocol> Quillmar::eventServerLogRepository() const noexcept {
  return guarded("eventServerLogRepository", std::shared_ptr<EventServerLogRepositoryProtocol>(),
                 [this] { return core_->eventServerLogRepository(); });
}
void Quillmar::setEventServerLogRepository(std::shared_ptr<EventServerLogRepositoryProtocol> repository) noexcept {
  guarded("setEventServerLogRepository", [&] { core_->setEventServerLogRepository(std::move(repository)); });
}
std::shared_ptr<ConversionTrackingManager> Quillmar::conversionTrackingManager() const noexcept {
  return guarded("conversionTrackingManager", std::shared_ptr<ConversionTrackingManager>(),
                 [this] { return core_->conversionTrackingManager(); });
}
void Quillmar::setConversionTrackingManager(std::shared_ptr<ConversionTrackingManager> manager) noexcept {
  guarded("setConversionTrackingManager", [&] { core_->setConversionTrackingManager(std::move(manager)); });
}

bool Quillmar::useMock() noexcept {
  return MockSwitch::isOn();
}
void Quillmar::setUseMock(bool useMock) noexcept {
  MockSwitch::set(useMock);
}

std::int64_t Quillmar::consecutiveAPIFailures() noexcept {
  return guarded("consecutiveAPIFailures", std::int64_t{0},
                 [] { return SharedState::instance().getConsecutiveAPIFailures(); });
}
void Quillmar::setConsecutiveAPIFailures(std::int64_t failures) noexcept {
  guarded("setConsecutiveAPIFailures", [=] { SharedState::instance().setConsecutiveAPIFailures(failures); });
}
bool Quillmar::isVerificationKeyInvalid() noexcept {
  return guarded("isVerificationKeyInvalid", false, [] { return SharedState::instance().getVerificationKeyInvalid(); });
}
void Quillmar::setIsVerificationKeyInvalid(bool invalid) noexcept {
  guarded("setIsVerificationKeyInvalid", [=] { SharedState::instance().setVerificationKeyInvalid(invalid); });
}
void Quillmar::resetStaticState() noexcept {
  guarded("resetStaticState", [] { SharedState::instance().reset(); });
}

}  // namespace quillmar
