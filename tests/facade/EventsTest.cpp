#include <gmock/gmock.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;
using namespace ::testing;

MATCHER_P3(isCall, fine, coarse, lock, "") {
  return arg.fineValue == fine && arg.coarseValue == coarse && arg.lockWindow == lock;
}

class Intake : public Test, protected FacadeHarness {};
class Pipeline : public Intake {};

TEST_F(Intake, eventThatIsParkedAsTheConfigurationArrivesIsNotLeftBehind) {
  // Between an event's look at the configuration and its being parked.
  simulated.logSink =
      std::make_shared<InterruptingSink>("Configuration not ready", [this] { core().markConfigurationAsLoaded(); });
  restart();
  defaults->set("ServerAppId", "app-1");
  send("late");
  EXPECT_EQ(quillmar->statistics().parked, 0u);
}

TEST_F(Intake, parametersAreNamedAndBadTextIsMended) {
  configure();
  const std::tuple<std::string, EventValue, const char*> rows[] = {
      {"purchase", 9.99, "purchase with params: [\"revenue\": 9.99]"},
      {"whole", 7, "whole with params: [\"revenue\": 7]"},
      {"flag", true, "flag with params: [\"revenue\": true]"},
      {std::string("x\xC3(\0y", 5), "\xFF", "x\xEF\xBF\xBD("},
      {"text", "\xFF", "text with params: [\"revenue\": \"\xEF\xBF\xBD\"]"}};
  for (const auto& [name, revenue, line] : rows) {
    send(name, {{ASEventParam::revenue, revenue}});
    EXPECT_TRUE(logged(std::string("debug: Sending event: ") + line)) << line;
  }
  const auto tracked = core().eventTracker()->getAllTrackedEvents();
  ASSERT_EQ(tracked.size(), 5u);
  EXPECT_EQ(tracked[0].parameters.at("revenue"), 9.99);
  EXPECT_TRUE(tracked[3].parameters.empty());
}

TEST_F(Intake, theCallerWaitsForTheSwitchOnlyWhereTheStoreIsOpen) {
  quillmar->sendEvent("early");
  EXPECT_FALSE(logged("Sending event"));
  configure();
  EXPECT_TRUE(logged("Sending event: early with params: [:]"));
  quillmar->sendEvent("late");
  EXPECT_TRUE(logged("Sending event: late"));
}

TEST_F(Pipeline, tenFailuresInARowInvalidateTheKeyAndASuccessStartsTheCountAgain) {
  configure();
  const auto sendTimes = [this](int times) {
    for (int i = 0; i < times; ++i) {
      send("session");
    }
  };
  eventStatus = 500;
  sendTimes(9);
  EXPECT_EQ(calls().size(), 9u) << "a failed log entry does not stop the event";
  eventStatus = 200;
  send("session");
  eventBody = R"({"status":"Success"})";  // only "success" is one
  sendTimes(10);
  EXPECT_FALSE(quillmar->state().verificationKeyValid);
  EXPECT_EQ(calls().size(), 19u) << "the tenth failure's event goes no further";
  send("session");
  EXPECT_EQ(eventNames().size(), 20u) << "nothing is asked any more";
  QuillmarCore::resetVerificationKeyState();
  send("session");
  EXPECT_EQ(calls().size(), 20u);
}

TEST_F(Pipeline, unreadableConfigurationIsTriedTwiceAnEventName) {
  configure();
  configStatus = 500;
  simulated.files->writeFile("/documents/Quillmar/quill-mar-conv-val.json", "{\"values\":[",
                             platform::WriteMode::direct);
  const std::string failed = "Could not obtain conversion values. Attempt ";
  const std::string refused = "error: Maximum number of attempts reached for event: session. Aborting processing.";
  for (const auto& [line, fetches] :
       {std::pair(failed + "1", true), {failed + "2", false}, {refused, false}, {failed + "1", true}}) {
    log.clear();
    send("session");
    EXPECT_TRUE(logged(line)) << line;
    EXPECT_EQ(logged("debug: First attempt to get conversion values failed, triggering fetch..."), fetches);
    EXPECT_EQ(logged("debug: Event processing deferred until conversion values are available: session"),
              line != refused);
  }
  EXPECT_TRUE(core().eventTracker()->getAllTrackedEvents().empty());
  Quillmar::setConsecutiveAPIFailures(9);
  eventStatus = 500;
  send("other");
  EXPECT_TRUE(Quillmar::isVerificationKeyInvalid());
}

TEST_F(Pipeline, lockHoursCountFromTheStartOfTheWindowAndLockTheLastValue) {
  configBody = configuration().lockAfter(Window::window0, 48h).lockAfter(Window::window1, 100h).json();
  configure();
  const auto lastLockAfter = [this](std::chrono::nanoseconds by) {
    advance(by);
    defaults->remove("LastConversionValuesFetchTimestamp");  // the lock is looked at after a fetch
    activate();
    return calls().empty() ? std::nullopt : calls().back().lockWindow;
  };
  EXPECT_EQ(lastLockAfter(49h), std::nullopt) << "there is none yet";
  send("purchase", {{ASEventParam::revenue, 20}});
  EXPECT_EQ(lastLockAfter(days(3) + 50h + 59min), false);
  EXPECT_EQ(lastLockAfter(1min), true);
}

TEST_F(Pipeline, aHostsRepositoryMayChangeItsDocumentInPlace) {
  struct Repository final : ConversionValuesRepositoryProtocol {
    void fetchAndSaveConversionValues(Completion completion) override { completion(nullptr); }
    std::shared_ptr<const ConversionValues> fetchAllConversionValues() const override { return document; }
    const std::shared_ptr<ConversionValues> document = std::make_shared<ConversionValues>(
        simulated::ConfigurationBuilder().rule("R", Window::window0, {{{7, {{"later"}}}}, {}}).values());
  };
  const auto repository = std::make_shared<Repository>();
  configure();
  quillmar->setConversionValuesRepository(repository);
  for (const char* required : {"later", "later", "a"}) {
    repository->document->values[0].windows.at("window0").fineValue->requiredEvents[0].name = required;
    send("a");
  }
  EXPECT_EQ(calls().size(), 1u);
}

TEST_F(Pipeline, missingPartIsFilledFromTheLastUpdateButDoesNotLock) {
  configBody = R"({"app_id":"a","sdk_enabled":true,"lockWindows":{"window0":{"type":"high"}},"values":[)"
               R"({"key":"A","windows":{"window0":{"coarseValue":{"value":"high","requiredEvents":[{"name":"a"}]}}}},)"
               R"({"key":"B","windows":{"window0":{"fineValue":{"value":7,"requiredEvents":[{"name":"b"}]}}}}]})";
  configure();
  send("a");
  quillmar->clearTrackedEvents();
  send("b");
  EXPECT_THAT(calls(), ElementsAre(isCall(0, "high", true), isCall(7, "high", false)));
}

}  // namespace
}  // namespace quillmar::test
