#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Async/ActivityCounter.h"
#include "Async/Epoch.h"
#include "Async/HealthRecord.h"
#include "Delivery/Intake.h"
#include "Delivery/OutboxRecord.h"
#include "Delivery/OutboxStore.h"
#include "Delivery/OutboxUserProtocol.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/Executor.h"

namespace quillmar {

/// Keeps events on disk until the service has accepted them and they are in the history, over restarts too.
///
/// Events that come by together are written together, and with them the marks of those that the service has answered
/// meanwhile; without another event, marks are written after a tenth of a second. When there is a configuration, the
/// same step puts them into the history; else they are put there when it has come, in their order. Sending goes on
/// beside: up to 64 at a time, the oldest first. After a failure that passes there is a pause, which grows with the
/// failures in a row, and then a single attempt goes ahead. Events beyond some hundreds are on disk only.
///
/// Does nothing before `start`. Its state is guarded by the epoch's lock.
class Outbox : public std::enable_shared_from_this<Outbox> {
 public:
  /// What it works with.
  struct Surroundings {
    std::shared_ptr<platform::UserDefaults> userDefaults;
    std::shared_ptr<platform::Clock> clock;
    std::shared_ptr<platform::Executor> executor;  ///< serial
    std::shared_ptr<Epoch> epoch;
    std::shared_ptr<ActivityCounter> activity;  ///< counts writing
    std::shared_ptr<ActivityCounter> waits;     ///< counts pauses between attempts
    std::shared_ptr<HealthRecord> health;
  };

  /// Whatever may go wrong for good, since the object was made.
  struct Counts {
    std::atomic<std::uint64_t> kept{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<std::uint64_t> expired{0};
    std::atomic<std::uint64_t> displaced{0};
  };

  /// No record gets older.
  static constexpr std::chrono::hours longestAge{36 * 24};
  /// When there are more chunks, the first one goes.
  static constexpr std::int64_t mostChunks = 512;

  /// `key` as in `OutboxStore`. Reads nothing yet.
  Outbox(Surroundings surroundings, std::string key);
  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  /// From now on it works. Called once, before any other function but `clear`.
  void start(std::unique_ptr<OutboxUserProtocol> user);
  bool isStarted() const noexcept { return user_ != nullptr; }

  /// Whether it may work: of the outboxes over one key of one store, only one may at a time, until it is gone. Says so
  /// in the log when it may not. Any thread.
  bool isMine();

  /// Takes an event; it is written on the executor. Any thread; waits for nothing. False when that was one too many,
  /// and one has gone.
  bool put(const Intake::Event& event, HealthRecord::Passage& passage, const QuillmarLimits& limits);

  /// Writes a purchase, on the calling thread, which is one of our own. Throws `std::system_error` when that cannot be
  /// done now.
  void keepPurchase(std::string id, std::string name, std::string document);

  /// Goes on where it stands: the configuration has come, the app was activated, the key has changed. Ends a pause,
  /// unless the service asked for it. Any thread.
  void wake();

  /// Forgets everything. Called as an effect that begins an epoch, so that what was begun before has no more effect.
  void clear();

  const Counts& counts() const noexcept { return counts_; }
  /// How many records wait for the service. Any thread.
  std::uint64_t unsent() const noexcept { return unsent_.load(std::memory_order_relaxed); }

 private:
  using Place = OutboxRecord::Place;
  struct Attempt {};
  struct Item {
    OutboxRecord record;
    std::weak_ptr<Attempt> attempt;  ///< under way for as long as it is there
    std::uint64_t pauses = 0;        ///< how many there had been when the attempt began
  };
  struct Pause {
    std::uint64_t number = 0;
    bool isWanted = false;  ///< by the service
    Activity waiting;
  };

  void post(std::function<void(Outbox&)> work);
  void postFlush();
  void after(std::chrono::nanoseconds delay, std::function<void()> then);
  /// Writes what waits for it, and goes on sending.
  void flush();
  void pump();

  // With the lock held.
  bool open();
  /// `passage` takes over what is taken.
  std::vector<OutboxRecord> takeFresh(HealthRecord::Passage& passage);
  /// The name of the last event that came into the history.
  std::optional<std::string> writeAll(std::vector<OutboxRecord> fresh, HealthRecord::Passage passage, bool track);
  std::optional<std::string> trackBacklog();
  void logKept(const std::vector<OutboxRecord>& records);
  void admit(const std::vector<OutboxRecord>& records);
  void load();
  bool dropExpired();
  void tidyUp();
  void displaceFirst();
  void drop(std::map<Place, Item>::iterator item, std::atomic<std::uint64_t>& count, EventEnd how,
            std::string_view why);
  /// Nothing more is sent of it.
  void leave(std::map<Place, Item>::iterator item, EventEnd how);
  struct Sending {
    OutboxRecord record;
    std::shared_ptr<Attempt> attempt;
  };
  std::vector<Sending> due();
  /// What the outcome of an attempt means; the length of the pause that it begins.
  std::optional<std::chrono::nanoseconds> judge(const Place& place, const SendResult& result);

  void answered(std::uint64_t epoch, const Place& place, const SendResult& result);

  const Surroundings with_;
  const std::string key_;
  std::atomic<bool> isMine_{false};
  std::atomic<bool> saidSo_{false};
  std::unique_ptr<OutboxUserProtocol> user_;
  Intake intake_;
  std::atomic<bool> flushPosted_{false};
  std::atomic<bool> mayHaveUntracked_{true};
  Counts counts_;
  std::atomic<std::uint64_t> unsent_{0};

  OutboxStore store_;
  std::optional<Place> begin_;    ///< earlier ones come from earlier runs
  std::map<Place, Item> window_;  ///< what is sent next, or on its way
  Place loaded_;                  ///< all up to here were in the window
  bool allLoaded_ = true;         ///< and there are no others
  std::vector<Place> answered_;   ///< have left the window, and are to be marked
  bool marksAreDue_ = false;      ///< without waiting for the next event
  bool markTimerRuns_ = false;    ///< after which they are
  int failures_ = 0;              ///< in a row, those that were under way together count as one
  std::uint64_t pauses_ = 0;
  std::optional<Pause> pause_;
  std::minstd_rand random_;
};

}  // namespace quillmar
