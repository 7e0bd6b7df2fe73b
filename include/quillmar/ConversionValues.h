#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillmar/Export.h"
#include "quillmar/platform/AdAttributionKit.h"
#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar {

/// The conversion-values configuration: which fine and coarse value each set of events earns in each postback window,
/// and when the windows lock. A plain value, compared by content.
struct QUILLMAR_API ConversionValues {
  /// The three postback windows.
  enum class Window : std::uint8_t { window0, window1, window2 };

  /// Declared from high to low; the ranking of `compareWindowValue` is another order.
  enum class CoarseValue : std::uint8_t { high, medium, low };

  /// When a window locks.
  enum class LockWindowType : std::uint8_t {
    time,  ///< locks after a number of hours
    high,  ///< locks once the highest coarse value is reached
  };

  /// A condition on the tracked events.
  struct RequiredEvent {
    std::string name;
    // The revenue counts only when both bounds are there.
    std::optional<double> revenueMin = std::nullopt;
    std::optional<double> revenueMax = std::nullopt;
    friend bool operator==(const RequiredEvent& a, const RequiredEvent& b) {
      return a.name == b.name && a.revenueMin == b.revenueMin && a.revenueMax == b.revenueMax;
    }
    friend bool operator!=(const RequiredEvent& a, const RequiredEvent& b) { return !(a == b); }
  };

  /// A fine value, and the events that earn it.
  struct FineValue {
    std::int64_t value = 0;  ///< 0...63; the document is not checked for it
    std::vector<RequiredEvent> requiredEvents;
    friend bool operator==(const FineValue& a, const FineValue& b) {
      return a.value == b.value && a.requiredEvents == b.requiredEvents;
    }
    friend bool operator!=(const FineValue& a, const FineValue& b) { return !(a == b); }
  };

  /// A coarse value, and the events that earn it.
  struct CoarseValueData {
    CoarseValue value = CoarseValue::low;
    std::vector<RequiredEvent> requiredEvents;
    friend bool operator==(const CoarseValueData& a, const CoarseValueData& b) {
      return a.value == b.value && a.requiredEvents == b.requiredEvents;
    }
    friend bool operator!=(const CoarseValueData& a, const CoarseValueData& b) { return !(a == b); }
  };

  /// What a rule reports in one window: a fine value, a coarse value, both or neither.
  struct WindowValue {
    std::optional<FineValue> fineValue = std::nullopt;
    std::optional<CoarseValueData> coarseValue = std::nullopt;
    friend bool operator==(const WindowValue& a, const WindowValue& b) {
      return a.fineValue == b.fineValue && a.coarseValue == b.coarseValue;
    }
    friend bool operator!=(const WindowValue& a, const WindowValue& b) { return !(a == b); }
  };

  /// One named rule set.
  struct QUILLMAR_API ConversionValue {
    std::string key;
    /// By window name; names that are none of the three windows are kept, and ignored.
    std::map<std::string, WindowValue, std::less<>> windows;
    friend bool operator==(const ConversionValue& a, const ConversionValue& b) {
      return a.key == b.key && a.windows == b.windows;
    }
    friend bool operator!=(const ConversionValue& a, const ConversionValue& b) { return !(a == b); }

    /// The window values by window, without unknown names.
    std::map<Window, WindowValue> windowsDict() const;

    /// The value for a window, or null.
    const WindowValue* windowValue(Window window) const;

    /// How this value ranks against `other` in a window: below (-1), the same (0), above (1). Fine values decide, then
    /// coarse values. A value without a coarse value deliberately ranks above one with "high".
    int compareWindowValue(const ConversionValue& other, Window window) const;
  };

  /// How a window is locked.
  struct LockWindowConfiguration {
    LockWindowType type = LockWindowType::time;
    std::optional<std::int64_t> value;  ///< hours
    friend bool operator==(const LockWindowConfiguration& a, const LockWindowConfiguration& b) {
      return a.type == b.type && a.value == b.value;
    }
    friend bool operator!=(const LockWindowConfiguration& a, const LockWindowConfiguration& b) { return !(a == b); }
  };

  ConversionValues() = default;
  /// The lock windows by name, as in `lockWindows`, or by window.
  /// @{
  ConversionValues(std::vector<ConversionValue> values,
                   std::map<std::string, LockWindowConfiguration, std::less<>> lockWindows);
  ConversionValues(std::vector<ConversionValue> values,
                   const std::map<Window, LockWindowConfiguration>& lockWindowConfigurations);
  /// @}

  std::vector<ConversionValue> values;
  std::map<std::string, LockWindowConfiguration, std::less<>> lockWindows;  ///< by window name
  friend bool operator==(const ConversionValues& a, const ConversionValues& b) {
    return a.values == b.values && a.lockWindows == b.lockWindows;
  }
  friend bool operator!=(const ConversionValues& a, const ConversionValues& b) { return !(a == b); }

  /// The lock configurations by window, without unknown names.
  std::map<Window, LockWindowConfiguration> lockWindowConfigurations() const;
};

using Window = ConversionValues::Window;
using CoarseValue = ConversionValues::CoarseValue;

/// Every window, in the order of time.
inline constexpr std::array<Window, 3> allWindows{Window::window0, Window::window1, Window::window2};

/// "window0", "window1", "window2".
QUILLMAR_API std::string_view rawValue(Window window) noexcept;
/// "high", "medium", "low".
QUILLMAR_API std::string_view rawValue(CoarseValue value) noexcept;
/// "time", "high".
QUILLMAR_API std::string_view rawValue(ConversionValues::LockWindowType type) noexcept;

/// Exact, case-sensitive matches; nothing for any other text.
/// @{
QUILLMAR_API std::optional<Window> windowFromRawValue(std::string_view rawValue) noexcept;
QUILLMAR_API std::optional<CoarseValue> coarseValueFromRawValue(std::string_view rawValue) noexcept;
QUILLMAR_API std::optional<ConversionValues::LockWindowType> lockWindowTypeFromRawValue(
    std::string_view rawValue) noexcept;
/// @}

/// The same value, as the platform's interfaces take it.
/// @{
QUILLMAR_API platform::SKAdNetworkCoarseConversionValue toSKAdNetworkCoarseConversionValue(CoarseValue value) noexcept;
QUILLMAR_API platform::AttributionKitCoarseValue toAttributionKitCoarseValue(CoarseValue value) noexcept;
/// @}

}  // namespace quillmar
