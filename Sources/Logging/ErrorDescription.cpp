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

template <class Describe>
std::string describeThrown(const std::exception_ptr& error, Describe describe) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& known) {
    return describe(known);
  } catch (...) {
    return "an error that is no std::exception";
  }
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

std::string textualDescription(const std::exception_ptr& error) {
  return describeThrown(error, [](const std::exception& known) { return textualDescription(known); });
}

std::string localizedDescription(const std::exception_ptr& error) {
  return describeThrown(error, [](const std::exception& known) { return localizedDescription(known); });
}

}  // namespace quillmar
