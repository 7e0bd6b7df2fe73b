#include "Conversion/DecisionTrace.h"

#include <utility>

#include "Logging/Guarded.h"

namespace quillmar {

DecisionTrace::DecisionTrace(std::string event, std::shared_ptr<const DecisionObserver> observer,
                             std::shared_ptr<platform::Executor> queue, Activity activity) noexcept
    : observer_(std::move(observer)), queue_(std::move(queue)), activity_(std::move(activity)) {
  record.event = std::move(event);
}

DecisionTrace::~DecisionTrace() {
  if (!hasEnded_) {
    return;
  }
  guarded("The record of a decision", [this] {
    queue_->post([decision = std::move(record), observer = std::move(observer_),
                  activity = std::make_shared<Activity>(std::move(activity_))] { (*observer)(decision); });
  });
}

void DecisionTrace::end(Decision::Outcome outcome) noexcept {
  record.outcome = outcome;
  hasEnded_ = true;
}

std::string_view rawValue(Decision::Outcome outcome) noexcept {
  switch (outcome) {
    case Decision::Outcome::sent:
      return "sent";
    case Decision::Outcome::nothingComplete:
      return "nothingComplete";
    case Decision::Outcome::windowOver:
      return "windowOver";
    case Decision::Outcome::keyInvalid:
      return "keyInvalid";
    case Decision::Outcome::noConsent:
      return "noConsent";
    case Decision::Outcome::switchedOff:
      return "switchedOff";
    case Decision::Outcome::parked:
      return "parked";
    case Decision::Outcome::noConfiguration:
      return "noConfiguration";
    case Decision::Outcome::lower:
      return "lower";
    case Decision::Outcome::repeated:
      return "repeated";
    default:
      return "nothingCalled";
  }
}

}  // namespace quillmar
