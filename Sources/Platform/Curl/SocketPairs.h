#pragma once

#include <curl/curl.h>

namespace quillmar::platform {

// libcurl 7.88 makes socket pairs of its own and leaves them to the children of the host; nor does it say which they
// are. These find them and mark them, with libcurl's thread doing nothing else meanwhile. A descriptor of the host's is
// looked at, never changed. What is not found stays as it is.

/// The pair that wakes the handle, which nothing may have been added to yet.
void closeWakeUpPairOnExec(CURLM* multi) noexcept;

/// The pairs that name resolvers answer by.
void closeResolverPairsOnExec(CURLM* multi) noexcept;

}  // namespace quillmar::platform
