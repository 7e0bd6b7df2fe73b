#pragma once

#include <memory>

#include "Network/ConfigApiClientProtocol.h"
#include "Persistence/ConversionValuesPersistenceProtocol.h"
#include "Persistence/ConversionValuesRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

class ConversionValuesRepository final : public ConversionValuesRepositoryProtocol {
 public:
  ConversionValuesRepository(std::shared_ptr<ConfigApiClientProtocol> configApiClient,
                             std::shared_ptr<ConversionValuesPersistenceProtocol> persistence,
                             std::shared_ptr<platform::UserDefaults> userDefaults) noexcept;

  Task<void> fetchAndSaveConversionValues() override;
  std::shared_ptr<const ConversionValues> fetchAllConversionValues() const override;

 private:
  Task<void> fetchAndSave();

  const std::shared_ptr<ConfigApiClientProtocol> configApiClient_;
  const std::shared_ptr<ConversionValuesPersistenceProtocol> persistence_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
};

}  // namespace quillmar
