#include "Json/CodingError.h"

#include "Platform/ErrorCategory.h"

namespace quillmar {

std::error_code make_error_code(DecodingErrorCode error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("DecodingError", {{"typeMismatch", "A value has the wrong type"},
                                          {"valueNotFound", "A required value is null"},
                                          {"keyNotFound", "A required member is missing"},
                                          {"dataCorrupted", "The data is not in the correct format"}});
  return {static_cast<int>(error), category};
}

std::error_code make_error_code(EncodingErrorCode error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("EncodingError", {{"invalidValue", "A value cannot be written as JSON"}});
  return {static_cast<int>(error), category};
}

}  // namespace quillmar
