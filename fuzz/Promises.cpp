#include "Promises.h"

#include <cstdio>
#include <cstdlib>

namespace quillmar::fuzz {

void require(bool kept, const char* promise) {
  if (!kept) {
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
  }
}

}  // namespace quillmar::fuzz
