#include "FindingsText.h"

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

}  // namespace quillmar::cli
