#include "InputLines.h"

#include <array>
#include <boost/json.hpp>
#include <cmath>
#include <istream>
#include <ostream>

#include "Duration.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;

/// A line that is longer is not read to its end, so that a file without line ends cannot take up the memory.
constexpr std::size_t longestLine = 1024 * 1024;

std::string kindOf(const json::value& value) {
  switch (value.kind()) {
    case json::kind::null:
      return "null";
    case json::kind::bool_:
      return value.get_bool() ? "true" : "false";
    case json::kind::string:
      return "a text";
    case json::kind::array:
      return "an array";
    case json::kind::object:
      return "an object";
    default:
      return "a number";
  }
}

[[noreturn]] void fail(std::string_view path, const std::string& reason) {
  throw LineError("$." + std::string(path) + ": " + reason);
}

std::string text(const json::value& value, std::string_view path) {
  if (!value.is_string()) {
    fail(path, "a text is expected, not " + kindOf(value));
  }
  return std::string(value.get_string());
}

EventValue parameterValue(const json::value& value, std::string_view path) {
  switch (value.kind()) {
    case json::kind::string:
      return std::string(value.get_string());
    case json::kind::int64:
      return value.get_int64();
    case json::kind::uint64:
      return value.get_uint64();
    case json::kind::double_:
      if (!std::isfinite(value.get_double())) {
        fail(path, "the number is too large");
      }
      return value.get_double();
    default:
      fail(path, "a number or a text is expected, not " + kindOf(value));
  }
}

EventParameters eventParameters(const json::value& value) {
  if (!value.is_object()) {
    fail("params", "an object is expected, not " + kindOf(value));
  }
  EventParameters params;
  for (const auto& [name, member] : value.get_object()) {
    const std::string path = "params." + std::string(name);
    const auto param = eventParamFromRawValue(std::string_view(name.data(), name.size()));
    if (!param) {
      fail(path, "unknown parameter; \"revenue\" is the only one");
    }
    params.emplace(*param, parameterValue(member, path));
  }
  return params;
}

Step eventStep(const json::value& value, const json::object& line) {
  EventStep step{text(value, "event"), std::nullopt};
  if (const json::value* params = line.if_contains("params")) {
    step.params = eventParameters(*params);
  }
  return step;
}

Step activateStep(const json::value& value, const json::object&) {
  const std::string what = text(value, "activate");
  if (what != "application" && what != "scene") {
    fail("activate", "\"application\" or \"scene\" is expected, not \"" + what + "\"");
  }
  return ActivateStep{what == "scene" ? platform::Notification::sceneDidActivate
                                      : platform::Notification::applicationDidBecomeActive};
}

Step sleepStep(const json::value& value, const json::object&) {
  constexpr double aDay = 86400;
  json::error_code error;
  const double seconds = value.is_number() ? value.to_number<double>(error) : -1;
  if (error || !(seconds >= 0 && seconds <= aDay)) {
    fail("sleep", "a number of seconds from 0 to 86400 is expected");
  }
  return SleepStep{std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds))};
}

Step resetStep(const json::value& value, const json::object&) {
  if (!value.is_bool() || !value.get_bool()) {
    fail("reset", "true is expected, not " + kindOf(value));
  }
  return ResetStep{};
}

Step configureStep(const json::value& value, const json::object&) {
  ConfigureStep step{text(value, "configure")};
  if (step.key.empty()) {
    fail("configure", "the key must not be empty");
  }
  return step;
}

struct Kind {
  std::string_view name;
  Step (*parse)(const json::value& value, const json::object& line);
};

constexpr std::array<Kind, 5> kinds{{{"event", eventStep},
                                     {"activate", activateStep},
                                     {"sleep", sleepStep},
                                     {"reset", resetStep},
                                     {"configure", configureStep}}};

std::chrono::seconds timeOfLine(const json::value& value) {
  const std::string at = text(value, "at");
  const auto duration = parseDuration(at);
  if (!duration || duration->count() < 0) {
    fail("at", "a duration such as 2d4h30m is expected, not \"" + at + "\"");
  }
  return *duration;
}

}  // namespace

InputLine parseInputLine(std::string_view textOfLine, InputTime time) {
  json::error_code error;
  const json::value document = json::parse(json::string_view(textOfLine.data(), textOfLine.size()), error);
  if (error) {
    throw LineError("not JSON: " + error.message());
  }
  if (!document.is_object()) {
    throw LineError("an object is expected, not " + kindOf(document));
  }
  const json::object& line = document.get_object();
  const Kind* chosen = nullptr;
  for (const Kind& kind : kinds) {
    if (!line.contains(json::string_view(kind.name.data(), kind.name.size()))) {
      continue;
    }
    if (chosen != nullptr) {
      fail(kind.name, "a line is one step, and it has \"" + std::string(chosen->name) + "\" already");
    }
    chosen = &kind;
  }
  for (const auto& member : line) {
    const std::string_view name(member.key().data(), member.key().size());
    if (name == "at" && time == InputTime::real) {
      fail(name, "unknown member; these lines are done as they come");
    }
    if (name == "sleep" && time == InputTime::script) {
      fail(name, "unknown member; say with \"at\" when a line happens");
    }
    const bool known = name == "at" || (chosen != nullptr && name == chosen->name) ||
                       (name == "params" && chosen != nullptr && chosen->name == "event");
    if (!known) {
      fail(name, "unknown member");
    }
  }
  if (chosen == nullptr) {
    throw LineError("one of \"event\", \"activate\", \"reset\", \"configure\" is expected");
  }
  InputLine result{chosen->parse(line.at(json::string_view(chosen->name.data(), chosen->name.size())), line),
                   std::nullopt};
  if (const json::value* at = line.if_contains("at")) {
    result.at = timeOfLine(*at);
  }
  return result;
}

InputLines::InputLines(std::istream& input, std::ostream& errors, std::string name, InputTime time)
    : input_(input), errors_(errors), name_(name == "-" ? "<stdin>" : std::move(name)), time_(time) {}

std::optional<InputLine> InputLines::next() {
  for (;;) {
    std::string line;
    bool tooLong = false;
    int letter = input_.get();
    if (letter == std::istream::traits_type::eof()) {
      return std::nullopt;
    }
    for (; letter != std::istream::traits_type::eof() && letter != '\n'; letter = input_.get()) {
      tooLong = line.size() == longestLine;
      if (!tooLong) {
        line += static_cast<char>(letter);
      }
    }
    ++lineNumber_;
    if (line.find_first_not_of(" \t\r") == std::string::npos) {
      continue;
    }
    try {
      if (tooLong) {
        throw LineError("longer than 1 MiB");
      }
      return parseInputLine(line, time_);
    } catch (const LineError& error) {
      reject(error.what());
    }
  }
}

void InputLines::reject(std::string_view reason) {
  ++badLines_;
  errors_ << "quillmar: " << name_ << ':' << lineNumber_ << ": " << reason << std::endl;
}

}  // namespace quillmar::cli
