#pragma once

#include <pthread.h>

namespace quillmar::platform {

/// Names the calling thread for debuggers and profilers, in at most 15 characters.
inline void nameThisThread(const char* name) noexcept {
#ifdef __APPLE__
  pthread_setname_np(name);
#else
  pthread_setname_np(pthread_self(), name);
#endif
}

}  // namespace quillmar::platform
