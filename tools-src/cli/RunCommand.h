#pragma once

#include <iosfwd>
#include <memory>

#include "InputLines.h"
#include "Options.h"
#include "StopSignal.h"
#include "quillmar/Quillmar.h"

namespace quillmar::cli {

/// `quillmar run`: a host app that does what its input says, in real time.
class RunCommand {
 public:
  RunCommand(RunOptions options, const StopSignal& stop);

  /// Returns the exit status. Nothing is written to the streams afterwards. Throws `std::runtime_error` when the
  /// embedded service cannot be started. Replaces the process's shared platform.
  int run(std::istream& input, std::ostream& output, std::ostream& errors);

 private:
  struct Host;

  void configure(Quillmar& quillmar, const std::string& key) const;
  void perform(const Step& step, const Host& host) const;
  void switchAttribution(bool enable, const Host& host) const;
  template <class Facade>
  void settle(Facade& facade) const;

  RunOptions options_;
  const StopSignal& stop_;
};

}  // namespace quillmar::cli
