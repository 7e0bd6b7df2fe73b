#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "Platform/Curl/CurlHttpTransport.h"
#include "Settings/QuillMarDefaults.h"
#include "quillmar/Config.h"
#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/ManualClock.h"
#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/Certificate.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using service::DevelopmentService;
using service::ServiceAnswer;
using service::ServiceRequest;
using ::testing::ElementsAre;
using testing::Script;
using testing::ScriptedServer;
using ::testing::StartsWith;
using Then = Script::Then;

constexpr auto kLong = 30s;  // nothing that is expected to happen takes so long
const std::string serviceOrigin = "http://service.example";

/// The way to a server, in place of the one to the service.
struct Way {
  std::string origin;
  std::string caFile = {};
  std::chrono::milliseconds timeout = kLong;
};

/// The real transport, on the way that a test chooses.
class Detour : public platform::HttpTransport {
 public:
  void take(const Way& way) {
    std::shared_ptr<platform::HttpTransport> transport =
        std::make_shared<platform::CurlHttpTransport>(platform::CurlHttpTransportOptions{.caFile = way.caFile});
    const std::lock_guard lock(mutex_);
    way_ = way;
    transport_.swap(transport);
  }
  RequestId start(platform::HttpRequest request, Completion completion) override {
    const std::lock_guard lock(mutex_);
    request.url.replace(0, serviceOrigin.size(), way_.origin);
    request.timeout = way_.timeout;
    return transport_->start(std::move(request), std::move(completion));
  }
  void cancel(RequestId request) noexcept override { transport_->cancel(request); }

 private:
  std::mutex mutex_;
  Way way_;
  std::shared_ptr<platform::HttpTransport> transport_;
};

/// A host on the real adapters, but for the clock, that has fetched its configuration from a good service.
class HostileNetwork : public ::testing::Test {
 protected:
  HostileNetwork() {
    Quillmar::resetStaticState();
    good_.start();
    detour_->take({good_.url()});
    platform_ = platform::makeDefaultPlatform({folder_.path(), serviceOrigin, {}, {}});
    platform_.logSink = log_.sink();
    platform_.clock = clock_;
    platform_.http = detour_;
    platform_.standardOutput = [](std::string_view) {};
    quillmar_ = QuillmarFactory::createQuillmar(platform_);
    quillmar_->setLogLevel(LogLevel::info);
    quillmar_->configure("the-key");
    EXPECT_TRUE(quillmar_->drain(kLong));
    EXPECT_EQ(quillmar_->state().appId, "development-app");
  }
  ~HostileNetwork() override { Quillmar::resetStaticState(); }

  /// What the host has kept: the configuration's file and the settings that come with it.
  auto kept() const {
    std::ostringstream file;
    file << std::ifstream(folder_ / "documents/Quillmar/quill-mar-conv-val.json").rdbuf();
    const auto settings = quillMarDefaults(platform_.userDefaults);
    return std::tuple(file.str(), settings->string(Config::serverAppId), settings->boolean(Config::sdkEnabled),
                      settings->date(Config::lastConversionValuesFetchTimestamp));
  }
  /// The error lines, but for those that only name a status code.
  std::vector<std::string> errors() const {
    auto lines = log_.messages();
    std::erase_if(lines, [](const std::string& line) {
      return !line.starts_with("error: ") || line.starts_with("error: NetworkManager");
    });
    return lines;
  }
  void awaitFetch() const {
    const auto end = std::chrono::steady_clock::now() + kLong;
    const auto isEnd = [](const std::string& line) {
      return line == "debug: Conversion values fetched and saved from the server." ||
             line.starts_with("error: Failed to fetch conversion values: ");
    };
    while (std::ranges::none_of(log_.messages(), isEnd) && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    EXPECT_TRUE(quillmar_->drain(kLong)) << "not bounded in time";
  }
  void sendEvent() const {
    quillmar_->sendEvent("session");
    EXPECT_TRUE(quillmar_->drain(kLong));
  }

  /// Fetches and logs an event on the way, which fails with these errors; then on the good one. No error: it works.
  void expect(const std::string& what, const Way& way, const std::string& error, const std::string& eventError = {}) {
    SCOPED_TRACE(what);
    const auto before = kept();
    const auto logged = quillmar_->statistics().logged;
    log_.clear();
    detour_->take(way);
    clock_->advance(1h);
    quillmar_->applicationDidBecomeActive();
    awaitFetch();
    if (error.empty() || errors().empty()) {
      EXPECT_EQ(errors().empty(), error.empty());
      return;
    }
    sendEvent();
    const std::string fetch = "error: ConversionValuesRepository - Failed to fetch and save conversion values: ";
    const std::string log = "error: EventServerLogRepository - Error logging event: ";
    EXPECT_THAT(errors(),
                ElementsAre(StartsWith(fetch + error), StartsWith("error: Failed to fetch conversion values: " + error),
                            StartsWith(log + (eventError.empty() ? error : eventError)),
                            "error: Failed to log event to server: failedToLogEvent"));
    EXPECT_EQ(kept(), before);

    log_.clear();
    detour_->take({good_.url()});
    clock_->advance(5s);  // the second attempt
    awaitFetch();
    sendEvent();
    EXPECT_THAT(errors(), ElementsAre());
    EXPECT_EQ(quillmar_->statistics().logged, logged + 1);
    EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  }
  void expect(const std::string& what, const Script& script, const std::string& error,
              const std::string& eventError = {}, std::chrono::milliseconds timeout = kLong) {
    const ScriptedServer server(script);
    expect(what, Way{server.url(), {}, timeout}, error, eventError);
  }

  LogCapture log_;
  TemporaryFolder folder_;
  std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(20'000 * 24h));
  std::shared_ptr<Detour> detour_ = std::make_shared<Detour>();
  service::ServiceLogic logic_;
  DevelopmentService good_{{}, [this](const ServiceRequest& request) { return logic_.handle(request); }};
  platform::Platform platform_;
  std::shared_ptr<Quillmar> quillmar_;
};

const std::string head = "HTTP/1.1 200 OK\r\n";
const std::string config = R"({"app_id":"development-app","sdk_enabled":true,"values":[],"lockWindows":{}})";

std::string answer(const std::string& body, const std::string& length = {}) {
  return head + "Content-Length: " + (length.empty() ? std::to_string(body.size()) : length) + "\r\n\r\n" + body;
}
std::string configOf(const std::string& value) {
  return R"({"app_id":"a","sdk_enabled":true,"values":[)" + value + R"(],"lockWindows":{}})";
}

// A gzip stream of 158 times its size: a block with the letter "a", which is then repeated 258 times by each code of 13
// bits. Eight of these fill the repetition's bytes.
const std::string gzipStart("\x1f\x8b\x08\0\0\0\0\0\0\x03\x4a\x1c\x05", 13);
const std::string gzipRepetitions("\xa3\x60\x14\x8c\x82\x51\x30\x0a\x46\xc1\x28\x18\x05", 13);

TEST_F(HostileNetwork, floodsAreCutOffInBoundedMemory) {
  const auto peakMebibytes = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
  };
  [[maybe_unused]] const auto before = peakMebibytes();
  const std::string chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
  const struct {
    const char* what;
    std::string bytes, filler, error;
  } rows[] = {
      {"body", head + "\r\n", "x", "dataLengthExceedsMaximum"},
      {"gzip", head + "Content-Encoding: gzip\r\n\r\n" + gzipStart, gzipRepetitions, "dataLengthExceedsMaximum"},
      {"chunks", chunked, "4\r\nxxxx\r\n", "dataLengthExceedsMaximum"},
      {"chunk length", chunked, "1", "networkConnectionLost"},
      {"headers", head, "X: y\r\n", "networkConnectionLost"},
      {"header line", head + "X: ", "y", "badServerResponse"},
      {"status line", "HTTP/1.1 200 ", "y", "badServerResponse"},
      {"interim answers", "", "HTTP/1.1 100 Continue\r\n\r\n", "networkConnectionLost"}};
  for (const auto& row : rows) {
    expect(row.what, Script{.bytes = row.bytes, .then = Then::endless, .filler = row.filler}, row.error);
  }
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
  EXPECT_LT(peakMebibytes() - before, 128);
#endif
}

TEST_F(HostileNetwork, slowAnswersAreWaitedForInBounds) {
  expect("silence", Script{.bytes = "", .then = Then::hang}, "timedOut", {}, 100ms);
  expect("silence in the body", Script{.bytes = answer("", "9"), .then = Then::hang}, "timedOut", {}, 100ms);
  expect("drops for ever", Script{.bytes = head + "\r\n", .then = Then::drip, .interval = 5ms}, "timedOut", {}, 100ms);
  expect("byte by byte", Script{.bytes = answer(config), .byteByByte = true}, "");
  expect("slow start", Script{.bytes = "", .then = Then::drip, .filler = answer(config)}, "");
}

TEST_F(HostileNetwork, brokenConnectionsAreErrors) {
  const struct {
    std::string what, bytes;
    bool waitsForHead = true;
  } rows[] = {{"on accept", "", false},
              {"after the request", ""},
              {"in the head", head + "Content-Le"},
              {"after the head", answer("", "9")},
              {"in the body", answer(config, "900")},
              {"in a chunk", head + "Transfer-Encoding: chunked\r\n\r\n9\r\n{"}};
  for (const auto& row : rows) {
    for (const Then then : {Then::reset, Then::close}) {
      expect((then == Then::reset ? "reset " : "closed ") + row.what,
             Script{.bytes = row.bytes, .then = then, .waitsForHead = row.waitsForHead}, "networkConnectionLost");
    }
  }
}

TEST_F(HostileNetwork, wrongBodiesAreNotBelieved) {
  std::string objects = R"({"a":)";
  while (objects.size() < 3'000'000) {
    objects += objects;
  }
  const std::string corrupted = "dataCorrupted: not valid JSON at line 1, column ";
  const std::string noSuccess = "failedToLogEvent";  // JSON that tells nothing about the event
  const struct {
    const char* what;
    std::string bytes;
    std::string error;
    std::string eventError = {};
  } rows[] = {
      {"length too small", answer(config, "20"), corrupted},
      {"negative length", answer(config, "-5"), "badServerResponse"},
      {"length beyond 64 bits", answer(config, "99999999999999999999"), ""},
      {"two lengths", head + "Content-Length: 20\r\n" + answer(config).substr(head.size()), ""},
      {"no length", head + "\r\n" + config, ""},
      {"no content", "HTTP/1.1 204 No Content\r\n\r\n", corrupted},
      {"empty", answer(""), corrupted},
      {"portal", answer("<!DOCTYPE html><html><body>Please log in</body></html>"), corrupted},
      {"nested arrays", answer(std::string(500'000, '[')), corrupted},
      {"nested objects", answer(objects), corrupted},
      {"not UTF-8", answer("{\"app_id\":\"\xC0\xAF\",\"sdk_enabled\":true}"), corrupted},
      {"surrogates", answer("{\"app_id\":\"\xED\xA0\x80\",\"sdk_enabled\":true}"), corrupted},
      {"NUL", answer(std::string("{\"app_id\":\"a\0\"}", 15)), corrupted},
      {"two documents", answer(config + config), corrupted},
      {"too large a number", answer(configOf("1e999")), corrupted},
      {"huge number", answer(configOf(std::string(500'000, '9'))), corrupted},
      {"number of 20 digits",
       answer(configOf(R"({"key":"k","windows":{"window0":{"fineValue":{"value":99999999999999999999,)"
                       R"("requiredEvents":[]}}}})")),
       "typeMismatch: ", noSuccess},
      {"number for a text", answer(R"({"app_id":7,"sdk_enabled":true})"), "typeMismatch: app_id", noSuccess},
      {"null", answer("null"), "typeMismatch: ", "typeMismatch: "},
      {"nothing in it", answer("{}"), "keyNotFound: \"app_id\"", noSuccess},
      {"keys twice, the last counts", answer(R"({"app_id":7,)" + config.substr(1)), ""},
  };
  for (const auto& row : rows) {
    expect(row.what, Script{.bytes = row.bytes}, row.error, row.eventError);
  }
}

TEST_F(HostileNetwork, onlyCertificatesForTheHostByATrustedIssuerInTimeAreAccepted) {
  const Certificate issuer("127.0.0.9");
  const Certificate stranger("127.0.0.9");
  const std::string from = "20200101000000Z", past = "20200102000000Z", to = "21200101000000Z";
  const struct {
    const char* what;
    Certificate certificate;
    const char* error = "secureConnectionFailed";
  } rows[] = {{"good", {issuer, "127.0.0.1", from, to}, ""},
              {"expired", {issuer, "127.0.0.1", from, past}},
              {"not yet valid", {issuer, "127.0.0.1", "21190101000000Z", to}},
              {"wrong host", {issuer, "127.0.0.2", from, to}},
              {"unknown issuer", {stranger, "127.0.0.1", from, to}},
              {"self-signed", Certificate("127.0.0.1")}};
  for (const auto& row : rows) {
    DevelopmentService service({.certificateFile = row.certificate.file(), .keyFile = row.certificate.key()},
                               [this](const ServiceRequest& request) { return logic_.handle(request); });
    service.start();
    expect(row.what, Way{service.url(), issuer.file()}, row.error);
  }
  // The beginning of a handshake: the server chooses TLS 1.1, or 1.2 and then says nothing more.
  for (const char version : {'\x02', '\x03'}) {
    const std::string hello = std::string("\x16\x03", 2) + version + std::string("\0\x31\x02\0\0\x2d\x03", 7) +
                              version + std::string(32, 'r') + std::string("\0\xc0\x2b\0\0\x05\xff\x01\0\x01\0", 11);
    const ScriptedServer server({.bytes = hello, .then = Then::hang, .waitsForHead = false});
    const bool old = version == '\x02';
    expect(old ? "TLS 1.1" : "TLS 1.2", Way{"https" + server.url().substr(4), issuer.file(), old ? kLong : 300ms},
           old ? "secureConnectionFailed" : "timedOut");
  }
}

TEST_F(HostileNetwork, redirectsAreFollowedWithCare) {
  const Certificate certificate("127.0.0.1");
  std::mutex mutex;  // of what the services' threads have seen
  std::vector<ServiceRequest> seen;
  std::string location;
  const auto handle = [&](const ServiceRequest& request) {
    const std::lock_guard lock(mutex);
    seen.push_back(request);
    ServiceAnswer answer;
    if (request.target == "/moved" || request.target == "/login") {
      answer.body = request.target == "/moved" ? config : "<html>Please log in</html>";
      return answer;
    }
    answer.status = 307;
    if (!location.empty()) {
      answer.headers["Location"] = location;
    }
    return answer;
  };
  DevelopmentService service({}, handle);
  DevelopmentService secure({.certificateFile = certificate.file(), .keyFile = certificate.key()}, handle);
  DevelopmentService other({}, handle);
  for (DevelopmentService* started : {&service, &secure, &other}) {
    started->start();
  }
  const struct {
    const char* what;
    const DevelopmentService& from;
    std::string location;
    std::string error;
    bool keyIsSentOn;
  } rows[] = {
      {"same host", service, "/moved", "", true},
      {"other host", service, other.url() + "/moved", "", false},
      {"https to https", secure, secure.url() + "/moved", "", true},
      {"http to https", service, secure.url() + "/moved", "", false},
      {"https to http", secure, service.url() + "/moved", "redirectToInsecureLocation", true},
      {"loop", service, "/loop", "httpTooManyRedirects", true},
      {"login page", service, other.url() + "/login", "dataCorrupted: not valid JSON at line 1, column 1", false},
      {"nowhere", service, "", "unexpectedStatusCode", true},
      {"file", service, "file:///etc/hostname", "redirectToInsecureLocation", true},
      {"no address", service, "http://127.0.0.1:99999/", "badServerResponse", true},
  };
  for (const auto& row : rows) {
    {
      const std::lock_guard lock(mutex);
      location = row.location;
      seen.clear();
    }
    expect(row.what, Way{row.from.url(), certificate.file()}, row.error);
    const std::lock_guard lock(mutex);
    ASSERT_FALSE(seen.empty());
    for (const ServiceRequest& request : seen) {
      const bool isFirst = request.target.starts_with("/ios");
      EXPECT_EQ(request.headers.contains("Authorization"), isFirst || row.keyIsSentOn) << row.what << request.target;
    }
  }
}

}  // namespace
}  // namespace quillmar::test
