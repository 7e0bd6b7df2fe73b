#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Insight/InstallInspection.h"

namespace quillmar::cli {

// What is known of an install, in words. Names and texts from its files are as they came.

/// A line of the text, a row of a table on the page.
struct Fact {
  std::string name;
  std::string content;
};

/// The install itself and its configuration: what it is.
std::vector<Fact> identityOf(const insight::InstallReport& report);

/// Where it stands: the last value, the attribution, what is complete.
std::vector<Fact> stateOf(const insight::InstallReport& report);

/// By what the next event is, what it would send.
std::vector<Fact> outlookOf(const insight::InstallReport& report);

/// "2 with revenue from 5 to 60, 65 in all"; empty when none has a revenue.
std::string revenuesOf(const insight::InstallReport::Events& events);

/// All of it as lines to read. `folder` is where the install is.
void writeInstall(std::ostream& output, const insight::InstallReport& report, const std::string& folder);

}  // namespace quillmar::cli
