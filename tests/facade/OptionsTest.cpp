#include <gmock/gmock.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using namespace ::testing;

/// The first process of an install.
struct Install : AttributionHarness {
  explicit Install(const QuillmarOptions& options = {}) { begin(options); }
  /// Another process.
  void begin(const QuillmarOptions& options) {
    restart();
    quillmar->setOptions(options);
    make(simulated.platform());
    attribution->setOptions(options);
  }
};

TEST(Options, bothNetworksBringAnInstallByTheOtherFrameworkItsValue) {
  for (const bool both : {false, true}) {
    Install install({.updateBothNetworks = both});
    install.simulated.device->setSystemVersion("18.0");
    install.simulated.adNetwork->setRules({simulated::SignedAd::skAdNetwork4, startOfTests});
    install.configure();
    install.send("session");
    EXPECT_EQ(install.simulated.adNetwork->rules().postbacks().empty(), !both);
  }
}

TEST(Options, strictSwitchStopsWhatIsParkedOnItsWayOrDueAndTheAttribution) {
  for (const bool strict : {false, true}) {
    Install install({.strictSwitch = strict});
    install.send("session");
    install.configBody = configuration(R"({"window0":{"type":"time","value":1}})", false);
    install.configure();
    EXPECT_EQ(install.calls().size(), strict ? 0u : 1u) << "parked";
    install.configBody = configuration();
    install.advance(1h);
    install.activate();
    install.delay = 1s;
    install.send("session");
    install.defaults->set("SdkEnabled", false);
    install.advance(1s);
    EXPECT_EQ(install.calls().size(), strict ? 0u : 2u) << "on its way";
    EXPECT_EQ(install.core().eventTracker()->getAllTrackedEvents().size(), strict ? 0u : 2u);
    EXPECT_EQ(install.quillmar->statistics().dropped, strict ? 1u : 0u);
    install.defaults->set("SdkEnabled", true);
    install.send("session");
    install.configBody = configuration(R"({"window0":{"type":"time","value":1}})", false);
    install.advance(1h);
    const std::size_t before = install.calls().size();
    install.activate();
    install.advance(1s);
    EXPECT_EQ(install.calls().size(), before + (strict ? 0 : 1)) << "a lock by time";
    install.enable();
    install.post(subscriptionUpdate(1));
    EXPECT_EQ(install.simulated.attributionToken->requests(), strict ? 0u : 1u);
    EXPECT_EQ(install.attribution->statistics().skipped, 1u);
  }
}

TEST(Options, aStoredConfigurationCountsUntilItIsFetchedAgain) {
  for (const bool stored : {false, true}) {
    Install install;
    install.configure();
    install.configStatus = 503;
    install.begin({.useStoredConfiguration = stored});
    install.send("early");
    install.configure();
    install.send("session");
    EXPECT_EQ(install.calls().size(), stored ? 1u : 0u);
    EXPECT_EQ(install.quillmar->statistics().parked, stored ? 0u : 2u);
    install.quillmar->reset();
    install.configure();
    install.send("session");
    EXPECT_EQ(install.quillmar->statistics().parked, 1u) << "what the service said is forgotten";
  }
}

}  // namespace
}  // namespace quillmar::test
