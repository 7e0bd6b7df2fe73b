#include <gtest/gtest.h>

#include <set>

#include "Network/ConversionValuesApiClient.h"
#include "Network/EventServerLogApiClient.h"
#include "Network/EventServerLogRequest.h"
#include "Network/MockNetworkManager.h"
#include "Network/NetworkManager.h"
#include "Network/RequestBuilder.h"
#include "Network/RequestDecoder.h"
#include "Network/UserAgent.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/FailureOf.h"

namespace quillmar::test {
namespace {

using Headers = std::map<std::string, std::string>;

TEST(RequestBuilder, joinsTheUrlAndSetsTheHeadersInTheirOrder) {
  RequestBuilder builder({{"A", "default"}, {"B", "default"}}, "https://a.example");
  builder.post("/v2/x").headers({{"b", "first"}}).headers({{"b", "request"}, {"content-type", "text/html"}});
  builder.body(std::make_shared<PlainTextBodyContainer>(""));
  const platform::HttpRequest request = builder.build();
  EXPECT_EQ(request.url, "https://a.example//v2/x") << "nothing is normalised";
  EXPECT_EQ(request.headers,
            (Headers{{"A", "default"}, {"b", "request"}, {"Content-Length", "0"}, {"Content-Type", "text/plain"}}));
}

// What a URL is, except in brackets: fuzz/RequestUrl.cpp.
TEST(RequestBuilder, refusesWhatIsNoUrl) {
  EXPECT_EQ(RequestBuilder({}, "http://[::1]:1").get("x").build().url, "http://[::1]:1/x");
  for (const char* url : {"", "https://a b", "https://[::1", "https://[::g]", "https://[]", "https://[::1]x"}) {
    EXPECT_THROW(RequestBuilder({}, url).build(), std::system_error) << url;
  }
}

class Client : public ::testing::Test {
 protected:
  std::shared_ptr<simulated::ManualClock> clock =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  std::shared_ptr<simulated::InMemoryHttpTransport> transport = std::make_shared<simulated::InMemoryHttpTransport>(
      clock, [this](const platform::HttpRequest&) { return simulated::InMemoryAnswer{answer, {}, false}; });
  std::shared_ptr<NetworkManager> manager =
      std::make_shared<NetworkManager>(std::make_shared<NetworkGate>(transport, nullptr));
  platform::HttpResult answer{{}, "https://a.example/x", 200, "{}"};

  platform::HttpRequest request() const { return RequestBuilder({}, "https://a.example").get("x").build(); }
};

TEST_F(Client, transportAndStatusDecideBetweenSuccessAndTheErrors) {
  const auto failure = [this] { return failureOf(manager->perform(request()), clock); };
  const std::string unexpected = "unexpectedStatusCode";
  const std::tuple<int, int, std::string> ranges[] = {{100, 199, unexpected},    {200, 299, ""},
                                                      {300, 399, unexpected},    {400, 499, "invalidRequest"},
                                                      {500, 599, "serverError"}, {600, 999, unexpected}};
  for (const auto& [first, last, error] : ranges) {
    for (const int status : {first, last}) {
      answer.statusCode = status;
      EXPECT_EQ(failure(), error) << status;
    }
  }
  answer = {platform::URLError::timedOut, "", {}, ""};
  EXPECT_EQ(failure(), "timedOut");
  answer = {{}, "file:///x", {}, ""};
  EXPECT_EQ(failure(), "badServerResponse");
  EXPECT_EQ(failureOf(std::make_shared<MockNetworkManager>()->perform({})), "invalidURL");
}

TEST_F(Client, conversionValuesAreAskedForWithTheBareKey) {
  answer.body = R"({"values":[],"lockWindows":{}})";
  EXPECT_EQ(failureOf(ConversionValuesApiClient(manager, "", "https://a.example").fetchConversionValues(), clock), "");
  EXPECT_EQ(failureOf(ConversionValuesApiClient(std::make_shared<MockNetworkManager>(), "k").fetchConversionValues()),
            "");
  EXPECT_EQ(transport->requests()[0].url, "https://a.example/v2/conversionValues");
  EXPECT_EQ(transport->requests()[0].headers, (Headers{{"Authorization", ""}})) << "an empty key is sent too";
}

TEST_F(Client, eventLogCarriesTheIdentifiersAndAFreshIdEachTime) {
  const auto defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  EventServerLogApiClient client(manager, "abc", defaults, "https://a.example");
  std::set<std::string> ids;
  for (const auto& [id, appId] : {std::pair("Unknown", "Unknown"), {"id-1", "app-1"}}) {
    EXPECT_EQ(failureOf(client.logEvent("a \"quoted\" name", ""), clock), "");
    const auto sent = RequestDecoder::decode<EventServerLogRequest>({"", 200, transport->requests().back().body});
    EXPECT_TRUE(ids.insert(sent.eventId).second);
    EXPECT_EQ(sent, (EventServerLogRequest{sent.eventId, "a \"quoted\" name", id, appId, "MANUAL", "2.0.0"}));
    defaults->set("QuillmarId", "id-1");
    defaults->set("ServerAppId", "app-1");
  }
  EXPECT_EQ(transport->requests()[0].headers.at("Content-Type"), "application/json");
}

TEST(UserAgent, namesHostAndLibraryWhateverTheHostIsCalled) {
  const std::pair<platform::Bundle, std::string> rows[] = {
      {{"id", "", "1.0"}, ""},
      {{"id", "app", "1.0"}, "app/1.0 "},
      {{"id", "A b/%\r\nX:\xc3", ""}, "A%20b%2F%25%0D%0AX%3A%C3 "}};
  for (const auto& [bundle, host] : rows) {
    EXPECT_EQ(userAgentOf(bundle), host + "quillmar/2.0.0");
  }
}

}  // namespace
}  // namespace quillmar::test
