#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quillmar {

/// The date formats that the library recognises. The log's timestamp is not chosen through it.
enum class LogDateFormatter : std::uint8_t {
  MM_dd_yyyy_HH_mm_ss_SSS,
  MM_dd_yyyy_HH_mm_ss,
  E_d_MMM_yyyy_HH_mm_ss_Z,
  MMM_d_HH_mm_ss_SSSZ,
};

inline constexpr std::array<std::string_view, 4> logDateFormats{"MM/dd/yyyy HH:mm:ss:SSS", "MM-dd-yyyy HH:mm:ss",
                                                                "E, d MMM yyyy HH:mm:ss Z", "MMM d, HH:mm:ss:SSSZ"};

constexpr std::string_view rawValue(LogDateFormatter format) noexcept {
  return logDateFormats[static_cast<std::size_t>(format)];
}

constexpr std::optional<LogDateFormatter> logDateFormatterFromRawValue(std::string_view rawValue) noexcept {
  for (std::size_t i = 0; i < logDateFormats.size(); ++i) {
    if (logDateFormats[i] == rawValue) {
      return static_cast<LogDateFormatter>(i);
    }
  }
  return std::nullopt;
}

}  // namespace quillmar
