#include "Persistence/ConversionValuesRepository.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Model/ConversionValuesCoding.h"
#include "Settings/StoreSetting.h"
#include "quillmar/Config.h"
#include "quillmar/platform/URLError.h"

namespace quillmar {

ConversionValuesRepository::ConversionValuesRepository(std::shared_ptr<ConfigApiClientProtocol> configApiClient,
                                                       std::shared_ptr<ConversionValuesPersistenceProtocol> persistence,
                                                       std::shared_ptr<platform::UserDefaults> userDefaults,
                                                       std::shared_ptr<platform::Executor> executor,
                                                       std::shared_ptr<Epoch> epoch) noexcept
    : configApiClient_(std::move(configApiClient)),
      persistence_(std::move(persistence)),
      userDefaults_(std::move(userDefaults)),
      executor_(std::move(executor)),
      epoch_(std::move(epoch)) {}

void ConversionValuesRepository::fetchAndSaveConversionValues(Completion completion) {
  spawn(executor_, fetchTask(shared_from_this(), epoch_->current(), std::move(completion)));
}

Task<void> ConversionValuesRepository::fetchTask(std::shared_ptr<ConversionValuesRepository> self, std::uint64_t begun,
                                                 Completion completion) {
  Log::debug("ConversionValuesRepository - Fetching config from server");
  std::exception_ptr failure;
  try {
    co_await self->fetchAndSave(begun);
  } catch (...) {
    failure = std::current_exception();
    Log::error("ConversionValuesRepository - Failed to fetch and save conversion values: {}",
               textualDescription(failure));
  }
  completion(std::move(failure));
}

Task<void> ConversionValuesRepository::fetchAndSave(std::uint64_t begun) {
  ConfigResponse response = co_await configApiClient_->fetchConfig();
  Log::debug("ConversionValuesRepository - Config fetched: appId={}, sdkEnabled={}", response.appId,
             response.sdkEnabled);
  if (!epoch_->during(begun, [&] { save(std::move(response)); })) {
    throw std::system_error(platform::URLError::cancelled);
  }
}

void ConversionValuesRepository::save(ConfigResponse response) {
  // Before the document: the service's verdict takes effect even when the document cannot be written.
  storeSetting(*userDefaults_, Config::serverAppId, response.appId);
  storeSetting(*userDefaults_, Config::sdkEnabled, response.sdkEnabled);
  Log::debug("ConversionValuesRepository - Saved server config: appId={}, sdkEnabled={}", response.appId,
             response.sdkEnabled);
  const ConversionValues conversionValues = std::move(response).conversionValues();  // a document may be large
  persistence_->save(conversionValues);
  if (Log::passes(LogLevel::debug)) {
    Log::debug("ConversionValuesRepository - Conversion values saved to persistence: {}",
               description(conversionValues));
  }
}

std::shared_ptr<const ConversionValues> ConversionValuesRepository::fetchAllConversionValues() const {
  Log::debug("ConversionValuesRepository - Fetching all conversion values from persistence");
  auto conversionValues = persistence_->getAllConversionValues();
  if (Log::passes(LogLevel::debug)) {
    Log::debug("ConversionValuesRepository - Fetched conversion values: {}", description(conversionValues->values));
  }
  return conversionValues;
}

}  // namespace quillmar
