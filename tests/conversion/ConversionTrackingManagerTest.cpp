#include "Conversion/ConversionTrackingManager.h"

#include <gmock/gmock.h>

#include "Conversion/ConversionValueResolver.h"
#include "Conversion/LastWindowValue.h"
#include "Conversion/RealSKAdNetwork.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Platform/SystemVersion.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "support/LogCapture.h"

using namespace quillmar;
using platform::PlatformError;
using platform::PropertyListValue;
using testing::ElementsAre;
using Completion = platform::AdNetworkCompletion;
using WindowValue = ConversionValues::WindowValue;

namespace {

TEST(SystemVersion, comparesNumberByNumber) {
  for (const char* version : {"16.1", "16.01", "016.1", "16.1.0", "16.1beta", "16.10", "17", "36893488147419103232"}) {
    EXPECT_TRUE(isVersionAtLeast(version, "16.1")) << version;
  }
  for (const char* version : {"16.0.9", "16", "9.9", "", "16.x", "-16.1"}) {
    EXPECT_FALSE(isVersionAtLeast(version, "16.1")) << version;
  }
}

/// Writes the calls down and keeps their completions.
class ScriptedPlatform : public platform::StoreKitAdNetwork, public platform::AdAttributionKit {
 public:
  void registerAppForAdNetworkAttribution() override { add("register", nullptr); }
  void updateConversionValue(int fine) override { add(fmt::format("2 fine={}", fine), nullptr); }
  void updatePostbackConversionValue(int fine, Completion done) override {
    add(fmt::format("3 fine={}", fine), std::move(done));
  }
  void updatePostbackConversionValue(int fine, platform::SKAdNetworkCoarseConversionValue coarse, bool lock,
                                     Completion done) override {
    add(fmt::format("4 fine={} coarse={} lock={}", fine, static_cast<int>(coarse), lock), std::move(done));
  }
  void updateConversionValue(const platform::PostbackUpdate& update, Completion done) override {
    const int coarse = update.coarseConversionValue ? static_cast<int>(*update.coarseConversionValue) : -1;
    add(fmt::format("kit fine={} coarse={} lock={}", update.fineConversionValue, coarse, update.lockPostback),
        std::move(done));
  }

  std::vector<std::string> calls;
  std::vector<Completion> completions;

 private:
  void add(std::string call, Completion done) {
    calls.push_back(std::move(call));
    completions.push_back(std::move(done));
  }
};

const ConversionValues::FineValue fine7{7, {{"a", 1.0, 2.0}, {"b", {}, {}}}};
const ConversionValues::CoarseValueData medium{CoarseValue::medium, {{"c", {}, 3.0}}};

class ConversionTrackingManagerTest : public testing::Test {
 protected:
  ~ConversionTrackingManagerTest() override {
    ConversionTrackingManager::setSimulatediOSVersion(std::nullopt);
    forgetCalls();  // a task that is left on an executor keeps that alive
  }

  void start(const char* system, const WindowValue& value, bool lock = false, const std::string& key = "rule") {
    device_->setSystemVersion(system);
    main_->post([=, this, manager = manager_] {
      manager->send({key, {{"window1", value}}}, Window::window1, lock, options_, {}, {});
    });
  }
  void send(const char* system, const WindowValue& value, const std::string& key = "rule") {
    start(system, value, false, key);
    crank();
  }
  /// The platform's answer to the last call, if that is one that it answers.
  void answer(std::optional<PlatformError> error = {}) {
    if (const Completion done = platform_->completions.back()) {
      done(std::move(error));
      crank();
    }
  }
  void crank() { main_->runUntilIdle(); }
  void forgetCalls() {
    platform_->calls.clear();
    platform_->completions.clear();
    crank();
  }
  std::optional<LastWindowValue> last() const { return readLastWindowValue(*store_); }

  QuillmarOptions options_;
  const std::shared_ptr<simulated::InMemoryUserDefaults> store_ = std::make_shared<simulated::InMemoryUserDefaults>();
  const std::shared_ptr<ScriptedPlatform> platform_ = std::make_shared<ScriptedPlatform>();
  const std::shared_ptr<simulated::SimulatedDevice> device_ = std::make_shared<simulated::SimulatedDevice>("18.0");
  const std::shared_ptr<RealSKAdNetwork> network_ = std::make_shared<RealSKAdNetwork>(platform_, device_);
  const std::shared_ptr<simulated::ManualExecutor> main_ = std::make_shared<simulated::ManualExecutor>();
  const std::shared_ptr<ActivityCounter> activity_ = std::make_shared<ActivityCounter>();
  std::shared_ptr<ConversionTrackingManager> manager_ =
      std::make_shared<ConversionTrackingManager>(store_, network_, platform_, device_, main_, activity_);
};

TEST_F(ConversionTrackingManagerTest, ofBothNetworksOneThatTakesAValueIsEnough) {
  options_.updateBothNetworks = true;
  for (int row = 0; row < 8; ++row) {
    const std::array<bool, 2> refuses{(row & 1) != 0, (row & 2) != 0};
    const std::size_t first = row < 4 ? 0 : 1;
    SCOPED_TRACE(
        fmt::format("AdAttributionKit refuses: {}, SKAdNetwork: {}, first answer: {}", refuses[0], refuses[1], first));
    forgetCalls();
    store_->remove("LastWindowValue");
    send("18.0", {fine7, medium});
    ASSERT_THAT(platform_->calls, ElementsAre("kit fine=7 coarse=1 lock=false", "4 fine=7 coarse=1 lock=false"));
    for (const std::size_t network : {first, 1 - first}) {
      platform_->completions[network](refuses[network] ? std::optional<PlatformError>({"no"}) : std::nullopt);
    }
    EXPECT_EQ(last().has_value(), !refuses[0] || !refuses[1]);
    EXPECT_EQ(activity_->count(), 0);
  }
}

TEST_F(ConversionTrackingManagerTest, callsTheNewestInterfaceOfDeviceAndSimulatedVersionOnTheMainExecutor) {
  const std::string kit = "kit fine=7 coarse=1 lock=true", four = "4 fine=7 coarse=1 lock=true";
  const std::string three = "3 fine=7", two = "2 fine=7", one = "register";
  const std::tuple<const char*, const char*, std::string> rows[] = {
      {"18.0", nullptr, kit},   {"17.9", nullptr, four},  {"16.1", nullptr, four}, {"16.0.3", nullptr, three},
      {"15.4", nullptr, three}, {"15.3.9", nullptr, two}, {"14.0", nullptr, two},  {"13.7", nullptr, one},
      {"17.4", "15.4", three},  {"17.4", "18.0", four},   {"18.2", "17.0", four},  {"18.2", "9.0", one}};
  const std::optional<PlatformError> good, bad{{"No 5%{}"}};
  const test::LogCapture log;
  for (const auto& [system, simulated, call] : rows) {
    for (const auto& failure : {bad, good}) {
      SCOPED_TRACE(std::string(system) + ": " + call);
      store_->remove(ConversionTrackingManager::adNetworkRegisteredKey);
      store_->remove("LastWindowValue");
      forgetCalls();
      ConversionTrackingManager::setSimulatediOSVersion(simulated ? std::optional<std::string>(simulated)
                                                                  : std::nullopt);
      start(system, {fine7, medium}, true);
      main_->runOne();
      EXPECT_EQ(platform_->calls.empty(), call == kit) << "that one is called by a task of its own";
      const bool answered = call != two && call != one;
      EXPECT_TRUE(activity_->count() > 0 || !answered) << "counts from the start";
      main_->runUntilIdle();
      EXPECT_THAT(platform_->calls, ElementsAre(call));
      EXPECT_EQ(last().has_value(), !answered) << "only a success is recorded";
      answer(failure);
      if (failure && answered) {
        EXPECT_FALSE(last());
        EXPECT_THAT(log.messages().back(), testing::MatchesRegex("error: .* No 5%[{][}]"));
      } else {
        const bool locked = call.ends_with("lock=true");
        EXPECT_EQ(last(), (LastWindowValue{"rule", 7, CoarseValue::medium, locked, {"a", "b", "c"}, 1.0, 2.0}));
      }
      EXPECT_EQ(activity_->count(), 0) << "although the platform keeps the completion";
      store_->remove("LastWindowValue");
      answer();
      EXPECT_FALSE(last()) << "answered twice";
    }
  }
  send("13.0", {fine7, medium});
  EXPECT_THAT(platform_->calls, ElementsAre(one)) << "registered once";
}

TEST_F(ConversionTrackingManagerTest, absentPartsHugeValuesAndAllCoarseOnesAreSentSafely) {
  constexpr std::int64_t huge = std::int64_t{1} << 40;
  send("17.0", {{}, medium});
  send("17.0", {fine7, {}});  // the interface without a coarse value does not take the lock request
  send("18.0", {{}, {}});
  send("15.4", {{{huge, {}}}, {}});
  send("14.0", {{{-huge, {}}}, {}});
  manager_->send({"rule", {{"window1", {fine7, {}}}}}, Window::window2, true);  // no call
  for (const char* system : {"17.0", "18.0"}) {
    send(system, {{}, {{CoarseValue::high, {}}}});
    send(system, {{}, {{CoarseValue::low, {}}}});
  }
  EXPECT_THAT(
      platform_->calls,
      ElementsAre("4 fine=0 coarse=1 lock=false", "3 fine=7", "kit fine=0 coarse=-1 lock=false", "3 fine=2147483647",
                  "2 fine=-2147483648", "4 fine=0 coarse=0 lock=false", "4 fine=0 coarse=2 lock=false",
                  "kit fine=0 coarse=0 lock=false", "kit fine=0 coarse=2 lock=false"));
}

TEST_F(ConversionTrackingManagerTest, mergesEventsOfAllKeysAndTakesRevenueBoundsAsAPair) {
  using Required = std::vector<ConversionValues::RequiredEvent>;
  using Bound = std::optional<double>;
  const std::tuple<const char*, Required, Required, std::set<std::string>, Bound, Bound> rows[] = {
      {"1", {}, {}, {}, {}, {}},
      {"2", {}, {{"a", 1.0, 2.0}}, {"a"}, 1, 2},
      {"3", {}, {}, {"a"}, 1, 2},
      {"4", {{"b", 5.0, {}}, {"c", 7.0, 8.0}}, {{"d", 3.0, 4.0}}, {"a", "b", "c", "d"}, 5, {}},
      {"5", {}, {{"a", {}, {}}}, {"a", "b", "c", "d"}, {}, {}}};
  for (const auto& [key, fine, coarse, events, min, max] : rows) {
    send("14.0", {{{1, fine}}, {{CoarseValue::low, coarse}}}, key);
    EXPECT_EQ(last(), (LastWindowValue{key, 1, CoarseValue::low, false, events, min, max})) << key;
  }
}

TEST_F(ConversionTrackingManagerTest, platformThatAnswersLateOrNeverDoesNoHarm) {
  for (const bool dropped : {true, false}) {
    for (const char* system : {"18.0", "17.0", "15.4"}) {
      send(system, {fine7, {}});
    }
    dropped ? forgetCalls() : void();
    EXPECT_EQ(activity_->count(), dropped ? 0 : 3);
  }
  const std::weak_ptr<ConversionTrackingManager> watch = manager_;
  manager_.reset();
  EXPECT_TRUE(watch.expired()) << "an open call does not keep the manager";
  for (const Completion& done : platform_->completions) {
    done(std::nullopt);
  }
  crank();
  EXPECT_TRUE(!last() && activity_->count() == 0);
}

const LastWindowValue whole{"k", 42, CoarseValue::medium, true, {"a", "b"}, 0.5, 9.0, Window::window1};
const LastWindowValue least{"", -1, {}, false, {}, {}, {}};
constexpr const char* wholeJson = R"({"key":"k","fineValue":42,"coarseValue":"medium","lockWindow":true,)"
                                  R"("completedEvents":["a","b"],"revenueMin":0.5,"revenueMax":9,"window":"window1"})";

TEST(LastWindowValue, isTheSameInItsDictionaryAndItsJson) {
  EXPECT_EQ(LastWindowValue::decode(JsonReader(parseJson(wholeJson))), whole);
  EXPECT_EQ(LastWindowValue::fromDictionary(whole.toDictionary()), whole);
  EXPECT_EQ(LastWindowValue::fromDictionary(least.toDictionary()), least);
  EXPECT_EQ(least.toDictionary().size(), 4u) << "what is absent is left out";
  PropertyListValue::Dictionary integers = whole.toDictionary();
  integers.insert_or_assign("revenueMax", std::int64_t{9});
  EXPECT_EQ(LastWindowValue::fromDictionary(integers), whole) << "a store may turn 9.0 into 9";
}

TEST(LastWindowValue, dictionaryMustHaveTheRequiredEntriesInTheirTypes) {
  for (const auto& [key, entry] : whole.toDictionary()) {
    PropertyListValue::Dictionary dictionary = whole.toDictionary();
    dictionary.erase(key);
    const auto without = LastWindowValue::fromDictionary(dictionary);
    dictionary.emplace(key, PropertyListValue::Array{"a", true});  // wrong for every one of them
    EXPECT_EQ(LastWindowValue::fromDictionary(dictionary), without) << key;
    const bool optional = key == "coarseValue" || key == "revenueMin" || key == "revenueMax" || key == "window";
    EXPECT_EQ(without.has_value(), optional) << key;
  }
  PropertyListValue::Dictionary unknown = whole.toDictionary();
  unknown.insert_or_assign("coarseValue", "HIGH");
  EXPECT_FALSE(LastWindowValue::fromDictionary(unknown)->coarseValue);
}

// That a missing fine value is filled in, too: tests/insight.
TEST(ConversionValueResolver, fillsOnlyWhatTheLastUpdateHas) {
  const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
  store->set("LastWindowValue", least.toDictionary());
  const ConversionValues::ConversionValue value{"rule", {{"window0", {}}, {"window1", {fine7, {}}}}};
  for (const Window window : {Window::window1, Window::window2}) {
    EXPECT_EQ(ConversionValueResolver(store).resolveConversionValue(value, window), value);
  }
  store->set("LastWindowValue", whole.toDictionary());
  const auto filled = ConversionValueResolver(store).resolveConversionValue(value, Window::window1);
  EXPECT_EQ(filled.windows.at("window1"), (WindowValue{fine7, {{CoarseValue::medium, {}}}}));
}

}  // namespace
