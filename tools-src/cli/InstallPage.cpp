#include "InstallPage.h"

#include <fmt/ostream.h>

#include <algorithm>
#include <ostream>
#include <vector>

#include "HtmlPage.h"
#include "InstallText.h"
#include "JsonOutput.h"
#include "Timeline.h"

namespace quillmar::cli {
namespace {

using insight::InstallReport;
using Rows = std::vector<std::vector<std::string>>;

constexpr double eventsTop = 58, lane = 22;

void drawEvents(std::ostream& output, const Timeline& timeline, const InstallReport& report,
                InstallReport::TimePoint firstRun) {
  const auto at = [&](InstallReport::TimePoint time) { return timeline.at(InstallReport::between(firstRun, time)); };
  fmt::print(output, "<clipPath id=\"names\"><rect width=\"{}\" height=\"100%\"/></clipPath>\n", Timeline::left - 8);
  fmt::print(output, "<path class=\"line dashed\" d=\"M{0:.1f} 36V{1}\"/><text x=\"{2:.1f}\" y=\"46\">now</text>\n",
             at(report.now), eventsTop + lane * static_cast<double>(report.history.size()) - 6, at(report.now) + 6);
  double y = eventsTop;
  for (const auto& events : report.history) {
    const double first = at(events.first);
    const double last = at(events.last);
    fmt::print(output,
               "<g role=\"img\" aria-label=\"{0}: {1} from {2} to {3}\"><text x=\"0\" y=\"{5}\" "
               "clip-path=\"url(#names)\">{0}</text><path class=\"value\" d=\"M{6:.1f} {4}H{7:.1f}\"/>"
               "<circle class=\"mark\" cx=\"{6:.1f}\" cy=\"{4}\" r=\"4\"/><circle class=\"mark\" cx=\"{7:.1f}\" "
               "cy=\"{4}\" r=\"4\"/><text x=\"{8:.1f}\" y=\"{5}\">{1}</text></g>\n",
               escaped(events.name), events.count, timestamp(events.first), timestamp(events.last), y, y + 5, first,
               last, last + 10);
    y += lane;
  }
}

/// The library's windows, when which events came, and where in all that the install is.
void drawHistory(std::ostream& output, const InstallReport& report, InstallReport::TimePoint firstRun) {
  InstallReport::TimePoint last = report.now;
  for (const auto& events : report.history) {
    last = std::max(last, events.last);
  }
  const Timeline timeline(output, InstallReport::between(firstRun, last));
  timeline.begin(eventsTop + lane * static_cast<double>(report.history.size()), "The install as a timeline");
  timeline.drawLibraryWindows();
  drawEvents(output, timeline, report, firstRun);
  timeline.end();
  fmt::print(output,
             "<p class=\"quiet\">The events by name, from the first to the last, with their number. Each window of the "
             "library is drawn as wide as the others.</p>\n");
}

Rows rowsOf(const std::vector<Fact>& facts) {
  Rows rows;
  for (const auto& [name, content] : facts) {
    rows.push_back({name, content});
  }
  return rows;
}

}  // namespace

void writeInstallPage(std::ostream& output, const InstallReport& report, const std::string& folder,
                      std::string_view configuration) {
  beginPage(output, report.day ? fmt::format("An install on day {}", *report.day) : "An install without a first run");
  fmt::print(output, "<p>In {}, as it is at {}.</p>\n", escaped(folder), timestamp(report.now));
  if (!report.problems.empty()) {
    fmt::print(output, "<h2>What is damaged</h2>\n<ul>\n");
    for (const std::string& problem : report.problems) {
      fmt::print(output, "<li>{}</li>\n", escaped(problem));
    }
    fmt::print(output, "</ul>\n");
  }
  if (report.firstRun) {
    drawHistory(output, report, *report.firstRun);
  }
  Rows facts = rowsOf(identityOf(report));
  const Rows state = rowsOf(stateOf(report));
  facts.insert(facts.end(), state.begin(), state.end());
  writeTable(output, {}, facts);
  fmt::print(output, "<h2>What the next event sends</h2>\n");
  writeTable(output, {"Event", "What is sent"}, rowsOf(outlookOf(report)));
  fmt::print(output, "<h2>Events so far</h2>\n");
  Rows history;
  for (const auto& events : report.history) {
    history.push_back({events.name, std::to_string(events.count), timestamp(events.first), timestamp(events.last),
                       revenuesOf(events)});
  }
  writeTable(output, {"Event", "Number", "First", "Last", "Revenues"}, history);
  if (report.check) {
    writeConfiguration(output, report.check->findings, configuration);
  }
  endPage(output);
}

}  // namespace quillmar::cli
