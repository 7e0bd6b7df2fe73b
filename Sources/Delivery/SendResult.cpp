#include "Delivery/SendResult.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "Logging/ErrorDescription.h"
#include "Network/NetworkManager.h"

namespace quillmar {

namespace {

using std::chrono::seconds;

constexpr seconds longestWait = std::chrono::hours(24);

/// Digits and nothing else.
std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc{} && end == text.data() + text.size() && number >= 0;
  return isNumber ? std::optional(number) : std::nullopt;
}

/// "Sun, 06 Nov 1994 08:49:37 GMT", the one form that is still written.
std::optional<std::chrono::sys_seconds> httpDate(std::string_view text) {
  constexpr std::array<std::string_view, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (text.size() != 29 || text.substr(3, 2) != ", " || text.substr(25) != " GMT") {
    return std::nullopt;
  }
  const auto number = [text](std::size_t at, std::size_t count) { return wholeNumber(text.substr(at, count)); };
  const auto month = std::find(months.begin(), months.end(), text.substr(8, 3));
  const auto day = number(5, 2);
  const auto year = number(12, 4);
  const auto hour = number(17, 2);
  const auto minute = number(20, 2);
  const auto second = number(23, 2);
  if (month == months.end() || !day || !year || !hour || !minute || !second) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(*year)),
                                         std::chrono::month(static_cast<unsigned>(month - months.begin()) + 1),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  return std::chrono::sys_days(date) + std::chrono::hours(*hour) + std::chrono::minutes(*minute) + seconds(*second);
}

SendResult::Verdict verdictOf(int status) {
  using enum SendResult::Verdict;
  switch (status) {
    case 401:
    case 403:
      return unauthorized;
    case 404:
    case 408:
    case 425:
    case 429:
      return passes;
    default:
      return status >= 400 && status <= 499 ? refused : passes;
  }
}

}  // namespace

std::chrono::seconds retryAfterOf(std::string_view header, platform::Clock::TimePoint now) {
  if (const auto count = wholeNumber(header)) {
    return seconds(std::min<std::int64_t>(*count, longestWait.count()));
  }
  const auto date = httpDate(header);
  // In whole seconds: a date may lie beyond what the clock can count.
  return date ? std::clamp(*date - std::chrono::floor<seconds>(now), seconds(0), longestWait) : seconds(0);
}

SendResult resultOf(const std::exception_ptr& failure, platform::Clock::TimePoint now) {
  SendResult result{SendResult::Verdict::passes, textualDescription(failure)};
  try {
    std::rethrow_exception(failure);
  } catch (const HttpStatusError& error) {
    result.verdict = verdictOf(error.status());
    result.why += " (status " + std::to_string(error.status()) + ")";
    result.retryAfter = retryAfterOf(error.retryAfter(), now);
  } catch (...) {  // the network, or what came is no answer of the service: described above
  }
  return result;
}

}  // namespace quillmar
