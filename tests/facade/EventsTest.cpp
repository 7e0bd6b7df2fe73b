#include <gmock/gmock.h>

#include "quillmar/simulated/ConfigurationBuilder.h"
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

TEST_F(Intake, eventsBeforeTheConfigurationAreReplayedInTheirOrder) {
  configStatus = 503;
  configure();
  for (const char* event : {"a", "b", "a", "c"}) {
    quillmar->sendEvent(event);
  }
  settle();
  EXPECT_TRUE(eventNames().empty());
  EXPECT_EQ(quillmar->statistics().parked, 4u);
  configStatus = 200;
  advance(5s);
  EXPECT_THAT(eventNames(), ElementsAre("a", "b", "a", "c"));
  EXPECT_EQ(quillmar->statistics().parked, 0u);
  EXPECT_EQ(quillmar->statistics().logged, 4u);
}

TEST_F(Intake, eventThatIsParkedAsTheConfigurationArrivesIsNotLeftBehind) {
  /// Lets something happen between an event's look at the configuration and its being parked.
  struct Interruption final : simulated::RecordingLogSink {
    void write(std::string_view subsystem, std::string_view category, platform::LogSeverity severity,
               std::string_view line) noexcept override {
      RecordingLogSink::write(subsystem, category, severity, line);
      if (line.find("Configuration not ready") != std::string_view::npos) {
        happen();
      }
    }
    std::function<void()> happen;
  };
  const auto sink = std::make_shared<Interruption>();
  sink->happen = [this] { core().markConfigurationAsLoaded(); };
  simulated.logSink = sink;
  restart();
  defaults->set("ServerAppId", "app-1");
  quillmar->sendEvent("late");
  settle();
  EXPECT_EQ(quillmar->statistics().parked, 0u);
  using Line = simulated::RecordingLogSink::Line;
  EXPECT_THAT(sink->lines(), Contains(Field(&Line::text, HasSubstr("Processing deferred event: late"))));
}

TEST_F(Intake, disabledLibraryDropsEventsAndNeitherLogsNorCountsThoseInFlight) {
  configBody = configuration("{}", false);
  configure();
  Quillmar::setConsecutiveAPIFailures(3);
  send("session");
  EXPECT_EQ(quillmar->statistics().dropped, 1u);
  EXPECT_EQ(quillmar->statistics().parked, 0u);

  spawn(simulated.executor, QuillmarCore::processEvent(core().thisLife(), {"session", nullptr, {}}));
  settle();
  EXPECT_TRUE(logged("EventServerLogRepository - SDK is disabled by server configuration, skipping event: session"));
  EXPECT_TRUE(eventNames().empty());
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 3);
  EXPECT_EQ(quillmar->statistics().logged, 0u);
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
  send("");
  EXPECT_TRUE(logged("debug: Sending event:  with params: [:]"));
  const auto tracked = core().eventTracker()->getAllTrackedEvents();
  ASSERT_EQ(tracked.size(), 6u);
  EXPECT_EQ(tracked[0].parameters.at("revenue"), 9.99);
  EXPECT_TRUE(tracked[3].parameters.empty());
}

TEST_F(Intake, switchAndParametersCountAsTheyAreAtTheCallUnlessTheStoreHasYetToBeOpened) {
  quillmar->sendEvent("early");
  EXPECT_FALSE(logged("Sending event")) << "the caller does not wait for the store";
  configure();
  EXPECT_TRUE(logged("Sending event: early with params: [:]"));
  quillmar->sendEvent("switched on", {{ASEventParam::revenue, 1}});
  EXPECT_TRUE(logged("Sending event: switched on with params: [\"revenue\": 1]"));
  defaults->set("SdkEnabled", false);
  quillmar->sendEvent("switched off");
  EXPECT_EQ(quillmar->statistics().dropped, 1u);
  defaults->set("SdkEnabled", true);
  settle();
  EXPECT_THAT(eventNames(), ElementsAre("early", "switched on"));
}

TEST_F(Pipeline, eventBecomesALogEntryAHistoryEntryAndAPlatformCall) {
  configure();
  send("purchase", {{ASEventParam::revenue, "25"}});
  EXPECT_EQ(simulated.http->requests().back().headers.at("Authorization"), "the-key");
  EXPECT_THAT(calls(), ElementsAre(isCall(40, "high", false)));
  EXPECT_EQ(core().eventTracker()->getTrackedEventNames().count("purchase"), 1u);

  send("session");
  EXPECT_EQ(calls().back().fineValue, 1) << "the lowest-ranked of the complete ones";
  send("unknown");
  EXPECT_EQ(calls().size(), 3u) << "what was complete still is";
  quillmar->clearTrackedEvents();
  send("unknown");
  EXPECT_EQ(calls().size(), 3u) << "nothing is complete any more";
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
  EXPECT_EQ(Quillmar::consecutiveAPIFailures(), 0);
  eventBody = R"({"status":"Success"})";  // only "success" is one
  sendTimes(10);
  EXPECT_FALSE(quillmar->state().verificationKeyValid);
  EXPECT_EQ(calls().size(), 19u) << "the tenth failure's event goes no further";
  EXPECT_EQ(printed, std::vector<std::string>(19, "Failed to log event to server: failedToLogEvent"));
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

TEST(LockWindows, areLockedByAHighValueOfTheirOwnOrByTimeAsConfigured) {
  const std::string timed = R"({"window0":{"type":"time","value":48}})";
  const std::tuple<std::string, std::string, bool, std::size_t> rows[] = {
      {R"({"window0":{"type":"high"}})", "purchase", true, 1},
      {R"({"window0":{"type":"high"}})", "session", false, 1},
      {R"({"window1":{"type":"high"}})", "purchase", false, 1},
      {timed, "purchase", false, 2},
      {timed, "unknown", false, 0}};
  for (const auto& [lock, event, locks, callsTwoDaysLater] : rows) {
    SCOPED_TRACE(lock + event);
    FacadeHarness host;
    host.configBody = configuration(lock);
    host.configure();
    host.send(event, {{ASEventParam::revenue, 20}});
    EXPECT_TRUE(host.calls().empty() || host.calls()[0].lockWindow == locks);
    host.advance(days(2));
    host.activate();
    ASSERT_EQ(host.calls().size(), callsTwoDaysLater);
    if (callsTwoDaysLater == 2) {
      EXPECT_THAT(host.calls()[1], isCall(40, "high", true)) << "the last value again";
    }
  }
}

TEST_F(Pipeline, lockHoursCountFromTheStartOfTheWindow) {
  configBody = configuration(R"({"window1":{"type":"time","value":100}})");
  configure();
  send("session");
  for (const auto& [by, locked] : {std::pair(days(3) + 99h + 59min, false), {1min, true}}) {
    advance(by);
    defaults->remove("LastConversionValuesFetchTimestamp");  // the lock is looked at after a fetch
    activate();
    EXPECT_EQ(calls().back().lockWindow, locked);
  }
}

TEST_F(Pipeline, valueThatNoOtherRanksBelowIsSentAlsoWhereTheRankingIsInconsistent) {
  constexpr auto low = CoarseValue::low, medium = CoarseValue::medium, high = CoarseValue::high;
  using Rule = std::pair<std::optional<int>, std::optional<CoarseValue>>;
  const std::pair<const char*, std::vector<Rule>> rows[] = {
      {"a single pass would end with c, which is below a; none is below b", {{5, high}, {{}, high}, {3, high}}},
      {"each has one below it: what a sort by insertion puts first", {{2, low}, {1, {}}, {{}, medium}}},
      {"of equals the first", {{2, low}, {1, low}, {1, low}}}};
  for (const auto& [what, rules] : rows) {
    simulated::ConfigurationBuilder builder;
    char key = 'a';
    for (const auto& [fine, coarse] : rules) {
      ConversionValues::WindowValue value;
      value.fineValue = fine ? std::optional(ConversionValues::FineValue{*fine, {}}) : std::nullopt;
      value.coarseValue = coarse ? std::optional(ConversionValues::CoarseValueData{*coarse, {}}) : std::nullopt;
      builder.rule(std::string(1, key++), Window::window0, value);
    }
    FacadeHarness host;
    host.configBody = builder.json();
    host.configure();
    host.send("any");
    EXPECT_TRUE(host.logged("Sending event with key: b")) << what;
  }
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
