#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "quillmar/ASEventParam.h"
#include "quillmar/platform/NotificationCenter.h"
#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar::cli {

struct EventStep {
  std::string name;
  std::optional<EventParameters> params;
};

struct ActivateStep {
  platform::Notification notification;
};

struct SleepStep {
  std::chrono::nanoseconds duration;
};

struct ResetStep {};

struct ConfigureStep {
  std::string key;
};

struct ConsentStep {
  bool grant;
};

/// Switches search-ads attribution on or off.
struct AttributionStep {
  bool enable;
};

struct SubscriptionStep {
  platform::SubscriptionStatusUpdate update;
};

/// Holds requests back, or lets them go on.
struct NetworkStep {
  bool pause;
};

using Step = std::variant<EventStep, ActivateStep, SleepStep, ResetStep, ConfigureStep, ConsentStep, AttributionStep,
                          SubscriptionStep, NetworkStep>;

struct InputLine {
  Step step;
  std::optional<std::chrono::seconds> at;  ///< since the first launch
};

/// Which clock the input goes by.
enum class InputTime {
  real,    ///< lines are done as they come; "sleep" waits
  script,  ///< lines say when they happen, with "at"
};

/// What is wrong with a line, with the JSON path of the member where there is one. It repeats names and texts of the
/// line, which may hold any character.
class LineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads one line, which is not blank. Throws `LineError`.
InputLine parseInputLine(std::string_view text, InputTime time);

/// Reads JSON Lines one by one. Bad lines are reported on `errors` as "quillmar: FILE:LINE: what is wrong" and counted.
/// A report stays one line and does nothing to a terminal.
class InputLines {
 public:
  /// The streams must outlive the object. `name` is the file's name, or "-".
  InputLines(std::istream& input, std::ostream& errors, std::string name, InputTime time);

  /// The next good line; nothing at the end.
  std::optional<InputLine> next();

  /// Reports the line that `next` gave last as a bad one.
  void reject(std::string_view reason);

  std::size_t badLines() const noexcept { return badLines_; }

 private:
  std::istream& input_;
  std::ostream& errors_;
  std::string name_;
  InputTime time_;
  std::size_t lineNumber_ = 0;
  std::size_t badLines_ = 0;
};

}  // namespace quillmar::cli
