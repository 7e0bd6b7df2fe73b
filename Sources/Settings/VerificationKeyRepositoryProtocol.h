#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmar {

/// Keeps the key that the event service knows the app by.
class VerificationKeyRepositoryProtocol {
 public:
  virtual ~VerificationKeyRepositoryProtocol() = default;

  virtual std::optional<std::string> fetchVerificationKey() const = 0;
  virtual void save(std::string_view verificationKey) = 0;
};

}  // namespace quillmar
