#include "Platform/Sqlite/SqliteUserDefaultsProvider.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <new>
#include <string_view>
#include <utility>

#include "Platform/Posix/PosixFileManager.h"

namespace quillmar::platform {

namespace {

constexpr const char* standardName = "standard";

/// The name as a file name: "%XX" for what a path or a file system could take in its own way.
std::string fileName(std::string_view name) {
  std::string result;
  for (const char c : name) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                         c == '_' || (c == '.' && !result.empty());
    if (isPlain) {
      result.push_back(c);
    } else {
      result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return result + ".sqlite";
}

}  // namespace

SqliteUserDefaultsProvider::SqliteUserDefaultsProvider(std::string folder, SqliteUserDefaults::Report report,
                                                       std::chrono::milliseconds busyTimeout)
    : folder_(std::move(folder)), report_(std::move(report)), busyTimeout_(busyTimeout) {}

std::shared_ptr<UserDefaults> SqliteUserDefaultsProvider::openSuite(const std::string& name) {
  const std::lock_guard lock(mutex_);
  return openLocked(name);
}

std::shared_ptr<UserDefaults> SqliteUserDefaultsProvider::standard() {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<UserDefaults> store = openLocked(standardName);
  if (!store) {
    report_("The standard settings are kept in memory until the process ends.");
    store = SqliteUserDefaults::open(":memory:", report_);
    if (!store) {
      throw std::bad_alloc();  // memory is all that this can lack
    }
    open_[standardName] = store;
  }
  return store;
}

std::shared_ptr<UserDefaults> SqliteUserDefaultsProvider::openLocked(const std::string& name) {
  if (const auto found = open_.find(name); found != open_.end()) {
    return found->second;
  }
  if (folder_.empty()) {
    report_("There is no folder for settings.");
    return nullptr;
  }
  PosixFileManager files(std::nullopt);
  std::error_code failure = files.createDirectory(folder_);
  if (failure) {
    failure = files.createDirectory(folder_);  // a fault that passes must not cost the suite
  }
  if (failure) {
    report_(fmt::format("The settings folder {} cannot be created: {}.", folder_, failure.message()));
    return nullptr;
  }
  for (const std::string& folder : {folder_.substr(0, folder_.rfind('/')), folder_}) {
    if (struct stat status{}; ::stat(folder.c_str(), &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
      report_(fmt::format("Other users can write to the folder {}.", folder));
    }
  }
  std::shared_ptr<UserDefaults> store = SqliteUserDefaults::open(folder_ + "/" + fileName(name), report_, busyTimeout_);
  if (store) {
    open_.emplace(name, store);
  }
  return store;
}

}  // namespace quillmar::platform
