#include <set>
#include <system_error>
#include <vector>

#include "C/Bytes.h"
#include "C/PlatformHandle.h"
#include "Platform/PropertyListCoding.h"

namespace quillmar {

namespace {

using platform::PropertyListValue;
using DefaultsTable = std::shared_ptr<const Table<quillmar_user_defaults>>;

// What is stored: a mark, and behind it the bytes of a data value as they are, so that it can grow, or any other value
// in its stored form.
constexpr char dataMark = 'D';
constexpr char valueMark = 'V';

class TableUserDefaults final : public platform::UserDefaults {
 public:
  TableUserDefaults(DefaultsTable table, std::string suite) : table_(std::move(table)), suite_(std::move(suite)) {}

  bool isOpen() const noexcept override { return true; }

  std::optional<PropertyListValue> object(std::string_view key) const override {
    quillmar_bytes bytes;
    const std::string name(key);
    if (const auto failure =
            errorOf(table_->call<&quillmar_user_defaults::get>(suite_.c_str(), name.c_str(), &bytes))) {
      throw std::system_error(failure);
    }
    if (!bytes.content || bytes.content->empty()) {
      noteData(name, false);
      return std::nullopt;
    }
    const bool isData = bytes.content->front() == dataMark;
    noteData(name, isData);
    if (isData) {
      bytes.content->erase(0, 1);
      return PropertyListValue::Data{*std::move(bytes.content)};
    }
    return bytes.content->front() == valueMark
               ? platform::decodePropertyList(std::string_view(*bytes.content).substr(1))
               : std::nullopt;
  }

  std::error_code set(std::string_view key, PropertyListValue value) override {
    const auto* const data = value.as<PropertyListValue::Data>();
    const std::optional<std::string> encoded = data != nullptr ? data->bytes : platform::encodePropertyList(value);
    if (!encoded) {
      return std::make_error_code(std::errc::invalid_argument);
    }
    const std::string name(key);
    noteData(name, data != nullptr);
    const std::string bytes = (data != nullptr ? dataMark : valueMark) + *encoded;
    return errorOf(table_->call<&quillmar_user_defaults::set>(suite_.c_str(), name.c_str(),
                                                              static_cast<const void*>(bytes.data()), bytes.size()));
  }

  std::error_code remove(std::string_view key) override {
    const std::string name(key);
    noteData(name, false);
    return errorOf(table_->call<&quillmar_user_defaults::remove>(suite_.c_str(), name.c_str()));
  }

  std::optional<std::uint64_t> revision(std::string_view key) const override {
    if (!table_->has<&quillmar_user_defaults::revision>()) {
      return std::nullopt;
    }
    return table_->call<&quillmar_user_defaults::revision>(suite_.c_str(), std::string(key).c_str());
  }

  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    if (!table_->has<&quillmar_user_defaults::replace_tail>()) {
      return UserDefaults::replaceDataTail(key, keep, tail);
    }
    const std::string name(key);
    if (!isData(name)) {
      return std::make_error_code(std::errc::invalid_argument);
    }
    return errorOf(table_->call<&quillmar_user_defaults::replace_tail>(
        suite_.c_str(), name.c_str(), keep + 1, static_cast<const void*>(tail.data()), tail.size()));
  }

  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override {
    if (!table_->has<&quillmar_user_defaults::replace_tails>()) {
      return UserDefaults::replaceDataTails(tails);
    }
    std::vector<quillmar_data_tail> given;
    for (const auto& [key, keep, tail] : tails) {
      if (!isData(key)) {
        return std::make_error_code(std::errc::invalid_argument);
      }
      given.push_back({key.c_str(), keep + 1, tail.data(), tail.size()});
    }
    return errorOf(table_->call<&quillmar_user_defaults::replace_tails>(
        suite_.c_str(), static_cast<const quillmar_data_tail*>(given.data()), given.size()));
  }

 private:
  void noteData(const std::string& key, bool isData) const {
    const std::lock_guard lock(mutex_);
    isData ? void(dataKeys_.insert(key)) : void(dataKeys_.erase(key));
  }

  bool isData(const std::string& key) const {
    {
      const std::lock_guard lock(mutex_);
      if (dataKeys_.contains(key)) {
        return true;
      }
    }
    const auto value = object(key);
    return value && value->as<PropertyListValue::Data>() != nullptr;
  }

  const DefaultsTable table_;
  const std::string suite_;
  mutable std::mutex mutex_;
  mutable std::set<std::string> dataKeys_;  ///< those known to have data values
};

class TableUserDefaultsProvider final : public platform::UserDefaultsProvider {
 public:
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string& name) override {
    return table->callIfThere<&quillmar_user_defaults::open>(name.c_str()) == 0
               ? std::make_shared<TableUserDefaults>(table, name)
               : nullptr;
  }
  std::shared_ptr<platform::UserDefaults> standard() override {
    table->callIfThere<&quillmar_user_defaults::open>("");  // has to work in memory if it must
    return std::make_shared<TableUserDefaults>(table, "");
  }

  DefaultsTable table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

quillmar_status quillmar_platform_set_user_defaults(quillmar_platform* platform,
                                                    const quillmar_user_defaults* defaults) {
  return setMember<TableUserDefaultsProvider>(platform, &platform::Platform::userDefaults, defaults,
                                              &quillmar_user_defaults::get, &quillmar_user_defaults::set,
                                              &quillmar_user_defaults::remove);
}
