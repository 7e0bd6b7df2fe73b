// What is said about a configuration that somebody writes.
#include "Insight/ConfigurationCheck.h"

#include <algorithm>

#include "Model/ConfigResponse.h"
#include "Model/ConversionValuesCoding.h"
#include "Promises.h"

using namespace quillmar;

void fuzz::look(std::string_view text) {
  const insight::CheckReport report = insight::checkConfiguration(text, {200'000, 20'000});
  const bool isResponse = fuzz::decoded<ConfigResponse>(text).has_value();
  if (isResponse) {
    require(report.usable, "an answer that the library takes is usable");
  } else if (!fuzz::decoded<ConversionValues>(text)) {
    require(!report.usable, "what the library takes in neither form is unusable");
  }
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::size_t last = 1;
  for (const insight::Finding& finding : report.findings) {
    require(finding.line >= last && finding.line <= lines, "findings are in the order of the lines");
    last = finding.line;
    require(finding.path.starts_with('$') && !finding.message.empty() && !finding.advice.empty(),
            "a finding says where, what will happen and what to do");
    require(finding.shadowedBy.has_value() == (finding.code == "unreachable"),
            "a dead rule has one that is sent instead");
  }
}
