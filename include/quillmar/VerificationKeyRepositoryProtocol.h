#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "quillmar/Export.h"

namespace quillmar {

/// Keeps the key that the event service knows the app by. Called from any thread; may block on the disk.
class QUILLMAR_API VerificationKeyRepositoryProtocol {
 public:
  virtual ~VerificationKeyRepositoryProtocol() = default;

  /// The stored key; nothing when there is none.
  virtual std::optional<std::string> fetchVerificationKey() const = 0;

  /// Stores the key in place of the one before.
  virtual void save(std::string_view verificationKey) = 0;
};

}  // namespace quillmar
