#pragma once

#include <memory>
#include <system_error>

#include "Async/Epoch.h"
#include "Network/AppleSearchAdsApiClientProtocol.h"
#include "Persistence/ASAAttributionTrackingRepositoryProtocol.h"
#include "Persistence/ASADataPersistenceProtocol.h"

namespace quillmar {

enum class ASAAttributionTrackingRepositoryError {
  noAttributionData = 1,  ///< never thrown
  attributionDataFetchFailed,
};

std::error_code make_error_code(ASAAttributionTrackingRepositoryError error) noexcept;

class ASAAttributionTrackingRepository final : public ASAAttributionTrackingRepositoryProtocol {
 public:
  /// Stores nothing once the term is over.
  ASAAttributionTrackingRepository(std::shared_ptr<AppleSearchAdsApiClientProtocol> appleApiClient,
                                   std::shared_ptr<ASADataPersistenceProtocol> asaDataPersistence,
                                   Epoch::Term term = {}) noexcept;

  Task<void> fetchAndStoreAttributionData(std::string token) override;
  std::optional<ASAAttributionResponse> getStoredAttributionData() const override;
  std::optional<JsonObjectText> getStoredAttributionDataAsDictionary() const override;
  bool hasAttributionData() const override;
  void clearAttributionData() override;

 private:
  const std::shared_ptr<AppleSearchAdsApiClientProtocol> appleApiClient_;
  const std::shared_ptr<ASADataPersistenceProtocol> asaDataPersistence_;
  const Epoch::Term term_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::ASAAttributionTrackingRepositoryError> : std::true_type {};
