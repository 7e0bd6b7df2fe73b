#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Insight/CheckedDocument.h"
#include "Insight/Finding.h"
#include "Insight/Reachability.h"

namespace quillmar::insight {

/// Adds a finding about a place.
Finding& add(CheckReport& report, Severity severity, std::string_view code, const Place& place, std::string message,
             std::string advice);

/// The rules that have a value for a window, each with what is known of it.
struct WindowVerdicts {
  struct Entry {
    const CheckedRule* rule;
    const ConversionValues::WindowValue* value;
    Reachability reachability;
  };
  Window window;
  std::vector<Entry> entries;
};

// The parts of the check. Each adds what it finds.

/// Keys, windows, values and single requirements of each rule by itself.
void checkRules(const CheckedDocument& document, CheckReport& report);

/// The revenue ranges of rules that require the same event.
void checkRanges(const CheckedDocument& document, CheckReport& report);

/// The ranking of each window, and whether its rules can be sent.
std::vector<WindowVerdicts> checkReachability(const CheckedDocument& document, Effort effort, CheckReport& report);

/// The entries of "lockWindows".
void checkLocks(const CheckedDocument& document, const std::vector<WindowVerdicts>& verdicts, CheckReport& report);

/// What older systems, and ads signed with older versions, make of the configuration.
void checkSystems(const CheckedDocument& document, const std::vector<WindowVerdicts>& verdicts, CheckReport& report);

}  // namespace quillmar::insight
