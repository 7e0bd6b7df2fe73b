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

TEST(DevelopmentService, tellsOfRequestsWithoutTheKey) {
  std::vector<std::string> lines;  // the service's thread's until it is stopped
  ServiceLogic logic;
  DevelopmentService server({.onRequest = [&](const ServedRequest& served) { lines.push_back(jsonLine(served)); }},
                            [&](const ServiceRequest& received) { return logic.handle(received); });
  server.start();
  for (const auto& [bytes, status] :
       {std::pair("nonsense\r\n\r\n", "HTTP/1.1 400 "),
        {"GET /ios/config?secret HTTP/1.1\r\nAuthorization: secret\r\n\r\n", "HTTP/1.1 200 "}}) {
    tcp::iostream client(tcp::endpoint(boost::asio::ip::address_v4::loopback(), server.port()));
    client << bytes << std::flush;
    client.socket().shutdown(tcp::socket::shutdown_send);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(client), {}), StartsWith(status));
  }
  server.stop();
  EXPECT_EQ(lines.back(),
            R"({"request":{"method":"GET","path":"/ios/config","status":200,"authorized":true,"bytes":0}})");
}

}  // namespace
}  // namespace quillmar::service
