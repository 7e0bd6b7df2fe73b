#pragma once

#include <iosfwd>

#include "Options.h"

namespace quillmar::cli {

/// `quillmar simulate`: an install's whole life on a virtual clock.
class SimulateCommand {
 public:
  explicit SimulateCommand(SimulateOptions options);

  /// Returns the exit status. Throws `UsageError` when the configuration cannot be used.
  int run(std::istream& input, std::ostream& output, std::ostream& errors);

 private:
  SimulateOptions options_;
};

}  // namespace quillmar::cli
