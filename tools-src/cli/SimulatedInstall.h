#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CountingTransport.h"
#include "InputLines.h"
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
  QuillmarStatistics change;  ///< what the step added
  std::vector<simulated::PlatformCall> calls;
  std::optional<SentValue> sent;  ///< when the remembered value was replaced
};

/// An install on a virtual clock, with its service in the same process.
class SimulatedInstall {
 public:
  static platform::Clock::TimePoint firstLaunch();

  /// The service is down for so long. Replaces the process's shared platform.
  SimulatedInstall(service::ServiceLogic logic, const std::string& osVersion, std::chrono::seconds serviceDown,
                   const QuillmarOptions& options);

  /// Lets the time pass, up to `at` after the first launch; what the library does on its own meanwhile is the result.
  StepResult advanceTo(std::chrono::seconds at);

  /// Does the step and all that follows from it at this moment.
  StepResult perform(const Step& step);

  const Quillmar& quillmar() const noexcept { return *quillmar_; }
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
};

}  // namespace quillmar::cli
