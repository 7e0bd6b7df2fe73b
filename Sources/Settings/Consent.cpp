#include "Settings/Consent.h"

#include <map>
#include <utility>

namespace quillmar {

std::shared_ptr<Consent> Consent::of(const std::shared_ptr<platform::UserDefaults>& store) {
  struct Registry {
    std::mutex mutex;
    std::map<std::weak_ptr<platform::UserDefaults>, std::weak_ptr<Consent>, std::owner_less<>> consents;
  };
  static Registry& registry = *new Registry;  // never destroyed
  const std::lock_guard lock(registry.mutex);
  std::erase_if(registry.consents, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<Consent>& known = registry.consents[store];
  std::shared_ptr<Consent> consent = known.lock();
  if (!consent) {
    known = consent = std::make_shared<Consent>();
  }
  return consent;
}

void Consent::join(std::weak_ptr<Worker> worker) {
  const std::lock_guard lock(mutex_);
  std::erase_if(workers_, [](const auto& other) { return other.expired(); });
  workers_.push_back(std::move(worker));
}

void Consent::require() noexcept {
  State unasked = State::notRequired;
  state_.compare_exchange_strong(unasked, State::denied, std::memory_order_acq_rel);
}

Consent::Held Consent::hold(Call call) {
  const std::lock_guard lock(mutex_);
  return holdAnyway(std::move(call), 0);
}

Consent::Held Consent::holdEvent(Call event, std::size_t most) {
  const std::lock_guard lock(mutex_);
  return state() == State::denied && heldEvents_ >= most ? Held::full : holdAnyway(std::move(event), 1);
}

Consent::Held Consent::holdAnyway(Call call, std::size_t events) {
  if (mayWork()) {
    return Held::no;
  }
  held_.push_back(std::move(call));
  heldEvents_ += events;
  return Held::yes;
}

std::size_t Consent::heldEvents() const {
  const std::lock_guard lock(mutex_);
  return heldEvents_;
}

bool Consent::grant() noexcept {
  State denied = State::denied;
  return state_.compare_exchange_strong(denied, State::opening, std::memory_order_acq_rel) || denied == State::opening;
}

void Consent::open(const std::function<void()>& prepare, platform::Executor& startUp) {
  const std::lock_guard turn(turns_);
  if (state() != State::opening) {
    return;
  }
  prepare();
  for (std::deque<Call> calls; takeHeld(calls);) {
    for (const Call& call : calls) {
      call(startUp);
    }
    calls.clear();
  }
}

// False when there is nothing left to do before everything works, or when nothing may work any more.
bool Consent::takeHeld(std::deque<Call>& calls) {
  const std::lock_guard lock(mutex_);
  if (state() != State::opening) {
    return false;
  }
  if (held_.empty()) {
    state_.store(State::granted, std::memory_order_release);
    return false;
  }
  calls.swap(held_);
  heldEvents_ = 0;
  return true;
}

void Consent::revoke(const std::function<void()>& before, const std::function<void()>& erase) {
  std::deque<Call> forgotten;
  std::vector<std::weak_ptr<Worker>> workers;
  {
    const std::lock_guard lock(mutex_);
    state_.store(State::denied, std::memory_order_release);
    forgotten.swap(held_);
    heldEvents_ = 0;
    workers = workers_;
  }
  const std::lock_guard turn(turns_);
  before();
  for (const auto& worker : workers) {
    if (const auto alive = worker.lock()) {
      alive->stop();
    }
  }
  epoch_->raise([] {});
  erase();
}

}  // namespace quillmar
