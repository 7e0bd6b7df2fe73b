#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CheckCommand.h"
#include "InspectCommand.h"
#include "InterruptibleInput.h"
#include "Logging/Controls.h"
#include "Options.h"
#include "RunCommand.h"
#include "ServeCommand.h"
#include "SimulateCommand.h"
#include "StopSignal.h"

namespace {

using namespace quillmar::cli;

constexpr int failed = 1;
constexpr int unusableOptions = 2;

/// The input of a command, open as long as the object lives.
class InputFile {
 public:
  InputFile(const std::string& command, const std::string& path) {
    if (path != "-") {
      descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (descriptor_ < 0) {
      throw UsageError(command + ": --events: cannot read " + path + ": " + std::strerror(errno));
    }
  }
  ~InputFile() {
    if (descriptor_ != STDIN_FILENO) {
      close(descriptor_);
    }
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  int descriptor() const noexcept { return descriptor_; }

 private:
  int descriptor_ = STDIN_FILENO;
};

int complain(const std::exception& error, int status) {
  std::cerr << "quillmar: " << quillmar::withoutControls(error.what()) << std::endl;
  return status;
}

int run(const RunOptions& options) {
  StopSignal stop;
  stop.listenForSignals();
  const InputFile file("run", options.events);
  InterruptibleInput buffer(file.descriptor(), stop);
  std::istream input(&buffer);
  return RunCommand(options, stop).run(input, std::cout, std::cerr);
}

int run(const ServeOptions& options) {
  StopSignal stop;
  stop.listenForSignals();
  ServeCommand(options, stop).run(std::cout, std::cerr);
  return 0;
}

int run(const SimulateOptions& options) {
  const StopSignal never;
  const InputFile file("simulate", options.events);
  InterruptibleInput buffer(file.descriptor(), never);
  std::istream input(&buffer);
  return SimulateCommand(options).run(input, std::cout, std::cerr);
}

int run(const CheckOptions& options) {
  return CheckCommand(options).run(std::cin, std::cout);
}

int run(const InspectOptions& options) {
  return InspectCommand(options).run(std::cout);
}

int run(const Information& information) {
  std::cout << information.text << std::flush;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Command command = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    const int status = std::visit([](const auto& options) { return run(options); }, command);
    if (!std::cout) {
      throw std::runtime_error("the output could not be written");
    }
    return status;
  } catch (const UsageError& error) {
    return complain(error, unusableOptions);
  } catch (const std::exception& error) {
    return complain(error, failed);
  }
}
