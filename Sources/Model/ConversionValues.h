#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillmar/platform/AdAttributionKit.h"
#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar {

class JsonReader;
class JsonWriter;

/// The conversion-values configuration: which fine and coarse value each set of events earns in each postback window,
/// and when the windows lock. A plain value, compared by content.
struct ConversionValues {
  /// The three postback windows.
  enum class Window : std::uint8_t { window0, window1, window2 };

  /// Declared from high to low; the ranking of `compareWindowValue` is another order.
  enum class CoarseValue : std::uint8_t { high, medium, low };

  enum class LockWindowType : std::uint8_t {
    time,  ///< locks after a number of hours
    high,  ///< locks once the highest coarse value is reached
  };

  /// A condition on the tracked events.
  struct RequiredEvent {
    std::string name;
    // The revenue counts only when both bounds are there.
    std::optional<double> revenueMin;
    std::optional<double> revenueMax;
    bool operator==(const RequiredEvent&) const = default;
  };

  struct FineValue {
    std::int64_t value = 0;  ///< 0...63; the document is not checked for it
    std::vector<RequiredEvent> requiredEvents;
    bool operator==(const FineValue&) const = default;
  };

  struct CoarseValueData {
    CoarseValue value = CoarseValue::low;
    std::vector<RequiredEvent> requiredEvents;
    bool operator==(const CoarseValueData&) const = default;
  };

  /// What a rule reports in one window: a fine value, a coarse value, both or neither.
  struct WindowValue {
    std::optional<FineValue> fineValue;
    std::optional<CoarseValueData> coarseValue;
    bool operator==(const WindowValue&) const = default;
  };

  /// One named rule set.
  struct ConversionValue {
    std::string key;
    /// By window name; names that are none of the three windows are kept, and ignored.
    std::map<std::string, WindowValue, std::less<>> windows;
    bool operator==(const ConversionValue&) const = default;

    /// The window values by window, without unknown names.
    std::map<Window, WindowValue> windowsDict() const;

    /// The value for a window, or null.
    const WindowValue* windowValue(Window window) const;

    /// How this value ranks against `other` in a window: below (-1), the same (0), above (1). Fine values decide, then
    /// coarse values. A value without a coarse value ranks above one with "high", on purpose.
    int compareWindowValue(const ConversionValue& other, Window window) const;
  };

  /// How a window is locked.
  struct LockWindowConfiguration {
    LockWindowType type = LockWindowType::time;
    std::optional<std::int64_t> value;  ///< hours
    bool operator==(const LockWindowConfiguration&) const = default;
  };

  ConversionValues() = default;
  ConversionValues(std::vector<ConversionValue> values,
                   std::map<std::string, LockWindowConfiguration, std::less<>> lockWindows);
  ConversionValues(std::vector<ConversionValue> values,
                   const std::map<Window, LockWindowConfiguration>& lockWindowConfigurations);

  std::vector<ConversionValue> values;
  std::map<std::string, LockWindowConfiguration, std::less<>> lockWindows;  ///< by window name
  bool operator==(const ConversionValues&) const = default;

  /// The lock configurations by window, without unknown names.
  std::map<Window, LockWindowConfiguration> lockWindowConfigurations() const;

  /// Reads a document. Throws `DecodingError` for the whole of it; there is no partial result.
  static ConversionValues decode(const JsonReader& document);
  void encode(JsonWriter& writer) const;
};

using Window = ConversionValues::Window;
using CoarseValue = ConversionValues::CoarseValue;

inline constexpr std::array<Window, 3> allWindows{Window::window0, Window::window1, Window::window2};

/// "window0", "window1", "window2".
std::string_view rawValue(Window window) noexcept;
/// "high", "medium", "low".
std::string_view rawValue(CoarseValue value) noexcept;
/// "time", "high".
std::string_view rawValue(ConversionValues::LockWindowType type) noexcept;

// Exact, case-sensitive matches; nothing for any other text.
std::optional<Window> windowFromRawValue(std::string_view rawValue) noexcept;
std::optional<CoarseValue> coarseValueFromRawValue(std::string_view rawValue) noexcept;
std::optional<ConversionValues::LockWindowType> lockWindowTypeFromRawValue(std::string_view rawValue) noexcept;

platform::SKAdNetworkCoarseConversionValue toSKAdNetworkCoarseConversionValue(CoarseValue value) noexcept;
platform::AttributionKitCoarseValue toAttributionKitCoarseValue(CoarseValue value) noexcept;

/// Writes the members "values" and "lockWindows" of the object that is open.
void encodeMembers(JsonWriter& writer, const std::vector<ConversionValues::ConversionValue>& values,
                   const std::map<std::string, ConversionValues::LockWindowConfiguration, std::less<>>& lockWindows);

/// Field names and values, for log lines.
std::string description(const ConversionValues& document);
std::string description(const std::vector<ConversionValues::ConversionValue>& values);

}  // namespace quillmar
