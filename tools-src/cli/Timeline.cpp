#include "Timeline.h"

#include <fmt/ostream.h>

#include <algorithm>

#include "Duration.h"

namespace quillmar::cli {
namespace {

using std::chrono::seconds;

constexpr seconds day{86400};
/// Where the library's windows begin, and the last ends.
constexpr seconds libraryBounds[] = {0 * day, 3 * day, 8 * day, 36 * day};

double share(seconds part, seconds whole) {
  return std::clamp(static_cast<double>(part.count()) / static_cast<double>(whole.count()), 0.0, 1.0);
}

}  // namespace

Timeline::Timeline(std::ostream& output, seconds end) : output_(output), end_(std::max(end, libraryBounds[3] + day)) {}

double Timeline::at(seconds time) const {
  constexpr double width = (afterwards - left) / 3;
  for (int window = 0; window < 3; ++window) {
    const seconds begin = libraryBounds[window];
    if (const seconds next = libraryBounds[window + 1]; time <= next) {
      return left + width * window + width * share(time - begin, next - begin);
    }
  }
  return afterwards + (right - afterwards) * share(time - libraryBounds[3], end_ - libraryBounds[3]);
}

void Timeline::begin(double height, std::string_view label) const {
  fmt::print(output_,
             "<div class=\"wide\"><svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1000 {}\" role=\"group\" "
             "aria-label=\"{}\">\n",
             height, label);
}

void Timeline::end() const {
  fmt::print(output_, "</svg></div>\n");
}

void Timeline::drawWindow(double top, int window, seconds begin, seconds end) const {
  const double x = at(begin);
  fmt::print(output_,
             "<rect class=\"band{}\" x=\"{:.1f}\" y=\"{}\" width=\"{:.1f}\" height=\"22\"/>"
             "<text x=\"{:.1f}\" y=\"{}\">window {} from {}</text>\n",
             window == 1 ? " other" : "", x, top, at(end) - x, x + 6, top + 16, window, formatDuration(begin));
}

void Timeline::drawLibraryWindows() const {
  fmt::print(output_, "<text x=\"0\" y=\"26\">library</text>\n");
  for (int window = 0; window < 3; ++window) {
    drawWindow(10, window, libraryBounds[window], libraryBounds[window + 1]);
  }
}

}  // namespace quillmar::cli
