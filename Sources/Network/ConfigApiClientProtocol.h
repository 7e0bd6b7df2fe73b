#pragma once

#include "Async/Task.h"
#include "Model/ConfigResponse.h"

namespace quillmar {

class ConfigApiClientProtocol {
 public:
  virtual ~ConfigApiClientProtocol() = default;

  /// Fetches the configuration. Throws the errors of building, transport and decoding.
  virtual Task<ConfigResponse> fetchConfig() = 0;
};

}  // namespace quillmar
