#pragma once

#include <memory>

#include "quillmar/VerificationKeyRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

class VerificationKeyRepository final : public VerificationKeyRepositoryProtocol {
 public:
  explicit VerificationKeyRepository(std::shared_ptr<platform::UserDefaults> userDefaults) noexcept;

  std::optional<std::string> fetchVerificationKey() const override;
  void save(std::string_view verificationKey) override;

 private:
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
};

}  // namespace quillmar
