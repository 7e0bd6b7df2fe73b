#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace quillmar::platform {

/// The error code for a result of SQLite: none for `SQLITE_OK`, `SQLITE_ROW` and `SQLITE_DONE`.
std::error_code sqliteError(int result) noexcept;

/// A prepared statement. What is bound and what a column returned live until the next `reset`.
class SqliteStatement {
 public:
  SqliteStatement() = default;
  explicit SqliteStatement(sqlite3_stmt* statement) noexcept : statement_(statement) {}

  /// Binds the arguments to the parameters in order. Bytes are bound as a BLOB by `Blob`, texts as TEXT; they are
  /// not copied.
  struct Blob {
    std::string_view bytes;
  };
  template <class... Arguments>
  SqliteStatement& bind(const Arguments&... arguments) noexcept {
    reset();
    int index = 0;
    (bindOne(++index, arguments), ...);
    return *this;
  }

  /// `SQLITE_ROW`, `SQLITE_DONE` or an error.
  int step() noexcept { return bindResult_ == SQLITE_OK ? sqlite3_step(statement_.get()) : bindResult_; }

  /// Steps a statement that gives no rows.
  int run() noexcept {
    const int result = step();
    reset();
    return result == SQLITE_DONE ? SQLITE_OK : result;
  }

  void reset() noexcept {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    bindResult_ = SQLITE_OK;
  }

  std::int64_t integer(int column) const noexcept { return sqlite3_column_int64(statement_.get(), column); }
  int type(int column) const noexcept { return sqlite3_column_type(statement_.get(), column); }
  std::string_view bytes(int column) const noexcept;

 private:
  void bindOne(int index, std::int64_t value) noexcept { note(sqlite3_bind_int64(statement_.get(), index, value)); }
  void bindOne(int index, std::string_view text) noexcept {
    note(sqlite3_bind_text64(statement_.get(), index, notNull(text), text.size(), SQLITE_STATIC, SQLITE_UTF8));
  }
  void bindOne(int index, Blob blob) noexcept {
    note(sqlite3_bind_blob64(statement_.get(), index, notNull(blob.bytes), blob.bytes.size(), SQLITE_STATIC));
  }
  /// A null pointer would bind NULL instead of something empty.
  static const char* notNull(std::string_view bytes) noexcept { return bytes.data() == nullptr ? "" : bytes.data(); }
  void note(int result) noexcept { bindResult_ = bindResult_ == SQLITE_OK ? result : bindResult_; }

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int bindResult_ = SQLITE_OK;
};

/// A connection to a database. Not safe for use from several threads at once. Results are SQLite's own codes.
class SqliteDatabase {
 public:
  SqliteDatabase() = default;

  /// The longest text or BLOB that is read or written.
  static constexpr int largestContent = 64 << 20;

  /// Opens the file, which must exist; ":memory:" makes a database in memory. Does not wait for others' locks, and
  /// trusts nothing that the file brings: views and triggers are off, contents bounded.
  int open(const std::string& file) noexcept;

  int execute(const char* sql) noexcept { return sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr); }
  int prepare(std::string_view sql, SqliteStatement& statement) noexcept;

  /// The single number that `sql` gives.
  int readInteger(std::string_view sql, std::int64_t& value) noexcept;

  std::int64_t lastInsertedRow() const noexcept { return sqlite3_last_insert_rowid(handle_.get()); }

  /// Whether the system has refused a read or a write of this connection. SQLite calls a page that the disk could not
  /// give (EIO) corrupt, as it does one with bad content; only the latter is lost.
  bool hasMetIoErrors() const noexcept;

  /// SQLite's words for the last error.
  std::string lastMessage() const { return sqlite3_errmsg(handle_.get()); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

}  // namespace quillmar::platform
