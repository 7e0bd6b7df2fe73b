#include "Platform/Sqlite/SqliteDatabase.h"

namespace quillmar::platform {

std::error_code sqliteError(int result) noexcept {
  switch (result & 0xff) {  // the upper bits refine the code
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return {};
    case SQLITE_FULL:
      return std::make_error_code(std::errc::no_space_on_device);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return std::make_error_code(std::errc::resource_unavailable_try_again);
    default:
      return std::make_error_code(std::errc::io_error);
  }
}

std::string_view SqliteStatement::bytes(int column) const noexcept {
  // The pointer first: asking for it may convert the value and change its size.
  const void* const start = sqlite3_column_blob(statement_.get(), column);
  return {static_cast<const char*>(start), static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

int SqliteDatabase::open(const std::string& file) noexcept {
  sqlite3* handle = nullptr;
  // The owner of the connection lets one thread in at a time.
  int result = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(handle);
  const std::pair<int, int> modes[] = {{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                       {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                       {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                       {SQLITE_DBCONFIG_ENABLE_VIEW, 0}};
  for (const auto& [mode, value] : modes) {
    result = result == SQLITE_OK ? sqlite3_db_config(handle, mode, value, nullptr) : result;
  }
  if (result == SQLITE_OK) {
    sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, largestContent);
  }
  return result;
}

int SqliteDatabase::prepare(std::string_view sql, SqliteStatement& statement) noexcept {
  sqlite3_stmt* prepared = nullptr;
  const int result = sqlite3_prepare_v3(handle_.get(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  statement = SqliteStatement(prepared);
  return result;
}

int SqliteDatabase::readInteger(std::string_view sql, std::int64_t& value) noexcept {
  SqliteStatement statement;
  if (const int result = prepare(sql, statement); result != SQLITE_OK) {
    return result;
  }
  const int result = statement.step();
  if (result != SQLITE_ROW) {
    return result == SQLITE_DONE ? SQLITE_CORRUPT : result;
  }
  value = statement.integer(0);
  return SQLITE_OK;
}

bool SqliteDatabase::hasMetIoErrors() const noexcept {
  for (const int which : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
    sqlite3_file* file = nullptr;
    int error = 0;
    if (sqlite3_file_control(handle_.get(), "main", which, static_cast<void*>(&file)) == SQLITE_OK && file != nullptr &&
        file->pMethods != nullptr && file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK &&
        error != 0) {
      return true;
    }
  }
  return false;
}

}  // namespace quillmar::platform
