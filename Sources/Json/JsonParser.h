#pragma once

#include <boost/json/value.hpp>
#include <string_view>

namespace quillmar {

/// Parses one JSON document, strictly: UTF-8, nothing behind it, nested at most 64 deep; integers exact to 64 bits,
/// other numbers the nearest double, which must be finite. Throws `DecodingErrorCode::dataCorrupted`, naming the line
/// and column.
boost::json::value parseJson(std::string_view text);

}  // namespace quillmar
