#include "Persistence/ConversionValuesPersistence.h"

#include <utility>

namespace quillmar {

ConversionValuesPersistence::ConversionValuesPersistence(
    std::shared_ptr<PersistenceItem<ConversionValues>> persistenceItem) noexcept
    : persistenceItem_(std::move(persistenceItem)) {}

void ConversionValuesPersistence::save(const ConversionValues& conversionValues) {
  Logger::debug("ConversionValuesPersistence - Saving conversion values");
  persistenceItem_->delete_();
  persistenceItem_->save(conversionValues);
  Logger::debug("ConversionValuesPersistence - Conversion values saved successfully");
}

std::shared_ptr<const ConversionValues> ConversionValuesPersistence::getAllConversionValues() const {
  Logger::debug("ConversionValuesPersistence - Reading conversion values");
  auto conversionValues = persistenceItem_->read();
  if (Logger::passes(LogLevel::debug)) {
    Logger::debug("ConversionValuesPersistence - Read conversion values: {}", description(*conversionValues));
  }
  return conversionValues;
}

}  // namespace quillmar
