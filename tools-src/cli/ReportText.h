#pragma once

#include <array>
#include <string>
#include <vector>

#include "InputLines.h"
#include "SimulatedInstall.h"
#include "quillmar/Decision.h"

namespace quillmar::cli {

// The words of the reports on a simulated life. Names from the input and the service are as they came.

/// "purchase revenue=9.99" for an event, "[reset]" for what happened otherwise.
std::string stepText(const std::string& name, const EventStep* event);

/// "adAttributionKit: fine 35, coarse high, lock".
std::string callText(const simulated::PlatformCall& call);

/// "ignored: the window is locked".
std::string verdictText(const simulated::PlatformCall& call);

/// What there is to say about a step that led to no call of the platform; may be empty.
std::string outcomeText(const std::string& name, const EventStep* event, const StepResult& result,
                        const QuillmarState& state);

/// "0", and "over" for no window.
std::string windowText(std::optional<int> window);

/// A record in some lines: each rule, the choice, and how the event ended.
std::vector<std::string> explain(const Decision& decision);

/// A postback with what it holds by tier.
struct PostbackRow {
  simulated::Postback postback;
  std::string number;  ///< from 1
  std::string finalBy;
  std::string sentBetween;
  std::array<std::string, 4> tiers;  ///< "-" where the postback is not sent
};
std::vector<PostbackRow> postbackRows(const std::vector<simulated::Postback>& postbacks);

}  // namespace quillmar::cli
