#pragma once

#include <cstddef>
#include <cstdint>

/// A target: looks what the code makes of any bytes, and ends the process when a promise is broken. libFuzzer, or the
/// replay of the corpus, calls it over and over in one process. The result is always 0; the name is libFuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
