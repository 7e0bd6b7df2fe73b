#include "Persistence/ConversionValuesRepository.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Logger.h"
#include "Settings/Config.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

ConversionValuesRepository::ConversionValuesRepository(std::shared_ptr<ConfigApiClientProtocol> configApiClient,
                                                       std::shared_ptr<ConversionValuesPersistenceProtocol> persistence,
                                                       std::shared_ptr<platform::UserDefaults> userDefaults) noexcept
    : configApiClient_(std::move(configApiClient)),
      persistence_(std::move(persistence)),
      userDefaults_(std::move(userDefaults)) {}

Task<void> ConversionValuesRepository::fetchAndSaveConversionValues() {
  Logger::debug("ConversionValuesRepository - Fetching config from server");
  try {
    co_await fetchAndSave();
  } catch (const std::exception& error) {
    Logger::error("ConversionValuesRepository - Failed to fetch and save conversion values: {}",
                  textualDescription(error));
    throw;
  }
}

Task<void> ConversionValuesRepository::fetchAndSave() {
  const ConfigResponse response = co_await configApiClient_->fetchConfig();
  Logger::debug("ConversionValuesRepository - Config fetched: appId={}, sdkEnabled={}", response.appId,
                response.sdkEnabled);
  // Before the document, on purpose: the service's verdict takes effect even when the document cannot be written.
  storeSetting(*userDefaults_, Config::serverAppId, response.appId);
  storeSetting(*userDefaults_, Config::sdkEnabled, response.sdkEnabled);
  Logger::debug("ConversionValuesRepository - Saved server config: appId={}, sdkEnabled={}", response.appId,
                response.sdkEnabled);
  const ConversionValues conversionValues = response.conversionValues();
  persistence_->save(conversionValues);
  if (Logger::passes(LogLevel::debug)) {
    Logger::debug("ConversionValuesRepository - Conversion values saved to persistence: {}",
                  description(conversionValues));
  }
}

std::shared_ptr<const ConversionValues> ConversionValuesRepository::fetchAllConversionValues() const {
  Logger::debug("ConversionValuesRepository - Fetching all conversion values from persistence");
  auto conversionValues = persistence_->getAllConversionValues();
  if (Logger::passes(LogLevel::debug)) {
    Logger::debug("ConversionValuesRepository - Fetched conversion values: {}", description(conversionValues->values));
  }
  return conversionValues;
}

}  // namespace quillmar
