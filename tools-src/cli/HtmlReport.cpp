#include <fmt/ostream.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Duration.h"
#include "FindingsOutput.h"
#include "HtmlPage.h"
#include "Insight/ConfigurationCheck.h"
#include "JsonOutput.h"
#include "ReportText.h"
#include "SimulationReport.h"
#include "Timeline.h"

namespace quillmar::cli {
namespace {

using std::chrono::seconds;
using Outcome = simulated::Verdict::Outcome;

constexpr double left = Timeline::left, right = Timeline::right;
constexpr double valuesTop = 112, valuesBottom = 232, postbacksTop = 262;

double heightOf(double fineValue) {
  return valuesBottom - (valuesBottom - valuesTop) * std::clamp(fineValue, 0.0, 63.0) / 63;
}

/// A third of the height for each coarse value.
double heightOf(std::string_view coarseValue) {
  return heightOf(coarseValue == "high" ? 52.5 : coarseValue == "medium" ? 31.5 : 10.5);
}

/// The report as a page for a browser: a picture of the life, and all that led to it.
class HtmlReport final : public SimulationReport {
 public:
  HtmlReport(std::ostream& output, std::string configuration)
      : output_(output), configuration_(std::move(configuration)) {}

  void begin(const SimulateOptions& options, const SimulatedInstall& install) override {
    ad_ = install.rules().ad();
    title_ = counted(static_cast<std::size_t>(options.days), "day") + " of an install";
    system_ = options.osVersion;
    end_ = std::chrono::hours(24) * options.days;
  }

  void write(const std::string& name, const EventStep* event, const StepResult& result,
             const QuillmarState& state) override {
    moments_.push_back({stepText(name, event), event != nullptr, outcomeText(name, event, result, state), result});
  }

  void end(const SimulatedInstall& install) override {
    const simulated::PostbackRules rules = install.rules();
    const std::vector<PostbackRow> postbacks = postbackRows(rules.postbacks());
    beginPage(output_, title_);
    print("<p>On system version {}, first launched at {}, by an ad signed for {}.</p>\n", escaped(system_),
          timestamp(SimulatedInstall::firstLaunch()), rawValue(ad_));
    drawLife(rules, postbacks);
    writePostbacks(postbacks);
    writeSteps();
    writeConfiguration(output_, insight::checkConfiguration(configuration_).findings, configuration_);
    endPage(output_);
  }

 private:
  struct Moment {
    std::string step;
    bool isEvent;
    std::string outcome;  ///< when the platform was not called
    StepResult result;
  };

  /// How far to the right the labels on one side of the marks go.
  struct Labelled {
    double below;
    double until = 0;
  };
  using Labels = std::array<Labelled, 2>;

  template <class... Content>
  void print(fmt::format_string<Content...> format, Content&&... content) {
    fmt::print(output_, format, std::forward<Content>(content)...);
  }

  void drawLife(const simulated::PostbackRules& rules, const std::vector<PostbackRow>& postbacks) {
    seconds last = end_;
    for (const PostbackRow& row : postbacks) {
      last = std::max(last, std::chrono::ceil<seconds>(row.postback.latest));
    }
    const Timeline timeline(output_, last);
    timeline.begin(postbacksTop + 26 * static_cast<double>(postbacks.size()) + 4, "The life as a timeline");
    timeline.drawLibraryWindows();
    drawPlatformWindows(timeline, rules);
    drawGrid();
    drawValues(timeline, postbacks);
    drawSteps(timeline);
    drawPostbacks(timeline, postbacks);
    timeline.end();
    print(
        "<p class=\"quiet\">Filled circles: values that count. Empty circles: calls without effect. Crosses: refused "
        "calls. Lines: what the value was until it was final. {}Each window of the library is drawn as wide as the "
        "others.</p>\n",
        ad_ == simulated::SignedAd::skAdNetwork3 ? ""
                                                 : "Values of the platform's window 0 stand as high as their fine "
                                                   "value, later ones by their coarse value. ");
  }

  void drawPlatformWindows(const Timeline& timeline, const simulated::PostbackRules& rules) {
    print("<text x=\"0\" y=\"52\">platform</text>\n");
    if (ad_ == simulated::SignedAd::skAdNetwork3) {
      print("<text x=\"{}\" y=\"52\">no windows, but a timer of 24 hours</text>\n", left + 6);
      return;
    }
    seconds begin{0};
    for (int window = 0; window < 3; ++window) {
      const seconds end = begin + rules.lengths().at(static_cast<std::size_t>(window));
      timeline.drawWindow(36, window, begin, end);
      begin = end;
    }
  }

  void drawGrid() {
    print("<text x=\"0\" y=\"82\">events</text>\n<text x=\"0\" y=\"{}\">fine value</text>\n",
          (valuesTop + valuesBottom) / 2);
    for (const int value : {0, 63}) {
      print("<text x=\"{}\" y=\"{}\">{}</text><path class=\"line\" d=\"M{} {}H{}\"/>\n", left - 24, heightOf(value) + 4,
            value, left, heightOf(value), right);
    }
    if (ad_ != simulated::SignedAd::skAdNetwork3) {
      for (const CoarseValue value : {CoarseValue::low, CoarseValue::medium, CoarseValue::high}) {
        print("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", right, heightOf(rawValue(value)) + 4,
              rawValue(value));
      }
    }
  }

  /// Whether the fine value counts. In the platform's later windows only the coarse one does.
  bool isFine(const simulated::PlatformCall& call) const {
    return ad_ == simulated::SignedAd::skAdNetwork3 || call.verdict.window == 0;
  }

  /// Nothing when the call has no value that could count.
  std::optional<double> heightFor(const simulated::PlatformCall& call) const {
    if (isFine(call)) {
      return call.fineValue ? std::optional(heightOf(*call.fineValue)) : std::nullopt;
    }
    return call.coarseValue ? std::optional(heightOf(std::string_view(*call.coarseValue))) : std::nullopt;
  }

  /// What the value of each postback was until it was final.
  void drawValues(const Timeline& timeline, const std::vector<PostbackRow>& postbacks) {
    for (const auto& [postback, number, finalBy, sentBetween, tiers] : postbacks) {
      std::string path;
      for (const Moment& moment : moments_) {
        for (const simulated::PlatformCall& call : moment.result.calls) {
          const auto y = heightFor(call);
          if (y && call.verdict.outcome == Outcome::accepted && call.verdict.window.value_or(0) == postback.index) {
            path += fmt::format("{}{:.1f}{}{:.1f}", path.empty() ? "M" : "H", timeline.at(moment.result.at),
                                path.empty() ? " " : "V", *y);
          }
        }
      }
      if (!path.empty()) {
        print("<path class=\"value\" d=\"{}H{:.1f}\"/>\n", path,
              timeline.at(std::chrono::floor<seconds>(postback.finalizedAt)));
      }
    }
  }

  /// The marks of all steps, each a link to what is told of it.
  void drawSteps(const Timeline& timeline) {
    Labels labelled{{{-6}, {16}}};
    for (std::size_t index = 0; index < moments_.size(); ++index) {
      const Moment& moment = moments_[index];
      const double x = timeline.at(moment.result.at);
      print("<a href=\"#step-{}\" aria-label=\"{}\">", index + 1, escaped(summary(moment)));
      print("<rect class=\"halo\" x=\"{:.1f}\" y=\"66\" width=\"12\" height=\"{}\" rx=\"6\"/>", x - 6,
            valuesBottom - 56);
      if (moment.isEvent) {
        print("<path class=\"event\" d=\"M{:.1f} 70l5 8l-5 8l-5 -8z\"/>", x);
      }
      for (const simulated::PlatformCall& call : moment.result.calls) {
        drawCall(x, call, labelled);
      }
      print("</a>\n");
    }
  }

  void drawCall(double x, const simulated::PlatformCall& call, Labels& labelled) {
    const double y = heightFor(call).value_or(valuesBottom);
    const bool counts = call.verdict.outcome == Outcome::accepted;
    if (call.verdict.outcome == Outcome::refused) {
      print("<path class=\"mark refused\" d=\"M{:.1f} {:.1f}l10 10m0 -10l-10 10\"/>", x - 5, y - 5);
    } else {
      print("<circle class=\"mark{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"5\"/>", counts ? "" : " ignored", x, y);
    }
    if (counts && call.lockWindow.value_or(false) && call.verdict.window) {
      print("<path class=\"line dashed\" d=\"M{0:.1f} 60V{1}\"/><text x=\"{2:.1f}\" y=\"104\">lock</text>", x,
            valuesBottom, x + 9);
    }
    std::string label = isFine(call) && call.fineValue ? std::to_string(*call.fineValue) : "";
    if (ad_ != simulated::SignedAd::skAdNetwork3 && call.coarseValue) {
      label += (label.empty() ? "" : " ") + *call.coarseValue;
    }
    // Above the mark, else below; others stand in the trace.
    const auto place = std::ranges::find_if(labelled, [x](const Labelled& side) { return x > side.until; });
    if (!label.empty() && place != labelled.end()) {
      print("<text x=\"{:.1f}\" y=\"{:.1f}\">{}</text>", x + 7, y + place->below, label);
      place->until = x + 12 + 7 * static_cast<double>(label.size());
    }
  }

  void drawPostbacks(const Timeline& timeline, const std::vector<PostbackRow>& postbacks) {
    double y = postbacksTop;
    for (const auto& [postback, number, finalBy, sentBetween, tiers] : postbacks) {
      const double from = timeline.at(std::chrono::floor<seconds>(postback.finalizedAt));
      const double earliest = timeline.at(std::chrono::floor<seconds>(postback.earliest));
      const double latest = timeline.at(std::chrono::ceil<seconds>(postback.latest));
      print(
          "<g role=\"img\" aria-label=\"Postback {0}, final by {1}, sent between {2}\"><text x=\"0\" "
          "y=\"{3}\">postback {0}"
          "</text><path class=\"line dashed\" d=\"M{4:.1f} {5}H{6:.1f}\"/><path class=\"range\" "
          "d=\"M{6:.1f} {7}H{8:.1f}v-3l9 5l-9 5v-3H{6:.1f}z\"/></g>\n",
          number, finalBy, sentBetween, y + 5, from, y, earliest, y - 2, latest - 9);
      y += 26;
    }
  }

  void writePostbacks(const std::vector<PostbackRow>& postbacks) {
    print("<h2>What the advertiser receives</h2>\n");
    if (postbacks.empty()) {
      print("<p>No postback: no call counted.</p>\n");
      return;
    }
    print("<p class=\"quiet\">It depends on the tier, which the platform assigns.</p>\n");
    std::vector<std::vector<std::string>> rows;
    for (const PostbackRow& row : postbacks) {
      rows.push_back({row.number, row.finalBy, row.sentBetween});
      rows.back().insert(rows.back().end(), row.tiers.begin(), row.tiers.end());
    }
    writeTable(output_, {"Postback", "Final by", "Sent between", "Tier 0", "Tier 1", "Tier 2", "Tier 3"}, rows);
  }

  void writeSteps() {
    print(
        "<div class=\"screen\"><h2>Why</h2>\n<p class=\"quiet hint\">Of the step that the pointer is on, or that has "
        "the "
        "keyboard's focus.</p>\n<ol id=\"steps\" aria-live=\"polite\">\n");
    for (std::size_t index = 0; index < moments_.size(); ++index) {
      const Moment& moment = moments_[index];
      print("<li id=\"step-{}\"><h3>{}</h3>\n<ul>\n", index + 1, escaped(summary(moment)));
      for (const Decision& decision : moment.result.decisions) {
        for (const std::string& line : explain(decision)) {
          print("<li>{}</li>\n", escaped(line));
        }
      }
      print("</ul></li>\n");
    }
    print("</ol></div>\n");
  }

  static std::string summary(const Moment& moment) {
    std::string text = formatDuration(moment.result.at) + ": " + moment.step;
    for (const simulated::PlatformCall& call : moment.result.calls) {
      text += "; " + callText(call) + ", " + verdictText(call);
    }
    return moment.outcome.empty() ? text : text + "; " + moment.outcome;
  }

  std::ostream& output_;
  std::string configuration_;
  std::string title_;
  std::string system_;
  simulated::SignedAd ad_ = simulated::SignedAd::skAdNetwork3;
  seconds end_{0};
  std::vector<Moment> moments_;
};

}  // namespace

std::unique_ptr<SimulationReport> makeHtmlReport(std::ostream& output, std::string configuration) {
  return std::make_unique<HtmlReport>(output, std::move(configuration));
}

}  // namespace quillmar::cli
