#pragma once

#include <iosfwd>
#include <string>

#include "Insight/Finding.h"

namespace quillmar::cli {

/// Writes findings to be read, as compilers do; `file` is where the configuration is from. Only those that are at least
/// so severe.
void writeFindings(const std::string& file, const insight::CheckReport& report, insight::Severity least,
                   std::ostream& output);

}  // namespace quillmar::cli
