#include "service/DevelopmentService.h"

#include <gmock/gmock.h>

#include <boost/asio/ip/tcp.hpp>

#include "service/ServiceLogic.h"

namespace quillmar::service {
namespace {

using boost::asio::ip::tcp;
using namespace ::testing;

const std::string event = R"({"event_id":"1","event_name":"purchase","quillmar_id":"2","app_id":"3",)";
const std::string purchase = R"({"event_id":"1","app_id":"3","event_name":"Purchase","event_type":"AUTOMATIC")";

TEST(ServiceLogic, answersEachRequest) {
  const struct {
    std::string method, target, body;
    int status = 200;
    std::string part = "success";
    std::string key = "key";
  } rows[] = {
      {"GET", "/ios/config?a=1", "", 200, R"("app_id":"development-app","sdk_enabled":true)"},
      {"POST", "/ios/config", "", 405, "only GET is allowed"},
      {"GET", "/ios/config", "", 401, "error", "other"},
      {"POST", "/ios/events", event + R"("event_type":"MANUAL","sdk_version":"2.0.0"})"},
      {"POST", "/ios/events", event + R"("event_type":"MANUAL"})", 400, "sdk_version is missing"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":{"state":-1}})"},
      {"POST", "/ios/events", purchase + R"(,"transaction_details":{"state":1.5}})", 400, "not an integer"},
      {"POST", "/api/v1", "token", 200, R"("claimType":"Click")"},
      {"POST", "/api/v1", "invalid-token", 400, "the token is empty or not valid"},
  };
  ServiceLogic logic({.acceptedKey = "key"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + row.target + row.body);
    const ServiceAnswer answer = logic.handle({row.method, row.target, {{"authorization", row.key}}, row.body});
    EXPECT_EQ(answer.status, row.status);
    EXPECT_THAT(answer.body, HasSubstr(row.part));
  }
  ServiceLogic failing({.forcedStatus = 402, .failFirst = 1});
  for (const int status : {503, 402, 402}) {
    EXPECT_EQ(failing.handle({"POST", "/api/v1", {}, "token"}).status, status);
  }
}

TEST(ServiceLogic, saysWhatIsWrongWithAConfiguration) {
  for (const auto& [text, place] : {std::pair(R"({"app_id":"mine","values":[],"lockWindows":{}})", "sdk_enabled"),
                                    {"{\n\"values\": x}", "line 2"}}) {
    EXPECT_THAT([&] { ServiceLogic({.configuration = text, .configurationName = "shop.json"}); },
                ThrowsMessage<std::invalid_argument>(AllOf(StartsWith("shop.json: "), HasSubstr(place))));
  }
}

TEST(DevelopmentService, copesWithOddClientsAndTellsOfRequestsWithoutTheKey) {
  std::vector<std::string> lines;  // the service's thread's until it is stopped
  ServiceLogic logic;
  DevelopmentService server({.onRequest = [&](const ServedRequest& served) { lines.push_back(jsonLine(served)); }},
                            [&](const ServiceRequest& received) { return logic.handle(received); });
  server.start();
  const tcp::endpoint endpoint(boost::asio::ip::address_v4::loopback(), server.port());
  tcp::iostream slow(endpoint);
  slow << "POST /ios/events HTTP/1.1\r\nContent-Length: 100\r\n\r\nonly a" << std::flush;

  const std::string body = event + R"("event_type":"PURCHASE"})";
  const std::string post = "POST /ios/events HTTP/1.1\r\nauthorization: secret\r\nContent-Length: ";
  const std::pair<std::string, const char*> rows[] = {
      {"POST /ios/events HTTP/1.1\r\nContent-Length: 8388609\r\n\r\n", "HTTP/1.1 413 "},
      {"nonsense\r\n\r\n", "HTTP/1.1 400 "},
      {"GET / HTTP/1.1\r\nX: " + std::string(70'000, 'x') + "\r\n\r\n", "HTTP/1.1 431 "},
      {"GET /ios/config?secret HTTP/1.1\r\nAuthorization: secret\r\n\r\n", "HTTP/1.1 200 "},
      {post + std::to_string(body.size()) + "\r\n\r\n" + body, "HTTP/1.1 200 "},
  };
  for (const auto& [bytes, status] : rows) {
    tcp::iostream client(endpoint);
    client << bytes << std::flush;
    client.socket().shutdown(tcp::socket::shutdown_send);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(client), {}), StartsWith(status));
  }
  DevelopmentService second({.port = server.port()}, [](const ServiceRequest&) { return ServiceAnswer{}; });
  EXPECT_THAT([&] { second.start(); }, ThrowsMessage<std::runtime_error>(HasSubstr(std::to_string(server.port()))));
  server.stop();

  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[3], R"({"request":{"method":"GET","path":"/ios/config","status":200,"authorized":true,"bytes":0}})");
  EXPECT_THAT(lines[4], HasSubstr(R"("status":200,"event":"purchase","authorized":true,"bytes":)"));
}

}  // namespace
}  // namespace quillmar::service
