#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Delivery/OutboxRecord.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// The stored side of an outbox: chunks of some hundred records, each a data value of the settings store under a
/// numbered key. Records are appended to the last chunk and marks to the chunk of their record, so that a write costs
/// the same however much waits. A chunk goes when it and all before it are done. Only what is worked on is in memory.
///
/// An index, a value of its own, says which chunks there are. It is written before a chunk is opened and after one has
/// gone: a chunk that it names and that is not there counts as done.
///
/// Not for use by several threads at once. Functions throw `std::system_error` when the store cannot be read now.
class OutboxStore {
 public:
  using Tails = std::vector<platform::UserDefaults::DataTail>;
  using Place = OutboxRecord::Place;

  /// The outboxes of events and of purchases.
  static constexpr const char* eventsKey = "com.quillmar.outbox";
  static constexpr const char* purchasesKey = "com.quillmar.purchaseOutbox";

  /// From this many records on a chunk takes no more.
  static constexpr std::int64_t chunkSize = 256;

  /// What is written in one step.
  struct Change {
    std::vector<OutboxRecord> records = {};  ///< new ones, which get their places
    std::vector<Place> sent = {};
    std::vector<Place> tracked = {};
  };

  /// `key` names the index, and the chunks with a number behind it. Reads nothing yet.
  OutboxStore(std::shared_ptr<platform::UserDefaults> userDefaults, std::string key) noexcept
      : userDefaults_(std::move(userDefaults)), key_(std::move(key)) {}

  /// Reads the index and the last chunk, if that has not been done.
  void open();

  /// Writes through `write`, which may write more in the same step.
  std::error_code write(Change& change, const std::function<std::error_code(const Tails&)>& write);
  std::error_code append(const Tails& tails) { return userDefaults_->replaceDataTails(tails); }

  /// For records that could not be written: the settings store holds on to what is set, and writes it later.
  void holdOnTo(std::vector<OutboxRecord>& records);

  /// The records of a chunk that are not done. An absent chunk has none. What cannot be read is skipped and logged.
  std::vector<OutboxRecord> read(std::int64_t chunk);

  /// Lets chunks go that are done, with all before them. The last one stays until it is full.
  void removeDone();

  /// Lets the first chunk go, done or not. Gives the records that were not sent.
  std::vector<OutboxRecord> removeFirst();

  /// Forgets all. A kill on the way does not bring a part back.
  void clear();

  /// The chunks are those from the first to the last; there is none when the last comes before the first.
  std::int64_t first() const noexcept { return first_; }
  std::int64_t last() const noexcept { return last_; }

  /// Where the next record comes, or a later place.
  Place next() const;

  /// How many records are not sent. Of chunks that were not read yet, all.
  std::uint64_t unsent() const noexcept;

  /// The chunk where the first record lies that is not tracked; nothing when all are.
  std::optional<std::int64_t> firstUntracked();

 private:
  struct Chunk {
    std::size_t length = 0;
    std::int64_t next = 0;
    std::int64_t unsent = 0;
    std::int64_t untracked = 0;
    bool isTorn = false;  ///< the last line lacks its end

    bool isDone() const noexcept { return unsent == 0 && untracked == 0; }
  };

  std::string keyOf(std::int64_t chunk) const;
  /// True when a clearing was cut off.
  bool readIndex();
  void writeIndex(bool clearing = false);
  void beginChunk(std::string text);
  void removeChunk();
  /// The lines of the records, which get places from `number` on in the chunk.
  static std::string place(std::vector<OutboxRecord>& records, std::int64_t chunk, std::int64_t number);
  void count(const std::vector<OutboxRecord>& records) noexcept;

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::string key_;
  bool isOpen_ = false;
  std::int64_t first_ = 1;
  std::int64_t last_ = 0;
  std::int64_t firstUntracked_ = 1;       ///< all chunks before are tracked
  std::map<std::int64_t, Chunk> chunks_;  ///< those that were read or written
};

}  // namespace quillmar
