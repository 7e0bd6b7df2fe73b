#include "quillmar/Quillmar.h"

#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/SharedInstance.h"
#include "Settings/MockSwitch.h"
#include "quillmar/QuillmarFactory.h"

namespace quillmar {

namespace {

SharedInstance<Quillmar>& sharedInstance() noexcept {
  // Never destroyed: exit must not race with tasks.
  static auto& shared = *new SharedInstance<Quillmar>(QuillmarFactory::createQuillmar);
  return shared;
}

}  // namespace

std::shared_ptr<Quillmar> Quillmar::shared() noexcept {
  return sharedInstance().get();
}

void Quillmar::setShared(std::shared_ptr<Quillmar> instance) noexcept {
  sharedInstance().set(std::move(instance));
}

Quillmar::Quillmar(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                   const platform::Platform& platform)
    : core_(OwnProcess::isHere() ? std::make_shared<QuillmarCore>(std::move(userDefaults), std::move(bundle), platform)
                                 : nullptr) {
  if (core_) {
    core_->joinConsent();
  }
}

Quillmar::~Quillmar() {
  letGo(core_);
}

LogLevel Quillmar::logLevel() const noexcept {
  return guarded("logLevel", LogLevel::off, [this] { return core_->logLevel(); });
}
void Quillmar::setLogLevel(LogLevel level) noexcept {
  guarded("setLogLevel", [&] { core_->setLogLevel(level); });
}

void Quillmar::setOptions(const QuillmarOptions& options) noexcept {
  guarded("setOptions", [&] { core_->setOptions(options); });
}

void Quillmar::grantConsent() noexcept {
  guarded("grantConsent", [this] { core_->grantConsent(); });
}

void Quillmar::revokeConsent() noexcept {
  guarded("revokeConsent", [this] { core_->revokeConsent(); });
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
  return guarded("isInitialized", false, [this] { return core_->isInitialized(); });
}
bool Quillmar::hasFetchedConversionValues() const noexcept {
  return guarded("hasFetchedConversionValues", false, [this] { return core_->hasFetchedConversionValues(); });
}
void Quillmar::setHasFetchedConversionValues(bool fetched) noexcept {
  guarded("setHasFetchedConversionValues", [&] { core_->setHasFetchedConversionValues(fetched); });
}

void Quillmar::setNetworkPaused(bool paused) noexcept {
  guarded("setNetworkPaused", [&] { core_->setNetworkPaused(paused); });
}

bool Quillmar::waitUntilDelivered(std::chrono::milliseconds timeout) noexcept {
  return guarded("waitUntilDelivered", false, [&] { return core_->waitUntilDelivered(timeout); });
}

bool Quillmar::drain(std::chrono::milliseconds timeout) noexcept {
  return guarded("drain", false, [&] { return core_->drain(timeout); });
}

QuillmarStatistics Quillmar::statistics() const noexcept {
  return guarded("statistics", QuillmarStatistics(), [this] { return core_->statistics(); });
}

QuillmarHealth Quillmar::health() const noexcept {
  return guarded("health", QuillmarHealth(), [this] { return core_->health(); });
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
std::shared_ptr<ConversionTrackingManagerProtocol> Quillmar::conversionTrackingManager() const noexcept {
  return guarded("conversionTrackingManager", std::shared_ptr<ConversionTrackingManagerProtocol>(),
                 [this] { return core_->conversionTrackingManager(); });
}
void Quillmar::setConversionTrackingManager(std::shared_ptr<ConversionTrackingManagerProtocol> manager) noexcept {
  guarded("setConversionTrackingManager", [&] { core_->setConversionTrackingManager(std::move(manager)); });
}

void Quillmar::setDecisionObserver(DecisionObserver observer) noexcept {
  guarded("setDecisionObserver", [&] { core_->setDecisionObserver(std::move(observer)); });
}

void Quillmar::setHealthObserver(QuillmarHealthObserver observer) noexcept {
  guarded("setHealthObserver", [&] { core_->setHealthObserver(std::move(observer)); });
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
