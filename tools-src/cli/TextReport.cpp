#include <fmt/format.h>

#include <ostream>
#include <utility>
#include <variant>

#include "Duration.h"
#include "JsonOutput.h"
#include "Logging/Controls.h"
#include "SimulationReport.h"

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

std::string describe(const simulated::PlatformCall& call) {
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

/// The report as a table to read.
class TextReport final : public SimulationReport {
 public:
  explicit TextReport(std::ostream& output) : output_(output) {}

  void begin(const std::string& osVersion, int days) override {
    line("{} days of an install on system version {}, first launched at {}", days, osVersion,
         timestamp(SimulatedInstall::firstLaunch()));
    line("");
    line("{:<11} {:<7} {:<24} {:<18} {}", "TIME", "WINDOW", "STEP", "COMPLETED", "SENT");
  }

  void write(const std::string& name, const EventStep* event, const StepResult& result,
             const QuillmarState& state) override {
    std::string outcome;
    for (const simulated::PlatformCall& call : result.calls) {
      outcome += (outcome.empty() ? "" : "; ") + describe(call);
    }
    // Checks after the lock time send the lock again; it is told of once.
    if (locks(result) && result.window &&
        windows().at(static_cast<std::size_t>(*result.window)).lockedAt == result.at) {
      outcome += fmt::format(" -> window {} is locked", *result.window);
    }
    if (outcome.empty() && event != nullptr) {
      outcome = fate(result);
    } else if (outcome.empty() && name == "first launch") {
      outcome = state.appId ? "configuration fetched, the app is \"" + *state.appId + "\"" : "no configuration";
    }
    const std::string completed = event != nullptr && result.sent ? result.sent->key : "";
    line("{:<11} {:<7} {:<24} {:<18} {}", formatDuration(result.at),
         result.window ? std::to_string(*result.window) : "over",
         event != nullptr ? describe(*event) : "[" + (name == "activate" ? "app becomes active" : name) + "]",
         completed, outcome);
  }

  void end(const SimulatedInstall& install) override {
    line("");
    line("{:<7} {:<18} {:<6} {:<8} {:<6} {}", "WINDOW", "LAST VALUE", "FINE", "COARSE", "CALLS", "LOCKED AT");
    for (std::size_t index = 0; index < windows().size(); ++index) {
      const Window& window = windows()[index];
      line("{:<7} {:<18} {:<6} {:<8} {:<6} {}", index, window.last ? window.last->key : "-",
           window.last ? std::to_string(window.last->fineValue) : "-",
           window.last ? window.last->coarseValue.value_or("-") : "-", window.calls,
           window.lockedAt ? formatDuration(*window.lockedAt) : "-");
    }
    const QuillmarStatistics events = install.quillmar().statistics();
    line("");
    line("Events: {} sent, {} logged, {} failed, {} dropped, {} parked", events.sent, events.logged, events.failed,
         events.dropped, events.parked);
    if (events.kept > 0) {
      line("Outbox: {} kept, {} unsent, {} refused, {} expired, {} displaced", events.kept, events.unsent,
           events.refused, events.expired, events.displaced);
    }
    std::string requests;
    for (const auto& [endpoint, count] : install.requestCounts()) {
      requests += fmt::format("{} {} x {}", requests.empty() ? "" : ",", count, endpoint);
    }
    line("Requests:{}", requests);
    output_.flush();
  }

 private:
  /// Names come from the input and the service, so the line is written without what would break out of it.
  template <class... Content>
  void line(fmt::format_string<Content...> format, Content&&... content) {
    output_ << withoutControls(fmt::format(format, std::forward<Content>(content)...)) << '\n';
  }

  std::ostream& output_;
};

}  // namespace

std::unique_ptr<SimulationReport> makeTextReport(std::ostream& output) {
  return std::make_unique<TextReport>(output);
}

}  // namespace quillmar::cli
