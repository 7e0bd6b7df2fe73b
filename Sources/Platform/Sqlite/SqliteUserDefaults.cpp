#include "Platform/Sqlite/SqliteUserDefaults.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "Platform/Posix/NoWriteSignals.h"
#include "Platform/PropertyListCoding.h"

namespace quillmar::platform {

namespace {

constexpr std::int64_t schemaVersion = 1;

constexpr const char* valueTable =
    "CREATE TABLE value(key TEXT PRIMARY KEY NOT NULL, content BLOB NOT NULL) WITHOUT ROWID";
constexpr const char* segmentTable =
    "CREATE TABLE segment(sequence INTEGER PRIMARY KEY, key TEXT NOT NULL, offset INTEGER NOT NULL, bytes BLOB NOT "
    "NULL)";  // without an index by key: it would double what an append writes, and few keys have data values

/// From this many segments on a data value is put together when the store is opened. It keeps the time to open and to
/// read in bounds; it is done at opening only, so that no append ever pays for the length of the value.
constexpr std::size_t mergeThreshold = 1024;

/// A segment below this size is small. This many small ones in a row become one that is not.
constexpr std::size_t smallSegmentSize = 4096;
constexpr std::size_t smallSegmentLimit = 256;

/// More than this is never put together, nor read from one place of the file.
constexpr std::size_t largestSegment = SqliteDatabase::largestContent;

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

/// Sees to it that the file is there, and says what is wrong with it or one that SQLite keeps beside it: SQLite would
/// follow a link and wait for a pipe.
std::string problemWithFile(const std::string& file, struct stat& status) {
  if (const std::error_code failure = createFile(file)) {
    return failure.message();
  }
  for (const char* suffix : {"-wal", "-shm", "-journal", ""}) {
    const std::string path = file + suffix;
    if (::lstat(path.c_str(), &status) == -1) {
      if (errno != ENOENT || *suffix == '\0') {
        return fmt::format("{}: {}", path, std::error_code(errno, std::generic_category()).message());
      }
    } else if (!S_ISREG(status.st_mode)) {
      return fmt::format("{} is not a regular file", path);
    } else if (status.st_uid != ::geteuid()) {
      return fmt::format("{} belongs to another user", path);
    }
  }
  return "";
}

/// The stores that this process has open, by device and inode. Never destroyed.
struct OpenStores {
  std::mutex mutex;
  std::map<std::pair<dev_t, ino_t>, std::weak_ptr<SqliteUserDefaults>> stores;
};

OpenStores& openStores() {
  static OpenStores& instance = *new OpenStores;
  return instance;
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
  const NoWriteSignals noSignals;
  std::string problem;
  if (file == memoryFile) {
    return openUnshared(file, report, busyTimeout, problem);
  }
  // Tried twice, as the opening is: for a fault that passes, a run must not be parted from the settings of earlier
  // ones.
  struct stat status{};
  problem = problemWithFile(file, status);
  if (!problem.empty()) {
    problem = problemWithFile(file, status);
  }
  std::shared_ptr<SqliteUserDefaults> store;
  if (problem.empty()) {
    const std::lock_guard lock(openStores().mutex);
    std::erase_if(openStores().stores, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<SqliteUserDefaults>& known = openStores().stores[{status.st_dev, status.st_ino}];
    store = known.lock();
    if (!store) {
      store = openUnshared(file, report, busyTimeout, problem);
      known = store;
    }
  }
  if (!store) {
    report(fmt::format("The settings file {} cannot be used: {}.", file, problem));
  }
  return store;
}

std::shared_ptr<SqliteUserDefaults> SqliteUserDefaults::openUnshared(const std::string& file, const Report& report,
                                                                     std::chrono::milliseconds busyTimeout,
                                                                     std::string& problem) {
  const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
  for (int failures = 0;;) {
    std::shared_ptr<SqliteUserDefaults> store(new SqliteUserDefaults(file, report));
    problem.clear();
    const int result = store->prepareSchema(problem);
    if (result == SQLITE_OK) {
      return store;
    }
    if ((result & 0xff) == SQLITE_BUSY) {
      if (std::chrono::steady_clock::now() >= deadline) {
        return nullptr;
      }
      // Closed meanwhile, and not in step: of two processes that open the file at once, one must get it.
      store.reset();
      std::this_thread::sleep_for(std::chrono::milliseconds(10 + ::getpid() % 16));
    } else if (result == SQLITE_MISMATCH || ++failures == 2) {
      return nullptr;
    }
  }
}

SqliteUserDefaults::~SqliteUserDefaults() {
  try {
    if (!dirty_.empty()) {
      static_cast<void>(commit());
    }
  } catch (...) {  // out of memory; what could not be written is lost
  }
}

int SqliteUserDefaults::prepareSchema(std::string& problem) {
  int result = database_.open(file_);
  // Locked by the first access on, so that the index of the write-ahead log is in memory of ours: one in a file,
  // mapped, is a fault of the bus for the host when somebody cuts the file off.
  if (result == SQLITE_OK) {
    result = database_.execute("PRAGMA locking_mode = EXCLUSIVE");
  }
  // Nothing is written before it is clear whose file this is.
  std::int64_t version = 0;
  if (result == SQLITE_OK) {
    result = inspect(version, problem);
  }
  if (result == SQLITE_OK) {
    // What was committed survives the end of the process; only a power failure may take back the last writes. On Apple
    // systems a checkpoint reaches the disk in its order only by the stronger call; others ignore that pragma.
    result = database_.execute(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = OFF; PRAGMA secure_delete = ON; "
        "PRAGMA checkpoint_fullfsync = ON");
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
  if (result == SQLITE_OK && version == 0) {
    const std::string create = fmt::format("{};{};PRAGMA user_version = {}", valueTable, segmentTable, schemaVersion);
    result = database_.execute(create.c_str());
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

/// Whether the file is new or ours: with these two tables as they were made, and nothing else.
int SqliteUserDefaults::inspect(std::int64_t& version, std::string& problem) {
  std::int64_t objects = 0;
  std::int64_t tables = 0;
  int result = database_.readInteger("PRAGMA user_version", version);
  if (result == SQLITE_OK) {
    result = database_.readInteger("SELECT count(*) FROM sqlite_master", objects);
  }
  if (result == SQLITE_OK) {
    result = database_.readInteger(
        fmt::format("SELECT count(*) FROM sqlite_master WHERE sql IN ('{}', '{}')", valueTable, segmentTable), tables);
  }
  if (result != SQLITE_OK) {
    return result;
  }
  if (version > schemaVersion) {
    problem =
        fmt::format("it comes from a newer version of the library (schema {}, known up to {})", version, schemaVersion);
  } else if (!(version == 0 && objects == 0) && !(version == schemaVersion && objects == 2 && tables == 2)) {
    problem = "it is the database of another program";
  }
  return problem.empty() ? SQLITE_OK : SQLITE_MISMATCH;
}

int SqliteUserDefaults::prepareStatements() {
  const std::pair<SqliteStatement*, std::string_view> statements[] = {
      {&insertSegment_, "INSERT INTO segment(key, offset, bytes) VALUES(?, ?, ?)"},
      {&selectSegments_, "SELECT offset, bytes FROM segment WHERE key = ? AND sequence >= ? ORDER BY sequence"},
      {&selectPlaces_, "SELECT sequence, offset FROM segment WHERE key = ? ORDER BY sequence DESC"},
      {&deleteTail_, "DELETE FROM segment WHERE key = ? AND sequence >= ?"},
      {&insertValue_, "INSERT INTO value(key, content) VALUES(?, ?)"},
      {&deleteValue_, "DELETE FROM value WHERE key = ?"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int result = database_.prepare(sql, *statement); result != SQLITE_OK) {
      return result;
    }
  }
  return SQLITE_OK;
}

int SqliteUserDefaults::load() {
  int result = loadSmallValues();
  if (result == SQLITE_OK) {
    result = loadData();
  }
  for (auto& [key, entry] : entries_) {
    entry.revision = entry.exists() ? 1 : 0;
  }
  return result;
}

int SqliteUserDefaults::loadSmallValues() {
  SqliteStatement select;
  int result = database_.prepare("SELECT key, content FROM value", select);
  if (result != SQLITE_OK) {
    return result;
  }
  while ((result = select.step()) == SQLITE_ROW) {
    const std::string key(select.bytes(0));
    Entry& entry = entries_[key];
    entry.value = decodePropertyList(select.bytes(1));
    if (!entry.value) {
      reportDamage(key);
    }
  }
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

int SqliteUserDefaults::loadData() {
  SqliteStatement select;
  int result = database_.prepare(
      "SELECT key, offset, CASE typeof(bytes) WHEN 'blob' THEN length(bytes) ELSE -1 END, sequence FROM segment "
      "ORDER BY sequence",
      select);
  if (result != SQLITE_OK) {
    return result;
  }
  struct Segments {
    std::size_t count = 0;
    std::optional<std::int64_t> length = 0;  ///< nothing once a segment made no sense
  };
  std::map<std::string, Segments, std::less<>> segmentsByKey;
  auto current = segmentsByKey.end();
  while ((result = select.step()) == SQLITE_ROW) {
    if (current == segmentsByKey.end() || current->first != select.bytes(0)) {
      bool isNew = false;
      std::tie(current, isNew) = segmentsByKey.try_emplace(std::string(select.bytes(0)));
      if (isNew) {
        entries_[current->first].firstSegment = select.integer(3);
      }
    }
    auto& [count, length] = current->second;
    ++count;
    const std::int64_t offset = select.integer(1);
    const std::int64_t size = select.integer(2);
    const bool fits = length && offset >= 0 && offset <= *length && size >= 0;
    length = fits ? std::optional(offset + size) : std::nullopt;
    if (fits) {
      noteSegment(entries_[current->first], select.integer(3), static_cast<std::size_t>(size));
    }
  }
  if (result != SQLITE_DONE) {
    return result;
  }
  for (const auto& [key, segments] : segmentsByKey) {
    Entry& entry = entries_[key];
    if (!segments.length || entry.value) {
      reportDamage(key);
      continue;
    }
    const auto whole = static_cast<std::size_t>(*segments.length);
    entry.dataLength = whole;
    if (segments.count > mergeThreshold && whole < largestSegment) {
      std::string bytes;
      result = readData(key, 0, whole, bytes);
      if (result == SQLITE_OK) {
        result = deleteSegments(key, entry);
      }
      if (result == SQLITE_OK) {
        result = insertSegment(key, 0, bytes);
        entry.firstSegment = database_.lastInsertedRow();
      }
      if (result != SQLITE_OK) {
        return result;
      }
      entry.smallSegments = 0;
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
  std::optional<std::string> bytes = readStored(key, 0, *storedLength);
  return bytes ? std::optional<PropertyListValue>(PropertyListValue::Data{std::move(*bytes)}) : std::nullopt;
}

std::optional<std::string> SqliteUserDefaults::dataTail(std::string_view key, std::size_t skip) const {
  const std::lock_guard lock(writeMutex_);
  const auto found = entries_.find(key);
  if (found == entries_.end() || found->second.dataLength.value_or(0) < skip || !found->second.dataLength) {
    return std::nullopt;
  }
  if (found->second.value) {  // not on disk yet
    return found->second.value->as<PropertyListValue::Data>()->bytes.substr(skip);
  }
  return readStored(key, skip, *found->second.dataLength);
}

/// Nothing when the value is damaged; throws when it may be readable the next time.
std::optional<std::string> SqliteUserDefaults::readStored(std::string_view key, std::size_t skip,
                                                          std::size_t length) const {
  std::string bytes;
  const int result = readData(key, skip, length, bytes);
  if ((result & 0xff) == SQLITE_CORRUPT && !database_.hasMetIoErrors()) {
    reportDamage(key);
    return std::nullopt;
  }
  if (result != SQLITE_OK) {
    throw std::system_error(sqliteError(result));
  }
  return bytes;
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
  const bool isData = found->second.dataLength.has_value();
  std::optional<PropertyListValue> old;
  {
    const std::lock_guard cacheLock(cacheMutex_);
    Entry& entry = found->second;
    entry.revision += entry.exists() ? 1 : 0;
    old.swap(entry.value);
    entry.dataLength.reset();
  }
  const std::error_code failure = commit();
  if (isData && !failure) {
    // Its pages are overwritten, and those that the log still has go with it.
    const NoWriteSignals noSignals;
    database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  return failure;
}

std::optional<std::uint64_t> SqliteUserDefaults::revision(std::string_view key) const {
  const std::lock_guard lock(cacheMutex_);
  const auto found = entries_.find(key);
  return found == entries_.end() ? 0 : found->second.revision;
}

std::error_code SqliteUserDefaults::replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) {
  Tail change{key, keep, tail};
  return replace({&change, 1});
}

std::error_code SqliteUserDefaults::replaceDataTails(const std::vector<DataTail>& tails) {
  std::vector<Tail> changes;
  changes.reserve(tails.size());
  for (const DataTail& change : tails) {
    changes.push_back({change.key, change.keep, change.tail});
  }
  return replace(changes);
}

std::error_code SqliteUserDefaults::replace(std::span<Tail> tails) {
  const std::lock_guard lock(writeMutex_);
  const bool fit = std::all_of(tails.begin(), tails.end(), [this](const Tail& tail) {
    const auto found = entries_.find(tail.key);
    return found != entries_.end() && found->second.dataLength && *found->second.dataLength >= tail.keep;
  });
  return fit ? commit(tails) : std::make_error_code(std::errc::invalid_argument);
}

/// Writes the dirty entries and the tails, or nothing.
std::error_code SqliteUserDefaults::commit(std::span<Tail> tails) {
  const NoWriteSignals noSignals;
  // Allocated now, since nothing may fail between the commit and the update of the entries.
  std::vector<Written> written(dirty_.size());
  auto slot = written.begin();
  std::optional<Transaction> transaction(*this);
  int result = transaction->begin();
  for (auto key = dirty_.begin(); result == SQLITE_OK && key != dirty_.end(); ++key) {
    if (const auto entry = entries_.find(*key); entry != entries_.end()) {
      result = writeEntry(*key, entry->second, *slot++);
    }
  }
  for (auto tail = tails.begin(); result == SQLITE_OK && tail != tails.end(); ++tail) {
    result = insertSegment(tail->key, tail->keep, tail->bytes);
    tail->sequence = database_.lastInsertedRow();
  }
  if (result == SQLITE_OK) {
    result = transaction->commit();
  }
  transaction.reset();
  if (result != SQLITE_OK) {
    return sqliteError(result);
  }
  slot = written.begin();
  {
    const std::lock_guard lock(cacheMutex_);
    for (const std::string& key : dirty_) {
      if (const auto found = entries_.find(key); found != entries_.end()) {
        Entry& entry = found->second;
        entry.firstSegment = slot->firstSegment;
        if (entry.dataLength) {
          slot->value.swap(entry.value);  // on disk now
          entry.smallSegments = 0;        // what is before the next append stays as it is
        }
        ++slot;
      }
    }
    dirty_.clear();
    for (const Tail& tail : tails) {
      Entry& appended = entries_.find(tail.key)->second;
      appended.dataLength = tail.keep + tail.bytes.size();
      ++appended.revision;
      noteSegment(appended, tail.sequence, tail.bytes.size());
    }
  }
  for (const Tail& tail : tails) {
    Entry& appended = entries_.find(tail.key)->second;
    if (appended.smallSegments >= smallSegmentLimit) {
      appended.smallSegments = 0;
      putSmallSegmentsTogether(tail.key, appended.firstSmall);
    }
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
    if (transaction.begin() == SQLITE_OK && mergeSegments(key, first) == SQLITE_OK) {
      const std::int64_t merged = database_.lastInsertedRow();
      if (transaction.commit() == SQLITE_OK) {
        const std::lock_guard lock(cacheMutex_);
        std::optional<std::int64_t>& firstSegment = entries_.find(key)->second.firstSegment;
        firstSegment = std::min(firstSegment.value_or(merged), merged);  // numbers of deleted ones are given again
      }
    }
  } catch (const std::bad_alloc&) {  // rolled back; the append that led here is done all the same
  }
}

/// Replaces the segments of the key from `first` on by one that does the same.
int SqliteUserDefaults::mergeSegments(std::string_view key, std::int64_t first) {
  std::optional<std::int64_t> offset;
  std::string bytes;
  int result = readSegments(key, first, offset, bytes);
  if (result == SQLITE_OK) {
    result = deleteTail_.bind(key, first).run();
  }
  return result == SQLITE_OK && offset ? insertSegment(key, static_cast<std::size_t>(*offset), bytes) : result;
}

int SqliteUserDefaults::deleteSegments(std::string_view key, const Entry& entry) {
  return entry.firstSegment ? deleteTail_.bind(key, *entry.firstSegment).run() : SQLITE_OK;
}

int SqliteUserDefaults::writeEntry(const std::string& key, const Entry& entry, Written& written) {
  if (entry.dataLength && !entry.value) {
    written.firstSegment = entry.firstSegment;
    return SQLITE_OK;  // there already
  }
  const std::string_view name = key;
  int result = deleteValue_.bind(name).run();
  if (result == SQLITE_OK) {
    result = deleteSegments(name, entry);
  }
  if (result != SQLITE_OK || !entry.value) {
    return result;
  }
  if (const auto* data = entry.value->as<PropertyListValue::Data>()) {
    result = insertSegment(name, 0, data->bytes);
    written.firstSegment = database_.lastInsertedRow();
    return result;
  }
  const std::optional<std::string> content = encodePropertyList(*entry.value);
  return insertValue_.bind(name, SqliteStatement::Blob{*content}).run();
}

int SqliteUserDefaults::insertSegment(std::string_view key, std::size_t offset, std::string_view bytes) {
  return insertSegment_.bind(key, static_cast<std::int64_t>(offset), SqliteStatement::Blob{bytes}).run();
}

/// What the segments of the key from `first` on make of the value, from the lowest of their offsets on.
int SqliteUserDefaults::readSegments(std::string_view key, std::int64_t first, std::optional<std::int64_t>& offset,
                                     std::string& bytes) const {
  selectSegments_.bind(key, first);
  int result = SQLITE_DONE;
  while ((result = selectSegments_.step()) == SQLITE_ROW) {
    const std::int64_t next = selectSegments_.integer(0);
    offset = std::min(offset.value_or(next), next);
    const auto keep = static_cast<std::size_t>(next - *offset);
    if (keep > bytes.size()) {
      break;
    }
    bytes.resize(keep);
    bytes.append(selectSegments_.bytes(1));
  }
  selectSegments_.reset();
  return result == SQLITE_ROW ? SQLITE_CORRUPT : result == SQLITE_DONE ? SQLITE_OK : result;
}

/// Reads what is behind the first `skip` bytes of a value that has so many.
int SqliteUserDefaults::readData(std::string_view key, std::size_t skip, std::size_t length, std::string& bytes) const {
  std::int64_t first = entries_.find(key)->second.firstSegment.value_or(0);
  if (const int result = skip > 0 ? findSegment(key, skip, first) : SQLITE_OK; result != SQLITE_OK) {
    return result;
  }
  std::optional<std::int64_t> offset;
  bytes.reserve(length - skip);
  const int result = readSegments(key, first, offset, bytes);
  const auto start = static_cast<std::size_t>(offset.value_or(0));
  if (result != SQLITE_OK || start > skip || start + bytes.size() != length) {
    return result != SQLITE_OK ? result : SQLITE_CORRUPT;
  }
  bytes.erase(0, skip - start);
  return SQLITE_OK;
}

/// The last segment that does not begin behind a position: no earlier one has a say in what is there.
int SqliteUserDefaults::findSegment(std::string_view key, std::size_t position, std::int64_t& sequence) const {
  selectPlaces_.bind(key);
  int result = SQLITE_DONE;
  while ((result = selectPlaces_.step()) == SQLITE_ROW) {
    sequence = selectPlaces_.integer(0);
    if (selectPlaces_.integer(1) <= static_cast<std::int64_t>(position)) {
      break;
    }
  }
  selectPlaces_.reset();
  return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
}

void SqliteUserDefaults::reportDamage(std::string_view key) const {
  report_(fmt::format("The settings file {} holds a value under {} that cannot be read and is skipped.", file_, key));
}

}  // namespace quillmar::platform
