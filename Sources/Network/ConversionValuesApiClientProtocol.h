#pragma once

#include "Async/Task.h"
#include "quillmar/ConversionValues.h"

namespace quillmar {

class ConversionValuesApiClientProtocol {
 public:
  virtual ~ConversionValuesApiClientProtocol() = default;

  /// Fetches the conversion values alone. Throws the errors of building, transport and decoding.
  virtual Task<ConversionValues> fetchConversionValues() = 0;
};

}  // namespace quillmar
