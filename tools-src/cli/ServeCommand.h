#pragma once

#include <iosfwd>

#include "Options.h"
#include "StopSignal.h"

namespace quillmar::cli {

/// `quillmar serve`: the development service until somebody wants it to stop.
class ServeCommand {
 public:
  ServeCommand(ServeOptions options, const StopSignal& stop);

  /// Throws `UsageError` when the configuration or the certificate cannot be used.
  void run(std::ostream& output);

 private:
  ServeOptions options_;
  const StopSignal& stop_;
};

}  // namespace quillmar::cli
