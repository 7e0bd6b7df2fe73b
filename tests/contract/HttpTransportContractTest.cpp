#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/zlib/deflate_stream.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
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
using platform::CurlHttpTransport;
using platform::CurlHttpTransportOptions;
using platform::HttpRequest;
using platform::HttpResult;
using platform::HttpTransport;
using platform::URLError;
using service::DevelopmentService;
using service::DevelopmentServiceOptions;
using service::ServiceAnswer;
using service::ServiceHandler;
using service::ServiceRequest;
using test::Certificate;
using testing::Script;
using testing::ScriptedServer;

constexpr auto kLong = 30s;  // nothing that is expected to happen takes so long

/// Where a completion leaves its result. Counts the calls.
class Outcome {
 public:
  HttpTransport::Completion completion() {
    return [shared = shared_](HttpResult result) {
      if (++shared->calls == 1) {
        shared->promise.set_value(std::move(result));
      }
    };
  }
  bool waitFor(std::chrono::milliseconds time) { return future_.wait_for(time) == std::future_status::ready; }
  HttpResult result() { return future_.get(); }
  int calls() const { return shared_->calls; }
  /// Whether the transport still has the completion.
  bool isHeld() const { return shared_.use_count() > 1; }

 private:
  struct Shared {
    std::atomic<int> calls = 0;
    std::promise<HttpResult> promise;
  };
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::future<HttpResult> future_ = shared_->promise.get_future();
};

/// The service's side, and what it has seen.
class Recorder {
 public:
  std::function<ServiceAnswer(const ServiceRequest&)> answer = [](const ServiceRequest&) { return ServiceAnswer{}; };

  ServiceHandler handler() {
    return [this](const ServiceRequest& request) {
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      changed_.notify_all();
      return answer(request);
    };
  }
  std::vector<ServiceRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  bool waitForRequests(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kLong, [&] { return requests_.size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<ServiceRequest> requests_;
};

/// An adapter together with the service that it talks to.
class Backend {
 public:
  virtual ~Backend() = default;
  virtual std::string url() const = 0;
  /// Lets completions come that are due.
  virtual void pump() {}

  Recorder recorder;
  std::shared_ptr<HttpTransport> transport;
};

class CurlBackend : public Backend {
 public:
  explicit CurlBackend(CurlHttpTransportOptions options = {}) {
    service_.start();
    transport = std::make_shared<CurlHttpTransport>(std::move(options));
  }
  ~CurlBackend() override { transport.reset(); }
  std::string url() const override { return service_.url(); }

 private:
  DevelopmentService service_{{}, recorder.handler()};
};

class InMemoryBackend : public Backend {
 public:
  InMemoryBackend() {
    transport = std::make_shared<simulated::InMemoryHttpTransport>(
        clock_, [this, handler = recorder.handler()](const HttpRequest& request) {
          ServiceAnswer answer = handler({request.method,
                                          request.url.substr(url().size()),
                                          {request.headers.begin(), request.headers.end()},
                                          request.body});
          simulated::InMemoryAnswer result;
          result.result.statusCode = answer.status;
          result.result.body = std::move(answer.body);
          result.delay = answer.delay;
          return result;
        });
  }
  std::string url() const override { return "http://service.example"; }
  void pump() override { clock_->advance(0ns); }

 private:
  std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
};

HttpResult await(Outcome& outcome, Backend* backend = nullptr) {
  const auto end = std::chrono::steady_clock::now() + kLong;
  do {
    if (backend != nullptr) {
      backend->pump();
    }
  } while (!outcome.waitFor(20ms) && std::chrono::steady_clock::now() < end);
  if (!outcome.waitFor(0ms)) {
    ADD_FAILURE() << "the request has not ended";
    return {};
  }
  return outcome.result();
}

HttpResult perform(HttpTransport& transport, HttpRequest request, Backend* backend = nullptr) {
  Outcome outcome;
  transport.start(std::move(request), outcome.completion());
  return await(outcome, backend);
}

HttpRequest get(std::string url, std::map<std::string, std::string> headers = {}) {
  HttpRequest request;
  request.url = std::move(url);
  request.headers = std::move(headers);
  return request;
}

struct Adapter {
  const char* name;
  std::unique_ptr<Backend> (*make)();
};

class HttpTransportContract : public ::testing::TestWithParam<Adapter> {
 protected:
  std::unique_ptr<Backend> backend_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(
    Adapters, HttpTransportContract,
    ::testing::Values(Adapter{"InMemory", [] { return std::unique_ptr<Backend>(std::make_unique<InMemoryBackend>()); }},
                      Adapter{"Curl", [] { return std::unique_ptr<Backend>(std::make_unique<CurlBackend>()); }}),
    [](const auto& info) { return info.param.name; });

TEST_P(HttpTransportContract, carriesTheExchangeUnchanged) {
  const std::string bytes("{\r\n\0\xff\r\n\r\n%", 10);
  struct Row {
    const char* method;
    std::map<std::string, std::string> headers;
    std::string body;
    int status;
  };
  const Row rows[] = {
      {"GET", {{"Authorization", "key"}}, "", 200},
      {"GET", {{"Authorization", ""}, {"Content-Length", "0"}}, "", 404},
      {"POST", {{"Content-Type", "application/json"}, {"Content-Length", "10"}}, bytes, 201},
      {"POST", {{"Content-Type", "text/plain"}, {"Content-Length", "0"}}, "", 500},
      {"PUT", {{"X-Odd", "a;b, \"c\""}}, bytes, 600},
      {"PATCH", {{"Accept", "application/json"}}, std::string(3'000'000, 'p'), 200},
      {"DELETE", {}, "", 204},
      {"DELETE", {}, "gone", 399},
  };
  std::size_t count = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " -> " + std::to_string(row.status));
    const std::string answer = row.status == 204 ? "" : bytes + std::to_string(row.status);
    backend_->recorder.answer = [&](const ServiceRequest&) {
      ServiceAnswer result;
      result.status = row.status;
      result.body = answer;
      return result;
    };
    HttpRequest request = get(backend_->url() + "//a/../b?c=%20d", row.headers);
    request.method = row.method;
    request.body = row.body;
    const HttpResult result = perform(*backend_->transport, request, backend_.get());
    EXPECT_FALSE(result.error) << result.error.message();
    EXPECT_EQ(result.statusCode, row.status);
    EXPECT_EQ(result.body, answer);
    EXPECT_EQ(result.url, request.url);

    ASSERT_EQ(backend_->recorder.requests().size(), ++count);
    ServiceRequest seen = backend_->recorder.requests().back();
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
}

TEST_P(HttpTransportContract, completesOnceAndNotInsideStart) {
  static thread_local bool insideStart = false;
  constexpr std::size_t kRequests = 50;
  std::atomic<int> inside = 0;
  std::vector<Outcome> outcomes(kRequests);
  std::set<HttpTransport::RequestId> identifiers;
  for (std::size_t i = 0; i < kRequests; ++i) {
    insideStart = true;
    // Every other one fails before it gets to the network.
    identifiers.insert(backend_->transport->start(get(i % 2 == 0 ? backend_->url() : ""),
                                                  [&inside, next = outcomes[i].completion()](HttpResult result) {
                                                    inside += insideStart ? 1 : 0;
                                                    next(std::move(result));
                                                  }));
    insideStart = false;
  }
  EXPECT_EQ(identifiers.size(), kRequests);
  for (std::size_t i = 0; i < kRequests; ++i) {
    const HttpResult result = await(outcomes[i], backend_.get());
    EXPECT_EQ(result.error, i % 2 == 0 ? std::error_code() : URLError::unsupportedURL);
    EXPECT_EQ(result.statusCode.has_value(), i % 2 == 0);
  }
  for (const HttpTransport::RequestId id : identifiers) {  // too late
    backend_->transport->cancel(id);
  }
  backend_->transport->cancel(0);
  EXPECT_FALSE(perform(*backend_->transport, get(backend_->url()), backend_.get()).error);
  EXPECT_EQ(inside, 0);
  EXPECT_TRUE(std::ranges::all_of(outcomes, [](const Outcome& outcome) { return outcome.calls() == 1; }));
}

TEST_P(HttpTransportContract, cancelEndsARequestWhereverItIs) {
  constexpr std::size_t kRequests = 20;  // more than there are connections
  backend_->recorder.answer = [](const ServiceRequest& request) {
    ServiceAnswer late;
    late.delay = request.target == "/late" ? 1h : 0ms;
    return late;
  };
  std::vector<Outcome> outcomes(kRequests);
  std::vector<HttpTransport::RequestId> identifiers;
  for (Outcome& outcome : outcomes) {
    identifiers.push_back(backend_->transport->start(get(backend_->url() + "/late"), outcome.completion()));
  }
  ASSERT_TRUE(backend_->recorder.waitForRequests(1));
  for (const HttpTransport::RequestId id : identifiers) {
    backend_->transport->cancel(id);
    backend_->transport->cancel(id);
  }
  for (Outcome& outcome : outcomes) {
    EXPECT_EQ(await(outcome, backend_.get()).error, URLError::cancelled);
  }
  EXPECT_EQ(perform(*backend_->transport, get(backend_->url() + "/now"), backend_.get()).statusCode, 200);
  EXPECT_TRUE(std::ranges::all_of(outcomes, [](const Outcome& outcome) { return outcome.calls() == 1; }));
}

TEST_P(HttpTransportContract, destructionDestroysTheCompletions) {
  backend_->recorder.answer = [](const ServiceRequest&) {
    ServiceAnswer late;
    late.delay = 1h;
    return late;
  };
  std::vector<Outcome> outcomes(20);
  for (Outcome& outcome : outcomes) {
    backend_->transport->start(get(backend_->url()), outcome.completion());
  }
  ASSERT_TRUE(backend_->recorder.waitForRequests(1));
  backend_->transport.reset();
  backend_->pump();
  for (const Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome.calls(), 0);
    EXPECT_FALSE(outcome.isHeld());
  }
}

TEST_P(HttpTransportContract, aCompletionMayDestroyTheTransport) {
  Outcome first;
  std::vector<Outcome> others(20);
  std::weak_ptr<HttpTransport> weak = backend_->transport;
  const std::string url = backend_->url();
  HttpTransport& transport = *backend_->transport;
  transport.start(get(url), [owner = std::move(backend_->transport), others = &others, url,
                             next = first.completion()](HttpResult result) mutable {
    for (Outcome& outcome : *others) {
      owner->start(get(url), outcome.completion());
    }
    owner.reset();
    next(std::move(result));
  });
  EXPECT_EQ(await(first, backend_.get()).statusCode, 200);
  EXPECT_TRUE(weak.expired());
  backend_->pump();
  for (Outcome& outcome : others) {
    const auto end = std::chrono::steady_clock::now() + kLong;
    while (outcome.isHeld() && std::chrono::steady_clock::now() < end) {  // its thread is on its way out
      std::this_thread::yield();
    }
    EXPECT_FALSE(outcome.isHeld());
    EXPECT_EQ(outcome.calls(), 0);
  }
}

TEST(CurlHttpTransport, refusesWhatItCannotSendAsItIs) {
  CurlBackend backend;
  struct Row {
    const char* what;
    URLError error;
    std::string method;
    std::string name;
    std::string value;
    std::string url;
  };
  const std::string good = backend.url();
  const Row rows[] = {
      {"line end in a value", URLError::badURL, "GET", "X", "a\r\nEvil: 1", good},
      {"line feed in a value", URLError::badURL, "GET", "X", "a\nEvil: 1", good},
      {"NUL in a value", URLError::badURL, "GET", "X", std::string("a\0b", 3), good},
      {"line end in a name", URLError::badURL, "GET", "X: 1\r\nEvil", "a", good},
      {"colon in a name", URLError::badURL, "GET", "X:", "a", good},
      {"no name", URLError::badURL, "GET", "", "a", good},
      {"line end in the method", URLError::badURL, "GET / HTTP/1.1\r\nEvil: 1\r\nX:", "X", "a", good},
      {"no method", URLError::badURL, "", "X", "a", good},
      {"line end in the URL", URLError::badURL, "GET", "X", "a", good + "/ HTTP/1.1\r\nEvil: 1"},
      {"NUL in the URL", URLError::badURL, "GET", "X", "a", good + std::string("/\0", 2)},
      {"impossible port", URLError::badURL, "GET", "X", "a", "http://127.0.0.1:99999/"},
      {"no scheme", URLError::unsupportedURL, "GET", "X", "a", "127.0.0.1/"},
      {"other scheme", URLError::unsupportedURL, "GET", "X", "a", "ftp://127.0.0.1/"},
      {"file", URLError::unsupportedURL, "GET", "X", "a", "file:///etc/hostname"},
  };
  for (const Row& row : rows) {
    HttpRequest request = get(row.url, {{row.name, row.value}});
    request.method = row.method;
    EXPECT_EQ(perform(*backend.transport, request).error, row.error) << row.what;
  }
  EXPECT_TRUE(backend.recorder.requests().empty());
}

TEST(CurlHttpTransport, survivesBadServers) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  struct Row {
    const char* what;
    std::error_code error;
    Script script;
  };
  const Row rows[] = {
      {"nothing", URLError::networkConnectionLost, {}},
      {"truncated head", URLError::networkConnectionLost, {ok + "Content-Le"}},
      {"truncated body", URLError::networkConnectionLost, {ok + "Content-Length: 100\r\n\r\nhalf"}},
      {"truncated chunks", URLError::networkConnectionLost, {ok + "Transfer-Encoding: chunked\r\n\r\n4\r\nhalf"}},
      {"no HTTP", URLError::badServerResponse, {"hello there\r\n\r\n"}},
      {"bad compression", URLError::badServerResponse, {ok + "Content-Encoding: gzip\r\n\r\nthis is no gzip stream"}},
      {"endless body", URLError::dataLengthExceedsMaximum, {ok + "\r\n", Script::Then::endless}},
      {"too long a body", URLError::dataLengthExceedsMaximum, {ok + "\r\n" + std::string(100'001, 'x')}},
      {"body at the limit", {}, {ok + "\r\n" + std::string(100'000, 'x')}},
      {"silence", URLError::timedOut, {"", Script::Then::hang}},
      {"silence in the body", URLError::timedOut, {ok + "Content-Length: 100\r\n\r\nhalf", Script::Then::hang}},
      // Longer than the time-out in all, but never silent for so long.
      {"slow body", {}, {ok + "Content-Length: 30\r\n\r\n", Script::Then::drip}},
      {"redirect to nowhere", {}, {"HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n"}},
      {"status other than redirection with a location", {}, {ok + "Location: /x\r\nContent-Length: 0\r\n\r\n"}},
      {"redirect to a file",
       URLError::redirectToInsecureLocation,
       {"HTTP/1.1 302 Found\r\nLocation: file:///etc/hostname\r\nContent-Length: 0\r\n\r\n"}},
  };
  CurlHttpTransportOptions options;
  options.maxBodyBytes = 100'000;
  CurlHttpTransport transport(options);
  std::vector<std::unique_ptr<ScriptedServer>> servers;
  std::vector<Outcome> outcomes(std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {  // all at once, for the time-outs' sake
    servers.push_back(std::make_unique<ScriptedServer>(std::vector{rows[i].script}));
    HttpRequest request = get(servers.back()->url());
    request.timeout = 1s;
    transport.start(request, outcomes[i].completion());
  }
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const HttpResult result = await(outcomes[i]);
    EXPECT_EQ(result.error, rows[i].error) << rows[i].what;
    EXPECT_EQ(result.statusCode.has_value(), !rows[i].error) << rows[i].what;
  }
}

TEST(CurlHttpTransport, silenceEndsAnExchangeLongBeforeTheOverallLimit) {
  const ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf", Script::Then::hang}});
  CurlHttpTransport transport;
  HttpRequest request = get(server.url());
  request.timeout = 300ms;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(perform(transport, request).error, URLError::timedOut);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 9 * request.timeout);
}

TEST(CurlHttpTransport, everythingHasAnEnd) {
  // Never silent, and never done.
  const ScriptedServer server({{"HTTP/1.1 200 OK\r\n\r\n", Script::Then::drip, 10ms}});
  CurlHttpTransport transport;
  HttpRequest request = get(server.url());
  request.timeout = 300ms;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(perform(transport, request).error, URLError::timedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 9 * request.timeout);
}

TEST(CurlHttpTransport, reportsThatNobodyListens) {
  boost::asio::io_context io;
  boost::asio::ip::tcp::acceptor acceptor(io, {boost::asio::ip::address_v4::loopback(), 0});
  const auto port = acceptor.local_endpoint().port();
  acceptor.close();
  CurlHttpTransport transport;
  EXPECT_EQ(perform(transport, get("http://127.0.0.1:" + std::to_string(port))).error, URLError::cannotConnectToHost);
}

TEST(CurlHttpTransport, decompressesAndCountsWhatComesOut) {
  const std::string plain(200'000, 'z');
  std::string compressed(1000, '\0');
  boost::beast::zlib::z_params state;
  state.next_in = plain.data();
  state.avail_in = plain.size();
  state.next_out = compressed.data();
  state.avail_out = compressed.size();
  boost::beast::zlib::deflate_stream stream;
  boost::beast::error_code error;
  stream.write(state, boost::beast::zlib::Flush::finish, error);
  compressed.resize(state.total_out);

  for (const std::size_t limit : {plain.size(), plain.size() - 1}) {
    CurlHttpTransportOptions options;
    options.maxBodyBytes = limit;
    CurlBackend backend(options);
    backend.recorder.answer = [&](const ServiceRequest&) {
      ServiceAnswer answer;
      answer.headers["Content-Encoding"] = "deflate";
      answer.body = compressed;
      return answer;
    };
    const HttpResult result = perform(*backend.transport, get(backend.url()));
    EXPECT_EQ(result.error, limit < plain.size() ? URLError::dataLengthExceedsMaximum : std::error_code());
    EXPECT_EQ(result.body == plain, limit == plain.size());
  }
}

ServiceAnswer redirectTo(int status, const std::string& location) {
  ServiceAnswer answer;
  answer.status = status;
  answer.headers["Location"] = location;
  answer.body = "moved";
  return answer;
}

TEST(CurlHttpTransport, followsRedirectsWithTheRightMethod) {
  struct Row {
    int status;
    const char* method;
    const char* then;
  };
  const Row rows[] = {
      {301, "GET", "GET"},   {301, "POST", "GET"},  {302, "POST", "GET"},
      {302, "PUT", "PUT"},   {303, "POST", "GET"},  {303, "DELETE", "GET"},
      {307, "POST", "POST"}, {308, "POST", "POST"}, {308, "DELETE", "DELETE"},
  };
  CurlBackend backend;
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.status) + " " + row.method);
    backend.recorder.answer = [&](const ServiceRequest& request) {
      return request.target == "/from" ? redirectTo(row.status, "to?x=1") : ServiceAnswer{};
    };
    HttpRequest request =
        get(backend.url() + "/from", {{"Authorization", "key"}, {"Content-Type", "text/plain"}, {"X-Kept", "1"}});
    request.method = row.method;
    request.body = std::string_view("GET") == row.method ? "" : "body";
    const HttpResult result = perform(*backend.transport, request);
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(result.url, backend.url() + "/to?x=1");
    EXPECT_EQ(result.body, "");
    const ServiceRequest seen = backend.recorder.requests().back();
    const bool kept = std::string_view(row.method) == row.then;
    EXPECT_EQ(seen.method, row.then);
    EXPECT_EQ(seen.body, kept ? request.body : "");
    EXPECT_EQ(seen.headers.count("Content-Type"), kept ? 1U : 0U);
    EXPECT_EQ(seen.headers.at("Authorization"), "key");
    EXPECT_EQ(seen.headers.at("X-Kept"), "1");
  }
}

TEST(CurlHttpTransport, keepsCredentialsFromOtherOrigins) {
  CurlBackend here;
  CurlBackend there;
  here.recorder.answer = [&](const ServiceRequest& request) {
    return request.target == "/from" ? redirectTo(307, there.url() + "/via") : ServiceAnswer{};
  };
  there.recorder.answer = [&](const ServiceRequest&) { return redirectTo(307, here.url() + "/back"); };
  const HttpResult result =
      perform(*here.transport, get(here.url() + "/from", {{"authorization", "key"}, {"Cookie", "a"}, {"X-Kept", "1"}}));
  EXPECT_EQ(result.url, here.url() + "/back");
  ASSERT_EQ(here.recorder.requests().size(), 2U);
  ASSERT_EQ(there.recorder.requests().size(), 1U);
  EXPECT_EQ(here.recorder.requests().front().headers.count("Authorization"), 1U);
  // Nor do they come back: the other origin chose where to go.
  for (const ServiceRequest& request : {there.recorder.requests().front(), here.recorder.requests().back()}) {
    EXPECT_EQ(request.headers.count("Authorization"), 0U);
    EXPECT_EQ(request.headers.count("Cookie"), 0U);
    EXPECT_EQ(request.headers.count("X-Kept"), 1U);
  }
}

TEST(CurlHttpTransport, leavesARedirectLoop) {
  CurlBackend backend;
  backend.recorder.answer = [](const ServiceRequest&) { return redirectTo(302, "/again"); };
  EXPECT_EQ(perform(*backend.transport, get(backend.url())).error, URLError::httpTooManyRedirects);
  EXPECT_EQ(backend.recorder.requests().size(), 21U);
}

TEST(CurlHttpTransport, trustsOnlyCertificatesOfItsIssuersForTheHost) {
  const Certificate good("127.0.0.1");
  const Certificate otherHost("127.0.0.2");
  struct Row {
    const char* what;
    const Certificate& server;
    std::string caFile;
    std::error_code error;
  };
  const Row rows[] = {
      {"known issuer", good, good.file(), {}},
      {"unknown issuer", good, otherHost.file(), URLError::secureConnectionFailed},
      {"the system's issuers", good, "", URLError::secureConnectionFailed},
      {"another host's certificate", otherHost, otherHost.file(), URLError::secureConnectionFailed},
      {"no file with issuers", good, "/nonexistent/issuers.pem", URLError::secureConnectionFailed},
  };
  for (const Row& row : rows) {
    Recorder recorder;
    DevelopmentService server({.certificateFile = row.server.file(), .keyFile = row.server.key()}, recorder.handler());
    server.start();
    CurlHttpTransport transport({.caFile = row.caFile});
    EXPECT_EQ(perform(transport, get(server.url(), {{"Authorization", "key"}})).error, row.error) << row.what;
    EXPECT_EQ(recorder.requests().empty(), static_cast<bool>(row.error)) << row.what;
  }
}

TEST(CurlHttpTransport, neverGoesFromHttpsToHttp) {
  const Certificate certificate("127.0.0.1");
  CurlBackend plain;
  DevelopmentService secure({.certificateFile = certificate.file(), .keyFile = certificate.key()},
                            [&](const ServiceRequest&) { return redirectTo(302, plain.url()); });
  secure.start();
  CurlHttpTransport transport({.caFile = certificate.file()});
  EXPECT_EQ(perform(transport, get(secure.url())).error, URLError::redirectToInsecureLocation);
  EXPECT_TRUE(plain.recorder.requests().empty());
}

TEST(CurlHttpTransport, aBurstGoesOverFewConnections) {
  constexpr std::size_t kRequests = 2000;
  std::set<std::uint64_t> connections;  // the service's thread's until it is stopped
  DevelopmentServiceOptions options;
  options.onRequest = [&](const service::ServedRequest& request) { connections.insert(request.connection); };
  DevelopmentService server(options, [](const ServiceRequest& request) {
    ServiceAnswer answer;
    answer.body = request.body;
    return answer;
  });
  server.start();
  CurlHttpTransport transport({.maxConnections = 3});
  std::vector<Outcome> outcomes(kRequests);
  for (std::size_t i = 0; i < kRequests; ++i) {
    HttpRequest request = get(server.url());
    request.method = "POST";
    request.body = std::to_string(i);
    transport.start(std::move(request), outcomes[i].completion());
  }
  for (std::size_t i = 0; i < kRequests; ++i) {
    EXPECT_EQ(await(outcomes[i]).body, std::to_string(i));
  }
  server.stop();
  EXPECT_LE(connections.size(), 3U);
}

TEST(CurlHttpTransport, anIdleConnectionMakesRoomForAnotherServer) {
  CurlBackend one;
  CurlBackend other;
  CurlHttpTransport transport({.maxConnections = 1});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(perform(transport, get(one.url())).statusCode, 200);
    EXPECT_EQ(perform(transport, get(other.url())).statusCode, 200);
  }
}

}  // namespace
}  // namespace quillmar
