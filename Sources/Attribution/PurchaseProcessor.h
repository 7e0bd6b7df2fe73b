#pragma once

#include <memory>
#include <optional>
#include <system_error>

#include "Attribution/CorrelatedPayload.h"
#include "Attribution/PurchaseCounters.h"
#include "Attribution/PurchaseProcessorProtocol.h"
#include "Delivery/Outbox.h"
#include "Persistence/ASAAttributionTrackingRepositoryProtocol.h"
#include "Persistence/EventsRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

enum class PurchaseProcessorError {
  payloadCreationFailed = 1,  ///< no random bytes for the identifier of the payload
  serverCommunicationFailed,
};

std::error_code make_error_code(PurchaseProcessorError error) noexcept;

/// Joins a purchase with the stored attribution and sends both. It tries once: what cannot be sent is lost, unless
/// there is an outbox, which it is handed to instead.
class PurchaseProcessor final : public PurchaseProcessorProtocol {
 public:
  /// Without the first repository purchases have no attribution; without the second they are dropped and yet reported
  /// as sent.
  PurchaseProcessor(std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> asaAttributionTrackingRepository,
                    std::shared_ptr<EventsRepositoryProtocol> eventsRepository,
                    std::shared_ptr<platform::UserDefaults> userDefaults,
                    std::shared_ptr<PurchaseCounters> counters = std::make_shared<PurchaseCounters>(),
                    std::shared_ptr<Outbox> outbox = nullptr) noexcept;

  Task<void> processPurchase(platform::SubscriptionTransaction transaction,
                             platform::SubscriptionRenewalInfo renewalInfo, std::int64_t state) override;

 private:
  std::optional<CorrelatedPayload> createCorrelatedPayload(platform::SubscriptionTransaction transaction,
                                                           platform::SubscriptionRenewalInfo renewalInfo,
                                                           std::int64_t state,
                                                           std::optional<JsonObjectText> asaAttributionData) const;
  Task<void> sendToServer(CorrelatedPayload payload);

  const std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> asaAttributionTrackingRepository_;
  const std::shared_ptr<EventsRepositoryProtocol> eventsRepository_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<PurchaseCounters> counters_;
  const std::shared_ptr<Outbox> outbox_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::PurchaseProcessorError> : std::true_type {};
