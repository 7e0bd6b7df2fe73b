#include "Conversion/Withholding.h"

namespace quillmar {

bool comparesWithLast(const QuillmarOptions& options) noexcept {
  return options.neverSendLower || options.skipRepeatedUpdates || options.skipRepeatedLocks;
}

std::optional<Decision::Outcome> whyWithheld(const ConversionValues::ConversionValue& value, Window window,
                                             bool forceLockWindow, const std::optional<LastWindowValue>& last,
                                             const QuillmarOptions& options) {
  const ConversionValues::WindowValue* const now = value.windowValue(window);
  if (!last || last->window != window || now == nullptr) {
    return std::nullopt;
  }
  if (options.neverSendLower && value.compareWindowValue(last->conversionValue(window), window) < 0) {
    return Decision::Outcome::lower;
  }
  const std::int64_t fine = now->fineValue ? now->fineValue->value : 0;
  const auto coarse = now->coarseValue ? std::optional(now->coarseValue->value) : std::nullopt;
  const bool repeats = forceLockWindow
                           ? options.skipRepeatedLocks && last->lockWindow.value_or(false)
                           : options.skipRepeatedUpdates && fine == last->fineValue && coarse == last->coarseValue;
  return repeats ? std::optional(Decision::Outcome::repeated) : std::nullopt;
}

}  // namespace quillmar
