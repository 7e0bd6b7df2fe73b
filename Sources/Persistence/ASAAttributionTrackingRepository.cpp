#include "Persistence/ASAAttributionTrackingRepository.h"

#include <exception>
#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Platform/ErrorCategory.h"
#include "quillmar/platform/URLError.h"

namespace quillmar {

std::error_code make_error_code(ASAAttributionTrackingRepositoryError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("ASAAttributionTrackingRepositoryError",
                        {{"noAttributionData", "There is no attribution data."},
                         {"attributionDataFetchFailed", "The attribution data could not be fetched."}});
  return {static_cast<int>(error), category};
}

ASAAttributionTrackingRepository::ASAAttributionTrackingRepository(
    std::shared_ptr<AppleSearchAdsApiClientProtocol> appleApiClient,
    std::shared_ptr<ASADataPersistenceProtocol> asaDataPersistence, Epoch::Term term) noexcept
    : appleApiClient_(std::move(appleApiClient)),
      asaDataPersistence_(std::move(asaDataPersistence)),
      term_(std::move(term)) {}

Task<void> ASAAttributionTrackingRepository::fetchAndStoreAttributionData(std::string token) {
  Log::debug("ASAAttributionTrackingRepository - Fetching attribution data from Apple");
  try {
    const ASAAttributionResponse data = co_await appleApiClient_->fetchAttributionData(std::move(token));
    if (!term_.during([&] { asaDataPersistence_->saveASAData(data); })) {
      throw std::system_error(platform::URLError::cancelled);
    }
  } catch (...) {
    Log::error("ASAAttributionTrackingRepository - Failed to fetch attribution data: {}",
               localizedDescription(std::current_exception()));
    std::throw_with_nested(std::system_error(ASAAttributionTrackingRepositoryError::attributionDataFetchFailed));
  }
  Log::debug("ASAAttributionTrackingRepository - Successfully fetched and stored attribution data");
}

std::optional<ASAAttributionResponse> ASAAttributionTrackingRepository::getStoredAttributionData() const {
  Log::debug("ASAAttributionTrackingRepository - Getting stored attribution data");
  return asaDataPersistence_->loadASAData();
}

std::optional<JsonObjectText> ASAAttributionTrackingRepository::getStoredAttributionDataAsDictionary() const {
  Log::debug("ASAAttributionTrackingRepository - Getting stored attribution data as [String: Any]");
  return asaDataPersistence_->loadASADataAsDictionary();
}

bool ASAAttributionTrackingRepository::hasAttributionData() const {
  Log::debug("ASAAttributionTrackingRepository - Checking if attribution data exists");
  return asaDataPersistence_->hasASAData();
}

void ASAAttributionTrackingRepository::clearAttributionData() {
  Log::debug("ASAAttributionTrackingRepository - Clearing attribution data");
  asaDataPersistence_->clearASAData();
}

}  // namespace quillmar
