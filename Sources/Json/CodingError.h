#pragma once

#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

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

using EncodingError = DescribedError;

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::DecodingErrorCode> : std::true_type {};
template <>
struct std::is_error_code_enum<quillmar::EncodingErrorCode> : std::true_type {};

namespace quillmar {

/// Where in a document. Both are empty when all of it is meant.
struct DecodingPlace {
  std::string path = {};  ///< values[0].windows.window1.fineValue
  std::size_t line = 0;   ///< of a text that is no JSON; counted from 1
};

/// The detail names the place, which is also there by itself.
class DecodingError : public DescribedError {
 public:
  DecodingError(DecodingErrorCode code, std::string detail, DecodingPlace place = {})
      : DescribedError(code, std::move(detail)), place_(std::move(place)) {}

  const DecodingPlace& place() const noexcept { return place_; }

 private:
  DecodingPlace place_;
};

}  // namespace quillmar
