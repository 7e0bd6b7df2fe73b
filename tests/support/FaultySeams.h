#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "quillmar/platform/FileManager.h"
#include "quillmar/platform/UserDefaults.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"

namespace quillmar::test {

/// Numbers the calls of seams and says which of them fail.
struct FaultPlan {
  std::error_code error;
  std::size_t first = 0;  ///< from 1; 0: none
  std::size_t count = 1;
  std::size_t calls = 0;  ///< so far

  std::error_code next() {
    ++calls;
    return first != 0 && calls >= first && calls - first < count ? error : std::error_code{};
  }
};

/// Passes on to another file system, unless the plan lets the call fail.
class FaultyFileManager : public platform::FileManager {
 public:
  FaultyFileManager(std::shared_ptr<platform::FileManager> files, FaultPlan& plan)
      : files_(std::move(files)), plan_(plan) {}

  std::optional<std::string> documentsDirectory() const override { return files_->documentsDirectory(); }
  bool fileExists(const std::string& path) const override { return plan_.next() || files_->fileExists(path); }
  std::optional<platform::FileStamp> stamp(const std::string& path) const override {
    return plan_.next() ? std::nullopt : files_->stamp(path);
  }
  std::error_code createDirectory(const std::string& path) override {
    return instead([&] { return files_->createDirectory(path); });
  }
  std::error_code createFile(const std::string& path) override {
    return instead([&] { return files_->createFile(path); });
  }
  std::error_code removeItem(const std::string& path) override {
    return instead([&] { return files_->removeItem(path); });
  }
  std::error_code readFile(const std::string& path, std::string& content) const override {
    return instead([&] { return files_->readFile(path, content); });
  }
  std::error_code writeFile(const std::string& path, std::string_view content, platform::WriteMode mode) override {
    return instead([&] { return files_->writeFile(path, content, mode); });
  }

 private:
  template <class Call>
  std::error_code instead(Call call) const {
    const std::error_code error = plan_.next();
    return error ? error : call();
  }

  const std::shared_ptr<platform::FileManager> files_;
  FaultPlan& plan_;
};

/// A settings store in memory over one that stands for the disk. As the seam wants it, a value that could not be
/// written is kept and goes to the disk together with the next one, and a tail that could not be written is not.
class FaultyUserDefaults : public platform::UserDefaults {
 public:
  FaultyUserDefaults(std::shared_ptr<platform::UserDefaults> disk, FaultPlan& plan)
      : disk_(std::move(disk)), plan_(plan) {}

  std::optional<platform::PropertyListValue> object(std::string_view key) const override {
    if (unwritten_.contains(key)) {
      return memory_.object(key);
    }
    std::optional<platform::PropertyListValue> value = disk_->object(key);
    if (value && value->as<platform::PropertyListValue::Data>() != nullptr) {  // the others are held in memory
      if (const std::error_code error = plan_.next()) {
        throw std::system_error(error);
      }
    }
    return value;
  }
  std::error_code set(std::string_view key, platform::PropertyListValue value) override {
    static_cast<void>(memory_.set(key, std::move(value)));
    return write(key);
  }
  std::error_code remove(std::string_view key) override {
    static_cast<void>(memory_.remove(key));
    return write(key);
  }
  std::optional<std::uint64_t> revision(std::string_view key) const override {
    return changes_ + disk_->revision(key).value();
  }
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    if (const std::error_code error = plan_.next()) {
      return error;
    }
    flush();
    return disk_->replaceDataTail(key, keep, tail);
  }

 private:
  std::error_code write(std::string_view key) {
    unwritten_.emplace(key);
    ++changes_;
    const std::error_code error = plan_.next();
    if (!error) {
      flush();
    }
    return error;
  }
  void flush() {
    for (const std::string& key : unwritten_) {
      const auto value = memory_.object(key);
      static_cast<void>(value ? disk_->set(key, *value) : disk_->remove(key));
    }
    unwritten_.clear();
  }

  const std::shared_ptr<platform::UserDefaults> disk_;
  simulated::InMemoryUserDefaults memory_;
  std::set<std::string, std::less<>> unwritten_;
  std::uint64_t changes_ = 0;
  FaultPlan& plan_;
};

/// Gives out one store under all names.
class OneStoreProvider : public platform::UserDefaultsProvider {
 public:
  explicit OneStoreProvider(std::shared_ptr<platform::UserDefaults> store) : store_(std::move(store)) {}
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string&) override { return store_; }
  std::shared_ptr<platform::UserDefaults> standard() override { return store_; }

 private:
  const std::shared_ptr<platform::UserDefaults> store_;
};

}  // namespace quillmar::test
