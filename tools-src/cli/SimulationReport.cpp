#include "SimulationReport.h"

#include <algorithm>

namespace quillmar::cli {

void SimulationReport::step(const std::string& name, const EventStep* event, const StepResult& result,
                            const QuillmarState& state) {
  if (result.window) {
    Window& window = windows_.at(static_cast<std::size_t>(*result.window));
    window.calls += result.calls.size();
    if (result.sent) {
      window.last = result.sent;
    }
    if (!window.lockedAt && locks(result)) {
      window.lockedAt = result.at;
    }
  }
  write(name, event, result, state);
}

bool SimulationReport::locks(const StepResult& result) {
  return std::any_of(result.calls.begin(), result.calls.end(),
                     [](const simulated::PlatformCall& call) { return call.lockWindow.value_or(false); });
}

}  // namespace quillmar::cli
