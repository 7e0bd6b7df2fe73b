#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/InMemorySubscriptionUpdates.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"
#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using ::testing::StartsWith;

const std::string key = "key-4f1c";
const std::string revenue = "4711.25";
const std::string token = "token-7a2e";
const std::string transaction = "transaction-90d3";

/// A host on the real adapters that does everything once; the service accepts it or refuses the key.
class Life {
 public:
  Life(LogLevel level, bool accepted) : log(LogLevel::off), logic_(options(accepted)) {
    Quillmar::resetStaticState();
    service_.start();
    platform_ = platform::makeDefaultPlatform({data(), service_.url(), {}, service_.url()});
    const auto tokens = std::make_shared<simulated::SimulatedAttributionToken>();
    tokens->setToken(token);
    const auto updates = std::make_shared<simulated::InMemorySubscriptionUpdates>();
    platform_.attributionToken = tokens;
    platform_.subscriptionUpdates = updates;
    platform_.standardOutput = [this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      printed_.append(line);
    };
    quillmar_ = QuillmarFactory::createQuillmar(platform_);
    attribution_ = QuillmarFactory::createQuillmarASAAttribution(platform_);
    quillmar_->setLogLevel(level);
    quillmar_->configure(key);
    EXPECT_TRUE(quillmar_->drain(30s));
    quillmar_->sendEvent("purchase", {{ASEventParam::revenue, 4711.25}});
    EXPECT_TRUE(quillmar_->drain(30s));
    attribution_->enableASAAttributionTracking();
    EXPECT_TRUE(attribution_->drain(30s));
    for (const bool verified : {true, false}) {
      platform::SubscriptionStatusUpdate update;
      update.transaction = {1, R"({"id":")" + transaction + "\"}", std::nullopt};
      update.renewalInfo = {"{}", std::nullopt};
      if (!verified) {
        update.transaction.verificationError = platform::PlatformError{"not signed"};
      }
      updates->post(update);
      EXPECT_TRUE(attribution_->drain(30s));
    }
  }
  ~Life() { Quillmar::resetStaticState(); }

  std::string data() const { return folder_ / "new/data"; }
  void end() {
    attribution_->disableASAAttributionTracking();
    EXPECT_TRUE(attribution_->drain(30s));
    quillmar_->clearTrackedEvents();
    quillmar_->reset();
    EXPECT_TRUE(quillmar_->drain(30s));
  }
  std::string printed() const {
    const std::lock_guard lock(mutex_);
    return printed_;
  }

  LogCapture log;

 private:
  static service::ServiceOptions options(bool accepted) {
    service::ServiceOptions options;
    options.acceptedKey = accepted ? key : "another";
    options.attributionStatus = accepted ? 200 : 404;
    return options;
  }

  TemporaryFolder folder_;
  mutable std::mutex mutex_;
  std::string printed_;
  service::ServiceLogic logic_;
  service::DevelopmentService service_{{}, [this](const auto& request) { return logic_.handle(request); }};
  platform::Platform platform_;
  std::shared_ptr<Quillmar> quillmar_;
  std::shared_ptr<QuillmarASAAttribution> attribution_;
};

TEST(Privacy, filesAreTheUsersAloneAndOnlyTheSettingsHoldTheKey) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    SCOPED_TRACE(mask);
    const mode_t before = ::umask(mask);
    const Life life(LogLevel::off, true);
    ::umask(before);
    std::set<std::string> names;
    std::set<std::string> holders;  // folders with a file that holds the key
    for (const auto& entry : std::filesystem::recursive_directory_iterator(life.data())) {
      const std::string name = std::filesystem::relative(entry.path(), life.data());
      EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << name;
      if (entry.is_regular_file()) {
        names.insert(name);
        std::ostringstream content;
        content << std::ifstream(entry.path()).rdbuf();
        EXPECT_EQ(content.str().find(token), std::string::npos) << name;
        if (content.str().find(key) != std::string::npos) {
          holders.insert(name.substr(0, name.find('/')));
        }
      }
    }
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(life.data()).permissions()), 0700U);
    EXPECT_EQ(holders, std::set<std::string>{"settings"});
    const std::string settings = "settings/tech.quill-mar.quillmaruserdefaults.sqlite";
    EXPECT_EQ(names, (std::set<std::string>{settings, settings + "-wal", settings + "-shm",
                                            "documents/Quillmar/quill-mar-conv-val.json",
                                            "documents/asa_attribution_data.json"}));
  }
}

TEST(Privacy, theLogHoldsKeysAndPayloadsWhereTheyBelongOnly) {
  const struct {
    const std::string& secret;
    LogLevel level;  ///< the lowest that shows it
    std::vector<std::string> lines;
    std::vector<std::string> linesWhenRefused;
  } rows[] = {
      {key,
       LogLevel::info,
       {"info: Starting configuration of Quillmar with appId: " + key, "info: Quillmar initialized with appId: " + key},
       {"info: Starting configuration of Quillmar with appId: " + key,
        "info: Quillmar initialized with appId: " + key}},
      {revenue,
       LogLevel::debug,
       {"debug: Sending event: purchase with params: [\"revenue\": 4711.25]",
        "debug: EventTracker - Tracked event: purchase with parameters: "},
       {"debug: Sending event: purchase with params: [\"revenue\": 4711.25]"}},
      {transaction,
       LogLevel::error,
       {"error: PurchaseProcessor - Complete payload: {"},
       {"error: PurchaseProcessor - Complete payload: {"}},
      {token, LogLevel::info, {}, {}},
  };
  for (const LogLevel level : {LogLevel::off, LogLevel::error, LogLevel::debug, LogLevel::info}) {
    for (const bool accepted : {true, false}) {
      Life life(level, accepted);
      life.end();
      const std::vector<std::string> lines = life.log.messages();
      EXPECT_EQ(lines.empty(), level == LogLevel::off);
      for (const auto& row : rows) {
        SCOPED_TRACE(row.secret + (accepted ? " accepted, level " : " refused, level ") +
                     std::to_string(static_cast<int>(level)));
        std::vector<std::string> holding;
        for (const std::string& line : lines) {
          if (line.find(row.secret) != std::string::npos) {
            holding.push_back(line);
          }
        }
        std::vector<::testing::Matcher<std::string>> expected;
        for (const std::string& line : accepted ? row.lines : row.linesWhenRefused) {
          if (level >= row.level) {
            expected.emplace_back(StartsWith(line));
          }
        }
        EXPECT_THAT(holding, ::testing::UnorderedElementsAreArray(expected));
        EXPECT_EQ(life.printed().find(row.secret), std::string::npos);
      }
    }
  }
}

}  // namespace
}  // namespace quillmar::test
