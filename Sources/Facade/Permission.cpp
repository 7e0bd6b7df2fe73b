#include <utility>

#include "Facade/QuillmarCore.h"
#include "Logging/Log.h"

namespace quillmar {

void QuillmarCore::grantConsent() {
  if (!consent_->grant()) {
    return;
  }
  auto inFlight = std::make_shared<Activity>(activity_);
  lifecycleQueue_->post([self = shared_from_this(), inFlight = std::move(inFlight)] {
    self->consent_->open([&self] { self->erasure_.finish(); }, *self->lifecycleQueue_);
  });
}

void QuillmarCore::revokeConsent() {
  consent_->revoke([this] { erasure_.begin(); }, [this] { erasure_.run(); });
}

void QuillmarCore::stop() {
  resetNow();
}

bool QuillmarCore::holdConfiguration(const Configuration& configuration) {
  const std::weak_ptr<QuillmarCore> weak = weak_from_this();
  Consent::Call call = [weak, configuration](platform::Executor& /*startUp*/) {
    if (const auto self = weak.lock()) {
      self->beginConfiguring(configuration);
    }
  };
  if (consent_->hold(std::move(call)) == Consent::Held::no) {
    return false;
  }
  Log::debug("Quillmar - Waiting for consent");
  return true;
}

bool QuillmarCore::holdEvent(std::uint64_t epoch, NamedEvent& event) {
  const std::string name = event.name;
  const auto kept = std::make_shared<NamedEvent>(std::move(event));
  const Life life{weak_from_this(), epoch};
  Consent::Call call = [life, kept](platform::Executor& /*startUp*/) {
    if (const auto self = life.lock()) {
      self->enter(life, std::move(*kept), false, self->options().limits);
    }
  };
  switch (consent_->holdEvent(std::move(call), options().eventsHeldForConsent)) {
    case Consent::Held::no:
      event = std::move(*kept);
      return false;
    case Consent::Held::yes:
      Log::debug("Quillmar - Holding event until there is consent: {}", name);
      return true;
    case Consent::Held::full:
      break;
  }
  counters_.dropped.fetch_add(1, std::memory_order_relaxed);
  kept->passage.end(EventEnd::noConsent);
  Log::debug("Quillmar - No consent, dropping event: {}", name);
  if (const Trace trace = traceOf(name)) {
    trace->end(Decision::Outcome::noConsent);
  }
  return true;
}

}  // namespace quillmar
