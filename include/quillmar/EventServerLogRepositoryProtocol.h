#pragma once

#include <exception>
#include <functional>
#include <string>
#include <utility>

#include "quillmar/Export.h"

namespace quillmar {

/// What became of an event that was to be logged to the service.
struct EventLogResult {
  std::exception_ptr failure = nullptr;  ///< why it was not logged; counts against the verification key
  bool accepted = true;                  ///< false: the service has switched the library off and was not asked
  /// What went wrong underneath, when it is known: tells whether a further attempt may help.
  std::exception_ptr cause = nullptr;
};

/// Logs events to the service. Called on the platform's executor.
class QUILLMAR_API EventServerLogRepositoryProtocol {
 public:
  using Completion = std::function<void(EventLogResult)>;

  virtual ~EventServerLogRepositoryProtocol() = default;

  /// Logs one event, unless the service has switched the library off. Returns at once. Calls `completion` once, on any
  /// thread, also inside this call; an event whose completion is destroyed uncalled goes no further.
  virtual void logEvent(std::string event, Completion completion) = 0;

  /// The same under an identifier ("event_id"), by which the service knows an event that it gets twice. Called with
  /// `QuillmarOptions::reliableDelivery`. The standard implementation leaves the identifier aside.
  virtual void logEventAs(std::string event, std::string identifier, Completion completion) {
    static_cast<void>(identifier);
    logEvent(std::move(event), std::move(completion));
  }
};

}  // namespace quillmar
