#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "Platform/Posix/CurlHttpTransport.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/ManualClock.h"
#include "service/DevelopmentService.h"
#include "support/Certificate.h"
#include "support/ScriptedServer.h"

namespace quillmar {
namespace {

using namespace std::chrono_literals;
using namespace platform;
using namespace service;
using test::Certificate;
using testing::Script;
using testing::ScriptedServer;

constexpr auto kLong = 30s;  // nothing that is expected to happen takes so long

/// Where a completion leaves its result. A second call ends the test program.
class Outcome {
 public:
  HttpTransport::Completion completion() {
    return [promise = promise_](HttpResult result) { promise->set_value(std::move(result)); };
  }
  HttpResult await() {
    EXPECT_EQ(future_.wait_for(kLong), std::future_status::ready) << "the request has not ended";
    return hasCome() ? future_.get() : HttpResult();
  }
  bool hasCome() const { return future_.wait_for(0s) == std::future_status::ready; }
  /// Whether the transport still has the completion.
  bool isHeld() const { return promise_.use_count() > 1; }

 private:
  std::shared_ptr<std::promise<HttpResult>> promise_ = std::make_shared<std::promise<HttpResult>>();
  std::future<HttpResult> future_ = promise_->get_future();
};

HttpRequest get(std::string url, std::map<std::string, std::string> headers = {}) {
  return {std::move(url), "GET", std::move(headers), {}, kLong, {}};
}

/// A transport together with the service that it talks to, and what that has seen.
class Backend {
 public:
  explicit Backend(bool inMemory = false, CurlHttpTransportOptions options = {}, DevelopmentServiceOptions server = {})
      : service_(std::move(server), [this](const ServiceRequest& request) { return handle(request); }) {
    if (inMemory) {
      url = "http://service.example";
      transport = std::make_shared<simulated::InMemoryHttpTransport>(clock_, [this](const HttpRequest& request) {
        const service::Headers headers(request.headers.begin(), request.headers.end());
        const auto made = handle({request.method, request.url.substr(url.size()), headers, request.body});
        simulated::InMemoryAnswer result;
        result.result.statusCode = made.status;
        result.result.body = made.body;
        result.delay = made.delay;
        return result;
      });
    } else {
      service_.start();
      url = service_.url();
      transport = std::make_shared<CurlHttpTransport>(std::move(options));
    }
  }
  ~Backend() { transport.reset(); }

  HttpResult perform(HttpRequest request) {
    Outcome outcome;
    transport->start(std::move(request), outcome.completion());
    pump();
    return outcome.await();
  }
  /// Lets completions come that are due.
  void pump() { clock_->advance(0ns); }
  void waitForARequest() const { seen_.wait(0); }
  std::vector<ServiceRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  std::string url;
  std::shared_ptr<HttpTransport> transport;
  std::function<ServiceAnswer(const ServiceRequest&)> answer = [](const ServiceRequest&) { return ServiceAnswer{}; };

 private:
  ServiceAnswer handle(const ServiceRequest& request) {
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
    }
    ++seen_;
    seen_.notify_all();
    return answer(request);
  }

  mutable std::mutex mutex_;
  std::vector<ServiceRequest> requests_;
  std::atomic<int> seen_ = 0;
  std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  DevelopmentService service_;
};

class HttpTransportContract : public ::testing::TestWithParam<bool> {
 protected:
  /// More requests than there are connections, which are not answered but at "/now".
  void startMany() {
    backend_.answer = [](const ServiceRequest& request) {
      return ServiceAnswer{200, "", "text/plain", {}, request.target == "/now" ? 0ms : 1h, {}, false};
    };
    for (Outcome& outcome : outcomes_) {
      identifiers_.push_back(backend_.transport->start(get(backend_.url), outcome.completion()));
    }
    backend_.waitForARequest();
  }

  std::mutex started_;
  std::vector<Outcome> outcomes_{20};
  std::vector<HttpTransport::RequestId> identifiers_;
  Backend backend_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(CurlAndInMemory, HttpTransportContract, ::testing::Bool());

TEST_P(HttpTransportContract, carriesTheExchangeUnchanged) {
  const std::string bytes("{\r\n\0\xff\r\n\r\n%", 10);
  const struct {
    const char* method;
    std::map<std::string, std::string> headers;
    std::string body;
    int status;
  } rows[] = {
      {"GET", {{"Authorization", ""}, {"Content-Length", "0"}}, "", 404},
      {"POST", {{"Content-Type", "application/json"}, {"Content-Length", "10"}}, bytes, 201},
      {"POST", {{"Content-Type", "text/plain"}, {"Content-Length", "0"}}, "", 500},
      {"PUT", {{"X-Odd", "a;b, \"c\""}}, bytes, 600},
      {"PATCH", {{"Accept", "application/json"}}, std::string(3'000'000, 'p'), 200},
      {"DELETE", {}, "", 204},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " -> " + std::to_string(row.status));
    const std::string body = row.status == 204 ? "" : bytes + std::to_string(row.status);
    backend_.answer = [&](const ServiceRequest&) {
      return ServiceAnswer{row.status, body, "text/plain", {}, 0ms, {}, false};
    };
    HttpRequest request = get(backend_.url + "//a/../b?c=%20d", row.headers);
    request.method = row.method;
    request.body = row.body;
    const HttpResult result = backend_.perform(request);
    EXPECT_FALSE(result.error) << result.error.message();
    EXPECT_EQ(result.statusCode, row.status);
    EXPECT_EQ(result.body, body);
    EXPECT_EQ(result.url, request.url);

    ServiceRequest seen = backend_.requests().back();
    EXPECT_EQ(seen.method, row.method);
    EXPECT_EQ(seen.target, "//a/../b?c=%20d");
    EXPECT_EQ(seen.body, row.body);
    // HTTP itself needs these; a second value of one of them would show up joined to the first.
    seen.headers.erase("Host");
    seen.headers.erase("Accept-Encoding");
    service::Headers expected(row.headers.begin(), row.headers.end());
    if (seen.headers.contains("Content-Length")) {
      expected.emplace("Content-Length", std::to_string(row.body.size()));
    }
    EXPECT_EQ(seen.headers, expected);
  }
  EXPECT_EQ(backend_.requests().size(), std::size(rows));
}

TEST_P(HttpTransportContract, completesOnceAndNotInsideStart) {
  std::set<HttpTransport::RequestId> identifiers;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const std::lock_guard lock(started_);
    // Every other one fails before it gets to the network.
    identifiers.insert(backend_.transport->start(get(i % 2 == 0 ? backend_.url : ""),
                                                 [this, next = outcomes_[i].completion()](HttpResult result) {
                                                   const std::lock_guard completing(started_);  // hangs inside start()
                                                   next(std::move(result));
                                                 }));
  }
  backend_.pump();
  EXPECT_EQ(identifiers.size(), outcomes_.size());
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const HttpResult result = outcomes_[i].await();
    EXPECT_EQ(result.error, i % 2 == 0 ? std::error_code() : URLError::unsupportedURL);
    EXPECT_EQ(result.statusCode.has_value(), i % 2 == 0);
  }
  for (const HttpTransport::RequestId id : identifiers) {  // too late
    backend_.transport->cancel(id);
  }
  EXPECT_FALSE(backend_.perform(get(backend_.url)).error);
}

TEST_P(HttpTransportContract, cancelEndsARequestWhereverItIs) {
  startMany();
  for (const HttpTransport::RequestId id : identifiers_) {
    backend_.transport->cancel(id);
    backend_.transport->cancel(id);
  }
  backend_.pump();
  for (Outcome& outcome : outcomes_) {
    EXPECT_EQ(outcome.await().error, URLError::cancelled);
  }
  EXPECT_EQ(backend_.perform(get(backend_.url + "/now")).statusCode, 200);
}

TEST_P(HttpTransportContract, destructionDestroysTheCompletions) {
  startMany();
  backend_.transport.reset();
  backend_.pump();
  for (const Outcome& outcome : outcomes_) {
    EXPECT_FALSE(outcome.hasCome() || outcome.isHeld());
  }
}

TEST_P(HttpTransportContract, aCompletionMayDestroyTheTransport) {
  Outcome first;
  HttpTransport& transport = *backend_.transport;
  transport.start(get(backend_.url),
                  [this, owner = std::move(backend_.transport), next = first.completion()](HttpResult result) mutable {
                    for (Outcome& outcome : outcomes_) {
                      owner->start(get(backend_.url), outcome.completion());
                    }
                    owner.reset();
                    next(std::move(result));
                  });
  backend_.pump();
  EXPECT_EQ(first.await().statusCode, 200);
  backend_.pump();
  for (Outcome& outcome : outcomes_) {
    const auto end = std::chrono::steady_clock::now() + kLong;
    while (outcome.isHeld() && std::chrono::steady_clock::now() < end) {  // its thread is on its way out
      std::this_thread::yield();
    }
    EXPECT_FALSE(outcome.hasCome() || outcome.isHeld());
  }
}

TEST(CurlHttpTransport, refusesWhatItCannotSendAsItIs) {
  Backend backend;
  const std::string good = backend.url;
  const struct {
    URLError error;
    std::string method, name, value, url;
  } rows[] = {
      {URLError::badURL, "GET", "X", "a\r\nEvil: 1", good},
      {URLError::badURL, "GET", "X", "a\nEvil: 1", good},
      {URLError::badURL, "GET", "X", std::string("a\0b", 3), good},
      {URLError::badURL, "GET", "X: 1\r\nEvil", "a", good},
      {URLError::badURL, "GET", "", "a", good},
      {URLError::badURL, "GET / HTTP/1.1\r\nEvil: 1\r\nX:", "X", "a", good},
      {URLError::badURL, "", "X", "a", good},
      {URLError::badURL, "GET", "X", "a", good + "/ HTTP/1.1\r\nEvil: 1"},
      {URLError::badURL, "GET", "X", "a", good + std::string("/\0", 2)},
      {URLError::badURL, "GET", "X", "a", "http://127.0.0.1:99999/"},
      {URLError::unsupportedURL, "GET", "X", "a", "127.0.0.1/"},
      {URLError::unsupportedURL, "GET", "X", "a", "file:///etc/hostname"},
  };
  for (const auto& row : rows) {
    HttpRequest request = get(row.url, {{row.name, row.value}});
    request.method = row.method;
    EXPECT_EQ(backend.perform(request).error, row.error) << row.method << row.name << row.value << row.url;
  }
  EXPECT_TRUE(backend.requests().empty());
}

TEST(CurlHttpTransport, survivesBadServers) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string found = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\n";
  const auto lost = URLError::networkConnectionLost;
  const struct {
    const char* what;
    std::error_code error;
    Script script;
  } rows[] = {
      {"truncated head", lost, {ok + "Content-Le"}},
      {"truncated body", lost, {ok + "Content-Length: 100\r\n\r\nhalf"}},
      {"truncated chunks", lost, {ok + "Transfer-Encoding: chunked\r\n\r\n4\r\nhalf"}},
      {"no HTTP", URLError::badServerResponse, {"hello there\r\n\r\n"}},
      {"bad compression", URLError::badServerResponse, {ok + "Content-Encoding: gzip\r\n\r\nthis is no gzip stream"}},
      {"endless body", URLError::dataLengthExceedsMaximum, {ok + "\r\n", Script::Then::endless}},
      {"silence", URLError::timedOut, {"", Script::Then::hang}},
      {"never silent for long", {}, {ok + "Content-Length: 30\r\n\r\n", Script::Then::drip}},
      {"redirect to nowhere", {}, {found + "\r\n"}},
      {"a location but no redirection", {}, {ok + "Location: /x\r\nContent-Length: 0\r\n\r\n"}},
      {"redirect to a file", URLError::redirectToInsecureLocation, {found + "Location: file:///etc/hostname\r\n\r\n"}},
  };
  CurlHttpTransport transport({.maxConnections = 20, .maxBodyBytes = 100'000});
  std::vector<std::unique_ptr<ScriptedServer>> servers;
  std::vector<Outcome> outcomes(std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {  // all at once, for the time-outs' sake
    servers.push_back(std::make_unique<ScriptedServer>(rows[i].script));
    HttpRequest request = get(servers.back()->url());
    request.timeout = 500ms;
    transport.start(request, outcomes[i].completion());
  }
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const HttpResult result = outcomes[i].await();
    EXPECT_EQ(result.error, rows[i].error) << rows[i].what;
    EXPECT_EQ(result.statusCode.has_value(), !rows[i].error) << rows[i].what;
  }
}

TEST(CurlHttpTransport, silenceEndsAnExchangeLongBeforeTheOverallLimit) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n";
  for (const Script& script : {Script{head, Script::Then::hang}, Script{head, Script::Then::drip, 10ms}}) {
    const ScriptedServer server(script);
    Backend backend;
    HttpRequest request = get(server.url());
    request.timeout = 300ms;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(backend.perform(request).error, URLError::timedOut);
    const bool tookLong = std::chrono::steady_clock::now() - start >= 9 * request.timeout;
    EXPECT_EQ(tookLong, script.then == Script::Then::drip);
  }
}

TEST(CurlHttpTransport, decompressesAndCountsWhatComesOut) {
  const std::string plain(1000, 'z');
  const char compressed[] = "\x78\xda\xab\xaa\x1a\x05\xa3\x60\x14\x0c\x77\x00\x00\xf1\xfd\xdc\xa0";
  for (const std::size_t limit : {plain.size(), plain.size() - 1}) {
    Backend backend(false, {.maxBodyBytes = limit});
    backend.answer = [&](const ServiceRequest&) {
      const std::string body(compressed, sizeof(compressed) - 1);
      return ServiceAnswer{200, body, "text/plain", {{"Content-Encoding", "deflate"}}, 0ms, {}, false};
    };
    const HttpResult result = backend.perform(get(backend.url));
    EXPECT_EQ(result.error, limit < plain.size() ? URLError::dataLengthExceedsMaximum : std::error_code());
    EXPECT_EQ(result.body == plain, limit == plain.size());
  }
}

ServiceAnswer redirectTo(int status, const std::string& location) {
  return {status, "moved", "text/plain", {{"Location", location}}, 0ms, {}, false};
}

TEST(CurlHttpTransport, followsRedirectsWithTheRightMethod) {
  const struct {
    int status;
    const char* method;
    const char* then;
  } rows[] = {{301, "POST", "GET"},   {302, "POST", "GET"},  {302, "PUT", "PUT"},
              {303, "DELETE", "GET"}, {307, "POST", "POST"}, {308, "POST", "POST"}};
  Backend backend;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.status) + " " + row.method);
    backend.answer = [&](const ServiceRequest& request) {
      return request.target == "/from" ? redirectTo(row.status, "to?x=1") : ServiceAnswer{};
    };
    HttpRequest request = get(backend.url + "/from", {{"Authorization", "key"}, {"Content-Type", "text/plain"}});
    request.method = row.method;
    request.body = "body";
    const HttpResult result = backend.perform(request);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(result.url, backend.url + "/to?x=1");
    EXPECT_EQ(result.body, "");
    const ServiceRequest seen = backend.requests().back();
    const bool kept = std::string_view(row.method) == row.then;
    EXPECT_EQ(seen.method, row.then);
    EXPECT_EQ(seen.body, kept ? "body" : "");
    EXPECT_EQ(seen.headers.contains("Content-Type"), kept);
    EXPECT_EQ(seen.headers.at("Authorization"), "key");
  }
}

TEST(CurlHttpTransport, keepsCredentialsFromOtherOriginsAndLeavesALoop) {
  Backend here;
  Backend there;
  here.answer = [&](const ServiceRequest&) { return redirectTo(307, there.url); };
  there.answer = [&](const ServiceRequest&) { return redirectTo(307, here.url); };
  const HttpRequest request = get(here.url, {{"authorization", "key"}, {"Cookie", "a"}, {"X-Kept", "1"}});
  EXPECT_EQ(here.perform(request).error, URLError::httpTooManyRedirects);
  EXPECT_EQ(here.requests().size() + there.requests().size(), 21U);
  EXPECT_TRUE(here.requests().front().headers.contains("Authorization"));
  // Nor do they come back: the other origin chose where to go.
  for (const ServiceRequest& seen : {there.requests().front(), here.requests().back()}) {
    EXPECT_FALSE(seen.headers.contains("Authorization") || seen.headers.contains("Cookie"));
    EXPECT_TRUE(seen.headers.contains("X-Kept"));
  }
}

TEST(CurlHttpTransport, trustsOnlyCertificatesOfItsIssuersForTheHostAndNeverGoesBackToHttp) {
  const Certificate good("127.0.0.1");
  const Certificate otherHost("127.0.0.2");
  Backend plain;
  const struct {
    const char* what;
    const Certificate& server;
    std::string caFile;
    URLError error;
  } rows[] = {
      {"known issuer", good, good.file(), URLError::redirectToInsecureLocation},
      {"unknown issuer", good, otherHost.file(), URLError::secureConnectionFailed},
      {"the system's issuers", good, "", URLError::secureConnectionFailed},
      {"another host's certificate", otherHost, otherHost.file(), URLError::secureConnectionFailed},
      {"no file with issuers", good, "/nonexistent/issuers.pem", URLError::secureConnectionFailed},
  };
  for (const auto& row : rows) {
    Backend backend(false, {.caFile = row.caFile}, {.certificateFile = row.server.file(), .keyFile = row.server.key()});
    backend.answer = [&](const ServiceRequest&) { return redirectTo(302, plain.url); };
    EXPECT_EQ(backend.perform(get(backend.url)).error, row.error) << row.what;
    EXPECT_EQ(backend.requests().size(), row.caFile == good.file() ? 1U : 0U) << row.what;
  }
  EXPECT_TRUE(plain.requests().empty());
}

TEST(CurlHttpTransport, anIdleConnectionMakesRoomForAnotherServer) {
  Backend one(false, {.maxConnections = 1});
  Backend other;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(one.perform(get(one.url)).statusCode, 200);
    EXPECT_EQ(one.perform(get(other.url)).statusCode, 200);
  }
}

}  // namespace
}  // namespace quillmar
