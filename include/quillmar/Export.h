#pragma once

/// Marks what the shared library offers; everything else in it is hidden, so that the libraries that it is built with
/// cannot meet the host's own copies of them.
#if defined(_WIN32)
#define QUILLMAR_API
#else
#define QUILLMAR_API __attribute__((visibility("default")))
#endif
