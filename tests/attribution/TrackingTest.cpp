#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST(AttributionTracking, enablingTellsItsStepsAtTheErrorLevelAndStoresTheRecord) {
  AttributionHarness host;
  host.enable();
  EXPECT_THAT(
      host.listenerLines(),
      ElementsAre("error: QuillmarASAAttribution - enableASAAttributionTracking called",
                  "error: QuillmarASAAttribution - Creating PurchaseInterceptor",
                  "error: QuillmarASAAttribution - PurchaseInterceptor created successfully",
                  "error: QuillmarASAAttribution - About to start listening for purchases",
                  "error: QuillmarASAAttribution - Purchase listener task assigned",
                  "error: QuillmarASAAttribution - Task created, calling startListeningForPurchases",
                  "error: PurchaseInterceptor - Starting to listen for purchases",
                  "error: PurchaseInterceptor - Purchase listener task created",
                  "error: PurchaseInterceptor - Task started, beginning Product.SubscriptionInfo.Status.updates "
                  "loop",
                  "error: QuillmarASAAttribution - startListeningForPurchases completed"));
  EXPECT_THAT(
      host.attributionLines(),
      ElementsAre("debug: ASAAttributionTrackingRepository - Checking if attribution data exists",
                  "debug: ASADataPersistence - ASA data exists: false",
                  "debug: ASAAttributionTrackingRepository - Fetching attribution data from Apple",
                  "debug: AppleSearchAdsApiClient - Building request to fetch attribution data from Apple",
                  "debug: AppleSearchAdsApiClient - Performing network request to Apple",
                  "debug: AppleSearchAdsApiClient - Decoding Apple attribution response",
                  "debug: AppleSearchAdsApiClient - Successfully fetched attribution data from Apple",
                  "debug: ASADataPersistence - Saving ASA attribution data to local storage",
                  "debug: ASADataPersistence - Successfully saved ASA data to: /documents/asa_attribution_data.json",
                  "debug: ASAAttributionTrackingRepository - Successfully fetched and stored attribution data",
                  "info: Successfully fetched and stored ASA attribution data"));
  EXPECT_EQ(host.readFile(), R"({"attribution":true,"campaignId":"12"})");
  EXPECT_TRUE(host.isIdle());

  const auto requests = host.simulated.http->requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].url, "https://api-adservices.apple.com/api/v1");
  EXPECT_EQ(requests[0].body, "simulated-attribution-token");
  EXPECT_EQ(requests[0].headers,
            (std::map<std::string, std::string>{{"Content-Type", "text/plain"}, {"Content-Length", "27"}}));
}

TEST(AttributionTracking, withoutKeyNothingIsBuiltAndDisablingOnlyLogs) {
  AttributionHarness host;
  host.defaults->remove("QuillmarVerificationKey");
  host.enable();
  EXPECT_EQ(host.attribution->core().purchaseInterceptor(), nullptr);
  EXPECT_EQ(host.attribution->core().eventsRepository(), nullptr);
  host.disable();
  EXPECT_THAT(host.log.messages(), ElementsAre("error: QuillmarASAAttribution - enableASAAttributionTracking called",
                                               "error: AppId key must be provided in Info.plist",
                                               "debug: QuillmarASAAttribution - Disabling ASA attribution tracking"));
}

TEST(AttributionTracking, storedRecordIsNotAskedForAgainWhateverItHolds) {
  for (const char* content : {R"({"attribution":false})", "[]", ""}) {
    AttributionHarness host;
    host.writeFile(content);
    host.enable();
    EXPECT_EQ(host.simulated.attributionToken->requests(), 0u);
    EXPECT_THAT(host.log.messages(), Contains("info: ASA attribution data already exists locally"));
    EXPECT_EQ(host.readFile(), content);
  }
}

TEST(AttributionTracking, failedFetchIsLoggedAndTriedAgainByTheNextEnabling) {
  struct Case {
    std::optional<std::string> tokenError;
    int status;
    std::string body;
    std::vector<std::string> lines;  // the errors, in order
  };
  const std::string repository = "error: ASAAttributionTrackingRepository - Failed to fetch attribution data: ";
  const std::string facade = "error: Failed to fetch ASA attribution data: ";
  const std::string generic = facade + "The attribution data could not be fetched.";
  const Case cases[] = {
      {"no {token} %s", 200, "{}", {facade + "no {token} %s"}},
      {{}, 404, "{}", {repository + "The service refused the request.", generic}},
      {{}, 503, "{}", {repository + "The service failed.", generic}},
      {{},
       200,
       R"({"campaignId":12})",
       {repository + "A value has the wrong type: campaignId: expected a string, found another number", generic}},
      {{},
       200,
       R"({"attribution":"true"})",
       {repository + "A value has the wrong type: attribution: expected a Boolean, found a string", generic}},
      {{},
       200,
       "",
       {repository + "The data is not in the correct format: not valid JSON at line 1, column 1: the document is empty",
        generic}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.lines.front());
    AttributionHarness host;
    host.simulated.attributionToken->setError(test.tokenError);
    host.attributionStatus = test.status;
    host.attributionBody = test.body;
    host.enable();
    auto errors = host.attributionLines();
    std::erase_if(errors, [](const auto& line) { return !line.starts_with("error"); });
    EXPECT_EQ(errors, test.lines);
    EXPECT_EQ(host.readFile(), "no file");
    EXPECT_TRUE(host.isIdle());
    EXPECT_EQ(host.simulated.subscriptionUpdates->listeners(), 1u);  // regardless

    host.simulated.attributionToken->setError(std::nullopt);
    host.attributionStatus = 200;
    host.attributionBody = R"({"adId":null})";
    host.enable();
    EXPECT_EQ(host.readFile(), "{}");
    EXPECT_EQ(host.simulated.attributionToken->requests(), 2u);
  }
}

TEST(AttributionTracking, eachUpdateIsVerifiedAndSentOneAfterAnotherUntilTheStreamEnds) {
  AttributionHarness host;
  host.enable();
  host.log.clear();
  auto forged = subscriptionUpdate(1);
  forged.transaction.verificationError = platform::PlatformError{"bad {signature}"};
  forged.renewalInfo.verificationError = platform::PlatformError{"not looked at"};
  auto forgedRenewal = subscriptionUpdate(2);
  forgedRenewal.renewalInfo.verificationError = platform::PlatformError{"bad renewal"};
  host.post(forged);
  host.post(forgedRenewal);
  host.eventStatus = 500;
  host.post(subscriptionUpdate(3));
  host.eventStatus = 200;
  host.eventBody = R"({"status":"Success"})";  // only the exact word counts
  host.post(subscriptionUpdate(4));
  host.eventBody = R"({"status":"success"})";
  host.post(subscriptionUpdate(5));
  host.simulated.subscriptionUpdates->end();
  host.settle();

  const std::string i = "error: PurchaseInterceptor - ";
  const std::string received = i + "Subscription status update received!";
  const std::string handling = i + "Handling subscription status update";
  const std::string verified = i + "Verified subscription status received, state: 1";
  const std::string failed = i + "Failed to process subscription status update: Failed to send data to server";
  EXPECT_THAT(host.listenerLines(),
              ElementsAre(received, handling, i + "Failed to verify subscription status: bad {signature}",  //
                          received, handling, i + "Failed to verify subscription status: bad renewal",      //
                          received, handling, verified, failed,                                             //
                          received, handling, verified, failed,                                             //
                          received, handling, verified, i + "Product.SubscriptionInfo.Status.updates loop ended"));
  EXPECT_THAT(host.log.messages(), Contains("error: PurchaseProcessor - Failed to send data to server: The service "
                                            "failed."));
  EXPECT_THAT(host.purchases(),
              ElementsAre(HasSubstr(R"("3")"), HasSubstr(R"("4")"),
                          HasSubstr(R"("attribution_details":{"attribution":true,"campaignId":"12"})")));
  const auto statistics = host.attribution->statistics();
  EXPECT_EQ(statistics.sent, 1u);
  EXPECT_EQ(statistics.failed, 2u);
  EXPECT_EQ(statistics.unverified, 2u);
  EXPECT_EQ(statistics.skipped, 0u);
  EXPECT_TRUE(host.isIdle());
}

TEST(AttributionTracking, slowSendHoldsBackTheUpdatesBehindIt) {
  AttributionHarness host;
  host.enable();
  host.delay = std::chrono::seconds(10);
  for (std::uint64_t identifier = 1; identifier <= 3; ++identifier) {
    host.post(subscriptionUpdate(identifier));
  }
  for (std::size_t sent = 1; sent <= 3; ++sent) {
    EXPECT_EQ(host.purchases().size(), sent);
    EXPECT_FALSE(host.isIdle());
    host.advance(host.delay);
  }
  EXPECT_EQ(host.attribution->statistics().sent, 3u);
  EXPECT_TRUE(host.isIdle());
}

TEST(AttributionTracking, enablingAgainLeavesOneListener) {
  for (const bool settled : {true, false}) {
    SCOPED_TRACE(settled);
    AttributionHarness host;
    host.writeFile("{}");
    host.attribution->enableASAAttributionTracking();
    if (settled) {
      host.settle();
    }
    host.enable();
    EXPECT_EQ(host.simulated.subscriptionUpdates->listeners(), 1u);
    host.post(subscriptionUpdate(7));
    EXPECT_EQ(host.purchases().size(), 1u);
    host.disable();
    EXPECT_EQ(host.simulated.subscriptionUpdates->listeners(), 0u);
    EXPECT_TRUE(host.isIdle());
  }
}

TEST(AttributionTracking, disablingEndsTheListeningAndEnablingStartsItAgain) {
  AttributionHarness host;
  host.enable();
  host.log.clear();
  host.disable();
  EXPECT_THAT(host.log.messages(),
              ElementsAre("debug: QuillmarASAAttribution - Disabling ASA attribution tracking",
                          "error: PurchaseInterceptor - Product.SubscriptionInfo.Status.updates loop ended"));
  EXPECT_EQ(host.attribution->core().purchaseInterceptor(), nullptr);
  EXPECT_EQ(host.attribution->core().purchaseProcessor(), nullptr);
  EXPECT_NE(host.attribution->core().eventsRepository(), nullptr);
  EXPECT_EQ(host.attribution->core().quillmarVerificationKey(), "the-key");
  host.post(subscriptionUpdate(1));
  host.attribution->disableASAAttributionTracking();
  host.enable();  // before the task that stops has run: it must not stop the new listener
  host.post(subscriptionUpdate(2));
  EXPECT_THAT(host.purchases(), ElementsAre(HasSubstr(R"("2")")));
  host.attribution->enableASAAttributionTracking();
  host.disable();  // before the listener was started
  host.post(subscriptionUpdate(3));
  EXPECT_EQ(host.purchases().size(), 1u);
  EXPECT_TRUE(host.isIdle());
}

TEST(AttributionTracking, disablingOrDestroyingDuringASendFinishesItAndReadsNoFurtherUpdate) {
  for (const bool destroy : {false, true}) {
    SCOPED_TRACE(destroy);
    AttributionHarness host;
    host.enable();
    host.delay = std::chrono::seconds(10);
    host.post(subscriptionUpdate(1));
    host.post(subscriptionUpdate(2));
    if (destroy) {
      host.attribution.reset();
    } else {
      host.disable();
    }
    EXPECT_EQ(host.simulated.subscriptionUpdates->listeners(), 0u);
    host.advance(std::chrono::minutes(1));
    EXPECT_EQ(host.purchases().size(), 1u);
    EXPECT_THAT(host.log.messages(), Contains("debug: PurchaseProcessor - Purchase processed successfully"));
    EXPECT_EQ(host.listenerLines().back(),
              "error: PurchaseInterceptor - Product.SubscriptionInfo.Status.updates loop ended");
  }
}

TEST(AttributionTracking, updatesAreSkippedWhileTheServiceHasSwitchedTheLibraryOff) {
  AttributionHarness host;
  host.enable();
  host.defaults->set("SdkEnabled", false);
  host.post(subscriptionUpdate(18446744073709551615u));
  EXPECT_THAT(host.linesOf({"PurchaseProcessor"}),
              ElementsAre("debug: PurchaseProcessor - Processing purchase for transaction: 18446744073709551615, "
                          "state: 1",
                          "debug: PurchaseProcessor - SDK enabled status: false",
                          "debug: PurchaseProcessor - SDK is disabled by server configuration, skipping purchase "
                          "processing"));
  EXPECT_THAT(host.purchases(), IsEmpty());
  EXPECT_EQ(host.attribution->statistics().skipped, 1u);
}

TEST(AttributionTracking, requestsGoToThePlatformsServicesOrToTheMock) {
  for (const bool mock : {false, true}) {
    SCOPED_TRACE(mock);
    AttributionHarness host;
    MockSwitch::set(mock);
    auto platform = host.simulated.platform();
    platform.serviceUrl = "https://staging.example";
    platform.attributionUrl = "https://attribution.example";
    host.attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
    host.enable();
    host.post(subscriptionUpdate(1));
    const auto requests = host.simulated.http->requests();
    if (mock) {  // its document is a record without fields, and no success
      EXPECT_THAT(requests, IsEmpty());
      EXPECT_EQ(host.readFile(), "{}");
      EXPECT_EQ(host.attribution->statistics().failed, 1u);
      continue;
    }
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].url, "https://attribution.example/api/v1");
    EXPECT_EQ(requests[1].url, "https://staging.example/ios/events");
    EXPECT_EQ(requests[1].headers.at("Authorization"), "the-key");
    EXPECT_EQ(requests[1].headers.at("Content-Type"), "application/json");
  }
}

}  // namespace
}  // namespace quillmar::test
