#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

bool UserDefaults::isOpen() const noexcept {
  return true;
}

std::optional<std::uint64_t> UserDefaults::revision(std::string_view) const {
  return std::nullopt;
}

std::error_code UserDefaults::replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) {
  std::optional<std::string> bytes = data(key);
  if (!bytes || bytes->size() < keep) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  bytes->resize(keep);
  bytes->append(tail);
  return set(key, PropertyListValue::Data{std::move(*bytes)});
}

std::error_code UserDefaults::replaceDataTails(const std::vector<DataTail>& tails) {
  for (const DataTail& change : tails) {
    if (const std::error_code error = replaceDataTail(change.key, change.keep, change.tail)) {
      return error;
    }
  }
  return {};
}

std::optional<std::string> UserDefaults::dataTail(std::string_view key, std::size_t skip) const {
  std::optional<std::string> bytes = data(key);
  if (!bytes || bytes->size() < skip) {
    return std::nullopt;
  }
  bytes->erase(0, skip);
  return bytes;
}

bool PropertyListValue::boolean() const noexcept {
  if (const auto* flag = as<bool>()) {
    return *flag;
  }
  if (const auto* integer = as<std::int64_t>()) {
    return *integer != 0;
  }
  if (const auto* number = as<double>()) {
    return *number != 0;
  }
  const auto* const text = as<std::string>();
  return text != nullptr && (*text == "YES" || *text == "true" || *text == "1");
}

bool UserDefaults::boolean(std::string_view key) const {
  const std::optional<PropertyListValue> value = object(key);
  return value && value->boolean();
}

namespace {
template <class T>
std::optional<T> typed(const UserDefaults& defaults, std::string_view key) {
  const std::optional<PropertyListValue> value = defaults.object(key);
  const T* content = value ? value->as<T>() : nullptr;
  return content ? std::optional<T>(*content) : std::nullopt;
}
}  // namespace

std::optional<std::string> UserDefaults::string(std::string_view key) const {
  return typed<std::string>(*this, key);
}

std::optional<PropertyListValue::Date> UserDefaults::date(std::string_view key) const {
  return typed<PropertyListValue::Date>(*this, key);
}

std::optional<std::string> UserDefaults::data(std::string_view key) const {
  auto value = typed<PropertyListValue::Data>(*this, key);
  return value ? std::optional<std::string>(std::move(value->bytes)) : std::nullopt;
}

}  // namespace quillmar::platform
