#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Conversion/Completion.h"
#include "quillmar/ConversionValues.h"

namespace quillmar {

/// Remembers which rules are complete while a history grows. What is complete stays so, and each half of a rule that is
/// not waits for the first event that it lacks. So an event costs a look at those that wait for its name.
class CompletedRules {
 public:
  /// The same as `completeRules`. A document that is asked about a second time in a row is followed from then on: it
  /// must not change. Two are the same when they have the same owner.
  Rules find(const std::shared_ptr<const ConversionValues>& document, Window window, const RevenuesByName& history);

  /// There is news of that name in the history.
  void noteNews(const std::string& name);

  /// The history is another one.
  void forget() noexcept;

 private:
  struct Half {
    const ConversionValues::ConversionValue* rule;
    const std::vector<ConversionValues::RequiredEvent>* events;
  };

  void prepare(const ConversionValues& document, const RevenuesByName& history);
  void look(Half half, const RevenuesByName& history);

  std::weak_ptr<const ConversionValues> document_;  ///< the last one; one that was replaced is not kept in memory
  Window window_ = Window::window0;
  bool isFollowed_ = false;
  // Of a document that is followed; not touched once it is gone.
  Rules complete_;
  std::unordered_map<std::string_view, std::vector<Half>> waiting_;
  std::vector<std::string> news_;  ///< names that were not looked at yet
};

}  // namespace quillmar
