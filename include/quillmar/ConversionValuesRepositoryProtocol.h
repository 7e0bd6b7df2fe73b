#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "quillmar/ConversionValues.h"
#include "quillmar/Export.h"

namespace quillmar {

/// Where the service's configuration enters the library and is kept. Called on the platform's executor.
class QUILLMAR_API ConversionValuesRepositoryProtocol {
 public:
  /// What went wrong; null when nothing did.
  using Completion = std::function<void(std::exception_ptr failure)>;

  virtual ~ConversionValuesRepositoryProtocol() = default;

  /// Fetches the configuration and stores it: the app's identifier and the enabled flag in the settings, then the
  /// document. Returns at once. Calls `completion` once, on any thread, also inside this call; a completion that is
  /// destroyed uncalled ends the fetch.
  virtual void fetchAndSaveConversionValues(Completion completion) = 0;

  /// The stored document, never null. May block on the disk. Throws when there is none that can be read.
  virtual std::shared_ptr<const ConversionValues> fetchAllConversionValues() const = 0;
};

}  // namespace quillmar
