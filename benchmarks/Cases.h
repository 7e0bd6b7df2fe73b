#pragma once

#include <map>
#include <string>

namespace quillmar::bench {

/// Seconds an iteration by the name of the case: the median of several runs in random order.
using Timings = std::map<std::string, double>;

/// Runs the Google Benchmark cases that the expression fits: each is one operation on one thread, or a baseline.
Timings runCases(const std::string& filter = ".");

}  // namespace quillmar::bench
