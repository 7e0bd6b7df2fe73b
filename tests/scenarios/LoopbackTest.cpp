#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/InProcessNotificationCenter.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/Certificate.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using service::DevelopmentService;
using service::ServedRequest;
using service::ServiceLogic;
using service::ServiceOptions;
using ::testing::HasSubstr;

/// The service that plays along, and what it was asked.
class Loopback {
 public:
  explicit Loopback(const ServiceOptions& options = {}, const Certificate* certificate = nullptr)
      : logic_(options),
        service_(serviceOptions(certificate), [this](const auto& request) { return logic_.handle(request); }) {
    service_.start();
  }
  std::string url() const { return service_.url(); }

  std::vector<ServedRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  service::DevelopmentServiceOptions serviceOptions(const Certificate* certificate) {
    service::DevelopmentServiceOptions options;
    if (certificate != nullptr) {
      options.certificateFile = certificate->file();
      options.keyFile = certificate->key();
    }
    options.onRequest = [this](const ServedRequest& request) {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
    };
    return options;
  }

  mutable std::mutex mutex_;
  std::vector<ServedRequest> requests_;
  ServiceLogic logic_;
  DevelopmentService service_;
};

/// A host on the real adapters, except for the ad network. `launch` is a new start of the app.
class Host {
 public:
  Host(std::string dataDirectory, std::string serviceUrl, std::string caFile = {})
      : options_{std::move(dataDirectory), std::move(serviceUrl), std::move(caFile)} {
    Quillmar::resetStaticState();
    launch();
  }
  ~Host() { Quillmar::resetStaticState(); }

  void launch() {
    quillmar.reset();
    platform = platform::makeDefaultPlatform(options_);
    const auto device = std::make_shared<simulated::SimulatedDevice>("17.0");
    adNetwork = std::make_shared<simulated::SimulatedAdNetwork>(platform.clock, device);
    platform.device = device;
    platform.storeKitAdNetwork = adNetwork;
    platform.adAttributionKit = adNetwork;
    platform.standardOutput = [](std::string_view) {};
    quillmar = QuillmarFactory::createQuillmar(platform);
    quillmar->setLogLevel(LogLevel::info);
  }

  void configure() {
    quillmar->configure("the-key");
    ASSERT_TRUE(quillmar->drain(30s));
  }
  void send(const char* event) {
    quillmar->sendEvent(event);
    ASSERT_TRUE(quillmar->drain(30s));
  }
  bool logged(const std::string& part) const {
    const auto lines = log.messages();
    return std::any_of(lines.begin(), lines.end(),
                       [&part](const auto& line) { return line.find(part) != std::string::npos; });
  }

  LogCapture log;
  platform::Platform platform;
  std::shared_ptr<simulated::SimulatedAdNetwork> adNetwork;
  std::shared_ptr<Quillmar> quillmar;

 private:
  const platform::DefaultPlatformOptions options_;
};

TEST(Loopback, eventsReachTheServiceAndThePlatformAndSurviveARestart) {
  TemporaryFolder data;
  Loopback loopback;
  Host host(data.path(), loopback.url());
  host.configure();
  host.quillmar->sendEvent("purchase", {{ASEventParam::revenue, "9.99"}});
  ASSERT_TRUE(host.quillmar->drain(30s));
  ASSERT_EQ(host.adNetwork->calls().size(), 1u);
  EXPECT_EQ(host.adNetwork->calls()[0].fineValue, 20);
  const auto state = host.quillmar->state();
  EXPECT_EQ(state.appId, "development-app");
  EXPECT_EQ(state.window, 0);

  host.launch();
  host.configure();
  host.send("something else");  // the purchase of the run before still counts
  ASSERT_EQ(host.adNetwork->calls().size(), 1u);
  EXPECT_EQ(host.adNetwork->calls()[0].fineValue, 20);
  EXPECT_EQ(loopback.requests().size(), 4u);
  for (const ServedRequest& request : loopback.requests()) {
    EXPECT_EQ(request.status, 200);
    EXPECT_TRUE(request.authorized);
  }
}

TEST(Loopback, httpsWorksWithATrustedCertificateOnly) {
  const Certificate certificate("127.0.0.1");
  Loopback loopback({}, &certificate);
  for (const bool trusted : {true, false}) {
    SCOPED_TRACE(trusted);
    TemporaryFolder data;
    Host host(data.path(), loopback.url(), trusted ? certificate.file() : std::string());
    host.configure();
    host.send("session");
    EXPECT_EQ(host.quillmar->statistics().logged, trusted ? 1u : 0u);
    EXPECT_EQ(host.quillmar->statistics().parked, trusted ? 0u : 1u);
    EXPECT_EQ(host.logged("Failed to fetch conversion values: secureConnectionFailed. Attempt: 1"), !trusted);
  }
}

TEST(Loopback, faultsEndInALogLineAndAnEventThatWaits) {
  TemporaryFolder data;
  ServiceOptions refusing;
  refusing.forcedStatus = 401;
  Loopback refusingService(refusing);
  ServiceOptions redirecting;
  redirecting.forcedStatus = 302;
  Loopback redirectingService(redirecting);
  struct Case {
    std::string url;
    const char* line;
  };
  for (const Case& test : {Case{"http://127.0.0.1:1", "cannotConnectToHost"},
                           {refusingService.url(), "invalidRequest"},
                           {redirectingService.url(), "unexpectedStatusCode"},
                           {"no address", "invalidURL"}}) {
    SCOPED_TRACE(test.line);
    Host host(data.path(), test.url);
    host.configure();
    host.send("session");
    EXPECT_TRUE(host.logged(std::string("error: Failed to fetch conversion values: ") + test.line + ". Attempt: 1"));
    EXPECT_EQ(host.quillmar->statistics().parked, 1u);
  }
}

TEST(Loopback, storageThatCannotBeUsedIsReplacedAndLeftAlone) {
  Loopback loopback;
  TemporaryFolder folder;
  const std::string file = folder / "file";
  std::ofstream(file) << "in the way";
  {
    Host host(file + "/below", loopback.url());  // no folder can be made there
    host.configure();
    host.send("session");
    EXPECT_TRUE(host.quillmar->isInitialized());
    EXPECT_TRUE(host.logged("PersistenceItem - Failed to create directory: "));
    EXPECT_EQ(host.quillmar->state().appId, "development-app") << "settings are kept in memory";
  }
  TemporaryFolder data;
  const std::string settings = data / "settings/tech.quill-mar.quillmaruserdefaults.sqlite";
  std::filesystem::create_directories(data / "settings");
  std::ofstream(settings) << std::string(5000, 'x');
  Host host(data.path(), loopback.url());
  host.configure();
  host.send("session");
  EXPECT_EQ(host.adNetwork->calls().size(), 1u);
  EXPECT_TRUE(host.logged("error: UserDefaults - The settings file"));
  std::ifstream stored(settings);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stored), {}), std::string(5000, 'x'));
  EXPECT_TRUE(std::filesystem::exists(data / "settings/standard.sqlite"));
}

TEST(Loopback, burstGoesOverFewConnections) {
  TemporaryFolder data;
  Loopback loopback;
  Host host(data.path(), loopback.url());
  host.configure();
  host.quillmar->setLogLevel(LogLevel::off);
  for (int i = 0; i < 2000; ++i) {
    host.quillmar->sendEvent("session");
  }
  ASSERT_TRUE(host.quillmar->drain(60s));
  EXPECT_EQ(host.quillmar->statistics().logged, 2000u);
  std::set<std::uint64_t> connections;
  for (const ServedRequest& request : loopback.requests()) {
    connections.insert(request.connection);
  }
  EXPECT_LE(connections.size(), 8u);
}

TEST(Loopback, everythingAtOnceFromManyThreads) {
  TemporaryFolder data;
  Loopback loopback;
  Host host(data.path(), loopback.url());
  const auto notifications =
      std::dynamic_pointer_cast<platform::InProcessNotificationCenter>(host.platform.notifications);
  ASSERT_NE(notifications, nullptr);
  host.quillmar->configure("the-key");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&host, &notifications, thread] {
      for (int round = 0; round < 25; ++round) {
        host.quillmar->sendEvent("session");
        host.quillmar->sendEvent("purchase", {{ASEventParam::revenue, round}});
        if (thread == 0) {
          notifications->post(platform::Notification::applicationDidBecomeActive);
          host.quillmar->statistics();
        } else if (thread == 1 && round % 10 == 9) {
          host.quillmar->reset();
          host.quillmar->setLogLevel(LogLevel::info);
          host.quillmar->configure("the-key");
        } else if (thread == 2) {
          // A second facade on the same settings, gone while its requests are in flight.
          const auto other = QuillmarFactory::createQuillmar(host.platform);
          other->configure("other-key");
          other->sendEvent("session");
        } else {
          host.quillmar->state();
          host.quillmar->clearTrackedEvents();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(host.quillmar->drain(60s));
  EXPECT_EQ(host.quillmar->statistics().sent, 200u);
}

}  // namespace
}  // namespace quillmar::test
