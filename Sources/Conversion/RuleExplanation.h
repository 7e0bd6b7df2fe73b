#pragma once

#include <string>

#include "Conversion/Completion.h"
#include "quillmar/ConversionValues.h"
#include "quillmar/Decision.h"

namespace quillmar {

/// What is complete and what is missing of a rule's value in a window.
Decision::Rule explained(const std::string& key, const ConversionValues::WindowValue& value,
                         const RevenuesByName& history, SingleBound single = SingleBound::ignored);

}  // namespace quillmar
