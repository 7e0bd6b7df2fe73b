#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <system_error>

namespace quillmar {

/// A category of one of the library's error enumerations. Each error has two texts: the name of its case (the textual
/// description) and its message (the localized description).
class ErrorCategory : public std::error_category {
 public:
  virtual std::string caseName(int value) const = 0;
};

struct ErrorTexts {
  const char* caseName;
  const char* message;
};

/// The category of an enumeration whose cases are numbered from 1 in the order of `texts`.
template <std::size_t Count>
class TableErrorCategory final : public ErrorCategory {
 public:
  TableErrorCategory(const char* name, const std::array<ErrorTexts, Count>& texts) : name_(name), texts_(texts) {}

  const char* name() const noexcept override { return name_; }
  std::string caseName(int value) const override { return texts(value).caseName; }
  std::string message(int value) const override { return texts(value).message; }

 private:
  ErrorTexts texts(int value) const noexcept {
    const auto index = static_cast<std::size_t>(value) - 1;
    return index < Count ? texts_[index] : ErrorTexts{"unknown", "An unknown error occurred."};
  }

  const char* name_;
  std::array<ErrorTexts, Count> texts_;
};

/// Makes a category that is never destroyed, since errors may still be described while the process ends.
template <std::size_t Count>
const std::error_category& makeErrorCategory(const char* name, const ErrorTexts (&texts)[Count]) {
  return *new TableErrorCategory<Count>(name, std::to_array(texts));
}

}  // namespace quillmar
