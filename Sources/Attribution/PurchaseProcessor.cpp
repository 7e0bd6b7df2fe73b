#include "Attribution/PurchaseProcessor.h"

#include <utility>

#include "Attribution/PropertyListJson.h"
#include "Json/CodingError.h"
#include "Json/JsonWriter.h"
#include "Json/Utf8.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Platform/ErrorCategory.h"
#include "Settings/EnabledFlag.h"
#include "Settings/Uuid.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

/// A representation of the platform's; nothing when it is no JSON object.
std::optional<JsonObjectText> objectOf(std::string representation) {
  try {
    return JsonObjectText::parse(std::move(representation));
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

std::string serialised(const CorrelatedPayload& payload, JsonWriter::Format format) {
  JsonWriter writer(format);
  payload.encode(writer);
  return writer.take();
}

}  // namespace

std::error_code make_error_code(PurchaseProcessorError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("PurchaseProcessorError", {{"payloadCreationFailed", "Failed to create purchase payload"},
                                                   {"serverCommunicationFailed", "Failed to send data to server"}});
  return {static_cast<int>(error), category};
}

PurchaseProcessor::PurchaseProcessor(
    std::shared_ptr<ASAAttributionTrackingRepositoryProtocol> asaAttributionTrackingRepository,
    std::shared_ptr<EventsRepositoryProtocol> eventsRepository, std::shared_ptr<platform::UserDefaults> userDefaults,
    std::shared_ptr<PurchaseCounters> counters, std::shared_ptr<Outbox> outbox) noexcept
    : asaAttributionTrackingRepository_(std::move(asaAttributionTrackingRepository)),
      eventsRepository_(std::move(eventsRepository)),
      userDefaults_(std::move(userDefaults)),
      counters_(std::move(counters)),
      outbox_(std::move(outbox)) {}

Task<void> PurchaseProcessor::processPurchase(platform::SubscriptionTransaction transaction,
                                              platform::SubscriptionRenewalInfo renewalInfo, std::int64_t state) {
  Log::debug("PurchaseProcessor - Processing purchase for transaction: {}, state: {}", transaction.identifier, state);
  if (!isSDKEnabled(*userDefaults_, "PurchaseProcessor - SDK enabled status")) {
    Log::debug("PurchaseProcessor - SDK is disabled by server configuration, skipping purchase processing");
    counters_->skipped.fetch_add(1, std::memory_order_relaxed);
    co_return;
  }
  std::optional<JsonObjectText> attribution;
  if (asaAttributionTrackingRepository_) {
    attribution = asaAttributionTrackingRepository_->getStoredAttributionDataAsDictionary();
  }
  std::optional<CorrelatedPayload> payload =
      createCorrelatedPayload(std::move(transaction), std::move(renewalInfo), state, std::move(attribution));
  if (!payload) {
    Log::error("PurchaseProcessor - Failed to create correlated payload");
    throw std::system_error(PurchaseProcessorError::payloadCreationFailed);
  }
  co_await sendToServer(std::move(*payload));
  Log::debug("PurchaseProcessor - Purchase processed successfully");
}

std::optional<CorrelatedPayload> PurchaseProcessor::createCorrelatedPayload(
    platform::SubscriptionTransaction transaction, platform::SubscriptionRenewalInfo renewalInfo, std::int64_t state,
    std::optional<JsonObjectText> asaAttributionData) const {
  Log::debug("PurchaseProcessor - Creating correlated payload");
  CorrelatedPayload payload;
  try {
    payload.eventId = makeUuid();
  } catch (const std::system_error&) {
    return std::nullopt;
  }
  if (const auto identifier = userDefaults_->object(Config::quillMarId)) {
    payload.quillmarId = propertyListJson(*identifier);
  }
  payload.appId = repairedUtf8(userDefaults_->string(Config::serverAppId).value_or("Unknown"));
  payload.transaction = objectOf(std::move(transaction.jsonRepresentation));
  payload.renewalInfo = objectOf(std::move(renewalInfo.jsonRepresentation));
  payload.state = state;
  payload.attributionDetails = std::move(asaAttributionData);
  Log::debug("PurchaseProcessor - Correlated payload created successfully");
  return payload;
}

Task<void> PurchaseProcessor::sendToServer(CorrelatedPayload payload) {
  Log::debug("PurchaseProcessor - Sending payload to server");
  if (Log::passes(LogLevel::error)) {
    // Deliberately at the error level, so that it shows whenever the log is on. JSON's texts have no line ends.
    Log::errorInLines("PurchaseProcessor - Complete payload: " +
                      serialised(payload, JsonWriter::Format::prettyPrinted));
  }
  try {
    std::string bytes = serialised(payload, JsonWriter::Format::compact);
    if (outbox_) {
      outbox_->keepPurchase(std::move(payload.eventId), std::string(CorrelatedPayload::eventName), std::move(bytes));
      co_return;
    }
    if (eventsRepository_) {
      co_await eventsRepository_->send(std::move(bytes));
      counters_->sent.fetch_add(1, std::memory_order_relaxed);
    }
  } catch (...) {
    Log::error("PurchaseProcessor - Failed to send data to server: {}", localizedDescription(std::current_exception()));
    throw std::system_error(PurchaseProcessorError::serverCommunicationFailed);
  }
  Log::debug("PurchaseProcessor - Purchase data sent successfully to server");
}

}  // namespace quillmar
