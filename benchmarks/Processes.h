#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillmar::bench {

using Figures = std::map<std::string, double>;

/// Runs a driver, a case that needs a process of its own, in one, and gives what it measured.
/// Throws `std::runtime_error` when it fails.
Figures runDriver(const std::vector<std::string>& arguments);

/// The same for another program, which prints lines "name=value".
Figures runProgram(const std::string& command);

/// The driver that `arguments` name, in this process. Throws when there is none.
Figures driver(const std::vector<std::string>& arguments);

void printFigures(const Figures& figures);

}  // namespace quillmar::bench
