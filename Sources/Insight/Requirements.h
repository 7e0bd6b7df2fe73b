#pragma once

#include <vector>

#include "quillmar/ConversionValues.h"

namespace quillmar::insight {

using Requirement = ConversionValues::RequiredEvent;
using Requirements = std::vector<Requirement>;

/// The revenue counts.
bool hasRange(const Requirement& event) noexcept;

/// There are events that meet it; not when the minimum is above the maximum.
bool canBeMet(const Requirement& event) noexcept;

/// The same events meet both.
bool meanTheSame(const Requirement& a, const Requirement& b) noexcept;

/// The required events of each half that can be complete. They point into `value`.
std::vector<const Requirements*> waysToComplete(const ConversionValues::WindowValue& value);

}  // namespace quillmar::insight
