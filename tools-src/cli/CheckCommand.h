#pragma once

#include <iosfwd>

#include "Options.h"

namespace quillmar::cli {

/// `quillmar check`: what is wrong with a configuration.
class CheckCommand {
 public:
  explicit CheckCommand(CheckOptions options);

  /// Returns the exit status. `input` has the configuration when the options say so. Throws `UsageError` when the file
  /// cannot be read.
  int run(std::istream& input, std::ostream& output);

 private:
  CheckOptions options_;
};

}  // namespace quillmar::cli
