#include "service/DevelopmentService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <tuple>
#include <vector>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Model/ConfigResponse.h"
#include "Network/ASAAttributionResponse.h"
#include "service/ServiceLogic.h"

namespace quillmar::service {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kEvent = R"({"event_id":"1","event_name":"purchase","quillmar_id":"2","app_id":"3",)";

const std::string kPurchase = R"({"event_id":"1","app_id":"3","event_name":"Purchase","event_type":"AUTOMATIC")";

ServiceRequest request(std::string method, std::string target, std::string body = "") {
  return {std::move(method), std::move(target), {{"authorization", "key"}}, std::move(body)};
}

TEST(ServiceLogic, answersEachRequest) {
  struct Row {
    ServiceRequest request;
    int status;
    const char* part;
  };
  ServiceRequest withoutKey = request("GET", "/ios/config");
  withoutKey.headers.clear();
  ServiceRequest emptyKey = request("GET", "/ios/config");
  emptyKey.headers["Authorization"] = "";
  ServiceRequest otherKey = request("GET", "/ios/config");
  otherKey.headers["Authorization"] = "other";
  const Row rows[] = {
      {request("GET", "/ios/config"), 200, R"("app_id":"development-app","sdk_enabled":true)"},
      {request("GET", "/ios/config?a=1"), 200, R"("lockWindows")"},
      {request("GET", "/v2/conversionValues"), 200, R"({"values":[)"},
      {request("GET", "/"), 404, "error"},
      {request("GET", "/ios/config/"), 404, "error"},
      {request("POST", "/ios/config"), 405, "only GET is allowed"},
      {request("GET", "/ios/events"), 405, "only POST is allowed"},
      {withoutKey, 401, "error"},
      {emptyKey, 401, "error"},
      {otherKey, 401, "error"},
      {request("POST", "/ios/events", kEvent + R"("event_type":"MANUAL","sdk_version":"2.0.0"})"), 200, "success"},
      {request("POST", "/ios/events", kEvent + R"("event_type":"PURCHASE"})"), 200, "success"},
      {request("POST", "/ios/events", kEvent + R"("event_type":"MANUAL"})"), 400, "sdk_version is missing"},
      {request("POST", "/ios/events", kEvent + R"("event_type":null})"), 400, "event_type is not a string"},
      {request("POST", "/ios/events", kPurchase + R"(,"transaction_details":{"state":-1}})"), 200, "success"},
      {request("POST", "/ios/events", kPurchase + R"(,"quillmar_id":5,"transaction_details":{"state":1}})"), 200, ""},
      {request("POST", "/ios/events", kPurchase + "}"), 400, "transaction_details is missing"},
      {request("POST", "/ios/events", kPurchase + R"(,"transaction_details":[1]})"), 400, "is not an object"},
      {request("POST", "/ios/events", kPurchase + R"(,"transaction_details":{}})"), 400, "state is missing"},
      {request("POST", "/ios/events", kPurchase + R"(,"transaction_details":{"state":1.0}})"), 400, "not an integer"},
      {request("POST", "/ios/events", R"({"event_type":"AUTOMATIC","event_id":1})"), 400, "event_id is not a string"},
      {request("POST", "/api/v1", "token"), 200, R"({"attribution":true,"orgId":"40669820",)"},
      {request("POST", "/api/v1", ""), 400, "token"},
      {request("POST", "/api/v1", "invalid-token"), 400, "token"},
      {request("GET", "/api/v1"), 405, "only POST is allowed"},
      {request("POST", "/ios/events", R"({"event_id":"1"})"), 400, R"("error":"event_name is missing")"},
      {request("POST", "/ios/events", "[]"), 400, "not a JSON object"},
      {request("POST", "/ios/events", kEvent), 400, "not JSON"},
  };
  ServiceLogic logic({.acceptedKey = "key"});
  for (const Row& row : rows) {
    const ServiceAnswer answer = logic.handle(row.request);
    EXPECT_EQ(answer.status, row.status) << row.request.target << row.request.body;
    EXPECT_THAT(answer.body, HasSubstr(row.part)) << row.request.target << row.request.body;
    EXPECT_NO_THROW(parseJson(answer.body));
    EXPECT_EQ(answer.authorized, row.status != 401);
  }
}

TEST(ServiceLogic, exchangesTokensWithoutAKeyAndWithTheStatusThatIsWanted) {
  for (const auto& [wanted, token, status] :
       {std::tuple{0, "token", 200}, {0, "invalid-token", 400}, {200, "", 200}, {404, "token", 404}, {500, "", 500}}) {
    ServiceLogic logic({.attributionStatus = wanted == 0 ? std::nullopt : std::optional(wanted)});
    ServiceRequest exchange = request("POST", "/api/v1", token);
    exchange.headers.clear();
    const ServiceAnswer answer = logic.handle(exchange);
    EXPECT_EQ(answer.status, status) << wanted << token;
    EXPECT_EQ(answer.body.find("\"claimType\":\"Click\"") != std::string::npos, status == 200) << answer.body;
    EXPECT_EQ(logic.handle(request("GET", "/ios/config")).status, 200);
  }
  const auto record = parseJson(ServiceLogic().handle(request("POST", "/api/v1", "token")).body);
  const ASAAttributionResponse decoded = ASAAttributionResponse::decode(JsonReader(record));
  EXPECT_EQ(decoded.attribution, true);
  EXPECT_EQ(decoded.countryOrRegion, "US");
  EXPECT_EQ(decoded.clickDate, "2026-01-01T08:00Z");
  EXPECT_EQ(ServiceLogic({.failFirst = 1}).handle(request("POST", "/api/v1", "token")).status, 503);
}

TEST(ServiceLogic, failsOnDemand) {
  ServiceLogic logic({.forcedStatus = 402, .failFirst = 2});
  std::vector<int> statuses;
  for (int i = 0; i < 4; ++i) {
    statuses.push_back(logic.handle(request("GET", "/ios/config")).status);
  }
  EXPECT_EQ(statuses, (std::vector{503, 503, 402, 402}));
}

TEST(ServiceLogic, takesAConfigurationOrSaysWhatIsWrongWithIt) {
  const auto valuesOf = [](const std::string& text) {
    ServiceLogic logic({.configuration = text, .configurationName = "shop.json"});
    const auto value = parseJson(logic.handle(request("GET", "/ios/config")).body);
    return ConfigResponse::decode(JsonReader(value));
  };
  const ConfigResponse full =
      valuesOf(R"({"app_id":"mine","sdk_enabled":false,"values":[],"lockWindows":{"window1":{"type":"high"}}})");
  EXPECT_EQ(full.appId, "mine");
  EXPECT_FALSE(full.sdkEnabled);
  EXPECT_EQ(full.lockWindows.size(), 1U);
  EXPECT_EQ(valuesOf(R"({"values":[{"key":"a","windows":{}}],"lockWindows":{}})").values.size(), 1U);

  const std::pair<const char*, const char*> rows[] = {
      {R"({"values":[{"key":1,"windows":{}}],"lockWindows":{}})", "values[0].key"},
      {R"({"app_id":"mine","values":[],"lockWindows":{}})", "sdk_enabled"},
      {"{\n\"values\": x}", "line 2"},
  };
  for (const auto& [text, place] : rows) {
    try {
      valuesOf(text);
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), StartsWith("shop.json: "));
      EXPECT_THAT(error.what(), HasSubstr(place));
    }
  }
}

/// A client that may send anything. Its connection ends with it.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port) { socket_.connect({boost::asio::ip::address_v4::loopback(), port}); }
  void send(const std::string& bytes) { boost::asio::write(socket_, boost::asio::buffer(bytes)); }
  /// Says that nothing more comes, and reads to the end.
  std::string rest() {
    socket_.shutdown(boost::asio::ip::tcp::socket::shutdown_send);
    std::string text;
    boost::system::error_code end;
    boost::asio::read(socket_, boost::asio::dynamic_buffer(text), end);
    return text;
  }

 private:
  boost::asio::io_context io_;
  boost::asio::ip::tcp::socket socket_{io_};
};

TEST(DevelopmentService, copesWithOddClientsAndTellsOfRequestsWithoutTheKey) {
  std::vector<std::string> lines;  // the service's thread's until it is stopped
  ServiceLogic logic;
  DevelopmentServiceOptions options;
  options.onRequest = [&](const ServedRequest& served) { lines.push_back(jsonLine(served)); };
  DevelopmentService server(options, [&](const ServiceRequest& received) { return logic.handle(received); });
  server.start();

  RawClient silent(server.port());
  RawClient slow(server.port());
  slow.send("POST /ios/events HTTP/1.1\r\nContent-Length: 100\r\n\r\nonly a pa");

  const std::pair<std::string, const char*> rows[] = {
      {"POST /ios/events HTTP/1.1\r\nContent-Length: 8388609\r\n\r\n", "HTTP/1.1 413 "},
      {"nonsense\r\n\r\n", "HTTP/1.1 400 "},
      {"GET / HTTP/1.1\r\nX: " + std::string(70'000, 'x') + "\r\n\r\n", "HTTP/1.1 431 "},
      {"GET /ios/config?secret HTTP/1.1\r\nAuthorization: secret\r\n\r\n", "HTTP/1.1 200 "},
  };
  for (const auto& [bytes, status] : rows) {
    RawClient client(server.port());
    client.send(bytes);
    EXPECT_THAT(client.rest(), StartsWith(status));
  }
  const std::string body = kEvent + R"("event_type":"PURCHASE"})";
  const std::string post =
      "POST /ios/events HTTP/1.1\r\nauthorization: secret\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\n\r\n" + body;
  RawClient client(server.port());
  client.send(post + post);  // on one connection
  client.rest();
  server.stop();

  const std::string line = R"({"request":{"method":"POST","path":"/ios/events","status":200,"event":"purchase",)"
                           R"("authorized":true,"bytes":)" +
                           std::to_string(body.size()) + "}}";
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[5], line);
  EXPECT_EQ(lines[4], line);
  EXPECT_EQ(lines[3], R"({"request":{"method":"GET","path":"/ios/config","status":200,"authorized":true,"bytes":0}})");
}

TEST(DevelopmentService, saysWhyItCannotStart) {
  DevelopmentService first({}, [](const ServiceRequest&) { return ServiceAnswer{}; });
  first.start();
  EXPECT_NE(first.port(), 0);
  const std::pair<DevelopmentServiceOptions, std::string> rows[] = {
      {{.port = first.port()}, "127.0.0.1:" + std::to_string(first.port())},
      {{.certificateFile = "/nonexistent.pem", .keyFile = "/nonexistent.key"}, "/nonexistent.pem"},
  };
  for (const auto& [options, part] : rows) {
    DevelopmentService second(options, [](const ServiceRequest&) { return ServiceAnswer{}; });
    try {
      second.start();
      ADD_FAILURE() << part;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr(part));
    }
    EXPECT_EQ(second.port(), 0);
  }
}

}  // namespace
}  // namespace quillmar::service
