#pragma once

#include <string>

#include "service/ServiceLogic.h"

namespace quillmar::cli {

/// What is in the file at `path`. Throws `UsageError`, beginning with `option`, when it cannot be read.
std::string readConfiguration(const std::string& option, const std::string& path);

/// A service that delivers the conversion values of the file at `path`. `options` has all but these. Throws
/// `UsageError`, naming the option --config of `command`, when the file cannot be read or is not valid.
service::ServiceLogic makeServiceLogic(const std::string& command, const std::string& path,
                                       service::ServiceOptions options);

}  // namespace quillmar::cli
