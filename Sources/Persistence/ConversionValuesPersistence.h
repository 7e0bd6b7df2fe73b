#pragma once

#include <memory>

#include "Model/ConversionValuesCoding.h"
#include "Persistence/ConversionValuesPersistenceProtocol.h"
#include "Persistence/PersistenceItem.h"

namespace quillmar {

/// Keeps the conversion-values document in its file.
class ConversionValuesPersistence final : public ConversionValuesPersistenceProtocol {
 public:
  static constexpr const char* filename = "quill-mar-conv-val.json";

  explicit ConversionValuesPersistence(std::shared_ptr<PersistenceItem<ConversionValues>> persistenceItem) noexcept;

  /// Replaces the document by deleting and then writing it. When the deletion fails nothing is written.
  void save(const ConversionValues& conversionValues) override;

  std::shared_ptr<const ConversionValues> getAllConversionValues() const override;

 private:
  const std::shared_ptr<PersistenceItem<ConversionValues>> persistenceItem_;
};

}  // namespace quillmar
