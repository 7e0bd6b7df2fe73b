#pragma once

#include <memory>

#include "quillmar/ConversionValues.h"

namespace quillmar {

class ConversionValuesPersistenceProtocol {
 public:
  virtual ~ConversionValuesPersistenceProtocol() = default;

  // Both run on the calling thread and throw what keeps them from their work.
  virtual void save(const ConversionValues& conversionValues) = 0;
  virtual std::shared_ptr<const ConversionValues> getAllConversionValues() const = 0;
};

}  // namespace quillmar
