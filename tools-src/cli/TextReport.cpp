#include <fmt/format.h>

#include <ostream>
#include <utility>
#include <vector>

#include "Duration.h"
#include "FindingsOutput.h"
#include "JsonOutput.h"
#include "Logging/Controls.h"
#include "ReportText.h"
#include "SimulationReport.h"

namespace quillmar::cli {
namespace {

/// The report as a table to read.
class TextReport final : public SimulationReport {
 public:
  explicit TextReport(std::ostream& output) : output_(output) {}

  void begin(const SimulateOptions& options, const SimulatedInstall& install) override {
    ad_ = install.rules().ad();
    explain_ = options.explain;
    health_ = options.health;
    line("{} of an install on system version {}, first launched at {}, by an ad signed for {}",
         counted(static_cast<std::size_t>(options.days), "day"), options.osVersion,
         timestamp(SimulatedInstall::firstLaunch()), rawValue(ad_));
    if (ad_ != simulated::SignedAd::skAdNetwork3) {
      const auto [first, second, third] = install.rules().lengths();
      line(
          "WINDOW is the library's (local days 0 to 2, 3 to 7, 8 to 35), in brackets the platform's ({}, {} and {} "
          "hours) where that is another.",
          first.count(), second.count(), third.count());
    }
    line("");
    row("TIME", "WINDOW", "STEP", "COMPLETED", "SENT", "PLATFORM");
  }

  void write(const std::string& name, const EventStep* event, const StepResult& result,
             const QuillmarState& state) override {
    std::string window = windowText(result.window);
    if (ad_ != simulated::SignedAd::skAdNetwork3 && result.platformWindow != result.window) {
      window += " (" + windowText(result.platformWindow) + ")";
    }
    const std::string time = formatDuration(result.at);
    const std::string step = stepText(name, event);
    const std::string completed = event != nullptr && result.sent ? result.sent->key : "";
    if (result.calls.empty()) {
      row(time, window, step, completed, outcomeText(name, event, result, state), "");
    }
    bool first = true;
    for (const simulated::PlatformCall& call : result.calls) {
      row(first ? time : "", first ? window : "", first ? step : "", first ? completed : "", callText(call),
          verdictText(call));
      first = false;
    }
    for (const Decision& decision : explain_ ? result.decisions : std::vector<Decision>()) {
      for (const std::string& reason : explain(decision)) {
        line("{:<20} | {}", "", reason);
      }
    }
  }

  void end(const SimulatedInstall& install) override {
    line("");
    line("{:<7} {:<18} {:<6} {:<8} {:<6} {}", "WINDOW", "LAST VALUE", "FINE", "COARSE", "CALLS", "LOCK SENT");
    for (std::size_t index = 0; index < windows().size(); ++index) {
      const Window& window = windows()[index];
      line("{:<7} {:<18} {:<6} {:<8} {:<6} {}", index, window.last ? window.last->key : "-",
           window.last ? std::to_string(window.last->fineValue) : "-",
           window.last ? window.last->coarseValue.value_or("-") : "-", window.calls,
           window.lockedAt ? formatDuration(*window.lockedAt) : "-");
    }
    tellPostbacks(install.rules().postbacks());
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
    if (health_) {
      tellHealth(install.quillmar().health());
    }
    output_.flush();
  }

 private:
  void tellPostbacks(const std::vector<simulated::Postback>& postbacks) {
    line("");
    line("What the advertiser receives: it depends on the tier, which the platform assigns");
    if (postbacks.empty()) {
      line("no postback: no call counted");
      return;
    }
    line("{:<9} {:<16} {:<20} {:<12} {:<12} {:<12} {}", "POSTBACK", "FINAL BY", "SENT BETWEEN", "TIER 0", "TIER 1",
         "TIER 2", "TIER 3");
    for (const PostbackRow& postback : postbackRows(postbacks)) {
      line("{:<9} {:<16} {:<20} {:<12} {:<12} {:<12} {}", postback.number, postback.finalBy, postback.sentBetween,
           postback.tiers[0], postback.tiers[1], postback.tiers[2], postback.tiers[3]);
    }
  }

  void tellHealth(const QuillmarHealth& health) {
    line("");
    line("{:<16} {}", "Configuration",
         health.configurationAge ? "fetched " + formatDuration(*health.configurationAge) + " ago" : "none");
    line("{:<16} {}", "Last fetch", health.fetchError.empty() ? "no error" : health.fetchError);
    line("{:<16} {}, {} in a row", "Key", health.verificationKeyValid ? "valid" : "invalid",
         counted(static_cast<std::size_t>(health.failuresInARow), "failure"));
    line("{:<16} {} queued, {} under way, {} parked, {} kept", "Events waiting", health.queued, health.underWay,
         health.parked, health.kept);
    std::string ended;
    for (std::size_t i = 0; i < eventEndCount; ++i) {
      if (health.ended[i] > 0) {
        ended += fmt::format("{}{} {}", ended.empty() ? "" : ", ", health.ended[i], rawValue(static_cast<EventEnd>(i)));
      }
    }
    line("{:<16} {}", "Events ended", ended.empty() ? "none" : ended);
    line("{:<16} {}", "Last logged",
         health.lastLogged ? health.lastLogged->name + " at " + timestamp(health.lastLogged->at) : "none");
    const auto& call = health.lastPlatformCall;
    line("{:<16} {}", "Last call",
         call ? call->interface + " at " + timestamp(call->at) + (call->error.empty() ? "" : ": " + call->error)
              : "none");
  }

  void row(const std::string& time, const std::string& window, const std::string& step, const std::string& completed,
           const std::string& sent, const std::string& verdict) {
    line("{:<11} {:<8} {:<24} {:<18} {:<46} {}", time, window, step, completed, sent, verdict);
  }

  /// Names come from the input and the service, so the line is written without what would break out of it.
  template <class... Content>
  void line(fmt::format_string<Content...> format, Content&&... content) {
    std::string text = withoutControls(fmt::format(format, std::forward<Content>(content)...));
    text.erase(text.find_last_not_of(' ') + 1);  // of the last columns, when they are empty
    output_ << text << '\n';
  }

  std::ostream& output_;
  bool explain_ = false;
  bool health_ = false;
  simulated::SignedAd ad_ = simulated::SignedAd::skAdNetwork3;
};

}  // namespace

std::unique_ptr<SimulationReport> makeTextReport(std::ostream& output) {
  return std::make_unique<TextReport>(output);
}

}  // namespace quillmar::cli
