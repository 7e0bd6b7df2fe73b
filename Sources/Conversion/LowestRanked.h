#pragma once

#include <vector>

#include "quillmar/ConversionValues.h"

namespace quillmar {

/// The value that is sent in a window, of those that are completed: the first, in the order of the configuration, that
/// none ranks below. The lowest wins deliberately, not the highest.
///
/// Values with and without a fine value rank in no consistent order: each may have one below it. Then it is what a
/// stable sort by insertion puts first. `completed` must not be empty.
const ConversionValues::ConversionValue* lowestRanked(
    const std::vector<const ConversionValues::ConversionValue*>& completed, Window window);

}  // namespace quillmar
