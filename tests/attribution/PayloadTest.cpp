#include <gmock/gmock.h>

#include <limits>
#include <set>

#include "Attribution/PurchaseProcessor.h"
#include "support/AttributionHarness.h"
#include "support/RunTask.h"

namespace quillmar::test {
namespace {

using namespace ::testing;
using platform::PropertyListValue;

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

TEST_F(PurchasePayload, representationsOfThePlatformGoThroughTokenForToken) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"id":9007199254740993,"price":1.10,"e":1E+2,"z":-0.0,"big":184467440737095516160})", "="},
      {R"({"a":"\u00e9\/\ud83d\ude00 \" {,:[ \\","a":2,"\u0061":[]})", "="},
      {"{\"a\" :\t[ 1.10 , {} ,[ ]],\r\n \"b c\": { \"d\" : null }}\n", R"({"a":[1.10,{},[]],"b c":{"d":null}})"},
      {"", ""},  // left out, as are all that follow
      {"[{}]", ""},
      {"{} {}", ""},
      {"{\"a\":\"\xFF\"}", ""},
      {R"({"a":1e999})", ""},
  };
  for (const auto& [representation, expected] : rows) {
    SCOPED_TRACE(representation);
    const auto member = [&](const char* name) {
      return expected.empty() ? "" : name + (expected == "=" ? representation : expected) + ",";
    };
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
  runTask(withResult(processor.processPurchase(update.transaction, update.renewalInfo, update.renewalState)));
  EXPECT_THAT(log.messages(), Contains("debug: PurchaseProcessor - Purchase processed successfully"));
  EXPECT_THAT(log.messages(),
              Contains(AllOf(StartsWith("error: PurchaseProcessor - Complete payload: {\n  \"event_id\": \""),
                             EndsWith("\n    \"renewal_info\": {\n      \"autoRenewStatus\": 1\n    },\n"
                                      "    \"state\": 1\n  }\n}"))));
}

}  // namespace
}  // namespace quillmar::test
