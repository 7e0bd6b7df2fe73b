#include "Conversion/CompletedRules.h"

#include <algorithm>
#include <utility>

namespace quillmar {

Rules CompletedRules::find(const std::shared_ptr<const ConversionValues>& document, Window window,
                           const RevenuesByName& history) {
  const bool isSame = !document_.expired() && !document_.owner_before(document) && !document.owner_before(document_) &&
                      window == window_;
  const bool wasFollowed = isSame && isFollowed_;
  forget();  // should anything throw, the next call begins anew
  if (!isSame) {
    window_ = window;
    complete_.clear();
    waiting_.clear();
    news_.clear();
    Rules found = completeRules(*document, window, history);
    document_ = document;
    return found;
  }
  if (wasFollowed) {
    for (const std::string& name : news_) {
      if (auto waiting = waiting_.extract(name)) {
        for (const Half& half : waiting.mapped()) {
          look(half, history);
        }
      }
    }
    news_.clear();
  } else {
    prepare(*document, history);
  }
  document_ = document;
  isFollowed_ = true;
  return complete_;
}

void CompletedRules::noteNews(const std::string& name) {
  if (isFollowed_) {
    news_.push_back(name);
  }
}

void CompletedRules::forget() noexcept {
  document_.reset();
  isFollowed_ = false;
}

void CompletedRules::prepare(const ConversionValues& document, const RevenuesByName& history) {
  for (const auto& rule : document.values) {
    if (const auto* const value = rule.windowValue(window_)) {
      if (value->fineValue) {
        look({&rule, &value->fineValue->requiredEvents}, history);
      }
      if (value->coarseValue) {
        look({&rule, &value->coarseValue->requiredEvents}, history);
      }
    }
  }
}

void CompletedRules::look(Half half, const RevenuesByName& history) {
  const auto unmet = firstUnmet(*half.events, history);
  if (unmet != half.events->end()) {
    waiting_[unmet->name].push_back(half);
    return;
  }
  // The rules lie one behind the other, so this is the order of the configuration.
  const auto at = std::ranges::lower_bound(complete_, half.rule);
  if (at == complete_.end() || *at != half.rule) {
    complete_.insert(at, half.rule);
  }
}

}  // namespace quillmar
