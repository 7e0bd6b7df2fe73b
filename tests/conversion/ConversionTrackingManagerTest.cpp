#include "Conversion/ConversionTrackingManager.h"

#include <gmock/gmock.h>

#include "Conversion/LastWindowValue.h"
#include "Conversion/RealSKAdNetwork.h"
#include "Platform/SystemVersion.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "support/LogCapture.h"

using namespace quillmar;
using platform::PlatformError;
using testing::ElementsAre;
using testing::IsEmpty;
using Completion = platform::AdNetworkCompletion;
using WindowValue = ConversionValues::WindowValue;

namespace {

TEST(SystemVersion, comparesNumberByNumber) {
  using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;  // a version and the minimum
  const Pairs atLeast{{"16.10", "16.2"}, {"18", "18.0"},       {"18.0.0", "18"},    {"016.01", "16.1"},
                      {"", "0"},         {"15.4beta", "15.4"}, {"15..4", "15.0.4"}, {"36893488147419103232", "1"}};
  const Pairs below{{"16.2", "16.10"}, {"17.9.9", "18"}, {"", "14.0"},
                    {"x", "14.0"},     {"15.x", "15.4"}, {"-15.4", "14.0"}};
  for (const auto& [version, minimum] : atLeast) {
    EXPECT_TRUE(isVersionAtLeast(version, minimum)) << version;
  }
  for (const auto& [version, minimum] : below) {
    EXPECT_FALSE(isVersionAtLeast(version, minimum)) << version;
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
    main_->post([=, manager = manager_] { manager->send({key, {{"window1", value}}}, Window::window1, lock); });
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

  const std::shared_ptr<simulated::InMemoryUserDefaults> store_ = std::make_shared<simulated::InMemoryUserDefaults>();
  const std::shared_ptr<ScriptedPlatform> platform_ = std::make_shared<ScriptedPlatform>();
  const std::shared_ptr<simulated::SimulatedDevice> device_ = std::make_shared<simulated::SimulatedDevice>("18.0");
  const std::shared_ptr<RealSKAdNetwork> network_ = std::make_shared<RealSKAdNetwork>(platform_, device_);
  const std::shared_ptr<simulated::ManualExecutor> main_ = std::make_shared<simulated::ManualExecutor>();
  const std::shared_ptr<ActivityCounter> activity_ = std::make_shared<ActivityCounter>();
  std::shared_ptr<ConversionTrackingManager> manager_ =
      std::make_shared<ConversionTrackingManager>(store_, network_, platform_, device_, main_, activity_);
};

TEST_F(ConversionTrackingManagerTest, callsTheNewestInterfaceOfDeviceAndSimulatedVersionOnTheMainExecutor) {
  const std::string kit = "kit fine=7 coarse=1 lock=true";
  const std::string four = "4 fine=7 coarse=1 lock=true";
  const struct {
    const char *system, *simulated;
    std::string call;
  } rows[] = {{"18.0", "", kit},          {"17.9", "", four},       {"16.1", "", four},
              {"16.0.3", "", "3 fine=7"}, {"15.4", "", "3 fine=7"}, {"15.3.9", "", "2 fine=7"},
              {"14.0", "", "2 fine=7"},   {"13.7", "", "register"}, {"17.4", "15.4", "3 fine=7"},
              {"17.4", "16.10", four},    {"17.4", "18.0", four},   {"18.2", "17.0", four},
              {"18.2", "9.0", "register"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.system) + " as " + row.simulated);
    store_->remove(ConversionTrackingManager::adNetworkRegisteredKey);
    store_->remove("LastWindowValue");
    forgetCalls();
    const std::string simulated = row.simulated;
    ConversionTrackingManager::setSimulatediOSVersion(simulated.empty() ? std::nullopt : std::optional(simulated));
    start(row.system, {fine7, medium}, true);
    main_->runOne();
    EXPECT_EQ(platform_->calls.empty(), row.call == kit) << "that one is called by a task of its own";
    const bool answered = row.call != "2 fine=7" && row.call != "register";
    EXPECT_EQ(activity_->count() > 0, answered) << "counts from the start";
    main_->runUntilIdle();
    EXPECT_THAT(platform_->calls, ElementsAre(row.call));
    EXPECT_EQ(last().has_value(), !answered) << "only a success is recorded";
    answer();
    const bool locked = row.call.ends_with("lock=true");
    EXPECT_EQ(last(), (LastWindowValue{"rule", 7, CoarseValue::medium, locked, {"a", "b", "c"}, 1.0, 2.0}));
    EXPECT_EQ(activity_->count(), 0);
  }
}

TEST_F(ConversionTrackingManagerTest, absentPartsAndHugeValuesAreSentSafely) {
  const std::int64_t huge = std::int64_t{1} << 40;
  const auto sent = [this](const char* system, const WindowValue& value) {
    send(system, value);
    return platform_->calls.back();
  };
  EXPECT_EQ(sent("17.0", {{}, medium}), "4 fine=0 coarse=1 lock=false");
  EXPECT_EQ(sent("17.0", {fine7, {}}), "3 fine=7") << "which does not take the lock request";
  EXPECT_EQ(sent("18.0", {{}, {}}), "kit fine=0 coarse=-1 lock=false");
  EXPECT_EQ(sent("15.4", {{{huge, {}}}, {}}), "3 fine=2147483647");
  EXPECT_EQ(sent("14.0", {{{-huge, {}}}, {}}), "2 fine=-2147483648");
}

TEST_F(ConversionTrackingManagerTest, logsEachStepAndSavesSuccessesOnly) {
  const std::string debug = "debug: ConversionTrackingManager - ";
  const std::string saved = debug + "Saved last window value: fine=7, coarse=medium";
  const std::string failed = "error: ConversionTrackingManager - SKAdNetwork ";
  const struct {
    const char* system;
    std::vector<std::string> lines;  // after the first one
    std::optional<PlatformError> error = {};
  } rows[] = {{"18.0", {saved}},
              {"18.0", {"error: Attribution: AdAttributionKit postback failed No"}, {{"No"}}},
              {"17.0", {saved, debug + "SKAdNetwork 4.0 update successful"}},
              {"17.0", {failed + "4.0 update failed: No 5%{}"}, {{"No 5%{}"}}},
              {"15.4", {saved, debug + "SKAdNetwork 3.0 update successful"}},
              {"15.4", {failed + "3.0 update failed: No"}, {{"No"}}},
              {"14.0", {saved, debug + "SKAdNetwork 2.0 update successful"}},
              {"13.0", {saved, debug + "App registered for ad network attribution"}},
              {"13.0", {}}};  // neither registers nor saves again
  const test::LogCapture log;
  for (auto row : rows) {
    log.clear();
    store_->remove("LastWindowValue");
    send(row.system, {fine7, medium});
    answer(row.error);
    row.lines.insert(row.lines.begin(), debug + "Sending event with key: rule for window: window1");
    EXPECT_EQ(log.messages(), row.lines) << row.system;
    EXPECT_EQ(last().has_value(), row.lines.size() > 1 && !row.error) << row.system;
    EXPECT_EQ(activity_->count(), 0) << "a failure is an end too";
  }
  platform_->calls.clear();
  manager_->send({"rule", {{"window1", {fine7, {}}}}}, Window::window2, true);
  EXPECT_THAT(platform_->calls, IsEmpty());
  EXPECT_EQ(log.messages().back(),
            "error: ConversionTrackingManager - No conversion value available for window window2 in event: rule");
}

TEST_F(ConversionTrackingManagerTest, mergesEventsAndTakesRevenueBoundsAsAPair) {
  using RequiredEvents = std::vector<ConversionValues::RequiredEvent>;
  const struct {
    RequiredEvents fine, coarse;
    std::set<std::string> events;
    std::optional<double> min, max;
  } rows[] = {{{}, {}, {}, {}, {}},
              {{}, {{"a", 1.0, 2.0}}, {"a"}, 1, 2},
              {{}, {}, {"a"}, 1, 2},
              {{{"b", 5.0, {}}, {"c", 7.0, 8.0}}, {{"d", 3.0, 4.0}}, {"a", "b", "c", "d"}, 5, {}},
              {{}, {{"a", {}, {}}}, {"a", "b", "c", "d"}, {}, {}}};
  for (const auto& row : rows) {
    const std::string key = "rule " + std::to_string(&row - rows);
    send("14.0", {{{1, row.fine}}, {{CoarseValue::low, row.coarse}}}, key);
    EXPECT_EQ(last(), (LastWindowValue{key, 1, CoarseValue::low, false, row.events, row.min, row.max}));
  }
}

TEST_F(ConversionTrackingManagerTest, platformThatAnswersTwiceLateOrNeverDoesNoHarm) {
  for (const char* system : {"18.0", "17.0", "15.4"}) {
    SCOPED_TRACE(system);
    send(system, {fine7, {}});
    answer();
    store_->remove("LastWindowValue");
    answer();
    EXPECT_FALSE(last()) << "answered twice";
    EXPECT_EQ(activity_->count(), 0) << "although the platform keeps the completion";
    send(system, {fine7, {}});
    forgetCalls();
    EXPECT_EQ(activity_->count(), 0) << "completion dropped";
  }
  send("18.0", {fine7, {}});
  send("17.0", {fine7, {}});
  const std::weak_ptr<ConversionTrackingManager> watch = manager_;
  manager_.reset();
  EXPECT_TRUE(watch.expired()) << "an open call does not keep the manager";
  for (const Completion& done : platform_->completions) {
    done(std::nullopt);
  }
  crank();
  EXPECT_TRUE(!last() && activity_->count() == 0);
}

TEST_F(ConversionTrackingManagerTest, adapterHandsOnOnlyWhatTheSystemHas) {
  const test::LogCapture log;
  for (const char* system : {"13.7", "14.0", "15.4", "16.1"}) {
    device_->setSystemVersion(system);
    network_->updatePostbackConversionValue_iOS16_1_WithCoarse(1, platform::SKAdNetworkCoarseConversionValue::medium,
                                                               true, nullptr);
    network_->updatePostbackConversionValue_iOS16_1_WithoutCoarse(2, true, nullptr);
    network_->updatePostbackConversionValue_iOS15_4(3, nullptr);
    network_->updateConversionValue_iOS14_0(4);
  }
  platform_->completions.at(1)(std::nullopt);  // may be called although the caller gave none
  EXPECT_THAT(log.messages(), IsEmpty());
  network_->updatePostbackConversionValue_iOS16_1_WithCoarse(1, 2, true, nullptr);
  EXPECT_EQ(log.messages().size(), 1u) << "a wrong type is logged, and not sent";
  EXPECT_THAT(platform_->calls, ElementsAre("2 fine=4", "3 fine=3", "2 fine=4", "4 fine=1 coarse=1 lock=true",
                                            "3 fine=2", "3 fine=3", "2 fine=4"));
}

}  // namespace
