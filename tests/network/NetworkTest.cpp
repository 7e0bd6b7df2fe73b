#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Network/ConfigApiClientClient.h"
#include "Network/ConversionValuesApiClient.h"
#include "Network/EventServerLogApiClient.h"
#include "Network/EventServerLogRequest.h"
#include "Network/EventsApiClient.h"
#include "Network/MockNetworkManager.h"
#include "Network/NetworkManager.h"
#include "Network/RequestBuilder.h"
#include "Network/RequestDecoder.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/LogCapture.h"
#include "support/RunTask.h"

namespace quillmar::test {
namespace {

using ::testing::ElementsAre;

using Headers = std::map<std::string, std::string>;

TEST(RequestBuilder, joinsTheUrlAndSetsTheHeadersInTheirOrder) {
  const platform::HttpRequest plain = RequestBuilder().build();
  EXPECT_EQ(plain.url, Config::urlString);
  EXPECT_EQ(plain.method, "GET");
  EXPECT_EQ(plain.timeout.count(), 60.0);
  EXPECT_TRUE(plain.body.empty());

  RequestBuilder builder({{"A", "default"}, {"B", "default"}}, "https://a.example");
  builder.post("/v2/x").headers({{"b", "first"}}).headers({{"b", "request"}, {"content-type", "text/html"}});
  builder.body(std::make_shared<PlainTextBodyContainer>(""));
  const platform::HttpRequest request = builder.build();
  EXPECT_EQ(request.url, "https://a.example//v2/x") << "nothing is normalised";
  EXPECT_EQ(request.headers,
            (Headers{{"A", "default"}, {"b", "request"}, {"Content-Length", "0"}, {"Content-Type", "text/plain"}}));
  EXPECT_EQ(RequestBuilder().delete_("x").build().method, "DELETE");
}

TEST(RequestBuilder, refusesWhatIsNoUrl) {
  for (const auto& [base, path] :
       {std::pair("not a url", ""), {"", "x"}, {"https://a.example", "a b"}, {"https://[::1", "x"}}) {
    RequestBuilder builder({}, base);
    EXPECT_THROW(builder.get(path).build(), std::system_error) << base << " " << path;
  }
}

class Client : public ::testing::Test {
 protected:
  std::shared_ptr<simulated::ManualClock> clock =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  std::shared_ptr<simulated::InMemoryHttpTransport> transport = std::make_shared<simulated::InMemoryHttpTransport>(
      clock, [this](const platform::HttpRequest&) { return simulated::InMemoryAnswer{answer, {}, false}; });
  std::shared_ptr<NetworkManager> manager = std::make_shared<NetworkManager>(transport);
  platform::HttpResult answer{{}, "https://a.example/x", 200, "{}"};
  LogCapture log;

  platform::HttpRequest request() const { return RequestBuilder({}, "https://a.example").get("x").build(); }
};

TEST_F(Client, statusDecidesBetweenSuccessAndTheThreeErrors) {
  const struct {
    int status;
    std::string error, line;
  } cases[] = {{200, "", "debug: NetworkManager - Request sent successfully."},
               {299, "", "debug: NetworkManager - Received response with status code: 299"},
               {100, "unexpectedStatusCode", "error: NetworkManager - Unexpected status code: 100"},
               {399, "unexpectedStatusCode", "error: NetworkManager - Unexpected status code: 399"},
               {400, "invalidRequest", "error: NetworkManager - Client error: 400"},
               {499, "invalidRequest", "error: NetworkManager - Client error: 499"},
               {500, "serverError", "error: NetworkManager - Server error: 500"},
               {599, "serverError", "error: NetworkManager - Server error: 599"},
               {600, "unexpectedStatusCode", "error: NetworkManager - Unexpected status code: 600"}};
  for (const auto& test : cases) {
    answer.statusCode = test.status;
    EXPECT_EQ(failureOf(manager->perform(request()), clock), test.error) << test.status;
    EXPECT_THAT(log.messages(), ::testing::Contains(test.line));
  }
}

TEST_F(Client, transportErrorsPassUnchangedAndUnlogged) {
  answer = {platform::URLError::timedOut, "", {}, ""};
  EXPECT_EQ(failureOf(manager->perform(request()), clock), "timedOut");
  EXPECT_THAT(log.messages(),
              ElementsAre("debug: NetworkManager - Starting network request to URL: https://a.example/x"));
  answer = {{}, "file:///x", {}, ""};
  EXPECT_EQ(failureOf(manager->perform(request()), clock), "badServerResponse");
  EXPECT_THAT(log.messages().back(), "error: NetworkManager - Failed to get HTTPURLResponse");
  EXPECT_EQ(failureOf(manager->perform({}), clock), "unsupportedURL");
  EXPECT_EQ(log.messages().back(), "debug: NetworkManager - Starting network request to URL: Unknown URL");
}

TEST_F(Client, configurationClientsAskWithTheBareKey) {
  answer.body = R"({"app_id":"x","sdk_enabled":false,"values":[],"lockWindows":{}})";
  EXPECT_EQ(runTask(ConversionValuesApiClient(manager, "abc", "https://a.example").fetchConversionValues(), clock),
            ConversionValues());
  EXPECT_FALSE(runTask(ConfigApiClientClient(manager, "", "https://a.example").fetchConfig(), clock).sdkEnabled);
  EXPECT_EQ(log.messages().back(),
            "debug: ConfigApiClientProtocol - Successfully fetched and decoded conversion values");
  const auto requests = transport->requests();
  EXPECT_EQ(requests[0].url, "https://a.example/v2/conversionValues");
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].headers, (Headers{{"Authorization", "abc"}}));
  EXPECT_EQ(requests[1].url, "https://a.example/ios/config");
  EXPECT_EQ(requests[1].headers, (Headers{{"Authorization", ""}})) << "an empty key is sent too";
}

TEST_F(Client, eventLogCarriesTheIdentifiersAndAFreshIdEachTime) {
  const auto defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  EventServerLogApiClient client(manager, "abc", defaults, "https://a.example");
  answer.body = R"({"status":"ok","message":null})";
  EXPECT_EQ(runTask(client.logEvent("a \"quoted\" name"), clock), (EventServerLogResponse{"ok", {}, {}}));
  defaults->set("QuillmarId", "id-1");
  defaults->set("ServerAppId", "app-1");
  answer.body = R"({"status":1})";
  EXPECT_EQ(failureOf(client.logEvent("a"), clock), "typeMismatch: status: expected a string, found another number");
  EventServerLogRequest expected[] = {{"", "a \"quoted\" name", "Unknown", "Unknown", "MANUAL", "2.0.0"},
                                      {"", "a", "id-1", "app-1", "MANUAL", "2.0.0"}};
  for (std::size_t i = 0; i < 2; ++i) {
    const platform::HttpRequest request = transport->requests()[i];
    EXPECT_EQ(request.headers.at("Content-Length"), std::to_string(request.body.size()));
    EXPECT_EQ(request.headers.at("Content-Type"), "application/json");
    const auto sent = RequestDecoder::decode<EventServerLogRequest>({"", 200, request.body});
    expected[i].eventId = sent.eventId;
    EXPECT_EQ(sent, expected[i]);
  }
  EXPECT_EQ(expected[0].eventId.size(), 36u);
  EXPECT_NE(expected[0].eventId, expected[1].eventId);
}

TEST_F(Client, eventsClientSendsTheBytesAsTheyAre) {
  EventsApiClient client(manager, "abc", "https://a.example");
  const std::string bytes("{\"a\":\0\xFF", 7);
  runTask(client.sendEvent(bytes), clock);
  runTask(client.sendEvent(""), clock);
  EXPECT_EQ(transport->requests()[0].body, bytes);
  EXPECT_EQ(transport->requests()[1].headers.at("Content-Length"), "0");
  EXPECT_EQ(log.messages().back(), "debug: EventsApiClient - Successfully sent event");
}

TEST(MockNetworkManager, answersEverythingWithTheSameDocument) {
  EXPECT_EQ(MockNetworkManager::conversionValues.size(), 1104u);
  const auto manager = std::make_shared<MockNetworkManager>();
  const ConversionValues values = runTask(ConversionValuesApiClient(manager, "k").fetchConversionValues());
  ASSERT_EQ(values.values.size(), 2u);
  EXPECT_EQ(values.values[0].key, "Session");
  EXPECT_EQ(values.values[1].windowValue(Window::window1)->fineValue->value, 63);
  EXPECT_EQ(values.lockWindows.at("window1").type, ConversionValues::LockWindowType::high);
  EXPECT_EQ(values.lockWindows.at("window2").value, 168);
  EXPECT_EQ(runTask(EventsApiClient(manager, "k").sendEvent("x")), EventServerLogResponse());
  EXPECT_EQ(failureOf(manager->perform({})), "invalidURL");
}

TEST(SubscriptionsStatusResponse, needsItsFlag) {
  const boost::json::value good = parseJson(R"({"success":true,"error":"none"})");
  EXPECT_EQ(SubscriptionsStatusResponse::decode(JsonReader(good)).error, "none");
  EXPECT_THROW(SubscriptionsStatusResponse::decode(JsonReader(parseJson("{}"))), std::system_error);
}

}  // namespace
}  // namespace quillmar::test
