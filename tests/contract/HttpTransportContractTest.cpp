#include <gmock/gmock.h>

#include <condition_variable>
#include <set>

#include "Platform/Curl/CurlHttpTransport.h"
#include "quillmar/platform/URLError.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/ManualClock.h"
#include "support/LoopbackService.h"
#include "support/ScriptedServer.h"
#include "support/ThroughC.h"

namespace quillmar {
namespace {

using test::Script;
using test::ScriptedServer;
using namespace std::chrono_literals;
using namespace platform;
using namespace service;

constexpr auto kLong = 30s;  // nothing that is expected to happen takes so long

/// Where a completion leaves its result for the thread that waits. A second call of it ends the test program.
/// ThreadSanitizer sees all of this, which it cannot of a promise that is broken.
class Outcome {
 public:
  HttpTransport::Completion completion() {
    // The deleter runs when the last copy of the completion goes.
    const std::shared_ptr<State> call(state_.get(), [owner = state_](State* state) { state->note({}); });
    return [call](HttpResult result) { call->note(std::move(result)) ? void() : std::abort(); };
  }

  /// The result; nothing when the completion was destroyed without a call.
  std::optional<HttpResult> await() const {
    std::unique_lock lock(state_->mutex);
    EXPECT_TRUE(state_->changed.wait_for(lock, 2 * kLong, [this] { return state_->end.has_value(); }));
    return state_->end.value_or(std::nullopt);
  }

 private:
  struct State {
    /// False when it had ended before.
    bool note(std::optional<HttpResult> result) {
      const std::lock_guard lock(mutex);
      const bool isFirst = !end;
      if (isFirst) {
        end.emplace(std::move(result));
      }
      changed.notify_all();
      return isFirst;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::optional<std::optional<HttpResult>> end;
  };

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

HttpRequest requestFor(std::string url, std::map<std::string, std::string> headers = {}, std::string method = "GET",
                       std::string body = {}) {
  return {std::move(url), std::move(method), std::move(headers), std::move(body), kLong, {}};
}

ServiceAnswer reply(int status, std::string body = {}, service::Headers headers = {},
                    std::chrono::milliseconds delay = {}) {
  return {status, std::move(body), "text/plain", std::move(headers), delay, {}, false};
}

/// A transport together with the service that it talks to, and what that has seen.
class Backend {
 public:
  explicit Backend(CurlHttpTransportOptions options = {}, bool inMemory = false, bool inC = false) {
    if (!inMemory) {
      service_.start();
      url = service_.url();
      transport = std::make_shared<CurlHttpTransport>(std::move(options));
      return;
    }
    url = "http://service.example";
    transport = std::make_shared<simulated::InMemoryHttpTransport>(clock_, [this](const HttpRequest& request) {
      const service::Headers headers(request.headers.begin(), request.headers.end());
      const auto made = handle({request.method, request.url.substr(url.size()), headers, request.body});
      return simulated::InMemoryAnswer{.result = {{}, {}, made.status, made.body}, .delay = made.delay};
    });
    if (inC) {
      transport = test::throughC(transport);
    }
  }
  ~Backend() { transport.reset(); }

  HttpResult perform(HttpRequest request) {
    Outcome outcome;
    transport->start(std::move(request), outcome.completion());
    pump();
    return outcome.await().value();
  }
  /// Lets completions come that are due.
  void pump() { clock_->advance(0ns); }
  std::vector<ServiceRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  std::string url;
  std::shared_ptr<HttpTransport> transport;
  service::ServiceHandler answer = [](const ServiceRequest&) { return ServiceAnswer{}; };

 private:
  ServiceAnswer handle(const ServiceRequest& request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    return answer(request);
  }

  mutable std::mutex mutex_;
  std::vector<ServiceRequest> requests_;
  std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  service::DevelopmentService service_{{}, [this](const ServiceRequest& request) { return handle(request); }};
};

class HttpTransportContract : public ::testing::TestWithParam<const char*> {
 protected:
  /// More requests than there are connections, which are not answered but at "/now".
  void startMany() {
    backend_.answer = [](const ServiceRequest& request) {
      return reply(200, {}, {}, request.target == "/now" ? 0ms : 1h);
    };
    for (Outcome& outcome : outcomes_) {
      identifiers_.insert(backend_.transport->start(requestFor(backend_.url), outcome.completion()));
    }
    const auto end = std::chrono::steady_clock::now() + kLong;
    while (backend_.requests().empty() && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();  // so that some of them are on their way
    }
  }

  void expectDropped() {
    backend_.pump();
    EXPECT_TRUE(std::ranges::none_of(outcomes_, [](const Outcome& outcome) { return outcome.await().has_value(); }));
  }

  std::mutex started_;
  std::vector<Outcome> outcomes_{20};
  std::set<HttpTransport::RequestId> identifiers_;
  const std::string_view kind_ = GetParam();
  Backend backend_{{}, kind_ != "Curl", kind_ == "C"};
};

INSTANTIATE_TEST_SUITE_P(Adapters, HttpTransportContract, ::testing::Values("Curl", "InMemory", "C"));

TEST_P(HttpTransportContract, carriesTheExchangeUnchanged) {
  const std::string bytes("{\r\n\0\xff\r\n\r\n%", 10);
  const std::tuple<std::string, std::map<std::string, std::string>, std::string, int> rows[] = {
      {"GET", {{"Authorization", ""}, {"Content-Length", "0"}}, "", 404},
      {"POST", {{"Content-Type", "application/json"}, {"Content-Length", "10"}}, bytes, 201},
      {"PATCH", {{"Accept", "application/json"}, {"X-Odd", "a;b, \"c\""}}, std::string(3'000'000, 'p'), 600},
      {"DELETE", {}, "", 204},
  };
  for (const auto& [method, headers, body, status] : rows) {
    SCOPED_TRACE(method + " -> " + std::to_string(status));
    const ServiceAnswer answer = reply(status, status == 204 ? "" : bytes + std::to_string(status));
    backend_.answer = [&answer](const ServiceRequest&) { return answer; };
    const HttpRequest request = requestFor(backend_.url + "//a/../b?c=%20d", headers, method, body);
    const HttpResult result = backend_.perform(request);
    EXPECT_EQ(result.statusCode, status) << result.error.message();
    EXPECT_EQ(result.body, answer.body);
    EXPECT_EQ(result.url, request.url);

    ServiceRequest seen = backend_.requests().back();
    EXPECT_EQ(seen.method, method);
    EXPECT_EQ(seen.target, "//a/../b?c=%20d");
    EXPECT_EQ(seen.body, body);
    // HTTP itself needs these; a second value of one of them would show up joined to the first.
    seen.headers.erase("Host");
    seen.headers.erase("Accept-Encoding");
    service::Headers expected(headers.begin(), headers.end());
    if (seen.headers.contains("Content-Length")) {
      expected.emplace("Content-Length", std::to_string(body.size()));
    }
    EXPECT_EQ(seen.headers, expected);
  }
}

TEST_P(HttpTransportContract, completesOnceAndNotInsideStart) {
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const std::lock_guard lock(started_);
    const auto complete = [this, next = outcomes_[i].completion()](HttpResult result) {
      const std::lock_guard completing(started_);  // hangs inside start()
      next(std::move(result));
    };
    // Every other one fails before it gets to the network.
    identifiers_.insert(backend_.transport->start(requestFor(i % 2 == 0 ? backend_.url : ""), complete));
  }
  backend_.pump();
  EXPECT_EQ(identifiers_.size(), outcomes_.size());
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    const HttpResult result = outcomes_[i].await().value();
    EXPECT_EQ(result.error, i % 2 == 0 ? std::error_code() : URLError::unsupportedURL);
    EXPECT_EQ(result.statusCode.has_value(), i % 2 == 0);
  }
  backend_.transport->cancel(*identifiers_.begin());  // too late
}

TEST_P(HttpTransportContract, cancelEndsARequestWhereverItIs) {
  startMany();
  for (const HttpTransport::RequestId id : identifiers_) {
    backend_.transport->cancel(id);
    backend_.transport->cancel(id);
  }
  backend_.pump();
  for (Outcome& outcome : outcomes_) {
    EXPECT_EQ(outcome.await().value().error, URLError::cancelled);
  }
  EXPECT_EQ(backend_.perform(requestFor(backend_.url + "/now")).statusCode, 200);
}

TEST_P(HttpTransportContract, destructionDestroysTheCompletions) {
  startMany();
  backend_.transport.reset();
  expectDropped();
}

TEST_P(HttpTransportContract, aCompletionMayDestroyTheTransport) {
  Outcome first;
  HttpTransport& transport = *backend_.transport;
  transport.start(requestFor(backend_.url),
                  [this, owner = std::move(backend_.transport), next = first.completion()](HttpResult result) mutable {
                    for (Outcome& outcome : outcomes_) {
                      owner->start(requestFor(backend_.url), outcome.completion());
                    }
                    owner.reset();
                    next(std::move(result));
                  });
  backend_.pump();
  EXPECT_EQ(first.await().value().statusCode, 200);
  expectDropped();
}

TEST(CurlHttpTransport, refusesWhatItCannotSendAsItIs) {
  Backend backend;
  const std::string good = backend.url;
  const std::tuple<URLError, std::string, std::string, std::string, std::string> rows[] = {
      {URLError::unsupportedURL, "GET", "X", "a", ""},
      {URLError::badURL, "GET", "X", "a\nEvil: 1", good},
      {URLError::badURL, "GET", "X: 1\r\nEvil", "a", good},
      {URLError::badURL, "GET", "", "a", good},
      {URLError::badURL, "GET / HTTP/1.1\r\nEvil: 1\r\nX:", "X", "a", good},
      {URLError::badURL, "GET", "X", "a", good + "/ HTTP/1.1\r\nEvil: 1"},
      {URLError::badURL, "GET", "X", "a", good + std::string("/\0", 2)},
      {URLError::unsupportedURL, "GET", "X", "a", "127.0.0.1/"},
  };
  for (const auto& [error, method, name, value, url] : rows) {
    EXPECT_EQ(backend.perform(requestFor(url, {{name, value}}, method)).error, error) << method << name << value << url;
  }
  EXPECT_TRUE(backend.requests().empty());
}

constexpr int connections = 8;

/// Starts requests all at once, and expects the same of each.
void performTogether(HttpTransport& transport, int count, const HttpRequest& request, std::error_code expected) {
  std::vector<Outcome> outcomes(static_cast<std::size_t>(count));
  Outcome refused;  // gets not to the network; the thread that tells takes all the others together
  transport.start({}, [&, next = refused.completion()](HttpResult result) {
    std::ranges::for_each(outcomes, [&](Outcome& outcome) { transport.start(request, outcome.completion()); });
    next(std::move(result));
  });
  EXPECT_EQ(refused.await().value().error, URLError::unsupportedURL);
  for (Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome.await().value().error, expected);
  }
}

TEST(CurlHttpTransport, keepsConnectionsAndSendsOnceOnOneThatDiesAndAnewWhenOneHasDied) {
  const std::tuple<std::string, const char*, bool, bool> rows[] = {
      {"POST", "body", false, false}, {"POST", "", false, false}, {"DELETE", "", false, false},
      {"GET", "body", false, false},  {"GET", "", false, true},   {"POST", "body", true, false}};
  for (const auto& [method, body, diesWhileIdle, goesTwice] : rows) {
    SCOPED_TRACE(method + (diesWhileIdle ? " idle " : " ") + body);
    const bool succeeds = diesWhileIdle || goesTwice;
    const ScriptedServer server({.waitsForRequest = !diesWhileIdle,
                                 .answers = 2,
                                 .together = connections,
                                 .connections = (succeeds ? 2 : 1) * connections});
    CurlHttpTransport transport({.maxConnections = connections});
    performTogether(transport, 2 * connections, requestFor(server.url()), {});
    const auto end = std::chrono::steady_clock::now() + kLong;
    while (diesWhileIdle && server.closed() < connections && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    performTogether(transport, connections, requestFor(server.url(), {}, method, body),
                    succeeds ? std::error_code() : URLError::networkConnectionLost);
    EXPECT_EQ(server.requests(), (goesTwice ? 4 : 3) * connections);
  }
}

TEST(CurlHttpTransport, leavesServersThatAnswerTooMuchTooLittleOrTooLate) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string head = ok + "Content-Length: 9999\r\n";
  const std::string moved = "HTTP/1.1 307 Moved\r\nLocation: ";
  const std::string plain(1000, 'z');
  const std::string deflated("\x78\xda\xab\xaa\x1a\x05\xa3\x60\x14\x0c\x77\x00\x00\xf1\xfd\xdc\xa0", 17);
  const std::string longer = deflated.substr(0, 10) + std::string("\x7b\x00\x00\xcf\x26\xdd\x1a", 7);  // by one
  using Then = Script::Then;
  const struct {
    std::error_code error;
    Script script;
    std::string scheme = "http";
    std::string body = {};
  } rows[] = {
      {URLError::badServerResponse, {"hello there\r\n\r\n"}},
      {URLError::badServerResponse, {head + "Content-Encoding: gzip\r\n\r\nthis is no gzip stream"}},
      {URLError::badServerResponse, {ok + "X: ", Then::endless}},
      {URLError::networkConnectionLost, {"", Then::endless, "HTTP/1.1 100 Continue\r\n\r\n"}},
      {URLError::networkConnectionLost, {"", Then::close, "", false}},
      {URLError::networkConnectionLost, {ok + "Content-Le"}},
      {URLError::networkConnectionLost, {head + "\r\n{"}},
      {URLError::dataLengthExceedsMaximum, {ok + "\r\n", Then::endless}},
      {URLError::dataLengthExceedsMaximum, {ok + "Content-Encoding: deflate\r\n\r\n" + longer}},
      {URLError::secureConnectionFailed, {head, Then::close, "", false}, "https"},
      {URLError::timedOut, {head + "\r\n", Then::hang}},
      {URLError::timedOut, {head + "\r\n", Then::drip}},
      {{}, {ok + "Content-Encoding: deflate\r\n\r\n" + deflated}, "http", plain},
      {{}, {ok + "Content-Length: 99999999999999999999\r\n\r\n{}"}, "http", "{}"},
      {{}, {ok + "Location: /x\r\nContent-Length: 0\r\n\r\n"}},  // no redirection
      {URLError::redirectToInsecureLocation, {moved + "file:///etc/hostname\r\n\r\n"}},
      {URLError::badServerResponse, {moved + "http://127.0.0.1:99999/\r\n\r\n"}},
  };
  Backend backend({.maxBodyBytes = plain.size()});
  for (const auto& row : rows) {
    const ScriptedServer server(row.script);
    HttpRequest request = requestFor(row.scheme + server.url().substr(4));
    request.timeout = row.error == URLError::timedOut ? 300ms : 10s;
    const auto start = std::chrono::steady_clock::now();
    const HttpResult result = backend.perform(request);
    EXPECT_EQ(result.error, row.error) << row.script.bytes;
    EXPECT_EQ(result.body, row.body);
    // A byte now and then is no silence; but the whole exchange may take only ten times as long as one.
    EXPECT_TRUE(row.script.then != Then::drip || std::chrono::steady_clock::now() - start >= 2 * request.timeout);
  }
}

TEST(CurlHttpTransport, wantsACertificateForTheHostByATrustedIssuerAndStaysSecure) {
  const test::Certificate good("127.0.0.1");
  const test::Certificate other("127.0.0.2");
  const std::pair<const test::Certificate*, const test::Certificate*> shownAndTrusted[] = {
      {&good, &good}, {&good, &other}, {&other, &other}};
  for (const auto& [shown, trusted] : shownAndTrusted) {
    DevelopmentService service({.certificateFile = shown->file(), .keyFile = shown->key()}, [](const ServiceRequest&) {
      return reply(307, {}, {{"Location", "http://127.0.0.1:1/"}});
    });
    service.start();
    const HttpResult result = Backend({.caFile = trusted->file()}).perform(requestFor(service.url()));
    const bool accepted = shown == &good && trusted == &good;
    EXPECT_EQ(result.error, accepted ? URLError::redirectToInsecureLocation : URLError::secureConnectionFailed);
  }
}

// With a real proxy: tools/proxy.
TEST(CurlHttpTransport, asksTheProxyForATunnelAndSendsNothingInTheClearThroughIt) {
  std::optional<Backend> proxy(std::in_place);
  std::string url = proxy->url;
  url.insert(url.find("//") + 2, "us%65r:p%40ss@");
  Backend backend({.proxy = url, .noProxy = "other.example,127.0.0.0/8"});
  Backend withoutExceptions({.proxy = url});
  EXPECT_EQ(backend.perform(requestFor(backend.url, {{"Authorization", "key"}})).statusCode, 200);
  EXPECT_EQ(backend.perform(requestFor("https://127.0.0.1:1")).error, URLError::cannotConnectToHost);
  EXPECT_TRUE(proxy->requests().empty());
  const std::pair<int, URLError> rows[] = {{403, URLError::proxyRefusedConnection},
                                           {407, URLError::proxyAuthenticationRequired},
                                           {401, URLError::proxyAuthenticationRequired},
                                           {502, URLError::proxyRefusedConnection},
                                           {0, URLError::cannotConnectToProxy}};
  for (const auto& [status, error] : rows) {
    proxy->answer = [status](const ServiceRequest&) { return reply(status); };
    if (status == 0) {
      proxy.reset();
    }
    const HttpResult result =
        withoutExceptions.perform(requestFor("https://service.example", {{"Authorization", "key"}}));
    EXPECT_EQ(result.error, error) << status << ": " << result.error.message();
    if (proxy) {
      const auto asked = proxy->requests().back();
      EXPECT_EQ(asked.method, "CONNECT");
      EXPECT_FALSE(asked.headers.contains("Authorization"));
      EXPECT_EQ(asked.headers.find("Proxy-Authorization")->second, "Basic dXNlcjpwQHNz");
    }
  }
}

TEST(CurlHttpTransport, followsRedirectsWithTheRightMethod) {
  const std::tuple<int, std::string, std::string> rows[] = {
      {302, "POST", "GET"}, {302, "PUT", "PUT"}, {303, "DELETE", "GET"}, {308, "POST", "POST"}};
  Backend backend;
  for (const auto& [status, method, then] : rows) {
    SCOPED_TRACE(method);
    backend.answer = [&](const ServiceRequest& request) {
      return request.target == "/from" ? reply(status, "moved", {{"Location", "to?x=1"}}) : ServiceAnswer{};
    };
    const HttpResult result = backend.perform(
        requestFor(backend.url + "/from", {{"Authorization", "key"}, {"Content-Type", "text/plain"}}, method, "body"));
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(result.url, backend.url + "/to?x=1");
    EXPECT_EQ(result.body, "");
    const ServiceRequest seen = backend.requests().back();
    const bool kept = method == then;
    EXPECT_EQ(seen.method, then);
    EXPECT_EQ(seen.body, kept ? "body" : "");
    EXPECT_EQ(seen.headers.contains("Content-Type"), kept);
    EXPECT_EQ(seen.headers.at("Authorization"), "key");
  }
}

TEST(CurlHttpTransport, keepsCredentialsFromOtherOriginsAndLeavesALoop) {
  Backend here({.maxConnections = 1});  // the idle one must make room for the other server's
  Backend there;
  here.answer = [&](const ServiceRequest&) { return reply(307, {}, {{"Location", there.url}}); };
  there.answer = [&](const ServiceRequest&) { return reply(307, {}, {{"Location", here.url}}); };
  const HttpRequest request = requestFor(here.url, {{"authorization", "key"}, {"Cookie", "a"}, {"X-Kept", "1"}});
  EXPECT_EQ(here.perform(request).error, URLError::httpTooManyRedirects);
  EXPECT_EQ(here.requests().size() + there.requests().size(), 21U);
  EXPECT_TRUE(here.requests().front().headers.contains("Authorization"));
  // Nor do they come back: the other origin chose where to go.
  for (const ServiceRequest& seen : {there.requests().front(), here.requests().back()}) {
    EXPECT_FALSE(seen.headers.contains("Authorization") || seen.headers.contains("Cookie"));
    EXPECT_TRUE(seen.headers.contains("X-Kept"));
  }
}

}  // namespace
}  // namespace quillmar
