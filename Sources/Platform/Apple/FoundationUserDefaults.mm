#include "Platform/Apple/FoundationUserDefaults.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

#include "Platform/Apple/PropertyListObject.h"
#include "Platform/Fnv1a.h"

namespace quillmar::platform {

namespace {

/// Under which it is noted what of a key was moved.
std::string noteKey(std::string_view key) {
  return std::string(key) + ".moved";
}

/// Tells one moved value from another: its length and its FNV-1a hash.
std::string identityOf(std::string_view bytes) {
  return fmt::format("{}:{:016x}", bytes.size(), fnv1a(bytes));
}

bool isListWithElements(std::string_view text) {
  return text.size() > 2 && text.front() == '[' && text.back() == ']';
}

/// Both lists of events as one. What is no list has no events.
std::string joined(const std::string& first, const std::string& second) {
  if (!isListWithElements(second)) {
    return first;
  }
  return isListWithElements(first) ? first.substr(0, first.size() - 1) + "," + second.substr(1) : second;
}

/// Whether `second` was joined to what became `whole`, or `whole` began as `second`.
bool isPartOf(const std::string& whole, const std::string& second) {
  return joined(whole, second) == whole || whole == second ||
         whole.starts_with(second.substr(0, second.size() - 1) + ",") || whole.ends_with("," + second.substr(1));
}

std::optional<std::string> dataOf(id object) {
  if (![object isKindOfClass:[NSData class]]) {
    return std::nullopt;
  }
  NSData* const data = object;
  return std::string(static_cast<const char*>(data.bytes), data.length);
}

}  // namespace

FoundationUserDefaults::FoundationUserDefaults(NSUserDefaults* defaults, std::shared_ptr<UserDefaults> beside)
    : defaults_(defaults), beside_(std::move(beside)) {}

std::optional<PropertyListValue> FoundationUserDefaults::object(std::string_view key) const {
  @autoreleasepool {
    {
      const std::lock_guard lock(mutex_);
      // When the copy cannot be stored, the store beside keeps it in memory, where it is read.
      static_cast<void>(moveData(key));
    }
    if (std::optional<PropertyListValue> value = beside_->object(key)) {
      return value;
    }
    return propertyListValue(nativeObject(key));
  }
}

std::error_code FoundationUserDefaults::set(std::string_view key, PropertyListValue value) {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    static_cast<void>(noteAsMoved(key));  // what could not be stored goes along with the next write
    id const object = value.as<PropertyListValue::Data>() == nullptr ? propertyListObject(value) : nil;
    if (object != nil && !key.empty() && foundationText(key) != nil) {
      const std::error_code error = setNatively(key, object);
      const std::error_code besideError = beside_->remove(key);
      return error ? error : besideError;
    }
    const std::error_code error = beside_->set(key, std::move(value));
    return error ? error : removeNatively(key);
  }
}

std::error_code FoundationUserDefaults::remove(std::string_view key) {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    static_cast<void>(noteAsMoved(key));
    // What is beside hides what is in the user defaults, so it goes last.
    const std::error_code error = removeNatively(key);
    return error ? error : beside_->remove(key);
  }
}

std::optional<std::uint64_t> FoundationUserDefaults::revision(std::string_view key) const {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    try {
      static_cast<void>(moveData(key));
    } catch (const std::system_error&) {
      return std::nullopt;
    }
    return nativeObject(key) == nil ? beside_->revision(key) : std::nullopt;
  }
}

std::error_code FoundationUserDefaults::replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    static_cast<void>(moveData(key));
    return beside_->replaceDataTail(key, keep, tail);
  }
}

std::error_code FoundationUserDefaults::replaceDataTails(const std::vector<DataTail>& tails) {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    for (const DataTail& change : tails) {
      static_cast<void>(moveData(change.key));
    }
    return beside_->replaceDataTails(tails);
  }
}

std::optional<std::string> FoundationUserDefaults::dataTail(std::string_view key, std::size_t skip) const {
  @autoreleasepool {
    const std::lock_guard lock(mutex_);
    static_cast<void>(moveData(key));
    return beside_->dataTail(key, skip);
  }
}

/// Moves the data value of the key, if there is one in the user defaults. Throws when the one beside cannot be read.
std::error_code FoundationUserDefaults::moveData(std::string_view key) const {
  if (movedKeys_.contains(key)) {
    return {};
  }
  if (const std::optional<std::string> data = dataOf(nativeObject(key))) {
    if (beside_->string(noteKey(key)) != identityOf(*data)) {
      const std::optional<std::string> copy = beside_->data(key);
      if (!copy || !isPartOf(*copy, *data)) {
        const std::error_code error = beside_->set(key, PropertyListValue::Data{copy ? joined(*copy, *data) : *data});
        if (error) {
          return error;
        }
      }
    }
    std::error_code error = noteAsMoved(key);
    if (!error) {
      error = removeNatively(key);
    }
    if (error) {
      return error;
    }
  }
  movedKeys_.emplace(key);
  return {};
}

/// A data value in the user defaults counts no more: it was copied, or is about to be replaced or removed.
std::error_code FoundationUserDefaults::noteAsMoved(std::string_view key) const {
  const std::optional<std::string> data = dataOf(nativeObject(key));
  return data ? beside_->set(noteKey(key), identityOf(*data)) : std::error_code{};
}

id FoundationUserDefaults::nativeObject(std::string_view key) const {
  NSString* const name = foundationText(key);
  return name == nil ? nil : [defaults_.get() objectForKey:name];
}

std::error_code FoundationUserDefaults::setNatively(std::string_view key, id object) const {
  [defaults_.get() setObject:object forKey:foundationText(key)];
  // Without, the value is on its way to another process, and lost when this one is killed.
  return [defaults_.get() synchronize] ? std::error_code{} : std::make_error_code(std::errc::io_error);
}

std::error_code FoundationUserDefaults::removeNatively(std::string_view key) const {
  if (nativeObject(key) == nil) {
    return {};
  }
  [defaults_.get() removeObjectForKey:foundationText(key)];
  return [defaults_.get() synchronize] ? std::error_code{} : std::make_error_code(std::errc::io_error);
}

}  // namespace quillmar::platform
