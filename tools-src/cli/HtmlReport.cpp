#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <utility>
#include <vector>

#include "Duration.h"
#include "HtmlPage.h"
#include "JsonOutput.h"
#include "ReportText.h"
#include "SimulationReport.h"

namespace quillmar::cli {
namespace {

using std::chrono::seconds;
using Outcome = simulated::Verdict::Outcome;

constexpr seconds day{86400};
/// Where the library's windows begin, and the last ends.
constexpr seconds libraryBounds[] = {0 * day, 3 * day, 8 * day, 36 * day};

constexpr double left = 110, right = 990, afterwards = 870;  // what comes after the windows has the rest
constexpr double valuesTop = 112, valuesBottom = 232, postbacksTop = 262;

/// Time runs from left to right; each window of the library is as wide as the others, and what follows is narrow.
class Scale {
 public:
  explicit Scale(seconds end) : end_(std::max(end, libraryBounds[3] + day)) {}

  double at(seconds time) const {
    constexpr double width = (afterwards - left) / 3;
    for (int window = 0; window < 3; ++window) {
      const seconds begin = libraryBounds[window];
      if (const seconds next = libraryBounds[window + 1]; time <= next) {
        return left + width * window + width * share(time - begin, next - begin);
      }
    }
    return afterwards + (right - afterwards) * share(time - libraryBounds[3], end_ - libraryBounds[3]);
  }

 private:
  static double share(seconds part, seconds whole) {
    return std::clamp(static_cast<double>(part.count()) / static_cast<double>(whole.count()), 0.0, 1.0);
  }
  seconds end_;
};

double heightOf(int fineValue) {
  return valuesBottom - (valuesBottom - valuesTop) * std::clamp(fineValue, 0, 63) / 63;
}

/// The report as a page for a browser: a picture of the life, and all that led to it.
class HtmlReport final : public SimulationReport {
 public:
  HtmlReport(std::ostream& output, std::string configuration)
      : output_(output), configuration_(std::move(configuration)) {}

  void begin(const SimulateOptions& options, const SimulatedInstall&) override {
    title_ = fmt::format("{} days of an install", options.days);
    system_ = options.osVersion;
    end_ = options.days * day;
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
          timestamp(SimulatedInstall::firstLaunch()), rawValue(rules.ad()));
    drawLife(rules, postbacks);
    writePostbacks(postbacks);
    writeSteps();
    writeConfiguration(output_, {}, configuration_);
    endPage(output_);
  }

 private:
  struct Moment {
    std::string step;
    bool isEvent;
    std::string outcome;  ///< when the platform was not called
    StepResult result;
  };

  template <class... Content>
  void print(fmt::format_string<Content...> format, Content&&... content) {
    fmt::format_to(std::ostreambuf_iterator<char>(output_), format, std::forward<Content>(content)...);
  }

  void drawLife(const simulated::PostbackRules& rules, const std::vector<PostbackRow>& postbacks) {
    seconds last = end_;
    for (const PostbackRow& row : postbacks) {
      last = std::max(last, std::chrono::ceil<seconds>(row.postback.latest));
    }
    const Scale scale(last);
    const double height = postbacksTop + 26 * static_cast<double>(postbacks.size()) + 4;
    print(
        "<div class=\"wide\"><svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1000 {}\" role=\"group\" "
        "aria-label=\"The life as a timeline\">\n",
        height);
    drawBands(scale, rules);
    drawGrid();
    drawSteps(scale);
    drawPostbacks(scale, postbacks);
    print("</svg></div>\n");
    print(
        "<p class=\"quiet\">Filled circles: values that count. Empty circles: calls without effect. Crosses: refused "
        "calls. Each window of the library is drawn as wide as the others.</p>\n");
  }

  void drawBand(const Scale& scale, double top, int window, seconds begin, seconds end) {
    const double x = scale.at(begin);
    print(
        "<rect class=\"band{}\" x=\"{:.1f}\" y=\"{}\" width=\"{:.1f}\" height=\"22\"/>"
        "<text x=\"{:.1f}\" y=\"{}\">window {} from {}</text>\n",
        window == 1 ? " other" : "", x, top, scale.at(end) - x, x + 6, top + 16, window, formatDuration(begin));
  }

  void drawBands(const Scale& scale, const simulated::PostbackRules& rules) {
    print("<text x=\"0\" y=\"26\">library</text>\n");
    for (int window = 0; window < 3; ++window) {
      drawBand(scale, 10, window, libraryBounds[window], libraryBounds[window + 1]);
    }
    print("<text x=\"0\" y=\"52\">platform</text>\n");
    if (rules.ad() == simulated::SignedAd::skAdNetwork3) {
      print("<text x=\"{}\" y=\"52\">no windows, but a timer of 24 hours</text>\n", left + 6);
      return;
    }
    seconds begin{0};
    for (int window = 0; window < 3; ++window) {
      const seconds end = begin + rules.lengths().at(static_cast<std::size_t>(window));
      drawBand(scale, 36, window, begin, end);
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
  }

  /// The marks of all steps, each a link to what is told of it; and the values that count, as steps.
  void drawSteps(const Scale& scale) {
    std::string path;
    double labelledUntil = 0;
    for (std::size_t index = 0; index < moments_.size(); ++index) {
      const Moment& moment = moments_[index];
      const double x = scale.at(moment.result.at);
      print("<a href=\"#step-{}\" aria-label=\"{}\">", index + 1, escaped(summary(moment)));
      print("<rect class=\"halo\" x=\"{:.1f}\" y=\"66\" width=\"12\" height=\"{}\" rx=\"6\"/>", x - 6,
            valuesBottom - 56);
      if (moment.isEvent) {
        print("<path class=\"event\" d=\"M{:.1f} 70l5 8l-5 8l-5 -8z\"/>", x);
      }
      for (const simulated::PlatformCall& call : moment.result.calls) {
        drawCall(x, call, path, labelledUntil);
      }
      print("</a>\n");
    }
    if (!path.empty()) {
      print("<path class=\"value\" d=\"{}\"/>\n", path);
    }
  }

  void drawCall(double x, const simulated::PlatformCall& call, std::string& path, double& labelledUntil) {
    const double y = heightOf(call.fineValue.value_or(0));
    const bool counts = call.verdict.outcome == Outcome::accepted;
    if (call.verdict.outcome == Outcome::refused) {
      print("<path class=\"mark refused\" d=\"M{:.1f} {:.1f}l10 10m0 -10l-10 10\"/>", x - 5, y - 5);
    } else {
      print("<circle class=\"mark{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"5\"/>", counts ? "" : " ignored", x, y);
    }
    if (counts) {
      path += path.empty() ? fmt::format("M{:.1f} {:.1f}", x, y) : fmt::format("H{:.1f}V{:.1f}", x, y);
    }
    if (counts && call.lockWindow.value_or(false) && call.verdict.window) {
      print("<path class=\"line dashed\" d=\"M{0:.1f} 60V{1}\"/><text x=\"{2:.1f}\" y=\"104\">lock</text>", x,
            valuesBottom, x + 9);
    }
    const std::string label = fmt::format("{} {}", call.fineValue.value_or(0), call.coarseValue.value_or(""));
    if (x > labelledUntil) {  // others stand in the trace
      print("<text x=\"{:.1f}\" y=\"{:.1f}\">{}</text>", x + 7, y - 6, label);
      labelledUntil = x + 12 + 7 * static_cast<double>(label.size());
    }
  }

  void drawPostbacks(const Scale& scale, const std::vector<PostbackRow>& postbacks) {
    double y = postbacksTop;
    for (const auto& [postback, number, finalBy, sentBetween, tiers] : postbacks) {
      const double from = scale.at(std::chrono::floor<seconds>(postback.finalizedAt));
      const double earliest = scale.at(std::chrono::floor<seconds>(postback.earliest));
      const double latest = scale.at(std::chrono::ceil<seconds>(postback.latest));
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
    print(
        "<p class=\"quiet\">It depends on the tier, which the platform assigns.</p>\n<div class=\"wide\"><table>\n"
        "<tr><th scope=\"col\">Postback</th><th scope=\"col\">Final by</th><th scope=\"col\">Sent between</th>");
    for (int tier = 0; tier <= 3; ++tier) {
      print("<th scope=\"col\">Tier {}</th>", tier);
    }
    print("</tr>\n");
    for (const PostbackRow& row : postbacks) {
      print("<tr><th scope=\"row\">{}</th><td>{}</td><td>{}</td>", row.number, row.finalBy, row.sentBetween);
      for (const std::string& tier : row.tiers) {
        print("<td>{}</td>", escaped(tier));
      }
      print("</tr>\n");
    }
    print("</table></div>\n");
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
  seconds end_{0};
  std::vector<Moment> moments_;
};

}  // namespace

std::unique_ptr<SimulationReport> makeHtmlReport(std::ostream& output, std::string configuration) {
  return std::make_unique<HtmlReport>(output, std::move(configuration));
}

}  // namespace quillmar::cli
