#include "Insight/Finding.h"

#include <algorithm>

namespace quillmar::insight {

std::string_view nameOf(Severity severity) noexcept {
  switch (severity) {
    case Severity::note:
      return "note";
    case Severity::warning:
      return "warning";
    case Severity::error:
      break;
  }
  return "error";
}

std::size_t CheckReport::count(Severity severity) const noexcept {
  return static_cast<std::size_t>(std::count_if(
      findings.begin(), findings.end(), [severity](const Finding& finding) { return finding.severity == severity; }));
}

}  // namespace quillmar::insight
