#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Conversion/PostbackWindows.h"
#include "Insight/Checks.h"

namespace quillmar::insight {

namespace {

/// When the platform's windows are over, in hours since the first launch. They are documented to last 48, 120 and 672.
constexpr std::array<std::int64_t, 3> platformEnds{48, 48 + 120, 48 + 120 + 672};

/// For its last hours the library's window 0 or 1 is the platform's next one.
void tellOfNextWindow(const CheckedLock& lock, Window window, Severity severity, std::string_view whatLocks,
                      std::string_view advice, CheckReport& report) {
  const auto next = static_cast<std::size_t>(window) + 1;
  if (next < allWindows.size()) {
    add(report, severity, "lock-next-window", lock.place,
        fmt::format("From hour {0} to hour {1} the library is still in {2}, the platform in {3} already. {4} in these "
                    "hours locks {3}, and what comes for that is lost.",
                    platformEnds[next - 1], windowEnd(window) * 24, lock.window, rawValue(allWindows[next]), whatLocks),
        std::string(advice));
  }
}

void checkTime(const CheckedLock& lock, Window window, CheckReport& report) {
  if (!lock.value.value) {
    add(report, Severity::error, "lock-without-hours", lock.place,
        fmt::format("A lock of type \"time\" without hours never locks {}.", lock.window),
        "Give it a \"value\": the number of hours.");
    return;
  }
  const std::int64_t hours = *lock.value.value;
  // The library counts whole days.
  const std::int64_t start = windowStart(window) * 24;
  const std::int64_t length = windowEnd(window) * 24 - start;
  const std::int64_t platformLength = platformEnds[static_cast<std::size_t>(window)] - start;
  const Place place = lock.place.member("value");
  const std::string leaveItOut = "Leave the lock out: the value is final when the platform's window ends.";
  const std::string advice =
      window == Window::window2 ? fmt::format("Choose less than {} hours.", platformLength) : leaveItOut;
  if (hours >= length) {
    add(report, Severity::error, "lock-after-window", place,
        fmt::format("The library counts {} for {} hours, so a lock after {} hours never comes.", lock.window, length,
                    hours),
        advice);
  } else if (hours >= platformLength) {
    add(report, Severity::warning, "lock-after-window", place,
        fmt::format(
            "The platform, which counts in hours, ends {} {} hours after the library begins it. A lock after {} "
            "hours comes too late for it{}.",
            lock.window, platformLength, hours,
            window == Window::window2 ? "" : ", and locks the next window with the value of this one"),
        advice);
  } else {
    tellOfNextWindow(lock, window, Severity::warning, "A lock by time is sent again at each refresh; a refresh",
                     leaveItOut, report);
  }
  if (hours <= 0) {
    add(report, Severity::warning, "lock-at-once", place,
        fmt::format("A lock after {} hours locks {} at the first refresh, with the value of the update before, "
                    "whichever window that was for.",
                    hours, lock.window),
        "Choose a number of hours in which values of this window can come.");
  }
}

void checkHigh(const CheckedLock& lock, const WindowVerdicts& verdicts, bool allRulesAreKnown, CheckReport& report) {
  if (lock.value.value) {
    add(report, Severity::warning, "lock-hours-ignored", lock.place.member("value"),
        fmt::format("Hours do not count for a lock of type \"high\": {} is locked by a rule with \"high\" only.",
                    lock.window),
        "Leave them out, or make the type \"time\".");
  }
  const auto canLock = [](const WindowVerdicts::Entry& entry) {
    const auto verdict = entry.reachability.verdict;
    return entry.value->coarseValue && entry.value->coarseValue->value == CoarseValue::high &&
           verdict != Reachability::Verdict::dead && verdict != Reachability::Verdict::neverComplete;
  };
  if (allRulesAreKnown && std::none_of(verdicts.entries.begin(), verdicts.entries.end(), canLock)) {
    add(report, Severity::error, "lock-never", lock.place,
        fmt::format("No rule that can be sent in {} has the coarse value \"high\", so the window is never locked.",
                    lock.window),
        "Give a rule that can be sent the coarse value \"high\", or make the type \"time\".");
  } else {
    tellOfNextWindow(lock, verdicts.window, Severity::note, "An event that is sent as \"high\"",
                     "Leave it, if an earlier postback is worth that.", report);
  }
}

}  // namespace

void checkLocks(const CheckedDocument& document, const std::vector<WindowVerdicts>& verdicts, CheckReport& report) {
  const bool allRulesAreKnown = report.usable;
  for (const CheckedLock& lock : document.locks) {
    const auto window = windowFromRawValue(lock.window);
    if (!window) {
      continue;  // told with the names
    }
    if (lock.value.type == ConversionValues::LockWindowType::time) {
      checkTime(lock, *window, report);
    } else {
      checkHigh(lock, verdicts[static_cast<std::size_t>(*window)], allRulesAreKnown, report);
    }
  }
}

}  // namespace quillmar::insight
