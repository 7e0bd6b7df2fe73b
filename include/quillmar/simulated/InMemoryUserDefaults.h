#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar::simulated {

/// A settings store that lives as long as the object.
class InMemoryUserDefaults : public platform::UserDefaults {
 public:
  std::optional<platform::PropertyListValue> object(std::string_view key) const override;
  std::error_code set(std::string_view key, platform::PropertyListValue value) override;
  std::error_code remove(std::string_view key) override;
  std::optional<std::uint64_t> revision(std::string_view key) const override;
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override;
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override;

 private:
  /// The bytes of a data value of at least that length; null when there is none. Called with the lock held.
  std::string* dataOf(std::string_view key, std::size_t least);

  mutable std::mutex mutex_;
  std::map<std::string, platform::PropertyListValue, std::less<>> values_;
  std::map<std::string, std::uint64_t, std::less<>> revisions_;
};

/// Stores in memory, one a name.
class InMemoryUserDefaultsProvider : public platform::UserDefaultsProvider {
 public:
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string& name) override;
  std::shared_ptr<platform::UserDefaults> standard() override;

 private:
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<InMemoryUserDefaults>> suites_;
};

}  // namespace quillmar::simulated
