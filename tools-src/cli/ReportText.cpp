#include "ReportText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <variant>

#include "Duration.h"

namespace quillmar::cli {
namespace {

std::string describe(const EventStep& event) {
  std::string text = event.name;
  for (const auto& [param, value] : event.params.value_or(EventParameters{})) {
    text += fmt::format(" {}={}", key(param),
                        std::visit([](const auto& content) { return fmt::format("{}", content); }, value.storage()));
  }
  return text;
}

std::string describe(const simulated::Postback& postback) {
  if (postback.fineValue) {
    return fmt::format("fine {}", *postback.fineValue);
  }
  return postback.coarseValue ? "coarse " + *postback.coarseValue : "no value";
}

std::string since(std::chrono::nanoseconds time) {
  return formatDuration(std::chrono::floor<std::chrono::seconds>(time));
}

/// What there is to say about an event that led to no call of the platform.
std::string fate(const StepResult& result) {
  if (result.change.dropped > 0) {
    return "dropped: the service has switched the library off";
  }
  if (result.change.parked > 0) {
    return "waits for the configuration";
  }
  if (result.change.kept > result.change.logged) {
    return "waits in the outbox";
  }
  if (result.change.failed > 0) {
    return "could not be logged to the service";
  }
  return result.window ? "nothing to send" : "nothing to send: the last window is over";
}

std::string valueText(std::optional<std::int64_t> fineValue, std::optional<CoarseValue> coarseValue) {
  std::string text = fineValue ? fmt::format("fine {}", *fineValue) : "";
  if (coarseValue) {
    text += fmt::format("{}coarse {}", text.empty() ? "" : ", ", rawValue(*coarseValue));
  }
  return text.empty() ? "nothing" : text;
}

std::string describe(const Decision::Rule& rule) {
  const std::string value = valueText(rule.fineValue, rule.coarseValue);
  std::string text;
  if (rule.missing.empty()) {
    text = fmt::format("rule {} ({}) is complete", rule.key, value);
  } else if (rule.fineComplete || rule.coarseComplete) {
    text =
        fmt::format("rule {} ({}) is complete by its {} half", rule.key, value, rule.fineComplete ? "fine" : "coarse");
  } else {
    text = fmt::format("rule {} ({}) is not complete", rule.key, value);
  }
  for (const std::string& missing : rule.missing) {
    text += "; " + missing;
  }
  return text;
}

std::string ending(const Decision& decision) {
  switch (decision.outcome) {
    case Decision::Outcome::nothingComplete:
      return "nothing is sent: no rule of the window is complete";
    case Decision::Outcome::windowOver:
      return "nothing is sent: the last window is over";
    case Decision::Outcome::keyInvalid:
      return "stopped: the verification key counts as invalid";
    case Decision::Outcome::switchedOff:
      return "stopped: the service has switched the library off";
    case Decision::Outcome::noConsent:
      return "dropped: there is no consent";
    case Decision::Outcome::parked:
      return "waits for the configuration";
    case Decision::Outcome::noConfiguration:
      return "stopped: the stored configuration cannot be read";
    case Decision::Outcome::nothingCalled:
      return "nothing is sent: this system takes no values";
    case Decision::Outcome::lower:
      return "nothing is sent: the last value of the window ranks above";
    case Decision::Outcome::repeated:
      return "nothing is sent: the last update of the window said so";
    default:
      break;
  }
  const std::string sent = decision.interface.empty() ? "sent" : "sent through " + decision.interface;
  if (decision.answer == Decision::Answer::failure) {
    return sent + "; the platform failed: " + decision.error;
  }
  // Which says nothing about an effect.
  return sent + (decision.answer == Decision::Answer::success ? "; the platform answered with success" : "; no answer");
}

}  // namespace

std::string stepText(const std::string& name, const EventStep* event) {
  return event != nullptr ? describe(*event) : "[" + (name == "activate" ? "app becomes active" : name) + "]";
}

std::string callText(const simulated::PlatformCall& call) {
  std::string text = call.interface;
  auto append = [&text, first = true](const std::string& part) mutable {
    text += (first ? ": " : ", ") + part;
    first = false;
  };
  if (call.fineValue) {
    append(fmt::format("fine {}", *call.fineValue));
  }
  if (call.coarseValue) {
    append("coarse " + *call.coarseValue);
  }
  if (call.lockWindow.value_or(false)) {
    append("lock");
  }
  return text;
}

std::string verdictText(const simulated::PlatformCall& call) {
  const simulated::Verdict& verdict = call.verdict;
  std::string text(rawValue(verdict.outcome));
  if (call.lockWindow.value_or(false) && verdict.window && verdict.outcome == simulated::Verdict::Outcome::accepted) {
    text += fmt::format(", locks window {}", *verdict.window);
  }
  const std::string_view reason = description(verdict.reason);
  return reason.empty() ? text : fmt::format("{}: {}", text, reason);
}

std::string outcomeText(const std::string& name, const EventStep* event, const StepResult& result,
                        const QuillmarState& state) {
  if (!result.calls.empty()) {
    return "";
  }
  if (event != nullptr) {
    return fate(result);
  }
  if (name != "first launch") {
    return "";
  }
  return state.appId ? "configuration fetched, the app is \"" + *state.appId + "\"" : "no configuration";
}

std::string windowText(std::optional<int> window) {
  return window ? std::to_string(*window) : "over";
}

std::vector<std::string> explain(const Decision& decision) {
  std::vector<std::string> lines;
  for (const Decision::Rule& rule : decision.rules) {
    lines.push_back(describe(rule));
  }
  if (decision.choice) {
    const Decision::Choice& choice = *decision.choice;
    lines.push_back(decision.ranking.size() == 1
                        ? fmt::format("chosen: {}", choice.key)
                        : fmt::format("chosen: {}, the lowest of {}", choice.key, fmt::join(decision.ranking, ", ")));
    if (!choice.filledInFrom.empty()) {
      lines.push_back(fmt::format("filled in from the last update, {}: {}", choice.filledInFrom,
                                  valueText(choice.fineFilledIn ? choice.fineValue : std::nullopt,
                                            choice.coarseFilledIn ? choice.coarseValue : std::nullopt)));
    }
    if (choice.locksWindow) {
      lines.push_back("locks the window: " + choice.lockReason);
    }
  }
  lines.push_back(ending(decision));
  return lines;
}

std::vector<PostbackRow> postbackRows(const std::vector<simulated::Postback>& postbacks) {
  std::vector<PostbackRow> rows;
  for (const simulated::Postback& postback : postbacks) {
    if (rows.empty() || rows.back().postback.index != postback.index) {
      rows.push_back({postback,
                      std::to_string(postback.index + 1),
                      fmt::format("{} at {}", rawValue(postback.finalizedBy), since(postback.finalizedAt)),
                      since(postback.earliest) + " and " + since(postback.latest),
                      {"-", "-", "-", "-"}});
    }
    rows.back().tiers.at(static_cast<std::size_t>(postback.tier)) = describe(postback);
  }
  return rows;
}

}  // namespace quillmar::cli
