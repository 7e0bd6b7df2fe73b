#include "InputLines.h"

#include <fmt/format.h>

#include <array>
#include <boost/json.hpp>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <istream>
#include <ostream>

#include "Duration.h"
#include "JsonMemberText.h"
#include "Logging/Controls.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;

/// A line that is longer is not read to its end, so that a file without line ends cannot take up the memory.
constexpr std::size_t longestLine = std::size_t{1024} * 1024;

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

/// The double nearest to what is spelled. The parser's own can be off in the last place, and revenue rules count a
/// bound itself.
double nearestDouble(double parsed, std::string_view spelled) {
  const double nearest = std::strtod(std::string(spelled).c_str(), nullptr);  // the command's locale is C's
  return std::isfinite(nearest) ? nearest : parsed;
}

EventValue parameterValue(const json::value& value, std::string_view textOfValue, std::string_view path) {
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
      return nearestDouble(value.get_double(), textOfValue);
    default:
      fail(path, "a number or a text is expected, not " + kindOf(value));
  }
}

EventParameters eventParameters(const json::value& value, std::string_view textOfLine) {
  if (!value.is_object()) {
    fail("params", "an object is expected, not " + kindOf(value));
  }
  const std::string_view textOfParams = jsonMemberText(textOfLine, "params").value();
  EventParameters params;
  for (const auto& [name, member] : value.get_object()) {
    const std::string path = "params." + std::string(name);
    const auto param = eventParamFromRawValue(std::string_view(name.data(), name.size()));
    if (!param) {
      fail(path, "unknown parameter; \"revenue\" is the only one");
    }
    const std::string_view textOfMember = jsonMemberText(textOfParams, key(*param)).value();
    params.emplace(*param, parameterValue(member, textOfMember, path));
  }
  return params;
}

Step eventStep(const json::value& value, const json::object& line, std::string_view textOfLine) {
  EventStep step{text(value, "event"), std::nullopt};
  if (const json::value* params = line.if_contains("params")) {
    step.params = eventParameters(*params, textOfLine);
  }
  return step;
}

/// True for the first of the two words that the member may have.
bool isFirstOf(const char* first, const char* second, const json::value& value, const char* member) {
  const std::string what = text(value, member);
  if (what != first && what != second) {
    fail(member, fmt::format("\"{}\" or \"{}\" is expected, not \"{}\"", first, second, what));
  }
  return what == first;
}

Step activateStep(const json::value& value, const json::object&, std::string_view) {
  return ActivateStep{isFirstOf("application", "scene", value, "activate")
                          ? platform::Notification::applicationDidBecomeActive
                          : platform::Notification::sceneDidActivate};
}

Step sleepStep(const json::value& value, const json::object&, std::string_view) {
  constexpr double aDay = 86400;
  json::error_code error;
  const double seconds = value.is_number() ? value.to_number<double>(error) : -1;
  if (error || !(seconds >= 0 && seconds <= aDay)) {
    fail("sleep", "a number of seconds from 0 to 86400 is expected");
  }
  return SleepStep{std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds))};
}

Step resetStep(const json::value& value, const json::object&, std::string_view) {
  if (!value.is_bool() || !value.get_bool()) {
    fail("reset", "true is expected, not " + kindOf(value));
  }
  return ResetStep{};
}

Step consentStep(const json::value& value, const json::object&, std::string_view) {
  const std::string what = text(value, "consent");
  if (what != "grant" && what != "revoke") {
    fail("consent", "\"grant\" or \"revoke\" is expected, not \"" + what + "\"");
  }
  return ConsentStep{what == "grant"};
}

Step configureStep(const json::value& value, const json::object&, std::string_view) {
  ConfigureStep step{text(value, "configure")};
  if (step.key.empty()) {
    fail("configure", "the key must not be empty");
  }
  return step;
}

Step attributionStep(const json::value& value, const json::object&, std::string_view) {
  return AttributionStep{isFirstOf("enable", "disable", value, "attribution")};
}

Step networkStep(const json::value& value, const json::object&, std::string_view) {
  return NetworkStep{isFirstOf("pause", "resume", value, "network")};
}

constexpr const char* transactionMember = "transaction";
constexpr const char* renewalInfoMember = "renewalInfo";
constexpr const char* stateMember = "state";
constexpr const char* transactionVerifiedMember = "transactionVerified";
constexpr const char* renewalInfoVerifiedMember = "renewalInfoVerified";

std::string subscriptionPath(std::string_view member) {
  return "subscription." + std::string(member);
}

const json::value& requiredMember(const json::object& subscription, const char* member) {
  const json::value* value = subscription.if_contains(member);
  if (value == nullptr) {
    fail(subscriptionPath(member), "is missing");
  }
  return *value;
}

/// The object's own bytes: what was not read must not be written anew.
std::string objectText(const json::object& subscription, std::string_view textOfSubscription, const char* member) {
  const json::value& value = requiredMember(subscription, member);
  if (!value.is_object()) {
    fail(subscriptionPath(member), "an object is expected, not " + kindOf(value));
  }
  return std::string(jsonMemberText(textOfSubscription, member).value());
}

/// What is wrong with the signature, if anything.
std::optional<platform::PlatformError> verificationError(const json::object& subscription, const char* member,
                                                         const char* error) {
  const json::value* verified = subscription.if_contains(member);
  if (verified != nullptr && !verified->is_bool()) {
    fail(subscriptionPath(member), "true or false is expected, not " + kindOf(*verified));
  }
  if (verified == nullptr || verified->get_bool()) {
    return std::nullopt;
  }
  return platform::PlatformError{error};
}

std::uint64_t transactionIdentifier(const json::object& transaction) {
  const json::value* value = transaction.if_contains("transactionId");
  std::uint64_t identifier = 0;
  if (value != nullptr && value->is_string()) {
    const json::string& digits = value->get_string();
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, identifier);
    return error == std::errc{} && stop == end ? identifier : 0;
  }
  if (value != nullptr && value->is_number()) {
    json::error_code error;
    identifier = value->to_number<std::uint64_t>(error);
    return error ? 0 : identifier;
  }
  return 0;
}

Step subscriptionStep(const json::value& value, const json::object&, std::string_view textOfLine) {
  if (!value.is_object()) {
    fail("subscription", "an object is expected, not " + kindOf(value));
  }
  const json::object& subscription = value.get_object();
  for (const auto& member : subscription) {
    const std::string_view name(member.key().data(), member.key().size());
    if (name != transactionMember && name != renewalInfoMember && name != stateMember &&
        name != transactionVerifiedMember && name != renewalInfoVerifiedMember) {
      fail(subscriptionPath(name), "unknown member");
    }
  }
  const std::string_view textOfSubscription = jsonMemberText(textOfLine, "subscription").value();
  SubscriptionStep step;
  step.update.transaction.jsonRepresentation = objectText(subscription, textOfSubscription, transactionMember);
  step.update.transaction.identifier = transactionIdentifier(subscription.at(transactionMember).get_object());
  step.update.transaction.verificationError =
      verificationError(subscription, transactionVerifiedMember, "The transaction is not verified.");
  step.update.renewalInfo.jsonRepresentation = objectText(subscription, textOfSubscription, renewalInfoMember);
  step.update.renewalInfo.verificationError =
      verificationError(subscription, renewalInfoVerifiedMember, "The renewal information is not verified.");
  const json::value& state = requiredMember(subscription, stateMember);
  if (!state.is_int64()) {
    fail(subscriptionPath(stateMember), "a whole number is expected");
  }
  step.update.renewalState = state.get_int64();
  return step;
}

struct Kind {
  std::string_view name;
  Step (*parse)(const json::value& value, const json::object& line, std::string_view textOfLine);
  const char* notInScript = nullptr;  ///< why a script has no such lines
};

constexpr const char* noAttributionInScript = "only \"quillmar run\" has search-ads attribution";

constexpr std::array<Kind, 9> kinds{{{"event", eventStep},
                                     {"activate", activateStep},
                                     {"sleep", sleepStep, "say with \"at\" when a line happens"},
                                     {"reset", resetStep},
                                     {"configure", configureStep},
                                     {"consent", consentStep},
                                     {"attribution", attributionStep, noAttributionInScript},
                                     {"subscription", subscriptionStep, noAttributionInScript},
                                     {"network", networkStep}}};

std::string expectedKinds(InputTime time) {
  std::string names;
  for (const Kind& kind : kinds) {
    if (kind.notInScript == nullptr || time == InputTime::real) {
      names += (names.empty() ? "\"" : ", \"") + std::string(kind.name) + "\"";
    }
  }
  return "one of " + names + " is expected";
}

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
    if (kind.notInScript != nullptr && time == InputTime::script) {
      fail(kind.name, std::string("unknown member; ") + kind.notInScript);
    }
    chosen = &kind;
  }
  for (const auto& member : line) {
    const std::string_view name(member.key().data(), member.key().size());
    if (name == "at" && time == InputTime::real) {
      fail(name, "unknown member; these lines are done as they come");
    }
    const bool known = name == "at" || (chosen != nullptr && name == chosen->name) ||
                       (name == "params" && chosen != nullptr && chosen->name == "event");
    if (!known) {
      fail(name, "unknown member");
    }
  }
  if (chosen == nullptr) {
    throw LineError(expectedKinds(time));
  }
  InputLine result{
      chosen->parse(line.at(json::string_view(chosen->name.data(), chosen->name.size())), line, textOfLine),
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
  errors_ << withoutControls(fmt::format("quillmar: {}:{}: {}", name_, lineNumber_, reason)) << std::endl;
}

}  // namespace quillmar::cli
