#pragma once

#include <iosfwd>

#include "Options.h"
#include "StopSignal.h"

namespace quillmar::cli {

/// `quillmar serve`: the development service until somebody wants it to stop.
class ServeCommand {
 public:
  ServeCommand(ServeOptions options, const StopSignal& stop);

  /// `errors` gets what is wrong with the configuration. Throws `UsageError` when that or the certificate cannot be
  /// used.
  void run(std::ostream& output, std::ostream& errors);

 private:
  ServeOptions options_;
  const StopSignal& stop_;
};

}  // namespace quillmar::cli
