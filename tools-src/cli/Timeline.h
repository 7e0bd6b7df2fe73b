#pragma once

#include <chrono>
#include <iosfwd>
#include <string_view>

namespace quillmar::cli {

/// An install's life as a picture, in SVG: time runs from left to right, in seconds since the first launch. The picture
/// is 1000 units wide.
class Timeline {
 public:
  /// Where time begins, where the library's last window is over, and where the picture ends.
  static constexpr double left = 110, afterwards = 870, right = 990;

  /// What is drawn ends at `end`, if that is later than the library's last window.
  Timeline(std::ostream& output, std::chrono::seconds end);

  /// Where a moment is. Each window of the library is as wide as the others, and what follows is narrow.
  double at(std::chrono::seconds time) const;

  /// What is drawn between the two is in the picture. `label` says what it shows.
  /// @{
  void begin(double height, std::string_view label) const;
  void end() const;
  /// @}

  void drawWindow(double top, int window, std::chrono::seconds begin, std::chrono::seconds end) const;
  /// The first row: from 10 to 32.
  void drawLibraryWindows() const;

 private:
  std::ostream& output_;
  std::chrono::seconds end_;
};

}  // namespace quillmar::cli
