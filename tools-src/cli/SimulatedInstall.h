#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CountingTransport.h"
#include "InputLines.h"
#include "Options.h"
#include "quillmar/Quillmar.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "service/ServiceLogic.h"

namespace quillmar::cli {

/// The value that was sent last, as the library remembers it.
struct SentValue {
  std::string key;
  int fineValue = 0;
  std::optional<std::string> coarseValue;
  std::vector<std::string> completedEvents;  ///< sorted
};

/// What came of one step.
struct StepResult {
  std::chrono::seconds at{0};  ///< since the first launch
  std::optional<int> window;
  std::optional<int> platformWindow;  ///< nothing for ads that have no windows
  QuillmarStatistics change;          ///< what the step added
  std::vector<simulated::PlatformCall> calls;
  std::vector<Decision> decisions;  ///< on the events that left the pipeline
  std::optional<SentValue> sent;    ///< when the remembered value was replaced
};

/// An install on a virtual clock, with its service in the same process.
class SimulatedInstall {
 public:
  static platform::Clock::TimePoint firstLaunch();

  /// Replaces the process's shared platform.
  SimulatedInstall(service::ServiceLogic logic, const SimulateOptions& options);

  /// Lets the time pass, up to `at` after the first launch; what the library does on its own meanwhile is the result.
  StepResult advanceTo(std::chrono::seconds at);

  /// Does the step and all that follows from it at this moment.
  StepResult perform(const Step& step);

  const Quillmar& quillmar() const noexcept { return *quillmar_; }
  /// The platform's rules, with all calls so far.
  simulated::PostbackRules rules() const { return simulated_.adNetwork->rules(); }
  std::map<std::string, std::uint64_t> requestCounts() const { return transport_->counts(); }

 private:
  StepResult settle();

  simulated::SimulatedPlatform simulated_;
  std::shared_ptr<CountingTransport> transport_;
  std::shared_ptr<simulated::InMemoryUserDefaults> settings_;
  std::shared_ptr<Quillmar> quillmar_;
  QuillmarStatistics statistics_;
  std::size_t callsSeen_ = 0;
  std::optional<std::uint64_t> valueSeen_;
  std::vector<Decision> decisions_;
};

}  // namespace quillmar::cli
