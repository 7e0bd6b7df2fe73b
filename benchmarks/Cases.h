#pragma once

#include <map>
#include <string>

namespace quillmar::bench {

/// Seconds an iteration by the name of the case: the median of several runs in random order.
using Timings = std::map<std::string, double>;

/// Runs the Google Benchmark cases: everything that is one operation on one thread, and the baselines.
Timings runCases();

}  // namespace quillmar::bench
