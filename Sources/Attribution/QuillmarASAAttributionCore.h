#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Async/ActivityCounter.h"
#include "Async/Epoch.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"
#include "Async/TaskHandle.h"
#include "Attribution/PurchaseCounters.h"
#include "Attribution/PurchaseInterceptorProtocol.h"
#include "Attribution/PurchaseProcessorProtocol.h"
#include "Delivery/Outbox.h"
#include "Network/NetworkGate.h"
#include "Persistence/ASAAttributionTrackingRepositoryProtocol.h"
#include "Persistence/EventsRepositoryProtocol.h"
#include "Settings/Consent.h"
#include "quillmar/QuillmarASAAttribution.h"
#include "quillmar/VerificationKeyRepositoryProtocol.h"

namespace quillmar {

/// What stands behind `QuillmarASAAttribution`. Nothing is built before tracking is enabled. Functions may throw when
/// memory runs out; the public class catches.
class QuillmarASAAttributionCore : public Consent::Worker,
                                   public std::enable_shared_from_this<QuillmarASAAttributionCore> {
 public:
  /// What stands behind a facade.
  static QuillmarASAAttributionCore& of(QuillmarASAAttribution& facade) noexcept { return *facade.core_; }

  QuillmarASAAttributionCore(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
                             const platform::Platform& platform);

  ~QuillmarASAAttributionCore() override;
  QuillmarASAAttributionCore(const QuillmarASAAttributionCore&) = delete;
  QuillmarASAAttributionCore& operator=(const QuillmarASAAttributionCore&) = delete;

  void setOptions(const QuillmarOptions& options);
  void joinConsent() { consent_->join(weak_from_this()); }
  void stop() override;
  void enableASAAttributionTracking();
  void disableASAAttributionTracking();

  void setNetworkPaused(bool paused) { gate_->setClosed(paused); }
  bool drain(std::chrono::milliseconds timeout);
  QuillmarASAAttributionStatistics statistics() const noexcept;
  QuillmarASAAttributionHealth health() const;

  // Null until tracking is enabled; the last two again when it has been disabled.
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository() const;
  std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> asaAttributionTrackingRepository() const;
  std::shared_ptr<EventsRepositoryProtocol> eventsRepository() const;
  std::shared_ptr<PurchaseInterceptorProtocol> purchaseInterceptor() const;
  std::shared_ptr<PurchaseProcessorProtocol> purchaseProcessor() const;
  std::string quillmarVerificationKey() const;

 private:
  friend class KeptPurchases;

  void enable(std::uint64_t epoch);
  void disable();
  void buildRepositories(const std::string& verificationKey, const QuillmarOptions& options, std::uint64_t epoch);
  /// The handle stands for this enabling: disabling, and enabling again, put another one into its place, or none.
  std::shared_ptr<TaskHandle> startListener();
  void fetchAttributionIfAbsent(std::shared_ptr<TaskHandle> enabling, std::uint64_t epoch);
  /// With `strictSwitch`: the service has switched the library off.
  bool isSwitchedOff() const;

  // The tasks. They hold the core weakly, or what they need of it.
  static std::shared_ptr<PurchaseInterceptorProtocol> currentInterceptor(
      const std::weak_ptr<QuillmarASAAttributionCore>& weak);
  static Task<void> runListener(std::weak_ptr<QuillmarASAAttributionCore> weak, std::shared_ptr<TaskHandle> handle,
                                Activity activity);
  static Task<void> stopListener(std::weak_ptr<QuillmarASAAttributionCore> weak,
                                 std::weak_ptr<PurchaseInterceptorProtocol> dropped, Activity activity);
  static Task<void> fetchAttribution(std::weak_ptr<QuillmarASAAttributionCore> weak,
                                     std::shared_ptr<TaskHandle> enabling,
                                     std::shared_ptr<platform::AttributionTokenProvider> provider,
                                     std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> repository,
                                     Epoch::Term term, Activity activity);

  /// Puts a collaborator in the place of another, which is let go outside the lock.
  template <class T, class U>
  void set(T& slot, U value) {
    T other = std::move(value);
    const std::lock_guard lock(mutex_);
    slot.swap(other);
  }
  template <class T>
  T get(const T& slot) const {
    const std::lock_guard lock(mutex_);
    return slot;
  }

  void observeActivations();
  void note(QuillmarASAAttributionHealth::State state, std::string error = {});

  const platform::Platform platform_;
  const std::shared_ptr<ActivityCounter> activity_;
  const std::shared_ptr<PurchaseCounters> counters_;

  mutable std::mutex mutex_;  // guards each of the following, no two together
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository_;
  std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> asaAttributionTrackingRepository_;
  std::shared_ptr<EventsRepositoryProtocol> eventsRepository_;
  std::shared_ptr<PurchaseInterceptorProtocol> purchaseInterceptor_;
  std::shared_ptr<PurchaseProcessorProtocol> purchaseProcessor_;
  std::shared_ptr<TaskHandle> purchaseListenerTask_;
  std::string quillmarVerificationKey_;
  QuillmarASAAttributionHealth health_;

  const platform::Bundle bundle_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<Consent> consent_;
  const std::shared_ptr<Epoch> epoch_;  ///< the end of consent begins another
  const std::shared_ptr<SerialExecutor> outboxExecutor_;
  const std::shared_ptr<NetworkGate> gate_;
  const std::shared_ptr<Outbox> outbox_;
  QuillmarOptions options_;                                          // guarded by mutex_
  std::vector<platform::NotificationCenter::ObserverId> observers_;  // likewise
};

}  // namespace quillmar
