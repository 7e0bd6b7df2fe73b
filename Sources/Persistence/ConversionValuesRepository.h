#pragma once

#include <memory>

#include "Async/Epoch.h"
#include "Async/Task.h"
#include "Network/ConfigApiClientProtocol.h"
#include "Persistence/ConversionValuesPersistenceProtocol.h"
#include "quillmar/ConversionValuesRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

class ConversionValuesRepository final : public ConversionValuesRepositoryProtocol,
                                         public std::enable_shared_from_this<ConversionValuesRepository> {
 public:
  /// Fetches on `executor`. A fetch that a reset overtakes stores nothing and fails with `URLError::cancelled`.
  ConversionValuesRepository(std::shared_ptr<ConfigApiClientProtocol> configApiClient,
                             std::shared_ptr<ConversionValuesPersistenceProtocol> persistence,
                             std::shared_ptr<platform::UserDefaults> userDefaults,
                             std::shared_ptr<platform::Executor> executor,
                             std::shared_ptr<Epoch> epoch = std::make_shared<Epoch>()) noexcept;

  void fetchAndSaveConversionValues(Completion completion) override;
  std::shared_ptr<const ConversionValues> fetchAllConversionValues() const override;

 private:
  static Task<void> fetchTask(std::shared_ptr<ConversionValuesRepository> self, std::uint64_t begun,
                              Completion completion);
  Task<void> fetchAndSave(std::uint64_t begun);
  void save(ConfigResponse response);

  const std::shared_ptr<ConfigApiClientProtocol> configApiClient_;
  const std::shared_ptr<ConversionValuesPersistenceProtocol> persistence_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<platform::Executor> executor_;
  const std::shared_ptr<Epoch> epoch_;
};

}  // namespace quillmar
