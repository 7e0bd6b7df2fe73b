#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/InMemorySubscriptionUpdates.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using namespace ::testing;

const std::string key = "key-4f1c", revenue = "4711.25", token = "token-7a2e", transaction = "transaction-90d3";

bool holdsSecret(const std::string& text) {
  return Value(text, AnyOf(HasSubstr(key), HasSubstr(revenue), HasSubstr(transaction), HasSubstr(token)));
}

/// A host on the real adapters that does everything once; the service accepts it or refuses the key.
struct Life {
  Life(LogLevel level, bool accepted)
      : service({.acceptedKey = accepted ? key : "another", .attributionStatus = accepted ? 200 : 404}) {
    Quillmar::resetStaticState();
    auto platform = platform::makeDefaultPlatform({data, service.url(), {}, service.url()});
    const auto tokens = std::make_shared<simulated::SimulatedAttributionToken>();
    tokens->setToken(token);
    const auto updates = std::make_shared<simulated::InMemorySubscriptionUpdates>();
    platform.attributionToken = tokens;
    platform.subscriptionUpdates = updates;
    platform.standardOutput = [](std::string_view line) { EXPECT_FALSE(holdsSecret(std::string(line))) << line; };
    const auto quillmar = QuillmarFactory::createQuillmar(platform);
    const auto attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
    quillmar->setLogLevel(level);
    quillmar->configure(key);
    EXPECT_TRUE(quillmar->drain(30s));
    quillmar->sendEvent("purchase", {{ASEventParam::revenue, 4711.25}});
    attribution->enableASAAttributionTracking();
    EXPECT_TRUE(attribution->drain(30s));
    platform::SubscriptionStatusUpdate update;
    update.transaction.jsonRepresentation = R"({"id":")" + transaction + "\"}";
    update.renewalInfo.jsonRepresentation = "{}";
    updates->post(update);
    update.transaction.verificationError = platform::PlatformError{"not signed"};
    updates->post(update);
    EXPECT_TRUE(quillmar->drain(30s) && attribution->drain(30s));
  }
  ~Life() { Quillmar::resetStaticState(); }

  LogCapture log{LogLevel::off};
  TemporaryFolder folder;
  std::string data = folder / "new/data";
  LoopbackService service;
};

TEST(Privacy, filesAreTheUsersAloneAndOnlyTheSettingsHoldTheKey) {
  for (const mode_t mask : {0U, 077U}) {
    SCOPED_TRACE(mask);
    const mode_t before = ::umask(mask);
    const Life life(LogLevel::off, true);
    ::umask(before);
    std::set<std::string> holders;  // folders with a file that holds the key
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(life.data).permissions()), 0700U);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(life.data)) {
      const std::string name = std::filesystem::relative(entry.path(), life.data);
      EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << name;
      const std::string content = (std::ostringstream() << std::ifstream(entry.path()).rdbuf()).str();
      EXPECT_EQ(content.find(token), std::string::npos) << name;
      if (content.find(key) != std::string::npos) {
        holders.insert(name.substr(0, name.find('/')));
      }
    }
    EXPECT_THAT(holders, ElementsAre("settings"));
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
