#include "Settings/VerificationKeyRepository.h"

#include <utility>

#include "Settings/Config.h"

namespace quillmar {

VerificationKeyRepository::VerificationKeyRepository(std::shared_ptr<platform::UserDefaults> userDefaults) noexcept
    : userDefaults_(std::move(userDefaults)) {}

std::optional<std::string> VerificationKeyRepository::fetchVerificationKey() const {
  return userDefaults_->string(Config::quillmarVerificationKey);
}

void VerificationKeyRepository::save(std::string_view verificationKey) {
  userDefaults_->set(Config::quillmarVerificationKey, std::string(verificationKey));
}

}  // namespace quillmar
