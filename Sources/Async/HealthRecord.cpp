#include "Async/HealthRecord.h"

#include <algorithm>
#include <chrono>

#include "Logging/Guarded.h"

namespace quillmar {

namespace {

/// What changes within this time is one call of the observer.
constexpr std::chrono::milliseconds burst{100};

}  // namespace

HealthRecord::Passage::Passage(std::shared_ptr<HealthRecord> record, std::uint64_t count) noexcept
    : record_(std::move(record)), epoch_(record_->epoch_->current()), count_(count) {}

HealthRecord::Passage::~Passage() {
  if (record_) {
    end(record_->epoch_->current() == epoch_ ? EventEnd::lost : EventEnd::reset);
  }
}

HealthRecord::Passage::Passage(Passage&& other) noexcept
    : record_(std::move(other.record_)), epoch_(other.epoch_), count_(other.count_), isUnderWay_(other.isUnderWay_) {}

HealthRecord::Passage& HealthRecord::Passage::operator=(Passage&& other) noexcept {
  std::swap(record_, other.record_);
  std::swap(epoch_, other.epoch_);
  std::swap(count_, other.count_);
  std::swap(isUnderWay_, other.isUnderWay_);
  return *this;
}

void HealthRecord::Passage::setUnderWay(bool underWay) noexcept {
  if (record_ && isUnderWay_ != underWay) {
    isUnderWay_ = underWay;
    record_->underWay_.fetch_add(underWay ? 1 : ~std::uint64_t{0}, std::memory_order_relaxed);
  }
}

void HealthRecord::Passage::keep() noexcept {
  if (const auto record = std::exchange(record_, nullptr)) {
    record->inMemory_.fetch_sub(count_, std::memory_order_release);
    record->kept_.fetch_add(count_, std::memory_order_release);
  }
}

void HealthRecord::Passage::end(EventEnd how) noexcept {
  setUnderWay(false);
  if (const auto record = std::exchange(record_, nullptr); record && count_ > 0) {
    record->inMemory_.fetch_sub(count_, std::memory_order_release);
    record->end(how, count_);
  }
}

void HealthRecord::Passage::endOne(EventEnd how) noexcept {
  --count_;
  record_->inMemory_.fetch_sub(1, std::memory_order_release);
  record_->end(how, 1);
}

HealthRecord::HealthRecord(std::shared_ptr<Epoch> epoch, std::shared_ptr<platform::Clock> clock,
                           std::shared_ptr<platform::Executor> executor) noexcept
    : epoch_(std::move(epoch)), clock_(std::move(clock)), executor_(std::move(executor)) {}

HealthRecord::Passage HealthRecord::begin() noexcept {
  sent_.fetch_add(1, std::memory_order_relaxed);
  inMemory_.fetch_add(1, std::memory_order_release);
  return {shared_from_this(), 1};
}

void HealthRecord::end(EventEnd how, std::uint64_t count) noexcept {
  ended_[static_cast<std::size_t>(how)].fetch_add(count, std::memory_order_release);
  if (how != EventEnd::logged) {
    noteChange();
  }
}

void HealthRecord::endKept(EventEnd how, bool inherited, std::uint64_t count) noexcept {
  if (inherited) {
    inherited_.fetch_add(count, std::memory_order_release);
  } else {
    kept_.fetch_sub(count, std::memory_order_release);
  }
  end(how, count);
}

void HealthRecord::resetKept() noexcept {
  if (const std::uint64_t count = kept_.exchange(0, std::memory_order_acq_rel); count > 0) {
    end(EventEnd::reset, count);
  }
}

void HealthRecord::noteLogged(const std::string& name) {
  const auto now = clock_->now();
  const std::lock_guard lock(mutex_);
  if (!lastLogged_) {
    lastLogged_.emplace();
  }
  lastLogged_->name = name;  // mostly into the memory that it has
  lastLogged_->at = now;
}

void HealthRecord::noteFetch(std::string error) {
  {
    const std::lock_guard lock(mutex_);
    fetchError_.swap(error);
  }
  noteChange();
}

std::uint64_t HealthRecord::noteCall(const char* interface) {
  const auto now = clock_->now();
  const std::lock_guard lock(mutex_);
  lastCall_ = {interface, now, Decision::Answer::none, {}};
  return ++calls_;
}

void HealthRecord::noteAnswer(std::uint64_t call, const std::optional<std::string>& error) {
  {
    const std::lock_guard lock(mutex_);
    if (call == calls_) {  // else another one has come since
      lastCall_->answer = error ? Decision::Answer::failure : Decision::Answer::success;
      lastCall_->error = error.value_or("");
    }
  }
  noteChange();
}

QuillmarHealth HealthRecord::health(std::uint64_t parked) const {
  QuillmarHealth health;
  for (std::size_t i = 0; i < eventEndCount; ++i) {
    health.ended[i] = ended_[i].load(std::memory_order_acquire);
  }
  health.kept = kept_.load(std::memory_order_acquire);
  const std::uint64_t inMemory = inMemory_.load(std::memory_order_acquire);
  // These are read at another moment, and only say where those in memory are.
  health.parked = std::min(parked, inMemory);
  health.underWay = std::min(underWay_.load(std::memory_order_relaxed), inMemory - health.parked);
  health.queued = inMemory - health.parked - health.underWay;
  health.inherited = inherited_.load(std::memory_order_acquire);
  health.sent = sent_.load(std::memory_order_acquire);
  const std::lock_guard lock(mutex_);
  health.fetchError = fetchError_;
  health.lastLogged = lastLogged_;
  health.lastPlatformCall = lastCall_;
  return health;
}

void HealthRecord::observe(std::function<void()> tell) {
  auto shared = tell ? std::make_shared<const std::function<void()>>(std::move(tell)) : nullptr;
  const std::lock_guard lock(mutex_);
  isObserved_.store(shared != nullptr, std::memory_order_relaxed);
  tell_.swap(shared);
}

// Called where events end, with locks held: so only the clock is asked here.
void HealthRecord::noteChange() noexcept {
  if (!isObserved_.load(std::memory_order_relaxed) || isTelling_.exchange(true)) {
    return;
  }
  bool isOnItsWay = false;
  guarded("The health observer", [&] {
    clock_->after(burst, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->isTelling_.store(false);  // what changes from now on is another call
        guarded("The health observer", [&] { self->executor_->post([self] { self->tell(); }); });
      }
    });
    isOnItsWay = true;
  });
  if (!isOnItsWay) {
    isTelling_.store(false);  // out of memory; the next change tries again
  }
}

void HealthRecord::tell() {
  std::shared_ptr<const std::function<void()>> tell;
  {
    const std::lock_guard lock(mutex_);
    tell = tell_;
  }
  if (tell) {
    (*tell)();
  }
}

std::string_view rawValue(EventEnd end) noexcept {
  constexpr std::array<std::string_view, eventEndCount> names{
      "logged", "failed",  "notAsked", "switchedOff", "noConsent",   "keyInvalid",  "reset",
      "lost",   "refused", "expired",  "displaced",   "parkedLimit", "queuedLimit", "tooLarge"};
  const auto index = static_cast<std::size_t>(end);
  return index < names.size() ? names[index] : std::string_view();
}

}  // namespace quillmar
