#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Sqlite/SqliteDatabase.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// A settings store in an SQLite file with a write-ahead log: it survives a kill at any instruction.
///
/// Small values are held in memory, and written through. A data value stays on disk, as segments: it is what remains
/// when, for each segment in order, the bytes are cut off at the segment's offset and the segment's bytes appended. So
/// replacing the tail is one small insert whatever the length. Every now and then the small segments at the end are put
/// together to a larger one, so that reading a long value stays fast.
///
/// A file belongs to one process at a time, which locks it for as long as it has it open: for another one it cannot be
/// used. Whoever opens it again in the same process gets the same store.
///
/// Removing a data value also takes its bytes from the disk.
class SqliteUserDefaults : public UserDefaults {
 public:
  /// Takes one sentence about something that is wrong with a file. Called while a store is opened or used, from any
  /// thread; it must not use the store.
  using Report = std::function<void(std::string_view)>;

  static constexpr std::chrono::milliseconds defaultBusyTimeout{2000};

  /// Opens the file, creating it when it is not there, and waits for another process that has it for at most
  /// `busyTimeout`. Reports and gives null when it cannot be opened, is not a regular file of this user, is somebody
  /// else's database or comes from a newer version; the file is left as it is then. ":memory:" keeps all in memory.
  static std::shared_ptr<SqliteUserDefaults> open(const std::string& file, Report report,
                                                  std::chrono::milliseconds busyTimeout = defaultBusyTimeout);

  /// Tries once more to write what could not be written.
  ~SqliteUserDefaults() override;

  std::optional<PropertyListValue> object(std::string_view key) const override;
  std::error_code set(std::string_view key, PropertyListValue value) override;
  std::error_code remove(std::string_view key) override;
  std::optional<std::uint64_t> revision(std::string_view key) const override;
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override;
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override;
  std::optional<std::string> dataTail(std::string_view key, std::size_t skip) const override;

 private:
  /// What is known of a key. Absent: neither member is there.
  struct Entry {
    /// A small value, or a data value that is not on disk yet.
    std::optional<PropertyListValue> value;
    std::optional<std::size_t> dataLength;  ///< of a data value, wherever it is
    std::uint64_t revision = 0;
    /// No segment of the key lies before this one; nothing: there is none. Who looks for them need not go through all
    /// that others have.
    std::optional<std::int64_t> firstSegment;
    std::size_t smallSegments = 0;  ///< so many at the end of a data value wait to be put together
    std::int64_t firstSmall = 0;    ///< the sequence number of the first of them

    bool exists() const noexcept { return value || dataLength; }
  };
  using Entries = std::map<std::string, Entry, std::less<>>;

  struct Tail {
    std::string_view key;
    std::size_t keep;
    std::string_view bytes;
    std::int64_t sequence = 0;  ///< of its segment, once that is written
  };

  class Transaction;

  SqliteUserDefaults(std::string file, Report report);
  static std::shared_ptr<SqliteUserDefaults> openUnshared(const std::string& file, const Report& report,
                                                          std::chrono::milliseconds busyTimeout, std::string& problem);

  // These return results of SQLite, and are called with the write lock held, or before anybody else has the object.
  int prepareSchema(std::string& problem);
  int prepareStatements();
  int inspect(std::int64_t& version, std::string& problem);
  int load();
  int loadSmallValues();
  int loadData();
  /// What a commit brings about in an entry.
  struct Written {
    std::optional<PropertyListValue> value;  ///< released by it
    std::optional<std::int64_t> firstSegment;
  };
  int writeEntry(const std::string& key, const Entry& entry, Written& written);
  int deleteSegments(std::string_view key, const Entry& entry);
  int insertSegment(std::string_view key, std::size_t offset, std::string_view bytes);
  int readSegments(std::string_view key, std::int64_t first, std::optional<std::int64_t>& offset,
                   std::string& bytes) const;
  int readData(std::string_view key, std::size_t skip, std::size_t length, std::string& bytes) const;
  int findSegment(std::string_view key, std::size_t position, std::int64_t& sequence) const;
  std::optional<std::string> readStored(std::string_view key, std::size_t skip, std::size_t length) const;
  static void noteSegment(Entry& entry, std::int64_t sequence, std::size_t size);
  void putSmallSegmentsTogether(std::string_view key, std::int64_t first);
  int mergeSegments(std::string_view key, std::int64_t first);

  std::error_code replace(std::span<Tail> tails);
  std::error_code commit(std::span<Tail> tails = {});
  void reportDamage(std::string_view key) const;

  const std::string file_;
  const Report report_;

  /// Guards the database. Taken before the other one.
  mutable std::mutex writeMutex_;
  mutable SqliteDatabase database_;
  mutable SqliteStatement selectSegments_, selectPlaces_;
  SqliteStatement begin_, commit_, rollback_;
  SqliteStatement insertSegment_, deleteTail_, insertValue_, deleteValue_;
  std::set<std::string, std::less<>> dirty_;  ///< keys whose entries are not on disk yet

  /// Guards the entries against reading while they change. They change only with both locks held, so whoever holds the
  /// write lock may read them without this one. Never held while SQLite works.
  mutable std::mutex cacheMutex_;
  Entries entries_;
};

}  // namespace quillmar::platform
