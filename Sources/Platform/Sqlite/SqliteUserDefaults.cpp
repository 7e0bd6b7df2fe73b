#include "Platform/Sqlite/SqliteUserDefaults.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "Platform/Sqlite/PropertyListCoding.h"

namespace quillmar::platform {

namespace {

constexpr std::int64_t schemaVersion = 1;

constexpr const char* schema =
    "CREATE TABLE value(key TEXT PRIMARY KEY NOT NULL, content BLOB NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE segment(sequence INTEGER PRIMARY KEY, key TEXT NOT NULL, offset INTEGER NOT NULL, bytes BLOB NOT "
    "NULL);"  // without an index by key: it would double what an append writes, and few keys have data values
    "PRAGMA user_version = 1;";

/// From this many segments on a data value is put together when the store is opened. It keeps the time to open and to
/// read in bounds; it is done at opening only, so that no append ever pays for the length of the value.
constexpr std::size_t mergeThreshold = 1024;

/// A segment below this size is small. This many small ones in a row become one that is not.
constexpr std::size_t smallSegmentSize = 4096;
constexpr std::size_t smallSegmentLimit = 256;

constexpr const char* memoryFile = ":memory:";

/// Creates the file for the user alone, where SQLite would leave that to the process's mask. An existing one is not
/// even opened: closing it would take away the locks that another connection of this process has on it.
std::error_code createFile(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor != -1) {
    ::close(descriptor);
    return {};
  }
  return errno == EEXIST ? std::error_code{} : std::error_code(errno, std::generic_category());
}

}  // namespace

/// Rolls back unless it was committed.
class SqliteUserDefaults::Transaction {
 public:
  explicit Transaction(SqliteUserDefaults& store) : store_(store) {}
  ~Transaction() {
    if (open_) {
      store_.rollback_.run();
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  int begin() {
    const int result = store_.begin_.run();
    open_ = result == SQLITE_OK;
    return result;
  }
  int commit() {
    const int result = store_.commit_.run();
    open_ = result != SQLITE_OK;
    return result;
  }

 private:
  SqliteUserDefaults& store_;
  bool open_ = false;
};

SqliteUserDefaults::SqliteUserDefaults(std::string file, Report report)
    : file_(std::move(file)), report_(std::move(report)) {}

std::shared_ptr<SqliteUserDefaults> SqliteUserDefaults::open(const std::string& file, Report report,
                                                             std::chrono::milliseconds busyTimeout) {
  // Tried twice: for a fault that passes, a run must not be parted from the settings of the earlier ones.
  std::string problem;
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::shared_ptr<SqliteUserDefaults> store(new SqliteUserDefaults(file, report));
    problem.clear();
    int result = SQLITE_OK;
    if (const std::error_code failure = file == memoryFile ? std::error_code{} : createFile(file)) {
      problem = failure.message();
    } else if (result = store->prepareSchema(busyTimeout, problem); result != SQLITE_OK && problem.empty()) {
      problem = store->database_.lastMessage();
    }
    if (problem.empty()) {
      return store;
    }
    if (result == SQLITE_MISMATCH || (result & 0xff) == SQLITE_BUSY) {  // somebody else's; or waited for already
      break;
    }
  }
  report(fmt::format("The settings file {} cannot be used: {}.", file, problem));
  return nullptr;
}

SqliteUserDefaults::~SqliteUserDefaults() {
  try {
    if (!dirty_.empty()) {
      static_cast<void>(commit());
    }
  } catch (...) {  // out of memory; what could not be written is lost
  }
}

int SqliteUserDefaults::prepareSchema(std::chrono::milliseconds busyTimeout, std::string& problem) {
  int result = database_.open(file_, busyTimeout);
  // Nothing is written before it is clear whose file this is.
  std::int64_t version = 0;
  const auto inspect = [&] {
    std::int64_t tables = 0;
    std::int64_t ourTables = 0;
    int inspected = database_.readInteger("PRAGMA user_version", version);
    if (inspected == SQLITE_OK) {
      inspected = database_.readInteger("SELECT count(*) FROM sqlite_master", tables);
    }
    if (inspected == SQLITE_OK) {
      inspected =
          database_.readInteger("SELECT count(*) FROM sqlite_master WHERE name IN ('value', 'segment')", ourTables);
    }
    if (inspected != SQLITE_OK) {
      return inspected;
    }
    if (version > schemaVersion) {
      problem = fmt::format("it comes from a newer version of the library (schema {}, known up to {})", version,
                            schemaVersion);
    } else if (!(version == 0 && tables == 0) && !(version == schemaVersion && ourTables == 2)) {
      problem = "it is the database of another program";
    }
    return problem.empty() ? SQLITE_OK : SQLITE_MISMATCH;
  };
  if (result == SQLITE_OK) {
    result = inspect();
  }
  if (result == SQLITE_OK) {
    // What was committed survives the end of the process; only a power failure may take back the last writes.
    result = database_.execute(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = OFF; PRAGMA trusted_schema = "
        "OFF");
  }
  const std::pair<SqliteStatement*, std::string_view> brackets[] = {
      {&begin_, "BEGIN IMMEDIATE"}, {&commit_, "COMMIT"}, {&rollback_, "ROLLBACK"}};
  for (const auto& [statement, sql] : brackets) {
    result = result == SQLITE_OK ? database_.prepare(sql, *statement) : result;
  }
  Transaction transaction(*this);
  if (result == SQLITE_OK) {
    result = transaction.begin();  // also finds out whether the file can be written at all
  }
  if (result == SQLITE_OK) {
    result = inspect();  // somebody else may have made the tables meanwhile
  }
  if (result == SQLITE_OK && version == 0) {
    result = database_.execute(schema);
  }
  if (result == SQLITE_OK) {
    result = prepareStatements();
  }
  if (result == SQLITE_OK) {
    result = load();
  }
  if (result == SQLITE_OK) {
    result = transaction.commit();
  }
  if (result != SQLITE_OK && problem.empty()) {
    problem = database_.lastMessage();  // the rollback would replace it
  }
  return result;
}

int SqliteUserDefaults::prepareStatements() {
  const std::pair<SqliteStatement*, std::string_view> statements[] = {
      {&selectData_, "SELECT offset, bytes FROM segment WHERE key = ? ORDER BY sequence"},
      {&insertSegment_, "INSERT INTO segment(key, offset, bytes) VALUES(?, ?, ?)"},
      {&deleteSegments_, "DELETE FROM segment WHERE key = ?"},
      {&selectTail_, "SELECT offset, bytes FROM segment WHERE key = ? AND sequence >= ? ORDER BY sequence"},
      {&deleteTail_, "DELETE FROM segment WHERE key = ? AND sequence >= ?"},
      {&insertValue_, "INSERT INTO value(key, content) VALUES(?, ?)"},
      {&deleteValue_, "DELETE FROM value WHERE key = ?"},
      {&dataVersion_, "PRAGMA data_version"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int result = database_.prepare(sql, *statement); result != SQLITE_OK) {
      return result;
    }
  }
  return SQLITE_OK;
}

int SqliteUserDefaults::load() {
  Entries entries;
  int result = loadSmallValues(entries);
  if (result == SQLITE_OK) {
    result = loadData(entries);
  }
  if (result == SQLITE_OK) {
    result = database_.readInteger("PRAGMA data_version", knownDataVersion_);
  }
  if (result != SQLITE_OK) {
    return result;
  }
  // Whatever was there before counts as changed, except for what only this object knows.
  for (auto& [key, entry] : entries) {
    entry.revision = entry.exists() ? 1 : 0;
  }
  for (auto& [key, old] : entries_) {
    Entry& entry = entries[key];
    if (dirty_.find(key) != dirty_.end()) {
      entry = old;
    } else {
      entry.revision = old.revision + 1;
    }
  }
  const std::lock_guard lock(cacheMutex_);
  entries_.swap(entries);
  return SQLITE_OK;
}

int SqliteUserDefaults::loadSmallValues(Entries& entries) {
  SqliteStatement select;
  int result = database_.prepare("SELECT key, content FROM value", select);
  if (result != SQLITE_OK) {
    return result;
  }
  while ((result = select.step()) == SQLITE_ROW) {
    const std::string key(select.bytes(0));
    Entry& entry = entries[key];
    entry.value = decodePropertyList(select.bytes(1));
    if (!entry.value) {
      reportDamage(key);
    }
  }
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

int SqliteUserDefaults::loadData(Entries& entries) {
  SqliteStatement select;
  int result = database_.prepare(
      "SELECT key, offset, CASE typeof(bytes) WHEN 'blob' THEN length(bytes) ELSE -1 END, sequence FROM segment "
      "ORDER BY key, sequence",
      select);
  if (result != SQLITE_OK) {
    return result;
  }
  std::map<std::string, std::size_t> segmentCounts;
  auto current = segmentCounts.end();
  std::optional<std::int64_t> length;  // nothing once a segment made no sense
  const auto finish = [&] {
    if (current == segmentCounts.end()) {
      return;
    }
    Entry& entry = entries[current->first];
    if (length && !entry.value) {
      entry.dataLength = static_cast<std::size_t>(*length);
    } else {
      reportDamage(current->first);
    }
  };
  while ((result = select.step()) == SQLITE_ROW) {
    if (current == segmentCounts.end() || current->first != select.bytes(0)) {
      finish();
      current = segmentCounts.emplace(select.bytes(0), 0).first;
      length = 0;
    }
    ++current->second;
    const std::int64_t offset = select.integer(1);
    const std::int64_t size = select.integer(2);
    const bool fits = length && offset >= 0 && offset <= *length && size >= 0;
    length = fits ? std::optional(offset + size) : std::nullopt;
    if (fits) {
      noteSegment(entries[current->first], select.integer(3), static_cast<std::size_t>(size));
    }
  }
  finish();
  if (result != SQLITE_DONE) {
    return result;
  }
  for (const auto& [key, count] : segmentCounts) {
    if (count > mergeThreshold && entries[key].dataLength) {
      std::string bytes;
      result = readData(key, *entries[key].dataLength, bytes);
      if (result == SQLITE_OK) {
        result = deleteSegments_.bind(std::string_view(key)).run();
      }
      if (result == SQLITE_OK) {
        result = insertSegment(key, 0, bytes);
      }
      if (result != SQLITE_OK) {
        return result;
      }
      entries[key].smallSegments = 0;
    }
  }
  return SQLITE_OK;
}

std::optional<PropertyListValue> SqliteUserDefaults::object(std::string_view key) const {
  std::optional<std::size_t> storedLength;
  const auto readCache = [&] {
    const std::lock_guard lock(cacheMutex_);
    const auto found = entries_.find(key);
    const bool isStored = found != entries_.end() && !found->second.value;
    storedLength = isStored ? found->second.dataLength : std::nullopt;
    return found == entries_.end() ? std::nullopt : found->second.value;
  };
  std::optional<PropertyListValue> value = readCache();
  if (!storedLength) {
    return value;
  }
  // The entry may have changed before the lock was ours; now it stays.
  const std::lock_guard lock(writeMutex_);
  value = readCache();
  if (!storedLength) {
    return value;
  }
  PropertyListValue::Data data;
  const int result = readData(key, *storedLength, data.bytes);
  if ((result & 0xff) == SQLITE_CORRUPT && !database_.hasMetIoErrors()) {
    reportDamage(key);
    return std::nullopt;
  }
  if (result != SQLITE_OK) {
    throw std::system_error(sqliteError(result));  // it may be readable the next time
  }
  return PropertyListValue(std::move(data));
}

std::error_code SqliteUserDefaults::set(std::string_view key, PropertyListValue value) {
  const auto* data = value.as<PropertyListValue::Data>();
  const std::lock_guard lock(writeMutex_);
  if (const auto found = entries_.find(key);
      data == nullptr && found != entries_.end() && found->second.value == value && dirty_.find(key) == dirty_.end()) {
    return {};  // on disk already
  }
  if (data == nullptr && !encodePropertyList(value)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  dirty_.emplace(key);
  std::optional<PropertyListValue> old;  // destroyed outside the lock
  {
    const std::lock_guard cacheLock(cacheMutex_);
    Entry& entry = entries_[std::string(key)];
    entry.dataLength = data != nullptr ? std::optional(data->bytes.size()) : std::nullopt;
    old = std::exchange(entry.value, std::move(value));
    ++entry.revision;
  }
  return commit();
}

std::error_code SqliteUserDefaults::remove(std::string_view key) {
  const std::lock_guard lock(writeMutex_);
  const auto found = entries_.find(key);
  if (found == entries_.end()) {
    return {};
  }
  dirty_.emplace(key);
  std::optional<PropertyListValue> old;
  {
    const std::lock_guard cacheLock(cacheMutex_);
    Entry& entry = found->second;
    entry.revision += entry.exists() ? 1 : 0;
    old.swap(entry.value);
    entry.dataLength.reset();
  }
  return commit();
}

std::optional<std::uint64_t> SqliteUserDefaults::revision(std::string_view key) const {
  const std::lock_guard lock(cacheMutex_);
  const auto found = entries_.find(key);
  return found == entries_.end() ? 0 : found->second.revision;
}

std::error_code SqliteUserDefaults::replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) {
  const std::lock_guard lock(writeMutex_);
  const auto found = entries_.find(key);
  if (found == entries_.end() || !found->second.dataLength || *found->second.dataLength < keep) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  const Tail change{key, keep, tail};
  return commit(&change);
}

/// Writes the dirty entries and the tail, or nothing.
std::error_code SqliteUserDefaults::commit(const Tail* tail) {
  // Allocated now, since nothing may fail between the commit and the update of the entries.
  std::vector<std::optional<PropertyListValue>> released(dirty_.size());
  std::optional<Transaction> transaction(*this);
  int result = transaction->begin();
  if (result == SQLITE_OK) {
    const std::uint64_t expected = tail != nullptr ? entries_.find(tail->key)->second.revision : 0;
    result = reloadIfChanged();
    if (result == SQLITE_OK && tail != nullptr && entries_.find(tail->key)->second.revision != expected) {
      result = SQLITE_BUSY;  // somebody else changed the file; the caller's idea of the value is out of date
    }
  }
  for (auto key = dirty_.begin(); result == SQLITE_OK && key != dirty_.end(); ++key) {
    if (const auto entry = entries_.find(*key); entry != entries_.end()) {
      result = writeEntry(*key, entry->second);
    }
  }
  if (result == SQLITE_OK && tail != nullptr) {
    result = insertSegment(tail->key, tail->keep, tail->bytes);
  }
  const std::int64_t tailSequence = database_.lastInsertedRow();
  if (result == SQLITE_OK) {
    result = transaction->commit();
  }
  transaction.reset();
  if (result != SQLITE_OK) {
    return sqliteError(result);
  }
  auto slot = released.begin();
  Entry* appended = nullptr;
  {
    const std::lock_guard lock(cacheMutex_);
    for (const std::string& key : dirty_) {
      if (const auto entry = entries_.find(key); entry != entries_.end() && entry->second.dataLength) {
        slot++->swap(entry->second.value);  // on disk now
        entry->second.smallSegments = 0;    // what is before the next append stays as it is
      }
    }
    dirty_.clear();
    if (tail != nullptr) {
      appended = &entries_.find(tail->key)->second;
      appended->dataLength = tail->keep + tail->bytes.size();
      ++appended->revision;
      noteSegment(*appended, tailSequence, tail->bytes.size());
    }
  }
  if (appended != nullptr && appended->smallSegments >= smallSegmentLimit) {
    appended->smallSegments = 0;
    putSmallSegmentsTogether(tail->key, appended->firstSmall);
  }
  return {};
}

void SqliteUserDefaults::noteSegment(Entry& entry, std::int64_t sequence, std::size_t size) {
  if (size >= smallSegmentSize) {
    entry.smallSegments = 0;
  } else if (entry.smallSegments++ == 0) {
    entry.firstSmall = sequence;
  }
}

/// The value stays the same; should this fail, it stays in pieces.
void SqliteUserDefaults::putSmallSegmentsTogether(std::string_view key, std::int64_t first) {
  try {
    Transaction transaction(*this);
    bool changed = true;
    if (transaction.begin() == SQLITE_OK && lookForChange(changed) == SQLITE_OK && !changed &&
        mergeSegments(key, first) == SQLITE_OK) {
      transaction.commit();
    }
  } catch (const std::bad_alloc&) {  // rolled back; the append that led here is done all the same
  }
}

/// Replaces the segments of the key from `first` on by one that does the same.
int SqliteUserDefaults::mergeSegments(std::string_view key, std::int64_t first) {
  std::optional<std::int64_t> offset;
  std::string bytes;
  selectTail_.bind(key, first);
  int result = SQLITE_DONE;
  while ((result = selectTail_.step()) == SQLITE_ROW) {
    const std::int64_t next = selectTail_.integer(0);
    offset = std::min(offset.value_or(next), next);
    const auto keep = static_cast<std::size_t>(next - *offset);
    if (keep > bytes.size()) {
      break;
    }
    bytes.resize(keep);
    bytes.append(selectTail_.bytes(1));
  }
  selectTail_.reset();
  if (result == SQLITE_DONE) {
    result = deleteTail_.bind(key, first).run();
  }
  return result == SQLITE_OK && offset ? insertSegment(key, static_cast<std::size_t>(*offset), bytes) : result;
}

int SqliteUserDefaults::reloadIfChanged() {
  bool changed = false;
  const int result = lookForChange(changed);
  return result == SQLITE_OK && changed ? load() : result;
}

/// Whether another process has written to the file since it was read.
int SqliteUserDefaults::lookForChange(bool& changed) {
  const int result = dataVersion_.bind().step();
  changed = result == SQLITE_ROW && dataVersion_.integer(0) != knownDataVersion_;
  dataVersion_.reset();
  return result == SQLITE_ROW ? SQLITE_OK : result;
}

int SqliteUserDefaults::writeEntry(const std::string& key, const Entry& entry) {
  if (entry.dataLength && !entry.value) {
    return SQLITE_OK;  // there already
  }
  const std::string_view name = key;
  int result = deleteValue_.bind(name).run();
  if (result == SQLITE_OK) {
    result = deleteSegments_.bind(name).run();
  }
  if (result != SQLITE_OK || !entry.value) {
    return result;
  }
  if (const auto* data = entry.value->as<PropertyListValue::Data>()) {
    return insertSegment(name, 0, data->bytes);
  }
  const std::optional<std::string> content = encodePropertyList(*entry.value);
  return insertValue_.bind(name, SqliteStatement::Blob{*content}).run();
}

int SqliteUserDefaults::insertSegment(std::string_view key, std::size_t offset, std::string_view bytes) {
  return insertSegment_.bind(key, static_cast<std::int64_t>(offset), SqliteStatement::Blob{bytes}).run();
}

int SqliteUserDefaults::readData(std::string_view key, std::size_t length, std::string& bytes) const {
  selectData_.bind(key);
  bytes.clear();
  bytes.reserve(length);
  int result = SQLITE_DONE;
  while ((result = selectData_.step()) == SQLITE_ROW) {
    const std::int64_t offset = selectData_.integer(0);
    if (offset < 0 || static_cast<std::uint64_t>(offset) > bytes.size()) {
      break;
    }
    bytes.resize(static_cast<std::size_t>(offset));
    bytes.append(selectData_.bytes(1));
  }
  selectData_.reset();
  if (result != SQLITE_DONE) {
    return result == SQLITE_ROW ? SQLITE_CORRUPT : result;
  }
  return bytes.size() == length ? SQLITE_OK : SQLITE_CORRUPT;
}

void SqliteUserDefaults::reportDamage(std::string_view key) const {
  report_(fmt::format("The settings file {} holds a value under {} that cannot be read and is skipped.", file_, key));
}

}  // namespace quillmar::platform
