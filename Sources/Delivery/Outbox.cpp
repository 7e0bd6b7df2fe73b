#include "Delivery/Outbox.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

#include "Conversion/EventTracker.h"
#include "Logging/Guarded.h"
#include "Logging/Log.h"
#include "Settings/Uuid.h"

namespace quillmar {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

/// How many records are sent at a time. With fewer in memory, more are read.
constexpr std::size_t sentAtATime = 64;

/// Marks go with the next event. When none comes, or when there are many, they are written by themselves: a write for
/// each would cost as much as the event's own.
constexpr std::chrono::milliseconds longestUnmarked{100};
constexpr std::size_t mostUnmarked = 64;

/// New ones beyond so many in memory are on disk only.
constexpr std::size_t windowSize = 512;

/// The stores and keys of the outboxes that work. Never destroyed.
struct OutboxesInUse {
  std::mutex mutex;
  std::set<std::pair<const platform::UserDefaults*, std::string>> keys;
};

OutboxesInUse& outboxesInUse() {
  static OutboxesInUse& instance = *new OutboxesInUse;
  return instance;
}

constexpr seconds firstPause{2};
constexpr seconds longestPause{600};

}  // namespace

Outbox::Outbox(Surroundings surroundings, std::string key)
    : with_(std::move(surroundings)), key_(std::move(key)), store_(with_.userDefaults, key_) {}

Outbox::~Outbox() {
  if (isMine_.load()) {
    const std::lock_guard lock(outboxesInUse().mutex);
    outboxesInUse().keys.erase({with_.userDefaults.get(), key_});
  }
}

bool Outbox::isMine() {
  if (isMine_.load(std::memory_order_acquire)) {
    return true;
  }
  {
    const std::lock_guard lock(outboxesInUse().mutex);
    if (outboxesInUse().keys.emplace(with_.userDefaults.get(), key_).second) {
      isMine_.store(true, std::memory_order_release);
    }
  }
  if (!isMine_.load() && !saidSo_.exchange(true)) {
    Log::error("Outbox - Another instance uses it: what this one is given is not kept");
  }
  return isMine_.load();
}

void Outbox::start(std::unique_ptr<OutboxUserProtocol> user) {
  random_.seed(static_cast<std::minstd_rand::result_type>(with_.clock->now().time_since_epoch().count()));
  user_ = std::move(user);
}

bool Outbox::put(const Intake::Event& event, HealthRecord::Passage& passage, const QuillmarLimits& limits) {
  const bool hadRoom = intake_.put(event, limits);
  if (hadRoom) {
    passage.leave();  // else whichever has gone ends here: they are counted, not known
  }
  mayHaveUntracked_.store(true);
  postFlush();
  return hadRoom;
}

void Outbox::keepPurchase(std::string id, std::string name, std::string document) {
  OutboxRecord record;
  record.id = std::move(id);
  record.event = {std::move(name), {}, with_.clock->now()};
  record.document = std::move(document);
  record.tracked = true;
  with_.epoch->during(with_.epoch->current(), [&] {
    if (!user_->mayStore()) {
      return;
    }
    if (!open()) {
      throw std::system_error(std::make_error_code(std::errc::io_error));
    }
    static_cast<void>(writeAll({std::move(record)}, with_.health->begin(), false));
    tidyUp();
  });
  postFlush();
}

void Outbox::wake() {
  post([](Outbox& self) {
    self.mayHaveUntracked_.store(true);
    self.with_.epoch->during(self.with_.epoch->current(), [&self] {
      if (self.pause_ && !self.pause_->isWanted) {
        self.pause_.reset();
      }
    });
    self.flush();
  });
}

void Outbox::clear() {
  with_.health->resume(intake_.clear()).end(EventEnd::reset);
  with_.health->resetKept();
  begin_.reset();
  window_.clear();
  answered_.clear();
  marksAreDue_ = false;
  markTimerRuns_ = false;
  allLoaded_ = true;
  failures_ = 0;
  pause_.reset();
  try {
    store_.clear();
  } catch (const std::system_error& error) {
    Log::error("Outbox - Cannot be cleared now: {}", error.code().message());
  }
  unsent_.store(0, std::memory_order_relaxed);
}

void Outbox::post(std::function<void(Outbox&)> work) {
  auto busy = std::make_shared<Activity>(with_.activity);
  with_.executor->post([weak = weak_from_this(), busy = std::move(busy), work = std::move(work)] {
    if (const auto self = weak.lock()) {
      work(*self);
    }
  });
}

// The clock's thread may be the host's. What memory ran out for goes on with the next event or activation.
void Outbox::after(nanoseconds delay, std::function<void()> then) {
  with_.clock->after(delay, [then = std::move(then)] { guarded("Outbox", [&then] { then(); }); });
}

void Outbox::postFlush() {
  if (flushPosted_.exchange(true)) {
    return;
  }
  try {
    post([](Outbox& self) { self.flush(); });
  } catch (...) {  // out of memory; the next event, answer or activation posts again
    flushPosted_.store(false);
    throw;
  }
}

void Outbox::flush() {
  flushPosted_.store(false);
  const std::shared_ptr<void> alive = user_->lock();  // so that it does not go with the lock held
  if (!alive) {
    return;
  }
  const std::uint64_t epoch = with_.epoch->current();
  const bool mayTrack = mayHaveUntracked_.exchange(false) && user_->mayTrack(epoch);
  std::optional<std::string> tracked;
  bool more = false;
  with_.epoch->during(epoch, [&] {
    if (!user_->mayStore()) {
      with_.health->resume(intake_.clear()).end(EventEnd::reset);
      return;
    }
    if (!open()) {
      mayHaveUntracked_.store(true);
      return;
    }
    if (mayTrack) {
      tracked = trackBacklog();
    }
    const bool isBacklog = store_.firstUntracked().has_value();
    HealthRecord::Passage passage = with_.health->resume(0);
    std::vector<OutboxRecord> fresh = takeFresh(passage);
    if (std::optional<std::string> last = writeAll(std::move(fresh), std::move(passage), mayTrack && !isBacklog)) {
      tracked = std::move(last);
    }
    tidyUp();
    const bool someAreUntracked = store_.firstUntracked().has_value();
    // What could not be tracked just now waits for the next occasion.
    more = !intake_.empty() || (tracked && someAreUntracked);
    if (more || someAreUntracked) {
      mayHaveUntracked_.store(true);
    }
  });
  if (tracked) {
    user_->tracked(epoch, *tracked);
  }
  if (more) {
    postFlush();
  }
  pump();
}

bool Outbox::open() {
  try {
    const bool wasEmpty = store_.first() > store_.last();
    store_.open();
    if (!begin_) {
      begin_ = store_.next();
    }
    // What an earlier run has left is loaded when its turn comes.
    allLoaded_ = allLoaded_ && (!wasEmpty || store_.first() > store_.last());
    return true;
  } catch (const std::system_error& error) {
    Log::error("Outbox - Cannot be opened now: {}", error.code().message());
    return false;
  }
}

std::vector<OutboxRecord> Outbox::takeFresh(HealthRecord::Passage& passage) {
  std::vector<OutboxRecord> fresh;
  while (fresh.size() < static_cast<std::size_t>(OutboxStore::chunkSize)) {
    std::optional<Intake::Event> event = intake_.take();
    if (!event) {
      break;
    }
    passage.take();
    if (!event->accepted && !user_->accept(*event)) {
      passage.endOne(EventEnd::switchedOff);
      continue;
    }
    OutboxRecord& record = fresh.emplace_back();
    record.id = makeUuid();
    record.event = {std::move(event->name), EventTracker::numbers(event->parameters), event->at};
    const auto isFinite = [](const auto& parameter) { return std::isfinite(parameter.second); };
    if (!std::all_of(record.event.parameters.begin(), record.event.parameters.end(), isFinite)) {
      record.event.parameters.clear();
      record.tracked = true;  // JSON cannot express the event, so the history does not get it
    }
  }
  return fresh;
}

std::optional<std::string> Outbox::writeAll(std::vector<OutboxRecord> fresh, HealthRecord::Passage passage,
                                            bool track) {
  std::vector<TrackedEvent> events;
  std::vector<std::size_t> marked;
  for (std::size_t i = 0; track && i < fresh.size(); ++i) {
    if (!fresh[i].tracked) {
      events.push_back(fresh[i].event);
      fresh[i].tracked = true;
      marked.push_back(i);
    }
  }
  const bool areMarksDue = !fresh.empty() || marksAreDue_ || answered_.size() >= mostUnmarked;
  OutboxStore::Change change{std::move(fresh), areMarksDue ? answered_ : std::vector<Place>()};
  const std::error_code error = store_.write(change, [&](const OutboxStore::Tails& tails) {
    return events.empty() ? store_.append(tails) : user_->track(events, tails);
  });
  if (!error) {
    passage.keep();
    if (areMarksDue) {
      answered_.clear();
      marksAreDue_ = false;
    }
    logKept(change.records);
    admit(change.records);
    return events.empty() ? std::nullopt : std::optional(events.back().name);
  }
  Log::error("Outbox - Failed to write {} events: {}", change.records.size(), error.message());
  if (!change.records.empty()) {
    for (const std::size_t i : marked) {
      change.records[i].tracked = false;
    }
    store_.holdOnTo(change.records);
    passage.keep();
    admit(change.records);
  }
  return std::nullopt;
}

std::optional<std::string> Outbox::trackBacklog() {
  std::optional<std::int64_t> before;
  for (auto chunk = store_.firstUntracked(); chunk && chunk != before; chunk = store_.firstUntracked()) {
    before = chunk;
    OutboxStore::Change change;
    std::vector<TrackedEvent> events;
    try {
      for (OutboxRecord& record : store_.read(*chunk)) {
        if (!record.tracked) {
          change.tracked.push_back(record.place);
          events.push_back(std::move(record.event));
        }
      }
    } catch (const std::system_error& error) {
      Log::error("Outbox - Cannot be read now: {}", error.code().message());
      return std::nullopt;
    }
    if (!events.empty()) {
      const auto error =
          store_.write(change, [&](const OutboxStore::Tails& tails) { return user_->track(events, tails); });
      return error ? std::nullopt : std::optional(std::move(events.back().name));
    }
  }
  return std::nullopt;
}

void Outbox::logKept(const std::vector<OutboxRecord>& records) {
  counts_.kept.fetch_add(records.size(), std::memory_order_relaxed);
  for (const OutboxRecord& record : records) {
    Log::debug("Outbox - Kept event: {}", record.event.name);
  }
}

void Outbox::admit(const std::vector<OutboxRecord>& records) {
  for (const OutboxRecord& record : records) {
    allLoaded_ = allLoaded_ && window_.size() < windowSize;
    if (!allLoaded_) {
      return;  // on disk only
    }
    window_.emplace(record.place, Item{record, {}, 0});
    loaded_ = record.place;
  }
}

void Outbox::load() {
  allLoaded_ = allLoaded_ || store_.first() > store_.last();
  while (!allLoaded_ && window_.size() < sentAtATime) {
    const std::int64_t chunk = std::max(loaded_.chunk, store_.first());
    try {
      for (OutboxRecord& record : store_.read(chunk)) {
        if (const Place place = record.place; !record.sent && place > loaded_) {
          window_.emplace(place, Item{std::move(record), {}, 0});
          loaded_ = place;
        }
      }
    } catch (const std::system_error& error) {
      Log::error("Outbox - Cannot be read now: {}", error.code().message());
      return;
    }
    if (chunk < store_.last()) {
      loaded_ = {chunk + 1, -1};
    } else {
      allLoaded_ = true;
    }
  }
}

bool Outbox::dropExpired() {
  const auto now = with_.clock->now();
  const std::size_t before = window_.size();
  for (auto item = window_.begin(); item != window_.end();) {
    const auto next = std::next(item);
    if (item->second.record.event.timestamp < now - longestAge) {
      drop(item, counts_.expired, EventEnd::expired, "it is too old");
    }
    item = next;
  }
  return window_.size() != before;
}

void Outbox::tidyUp() {
  store_.removeDone();
  while (store_.last() - store_.first() >= mostChunks) {
    try {
      displaceFirst();
    } catch (const std::system_error& error) {
      Log::error("Outbox - Cannot be read now: {}", error.code().message());
      break;
    }
  }
  unsent_.store(store_.unsent() - answered_.size(), std::memory_order_relaxed);
}

void Outbox::displaceFirst() {
  const std::vector<OutboxRecord> dropped = store_.removeFirst();
  counts_.displaced.fetch_add(dropped.size(), std::memory_order_relaxed);
  Log::error("Outbox - Dropped the {} oldest events: too many wait", dropped.size());
  for (const OutboxRecord& record : dropped) {
    if (std::ranges::find(answered_, record.place) == answered_.end()) {  // else it has ended by its answer
      with_.health->endKept(EventEnd::displaced, record.place < begin_);
    }
  }
  const Place first{store_.first(), 0};
  window_.erase(window_.begin(), window_.lower_bound(first));
  std::erase_if(answered_, [&first](const Place& place) { return place < first; });
}

void Outbox::drop(std::map<Place, Item>::iterator item, std::atomic<std::uint64_t>& count, EventEnd how,
                  std::string_view why) {
  Log::error("Outbox - Dropped event: {}: {}", item->second.record.event.name, why);
  count.fetch_add(1, std::memory_order_relaxed);
  leave(item, how);
}

void Outbox::leave(std::map<Place, Item>::iterator item, EventEnd how) {
  with_.health->endKept(how, item->first < begin_);
  answered_.push_back(item->first);
  window_.erase(item);
}

void Outbox::pump() {
  const std::uint64_t epoch = with_.epoch->current();
  if (unsent() == 0 || !user_->maySend(epoch)) {
    return;
  }
  std::vector<Sending> sending;
  bool someExpired = false;
  with_.epoch->during(epoch, [&] {
    if (!pause_ && user_->mayStore() && open()) {
      for (load(); dropExpired(); load()) {
        someExpired = marksAreDue_ = true;
      }
      sending = due();
    }
  });
  if (someExpired) {
    postFlush();
  }
  for (Sending& each : sending) {
    const Place place = each.record.place;
    user_->send(epoch, std::move(each.record),
                [weak = weak_from_this(), epoch, place, attempt = std::move(each.attempt)](const SendResult& result) {
                  if (const auto self = weak.lock()) {
                    self->answered(epoch, place, result);
                  }
                });
  }
}

std::vector<Outbox::Sending> Outbox::due() {
  std::vector<Sending> result;
  // After a failure a single one goes ahead.
  const std::size_t limit = failures_ > 0 ? 1 : sentAtATime;
  auto underWay = static_cast<std::size_t>(
      std::count_if(window_.begin(), window_.end(), [](const auto& entry) { return !entry.second.attempt.expired(); }));
  for (auto item = window_.begin(); item != window_.end() && underWay < limit; ++item) {
    if (item->second.attempt.expired()) {
      Sending& sending = result.emplace_back(Sending{item->second.record, std::make_shared<Attempt>()});
      item->second.attempt = sending.attempt;
      item->second.pauses = pauses_;
      ++underWay;
    }
  }
  return result;
}

void Outbox::answered(std::uint64_t epoch, const Place& place, const SendResult& result) {
  std::optional<nanoseconds> delay;
  std::uint64_t number = 0;
  bool hasLeft = false;
  bool startTimer = false;
  with_.epoch->during(epoch, [&] {
    delay = judge(place, result);
    number = pauses_;
    hasLeft = !window_.contains(place);
    startTimer = hasLeft && !markTimerRuns_;
    markTimerRuns_ = markTimerRuns_ || hasLeft;
  });
  if (delay) {
    Log::debug("Outbox - Goes on in {} ms: {}", std::chrono::ceil<std::chrono::milliseconds>(*delay).count(),
               result.why);
    after(*delay, [weak = weak_from_this(), number] {
      if (const auto self = weak.lock()) {
        self->post([number](Outbox& outbox) {
          outbox.with_.epoch->during(outbox.with_.epoch->current(), [&] {
            if (outbox.pause_ && outbox.pause_->number == number) {
              outbox.pause_.reset();
            }
          });
          outbox.pump();
        });
      }
    });
  } else if (hasLeft) {
    postFlush();
  }
  if (startTimer) {
    auto busy = std::make_shared<Activity>(with_.activity);
    after(longestUnmarked, [weak = weak_from_this(), busy = std::move(busy)] {
      if (const auto self = weak.lock()) {
        self->post([](Outbox& outbox) {
          outbox.with_.epoch->during(outbox.with_.epoch->current(), [&] {
            outbox.marksAreDue_ = !outbox.answered_.empty();
            outbox.markTimerRuns_ = false;
          });
          outbox.flush();
        });
      }
    });
  }
}

std::optional<nanoseconds> Outbox::judge(const Place& place, const SendResult& result) {
  using enum SendResult::Verdict;
  const auto item = window_.find(place);
  if (item == window_.end()) {
    return std::nullopt;
  }
  if (result.verdict == accepted || result.verdict == refused) {
    failures_ = 0;
    if (result.verdict == refused) {
      drop(item, counts_.refused, EventEnd::refused, result.why);
    } else {
      with_.health->noteLogged(item->second.record.event.name);
      leave(item, EventEnd::logged);
    }
    return std::nullopt;
  }
  item->second.attempt.reset();
  // Those that were under way when the pause began say nothing new.
  if (result.verdict == notAsked || item->second.pauses != pauses_) {
    return std::nullopt;
  }
  const double longest = std::min(firstPause.count() * std::exp2(failures_++), double(longestPause.count()));
  const std::chrono::duration<double> own(longest * std::uniform_real_distribution<>(0.5, 1)(random_));
  const bool isWanted = result.retryAfter > own;
  pause_.emplace(Pause{++pauses_, isWanted, Activity(with_.waits)});
  return isWanted ? nanoseconds(result.retryAfter) : std::chrono::ceil<nanoseconds>(own);
}

}  // namespace quillmar
