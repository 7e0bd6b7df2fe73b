#include "quillmar/simulated/ConfigurationBuilder.h"

#include <algorithm>
#include <utility>

#include "Json/JsonWriter.h"
#include "Model/ConfigResponse.h"

namespace quillmar::simulated {

ConfigurationBuilder::ConfigurationBuilder(std::string appId, bool sdkEnabled)
    : appId_(std::move(appId)), sdkEnabled_(sdkEnabled) {}

ConfigurationBuilder& ConfigurationBuilder::rule(const std::string& key, Window window,
                                                 ConversionValues::WindowValue value) {
  auto& rules = values_.values;
  auto rule = std::ranges::find(rules, key, &ConversionValues::ConversionValue::key);
  if (rule == rules.end()) {
    rule = rules.insert(rule, {key, {}});
  }
  rule->windows.insert_or_assign(std::string(rawValue(window)), std::move(value));
  return *this;
}

ConfigurationBuilder& ConfigurationBuilder::lockAfter(Window window, std::chrono::hours age) {
  values_.lockWindows.insert_or_assign(
      std::string(rawValue(window)),
      ConversionValues::LockWindowConfiguration{ConversionValues::LockWindowType::time, age.count()});
  return *this;
}

ConfigurationBuilder& ConfigurationBuilder::lockAtHigh(Window window) {
  values_.lockWindows.insert_or_assign(
      std::string(rawValue(window)),
      ConversionValues::LockWindowConfiguration{ConversionValues::LockWindowType::high, std::nullopt});
  return *this;
}

std::string ConfigurationBuilder::json() const {
  JsonWriter writer;
  ConfigResponse{appId_, sdkEnabled_, values_.values, values_.lockWindows}.encode(writer);
  return writer.take();
}

}  // namespace quillmar::simulated
