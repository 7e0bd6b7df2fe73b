#include <quillmar/QuillmarFactory.h>
#include <quillmar/simulated/ConfigurationBuilder.h>
#include <quillmar/simulated/SimulatedPlatform.h>

#include <chrono>
#include <cstdio>

using namespace quillmar;
using namespace quillmar::simulated;

// A test of a host: does a purchase of 30 earn the conversion value that the configuration promises?
int main() {
  SimulatedPlatform simulated(std::chrono::system_clock::now());
  simulated.setConfiguration(
      ConfigurationBuilder()
          .rule("Purchase", Window::window0, {{{40, {{"purchase", 10, 50}}}}, {{CoarseValue::high, {{"purchase"}}}}})
          .json());
  const auto events = QuillmarFactory::createQuillmar(simulated.platform());
  events->configure("any-key");
  events->sendEvent("purchase", {{ASEventParam::revenue, 30}});
  simulated.settle();

  const auto calls = simulated.adNetwork->calls();
  const bool passed = calls.size() == 1 && calls[0].fineValue == 40 && calls[0].coarseValue == "high";
  std::puts(passed ? "passed" : "failed");
  return passed ? 0 : 1;
}
