#include "Persistence/ConversionValuesPersistence.h"

#include <utility>

namespace quillmar {

ConversionValuesPersistence::ConversionValuesPersistence(
    std::shared_ptr<PersistenceItem<ConversionValues>> persistenceItem) noexcept
    : persistenceItem_(std::move(persistenceItem)) {}

void ConversionValuesPersistence::save(const ConversionValues& conversionValues) {
  Log::debug("ConversionValuesPersistence - Saving conversion values");
  persistenceItem_->delete_();
  persistenceItem_->save(conversionValues);
  Log::debug("ConversionValuesPersistence - Conversion values saved successfully");
}

std::shared_ptr<const ConversionValues> ConversionValuesPersistence::getAllConversionValues() const {
  Log::debug("ConversionValuesPersistence - Reading conversion values");
  auto conversionValues = persistenceItem_->read();
  if (Log::passes(LogLevel::debug)) {
    Log::debug("ConversionValuesPersistence - Read conversion values: {}", description(*conversionValues));
  }
  return conversionValues;
}

}  // namespace quillmar
