// The event lines of the command, on both clocks.
#include "InputLines.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <cstdlib>
#include <sstream>

#include "JsonMemberText.h"
#include "Promises.h"

using namespace quillmar;
using namespace quillmar::cli;
using fuzz::require;

namespace {

constexpr std::ptrdiff_t mostLines = 40;  ///< more of them take time and find nothing

void requireStep(const InputLine& line, InputTime time) {
  require(!line.at || (time == InputTime::script && line.at->count() >= 0), "a time is one of a script, and later");
  if (const auto* const subscription = std::get_if<SubscriptionStep>(&line.step)) {
    const std::string& json = subscription->update.transaction.jsonRepresentation;
    require(boost::json::parse(json).is_object() && json.front() == '{' && json.back() == '}',
            "a subscription's parts are the bytes of an object");
  }
}

/// A revenue that is spelled with a point or an exponent becomes the double that the C library makes of it.
void requireNumber(const InputLine& input, std::string_view line) {
  const auto* const event = std::get_if<EventStep>(&input.step);
  if (event != nullptr && event->params && event->params->count(ASEventParam::revenue) != 0) {
    const std::string text(jsonMemberText(jsonMemberText(line, "params").value(), "revenue").value());
    require(text.find_first_of(".eE") == text.npos || text.front() == '"' ||
                event->params->at(ASEventParam::revenue) == EventValue(std::atof(text.c_str())),
            "a number is the nearest double");
  }
}

void requireLines(const std::string& text, InputTime time) {
  std::istringstream input(text);
  std::ostringstream errors;
  InputLines lines(input, errors, "-", time);
  std::size_t good = 0;
  for (; const std::optional<InputLine> line = lines.next(); ++good) {
    requireStep(*line, time);
  }
  std::size_t notBlank = 0;
  std::istringstream again(text);
  for (std::string line; std::getline(again, line);) {
    notBlank += line.find_first_not_of(" \t\r") == std::string::npos ? 0U : 1U;
    try {
      requireNumber(parseInputLine(line, time), line);
    } catch (const LineError&) {  // reported, see below
    }
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

void fuzz::look(std::string_view bytes) {
  const std::string text(bytes);
  if (std::count(text.begin(), text.end(), '\n') > mostLines) {
    return;
  }
  requireLines(text, InputTime::real);
  requireLines(text, InputTime::script);
}
