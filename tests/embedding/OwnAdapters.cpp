// A host that brings all adapters itself, here those in memory, and replaces collaborators.
#include <quillmar/Quillmar.h>
#include <quillmar/QuillmarASAAttribution.h>
#include <quillmar/simulated/ConfigurationBuilder.h>
#include <quillmar/simulated/SimulatedPlatform.h>

namespace {
struct OwnLog final : quillmar::EventServerLogRepositoryProtocol {
  void logEvent(std::string /*event*/, Completion completion) override { completion({}); }
};

struct OwnManager final : quillmar::ConversionTrackingManagerProtocol {
  void send(const quillmar::ConversionValues::ConversionValue& value, quillmar::Window, bool) override {
    sent = value.key;
  }
  std::string sent;
};

quillmar::simulated::SimulatedPlatform& inMemory() {
  static quillmar::simulated::SimulatedPlatform platform(std::chrono::system_clock::now());
  return platform;
}
}  // namespace

quillmar::platform::Platform quillmar::platform::makeDefaultPlatform(const DefaultPlatformOptions& /*options*/) {
  return inMemory().platform();
}

quillmar::platform::Bundle quillmar::platform::Bundle::main() {
  return {"own-adapters"};
}

int main() {
  using namespace quillmar::simulated;
  inMemory().setConfiguration(ConfigurationBuilder().rule("Any", quillmar::Window::window0, {{{1, {}}}}).json());
  const auto quillmar = quillmar::Quillmar::shared();
  const auto manager = std::make_shared<OwnManager>();
  quillmar->configure("any-key");
  inMemory().settle();
  quillmar->setEventServerLogRepository(std::make_shared<OwnLog>());
  quillmar->setConversionTrackingManager(manager);
  quillmar->sendEvent("session");
  inMemory().settle();
  quillmar::QuillmarASAAttribution::shared()->enableASAAttributionTracking();
  inMemory().settle();
  const bool passed = manager->sent == "Any" && quillmar->state().appId == "simulated-app" &&
                      quillmar->statistics().logged == 1 &&
                      inMemory().files->fileExists("/documents/asa_attribution_data.json");
  return passed ? 0 : 1;
}
