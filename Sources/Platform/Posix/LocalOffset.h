#pragma once

#include <chrono>

namespace quillmar::platform {

/// How far the local time zone is ahead of UTC at `instant`; see `Clock::localOffset`.
std::chrono::seconds localOffset(std::chrono::system_clock::time_point instant) noexcept;

}  // namespace quillmar::platform
