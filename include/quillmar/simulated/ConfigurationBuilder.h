#pragma once

#include <chrono>
#include <string>

#include "quillmar/ConversionValues.h"

namespace quillmar::simulated {

/// Puts together what the service answers to the request for the configuration:
///
///     ConfigurationBuilder()
///         .rule("Purchase", Window::window0, {{{40, {{"purchase", 10, 50}}}}, {{CoarseValue::high, {{"purchase"}}}}})
///         .lockAtHigh(Window::window0)
///         .json()
class ConfigurationBuilder {
 public:
  /// `sdkEnabled` is the service's switch.
  explicit ConfigurationBuilder(std::string appId = "simulated-app", bool sdkEnabled = true);

  /// What a rule reports in a window. A rule that is named again gets one more window.
  ConfigurationBuilder& rule(const std::string& key, Window window, ConversionValues::WindowValue value);

  /// Locks a window at the first refresh when it is so old.
  ConfigurationBuilder& lockAfter(Window window, std::chrono::hours age);

  /// Locks a window with a value whose coarse half is "high".
  ConfigurationBuilder& lockAtHigh(Window window);

  /// The document without its envelope.
  const ConversionValues& values() const noexcept { return values_; }

  /// The answer of the service.
  std::string json() const;

 private:
  std::string appId_;
  bool sdkEnabled_;
  ConversionValues values_;
};

}  // namespace quillmar::simulated
