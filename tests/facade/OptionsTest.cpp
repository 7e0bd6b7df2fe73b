#include <gmock/gmock.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

using Install = AttributionHarness;

TEST(Options, bothNetworksBringAnInstallByTheOtherFrameworkItsValue) {
  Install install({.updateBothNetworks = true});
  install.simulated.device->setSystemVersion("18.0");
  install.simulated.adNetwork->setRules({simulated::SignedAd::skAdNetwork4, startOfTests});
  install.configure();
  install.send("session");
  EXPECT_FALSE(install.simulated.adNetwork->rules().postbacks().empty());
  EXPECT_EQ(install.countLines("update successful"), 2u) << "of each network";
  EXPECT_EQ(install.countLines("Saved last window value"), 1u) << "a later value may have come since";
}

TEST(Options, strictSwitchStopsWhatIsOnItsWayParkedOrDueAndTheAttribution) {
  Install install({.strictSwitch = true});
  install.configure();
  install.send("session");
  install.delay = 1s;
  install.send("session");
  install.defaults->set("SdkEnabled", false);
  install.advance(1h);
  EXPECT_EQ(install.core().eventTracker()->getAllTrackedEvents().size(), 1u) << "on its way";
  install.defaults->set("SdkEnabled", true);
  install.begin({.strictSwitch = true});
  install.send("session");
  install.configBody = configuration(false).lockAfter(Window::window0, 1h).json();
  install.configure();
  install.advance(2s);
  EXPECT_EQ(install.quillmar->statistics().dropped, 1u) << "parked";
  EXPECT_EQ(install.calls().size(), 1u) << "a lock by time";
  install.enable();
  EXPECT_EQ(install.simulated.attributionToken->requests(), 0u);
}

TEST(Options, aStoredConfigurationCountsUntilItIsFetchedAgain) {
  Install install({});
  install.configure();
  install.configStatus = 503;
  install.begin({.useStoredConfiguration = true});
  install.send("session");
  install.configure();
  EXPECT_EQ(install.calls().size(), 1u);
  install.quillmar->reset();
  install.quillmar->setLogLevel(LogLevel::info);
  install.configure();
  EXPECT_EQ(install.countLines("Going on with the stored configuration"), 1u) << "not after a reset";
}

TEST(Options, onlyTheEventServiceIsToldWhoAsks) {
  for (const bool sends : {false, true}) {
    Install install({.sendUserAgent = sends});
    install.configure();
    install.send("session");
    install.enable();
    install.post(subscriptionUpdate(1));
    ASSERT_EQ(install.simulated.http->requests().size(), 4u);
    for (const auto& request : install.simulated.http->requests()) {
      EXPECT_EQ(request.headers.contains("User-Agent"), sends && !request.url.ends_with("/api/v1")) << request.url;
    }
  }
}

TEST(Options, aPausedNetworkHoldsRequestsBackUncountedUntilItGoesOn) {
  Install install({});
  const auto pause = [&](bool paused) {
    install.quillmar->setNetworkPaused(paused);
    install.attribution->setNetworkPaused(paused);
  };
  auto urls = [&, seen = std::size_t{0}]() mutable {
    std::string added;
    for (const auto all = install.simulated.http->requests(); seen < all.size(); ++seen) {
      added += all[seen].url.substr(all[seen].url.rfind('/'));
    }
    return added;
  };
  pause(true);
  install.configure();
  install.enable();
  install.post(subscriptionUpdate(1));
  EXPECT_FALSE(install.quillmar->waitUntilDelivered(0ms) || install.quillmar->drain(0ms) || install.isIdle());
  EXPECT_EQ(install.countLines("The network is paused"), 2u) << "once an instance";
  pause(false);
  pause(true);
  install.advance(2h);
  EXPECT_EQ(urls(), "") << "closed again in time";
  pause(false);
  install.settle();
  EXPECT_EQ(urls(), "/config/v1/events");

  install.delay = 1s;
  install.send("session");
  pause(true);
  install.advance(2h);
  EXPECT_EQ(install.quillmar->statistics().logged, 1u) << "was under way";
  install.delay = 0s;
  install.send("held");
  install.quillmar->applicationDidBecomeActive();
  pause(false);
  install.settle();
  EXPECT_EQ(urls(), "/events/events/config") << "what comes while it opens waits behind";
  EXPECT_EQ(install.quillmar->statistics().failed + install.countLines("error: Failed"), 0u);

  pause(true);
  install.send("of the earlier epoch");
  install.quillmar->reset();
  install.settle();
  EXPECT_TRUE(install.quillmar->drain(0ms)) << "its task is gone";
  install.configure();
  install.begin({});
  install.settle();
  EXPECT_EQ(urls(), "") << "of an instance that is gone";
}

TEST(Options, valuesAreChosenAndSentAsTheOptionsSay) {
  const std::pair<QuillmarOptions, std::vector<std::string>> rows[] = {
      {{}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5l", "5l!", "5h"}},
      {{.onlyCompleteHalves = true}, {"0h!", "5l", "5l", "5l", "5l!", "5m", "5l", "5l!", "5h"}},
      {{.honourSingleBounds = true}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5m", "5m!", "5h"}},
      {{.neverSendLower = true}, {"40h!", "40h!", "40h!", "40h"}},
      {{.currentWindowOnly = true}, {"40h!", "5l", "5l", "5l", "5l!", "5l", "5l!"}},
      {{.skipRepeatedUpdates = true}, {"40h!", "5l", "5l!", "5m", "5l", "5l!", "5h"}},
      {{.skipRepeatedLocks = true}, {"40h!", "5l", "5l", "5l", "5l!", "5m", "5l", "5h"}},
      {{.platformWindows = true}, {"40h!", "5l", "5l", "5l!", "5m", "5m!", "5m", "5l", "5l!", "5h"}}};
  for (const auto& [options, expected] : rows) {
    Install install(options);
    install.configBody =
        simulated::ConfigurationBuilder("app-1")
            .rule("Buy", Window::window0, {{{40, {{"buy", 10, 50}}}}, {{CoarseValue::high, {{"buy"}}}}})
            .rule("Stay", Window::window0, {{{5, {{"stay"}}}}, {{CoarseValue::low, {{"stay"}}}}})
            .rule("Later", Window::window1, {{}, {{CoarseValue::medium, {{"buy"}}}}})
            .rule("Big", Window::window1, {{}, {{CoarseValue::low, {{"big", std::nullopt, 10}}}}})
            .rule("Again", Window::window2, {{}, {{CoarseValue::high, {{"other"}}}}})
            .lockAtHigh(Window::window0)
            .lockAfter(Window::window1, 1h)
            .json();
    install.configure();
    install.send("buy", {{ASEventParam::revenue, 5}});
    for (const auto wait : {0h, 0h, 49h}) {
      install.advance(wait);
      install.activate();
      install.send("stay");
    }
    install.advance(31h);
    install.begin(options);
    install.configure();
    install.send("other");
    install.send("big", {{ASEventParam::revenue, 20}});
    install.advance(2h);
    install.activate();
    install.advance(120h);
    install.send("new");
    std::vector<std::string> told;
    for (const auto& call : install.calls()) {
      told.push_back(std::to_string(*call.fineValue) + call.coarseValue->substr(0, 1) + (*call.lockWindow ? "!" : ""));
    }
    EXPECT_EQ(told, expected);
  }
}

}  // namespace
}  // namespace quillmar::test
