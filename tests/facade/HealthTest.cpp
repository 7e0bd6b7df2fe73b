#include "quillmar/Health.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include "support/AttributionHarness.h"
#include "support/HealthSum.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

struct Host : AttributionHarness {
  explicit Host(const QuillmarOptions& options = {}) { begin(options); }
  void begin(const QuillmarOptions& given) {
    options = given;
    restart();
    quillmar->setOptions(options);
  }
  std::string text() const {
    const QuillmarHealth health = quillmar->health();
    EXPECT_EQ(sumOf(health), health.sent + health.inherited);
    std::string text;
    const auto add = [&text](std::string_view name, std::uint64_t count) {
      text += count > 0 ? fmt::format("{} {}, ", name, count) : "";
    };
    add("queued", health.queued);
    add("underWay", health.underWay);
    add("parked", health.parked);
    add("kept", health.kept);
    add("inherited", health.inherited);
    for (std::size_t i = 0; i < eventEndCount; ++i) {
      add(rawValue(static_cast<EventEnd>(i)), health.ended[i]);
    }
    return text;
  }
  QuillmarOptions options;
};

/// Completions that nobody calls.
struct Forgetful final : EventServerLogRepositoryProtocol {
  void logEvent(std::string /*event*/, Completion /*completion*/) override {}
};

TEST(Health, hasEachEventInOneCount) {
  const QuillmarOptions usual;
  const QuillmarOptions strict{.strictSwitch = true};
  const QuillmarOptions reliable{.reliableDelivery = true};
  const std::tuple<const char*, QuillmarOptions, std::function<void(Host&)>, const char*> rows[] = {
      {"accepted", usual, [](Host& host) { host.send("a"); }, "logged 1, "},
      {"more than go at a time", usual,
       [](Host& host) {
         host.delay = 1s;
         for (int i = 0; i < 70; ++i) {
           host.quillmar->sendEvent("a");
         }
         host.settle();
       },
       "queued 6, underWay 64, "},
      {"not accepted, up to the tenth", usual,
       [](Host& host) {
         host.eventStatus = 500;
         for (int i = 0; i < 12; ++i) {
           host.send("a");
         }
       },
       "failed 10, keyInvalid 2, "},
      {"without a repository", usual,
       [](Host& host) {
         host.quillmar->setEventServerLogRepository(nullptr);
         host.send("a");
       },
       "notAsked 1, "},
      {"with one that forgets", usual,
       [](Host& host) {
         host.quillmar->setEventServerLogRepository(std::make_shared<Forgetful>());
         host.send("a");
       },
       "lost 1, "},
      {"switched off at once, and while one waits for the service", usual,
       [](Host& host) {
         host.quillmar->sendEvent("a");
         host.defaults->set("SdkEnabled", false);
         host.send("b");
       },
       "switchedOff 2, "},
      {"switched off before its turn", strict,
       [](Host& host) {
         host.quillmar->sendEvent("a");
         host.defaults->set("SdkEnabled", false);
         host.settle();
       },
       "switchedOff 1, "},
      {"parked, and overtaken by resets: parked, under way, queued", usual,
       [](Host& host) {
         host.begin({});
         host.send("a");
         EXPECT_EQ(host.text(), "parked 1, ");
         host.quillmar->reset();
         host.settle();
         host.configure();
         host.delay = 1s;
         host.send("a");
         host.quillmar->sendEvent("b");
         host.quillmar->reset();
         host.advance(1s);
       },
       "reset 3, "},
      {"kept, accepted, refused, too old, and of an earlier run", reliable,
       [](Host& host) {
         host.send("a");
         host.eventStatus = 400;
         host.send("b");
         host.eventStatus = 503;
         host.send("c");
         host.send("d");
         EXPECT_EQ(host.text(), "kept 2, logged 1, refused 1, ");
         host.begin({.reliableDelivery = true});
         host.eventStatus = 200;
         host.configure();
         EXPECT_EQ(host.text(), "inherited 2, logged 2, ");
         host.eventStatus = 503;
         host.send("e");
         host.simulated.clock->setNow(startOfTests + 37 * 24h);
         host.activate();
       },
       "inherited 2, logged 2, expired 1, "},
      {"switched off, or reset, before and behind the outbox", reliable,
       [](Host& host) {
         host.delay = 1s;
         host.send("a");
         host.quillmar->sendEvent("b");
         host.quillmar->reset();
         host.settle();
         host.configure();
         host.defaults->set("SdkEnabled", false);
         host.send("c");
       },
       "switchedOff 1, reset 2, "}};
  for (const auto& [what, options, live, expected] : rows) {
    SCOPED_TRACE(what);
    Quillmar::resetStaticState();
    Host host(options);
    host.configure();
    live(host);
    EXPECT_EQ(host.text(), expected);
  }
}

TEST(Limits, dropTheOldestOrTheNewestCountItAndSaySoOnce) {
  constexpr auto newest = QuillmarLimits::Drop::newest;
  const auto burst = [](Host& host) {
    for (const char* name : {"a", "b", "c", "d", "e"}) {
      host.quillmar->sendEvent(name);
    }
  };
  const auto park = [&burst](Host& host) {
    host.begin(host.options);
    burst(host);
    host.settle();
    host.configure();
  };
  const auto large = [](Host& host) {
    host.send("a", {{ASEventParam::revenue, 9}});
    host.send("a", {{ASEventParam::revenue, std::string(60, '9')}});
    host.send(std::string(30, '\n'));
  };
  const std::tuple<QuillmarOptions, std::function<void(Host&)>, const char*, const char*> rows[] = {
      {{.limits = {.parkedEvents = 2}}, park, "logged 2, parkedLimit 3, ", "de"},
      {{.limits = {.parkedEvents = 2, .drop = newest}}, park, "logged 2, parkedLimit 3, ", "ab"},
      {{.limits = {.queuedEvents = 2}}, burst, "logged 2, queuedLimit 3, ", "de"},
      {{.limits = {.queuedEvents = 2, .drop = newest}}, burst, "logged 2, queuedLimit 3, ", "ab"},
      {{.reliableDelivery = true, .limits = {.queuedEvents = 2}}, burst, "logged 2, queuedLimit 3, ", "de"},
      {{.reliableDelivery = true, .limits = {.queuedEvents = 2, .drop = newest}},
       burst,
       "logged 2, queuedLimit 3, ",
       "ab"},
      {{.limits = {.eventBytes = 60}}, large, "logged 1, tooLarge 2, ", "a"}};
  for (const auto& [options, live, expected, names] : rows) {
    Host host(options);
    host.configure();
    live(host);
    host.advance(1s);
    EXPECT_EQ(host.text(), expected);
    EXPECT_EQ(fmt::format("{}", fmt::join(host.eventNames(), "")), names) << expected;
    EXPECT_TRUE(host.quillmar->drain(0ms));
    EXPECT_EQ(host.countLines("for a minute, others are only counted"), 1u);
    host.simulated.clock->advance(1min);
    live(host);
    host.settle();
    EXPECT_EQ(host.countLines("for a minute, others are only counted"), 2u);
  }
}

TEST(Health, tellsWhatAScreenShowsAndItsObserverOnceABurst) {
  Host host;
  std::vector<std::uint64_t> failures;
  host.quillmar->setHealthObserver([&](const QuillmarHealth& health) {
    failures.push_back(health.count(EventEnd::failed));
    throw std::runtime_error("a bad observer");
  });
  EXPECT_EQ(host.quillmar->health().configurationAge, std::nullopt);
  host.configStatus = 500;
  host.configure();
  EXPECT_THAT(host.quillmar->health().fetchError, testing::HasSubstr("serverError"));
  host.configStatus = 200;
  host.advance(5s);
  EXPECT_EQ(host.quillmar->health().fetchError, "");
  host.advance(1h);
  EXPECT_EQ(host.quillmar->health().configurationAge, 1h);
  host.eventStatus = 500;
  for (int i = 0; i < 3; ++i) {
    host.send("a");
  }
  host.advance(1s);
  EXPECT_EQ(failures, (std::vector<std::uint64_t>{0, 0, 3})) << "a fetch that failed, one that did not, a burst";
  EXPECT_EQ(host.quillmar->health().failuresInARow, 3);
  host.eventStatus = 200;
  host.simulated.adNetwork->setError("No");
  host.send("session");
  const QuillmarHealth health = host.quillmar->health();
  EXPECT_EQ(health.lastLogged->name, "session");
  EXPECT_EQ(health.lastLogged->at, host.simulated.clock->now());
  EXPECT_EQ(health.lastPlatformCall->interface + " " + health.lastPlatformCall->error, "skAdNetwork4 No");
  host.quillmar->setHealthObserver(nullptr);
  host.advance(1s);
  EXPECT_EQ(failures.size(), 3u);
}

TEST(Health, tellsHowTheAttributionIs) {
  using State = QuillmarASAAttributionHealth::State;
  Host host({.liveAttribution = true});
  const auto state = [&host] { return host.attribution->health().state; };
  EXPECT_EQ(state(), State::notEnabled);
  host.defaults->remove("QuillmarVerificationKey");
  host.enable();
  EXPECT_EQ(state(), State::noKey);
  host.configure();
  host.attribution->setOptions({.liveAttribution = true});
  host.attributionStatus = 500;
  host.enable();
  EXPECT_EQ(state(), State::waiting);
  EXPECT_NE(host.attribution->health().error, "");
  host.attributionStatus = 200;
  host.advance(1min);
  EXPECT_EQ(state(), State::stored);
  EXPECT_TRUE(host.attribution->health().listening);
}

}  // namespace
}  // namespace quillmar::test
