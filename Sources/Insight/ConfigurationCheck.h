#pragma once

#include <string_view>

#include "Insight/Finding.h"
#include "Insight/Reachability.h"

namespace quillmar::insight {

/// Says what is wrong with a configuration: one as the service delivers it, or only its "values" and "lockWindows", as
/// they are stored. What the library would refuse is told with the library's own reason, and what can be said about the
/// rest is still said.
CheckReport checkConfiguration(std::string_view text, Effort effort = {});

}  // namespace quillmar::insight
