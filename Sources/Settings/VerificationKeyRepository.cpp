#include "Settings/VerificationKeyRepository.h"

#include <utility>

#include "quillmar/Config.h"

namespace quillmar {

VerificationKeyRepository::VerificationKeyRepository(std::shared_ptr<platform::UserDefaults> userDefaults) noexcept
    : userDefaults_(std::move(userDefaults)) {}

std::optional<std::string> VerificationKeyRepository::fetchVerificationKey() const {
  return userDefaults_->string(Config::quillmarVerificationKey);
}

void VerificationKeyRepository::save(std::string_view verificationKey) {
  // A store that cannot write now keeps the key in memory; this repository says nothing about it.
  static_cast<void>(userDefaults_->set(Config::quillmarVerificationKey, std::string(verificationKey)));
}

}  // namespace quillmar
