#include <gmock/gmock.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

struct ConsentInstall : FacadeHarness {
  explicit ConsentInstall(QuillmarOptions options, bool requiresConsent = true) : options_(options) {
    options_.requireConsent = requiresConsent;
    begin();
  }
  ~ConsentInstall() override {
    attribution.reset();
    settle();
  }
  /// A new process, which knows nothing of what the user wanted.
  void begin() {
    quillmar.reset();
    attribution.reset();
    settle();
    restart();
    attribution = QuillmarFactory::createQuillmarASAAttribution(simulated.platform());
    quillmar->setOptions(options_);
    attribution->setOptions(options_);
  }
  void grant() {
    quillmar->grantConsent();
    settle();
  }
  /// Whatever the library knows of the user.
  std::vector<std::string> stored() const {
    std::vector<std::string> found;
    for (const std::string key :
         {"ServerAppId", "SdkEnabled", "LastConversionValuesFetchTimestamp", "QuillmarFirstRunDate", "QuillmarId",
          "LastWindowValue", "QuillmarVerificationKey", "QuillmarAdNetworkRegistered", "com.quillmar.completedEvents",
          "com.quillmar.completedEvents.digest", "com.quillmar.outbox", "com.quillmar.outbox.1",
          "com.quillmar.purchaseOutbox", "com.quillmar.purchaseOutbox.1", "com.quillmar.erasing"}) {
      if (defaults->object(key)) {
        found.push_back(key);
      }
    }
    for (const std::string& path : {std::string("/documents/Quillmar/quill-mar-conv-val.json"), attributionFile}) {
      if (simulated.files->fileExists(path)) {
        found.push_back(path);
      }
    }
    return found;
  }

  std::shared_ptr<QuillmarASAAttribution> attribution;

 private:
  QuillmarOptions options_;
};

class Consent : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(ReliableDelivery, Consent, testing::Bool());

TEST_P(Consent, nothingIsTouchedBeforeItAndWhatWasCalledBeginsWithIt) {
  ConsentInstall install({.reliableDelivery = GetParam(), .eventsHeldForConsent = 2});
  install.configure();
  install.attribution->enableASAAttributionTracking();
  install.attribution->disableASAAttributionTracking();
  install.attribution->enableASAAttributionTracking();
  for (const char* const event : {"session", "second", "dropped"}) {
    install.send(event);
  }
  install.quillmar->applicationDidBecomeActive();
  install.quillmar->sceneDidActivate();
  install.quillmar->clearTrackedEvents();
  static_cast<void>(install.quillmar->state());
  install.activate();
  install.advance(24h);
  EXPECT_FALSE(install.defaults->isOpen());
  EXPECT_TRUE(install.simulated.http->requests().empty());
  EXPECT_EQ(install.simulated.attributionToken->requests(), 0u);
  EXPECT_FALSE(install.logged("fetch"));
  EXPECT_EQ(install.quillmar->statistics().parked, 2u);
  EXPECT_EQ(install.quillmar->statistics().dropped, 1u);
  EXPECT_EQ(install.quillmar->health().parked, 2u);
  EXPECT_EQ(install.quillmar->health().count(EventEnd::noConsent), 1u);
  EXPECT_FALSE(install.quillmar->waitUntilDelivered(0ms));

  install.quillmar->grantConsent();
  install.quillmar->sendEvent("third");  // not behind the limit: consent is there
  install.settle();
  install.advance(1s);
  EXPECT_THAT(install.eventNames(), testing::ElementsAre("session", "second", "third"));
  EXPECT_EQ(install.core().eventTracker()->getAllTrackedEvents().size(), 3u);
  EXPECT_FALSE(install.calls().empty());
  EXPECT_EQ(install.simulated.attributionToken->requests(), 1u) << "the first enabling was taken back";
}

TEST_P(Consent, itsEndStopsWhatIsOnItsWayAndErasesEverything) {
  ConsentInstall install({.reliableDelivery = GetParam(), .liveAttribution = true});
  install.grant();
  install.configure();
  install.attribution->enableASAAttributionTracking();
  install.settle();
  const auto identifier = install.defaults->string("QuillmarId");
  install.send("session");
  install.advance(1s);
  EXPECT_GE(install.stored().size(), 9u);

  install.delay = 1min;
  install.send("purchase", {{ASEventParam::revenue, 20}});
  install.simulated.subscriptionUpdates->post(subscriptionUpdate(1));
  install.settle();
  install.simulated.files->removeItem(attributionFile);
  install.attribution->enableASAAttributionTracking();
  install.activate();
  install.simulated.files->writeFile(attributionFile, "{}", platform::WriteMode::direct);
  const std::size_t calls = install.calls().size();
  install.quillmar->revokeConsent();
  EXPECT_THAT(install.stored(), testing::IsEmpty());
  const std::size_t requests = install.simulated.http->requests().size();
  install.send("after");
  install.simulated.subscriptionUpdates->post(subscriptionUpdate(2));
  install.advance(24h);
  EXPECT_THAT(install.stored(), testing::IsEmpty()) << "answers have come";
  EXPECT_EQ(sumOf(install.quillmar->health()), 3u);
  EXPECT_EQ(install.simulated.http->requests().size(), requests);
  EXPECT_EQ(install.calls().size(), calls);

  install.delay = 0s;
  install.grant();
  install.configure();
  install.send("session");
  install.advance(1s);
  EXPECT_NE(install.defaults->string("QuillmarId"), identifier);
  EXPECT_EQ(install.core().eventTracker()->getAllTrackedEvents().size(), 1u);
}

TEST_P(Consent, anEventWhoseCallHasPassedAsConsentEndsLeavesNothing) {
  ConsentInstall install({.reliableDelivery = GetParam()});
  install.simulated.logSink =
      std::make_shared<InterruptingSink>("Sending event: late", [&install] { install.quillmar->revokeConsent(); });
  install.begin();
  install.grant();
  install.configure();
  install.send("late");
  EXPECT_THAT(install.stored(), testing::IsEmpty());
  EXPECT_THAT(install.eventNames(), testing::IsEmpty());
}

TEST(ConsentOfAPlatform, anAnswerThatComesTooLateIsNotSaved) {
  for (const bool requiresConsent : {false, true}) {
    ConsentInstall install({}, requiresConsent);
    install.simulated.adNetwork->setObserver([&install](const auto&) { install.quillmar->revokeConsent(); });
    install.grant();
    install.configure();
    install.send("session");
    EXPECT_THAT(install.calls(), testing::SizeIs(1));
    EXPECT_THAT(install.stored(), testing::IsEmpty());
  }
}

}  // namespace
}  // namespace quillmar::test
