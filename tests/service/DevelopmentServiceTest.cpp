#include "service/DevelopmentService.h"

#include <gmock/gmock.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <vector>

#include "Json/JsonParser.h"
#include "service/ServiceLogic.h"

namespace quillmar::service {
namespace {

using namespace ::testing;

const std::string event = R"({"event_id":"1","event_name":"purchase","quillmar_id":"2","app_id":"3",)";
const std::string purchase = R"({"event_id":"1","app_id":"3","event_name":"Purchase","event_type":"AUTOMATIC")";

TEST(ServiceLogic, answersEachRequest) {
  const struct {
    std::string method, target, body;
    int status = 200;
    std::string part = "success";
    Headers headers = {{"authorization", "key"}};
  } rows[] = {
      {"GET", "/ios/config?a=1", "", 200, R"("app_id":"development-app","sdk_enabled":true)"},
      {"GET", "/v2/conversionValues", "", 200, R"({"values":[)"},
      {"GET", "/ios/config/", "", 404, "error"},
      {"POST", "/ios/config", "", 405, "only GET is allowed"},
      {"GET", "/ios/events", "", 405, "only POST is allowed"},
      {"GET", "/ios/config", "", 401, "error", {}},
      {"GET", "/ios/config", "", 401, "error", {{"Authorization", ""}}},
      {"GET", "/ios/config", "", 401, "error", {{"Authorization", "other"}}},
      {"POST", "/ios/events", event + R"("event_type":"MANUAL","sdk_version":"2.0.0"})"},
      {"POST", "/ios/events", event + R"("event_type":"PURCHASE"})"},
      {"POST", "/ios/events", event + R"("event_type":"MANUAL"})", 400, "sdk_version is missing"},
      {"POST", "/ios/events", event + R"("event_type":null})", 400, "event_type is not a string"},
      {"POST", "/ios/events", event, 400, "not JSON"},
      {"POST", "/ios/events", "[]", 400, "not a JSON object"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":{"state":-1}})"},
      {"POST", "/ios/events", purchase + "}", 400, "transaction_details is missing"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":[1]})", 400, "is not an object"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":{}})", 400, "state is missing"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":{"state":1.0}})", 400, "not an integer"},
      {"POST", "/ios/events", R"({"event_type":"AUTOMATIC","event_id":1})", 400, "event_id is not a string"},
      {"POST", "/api/v1", "token", 200, R"("claimType":"Click")"},
      {"POST", "/api/v1", "invalid-token", 400, "the token is empty or not valid"},
      {"POST", "/api/v1", "", 400, "the token is empty or not valid"},
  };
  ServiceLogic logic({.acceptedKey = "key"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + row.target + row.body);
    const ServiceAnswer answer = logic.handle({row.method, row.target, row.headers, row.body});
    EXPECT_EQ(answer.status, row.status);
    EXPECT_THAT(answer.body, HasSubstr(row.part));
    EXPECT_NO_THROW(parseJson(answer.body));
    EXPECT_EQ(answer.authorized, row.status != 401);
  }
}

TEST(ServiceLogic, failsOnDemandOrTakesAnyToken) {
  EXPECT_EQ(ServiceLogic({.attributionStatus = 200}).handle({"POST", "/api/v1", {}, ""}).status, 200);
  ServiceLogic logic({.forcedStatus = 402, .failFirst = 2});
  for (const int status : {503, 503, 402, 402}) {
    EXPECT_EQ(logic.handle({"POST", "/api/v1", {}, "token"}).status, status);
  }
}

TEST(ServiceLogic, takesAConfigurationOrSaysWhatIsWrongWithIt) {
  const auto answerWith = [](const std::string& configuration) {
    ServiceLogic logic({.configuration = configuration, .configurationName = "shop.json"});
    return logic.handle({"GET", "/ios/config", {{"Authorization", "key"}}, {}}).body;
  };
  EXPECT_THAT(answerWith(R"({"app_id":"a","sdk_enabled":false,"values":[],"lockWindows":{"window1":{"type":"high"}}})"),
              AllOf(StartsWith(R"({"app_id":"a","sdk_enabled":false,)"), HasSubstr("window1")));
  EXPECT_THAT(answerWith(R"({"values":[{"key":"a","windows":{}}],"lockWindows":{}})"), HasSubstr(R"("key":"a")"));

  const std::pair<const char*, const char*> rows[] = {
      {R"({"values":[{"key":1,"windows":{}}],"lockWindows":{}})", "values[0].key"},
      {R"({"app_id":"mine","values":[],"lockWindows":{}})", "sdk_enabled"},
      {"{\n\"values\": x}", "line 2"},
  };
  for (const auto& [text, place] : rows) {
    EXPECT_THAT([&] { answerWith(text); },
                ThrowsMessage<std::invalid_argument>(AllOf(StartsWith("shop.json: "), HasSubstr(place))));
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
  const std::string body = event + R"("event_type":"PURCHASE"})";
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
    EXPECT_THAT([&] { second.start(); }, ThrowsMessage<std::runtime_error>(HasSubstr(part)));
    EXPECT_EQ(second.port(), 0);
  }
}

}  // namespace
}  // namespace quillmar::service
