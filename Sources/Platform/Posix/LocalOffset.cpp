#include "Platform/Posix/LocalOffset.h"

#include <time.h>

namespace quillmar::platform {

std::chrono::seconds localOffset(std::chrono::system_clock::time_point instant) noexcept {
  // Only localtime is bound to read the TZ variable by itself; localtime_r is not.
  static const bool zoneIsSet = (::tzset(), true);
  static_cast<void>(zoneIsSet);
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(instant).time_since_epoch().count();
  std::tm local{};
  return std::chrono::seconds{::localtime_r(&seconds, &local) != nullptr ? local.tm_gmtoff : 0};
}

}  // namespace quillmar::platform
