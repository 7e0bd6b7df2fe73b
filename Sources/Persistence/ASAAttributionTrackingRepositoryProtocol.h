#pragma once

#include <optional>
#include <string>

#include "Async/Task.h"
#include "Json/JsonObjectText.h"
#include "Network/ASAAttributionResponse.h"

namespace quillmar {

/// Where the search-ads attribution enters the library and is kept.
class ASAAttributionTrackingRepositoryProtocol {
 public:
  virtual ~ASAAttributionTrackingRepositoryProtocol() = default;

  /// Throws `ASAAttributionTrackingRepositoryError::attributionDataFetchFailed`, with the cause nested in it; a record
  /// that was fetched but cannot be stored is no error. The object must live until the task is done.
  virtual Task<void> fetchAndStoreAttributionData(std::string token) = 0;
  virtual std::optional<ASAAttributionResponse> getStoredAttributionData() const = 0;
  virtual std::optional<JsonObjectText> getStoredAttributionDataAsDictionary() const = 0;
  virtual bool hasAttributionData() const = 0;
  virtual void clearAttributionData() = 0;
};

}  // namespace quillmar
