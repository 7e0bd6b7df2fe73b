#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/Sqlite/SqliteUserDefaultsProvider.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// The suites and the standard user defaults of Foundation, each with an SQLite file beside it in `folder`.
class FoundationUserDefaultsProvider : public UserDefaultsProvider {
 public:
  /// `isReadable` says whether the user defaults can be read by now: before the device is first unlocked they look
  /// empty. Until then each store is refused with `std::errc::operation_not_permitted`.
  FoundationUserDefaultsProvider(const std::string& folder, SqliteUserDefaults::Report report,
                                 std::function<bool()> isReadable);

  std::shared_ptr<UserDefaults> openSuite(const std::string& name) override;
  std::shared_ptr<UserDefaults> standard() override;

 private:
  void requireReadable() const;

  const std::function<bool()> isReadable_;
  SqliteUserDefaultsProvider beside_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<UserDefaults>> open_;
  std::shared_ptr<UserDefaults> standard_;
};

}  // namespace quillmar::platform
