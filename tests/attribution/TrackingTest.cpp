#include <gmock/gmock.h>

#include "Attribution/PurchaseProcessor.h"
#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace ::testing;
using platform::PropertyListValue;

const std::string facade = "error: QuillmarASAAttribution - ";
const std::string interceptor = "error: PurchaseInterceptor - ";
const std::string ended = interceptor + "Product.SubscriptionInfo.Status.updates loop ended";

class AttributionTracking : public Test, protected AttributionHarness {
 protected:
  QuillmarASAAttributionCore& core() { return QuillmarASAAttributionCore::of(*attribution); }
};

TEST_F(AttributionTracking, enablingStoresTheRecordThatTheServiceKnows) {
  enable();
  EXPECT_THAT(log.messages(), Contains("info: Successfully fetched and stored ASA attribution data"));
  EXPECT_THAT(log.messages(), Not(Contains(ContainsRegex("^(debug|info): (QuillmarASA|PurchaseInterceptor)"))))
      << "tells its steps at the error level, on purpose";
  EXPECT_EQ(readFile(), R"({"attribution":true,"campaignId":"12"})");
  EXPECT_TRUE(isIdle());
  const auto requests = simulated.http->requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].url, "https://api-adservices.apple.com/api/v1");
  EXPECT_EQ(requests[0].body, "simulated-attribution-token");
  const std::map<std::string, std::string> headers{{"Content-Type", "text/plain"}, {"Content-Length", "27"}};
  EXPECT_EQ(requests[0].headers, headers);
}

TEST_F(AttributionTracking, withoutKeyNothingIsBuiltAndDisablingOnlyLogs) {
  defaults->remove("QuillmarVerificationKey");
  enable();
  EXPECT_EQ(core().eventsRepository(), nullptr);
  disable();
  EXPECT_THAT(log.messages(), ElementsAre(facade + "enableASAAttributionTracking called",
                                          "error: AppId key must be provided in Info.plist",
                                          "debug: QuillmarASAAttribution - Disabling ASA attribution tracking"));
}

TEST_F(AttributionTracking, failedFetchIsLoggedAndTriedAgainByTheNextEnabling) {
  const std::string failed = "error: Failed to fetch ASA attribution data: ";
  const std::pair<int, const char*> answers[] = {{404, "{}"}, {200, R"({"campaignId":12})"}, {200, ""}};
  for (const auto& [status, body] : answers) {
    attributionStatus = status;
    attributionBody = body;
    log.clear();
    enable();
    EXPECT_THAT(log.messages(), Contains(failed + "The attribution data could not be fetched."));
    EXPECT_EQ(readFile(), "no file");
    EXPECT_EQ(listeners(), 1u) << "regardless";
  }
  simulated.attributionToken->setError("no {token} %s");
  enable();
  EXPECT_THAT(log.messages(), Contains(failed + "no {token} %s"));
  simulated.attributionToken->setError(std::nullopt);
  attributionBody = R"({"adId":null})";
  enable();
  EXPECT_EQ(readFile(), "{}");
  EXPECT_TRUE(isIdle());
}

TEST_F(AttributionTracking, withLiveDataIsAskedForAgainForAWhileAndReplacesWhatIsNoRecord) {
  using namespace std::chrono_literals;
  writeFile(R"({"campaignId":12})");
  const std::uint64_t file = simulated.files->stamp(attributionFile)->file;
  attribution->setOptions({.liveAttribution = true});
  const auto asked = [this] { return simulated.http->requests().size(); };
  const std::pair<int, std::vector<std::chrono::seconds>> rows[] = {
      {404, {5s, 5s, 5s}}, {503, {60s, 600s, 3600s}}, {400, {}}, {401, {}}};
  for (const auto& [status, waits] : rows) {
    attributionStatus = status;
    std::size_t expected = asked() + 1;
    enable();
    for (const auto wait : waits) {
      advance(wait - 1s);
      EXPECT_TRUE(isIdle() && asked() == expected++) << status << ": what waits is not waited for";
      advance(1s);
    }
    advance(std::chrono::hours(48));
    EXPECT_EQ(asked(), expected) << status;
  }
  attributionStatus = 404;
  enable();
  disable();
  advance(5s);
  EXPECT_EQ(asked(), 11u) << "disabled";
  attributionStatus = 200;
  attributionBody = R"({"campaignId":542370539,"claimType":1})";
  enable();
  EXPECT_EQ(readFile(), R"({"campaignId":12})") << "only identifiers may be integers";
  attributionBody = R"({"campaignId":542370539,"claimType":"Click"})";
  advance(60s);
  EXPECT_EQ(readFile(), R"({"campaignId":"542370539","claimType":"Click"})");
  EXPECT_NE(simulated.files->stamp(attributionFile)->file, file) << "replaced in one step";
}

TEST_F(AttributionTracking, eachUpdateIsVerifiedAndSentOneAfterAnotherUntilTheStreamEnds) {
  enable();
  log.clear();
  auto forged = subscriptionUpdate(1);
  forged.transaction.verificationError = platform::PlatformError{"bad {signature}"};
  auto forgedRenewal = subscriptionUpdate(2);
  forgedRenewal.renewalInfo.verificationError = platform::PlatformError{"bad renewal"};
  post(forged);
  post(forgedRenewal);
  eventStatus = 500;
  post(subscriptionUpdate(3));
  eventStatus = 200;
  eventBody = R"({"status":"Success"})";  // only the exact word counts
  post(subscriptionUpdate(4));
  eventBody = R"({"status":"success"})";
  post(subscriptionUpdate(5));
  defaults->set("SdkEnabled", false);
  post(subscriptionUpdate(18446744073709551615u));
  simulated.subscriptionUpdates->end();
  settle();
  EXPECT_THAT(log.messages(),
              IsSupersetOf({interceptor + "Failed to verify subscription status: bad {signature}",
                            interceptor + "Failed to process subscription status update: Failed to send data to server",
                            std::string("debug: PurchaseProcessor - Processing purchase for transaction: "
                                        "18446744073709551615, state: 1"),
                            ended}));
  EXPECT_THAT(eventBodies(), ElementsAre(HasSubstr(R"("3")"), HasSubstr(R"("4")"),
                                         HasSubstr(R"("attribution_details":{"attribution":true,"campaignId":"12"})")));
  const auto statistics = attribution->statistics();
  EXPECT_EQ(statistics.sent, 1u);
  EXPECT_EQ(statistics.failed, 2u);
  EXPECT_EQ(statistics.unverified, 2u);
  EXPECT_EQ(statistics.skipped, 1u);
  EXPECT_TRUE(isIdle());
}

TEST_F(AttributionTracking, enablingAgainLeavesOneListenerAndTheStoredRecordWhateverItHolds) {
  writeFile("[]");
  for (const bool settled : {true, false}) {
    SCOPED_TRACE(settled);
    attribution->enableASAAttributionTracking();
    if (settled) {
      settle();
    }
    enable();
    EXPECT_EQ(listeners(), 1u);
    const std::size_t before = eventBodies().size();
    post(subscriptionUpdate(7));
    EXPECT_EQ(eventBodies().size(), before + 1);
  }
  EXPECT_EQ(simulated.attributionToken->requests(), 0u);
  EXPECT_THAT(log.messages(), Contains("info: ASA attribution data already exists locally"));
  EXPECT_EQ(readFile(), "[]");
}

TEST_F(AttributionTracking, disablingEndsTheListeningAndEnablingStartsItAgain) {
  enable();
  log.clear();
  disable();
  EXPECT_THAT(log.messages(), ElementsAre("debug: QuillmarASAAttribution - Disabling ASA attribution tracking", ended));
  EXPECT_EQ(core().purchaseInterceptor(), nullptr);
  EXPECT_EQ(core().purchaseProcessor(), nullptr);
  EXPECT_NE(core().eventsRepository(), nullptr);
  post(subscriptionUpdate(1));
  attribution->disableASAAttributionTracking();
  enable();  // before the task that stops has run: it must not stop the new listener
  EXPECT_THAT(log.messages(), Not(Contains(HasSubstr("Stopping purchase listener"))));
  post(subscriptionUpdate(2));
  EXPECT_THAT(eventBodies(), ElementsAre(HasSubstr(R"("2")")));
  attribution->enableASAAttributionTracking();
  disable();  // before the listener was started
  post(subscriptionUpdate(3));
  EXPECT_THAT(eventBodies(), SizeIs(1));
  EXPECT_EQ(listeners(), 0u);
  EXPECT_TRUE(isIdle());
}

TEST_F(AttributionTracking, disablingOrDestroyingDuringASendFinishesItAndReadsNoFurtherUpdate) {
  for (const bool destroy : {false, true}) {
    SCOPED_TRACE(destroy);
    enable();
    delay = std::chrono::seconds(10);
    const std::size_t before = eventBodies().size();
    log.clear();
    post(subscriptionUpdate(1));
    post(subscriptionUpdate(2));
    EXPECT_FALSE(isIdle());
    if (destroy) {
      attribution.reset();
    } else {
      disable();
    }
    EXPECT_EQ(listeners(), 0u);
    advance(std::chrono::minutes(1));
    EXPECT_EQ(eventBodies().size(), before + 1) << "the second one waited for the first";
    EXPECT_TRUE(destroy || attribution->statistics().dropped == 1) << "and is not forgotten";
    EXPECT_THAT(log.messages(), Contains("debug: PurchaseProcessor - Purchase processed successfully"));
    EXPECT_THAT(log.messages(), Contains(ended));
  }
}

TEST_F(AttributionTracking, eachUpdateThatCameWhileItListenedIsInOneCount) {
  enable();
  delay = std::chrono::seconds(1);
  for (std::uint64_t i = 0; i < 3; ++i) {
    post(subscriptionUpdate(i));
  }
  enable();  // during the first send
  advance(std::chrono::minutes(1));
  simulated.subscriptionUpdates->post(subscriptionUpdate(3));  // handed to the listener, and not looked at
  disable();
  const auto statistics = attribution->statistics();
  EXPECT_EQ(statistics.sent, 1u);
  EXPECT_EQ(statistics.dropped, 3u);
  EXPECT_THAT(eventBodies(), SizeIs(1));
  EXPECT_TRUE(isIdle());
}

TEST_F(AttributionTracking, requestsGoToThePlatformsServicesOrToTheMock) {
  auto platform = simulated.platform();
  platform.serviceUrl = "https://staging.example";
  platform.attributionUrl = "https://attribution.example";
  for (const bool mock : {true, false}) {
    Quillmar::setUseMock(mock);
    simulated.files->removeItem(attributionFile);
    make(platform);
    enable();
    post(subscriptionUpdate(1));
    ASSERT_THAT(simulated.http->requests(), SizeIs(mock ? 0 : 2));
    EXPECT_EQ(readFile() == "{}", mock) << "the mock's document is a record without fields";
    EXPECT_EQ(attribution->statistics().failed, mock ? 1u : 0u) << "and no success";
  }
  const auto requests = simulated.http->requests();
  EXPECT_EQ(requests[0].url, "https://attribution.example/api/v1");
  EXPECT_EQ(requests[1].url, "https://staging.example/ios/events");
  EXPECT_EQ(requests[1].headers.at("Authorization"), "the-key");
  EXPECT_EQ(requests[1].headers.at("Content-Type"), "application/json");
}

class PurchasePayload : public Test, protected AttributionHarness {
 protected:
  PurchasePayload() {
    writeFile("no record");
    enable();
  }
  /// The payload that is sent, behind the identifier that differs each time.
  std::string payload(const platform::SubscriptionStatusUpdate& update) {
    post(update);
    const std::string sent = eventBodies().back();
    EXPECT_THAT(sent, StartsWith(R"({"event_id":")"));
    EXPECT_TRUE(identifiers.insert(sent.substr(13, 36)).second);
    return sent.substr(13 + 36);
  }

  std::set<std::string> identifiers;
};

TEST_F(PurchasePayload, membersComeFromTheStoreAndAreLeftOutWhenTheyCannotBeWritten) {
  const std::string rest =
      R"("event_name":"Purchase","event_type":"AUTOMATIC","transaction_details":{"transaction":{"transactionId":"7"},)"
      R"("renewal_info":{"autoRenewStatus":1},"state":1}})";
  EXPECT_EQ(payload(subscriptionUpdate(7)), R"(","app_id":"Unknown",)" + rest);
  defaults->set("ServerAppId", "app-1");
  const std::pair<PropertyListValue, std::string> rows[] = {
      {"A\"\xFF", "\"quillmar_id\":\"A\\\"\xEF\xBF\xBD\","},
      {std::numeric_limits<std::int64_t>::max(), "\"quillmar_id\":9223372036854775807,"},
      {PropertyListValue::Dictionary{{"a", PropertyListValue::Array{1.5, true}}}, R"("quillmar_id":{"a":[1.5,true]},)"},
      {PropertyListValue::Dictionary{{"a", PropertyListValue::Data{"x"}}}, ""},
      {std::numeric_limits<double>::infinity(), ""},
      {PropertyListValue::Array{"a", PropertyListValue::Date{}}, ""},
  };
  for (const auto& [identifier, member] : rows) {
    defaults->set("QuillmarId", identifier);
    EXPECT_EQ(payload(subscriptionUpdate(7)), "\"," + member + R"("app_id":"app-1",)" + rest);
  }
}

// Objects of all kinds: fuzz/AttributionRecord.cpp.
TEST_F(PurchasePayload, representationsOfThePlatformGoThroughTokenForToken) {
  const std::pair<std::string, std::string> rows[] = {
      {"{\"a\" :\t[ 1.10 , {} ,[ ]],\r\n \"b\\u00e9\": { \"d\" : null }}\n",
       R"({"a":[1.10,{},[]],"b\u00e9":{"d":null}})"},
      {"", ""},  // left out, as are all that follow
      {"[{}]", ""},
      {"{} {}", ""},
      {"{\"a\":\"\xFF\"}", ""},
      {R"({"a":1e999})", ""},
  };
  for (const auto& [representation, expected] : rows) {
    SCOPED_TRACE(representation);
    const auto member = [&](const char* name) { return expected.empty() ? "" : name + expected + ","; };
    auto update = subscriptionUpdate(7);
    update.transaction.jsonRepresentation = representation;
    EXPECT_THAT(payload(update), EndsWith(R"("transaction_details":{)" + member("\"transaction\":") +
                                          R"("renewal_info":{"autoRenewStatus":1},"state":1}})"));
    update = subscriptionUpdate(7);
    update.renewalInfo.jsonRepresentation = representation;
    EXPECT_THAT(payload(update),
                EndsWith(R"({"transactionId":"7"},)" + member("\"renewal_info\":") + R"("state":1}})"));
  }
}

TEST_F(PurchasePayload, isLoggedPrettyPrintedAtTheErrorLevelAndReportedAsSentWithoutRepository) {
  PurchaseProcessor processor(nullptr, nullptr, defaults);
  const auto update = subscriptionUpdate(7);
  spawn(simulated.executor, processor.processPurchase(update.transaction, update.renewalInfo, update.renewalState));
  settle();
  EXPECT_THAT(log.messages(), Contains("debug: PurchaseProcessor - Purchase processed successfully"));
  EXPECT_THAT(log.messages(),
              Contains(AllOf(StartsWith("error: PurchaseProcessor - Complete payload: {\n  \"event_id\": \""),
                             EndsWith("\n    \"renewal_info\": {\n      \"autoRenewStatus\": 1\n    },\n"
                                      "    \"state\": 1\n  }\n}"))));
}

}  // namespace
}  // namespace quillmar::test
