#pragma once

#include <cstdint>
#include <string>
#include <system_error>

#include "Logging/ErrorDescription.h"

namespace quillmar {

/// Why a JSON document could not be decoded.
enum class DecodingErrorCode {
  typeMismatch = 1,  ///< a value of another JSON type, or a number that does not fit
  valueNotFound,     ///< null where a value is required
  keyNotFound,       ///< a required member is missing
  dataCorrupted,     ///< not JSON, or a text that is none of the known ones
};

enum class EncodingErrorCode {
  invalidValue = 1,  ///< a number that JSON cannot express (infinite or not a number)
};

std::error_code make_error_code(DecodingErrorCode error) noexcept;
std::error_code make_error_code(EncodingErrorCode error) noexcept;

/// The detail names the place as a JSON path: values[0].windows.window1.fineValue.
using DecodingError = DescribedError;
using EncodingError = DescribedError;

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::DecodingErrorCode> : std::true_type {};
template <>
struct std::is_error_code_enum<quillmar::EncodingErrorCode> : std::true_type {};
