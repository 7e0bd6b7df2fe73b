#pragma once

#include <iosfwd>

#include "Options.h"
#include "StopSignal.h"

namespace quillmar::cli {

/// `quillmar serve`: the development service until somebody wants it to stop.
class ServeCommand {
 public:
  ServeCommand(ServeOptions options, const StopSignal& stop);

  /// Returns the exit status. Throws `UsageError` when the configuration or the certificate cannot be used.
  int run(std::ostream& output, std::ostream& errors);

 private:
  ServeOptions options_;
  const StopSignal& stop_;
};

}  // namespace quillmar::cli
