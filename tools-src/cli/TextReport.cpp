#include <fmt/format.h>

#include <ostream>
#include <variant>

#include "Duration.h"
#include "JsonOutput.h"
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
    output_ << fmt::format("{} days of an install on system version {}, first launched at {}\n\n", days, osVersion,
                           timestamp(SimulatedInstall::firstLaunch()))
            << fmt::format("{:<11} {:<7} {:<24} {:<18} {}\n", "TIME", "WINDOW", "STEP", "COMPLETED", "SENT");
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
    output_ << fmt::format(
        "{:<11} {:<7} {:<24} {:<18} {}\n", formatDuration(result.at),
        result.window ? std::to_string(*result.window) : "over",
        event != nullptr ? describe(*event) : "[" + (name == "activate" ? "app becomes active" : name) + "]", completed,
        outcome);
  }

  void end(const SimulatedInstall& install) override {
    output_ << fmt::format("\n{:<7} {:<18} {:<6} {:<8} {:<6} {}\n", "WINDOW", "LAST VALUE", "FINE", "COARSE", "CALLS",
                           "LOCKED AT");
    for (std::size_t index = 0; index < windows().size(); ++index) {
      const Window& window = windows()[index];
      output_ << fmt::format("{:<7} {:<18} {:<6} {:<8} {:<6} {}\n", index, window.last ? window.last->key : "-",
                             window.last ? std::to_string(window.last->fineValue) : "-",
                             window.last ? window.last->coarseValue.value_or("-") : "-", window.calls,
                             window.lockedAt ? formatDuration(*window.lockedAt) : "-");
    }
    const QuillmarStatistics events = install.quillmar().statistics();
    output_ << fmt::format("\nEvents: {} sent, {} logged, {} failed, {} dropped, {} parked\n", events.sent,
                           events.logged, events.failed, events.dropped, events.parked)
            << "Requests:";
    const char* separator = " ";
    for (const auto& [endpoint, count] : install.requestCounts()) {
      output_ << separator << count << " x " << endpoint;
      separator = ", ";
    }
    output_ << std::endl;
  }

 private:
  std::ostream& output_;
};

}  // namespace

std::unique_ptr<SimulationReport> makeTextReport(std::ostream& output) {
  return std::make_unique<TextReport>(output);
}

}  // namespace quillmar::cli
