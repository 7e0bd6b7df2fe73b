#include "Promises.h"

// What libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quillmar::fuzz::look({reinterpret_cast<const char*>(data), size});
  return 0;
}
