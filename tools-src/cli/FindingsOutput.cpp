#include "FindingsOutput.h"

#include <fmt/format.h>

#include <ostream>

#include "Logging/Controls.h"

namespace quillmar::cli {

void writeFindings(const std::string& file, const insight::CheckReport& report, insight::Severity least,
                   std::ostream& output) {
  for (const insight::Finding& finding : report.findings) {
    if (finding.severity >= least) {
      output << withoutControls(fmt::format("{}:{}: {}: {} [{}]", file, finding.line, nameOf(finding.severity),
                                            finding.message, finding.code))
             << '\n'
             << withoutControls(fmt::format("    {}: {}", finding.path, finding.advice)) << '\n';
    }
  }
}

boost::json::object toJson(const insight::Finding& finding) {
  boost::json::object object{{"code", finding.code},       {"severity", nameOf(finding.severity)},
                             {"path", finding.path},       {"line", finding.line},
                             {"message", finding.message}, {"advice", finding.advice}};
  if (finding.shadowedBy) {
    object["shadowedBy"] = *finding.shadowedBy;
  }
  return object;
}

std::string counted(std::size_t count, std::string_view what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

}  // namespace quillmar::cli
