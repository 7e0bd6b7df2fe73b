#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "Attribution/PurchaseProcessor.h"
#include "Json/JsonParser.h"
#include "Logging/ErrorDescription.h"
#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class RecordingEventsRepository : public EventsRepositoryProtocol {
 public:
  Task<void> send(std::string payload) override {
    payloads.push_back(std::move(payload));
    co_return;
  }

  std::vector<std::string> payloads;
};

Task<void> process(std::shared_ptr<PurchaseProcessorProtocol> processor, platform::SubscriptionStatusUpdate update,
                   std::string& failure) {
  try {
    co_await processor->processPurchase(std::move(update.transaction), std::move(update.renewalInfo),
                                        update.renewalState);
    failure = "none";
  } catch (const std::exception& error) {
    failure = localizedDescription(error);
  }
}

struct ProcessorHarness {
  std::shared_ptr<simulated::ManualExecutor> executor = std::make_shared<simulated::ManualExecutor>();
  std::shared_ptr<simulated::InMemoryUserDefaults> defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  std::shared_ptr<RecordingEventsRepository> events = std::make_shared<RecordingEventsRepository>();

  /// Processes one update and returns how it failed.
  std::string run(const platform::SubscriptionStatusUpdate& update,
                  std::shared_ptr<EventsRepositoryProtocol> repository) {
    std::string failure = "not done";
    auto processor = std::make_shared<PurchaseProcessor>(nullptr, std::move(repository), defaults);
    Task<void> task = process(std::move(processor), update, failure);
    spawn(executor, std::move(task));
    executor->runUntilIdle();
    return failure;
  }
  /// The payload that is sent, without the identifier that differs each time.
  std::string payload(const platform::SubscriptionStatusUpdate& update) {
    EXPECT_EQ(run(update, events), "none");
    const std::string start = R"({"event_id":")";
    const std::string& sent = events->payloads.back();
    EXPECT_EQ(sent.substr(0, start.size()), start);
    EXPECT_EQ(sent.at(start.size() + 36), '"');
    return "{" + sent.substr(start.size() + 36 + 2);
  }
};

TEST(PurchasePayload, membersComeFromTheStoreAndAreLeftOutWhenTheyCannotBeWritten) {
  using platform::PropertyListValue;
  struct Case {
    std::optional<PropertyListValue> identifier;
    std::string member;
  };
  const Case cases[] = {
      {{}, ""},
      {PropertyListValue("A\"\xFF"), "\"quillmar_id\":\"A\\\"\xEF\xBF\xBD\","},
      {PropertyListValue(std::numeric_limits<std::int64_t>::max()), "\"quillmar_id\":9223372036854775807,"},
      {PropertyListValue(PropertyListValue::Dictionary{{"a", PropertyListValue::Array{1.5, true}}}),
       R"("quillmar_id":{"a":[1.5,true]},)"},
      {PropertyListValue(PropertyListValue::Data{"x"}), ""},
      {PropertyListValue(std::numeric_limits<double>::infinity()), ""},
      {PropertyListValue(PropertyListValue::Array{"a", PropertyListValue::Date{}}), ""},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.member);
    ProcessorHarness host;
    if (test.identifier) {
      host.defaults->set("QuillmarId", *test.identifier);
    }
    const std::string rest =
        R"("event_name":"Purchase","event_type":"AUTOMATIC","transaction_details":{"transaction":{"transactionId":"7"},)"
        R"("renewal_info":{"autoRenewStatus":1},"state":1}})";
    EXPECT_EQ(host.payload(subscriptionUpdate(7)), "{" + test.member + R"("app_id":"Unknown",)" + rest);
    host.defaults->set("ServerAppId", "app-1");
    EXPECT_EQ(host.payload(subscriptionUpdate(7)), "{" + test.member + R"("app_id":"app-1",)" + rest);
    EXPECT_NE(host.events->payloads[0].substr(0, 50), host.events->payloads[1].substr(0, 50));
  }
}

TEST(PurchasePayload, representationsOfThePlatformGoThroughTokenForToken) {
  struct Case {
    std::string representation;
    std::string sent;    // empty: left out
    std::string pretty;  // as in the log, below four spaces; empty: not looked at
  };
  const Case cases[] = {
      {R"({"id":9007199254740993,"price":1.10,"e":1E+2,"z":-0.0,"big":184467440737095516160})", "=", ""},
      {R"({"a":"\u00e9\/\ud83d\ude00 \" {,:[ \\","a":2,"\u0061":[]})", "=", ""},
      {"{\"a\" :\t[ 1.10 , {} ,[ ]],\r\n \"b c\": { \"d\" : null }}\n", R"({"a":[1.10,{},[]],"b c":{"d":null}})",
       "{\n      \"a\": [\n        1.10,\n        {},\n        []\n      ],\n      \"b c\": {\n        \"d\": null\n"
       "      }\n    }"},
      {"{}", "=", "{}"},
      {"", "", ""},
      {"[{}]", "", ""},
      {"\"{}\"", "", ""},
      {"{} {}", "", ""},
      {"{\"a\":\"\xFF\"}", "", ""},
      {R"({"a":1e999})", "", ""},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.representation);
    const std::string& sent = test.sent == "=" ? test.representation : test.sent;
    ProcessorHarness host;
    LogCapture log;
    auto update = subscriptionUpdate(7);
    update.renewalState = -5;
    update.transaction.jsonRepresentation = test.representation;
    EXPECT_THAT(host.payload(update),
                HasSubstr(R"("transaction_details":{)" + (sent.empty() ? "" : R"("transaction":)" + sent + ",") +
                          R"("renewal_info":{"autoRenewStatus":1},"state":-5})"));
    EXPECT_NO_THROW(parseJson(host.events->payloads.back()));
    update = subscriptionUpdate(7);
    update.renewalInfo.jsonRepresentation = test.representation;
    EXPECT_THAT(host.payload(update),
                EndsWith(R"({"transactionId":"7"},)" + (sent.empty() ? "" : R"("renewal_info":)" + sent + ",") +
                         R"("state":1}})"));
    if (!test.pretty.empty()) {
      EXPECT_THAT(log.messages(), Contains(HasSubstr("\n    \"transaction\": " + test.pretty + ",\n")));
    }
  }
}

TEST(PurchasePayload, isLoggedWholeAtTheErrorLevel) {
  ProcessorHarness host;
  LogCapture log(LogLevel::error);
  host.payload(subscriptionUpdate(7));
  const auto messages = log.messages();
  ASSERT_EQ(messages.size(), 1u);
  const std::string start = "error: PurchaseProcessor - Complete payload: {\n  \"event_id\": \"";
  EXPECT_EQ(messages[0].substr(0, start.size()), start);
  EXPECT_EQ(messages[0].substr(start.size() + 36),
            R"(",
  "app_id": "Unknown",
  "event_name": "Purchase",
  "event_type": "AUTOMATIC",
  "transaction_details": {
    "transaction": {
      "transactionId": "7"
    },
    "renewal_info": {
      "autoRenewStatus": 1
    },
    "state": 1
  }
})");
}

TEST(PurchasePayload, isReportedAsSentWithoutRepository) {
  ProcessorHarness host;
  LogCapture log(LogLevel::debug);
  EXPECT_EQ(host.run(subscriptionUpdate(7), nullptr), "none");
  auto messages = log.messages();
  std::erase_if(messages, [](const auto& line) { return line.starts_with("error"); });
  EXPECT_THAT(messages,
              ::testing::ElementsAre("debug: PurchaseProcessor - Processing purchase for transaction: 7, state: 1",
                                     "debug: PurchaseProcessor - Creating correlated payload",
                                     "debug: PurchaseProcessor - Correlated payload created successfully",
                                     "debug: PurchaseProcessor - Sending payload to server",
                                     "debug: PurchaseProcessor - Purchase data sent successfully to server",
                                     "debug: PurchaseProcessor - Purchase processed successfully"));
}

}  // namespace
}  // namespace quillmar::test
