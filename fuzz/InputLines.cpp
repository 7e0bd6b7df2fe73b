// The event lines of the command, on both clocks.
#include "InputLines.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "JsonMemberText.h"
#include "Promises.h"
#include "Target.h"

using namespace quillmar;
using namespace quillmar::cli;
using fuzz::require;

namespace {

constexpr std::ptrdiff_t mostLines = 40;  ///< more of them take time and find nothing

struct StepPromises {
  InputTime time;

  void operator()(const EventStep& step) const {
    for (const auto& [name, value] : step.params.value_or(EventParameters{})) {
      const auto* const number = std::get_if<double>(&value.storage());
      require(number == nullptr || std::isfinite(*number), "a number is finite");
    }
  }
  void operator()(const ActivateStep&) const {}
  void operator()(const SleepStep& step) const {
    require(time == InputTime::real, "a script does not sleep");
    require(step.duration >= std::chrono::seconds(0) && step.duration <= std::chrono::hours(24), "a sleep is bounded");
  }
  void operator()(const ResetStep&) const {}
  void operator()(const ConfigureStep& step) const { require(!step.key.empty(), "a key is not empty"); }
  void operator()(const AttributionStep&) const {
    require(time == InputTime::real, "a script has no search-ads attribution");
  }
  void operator()(const SubscriptionStep& step) const {
    for (const std::string& json :
         {step.update.transaction.jsonRepresentation, step.update.renewalInfo.jsonRepresentation}) {
      require(boost::json::parse(json).is_object() && json.front() == '{' && json.back() == '}',
              "a subscription's parts are the bytes of an object");
    }
  }
};

/// The event's revenue as the line spells it; nothing when it is spelled as a whole number or a text.
std::optional<double> spelledRevenue(std::string_view line) {
  const std::string text(jsonMemberText(jsonMemberText(line, "params").value(), "revenue").value());
  return text.find_first_of(".eE") == std::string::npos || text.front() == '"' ? std::nullopt
                                                                               : std::optional(std::atof(text.c_str()));
}

/// Reads a line on its own.
void requireNumbers(const std::string& line) {
  try {
    const InputLine input = parseInputLine(line, InputTime::script);
    const auto* const event = std::get_if<EventStep>(&input.step);
    if (event != nullptr && event->params && !event->params->empty()) {
      if (const std::optional<double> revenue = spelledRevenue(line)) {
        require(event->params->at(ASEventParam::revenue) == EventValue(*revenue), "a number is the nearest double");
      }
    }
  } catch (const LineError&) {
  }
}

void requireLines(const std::string& text, InputTime time) {
  std::istringstream input(text);
  std::ostringstream errors;
  InputLines lines(input, errors, "-", time);
  std::size_t good = 0;
  while (const std::optional<InputLine> line = lines.next()) {
    ++good;
    std::visit(StepPromises{time}, line->step);
    require(!line->at || (time == InputTime::script && line->at->count() >= 0), "a time is one of a script, and later");
  }
  std::size_t notBlank = 0;
  std::istringstream again(text);
  for (std::string line; std::getline(again, line);) {
    notBlank += line.find_first_not_of(" \t\r") == std::string::npos ? 0U : 1U;
    requireNumbers(line);
  }
  require(good + lines.badLines() == notBlank, "each line is taken or reported");

  std::size_t reports = 0;
  std::istringstream report(errors.str());
  for (std::string line; std::getline(report, line); ++reports) {
    require(line.starts_with("quillmar: <stdin>:"), "a report names the line");
    require(std::none_of(line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
            "a report has no control characters for the terminal");
  }
  require(reports == lines.badLines(), "a bad line makes one line of report");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (std::count(text.begin(), text.end(), '\n') > mostLines) {
    return 0;
  }
  requireLines(text, InputTime::real);
  requireLines(text, InputTime::script);
  return 0;
}
