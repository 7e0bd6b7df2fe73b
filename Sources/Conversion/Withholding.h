#pragma once

#include <optional>

#include "Conversion/LastWindowValue.h"
#include "quillmar/Decision.h"
#include "quillmar/QuillmarOptions.h"

namespace quillmar {

/// Whether what is withheld depends on the last value, whose window has to be remembered then.
bool comparesWithLast(const QuillmarOptions& options) noexcept;

/// By which of the options a value, resolved before, is not sent in its window after the last one; nothing: it is sent.
/// A last value whose window is not known is that of another window.
std::optional<Decision::Outcome> whyWithheld(const ConversionValues::ConversionValue& value, Window window,
                                             bool forceLockWindow, const std::optional<LastWindowValue>& last,
                                             const QuillmarOptions& options);

}  // namespace quillmar
