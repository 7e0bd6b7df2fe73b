#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <string_view>

namespace quillmar {

/// What becomes of a value that is JSON, but beyond what we hold: a number too large for a double, or what is nested
/// more than 64 deep.
enum class BeyondLimits : std::uint8_t {
  failsWhenRead,  ///< an infinite double stands for it, which `JsonReader` refuses; nobody minds it where nobody reads
  failsAtOnce,
};

/// Parses one JSON document, strictly: UTF-8, nothing after it; only a byte order mark before it is skipped. Numbers
/// that are integers of 64 bits, however they are spelled, are exact integers; others are the nearest double.
/// Throws `DecodingErrorCode::dataCorrupted`, naming the line and column.
boost::json::value parseJson(std::string_view text, BeyondLimits beyondLimits = BeyondLimits::failsWhenRead);

/// The text without a byte order mark at its start.
std::string_view withoutByteOrderMark(std::string_view text) noexcept;

}  // namespace quillmar
