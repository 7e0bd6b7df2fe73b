#pragma once

#include <string>

namespace quillmar {

/// A fresh random UUID (version 4) in its canonical text form, upper case. Throws `std::system_error` when the system
/// gives no random bytes.
std::string makeUuid();

}  // namespace quillmar
