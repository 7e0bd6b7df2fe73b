#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillmar/ConversionValues.h"
#include "quillmar/Export.h"

namespace quillmar {

/// A rule of the configuration that has a value for the window. One complete half makes it complete.
struct DecisionRule {
  std::string key;
  std::optional<std::int64_t> fineValue;
  std::optional<CoarseValue> coarseValue;
  bool fineComplete = false;
  bool coarseComplete = false;
  /// What the halves that are not complete wait for, for example "purchase: 9.99 seen, 10 to 50 wanted".
  std::vector<std::string> missing;
};

/// The value that was chosen, as it is sent.
struct DecisionChoice {
  std::string key;
  std::optional<std::int64_t> fineValue;
  std::optional<CoarseValue> coarseValue;
  // The halves that the rule leaves out and the last update had.
  bool fineFilledIn = false;
  bool coarseFilledIn = false;
  std::string filledInFrom;  ///< the key of the last update; empty when nothing was filled in
  bool locksWindow = false;
  std::string lockReason;  ///< empty without a lock
};

/// What became of one event, and why. With `QuillmarOptions::reliableDelivery` events that come into the history
/// together have one record, under the name of the last; those that wait in the outbox have none yet.
struct Decision {
  /// Where the event's way ended.
  enum class Outcome : std::uint8_t {
    sent,             ///< with a call of the platform
    nothingComplete,  ///< no rule of the window is complete
    windowOver,       ///< the last window has ended
    keyInvalid,       ///< the verification key counts as invalid
    switchedOff,      ///< the service has switched the library off
    noConsent,        ///< dropped: `QuillmarOptions::requireConsent`
    parked,           ///< the configuration has yet to come: another record follows when the event goes on
    noConfiguration,  ///< the stored configuration cannot be read
    nothingCalled,    ///< there is a value, but no way to tell it: the system is older than 14.0 and registered before
    lower,            ///< not sent: `QuillmarOptions::neverSendLower`
    repeated          ///< not sent: `QuillmarOptions::skipRepeatedUpdates` or `skipRepeatedLocks`
  };

  /// What the platform said.
  enum class Answer : std::uint8_t {
    none,  ///< nothing was called, the interface gives no answer (before 15.4), or none came
    success,
    failure
  };

  using Rule = DecisionRule;
  using Choice = DecisionChoice;

  std::string event;
  Outcome outcome = Outcome::sent;
  std::optional<Window> window;      ///< nothing when the event did not come so far, or the windows are over
  std::vector<Rule> rules;           ///< in the order of the configuration
  std::vector<std::string> ranking;  ///< the keys of the complete rules, the lowest first: it is chosen
  std::optional<Choice> choice;
  /// "adAttributionKit", "skAdNetwork4", "skAdNetwork4WithoutCoarse", "skAdNetwork3", "skAdNetwork2" or "registration";
  /// empty when nothing was called, or by a conversion tracking manager of the host's. When both networks are called
  /// (`QuillmarOptions::updateBothNetworks`), this and the answer are AdAttributionKit's.
  std::string interface;
  Answer answer = Answer::none;
  std::string error;  ///< the platform's words for a failure
};

/// Takes one record for each event that leaves the pipeline.
using DecisionObserver = std::function<void(const Decision&)>;

/// "sent", "nothingComplete" and so on, as the enumerators are spelled.
QUILLMAR_API std::string_view rawValue(Decision::Outcome outcome) noexcept;

}  // namespace quillmar
