#pragma once

#include <memory>

namespace quillmar {

/// The process that the library works in: the first one that called it. A child of `fork` has none of its threads;
/// locks may be held there by threads that stayed behind, and connections and the settings file are the parent's. So
/// the public functions do nothing in a child, and destroy nothing.
class OwnProcess {
 public:
  /// Whether this is it. Costs next to nothing, and takes no lock.
  static bool isHere() noexcept;

  /// Keeps what must not be destroyed in a child: destructors would wait for threads that are not there, and close the
  /// parent's files.
  static void abandon(std::shared_ptr<void> object) noexcept;
};

}  // namespace quillmar
