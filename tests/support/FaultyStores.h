#pragma once

#include <functional>

#include "Conversion/EventTracker.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"

namespace quillmar::test {

/// Asked at each call, by its name: the error that it ends with, or none.
using Fault = std::function<std::error_code(std::string_view call)>;

template <class Call>
std::error_code unless(std::error_code fault, Call call) {
  return fault ? fault : call();
}

class FaultyFiles final : public simulated::InMemoryFileManager {
 public:
  explicit FaultyFiles(Fault fault) : fault_(std::move(fault)) {}

  std::error_code createDirectory(const std::string& path) override {
    return unless(fault_("createDirectory"), [&] { return InMemoryFileManager::createDirectory(path); });
  }
  std::error_code createFile(const std::string& path) override {
    return unless(fault_("createFile"), [&] { return InMemoryFileManager::createFile(path); });
  }
  std::error_code removeItem(const std::string& path) override {
    return unless(fault_("removeItem"), [&] { return InMemoryFileManager::removeItem(path); });
  }
  std::error_code readFile(const std::string& path, std::string& content) const override {
    return unless(fault_("readFile"), [&] { return InMemoryFileManager::readFile(path, content); });
  }
  std::error_code writeFile(const std::string& path, std::string_view content, platform::WriteMode mode) override {
    return unless(fault_("writeFile"), [&] { return InMemoryFileManager::writeFile(path, content, mode); });
  }

 private:
  const Fault fault_;
};

/// The minimum that a host's own store implements; the rest is the interface's standard implementation.
class MinimalUserDefaults : public platform::UserDefaults {
 public:
  explicit MinimalUserDefaults(std::shared_ptr<UserDefaults> store) : store_(std::move(store)) {}
  std::optional<platform::PropertyListValue> object(std::string_view key) const override { return store_->object(key); }
  std::error_code set(std::string_view key, platform::PropertyListValue value) override {
    return store_->set(key, std::move(value));
  }
  std::error_code remove(std::string_view key) override { return store_->remove(key); }

 private:
  std::shared_ptr<UserDefaults> store_;
};

/// That store by whatever name.
class OneStoreProvider final : public simulated::InMemoryUserDefaultsProvider {
 public:
  explicit OneStoreProvider(std::shared_ptr<platform::UserDefaults> store) : store_(std::move(store)) {}
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string&) override { return store_; }

 private:
  const std::shared_ptr<platform::UserDefaults> store_;
};

/// Keeps in memory what it cannot write, as the seam wants it; appends are all or nothing.
class FaultyDefaults final : public simulated::InMemoryUserDefaults {
 public:
  explicit FaultyDefaults(Fault fault) : fault_(std::move(fault)) {}

  std::optional<platform::PropertyListValue> object(std::string_view key) const override {
    if (key == EventTracker::completedEventsKey) {  // the only value that is read from the disk
      if (const std::error_code error = fault_("object")) {
        throw std::system_error(error);
      }
    }
    return InMemoryUserDefaults::object(key);
  }
  std::error_code set(std::string_view key, platform::PropertyListValue value) override {
    static_cast<void>(InMemoryUserDefaults::set(key, std::move(value)));
    return fault_("set");
  }
  std::error_code remove(std::string_view key) override {
    static_cast<void>(InMemoryUserDefaults::remove(key));
    return fault_("remove");
  }
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    return unless(fault_("replaceDataTail"), [&] { return InMemoryUserDefaults::replaceDataTail(key, keep, tail); });
  }
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override {
    return unless(fault_("replaceDataTails"), [&] { return InMemoryUserDefaults::replaceDataTails(tails); });
  }

 private:
  const Fault fault_;
};

}  // namespace quillmar::test
