#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"
#include "support/ScriptedServer.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using service::ServedRequest;
using namespace ::testing;

std::string content(const std::string& file) {
  return (std::ostringstream() << std::ifstream(file).rdbuf()).str();
}

const std::string key = "key-4f1c", revenue = "9.9917", token = "token-7a2e", transaction = "transaction-90d3";

bool holdsSecret(const std::string& text) {
  return Value(text, AnyOf(HasSubstr(key), HasSubstr(revenue), HasSubstr(transaction), HasSubstr(token)));
}

/// A launch of a host on the real adapters, except for the system, that has fetched its configuration if it can.
struct Host {
  Host(const std::string& dataDirectory, const std::string& url, LogLevel level = LogLevel::info,
       const QuillmarOptions& options = {}, const std::shared_ptr<platform::Clock>& clock = nullptr)
      : platform(platform::makeDefaultPlatform({dataDirectory, url, {}, url})) {
    platform.logSink = log.sink();
    platform.clock = clock ? clock : platform.clock;
    Quillmar::resetStaticState();
    const auto device = std::make_shared<simulated::SimulatedDevice>("17.0");
    const auto tokens = std::make_shared<simulated::SimulatedAttributionToken>();
    tokens->setToken(token);
    adNetwork = std::make_shared<simulated::SimulatedAdNetwork>(platform.clock, device);
    platform.device = device;
    platform.storeKitAdNetwork = adNetwork;
    platform.adAttributionKit = adNetwork;
    platform.attributionToken = tokens;
    platform.subscriptionUpdates = updates;
    platform.standardOutput = [](std::string_view line) { EXPECT_FALSE(holdsSecret(std::string(line))) << line; };
    quillmar = QuillmarFactory::createQuillmar(platform);
    quillmar->setLogLevel(level);
    quillmar->setOptions(options);
    quillmar->configure(key);
    EXPECT_TRUE(quillmar->drain(30s));
  }
  ~Host() { Quillmar::resetStaticState(); }

  void send(const char* event) const {
    quillmar->sendEvent(event, {{ASEventParam::revenue, 9.9917}});
    EXPECT_TRUE(quillmar->drain(60s));
  }
  void purchase() const {
    const auto attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
    attribution->enableASAAttributionTracking();
    EXPECT_TRUE(attribution->drain(30s));
    platform::SubscriptionStatusUpdate update;
    update.transaction.jsonRepresentation = R"({"id":")" + transaction + "\"}";
    update.renewalInfo.jsonRepresentation = "{}";
    updates->post(update);
    update.transaction.verificationError = platform::PlatformError{"not signed"};
    updates->post(update);
    EXPECT_TRUE(attribution->drain(30s));
  }

  LogCapture log{LogLevel::off};
  platform::Platform platform;
  std::shared_ptr<simulated::SimulatedAdNetwork> adNetwork;
  std::shared_ptr<platform::InProcessSubscriptionUpdates> updates =
      std::make_shared<platform::InProcessSubscriptionUpdates>();
  std::shared_ptr<Quillmar> quillmar;
};

TEST(Loopback, eventsReachTheServiceAndThePlatformAndSurviveARestartWhateverTheSettingsFileIs) {
  const TemporaryFolder data;
  const std::string settings = data / "settings/tech.quill-mar.quillmaruserdefaults.sqlite";
  const std::string foreign(5000, 'x');
  std::filesystem::create_directories(data / "settings");
  std::ofstream(settings) << foreign;  // so another file takes its place
  const LoopbackService service;
  for (const char* event : {"purchase", "something else"}) {  // the purchase still counts in the second launch
    SCOPED_TRACE(event);
    const Host host(data.path(), service.url());
    host.send(event);
    ASSERT_THAT(host.adNetwork->calls(), SizeIs(1));
    EXPECT_EQ(host.adNetwork->calls()[0].fineValue, 20);
  }
  EXPECT_THAT(service.requests(), SizeIs(4));
  EXPECT_THAT(service.requests(), Each(AllOf(Field(&ServedRequest::status, 200),  //
                                             Field(&ServedRequest::authorized, true))));
  EXPECT_EQ(content(settings), foreign);
}

/// Of this process so far, in MiB.
long peakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

TEST(Loopback, whateverAnswersInPlaceOfTheServiceIsNotBelieved) {
  const std::string ok = "HTTP/1.1 200 OK\r\n\r\n";
  const std::pair<Script, std::string> rows[] = {
      {{ok + "<html>Please log in</html>"}, "dataCorrupted: not valid JSON at line 1, column "},
      {{ok, Script::Then::endless}, "dataLengthExceedsMaximum"},
      {{ok + R"({"app_id":7,"sdk_enabled":true})"}, "typeMismatch: app_id"}};
  const TemporaryFolder data;
  const LoopbackService service;
  const std::string file = data / "documents/Quillmar/quill-mar-conv-val.json";
  Host(data.path(), service.url());
  const std::string before = content(file);
  EXPECT_THAT(before, HasSubstr("purchase"));
  for (const auto& [script, error] : rows) {
    SCOPED_TRACE(error);
    const ScriptedServer server(script);
    const Host host(data.path(), server.url());
    host.send("purchase");
    EXPECT_THAT(host.log.messages(), Contains(StartsWith("error: Failed to fetch conversion values: " + error)));
    EXPECT_EQ(host.quillmar->statistics().parked, 1U);
    EXPECT_EQ(host.quillmar->state().appId, "development-app");
    EXPECT_EQ(content(file), before);
  }
  // A good answer is as large as one may be, and takes the most memory when it is stored.
  std::string windows = R"({"app_id":"a","sdk_enabled":true,"lockWindows":{},"values":[{"key":"","windows":{"0":{})";
  for (int i = 1; windows.size() < (2U << 20U) - 20; ++i) {
    windows += ",\"" + std::to_string(i) + "\":{}";
  }
  [[maybe_unused]] const long peakBefore = peakMemory();
  const ScriptedServer server({ok + windows + "}}]}"});
  EXPECT_EQ(Host(data.path(), server.url(), LogLevel::error).quillmar->state().appId, "a");
  const Host host(data.path(), service.url());
  host.send("session");
  EXPECT_EQ(host.quillmar->statistics().logged, 1U);
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
  EXPECT_LT(peakBefore, 64) << "MiB, for a body that never ends";
  EXPECT_LT(peakMemory() - peakBefore, 64) << "MiB, for a good answer";
#endif
}

bool comesTrue(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + 60s;
  while (!condition() && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  return condition();
}

TEST(Loopback, optionsMeetWhatServicesReallySay) {
  const std::tuple<int, std::string, std::chrono::seconds> attempts[] = {
      {404, "", 5s}, {503, "90", 90s}, {200, "", 0s}};
  std::atomic<std::size_t> asked{0};
  std::atomic<int> configStatus{200};
  std::atomic<bool> enabled{true};
  service::ServiceLogic logic;
  service::DevelopmentService service({}, [&](const service::ServiceRequest& request) {
    service::ServiceAnswer answer = logic.handle(request);
    if (request.target == "/api/v1") {
      answer.status = std::get<0>(attempts[asked]);
      answer.headers = {{"Retry-After", std::get<1>(attempts[asked++])}};
      answer.body = R"({"attribution":true,"orgId":40669820,"campaignId":542370539})";
    } else if (request.method == "GET") {
      answer.status = configStatus;
      answer.body = enabled ? answer.body : R"({"app_id":"a","sdk_enabled":false,"values":[],"lockWindows":{}})";
    }
    return answer;
  });
  service.start();
  const TemporaryFolder data;
  const auto clock = std::make_shared<simulated::ManualClock>(std::chrono::system_clock::now());
  std::unique_ptr<Host> host;
  const auto launch = [&](const QuillmarOptions& options) {
    host.reset();
    host = std::make_unique<Host>(data.path(), service.url(), LogLevel::info, options, clock);
  };
  const auto waits = [&] { return clock->pendingTimers() == 1; };
  launch({});
  auto attribution = QuillmarFactory::createQuillmarASAAttribution(host->platform);
  attribution->setOptions({.liveAttribution = true});
  attribution->enableASAAttributionTracking();
  for (const auto& [status, retryAfter, wait] : attempts) {
    if (status != 200) {
      ASSERT_TRUE(comesTrue(waits));
      clock->advance(wait - 1s);
      EXPECT_TRUE(waits()) << status;
      clock->advance(1s);
    }
  }
  EXPECT_TRUE(comesTrue([&] {
    return content(data / "documents/asa_attribution_data.json") ==
           R"({"attribution":true,"campaignId":"542370539","orgId":"40669820"})";
  }));
  attribution.reset();

  configStatus = 503;
  launch({.useStoredConfiguration = true});
  host->send("purchase");
  EXPECT_THAT(host->adNetwork->calls(), SizeIs(1));
  clock->cancelAll();

  launch({.strictSwitch = true});
  host->send("purchase");
  configStatus = 200;
  enabled = false;
  ASSERT_TRUE(comesTrue(waits));
  clock->advance(5s);
  EXPECT_TRUE(comesTrue([&] { return host->quillmar->statistics().dropped == 1; })) << "was parked";
  EXPECT_THAT(host->adNetwork->calls(), IsEmpty());
}

TEST(Privacy, filesAreTheUsersAloneAndOnlyTheSettingsHoldTheKey) {
  for (const mode_t mask : {0U, 077U}) {
    SCOPED_TRACE(mask);
    const mode_t before = ::umask(mask);
    const TemporaryFolder folder;
    const std::string data = folder / "new/data";
    const LoopbackService service;
    const Host host(data, service.url(), LogLevel::off);
    host.send("purchase");
    host.purchase();
    ::umask(before);
    std::set<std::string> holders;  // folders with a file that holds the key
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(data).permissions()), 0700U);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(data)) {
      const std::string name = std::filesystem::relative(entry.path(), data);
      EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << name;
      EXPECT_THAT(content(entry.path()), Not(HasSubstr(token))) << name;
      if (content(entry.path()).find(key) != std::string::npos) {
        holders.insert(name.substr(0, name.find('/')));
      }
    }
    EXPECT_THAT(holders, ElementsAre("settings"));
  }
}

TEST(Privacy, theLogHoldsKeysAndPayloadsWhereTheyBelongOnly) {
  const std::tuple<std::string, std::string, LogLevel, bool> rows[] = {
      {"info: Starting configuration of Quillmar with appId: ", key, LogLevel::info, true},
      {"info: Quillmar initialized with appId: ", key, LogLevel::info, true},
      {"debug: Sending event: purchase with params: [\"revenue\": ", revenue, LogLevel::debug, true},
      {"debug: EventTracker - Tracked event: purchase with parameters: ", revenue, LogLevel::debug, false},
      {"error: PurchaseProcessor - Complete payload: {", transaction, LogLevel::error, true}};
  for (const LogLevel level : {LogLevel::off, LogLevel::error, LogLevel::debug, LogLevel::info}) {
    for (const bool accepted : {true, false}) {
      SCOPED_TRACE((accepted ? "accepted, level " : "refused, level ") + std::to_string(static_cast<int>(level)));
      const TemporaryFolder data;
      const LoopbackService service(
          {.acceptedKey = accepted ? key : "another", .attributionStatus = accepted ? 200 : 404});
      const Host host(data.path(), service.url(), level);
      host.send("purchase");
      host.purchase();
      std::vector<std::string> lines = host.log.messages();
      EXPECT_EQ(lines.empty(), level == LogLevel::off);
      std::erase_if(lines, std::not_fn(holdsSecret));
      std::vector<Matcher<std::string>> expected;
      for (const auto& [beginning, secret, lowest, whenRefused] : rows) {
        if (level >= lowest && (accepted || whenRefused)) {
          expected.emplace_back(AllOf(StartsWith(beginning), HasSubstr(secret)));
        }
      }
      EXPECT_THAT(lines, UnorderedElementsAreArray(expected));
    }
  }
}

}  // namespace
}  // namespace quillmar::test
