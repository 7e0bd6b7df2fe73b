#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "quillmar/EventValue.h"

namespace quillmar {

/// The names of the parameters that a host may attach to an event.
enum class ASEventParam : std::uint8_t {
  revenue,  ///< "revenue": what the event earned, in the currency of the conversion rules
};

/// Every parameter name.
inline constexpr std::array<ASEventParam, 1> allASEventParams{ASEventParam::revenue};

/// The dictionary key of a parameter, which is also its raw value.
constexpr std::string_view key(ASEventParam param) noexcept {
  return param == ASEventParam::revenue ? std::string_view("revenue") : std::string_view();
}

/// The parameter with exactly this raw value (case-sensitive), or nothing.
constexpr std::optional<ASEventParam> eventParamFromRawValue(std::string_view rawValue) noexcept {
  for (const ASEventParam param : allASEventParams) {
    if (key(param) == rawValue) {
      return param;
    }
  }
  return std::nullopt;
}

/// Event parameters as the host hands them in.
using EventParameters = std::map<ASEventParam, EventValue>;

/// Replaces each key by its dictionary key; values are kept as they are. Throws only when memory runs out.
inline NamedParameters parameters(EventParameters params) {
  NamedParameters named;
  for (auto& [param, value] : params) {
    named.emplace(std::string(key(param)), std::move(value));
  }
  return named;
}

}  // namespace quillmar
