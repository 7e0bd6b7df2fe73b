#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "Async/Epoch.h"
#include "quillmar/Health.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/Executor.h"

namespace quillmar {

/// Counts where the events of an instance are, and notes what its health tells besides. Any thread.
///
/// An event is in memory, then perhaps in the outbox, and then it has ended: it never goes back. It leaves one count
/// before it enters the next, and the counts are read against that direction, so that nothing is counted twice.
class HealthRecord : public std::enable_shared_from_this<HealthRecord> {
 public:
  /// An event in memory, or several. Whoever has it says how it goes on; the first word counts. One of which nobody
  /// said anything was overtaken by a reset, or lost.
  class Passage {
   public:
    /// Counts nothing.
    Passage() noexcept = default;
    ~Passage();
    Passage(Passage&& other) noexcept;
    Passage& operator=(Passage&& other) noexcept;
    /// A copy counts nothing. It is there for std::function, which wants it and never makes one here.
    Passage(const Passage& /*other*/) noexcept {}
    Passage& operator=(const Passage&) = delete;

    /// Takes over one more of those that were left.
    void take() noexcept { ++count_; }
    /// It is under way, or waits again.
    void setUnderWay(bool underWay) noexcept;
    /// It stays in memory, and others will take it over.
    void leave() noexcept { record_.reset(); }
    /// It is in the outbox from now on.
    void keep() noexcept;
    void end(EventEnd how) noexcept;
    /// The same for one of several.
    void endOne(EventEnd how) noexcept;

   private:
    friend class HealthRecord;
    Passage(std::shared_ptr<HealthRecord> record, std::uint64_t count) noexcept;

    std::shared_ptr<HealthRecord> record_;
    std::uint64_t epoch_ = 0;
    std::uint64_t count_ = 0;
    bool isUnderWay_ = false;
  };

  /// The observer is called on `executor`.
  HealthRecord(std::shared_ptr<Epoch> epoch, std::shared_ptr<platform::Clock> clock,
               std::shared_ptr<platform::Executor> executor) noexcept;

  /// One more event was sent.
  Passage begin() noexcept;
  /// So many that were left in memory.
  Passage resume(std::uint64_t count) noexcept { return {shared_from_this(), count}; }

  /// Events in the outbox have ended; those of earlier runs were not counted by then.
  void endKept(EventEnd how, bool inherited, std::uint64_t count = 1) noexcept;
  /// A reset has emptied the outbox.
  void resetKept() noexcept;

  void noteLogged(const std::string& name);
  /// Empty: the fetch succeeded.
  void noteFetch(std::string error);
  /// Gives a number for the answer.
  std::uint64_t noteCall(const char* interface);
  void noteAnswer(std::uint64_t call, const std::optional<std::string>& error);
  /// Something else has changed that the observer is told of.
  void noteChange() noexcept;

  std::uint64_t sent() const noexcept { return sent_.load(std::memory_order_relaxed); }
  /// With what is known here. `parked`: how many of those in memory are.
  QuillmarHealth health(std::uint64_t parked) const;

  /// `tell` is called some time after a change, once for all that change by then; null: nobody wants to know.
  void observe(std::function<void()> tell);

 private:
  void end(EventEnd how, std::uint64_t count) noexcept;
  void tell();

  const std::shared_ptr<Epoch> epoch_;
  const std::shared_ptr<platform::Clock> clock_;
  const std::shared_ptr<platform::Executor> executor_;

  // Entering a count publishes that the one before was left.
  std::atomic<std::uint64_t> sent_{0};
  std::atomic<std::uint64_t> inherited_{0};
  std::atomic<std::uint64_t> inMemory_{0};
  std::atomic<std::uint64_t> underWay_{0};  ///< of those in memory
  std::atomic<std::uint64_t> kept_{0};
  std::array<std::atomic<std::uint64_t>, eventEndCount> ended_{};

  std::atomic<bool> isObserved_{false};  ///< spares events the rest
  std::atomic<bool> isTelling_{false};   ///< a burst has begun

  mutable std::mutex mutex_;  ///< guards the following; short
  std::string fetchError_;
  std::optional<HealthLoggedEvent> lastLogged_;
  std::optional<HealthPlatformCall> lastCall_;
  std::uint64_t calls_ = 0;
  std::shared_ptr<const std::function<void()>> tell_;
};

}  // namespace quillmar
