#pragma once

#include <random>

#include "quillmar/simulated/ConfigurationBuilder.h"

namespace quillmar::test {

/// A few rules that require "a", with and without a revenue, and "b".
class RandomRules {
 public:
  explicit RandomRules(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t end) { return random_() % end; }

  simulated::ConfigurationBuilder next() {
    simulated::ConfigurationBuilder builder;
    for (std::size_t i = 0, count = 2 + below(4); i < count; ++i) {
      ConversionValues::WindowValue value;
      if (below(3) > 0) {
        value.fineValue = {static_cast<std::int64_t>(below(4)), requirements()};
      }
      if (below(3) > 0) {
        value.coarseValue = {static_cast<CoarseValue>(below(3)), requirements()};
      }
      builder.rule("rule " + std::to_string(i), Window::window0, value);
    }
    return builder;
  }

 private:
  std::vector<ConversionValues::RequiredEvent> requirements() {
    std::vector<ConversionValues::RequiredEvent> events;
    for (std::size_t i = 0, count = (below(8) + 2) / 3; i < count; ++i) {
      const auto bound = [this] { return below(4) == 0 ? std::nullopt : std::optional(1.0 + double(below(2))); };
      events.push_back(below(4) == 0 ? ConversionValues::RequiredEvent{"b"}
                                     : ConversionValues::RequiredEvent{"a", bound(), bound()});
    }
    return events;
  }

  std::mt19937 random_;
};

}  // namespace quillmar::test
