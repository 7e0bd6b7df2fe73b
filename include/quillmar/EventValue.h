#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace quillmar {

/// The value of one event parameter: a Boolean, a number or a text.
///
/// Numbers, and texts that are decimal numbers ("9.99"), take part in revenue rules; other values are
/// accepted and left out there.
class EventValue {
 public:
  /// What a value can be.
  using Storage = std::variant<bool, std::int64_t, double, std::string>;

  /// A bool, and nothing that only converts to one: every pointer does.
  template <class Bool, std::enable_if_t<std::is_same_v<Bool, bool>, int> = 0>
  EventValue(Bool value) noexcept : storage_(value) {}  // NOLINT(google-explicit-constructor)

  /// Any integer. An unsigned value beyond the signed 64-bit range is kept as the nearest double.
  template <class Integer, std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>, int> = 0>
  EventValue(Integer value) noexcept : storage_(fromInteger(value)) {}  // NOLINT(google-explicit-constructor)

  /// A number or a text.
  /// @{
  EventValue(double value) noexcept : storage_(value) {}  // NOLINT(google-explicit-constructor)
  EventValue(float value) noexcept                        // NOLINT(google-explicit-constructor)
      : storage_(static_cast<double>(value)) {}
  EventValue(std::string value) noexcept : storage_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  EventValue(std::string_view value) : storage_(std::string(value)) {}    // NOLINT(google-explicit-constructor)
  /// @}
  /// Null counts as an empty text.
  EventValue(const char* value)  // NOLINT(google-explicit-constructor)
      : storage_(std::string(value == nullptr ? "" : value)) {}
  EventValue(std::nullptr_t) = delete;

  /// The content. Not for use from several threads at once when one changes it.
  /// @{
  const Storage& storage() const noexcept { return storage_; }
  Storage& storage() noexcept { return storage_; }
  /// @}

  friend bool operator==(const EventValue& a, const EventValue& b) { return a.storage_ == b.storage_; }
  friend bool operator!=(const EventValue& a, const EventValue& b) { return !(a == b); }

 private:
  template <class Integer>
  static Storage fromInteger(Integer value) noexcept {
    if constexpr (std::is_unsigned_v<Integer> && sizeof(Integer) >= sizeof(std::int64_t)) {
      if (value > static_cast<Integer>(std::numeric_limits<std::int64_t>::max())) {
        return static_cast<double>(value);
      }
    }
    return static_cast<std::int64_t>(value);
  }

  Storage storage_;
};

/// Event parameters keyed by their names, the form in which the library handles them inside.
using NamedParameters = std::map<std::string, EventValue>;

}  // namespace quillmar
