#pragma once

#include <array>
#include <chrono>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "InputLines.h"
#include "Options.h"
#include "SimulatedInstall.h"

namespace quillmar::cli {

/// Tells of a simulated life: step by step, and in the end what each window came to.
class SimulationReport {
 public:
  virtual ~SimulationReport() = default;

  /// `name` is what happened: "first launch", "event", "activate", "reset", "configure", "consent", "no consent" or
  /// "meanwhile"; `event` is the event, if it was one.
  void step(const std::string& name, const EventStep* event, const StepResult& result, const QuillmarState& state);

  virtual void begin(const SimulateOptions& options, const SimulatedInstall& install) = 0;
  virtual void end(const SimulatedInstall& install) = 0;

 protected:
  struct Window {
    std::optional<SentValue> last;
    std::size_t calls = 0;
    std::optional<std::chrono::seconds> lockedAt;  ///< the first time
  };

  static bool locks(const StepResult& result);
  const std::array<Window, 3>& windows() const noexcept { return windows_; }

 private:
  virtual void write(const std::string& name, const EventStep* event, const StepResult& result,
                     const QuillmarState& state) = 0;

  std::array<Window, 3> windows_;
};

/// JSON Lines, the last of which is {"final":{...}}. The stream must outlive the report, of this and of the next.
std::unique_ptr<SimulationReport> makeJsonReport(std::ostream& output);

/// A page for a browser, written at the end. `configuration` is its text as the user wrote it.
std::unique_ptr<SimulationReport> makeHtmlReport(std::ostream& output, std::string configuration);

/// A table to read.
std::unique_ptr<SimulationReport> makeTextReport(std::ostream& output);

}  // namespace quillmar::cli
