#include "CheckCommand.h"

#include <fmt/format.h>

#include <istream>
#include <iterator>
#include <ostream>
#include <utility>

#include "FindingsOutput.h"
#include "Insight/ConfigurationCheck.h"
#include "JsonOutput.h"
#include "ServiceConfiguration.h"

namespace quillmar::cli {
namespace {

using insight::Severity;

constexpr int clean = 0;
constexpr int faulty = 1;
constexpr int unusable = 2;

}  // namespace

CheckCommand::CheckCommand(CheckOptions options) : options_(std::move(options)) {}

int CheckCommand::run(std::istream& input, std::ostream& output) {
  const bool fromInput = options_.config == "-";
  const std::string text = fromInput ? std::string(std::istreambuf_iterator<char>(input), {})
                                     : readConfiguration("check: CONFIG", options_.config);
  const insight::CheckReport report = insight::checkConfiguration(text);
  const std::size_t errors = report.count(Severity::error);
  const std::size_t warnings = report.count(Severity::warning);
  const std::size_t notes = report.count(Severity::note);
  if (options_.json) {
    JsonLineWriter lines(output);
    for (const insight::Finding& finding : report.findings) {
      lines.write({{"finding", toJson(finding)}});
    }
    lines.write({{"summary", {{"errors", errors}, {"warnings", warnings}, {"notes", notes}}}});
  } else {
    writeFindings(fromInput ? "<stdin>" : options_.config, report, Severity::note, output);
    output << fmt::format("{}, {}, {}\n", counted(errors, "error"), counted(warnings, "warning"),
                          counted(notes, "note"));
  }
  if (!report.usable) {
    return unusable;
  }
  return errors + warnings > 0 ? faulty : clean;
}

}  // namespace quillmar::cli
