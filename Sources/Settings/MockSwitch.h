#pragma once

namespace quillmar {

/// The switch of the process that puts a built-in document in the place of the network. Read whenever a network
/// manager is made. Any thread; off at first.
struct MockSwitch {
  MockSwitch() = delete;

  static bool isOn() noexcept;
  static void set(bool on) noexcept;
};

}  // namespace quillmar
