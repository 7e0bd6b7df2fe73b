#pragma once

#include <memory>

#include "Async/Task.h"
#include "Model/ConversionValues.h"

namespace quillmar {

/// Where the service's configuration enters the library and is kept.
class ConversionValuesRepositoryProtocol {
 public:
  virtual ~ConversionValuesRepositoryProtocol() = default;

  /// Fetches the configuration and stores it: the app's identifier and the enabled flag in the settings, then the
  /// document. Throws the client's or the persistence's error. The object must live until the task is done.
  virtual Task<void> fetchAndSaveConversionValues() = 0;

  /// The stored document. Throws the persistence's error.
  virtual std::shared_ptr<const ConversionValues> fetchAllConversionValues() const = 0;
};

}  // namespace quillmar
