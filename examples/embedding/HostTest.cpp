#include <quillmar/QuillmarFactory.h>
#include <quillmar/simulated/SimulatedPlatform.h>

#include <chrono>
#include <cstdio>

// A test of a host: does a purchase of 30 earn the conversion value that the configuration promises?
int main() {
  quillmar::simulated::SimulatedPlatform simulated(std::chrono::system_clock::now());
  simulated.setConfiguration(R"({"app_id": "my-app", "sdk_enabled": true, "lockWindows": {}, "values": [
      {"key": "Purchase", "windows": {"window0": {
        "fineValue": {"value": 40, "requiredEvents": [{"name": "purchase", "revenueMin": 10, "revenueMax": 50}]},
        "coarseValue": {"value": "high", "requiredEvents": [{"name": "purchase"}]}}}}]})");
  const auto quillmar = quillmar::QuillmarFactory::createQuillmar(simulated.platform());
  quillmar->configure("any-key");
  quillmar->sendEvent("purchase", {{quillmar::ASEventParam::revenue, 30}});
  simulated.settle();

  const auto calls = simulated.adNetwork->calls();
  const bool passed = calls.size() == 1 && calls[0].fineValue == 40 && calls[0].coarseValue == "high";
  std::puts(passed ? "passed" : "failed");
  return passed ? 0 : 1;
}
