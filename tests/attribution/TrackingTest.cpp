#include <gmock/gmock.h>

#include "Attribution/PurchaseProcessor.h"
#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace ::testing;
using platform::PropertyListValue;

class AttributionTracking : public Test, protected AttributionHarness {};

TEST_F(AttributionTracking, storesTheRecordThatTheServiceKnowsAndAsksNobodyForTheMocks) {
  auto platform = simulated.platform();
  platform.serviceUrl = "https://staging.example";
  for (const bool mock : {true, false}) {
    Quillmar::setUseMock(mock);
    simulated.files->removeItem(attributionFile);
    make(platform);
    enable();
    post(subscriptionUpdate(1));
    ASSERT_THAT(simulated.http->requests(), SizeIs(mock ? 0 : 2));
    EXPECT_EQ(readFile(), mock ? "{}" : R"({"attribution":true,"campaignId":"12"})");
    EXPECT_EQ(attribution->statistics().failed, mock ? 1u : 0u) << "the mock's answer is no success";
  }
  const auto requests = simulated.http->requests();
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].url, "https://api-adservices.apple.com/api/v1");
  EXPECT_EQ(requests[0].body, "simulated-attribution-token");
  const std::map<std::string, std::string> headers{{"Content-Type", "text/plain"}, {"Content-Length", "27"}};
  EXPECT_EQ(requests[0].headers, headers);
  EXPECT_EQ(requests[1].url, "https://staging.example/ios/events");
  EXPECT_EQ(requests[1].headers.at("Authorization"), "the-key");
  EXPECT_EQ(requests[1].headers.at("Content-Type"), "application/json");
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
  const std::tuple<int, std::string, std::vector<std::chrono::seconds>> rows[] = {
      {404, "", {5s, 5s, 5s}}, {503, "90", {90s, 600s, 3600s}}, {400, "", {}}, {401, "", {}}};
  for (const auto& [status, comeBack, waits] : rows) {
    attributionStatus = status;
    retryAfter = comeBack;
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
  EXPECT_TRUE(logged("error: PurchaseInterceptor - Failed to verify subscription status: bad {signature}"));
  EXPECT_TRUE(logged("Processing purchase for transaction: 18446744073709551615, state: 1"));
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
  attribution->enableASAAttributionTracking();
  enable();
  EXPECT_EQ(listeners(), 1u);
  post(subscriptionUpdate(7));
  EXPECT_EQ(eventBodies().size(), 1u);
  EXPECT_EQ(simulated.attributionToken->requests(), 0u);
  EXPECT_EQ(readFile(), "[]");
}

TEST_F(AttributionTracking, disablingEndsTheListeningAndEnablingStartsItAgain) {
  enable();
  disable();
  EXPECT_TRUE(logged("debug: QuillmarASAAttribution - Disabling ASA attribution tracking"));
  EXPECT_EQ(QuillmarASAAttributionCore::of(*attribution).purchaseProcessor(), nullptr);
  post(subscriptionUpdate(1));
  attribution->disableASAAttributionTracking();
  enable();  // before the task that stops has run: it must not stop the new listener
  EXPECT_FALSE(logged("Stopping purchase listener"));
  post(subscriptionUpdate(2));
  EXPECT_THAT(eventBodies(), ElementsAre(HasSubstr(R"("2")")));
  attribution->enableASAAttributionTracking();
  disable();  // before the listener was started
  post(subscriptionUpdate(3));
  EXPECT_THAT(eventBodies(), SizeIs(1));
  EXPECT_EQ(listeners(), 0u);
  EXPECT_TRUE(isIdle());
}

TEST_F(AttributionTracking, whateverEndsTheListeningDuringASendFinishesItAndCountsWhatIsNotLookedAt) {
  const std::function<void()> endings[] = {[this] { disable(); }, [this] { enable(); },
                                           [this] { attribution.reset(); }};
  for (std::size_t sent = 0; const auto& end : endings) {
    SCOPED_TRACE(sent);
    enable();
    delay = std::chrono::seconds(10);
    post(subscriptionUpdate(1));
    post(subscriptionUpdate(2));
    simulated.subscriptionUpdates->post(subscriptionUpdate(3));  // handed to the listener, and not looked at
    EXPECT_FALSE(isIdle());
    end();
    EXPECT_EQ(listeners(), sent == 1 ? 1u : 0u);
    advance(std::chrono::minutes(1));
    ++sent;
    EXPECT_EQ(eventBodies().size(), sent) << "the others waited for the first";
    EXPECT_EQ(countLines("Purchase processed successfully"), sent);
    EXPECT_TRUE(!attribution || (attribution->statistics().dropped == 2 * sent && isIdle()));
  }
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

TEST_F(PurchasePayload, isReportedAsSentWithoutRepository) {
  PurchaseProcessor processor(nullptr, nullptr, defaults);
  const auto update = subscriptionUpdate(7);
  spawn(simulated.executor, processor.processPurchase(update.transaction, update.renewalInfo, update.renewalState));
  settle();
  EXPECT_TRUE(logged("PurchaseProcessor - Purchase processed successfully"));
}

}  // namespace
}  // namespace quillmar::test
