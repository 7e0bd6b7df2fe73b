#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "Platform/Apple/Strong.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// `NSUserDefaults` for the small values, with another store beside it for what does not belong there: data values,
/// which may be long and grow, and what a property list would not give back as it was.
///
/// Small values have the types that an app of an earlier version gave them natively. A data value that such an app left
/// in the user defaults moves over when its key is first used. The move may be cut off anywhere:
///
///   1. The value is copied, unless the store beside has it already: from a move that was cut off here.
///   2. What was copied is noted beside it. From now on the value in the user defaults counts no more.
///   3. The value is taken out of the user defaults. Should that be lost, the note tells that it is a left-over, also
///      when the copy has changed or was removed since.
///
/// A value that differs from the one noted comes from an app that went back to an earlier version for a while: its
/// events are added to those that are there.
class FoundationUserDefaults : public UserDefaults {
 public:
  FoundationUserDefaults(NSUserDefaults* defaults, std::shared_ptr<UserDefaults> beside);

  std::optional<PropertyListValue> object(std::string_view key) const override;
  std::error_code set(std::string_view key, PropertyListValue value) override;
  std::error_code remove(std::string_view key) override;
  /// Nothing for a small value: others may change it.
  std::optional<std::uint64_t> revision(std::string_view key) const override;
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override;
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override;
  std::optional<std::string> dataTail(std::string_view key, std::size_t skip) const override;

 private:
  // These are called with the lock held.
  std::error_code moveData(std::string_view key) const;
  std::error_code noteAsMoved(std::string_view key) const;
  id nativeObject(std::string_view key) const;
  std::error_code setNatively(std::string_view key, id object) const;
  std::error_code removeNatively(std::string_view key) const;

  const Strong<NSUserDefaults> defaults_;
  const std::shared_ptr<UserDefaults> beside_;
  mutable std::mutex mutex_;                              ///< writes, one at a time
  mutable std::set<std::string, std::less<>> movedKeys_;  ///< whose data, if they had any, is beside
};

}  // namespace quillmar::platform
