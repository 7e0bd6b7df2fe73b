// A host that brings all adapters itself, here those in memory.
#include <quillmar/Quillmar.h>
#include <quillmar/QuillmarASAAttribution.h>
#include <quillmar/simulated/SimulatedPlatform.h>

static quillmar::simulated::SimulatedPlatform& inMemory() {
  static quillmar::simulated::SimulatedPlatform platform(std::chrono::system_clock::now());
  return platform;
}

quillmar::platform::Platform quillmar::platform::makeDefaultPlatform(const DefaultPlatformOptions& /*options*/) {
  return inMemory().platform();
}

quillmar::platform::Bundle quillmar::platform::Bundle::main() {
  return {"own-adapters"};
}

int main() {
  const auto quillmar = quillmar::Quillmar::shared();
  quillmar->configure("any-key");
  quillmar->sendEvent("session");
  inMemory().settle();
  quillmar::QuillmarASAAttribution::shared()->enableASAAttributionTracking();
  inMemory().settle();
  const bool passed = quillmar->state().appId == "simulated-app" && quillmar->statistics().logged == 1 &&
                      inMemory().files->fileExists("/documents/asa_attribution_data.json");
  return passed ? 0 : 1;
}
