#include "Duration.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace quillmar::cli {
namespace {

constexpr std::array<std::pair<char, std::int64_t>, 4> units{{{'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}}};
constexpr std::int64_t longest = 36525LL * 86400;

}  // namespace

std::optional<std::chrono::seconds> parseDuration(std::string_view text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    text.remove_prefix(1);
  }
  if (text.empty()) {
    return std::nullopt;
  }
  std::int64_t total = 0;
  auto unit = units.begin();
  while (!text.empty()) {
    std::uint32_t count = 0;  // unsigned, so that a second sign is refused
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc{}) {
      return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    while (unit != units.end() && (text.empty() || unit->first != text.front())) {
      ++unit;
    }
    if (unit == units.end()) {
      return std::nullopt;
    }
    total += static_cast<std::int64_t>(count) * unit->second;
    if (total > longest) {
      return std::nullopt;
    }
    ++unit;
    text.remove_prefix(1);
  }
  return std::chrono::seconds(negative ? -total : total);
}

std::string formatDuration(std::chrono::seconds duration) {
  std::int64_t rest = duration.count();
  std::string text;
  if (rest < 0) {
    text += '-';
    rest = -rest;
  }
  for (const auto& [letter, seconds] : units) {
    if (const std::int64_t count = rest / seconds; count > 0) {
      text += std::to_string(count) + letter;
      rest %= seconds;
    }
  }
  return text.empty() ? "0s" : text;
}

}  // namespace quillmar::cli
