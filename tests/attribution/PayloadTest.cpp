#include <gmock/gmock.h>

#include <limits>

#include "Attribution/PurchaseProcessor.h"
#include "Json/JsonParser.h"
#include "support/AttributionHarness.h"
#include "support/RunTask.h"

namespace quillmar::test {
namespace {

using platform::PropertyListValue;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::StartsWith;

struct RecordingEventsRepository : EventsRepositoryProtocol {
  Task<void> send(std::string payload) override {
    payloads.push_back(std::move(payload));
    co_return;
  }
  std::vector<std::string> payloads;
};

class PurchasePayload : public ::testing::Test {
 protected:
  /// The payload that is sent, without the identifier that differs each time.
  std::string payload(const platform::SubscriptionStatusUpdate& update) {
    process(update, events);
    const std::string start = R"({"event_id":")";
    const std::string& sent = events->payloads.back();
    EXPECT_EQ(sent.substr(0, start.size()), start);
    EXPECT_EQ(sent.at(start.size() + 36), '"');
    EXPECT_TRUE(identifiers.insert(sent.substr(start.size(), 36)).second);
    return "{" + sent.substr(start.size() + 36 + 2);
  }
  void process(const platform::SubscriptionStatusUpdate& update, std::shared_ptr<EventsRepositoryProtocol> repository) {
    PurchaseProcessor processor(nullptr, std::move(repository), defaults);
    EXPECT_EQ(
        failureOf(withResult(processor.processPurchase(update.transaction, update.renewalInfo, update.renewalState))),
        "");
  }

  std::shared_ptr<simulated::InMemoryUserDefaults> defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  std::shared_ptr<RecordingEventsRepository> events = std::make_shared<RecordingEventsRepository>();
  std::set<std::string> identifiers;
  LogCapture log;
};

TEST_F(PurchasePayload, membersComeFromTheStoreAndAreLeftOutWhenTheyCannotBeWritten) {
  const std::string rest =
      R"("event_name":"Purchase","event_type":"AUTOMATIC","transaction_details":{"transaction":{"transactionId":"7"},)"
      R"("renewal_info":{"autoRenewStatus":1},"state":1}})";
  EXPECT_EQ(payload(subscriptionUpdate(7)), R"({"app_id":"Unknown",)" + rest);
  defaults->set("ServerAppId", "app-1");
  const std::pair<PropertyListValue, std::string> cases[] = {
      {"A\"\xFF", "\"quillmar_id\":\"A\\\"\xEF\xBF\xBD\","},
      {std::numeric_limits<std::int64_t>::max(), "\"quillmar_id\":9223372036854775807,"},
      {PropertyListValue::Dictionary{{"a", PropertyListValue::Array{1.5, true}}}, R"("quillmar_id":{"a":[1.5,true]},)"},
      {PropertyListValue::Data{"x"}, ""},
      {std::numeric_limits<double>::infinity(), ""},
      {PropertyListValue::Array{"a", PropertyListValue::Date{}}, ""},
  };
  for (const auto& [identifier, member] : cases) {
    defaults->set("QuillmarId", identifier);
    EXPECT_EQ(payload(subscriptionUpdate(7)), "{" + member + R"("app_id":"app-1",)" + rest);
  }
}

TEST_F(PurchasePayload, representationsOfThePlatformGoThroughTokenForToken) {
  const std::pair<std::string, std::string> cases[] = {
      {R"({"id":9007199254740993,"price":1.10,"e":1E+2,"z":-0.0,"big":184467440737095516160})", "="},
      {R"({"a":"\u00e9\/\ud83d\ude00 \" {,:[ \\","a":2,"\u0061":[]})", "="},
      {"{\"a\" :\t[ 1.10 , {} ,[ ]],\r\n \"b c\": { \"d\" : null }}\n", R"({"a":[1.10,{},[]],"b c":{"d":null}})"},
      {"{}", "="},
      {"", ""},  // left out, as are all that follow
      {"[{}]", ""},
      {"\"{}\"", ""},
      {"{} {}", ""},
      {"{\"a\":\"\xFF\"}", ""},
      {R"({"a":1e999})", ""},
  };
  for (const auto& [representation, expected] : cases) {
    SCOPED_TRACE(representation);
    const std::string& sent = expected == "=" ? representation : expected;
    auto update = subscriptionUpdate(7);
    update.renewalState = -5;
    update.transaction.jsonRepresentation = representation;
    EXPECT_THAT(payload(update),
                EndsWith(R"("transaction_details":{)" + (sent.empty() ? "" : R"("transaction":)" + sent + ",") +
                         R"("renewal_info":{"autoRenewStatus":1},"state":-5}})"));
    EXPECT_NO_THROW(parseJson(events->payloads.back()));
    update = subscriptionUpdate(7);
    update.renewalInfo.jsonRepresentation = representation;
    EXPECT_THAT(payload(update), EndsWith(R"({"transactionId":"7"},)" +
                                          (sent.empty() ? "" : R"("renewal_info":)" + sent + ",") + R"("state":1}})"));
  }
}

TEST_F(PurchasePayload, isLoggedPrettyPrintedAtTheErrorLevelAndReportedAsSentWithoutRepository) {
  process(subscriptionUpdate(7), nullptr);
  EXPECT_THAT(log.messages(), Contains("debug: PurchaseProcessor - Purchase processed successfully"));
  EXPECT_THAT(log.messages(),
              Contains(AllOf(StartsWith("error: PurchaseProcessor - Complete payload: {\n  \"event_id\": \""),
                             EndsWith("\n    \"renewal_info\": {\n      \"autoRenewStatus\": 1\n    },\n"
                                      "    \"state\": 1\n  }\n}"))));
}

}  // namespace
}  // namespace quillmar::test
