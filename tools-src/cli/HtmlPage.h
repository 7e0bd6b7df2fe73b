#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace quillmar::cli {

/// A remark on the configuration. All texts are plain ones.
struct PageFinding {
  std::string severity;  ///< "error", "warning" or "note"
  std::string code;
  int line = 0;  ///< of the configuration, from 1; 0: of none
  std::string message;
  std::string advice;  ///< may be empty
};

/// A text for the content of an element or an attribute in double quotes, whatever it holds.
std::string escaped(std::string_view text);

/// The frame of a page that needs nothing but itself, no network and no other file. `title` is a plain text.
/// @{
void beginPage(std::ostream& output, std::string_view title);
void endPage(std::ostream& output);
/// @}

/// What is to be said about the configuration, each with a link to its line, and the configuration itself.
void writeConfiguration(std::ostream& output, const std::vector<PageFinding>& findings, std::string_view configuration);

}  // namespace quillmar::cli
