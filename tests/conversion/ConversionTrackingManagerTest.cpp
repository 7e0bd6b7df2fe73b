#include "Conversion/ConversionTrackingManager.h"

#include <gmock/gmock.h>

#include "Conversion/LastWindowValue.h"
#include "Conversion/RealSKAdNetwork.h"
#include "Conversion/SystemVersion.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "support/LogCapture.h"

using namespace quillmar;
using namespace std::chrono_literals;
using platform::PlatformError;
using testing::ElementsAre;
using testing::IsEmpty;
using WindowValue = ConversionValues::WindowValue;

namespace {

TEST(SystemVersion, comparesNumberByNumber) {
  using Pairs = std::vector<std::string_view>;  // a version and the minimum, one after the other
  const Pairs atLeast{"16.10",
                      "16.2",
                      "18",
                      "18.0",
                      "18.0",
                      "18",
                      "18.0.0",
                      "18.0",
                      "16.1",
                      "16.1",
                      "016.01",
                      "16.1",
                      "100000000000000000000000000.0",
                      "99999999999999999999999999",
                      "",
                      "0",
                      "15.4beta",
                      "15.4",
                      "15..4",
                      "15.0.4",
                      ".",
                      "0.0.0"};
  const Pairs below{"16.2", "16.10", "17.9.9",  "18.0", "16.0.9", "16.1", "9.3",   "14.0",
                    "",     "14.0",  "garbage", "14.0", "15.x",   "15.4", "-15.4", "14.0"};
  for (const Pairs& pairs : {atLeast, below}) {
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
      EXPECT_EQ(isVersionAtLeast(pairs[i], pairs[i + 1]), pairs == atLeast) << pairs[i] << " and " << pairs[i + 1];
    }
  }
}

using Completion = platform::AdNetworkCompletion;

/// Writes the calls down and keeps their completions.
class ScriptedAdNetwork : public SKAdNetworkProtocol, public platform::AdAttributionKit {
 public:
  void updatePostbackConversionValue_iOS16_1_WithCoarse(int fine, std::any coarse, bool lock,
                                                        Completion done) override {
    const auto value = std::any_cast<platform::SKAdNetworkCoarseConversionValue>(coarse);
    add(fmt::format("4 fine={} coarse={} lock={}", fine, static_cast<int>(value), lock), std::move(done));
  }
  void updatePostbackConversionValue_iOS16_1_WithoutCoarse(int fine, bool lock, Completion done) override {
    add(fmt::format("4 fine={} lock={}", fine, lock), std::move(done));
  }
  void updatePostbackConversionValue_iOS15_4(int fine, Completion done) override {
    add(fmt::format("3 fine={}", fine), std::move(done));
  }
  void updateConversionValue_iOS14_0(int fine) override { add(fmt::format("2 fine={}", fine), nullptr); }
  void registerAppForAdNetworkAttribution() override { add("register", nullptr); }
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
    network_->completions.clear();
    crank();  // a task that is left on an executor keeps that alive
  }

  void send(const WindowValue& value, bool lock, const char* key = "rule") {
    start(value, lock, key);
    crank();
  }
  void start(const WindowValue& value, bool lock, const char* key = "rule") {
    spawn(own_, manager_->send({key, {{"window1", value}}}, Window::window1, lock));
  }
  void crank() {
    while (own_->runOne() || main_->runOne()) {
    }
  }
  std::optional<LastWindowValue> last() const { return readLastWindowValue(*store_); }

  const std::shared_ptr<simulated::InMemoryUserDefaults> store_ = std::make_shared<simulated::InMemoryUserDefaults>();
  const std::shared_ptr<ScriptedAdNetwork> network_ = std::make_shared<ScriptedAdNetwork>();
  const std::shared_ptr<simulated::SimulatedDevice> device_ = std::make_shared<simulated::SimulatedDevice>("18.0");
  const std::shared_ptr<simulated::ManualExecutor> own_ = std::make_shared<simulated::ManualExecutor>();
  const std::shared_ptr<simulated::ManualExecutor> main_ = std::make_shared<simulated::ManualExecutor>();
  const std::shared_ptr<ActivityCounter> activity_ = std::make_shared<ActivityCounter>();
  std::shared_ptr<ConversionTrackingManager> manager_ =
      std::make_shared<ConversionTrackingManager>(store_, network_, network_, device_, main_, activity_);
};

TEST_F(ConversionTrackingManagerTest, choosesTheNewestInterfaceOfDeviceAndSimulatedVersion) {
  const struct {
    const char* system;
    std::optional<std::string> simulated;
    const char* call;
    bool locked;
  } rows[] = {{"18.0", {}, "kit fine=7 coarse=1 lock=true", true},
              {"26.1", {}, "kit fine=7 coarse=1 lock=true", true},
              {"17.9", {}, "4 fine=7 coarse=1 lock=true", true},
              {"16.1", {}, "4 fine=7 coarse=1 lock=true", true},
              {"16.0.3", {}, "3 fine=7", false},
              {"15.4", {}, "3 fine=7", false},
              {"15.3.9", {}, "2 fine=7", false},
              {"14.0", {}, "2 fine=7", false},
              {"13.7", {}, "register", false},
              {"0", {}, "register", false},
              {"17.4", "15.4", "3 fine=7", false},
              {"17.4", "16.10", "4 fine=7 coarse=1 lock=true", true},
              {"17.4", "18.0", "4 fine=7 coarse=1 lock=true", true},
              {"18.2", "17.0", "4 fine=7 coarse=1 lock=true", true},
              {"18.2", "9.0", "register", false}};
  for (const auto& row : rows) {
    const std::string label = std::string(row.system) + " as " + row.simulated.value_or("itself");
    store_->remove(ConversionTrackingManager::adNetworkRegisteredKey);
    store_->remove("LastWindowValue");
    network_->calls.clear();
    network_->completions.clear();
    device_->setSystemVersion(row.system);
    ConversionTrackingManager::setSimulatediOSVersion(row.simulated);
    send({fine7, medium}, true);
    EXPECT_THAT(network_->calls, ElementsAre(row.call)) << label;
    if (const Completion done = network_->completions.at(0)) {
      EXPECT_FALSE(last()) << label << ": only a success is recorded";
      EXPECT_EQ(activity_->count(), 1) << label;
      done(std::nullopt);
      crank();
    }
    EXPECT_EQ(last(), (LastWindowValue{"rule", 7, CoarseValue::medium, row.locked, {"a", "b", "c"}, 1.0, 2.0}))
        << label;
    EXPECT_EQ(activity_->count(), 0) << label;
  }
}

TEST_F(ConversionTrackingManagerTest, absentPartsAndHugeValuesAreSentSafely) {
  const std::int64_t huge = std::int64_t{1} << 40;
  const struct {
    const char* system;
    WindowValue value;
    const char* call;
  } rows[] = {{"17.0", {{}, medium}, "4 fine=0 coarse=1 lock=false"},
              {"17.0", {fine7, {}}, "4 fine=7 lock=false"},
              {"18.0", {{}, {}}, "kit fine=0 coarse=-1 lock=false"},
              {"15.4", {{{huge, {}}}, {}}, "3 fine=2147483647"},
              {"14.0", {{{-huge, {}}}, {}}, "2 fine=-2147483648"}};
  for (const auto& row : rows) {
    device_->setSystemVersion(row.system);
    send(row.value, false);
    EXPECT_EQ(network_->calls.back(), row.call);
  }
}

TEST_F(ConversionTrackingManagerTest, callsThePlatformOnTheMainExecutorOnly) {
  for (const char* system : {"13.0", "14.0", "15.4", "17.0"}) {
    network_->calls.clear();
    device_->setSystemVersion(system);
    start({fine7, medium}, false);
    own_->runUntilIdle();
    EXPECT_THAT(network_->calls, IsEmpty()) << system;
    main_->runUntilIdle();
    EXPECT_EQ(network_->calls.size(), 1u) << system;
    crank();
  }
  device_->setSystemVersion("18.0");
  start({fine7, medium}, false);
  own_->runUntilIdle();
  main_->runOne();
  EXPECT_EQ(network_->calls.size(), 1u) << "a task of its own";
  EXPECT_GT(activity_->count(), 0) << "which counts from the start";
  main_->runUntilIdle();
  EXPECT_EQ(network_->calls.size(), 2u);
}

TEST_F(ConversionTrackingManagerTest, logsEachStep) {
  const std::string sending = "debug: ConversionTrackingManager - Sending event with key: rule for window: window1";
  const std::string saved = "debug: ConversionTrackingManager - Saved last window value: fine=7, coarse=";
  const std::string registered = "debug: ConversionTrackingManager - App registered for ad network attribution";
  const std::string failed = "error: ConversionTrackingManager - SKAdNetwork ";
  const auto successful = [](const char* what) {
    return "debug: ConversionTrackingManager - " + std::string(what) + " successful";
  };
  const struct {
    const char* system;
    WindowValue value;
    std::optional<PlatformError> error;
    std::vector<std::string> expected;
  } rows[] = {
      {"17.0", {fine7, medium}, {}, {sending, saved + "medium", successful("SKAdNetwork 4.0 update")}},
      {"17.0", {fine7, {}}, {{"No 5%{}"}}, {sending, failed + "4.0 update failed: No 5%{}"}},
      {"15.4", {fine7, {}}, {}, {sending, saved + "nil", successful("SKAdNetwork 3.0 update")}},
      {"15.4", {fine7, {}}, {{"No"}}, {sending, failed + "3.0 update failed: No"}},
      {"14.0", {fine7, {}}, {}, {sending, saved + "nil", successful("SKAdNetwork 2.0 update")}},
      {"13.0", {fine7, {}}, {}, {sending, saved + "nil", registered}},
      {"13.0", {fine7, {}}, {}, {sending}},
      {"18.0", {fine7, medium}, {}, {sending, saved + "medium"}},
      {"18.0", {fine7, {}}, {{"No"}}, {sending, "error: Attribution: AdAttributionKit postback failed No"}},
  };
  for (const auto& row : rows) {
    const test::LogCapture log;
    device_->setSystemVersion(row.system);
    const auto before = store_->object("LastWindowValue");
    send(row.value, false);
    if (!network_->completions.empty() && network_->completions.back()) {
      network_->completions.back()(row.error);
      crank();
    }
    EXPECT_EQ(log.messages(), row.expected) << row.system;
    EXPECT_EQ(store_->object("LastWindowValue") == before, row.error.has_value() || row.expected.size() == 1);
    network_->completions.clear();
    if (row.error) {
      EXPECT_EQ(activity_->count(), 0) << "a failure is an end too";
    } else {
      store_->remove("LastWindowValue");
    }
  }
}

TEST_F(ConversionTrackingManagerTest, valueWithoutTheWindowIsNotSent) {
  const test::LogCapture log(LogLevel::error);
  spawn(own_, manager_->send({"rule", {{"window1", {fine7, {}}}}}, Window::window2, true));
  crank();
  EXPECT_THAT(network_->calls, IsEmpty());
  EXPECT_THAT(log.messages(), ElementsAre("error: ConversionTrackingManager - No conversion value available for window "
                                          "window2 in event: rule"));
}

TEST_F(ConversionTrackingManagerTest, mergesEventsAndTakesRevenueBoundsAsAPair) {
  device_->setSystemVersion("14.0");
  const auto value = [](std::vector<ConversionValues::RequiredEvent> fine,
                        std::vector<ConversionValues::RequiredEvent> coarse) {
    return WindowValue{{{1, std::move(fine)}}, {{CoarseValue::low, std::move(coarse)}}};
  };
  using Events = std::set<std::string>;
  const struct {
    WindowValue value;
    Events events;
    std::optional<double> min, max;
  } rows[] = {{value({}, {}), {}, {}, {}},
              {value({}, {{"a", 1.0, 2.0}}), {"a"}, 1, 2},
              {value({}, {}), {"a"}, 1, 2},
              {value({{"b", 5.0, {}}, {"c", 7.0, 8.0}}, {{"d", 3.0, 4.0}}), {"a", "b", "c", "d"}, 5, {}},
              {value({}, {}), {"a", "b", "c", "d"}, 5, {}},
              {value({}, {{"a", {}, {}}}), {"a", "b", "c", "d"}, {}, {}}};
  for (const auto& row : rows) {
    const auto label = &row - rows;
    const std::string key = "rule " + std::to_string(label);
    send(row.value, true, key.c_str());
    EXPECT_EQ(last(), (LastWindowValue{key, 1, CoarseValue::low, false, row.events, row.min, row.max})) << label;
  }
}

TEST_F(ConversionTrackingManagerTest, platformThatAnswersTwiceLateOrNeverDoesNoHarm) {
  for (const char* system : {"18.0", "17.0", "15.4"}) {
    device_->setSystemVersion(system);
    send({fine7, {}}, false);
    Completion done = network_->completions.back();
    done(std::nullopt);
    crank();
    store_->remove("LastWindowValue");
    done(std::nullopt);
    done(PlatformError{"late"});
    crank();
    EXPECT_FALSE(last()) << system << ": answered twice";
    EXPECT_EQ(activity_->count(), 0) << system << ": although the platform keeps the completion";

    send({fine7, {}}, false);
    done = nullptr;
    network_->completions.clear();
    crank();
    EXPECT_EQ(activity_->count(), 0) << system << ": completion dropped";
  }
  for (const char* system : {"18.0", "17.0"}) {
    device_->setSystemVersion(system);
    send({fine7, {}}, false);
  }
  const std::weak_ptr<ConversionTrackingManager> watch = manager_;
  manager_.reset();
  EXPECT_TRUE(watch.expired()) << "an open call does not keep the manager";
  for (const Completion& done : network_->completions) {
    done(std::nullopt);
  }
  crank();
  EXPECT_FALSE(last());
  EXPECT_EQ(activity_->count(), 0);
}

TEST(RealSKAdNetwork, handsOnWhatTheSystemHas) {
  const auto device = std::make_shared<simulated::SimulatedDevice>("");
  const auto platform = std::make_shared<simulated::SimulatedAdNetwork>(
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}), device);
  RealSKAdNetwork network(platform, device);
  const struct {
    const char* system;
    std::vector<std::string> interfaces;
    int completed;
  } rows[] = {
      {"13.7", {"registration"}, 0},
      {"14.0", {"skAdNetwork2", "registration"}, 0},
      {"15.4", {"skAdNetwork3", "skAdNetwork2", "registration"}, 1},
      {"16.1",
       {"skAdNetwork4", "skAdNetwork4WithoutCoarse", "skAdNetwork4WithoutCoarse", "skAdNetwork2", "registration"},
       3}};
  for (const auto& row : rows) {
    device->setSystemVersion(row.system);
    const std::size_t before = platform->calls().size();
    int completed = 0;
    const Completion done = [&completed](const auto&) { ++completed; };
    network.updatePostbackConversionValue_iOS16_1_WithCoarse(1, platform::SKAdNetworkCoarseConversionValue::medium,
                                                             true, done);
    network.updatePostbackConversionValue_iOS16_1_WithoutCoarse(2, true, done);
    network.updatePostbackConversionValue_iOS15_4(3, done);
    network.updateConversionValue_iOS14_0(4);
    network.registerAppForAdNetworkAttribution();
    std::vector<std::string> interfaces;
    const auto calls = platform->calls();
    for (std::size_t i = before; i < calls.size(); ++i) {
      interfaces.push_back(calls[i].interface);
    }
    EXPECT_EQ(interfaces, row.interfaces) << row.system;
    EXPECT_EQ(completed, row.completed) << row.system;
  }
  const auto calls = platform->calls();
  const auto& withCoarse = calls[calls.size() - 5];
  EXPECT_EQ(withCoarse.fineValue, 1);
  EXPECT_EQ(withCoarse.coarseValue, "medium");
  EXPECT_EQ(withCoarse.lockWindow, true);
  EXPECT_FALSE(calls[calls.size() - 4].lockWindow) << "the lock request is not passed on without a coarse value";

  const test::LogCapture log;
  bool called = false;
  network.updatePostbackConversionValue_iOS16_1_WithCoarse(1, 2, true, [&called](const auto&) { called = true; });
  EXPECT_EQ(platform->calls().size(), calls.size());
  EXPECT_FALSE(called);
  EXPECT_EQ(log.messages().size(), 1u) << "a wrong type is logged";
  network.updatePostbackConversionValue_iOS15_4(3, nullptr);  // the platform calls it nevertheless
}

}  // namespace
