#pragma once

#include <memory>
#include <string_view>

#include "quillmar/platform/Platform.h"

namespace quillmar {

/// Removes everything that the library has stored. A mark is set first and removed last: an erasure that was cut off is
/// done again where the mark is found.
class Erasure {
 public:
  static constexpr std::string_view markKey = "com.quillmar.erasing";

  Erasure(const platform::Platform& platform, std::shared_ptr<platform::UserDefaults> userDefaults);

  /// Sets the mark.
  void begin() const;
  /// Removes all, and the mark when nothing is left. Nothing else may write meanwhile.
  void run() const;
  /// Does it again if it was cut off.
  void finish() const;

 private:
  bool removeFiles() const;
  bool removeKept() const;
  void removeSettings() const;

  const std::shared_ptr<platform::FileManager> files_;
  const std::shared_ptr<platform::Clock> clock_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<platform::UserDefaults> suite_;  ///< mostly the same
};

}  // namespace quillmar
