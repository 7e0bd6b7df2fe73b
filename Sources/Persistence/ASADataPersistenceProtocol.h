#pragma once

#include <optional>

#include "Json/JsonObjectText.h"
#include "Network/ASAAttributionResponse.h"

namespace quillmar {

/// Keeps the search-ads attribution of the installation. Nothing throws: what fails is logged. The operations run on
/// the calling thread and may block on the disk.
class ASADataPersistenceProtocol {
 public:
  virtual ~ASADataPersistenceProtocol() = default;

  virtual void saveASAData(const ASAAttributionResponse& data) = 0;
  virtual std::optional<ASAAttributionResponse> loadASAData() const = 0;
  /// The record as it is stored, whatever its members.
  virtual std::optional<JsonObjectText> loadASADataAsDictionary() const = 0;
  virtual void clearASAData() = 0;
  /// Whether there is a file; with `liveAttribution` only if it is a record.
  virtual bool hasASAData() const = 0;
};

}  // namespace quillmar
