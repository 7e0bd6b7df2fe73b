#include <gmock/gmock.h>

#include <fstream>
#include <set>
#include <sstream>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using service::ServedRequest;
using namespace ::testing;

/// A launch of a host on the real adapters, except for the ad network, that has fetched its configuration if it can.
class Host {
 public:
  Host(const std::string& dataDirectory, const std::string& serviceUrl)
      : platform(platform::makeDefaultPlatform({dataDirectory, serviceUrl, {}, {}})) {
    platform.logSink = log.sink();
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

TEST(Loopback, eventsReachTheServiceAndThePlatformAndSurviveARestart) {
  const TemporaryFolder data;
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
}

TEST(Loopback, faultsEndInALogLineAndAnEventThatWaits) {
  const TemporaryFolder data;
  const Certificate unknown("127.0.0.1");
  const LoopbackService refusing({.forcedStatus = 401});
  const LoopbackService secure({}, &unknown);
  const std::pair<std::string, std::string> rows[] = {{"http://127.0.0.1:1", "cannotConnectToHost"},
                                                      {refusing.url(), "invalidRequest"},
                                                      {secure.url(), "secureConnectionFailed"},
                                                      {"no address", "invalidURL"}};
  for (const auto& [url, error] : rows) {
    const Host host(data.path(), url);
    host.send("session");
    EXPECT_THAT(host.log.messages(), Contains("error: Failed to fetch conversion values: " + error + ". Attempt: 1"));
    EXPECT_EQ(host.quillmar->statistics().parked, 1u) << error;
  }
}

TEST(Loopback, storageThatCannotBeUsedIsReplacedAndLeftAlone) {
  const LoopbackService service;
  const TemporaryFolder data;
  const std::string settings = data / "settings/tech.quill-mar.quillmaruserdefaults.sqlite";
  const std::string content(5000, 'x');
  std::filesystem::create_directories(data / "settings");
  std::ofstream(settings) << content;
  {
    const Host host(data.path(), service.url());
    host.send("session");
    EXPECT_THAT(host.adNetwork->calls(), SizeIs(1));
    EXPECT_THAT(host.log.messages(), Contains(StartsWith("error: UserDefaults - The settings file")));
    EXPECT_EQ((std::ostringstream() << std::ifstream(settings).rdbuf()).str(), content);
    EXPECT_TRUE(std::filesystem::exists(data / "settings/standard.sqlite"));
  }
  const Host host(settings + "/below", service.url());  // no folder can be made there
  host.send("session");
  EXPECT_THAT(host.log.messages(), Contains(HasSubstr("PersistenceItem - Failed to create directory: ")));
  EXPECT_EQ(host.quillmar->state().appId, "development-app") << "settings are kept in memory";
}

TEST(Loopback, burstGoesOverFewConnectionsAndFacadesThatPassDisturbNoOther) {
  const TemporaryFolder data;
  const LoopbackService service;
  const Host host(data.path(), service.url());
  host.quillmar->setLogLevel(LogLevel::off);
  for (int i = 0; i < 2000; ++i) {
    host.quillmar->sendEvent("session");
  }
  ASSERT_TRUE(host.quillmar->drain(60s));
  EXPECT_EQ(host.quillmar->statistics().logged, 2000u);
  std::set<std::uint64_t> connections;
  for (const ServedRequest& request : service.requests()) {
    connections.insert(request.connection);
  }
  EXPECT_LE(connections.size(), 8u);

  for (int i = 0; i < 25; ++i) {  // each is gone while its requests are in flight
    const auto passing = QuillmarFactory::createQuillmar(host.platform);
    passing->configure("the-key");
    passing->sendEvent("session");
  }
  host.send("session");
  EXPECT_EQ(host.quillmar->statistics().logged, 2001u);
}

}  // namespace
}  // namespace quillmar::test
