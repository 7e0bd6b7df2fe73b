#include <gmock/gmock.h>

#include "quillmar/simulated/ConfigurationBuilder.h"
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
  const std::string off = configuration(R"({"window0":{"type":"time","value":1}})", false);
  for (const bool strict : {false, true}) {
    Install install({.strictSwitch = strict});
    install.send("session");
    install.configBody = off;
    install.configure();
    EXPECT_EQ(install.calls().size(), strict ? 0u : 1u) << "parked";
    EXPECT_EQ(install.quillmar->statistics().dropped, strict ? 1u : 0u);
    install.defaults->set("SdkEnabled", true);
    install.delay = 1s;
    install.send("session");
    install.defaults->set("SdkEnabled", false);
    install.advance(1s);
    EXPECT_EQ(install.core().eventTracker()->getAllTrackedEvents().size(), strict ? 0u : 2u) << "on its way";
    install.defaults->set("SdkEnabled", true);
    install.send("session");
    install.advance(1h);
    const std::size_t before = install.calls().size();
    install.activate();
    install.advance(1s);
    EXPECT_EQ(install.calls().size(), before + (strict ? 0 : 1)) << "a lock by time";
    install.enable();
    EXPECT_EQ(install.simulated.attributionToken->requests(), strict ? 0u : 1u);
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

TEST(Options, valuesAreChosenAndSentAsTheOptionsSay) {
  const std::pair<QuillmarOptions, std::vector<std::string>> rows[] = {
      {{}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5l", "5l!"}},
      {{.onlyCompleteHalves = true}, {"0h!", "5l", "5l", "5l", "5l!", "5m", "5l", "5l!"}},
      {{.honourSingleBounds = true}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5m", "5m!"}},
      {{.neverSendLower = true}, {"40h!", "40h!", "40h!"}},
      {{.currentWindowOnly = true}, {"40h!", "5l", "5l", "5l", "5l!", "5l", "5l!"}},
      {{.skipRepeatedUpdates = true}, {"40h!", "5l", "5l!", "5m", "5l", "5l!"}},
      {{.skipRepeatedLocks = true}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5l"}},
      {{.platformWindows = true}, {"40h!", "5l", "5l", "5l!", "5m", "5m!", "5m", "5l", "5l!"}}};
  for (std::size_t row = 0; const auto& [options, expected] : rows) {
    SCOPED_TRACE(row++);
    Install install(options);
    install.configBody =
        simulated::ConfigurationBuilder("app-1")
            .rule("Buy", Window::window0, {{{40, {{"buy", 10, 50}}}}, {{CoarseValue::high, {{"buy"}}}}})
            .rule("Stay", Window::window0, {{{5, {{"stay"}}}}, {{CoarseValue::low, {{"stay"}}}}})
            .rule("Later", Window::window1, {{}, {{CoarseValue::medium, {{"buy"}}}}})
            .rule("Big", Window::window1, {{}, {{CoarseValue::low, {{"big", std::nullopt, 10}}}}})
            .lockAtHigh(Window::window0)
            .lockAfter(Window::window1, 1h)
            .json();
    install.configure();
    install.send("buy", {{ASEventParam::revenue, 5}});
    install.send("stay");
    install.send("stay");
    install.advance(49h);
    install.activate();
    install.send("stay");
    install.advance(31h);
    install.begin(options);
    install.configure();
    install.send("other");
    install.send("big", {{ASEventParam::revenue, 20}});
    install.advance(2h);
    install.activate();
    std::vector<std::string> told;
    for (const auto& call : install.calls()) {
      told.push_back(std::to_string(*call.fineValue) + call.coarseValue->substr(0, 1) + (*call.lockWindow ? "!" : ""));
    }
    EXPECT_EQ(told, expected);
  }
}

}  // namespace
}  // namespace quillmar::test
