#include "Conversion/ConversionValueResolver.h"

#include <utility>

#include "Conversion/LastWindowValue.h"
#include "Logging/Log.h"

namespace quillmar {

ConversionValueResolver::ConversionValueResolver(std::shared_ptr<platform::UserDefaults> userDefaults) noexcept
    : userDefaults_(std::move(userDefaults)) {}

ConversionValues::ConversionValue ConversionValueResolver::resolveConversionValue(
    ConversionValues::ConversionValue value, Window window, std::string* lastKey) {
  const std::lock_guard lock(resolverQueue_);
  const auto entry = value.windows.find(rawValue(window));
  if (entry == value.windows.end()) {
    Log::error("ConversionValueResolver - No window value found for window {}", rawValue(window));
    return value;
  }
  auto& [fine, coarse] = entry->second;
  if (const std::optional<LastWindowValue> last = readLastWindowValue(*userDefaults_)) {
    if (lastKey != nullptr) {
      *lastKey = last->key;
    }
    if (!fine) {
      fine = {last->fineValue, {}};
    }
    if (!coarse && last->coarseValue) {
      coarse = {*last->coarseValue, {}};
    }
  }
  Log::debug("ConversionValueResolver - Resolved conversion value: fine={}, coarse={}, key={}", fine ? fine->value : 0,
             coarse ? rawValue(coarse->value) : "nil", value.key);
  return value;
}

}  // namespace quillmar
