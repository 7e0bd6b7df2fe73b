#pragma once

#include <boost/json/object.hpp>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Insight/Finding.h"

namespace quillmar::cli {

/// Writes findings to be read, as compilers do; `file` is where the configuration is from. Only those that are at least
/// so severe.
void writeFindings(const std::string& file, const insight::CheckReport& report, insight::Severity least,
                   std::ostream& output);

boost::json::object toJson(const insight::Finding& finding);

/// "1 error", "2 errors".
std::string counted(std::size_t count, std::string_view what);

}  // namespace quillmar::cli
