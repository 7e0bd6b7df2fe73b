#pragma once

#include <atomic>
#include <string>

namespace quillmar::platform {

/// Tells whether the device has been unlocked since it started. Before that an app that the system starts in the
/// background finds its user defaults empty, and must not take that for a first run.
///
/// The test is a file that is protected as the user defaults are: it can be read, or created, from the first unlock on.
/// Unlike UIKit's answer, it can be had on any thread and in extensions, and stays yes while the device is locked
/// again.
class FirstUnlock {
 public:
  /// The file is in that folder, which is created when it is not there. Without a folder the answer is yes.
  explicit FirstUnlock(std::string folder);

  /// Touches the disk until the answer is yes. Any thread.
  bool hasHappened();

 private:
  const std::string folder_;
  std::atomic<bool> happened_{false};
};

}  // namespace quillmar::platform
