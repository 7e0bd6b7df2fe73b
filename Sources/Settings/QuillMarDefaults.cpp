#include "Settings/QuillMarDefaults.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace quillmar {

namespace {

/// Opens the suite when it is first asked for something.
class LazyUserDefaults final : public platform::UserDefaults {
 public:
  explicit LazyUserDefaults(std::shared_ptr<platform::UserDefaultsProvider> provider)
      : provider_(std::move(provider)) {}

  bool isOpen() const noexcept override { return isOpen_.load(std::memory_order_acquire); }
  std::optional<platform::PropertyListValue> object(std::string_view key) const override { return store().object(key); }
  std::error_code set(std::string_view key, platform::PropertyListValue value) override {
    return store().set(key, std::move(value));
  }
  std::error_code remove(std::string_view key) override { return store().remove(key); }
  std::optional<std::uint64_t> revision(std::string_view key) const override { return store().revision(key); }
  std::optional<std::string> dataTail(std::string_view key, std::size_t skip) const override {
    return store().dataTail(key, skip);
  }
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    return store().replaceDataTail(key, keep, tail);
  }
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override {
    return store().replaceDataTails(tails);
  }

 private:
  platform::UserDefaults& store() const {
    std::call_once(opened_, [this] {
      store_ = provider_->openSuite(std::string(quillMarDefaultsSuite));
      if (!store_) {
        store_ = provider_->standard();
      }
      isOpen_.store(true, std::memory_order_release);
    });
    return *store_;
  }

  const std::shared_ptr<platform::UserDefaultsProvider> provider_;
  mutable std::once_flag opened_;
  mutable std::atomic<bool> isOpen_{false};
  mutable std::shared_ptr<platform::UserDefaults> store_;
};

struct Registry {
  std::mutex mutex;
  std::vector<std::pair<const platform::UserDefaultsProvider*, std::weak_ptr<LazyUserDefaults>>> stores;
};

}  // namespace

std::shared_ptr<platform::UserDefaults> quillMarDefaults(
    const std::shared_ptr<platform::UserDefaultsProvider>& provider) {
  static Registry& registry = *new Registry;  // never destroyed
  const std::lock_guard lock(registry.mutex);
  // A store holds its provider, so the address of a provider whose store is alive belongs to no other.
  std::erase_if(registry.stores, [](const auto& entry) { return entry.second.expired(); });
  for (const auto& [owner, weakStore] : registry.stores) {
    if (owner == provider.get()) {
      if (auto store = weakStore.lock()) {
        return store;
      }
    }
  }
  auto store = std::make_shared<LazyUserDefaults>(provider);
  registry.stores.emplace_back(provider.get(), store);
  return store;
}

}  // namespace quillmar
