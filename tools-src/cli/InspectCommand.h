#pragma once

#include <iosfwd>

#include "Options.h"

namespace quillmar::cli {

/// `quillmar inspect`: what an install has stored, and what it would do next.
class InspectCommand {
 public:
  explicit InspectCommand(InspectOptions options);

  /// Returns the exit status. Throws `std::runtime_error` when the folder cannot be read.
  int run(std::ostream& output);

 private:
  InspectOptions options_;
};

}  // namespace quillmar::cli
