#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/Sqlite/SqliteUserDefaults.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// Settings stores in a folder, one SQLite file each: "<name>.sqlite", and "standard.sqlite" for the standard one.
class SqliteUserDefaultsProvider : public UserDefaultsProvider {
 public:
  /// The folder is created when the first store is opened; empty means that there is none.
  SqliteUserDefaultsProvider(std::string folder, SqliteUserDefaults::Report report,
                             std::chrono::milliseconds busyTimeout = SqliteUserDefaults::defaultBusyTimeout);

  std::shared_ptr<UserDefaults> openSuite(const std::string& name) override;

  /// In memory, until the process ends, when the file cannot be used.
  std::shared_ptr<UserDefaults> standard() override;

 private:
  std::shared_ptr<UserDefaults> openLocked(const std::string& name);

  const std::string folder_;
  const SqliteUserDefaults::Report report_;
  const std::chrono::milliseconds busyTimeout_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<UserDefaults>> open_;  ///< a file has one store, since the store keeps a cache
};

}  // namespace quillmar::platform
