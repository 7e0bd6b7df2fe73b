#include "Logging/ErrorDescription.h"

#include "Platform/ErrorCategory.h"

namespace quillmar {

namespace {
std::string withDetail(std::string text, const std::exception& error) {
  if (const auto* described = dynamic_cast<const DescribedError*>(&error)) {
    text += ": " + described->detail();
  }
  return text;
}
}  // namespace

std::string textualDescription(const std::exception& error) {
  const auto* systemError = dynamic_cast<const std::system_error*>(&error);
  if (systemError == nullptr) {
    return error.what();
  }
  const std::error_code code = systemError->code();
  const auto* category = dynamic_cast<const ErrorCategory*>(&code.category());
  return withDetail(category != nullptr ? category->caseName(code.value()) : code.message(), error);
}

std::string localizedDescription(const std::exception& error) {
  const auto* systemError = dynamic_cast<const std::system_error*>(&error);
  return systemError == nullptr ? std::string(error.what()) : withDetail(systemError->code().message(), error);
}

}  // namespace quillmar
