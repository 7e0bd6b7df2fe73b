#include <gmock/gmock.h>
#include <sys/resource.h>

#include <fstream>
#include <sstream>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"
#include "support/ScriptedServer.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using quillmar::testing::Script;
using quillmar::testing::ScriptedServer;
using service::ServedRequest;
using namespace ::testing;

std::string content(const std::string& file) {
  return (std::ostringstream() << std::ifstream(file).rdbuf()).str();
}

/// A launch of a host on the real adapters, except for the ad network, that has fetched its configuration if it can.
class Host {
 public:
  Host(const std::string& dataDirectory, const std::string& serviceUrl)
      : platform(platform::makeDefaultPlatform({dataDirectory, serviceUrl, {}, {}})) {
    Quillmar::resetStaticState();
    const auto device = std::make_shared<simulated::SimulatedDevice>("17.0");
    adNetwork = std::make_shared<simulated::SimulatedAdNetwork>(platform.clock, device);
    platform.device = device;
    platform.storeKitAdNetwork = adNetwork;
    platform.adAttributionKit = adNetwork;
    platform.standardOutput = [](std::string_view) {};
    quillmar = QuillmarFactory::createQuillmar(platform);
    quillmar->setLogLevel(LogLevel::info);
    quillmar->configure("the-key");
    EXPECT_TRUE(quillmar->drain(30s));
  }
  ~Host() { Quillmar::resetStaticState(); }

  void send(const char* event) const {
    quillmar->sendEvent(event, {{ASEventParam::revenue, "9.99"}});
    EXPECT_TRUE(quillmar->drain(60s));
  }

  LogCapture log;
  platform::Platform platform;
  std::shared_ptr<simulated::SimulatedAdNetwork> adNetwork;
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

TEST(Loopback, whateverAnswersInPlaceOfTheServiceIsNotBelieved) {
  const std::string ok = "HTTP/1.1 200 OK\r\n\r\n";
  const std::pair<Script, std::string> rows[] = {
      {{ok + "<html>Please log in</html>"}, "dataCorrupted: not valid JSON at line 1, column "},
      {{"HTTP/1.1 200 OK\r\nContent-Length: 900\r\n\r\n{}"}, "networkConnectionLost"},
      {{ok, Script::Then::endless}, "dataLengthExceedsMaximum"},
      {{ok + R"({"app_id":7,"sdk_enabled":true})"}, "typeMismatch: app_id"},
      {{"HTTP/1.1 404 Not Found\r\n\r\n"}, "invalidRequest"}};
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
  const Host host(data.path(), service.url());
  host.send("session");
  EXPECT_EQ(host.quillmar->statistics().logged, 1U);
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss / 1024, 160) << "MiB, for a body that never ends";
#endif
}

}  // namespace
}  // namespace quillmar::test
