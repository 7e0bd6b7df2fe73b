#include "Logging/Log.h"

#include <array>
#include <chrono>
#include <iterator>
#include <mutex>
#include <string>

namespace quillmar {

namespace {

constexpr std::string_view subsystem = "tech.quill-mar.quillmar";
constexpr std::string_view category = "QuillmarSDK";

/// "MMM d, HH:mm:ss:SSSZ", with English month names; in UTC when the platform's clock is gone.
std::string formatTimestamp(const std::shared_ptr<platform::Clock>& clock) {
  static constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  using namespace std::chrono;
  const auto instant = clock != nullptr ? clock->now() : system_clock::now();
  const auto offset = clock != nullptr ? clock->localOffset(instant) : seconds(0);
  const auto local = floor<milliseconds>(instant) + offset;
  const auto midnight = floor<days>(local);
  const year_month_day date{midnight};
  const hh_mm_ss time{local - midnight};
  const auto minutesOff = duration_cast<minutes>(abs(offset)).count();
  return fmt::format("{} {}, {:02}:{:02}:{:02}:{:03}{}{:02}{:02}", months[static_cast<unsigned>(date.month()) - 1],
                     static_cast<unsigned>(date.day()), time.hours().count(), time.minutes().count(),
                     time.seconds().count(), time.subseconds().count(), offset.count() < 0 ? '-' : '+', minutesOff / 60,
                     minutesOff % 60);
}

platform::LogSeverity severityOf(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::info:
      return platform::LogSeverity::info;
    case LogLevel::debug:
      return platform::LogSeverity::debug;
    default:
      return platform::LogSeverity::error;
  }
}

/// Where lines go, and the clock of the timestamp. The clock belongs to a platform that the log must not keep alive.
struct Output {
  std::mutex mutex;
  std::shared_ptr<platform::LogSink> sink;
  std::weak_ptr<platform::Clock> clock;
};

Output& output() noexcept {
  static Output& instance = *new Output;  // never destroyed: lines may come until the very end
  return instance;
}

std::shared_ptr<platform::LogSink> currentSink() {
  const std::lock_guard lock(output().mutex);
  return output().sink;
}

std::shared_ptr<platform::Clock> currentClock() {
  const std::lock_guard lock(output().mutex);
  return output().clock.lock();
}

}  // namespace

void Log::setSink(std::shared_ptr<platform::LogSink> sink, const std::shared_ptr<platform::Clock>& clock) noexcept {
  const std::lock_guard lock(output().mutex);
  output().sink.swap(sink);
  output().clock = clock;
}

void Log::composeAndLog(LogLevel level, fmt::string_view format, fmt::format_args arguments,
                        LineEnds lineEnds) noexcept {
  try {
    const std::shared_ptr<platform::LogSink> sink = currentSink();
    if (!sink) {
      return;
    }
    // Computed once for the process, and never destroyed.
    static const std::string& prefix =
        *new std::string(fmt::format("[Quillmar] - [{}] ", formatTimestamp(currentClock())));
    fmt::memory_buffer line;
    line.append(prefix);
    fmt::vformat_to(std::back_inserter(line), format, arguments);
    const std::string_view text(line.data(), line.size());
    if (mayHoldControls(text)) {
      sink->write(subsystem, category, severityOf(level), withoutControls(text, lineEnds));
    } else {
      sink->write(subsystem, category, severityOf(level), text);
    }
  } catch (...) {  // a line that cannot be composed or written is lost; logging never fails
  }
}

}  // namespace quillmar
