#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "Insight/InstallInspection.h"

namespace quillmar::cli {

/// What is known of an install as a page for a browser. `folder` is where it is; `configuration` is the text of its
/// configuration, if it has one.
void writeInstallPage(std::ostream& output, const insight::InstallReport& report, const std::string& folder,
                      std::string_view configuration);

}  // namespace quillmar::cli
