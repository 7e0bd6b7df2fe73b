#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "Insight/Finding.h"

namespace quillmar::cli {

/// A text for the content of an element or an attribute in double quotes, whatever it holds.
std::string escaped(std::string_view text);

/// The frame of a page that needs nothing but itself, no network and no other file. `title` is a plain text.
/// @{
void beginPage(std::ostream& output, std::string_view title);
void endPage(std::ostream& output);
/// @}

/// A table of plain texts. The first cell of a row names it. `head` may be empty.
void writeTable(std::ostream& output, const std::vector<std::string>& head,
                const std::vector<std::vector<std::string>>& rows);

/// What there is to say about the configuration, each finding with a link to its line, and the configuration itself.
void writeConfiguration(std::ostream& output, const std::vector<insight::Finding>& findings,
                        std::string_view configuration);

}  // namespace quillmar::cli
