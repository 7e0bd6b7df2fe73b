#include "quillmar/simulated/InMemoryUserDefaults.h"

#include <algorithm>

namespace quillmar::simulated {

using platform::PropertyListValue;

std::optional<PropertyListValue> InMemoryUserDefaults::object(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  return found == values_.end() ? std::nullopt : std::optional(found->second);
}

std::error_code InMemoryUserDefaults::set(std::string_view key, PropertyListValue value) {
  const std::lock_guard lock(mutex_);
  values_.insert_or_assign(std::string(key), std::move(value));
  ++revisions_[std::string(key)];
  return {};
}

std::error_code InMemoryUserDefaults::remove(std::string_view key) {
  const std::lock_guard lock(mutex_);
  if (const auto found = values_.find(key); found != values_.end()) {
    values_.erase(found);
    ++revisions_[std::string(key)];
  }
  return {};
}

std::optional<std::uint64_t> InMemoryUserDefaults::revision(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto found = revisions_.find(key);
  return found == revisions_.end() ? 0 : found->second;
}

std::error_code InMemoryUserDefaults::replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) {
  return InMemoryUserDefaults::replaceDataTails({{std::string(key), keep, std::string(tail)}});
}

std::error_code InMemoryUserDefaults::replaceDataTails(const std::vector<DataTail>& tails) {
  const std::lock_guard lock(mutex_);
  // What may fail or needs memory comes first: either all of it happens or nothing.
  for (const auto& [key, keep, tail] : tails) {
    std::string* const bytes = dataOf(key, keep);
    if (bytes == nullptr) {
      return std::make_error_code(std::errc::invalid_argument);
    }
    if (bytes->capacity() < keep + tail.size()) {
      bytes->reserve(std::max(keep + tail.size(), 2 * bytes->capacity()));
    }
    revisions_.try_emplace(key);
  }
  for (const auto& [key, keep, tail] : tails) {
    std::string& bytes = *dataOf(key, keep);
    bytes.resize(keep);
    bytes.append(tail);
    ++revisions_.find(key)->second;
  }
  return {};
}

std::string* InMemoryUserDefaults::dataOf(std::string_view key, std::size_t least) {
  const auto found = values_.find(key);
  const auto* data = found == values_.end() ? nullptr : found->second.as<PropertyListValue::Data>();
  // The bytes are this store's own and not const; changing them in place keeps an append from copying the value.
  return data == nullptr || data->bytes.size() < least ? nullptr : const_cast<std::string*>(&data->bytes);
}

std::shared_ptr<platform::UserDefaults> InMemoryUserDefaultsProvider::openSuite(const std::string& name) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<InMemoryUserDefaults>& suite = suites_["suite " + name];
  if (!suite) {
    suite = std::make_shared<InMemoryUserDefaults>();
  }
  return suite;
}

std::shared_ptr<platform::UserDefaults> InMemoryUserDefaultsProvider::standard() {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<InMemoryUserDefaults>& standard = suites_["standard"];
  if (!standard) {
    standard = std::make_shared<InMemoryUserDefaults>();
  }
  return standard;
}

}  // namespace quillmar::simulated
