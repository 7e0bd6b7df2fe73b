#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using namespace ::testing;

const std::string key = "key-4f1c";
const std::string revenue = "4711.25";
const std::string token = "token-7a2e";
const std::string transaction = "transaction-90d3";

bool holdsSecret(const std::string& text) {
  return Value(text, AnyOf(HasSubstr(key), HasSubstr(revenue), HasSubstr(transaction), HasSubstr(token)));
}

/// A host on the real adapters that does everything once; the service accepts it or refuses the key.
class Life {
 public:
  Life(LogLevel level, bool accepted)
      : service_({.acceptedKey = accepted ? key : "another", .attributionStatus = accepted ? 200 : 404}) {
    Quillmar::resetStaticState();
    auto platform = platform::makeDefaultPlatform({data(), service_.url(), {}, service_.url()});
    platform.logSink = log.sink();
    const auto tokens = std::make_shared<simulated::SimulatedAttributionToken>();
    tokens->setToken(token);
    const auto updates = std::make_shared<platform::InProcessSubscriptionUpdates>();
    platform.attributionToken = tokens;
    platform.subscriptionUpdates = updates;
    platform.standardOutput = [](std::string_view line) { EXPECT_FALSE(holdsSecret(std::string(line))) << line; };
    quillmar_ = QuillmarFactory::createQuillmar(platform);
    attribution_ = QuillmarFactory::createQuillmarASAAttribution(platform);
    quillmar_->setLogLevel(level);
    quillmar_->configure(key);
    drain();
    quillmar_->sendEvent("purchase", {{ASEventParam::revenue, 4711.25}});
    attribution_->enableASAAttributionTracking();
    drain();
    platform::SubscriptionStatusUpdate update;
    update.transaction.jsonRepresentation = R"({"id":")" + transaction + "\"}";
    update.renewalInfo.jsonRepresentation = "{}";
    updates->post(update);
    update.transaction.verificationError = platform::PlatformError{"not signed"};
    updates->post(update);
    drain();
  }
  ~Life() { Quillmar::resetStaticState(); }

  std::string data() const { return folder_ / "new/data"; }
  LogCapture log{LogLevel::off};

 private:
  void drain() const { EXPECT_TRUE(quillmar_->drain(30s) && attribution_->drain(30s)); }

  TemporaryFolder folder_;
  LoopbackService service_;
  std::shared_ptr<Quillmar> quillmar_;
  std::shared_ptr<QuillmarASAAttribution> attribution_;
};

TEST(Privacy, filesAreTheUsersAloneAndOnlyTheSettingsHoldTheKey) {
  for (const mode_t mask : {0U, 077U}) {
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
        const std::string content = (std::ostringstream() << std::ifstream(entry.path()).rdbuf()).str();
        EXPECT_EQ(content.find(token), std::string::npos) << name;
        if (content.find(key) != std::string::npos) {
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
    std::string line;  ///< how it begins
    const std::string& secret;
    LogLevel level;  ///< the lowest that shows it
    bool whenRefused = true;
  } rows[] = {
      {"info: Starting configuration of Quillmar with appId: ", key, LogLevel::info},
      {"info: Quillmar initialized with appId: ", key, LogLevel::info},
      {"debug: Sending event: purchase with params: [\"revenue\": ", revenue, LogLevel::debug},
      {"debug: EventTracker - Tracked event: purchase with parameters: ", revenue, LogLevel::debug, false},
      {"error: PurchaseProcessor - Complete payload: {", transaction, LogLevel::error},
  };
  for (const LogLevel level : {LogLevel::off, LogLevel::error, LogLevel::debug, LogLevel::info}) {
    for (const bool accepted : {true, false}) {
      SCOPED_TRACE((accepted ? "accepted, level " : "refused, level ") + std::to_string(static_cast<int>(level)));
      const Life life(level, accepted);
      std::vector<std::string> lines = life.log.messages();
      EXPECT_EQ(lines.empty(), level == LogLevel::off);
      std::erase_if(lines, std::not_fn(holdsSecret));
      std::vector<Matcher<std::string>> expected;
      for (const auto& row : rows) {
        if (level >= row.level && (accepted || row.whenRefused)) {
          expected.emplace_back(AllOf(StartsWith(row.line), HasSubstr(row.secret)));
        }
      }
      EXPECT_THAT(lines, UnorderedElementsAreArray(expected));
    }
  }
}

}  // namespace
}  // namespace quillmar::test
