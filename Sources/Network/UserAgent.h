#pragma once

#include <string>

#include "quillmar/platform/Bundle.h"

namespace quillmar {

/// "app/1.0 quillmar/2.0.0": the host, as its bundle names it, and the library. What a product's name may not hold is
/// percent-escaped, so that no text of a host ends its product, or the header.
std::string userAgentOf(const platform::Bundle& bundle);

}  // namespace quillmar
