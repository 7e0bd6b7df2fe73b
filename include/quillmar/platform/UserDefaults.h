#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// A value that a settings store keeps. On Apple systems: a property list.
class QUILLMAR_API PropertyListValue {
 public:
  /// Bytes, which need not be a text.
  struct Data {
    std::string bytes;
    friend bool operator==(const Data& a, const Data& b) { return a.bytes == b.bytes; }
  };
  using Date = std::chrono::system_clock::time_point;
  using Array = std::vector<PropertyListValue>;
  using Dictionary = std::map<std::string, PropertyListValue, std::less<>>;
  /// What a value can be.
  using Storage = std::variant<bool, std::int64_t, double, std::string, Data, Date, Array, Dictionary>;

  /// A bool, and nothing that only converts to one: every pointer does.
  template <class Bool, std::enable_if_t<std::is_same_v<Bool, bool>, int> = 0>
  PropertyListValue(Bool value) : storage_(value) {}  // NOLINT(google-explicit-constructor)
  /// One of the other kinds.
  /// @{
  PropertyListValue(std::int64_t value) : storage_(value) {}            // NOLINT(google-explicit-constructor)
  PropertyListValue(double value) : storage_(value) {}                  // NOLINT(google-explicit-constructor)
  PropertyListValue(std::string value) : storage_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  /// @}
  /// Null counts as an empty text.
  PropertyListValue(const char* value)  // NOLINT(google-explicit-constructor)
      : storage_(std::string(value == nullptr ? "" : value)) {}
  PropertyListValue(std::nullptr_t) = delete;
  /// One of the other kinds.
  /// @{
  PropertyListValue(Data value) : storage_(std::move(value)) {}        // NOLINT(google-explicit-constructor)
  PropertyListValue(Date value) : storage_(value) {}                   // NOLINT(google-explicit-constructor)
  PropertyListValue(Array value) : storage_(std::move(value)) {}       // NOLINT(google-explicit-constructor)
  PropertyListValue(Dictionary value) : storage_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  /// @}

  /// The content if it is of type `T` (one of `Storage`'s alternatives), else null.
  template <class T>
  const T* as() const noexcept {
    return std::get_if<T>(&storage_);
  }

  /// The value as a Boolean: numbers other than 0 and the texts "YES", "true" and "1" are true.
  bool boolean() const noexcept;

  /// The content.
  const Storage& storage() const noexcept { return storage_; }

  friend bool operator==(const PropertyListValue& a, const PropertyListValue& b) { return a.storage_ == b.storage_; }
  friend bool operator!=(const PropertyListValue& a, const PropertyListValue& b) { return !(a == b); }

 private:
  Storage storage_;
};

/// One persistent key-value store. On Apple systems: `NSUserDefaults`.
///
/// Called from any thread; safe for use from several at once. Reads are answered from memory once the store is open.
/// Writes return when they will survive the end of the process. A read that runs while a write is going on gives the
/// old value or the new one.
class QUILLMAR_API UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  /// The value under `key`, or nothing. Throws `std::system_error` when there is a data value that cannot be read at
  /// the moment: who adds to it must not take it for absent.
  virtual std::optional<PropertyListValue> object(std::string_view key) const = 0;

  /// Stores `value` under `key` in place of what was there. On an error (full disk, locked store) the value is kept
  /// in memory, where reads see it, and written together with the next one.
  virtual std::error_code set(std::string_view key, PropertyListValue value) = 0;

  /// Forgets `key`; an absent one is no error.
  virtual std::error_code remove(std::string_view key) = 0;

  /// Whether reads are answered from memory by now. A store that is opened at its first use says no before that, and
  /// then the library does not read it on the host's thread.
  virtual bool isOpen() const noexcept;

  /// A number that is another one after each change of the value under `key`, so that what was decoded from the value
  /// can be kept. Nothing when the store cannot tell; then the value is read and decoded anew at each use.
  virtual std::optional<std::uint64_t> revision(std::string_view key) const;

  /// Replaces all behind the first `keep` bytes of the data value under `key` by `tail`. This is how a growing list
  /// is appended to at a constant price. Unlike `set`, an error leaves the stored value and what reads see alone.
  ///
  /// The standard implementation reads the value, changes it and sets it. Errors: `std::errc::invalid_argument` when
  /// there is no data value of at least `keep` bytes; else those of the store.
  virtual std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail);

  /// What `replaceDataTail` is told.
  struct DataTail {
    std::string key;
    std::size_t keep = 0;
    std::string tail;
  };

  /// Replaces the tails of several data values, each key at most once, in one step: a kill leaves all of them replaced
  /// or none, and so does an error. Errors are those of `replaceDataTail`.
  ///
  /// The standard implementation replaces one after the other and stops at the first error: what was replaced by then
  /// stays so. With it, an event may be in the history twice after a kill when `QuillmarOptions::reliableDelivery` is
  /// on.
  virtual std::error_code replaceDataTails(const std::vector<DataTail>& tails);

  /// What is behind the first `skip` bytes of the data value under `key`; nothing when there is no data value of at
  /// least `skip` bytes. Throws like `object`. A store that reads the end of a long value alone makes starts fast; the
  /// standard implementation reads it all.
  virtual std::optional<std::string> dataTail(std::string_view key, std::size_t skip) const;

  /// The Boolean under `key`; false when absent.
  bool boolean(std::string_view key) const;

  /// The text under `key`; nothing when absent or of another type.
  std::optional<std::string> string(std::string_view key) const;

  /// The date under `key`; nothing when absent or of another type.
  std::optional<PropertyListValue::Date> date(std::string_view key) const;

  /// The bytes under `key`; nothing when absent or of another type.
  std::optional<std::string> data(std::string_view key) const;
};

/// Opens settings stores. On Apple systems: the named suites and the standard user defaults.
class QUILLMAR_API UserDefaultsProvider {
 public:
  virtual ~UserDefaultsProvider() = default;

  /// The store of that name, created when it is not there; null when it cannot be opened (and is left as it is).
  /// May block on the disk. Called once a name, off the host's thread in the normal path. Throws `std::system_error`
  /// when that cannot be told for the moment (on Apple systems: before the first unlock); the next use asks again.
  virtual std::shared_ptr<UserDefaults> openSuite(const std::string& name) = 0;

  /// The app-wide store, used when the suite cannot be opened. Never null: it works in memory if it must. Throws like
  /// `openSuite`.
  virtual std::shared_ptr<UserDefaults> standard() = 0;
};

}  // namespace quillmar::platform
