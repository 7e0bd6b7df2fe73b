#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillmar::insight {

enum class Severity : std::uint8_t {
  note,     ///< worth knowing
  warning,  ///< it probably does something else than its author thinks
  error,    ///< it cannot do what it says
};

/// "note", "warning", "error".
std::string_view nameOf(Severity severity) noexcept;

/// Something to say about a configuration, in the words of the person who writes it.
struct Finding {
  Severity severity = Severity::note;
  std::string_view code;                  ///< what kind of finding, the same in all versions: "unreachable"
  std::string path;                       ///< the JSON path, from "$"
  std::size_t line = 0;                   ///< counted from 1
  std::string message;                    ///< what will happen
  std::string advice;                     ///< what to do
  std::optional<std::string> shadowedBy;  ///< of an unreachable rule: the key of the one that is sent in its place
};

/// What there is to say about a configuration.
struct CheckReport {
  bool usable = true;             ///< the library would take the configuration
  std::vector<Finding> findings;  ///< in the order of the lines

  std::size_t count(Severity severity) const noexcept;
};

}  // namespace quillmar::insight
