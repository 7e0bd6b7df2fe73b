#pragma once

#include <exception>
#include <string>
#include <system_error>
#include <utility>

namespace quillmar {

/// An error with a text of its own that says what went wrong and where.
class DescribedError : public std::system_error {
 public:
  DescribedError(std::error_code code, std::string detail) : std::system_error(code), detail_(std::move(detail)) {}

  const std::string& detail() const noexcept { return detail_; }

 private:
  std::string detail_;
};

/// The textual description of an error: the name of its case, followed by the detail where there is one.
std::string textualDescription(const std::exception& error);

/// The localized description of an error: a sentence.
std::string localizedDescription(const std::exception& error);

// The same for whatever was thrown; a host's code may throw what is no `std::exception`.
std::string textualDescription(const std::exception_ptr& error);
std::string localizedDescription(const std::exception_ptr& error);

}  // namespace quillmar
