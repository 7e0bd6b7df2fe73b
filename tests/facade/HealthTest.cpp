#include "quillmar/Health.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace std::literals;

struct Host : AttributionHarness {
  using AttributionHarness::AttributionHarness;
  std::string text() const {
    const QuillmarHealth health = quillmar->health();
    EXPECT_EQ(sumOf(health), health.sent + health.inherited);
    EXPECT_EQ(quillmar->statistics().logged, health.count(EventEnd::logged));
    std::string text;
    const auto add = [&text](std::string_view name, std::uint64_t count) {
      text += count > 0 ? fmt::format("{} {}, ", name, count) : "";
    };
    add("queued", health.queued), add("underWay", health.underWay), add("parked", health.parked);
    add("kept", health.kept), add("inherited", health.inherited);
    for (std::size_t i = 0; i < eventEndCount; ++i) {
      add(rawValue(static_cast<EventEnd>(i)), health.ended[i]);
    }
    return text;
  }
};

/// Completions that nobody calls.
struct Forgetful final : EventServerLogRepositoryProtocol {
  void logEvent(std::string /*event*/, Completion /*completion*/) override {}
};

/// What may happen, by a letter.
const std::map<char, std::function<void(Host&)>> happenings = {
    {'s', [](Host& host) { host.send("a"); }},
    {'q', [](Host& host) { host.quillmar->sendEvent("a"); }},
    {'.', [](Host& host) { host.settle(); }},
    {'w', [](Host& host) { host.advance(1s); }},
    {'d', [](Host& host) { host.delay = 1s; }},
    {'2', [](Host& host) { host.eventStatus = 200; }},
    {'4', [](Host& host) { host.eventStatus = 400; }},
    {'5', [](Host& host) { host.eventStatus = 503; }},
    {'B', [](Host& host) { host.begin(host.options); }},
    {'C', [](Host& host) { host.configure(); }},
    {'R', [](Host& host) { host.quillmar->reset(); }},
    {'O', [](Host& host) { host.defaults->set("SdkEnabled", false); }},
    {'N', [](Host& host) { host.quillmar->setEventServerLogRepository(nullptr); }},
    {'F', [](Host& host) { host.quillmar->setEventServerLogRepository(std::make_shared<Forgetful>()); }},
    {'X', [](Host& host) { host.simulated.clock->setNow(startOfTests + 37 * 24h), host.activate(); }}};

TEST(Health, hasEachEventInOneCount) {
  const QuillmarOptions usual, strict{.strictSwitch = true}, reliable{.reliableDelivery = true};
  const std::tuple<std::string, QuillmarOptions, const char*> rows[] = {
      {"s", usual, "logged 1, "},
      {"d" + std::string(70, 'q') + ".", usual, "queued 6, underWay 64, "},
      {"5ssssssssssss", usual, "failed 10, keyInvalid 2, "},
      {"Ns", usual, "notAsked 1, "},
      {"Fs", usual, "lost 1, "},
      {"qOs", usual, "switchedOff 2, "},
      {"qO.", strict, "switchedOff 1, "},
      {"Bsq", usual, "queued 1, parked 1, "},
      {"BsR.CdsqRw", usual, "reset 3, "},
      {"s4s5ss", reliable, "kept 2, logged 1, refused 1, "},
      {"5ssB2C5sX", reliable, "inherited 2, logged 2, expired 1, "},
      {"dsqR.COs", reliable, "switchedOff 1, reset 2, "}};
  for (const auto& [life, options, expected] : rows) {
    Quillmar::resetStaticState();
    Host host(options);
    host.configure();
    for (const char happening : life) {
      happenings.at(happening)(host);
    }
    EXPECT_EQ(host.text(), expected) << life;
  }
}

TEST(Limits, dropTheOldestOrTheNewestCountItAndSaySoOnce) {
  constexpr auto newest = QuillmarLimits::Drop::newest;
  const auto burst = [](Host& host) {
    std::ranges::for_each("abcde"s, [&host](char name) { host.quillmar->sendEvent({&name, 1}); });
  };
  const auto park = [&burst](Host& host) {
    host.begin(host.options);
    burst(host);
    host.configure();
  };
  const auto large = [](Host& host) {
    host.send("a", {{ASEventParam::revenue, std::string(60, '9')}});
    host.send("a", {{ASEventParam::revenue, 9}});
    host.send("b");
    host.send(std::string(30, '\n'));
  };
  const std::tuple<bool, QuillmarLimits, std::function<void(Host&)>, const char*, const char*> rows[] = {
      {false, {.parkedEvents = 2}, park, "logged 2, parkedLimit 3, ", "de"},
      {false, {.parkedEvents = 2, .drop = newest}, park, "logged 2, parkedLimit 3, ", "ab"},
      {false, {.queuedEvents = 2}, burst, "logged 2, queuedLimit 3, ", "de"},
      {false, {.queuedEvents = 2, .drop = newest}, burst, "logged 2, queuedLimit 3, ", "ab"},
      {true, {.queuedEvents = 2}, burst, "logged 2, queuedLimit 3, ", "de"},
      {true, {.queuedEvents = 2, .drop = newest}, burst, "logged 2, queuedLimit 3, ", "ab"},
      {false, {.eventBytes = 60}, large, "logged 2, tooLarge 2, ", "ab"}};
  for (const auto& [reliably, limits, live, expected, names] : rows) {
    Host host({.reliableDelivery = reliably, .limits = limits});
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
  host.send("a");
  host.send("a");
  host.advance(1s);
  EXPECT_EQ(failures, (std::vector<std::uint64_t>{0, 0, 2})) << "a fetch that failed, one that did not, a burst";
  EXPECT_EQ(host.quillmar->health().failuresInARow, 2);
  host.eventStatus = 200;
  host.simulated.adNetwork->setError("No");
  host.send("session");
  const QuillmarHealth health = host.quillmar->health();
  EXPECT_TRUE(health.lastLogged->name == "session" && health.lastLogged->at == host.simulated.clock->now());
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
  EXPECT_TRUE(host.logged("error: AppId key must be provided in Info.plist"));
  host.configure();
  host.attributionStatus = 500;
  host.enable();
  EXPECT_EQ(state(), State::waiting);
  EXPECT_NE(host.attribution->health().error, "");
  host.attributionStatus = 200;
  host.advance(1min);
  EXPECT_EQ(state(), State::stored);
}

}  // namespace
}  // namespace quillmar::test
