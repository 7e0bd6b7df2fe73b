#include <gmock/gmock.h>

#include <regex>
#include <set>

#include "Delivery/SendResult.h"
#include "quillmar/platform/URLError.h"
#include "support/AttributionHarness.h"
#include "support/FaultyStores.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;
using namespace ::testing;

/// What outlives a process. Before a chosen change of the settings the process is killed.
struct Disk {
  const std::shared_ptr<simulated::InMemoryUserDefaults> settings = std::make_shared<simulated::InMemoryUserDefaults>();
  const std::shared_ptr<simulated::InMemoryFileManager> files = std::make_shared<simulated::InMemoryFileManager>();
  int changesLeft = -1;  ///< negative: it lives on
  bool isDead = false;
  std::function<void()> onKill;
  std::vector<std::string> told = {};  ///< each call

  std::error_code change(const std::string& call, const std::function<std::error_code()>& make) {
    told.push_back(call);
    if (!isDead && changesLeft-- == 0) {
      isDead = true;
      onKill();
    }
    return isDead ? std::error_code{} : make();
  }
};

struct DiskDefaults final : platform::UserDefaults {
  explicit DiskDefaults(Disk& given) : disk(given) {}
  std::optional<platform::PropertyListValue> object(std::string_view key) const override {
    disk.told.push_back("object " + std::string(key));
    return disk.settings->object(key);
  }
  std::error_code set(std::string_view key, platform::PropertyListValue value) override {
    const auto* const data = value.as<platform::PropertyListValue::Data>();
    return disk.change("set " + std::string(key) + (data != nullptr ? " " + data->bytes : ""),
                       [&] { return disk.settings->set(key, std::move(value)); });
  }
  std::error_code remove(std::string_view key) override {
    return disk.change("remove " + std::string(key), [&] { return disk.settings->remove(key); });
  }
  std::error_code replaceDataTails(const std::vector<DataTail>& tails) override {
    return disk.change("tails", [&] { return disk.settings->replaceDataTails(tails); });
  }
  Disk& disk;
};

/// A process, with the option unless something else is said.
class Process : public AttributionHarness {
 public:
  explicit Process(Disk& disk, bool reliable = true) : disk_(disk) {
    disk.onKill = [this] {
      linesAtEnd = log.messages().size();
      simulated.executor->shutDown();
    };
    simulated.userDefaults = std::make_shared<OneStoreProvider>(std::make_shared<DiskDefaults>(disk));
    simulated.files = disk.files;
    make(simulated.platform());
    begin({reliable});
  }

  std::vector<std::string> tracked() {
    std::vector<std::string> names;
    std::ranges::transform(core().eventTracker()->getAllTrackedEvents(), std::back_inserter(names),
                           &TrackedEvent::name);
    return names;
  }
  std::vector<std::string> keptNames() const {
    const std::string kept = "debug: Outbox - Kept event: ";
    std::vector<std::string> names;
    for (std::size_t i = 0; const std::string& line : log.messages()) {
      if (i++ < linesAtEnd && line.starts_with(kept)) {
        names.push_back(line.substr(kept.size()));
      }
    }
    return names;
  }

  bool offline = false;
  std::size_t linesAtEnd = ~std::size_t{0};
  mutable std::map<std::string, std::set<std::string>> accepted;  ///< identifiers of events, by name

 private:
  simulated::InMemoryAnswer answer(const platform::HttpRequest& request) const override {
    simulated::InMemoryAnswer answer = FacadeHarness::answer(request);
    if (offline) {
      answer.result.error = platform::URLError::notConnectedToInternet;
    } else if (disk_.isDead) {
      answer.never = true;
    } else if (request.url.ends_with("/ios/events") && eventStatus == 200) {
      const auto member = [&request](const std::string& name) {
        const std::size_t at = request.body.find(name) + name.size() + 3;
        return request.body.substr(at, request.body.find('"', at) - at);
      };
      accepted[member("event_name")].insert(member("event_id"));
    }
    return answer;
  }

  const Disk& disk_;
};

TEST(OutboxKills, atEachChangeOfTheSettingsLoseNothingThatWasKept) {
  for (const auto& [delay, configStatus] : {std::pair(0s, 200), {1s, 200}, {0s, 503}}) {
    for (int changes = 0;; ++changes) {
      SCOPED_TRACE(Message() << delay.count() << " s, " << configStatus << ", killed before change " << changes);
      Disk disk;
      disk.changesLeft = changes;
      std::vector<std::string> kept;
      std::map<std::string, std::set<std::string>> accepted;
      {
        Process process(disk);
        process.delay = delay;
        process.configStatus = configStatus;
        process.configure();
        process.enable();
        process.send("session");
        process.quillmar->sendEvent("a");
        process.send("b");
        process.post(subscriptionUpdate(1));
        process.configStatus = 200;
        process.advance(20s);
        process.send("late");
        process.advance(2s);
        kept = process.keptNames();
        accepted = process.accepted;
      }
      const bool wasKilled = std::exchange(disk.isDead, false);
      disk.changesLeft = -1;
      Process next(disk);
      next.configure();
      next.enable();
      next.advance(1h);
      EXPECT_EQ(next.quillmar->statistics().unsent + next.attribution->statistics().unsent, 0u);
      const auto history = next.tracked();
      for (const std::string& name : kept) {
        accepted[name].merge(next.accepted[name]);
        EXPECT_EQ(accepted[name].size(), 1u) << name;
        EXPECT_EQ(std::ranges::count(history, name), name == "Purchase" ? 0 : 1) << name;
      }
      if (!wasKilled) {
        EXPECT_THAT(kept, UnorderedElementsAre("session", "a", "b", "late", "Purchase"));
        break;
      }
    }
  }
}

TEST(HistoryByAge, isForgottenInOneStep) {
  bool wasKilled = true;
  for (int changes = 0; wasKilled; ++changes) {
    Disk disk;
    const auto live = [&disk](const char* event, int day) {
      Process process(disk, false);
      process.simulated.clock->setNow(startOfTests + days(day));
      process.quillmar->setOptions({.limits = {.historyDays = 9}});
      process.configure();
      process.send(event);
    };
    live("old", 0);
    live("kept", 8);
    disk.changesLeft = changes;
    live("new", 10);
    wasKilled = std::exchange(disk.isDead, false);
    disk.changesLeft = -1;
    EXPECT_THAT(Process(disk, false).tracked(),
                AnyOf(ElementsAre("old", "kept"), ElementsAre("kept"), ElementsAre("kept", "new")))
        << changes;
  }
}

class OutboxLife : public Test {
 protected:
  OutboxLife() { process.configure(); }

  Disk disk;
  Process process{disk};
};

TEST_F(OutboxLife, eventsCountWhileThereIsNoNetworkAndAnActivationSendsThemOn) {
  Process next(disk);
  next.offline = true;
  next.configure();
  for (int i = 0; i < 15; ++i) {
    next.send("purchase", {{ASEventParam::revenue, 20}});
    next.advance(1min);
  }
  EXPECT_EQ(next.tracked().size() + next.calls().size(), 30u);
  EXPECT_TRUE(next.quillmar->state().verificationKeyValid);
  EXPECT_EQ(next.quillmar->state().kept, 15u);
  EXPECT_TRUE(next.quillmar->drain(0ms));
  EXPECT_FALSE(next.quillmar->waitUntilDelivered(0ms)) << "another attempt is yet to come";
  EXPECT_LT(next.eventBodies().size(), 15u) << "the pauses have grown";
  next.offline = false;
  next.activate();
  EXPECT_EQ(next.accepted["purchase"].size(), 15u);
  next.advance(1s);
  EXPECT_TRUE(next.quillmar->waitUntilDelivered(0ms));
}

TEST_F(OutboxLife, aServiceThatSaysWhenIsNotAskedBeforeNotEvenByAnActivation) {
  process.eventStatus = 503;
  process.retryAfter = "120";
  process.send("a");
  process.eventStatus = 200;
  for (const auto& [by, attempts] : {std::pair(119s, 1u), {1s, 2u}}) {
    process.activate();
    process.advance(by);
    EXPECT_EQ(process.eventBodies().size(), attempts);
  }
  EXPECT_EQ(process.eventBodies()[0], process.eventBodies()[1]) << "the same identifier";
}

TEST(Outbox, whatTheServiceSaysDecidesWhetherItIsAskedAgain) {
  for (const int status : {400, 413, 401, 403, 404, 408, 425, 429, 500, 200, 302}) {
    SCOPED_TRACE(status);
    Disk disk;
    Process process(disk);
    process.configure();
    process.eventStatus = status;
    process.eventBody = "<html>Please sign in";
    for (int i = 0; i < 3; ++i) {
      process.send("session");
    }
    process.advance(3h);
    const bool refuses = status == 400 || status == 413;
    const bool isTheKey = status == 401 || status == 403;
    EXPECT_EQ(process.quillmar->statistics().refused, refuses ? 3u : 0u);
    EXPECT_EQ(process.logged("Outbox - Dropped event: session: "), refuses);
    EXPECT_EQ(process.quillmar->statistics().unsent, refuses ? 0u : 3u);
    EXPECT_EQ(process.quillmar->state().verificationKeyValid, !isTheKey);
    EXPECT_EQ(process.tracked().size(), 3u);
  }
}

TEST(Outbox, readsWhenToComeBack) {
  const auto now = std::chrono::sys_days{std::chrono::year(1994) / 11 / 6} + 8h + 49min + 30s;
  EXPECT_EQ(retryAfterOf("120", now), 120s);
  EXPECT_EQ(retryAfterOf("999999999999", now), 24h);
  EXPECT_EQ(retryAfterOf("Sun, 06 Nov 1994 08:49:37 GMT", now), 7s);
  EXPECT_EQ(retryAfterOf("Tue, 06 Nov 2994 08:49:37 GMT", now), 24h);
  for (const char* header : {"", "0", "-1", "1.5", "99999999999999999999", "Sun, 06 Xxx 1994 08:49:37 GMT",
                             "Sun, 06 Nov 1994 08:49:07 GMT"}) {
    EXPECT_EQ(retryAfterOf(header, now), 0s) << header;
  }
}

TEST_F(OutboxLife, dropsWhatIsTooOldOrTooMuchAndSkipsWhatIsDamaged) {
  const auto record = [](int number, const char* name, const char* timestamp) {
    return R"({"n":)" + std::to_string(number) + R"(,"id":"ID-)" + name + R"(","event":{"name":")" + name +
           R"(","parameters":{},"timestamp":)" + timestamp + "},\"tracked\":true}\n";
  };
  using Value = platform::PropertyListValue;
  disk.settings->set("com.quillmar.outbox", Value::Dictionary{{"first", std::int64_t{1}}, {"last", std::int64_t{513}}});
  disk.settings->set("com.quillmar.outbox.1", Value::Data{record(0, "displaced", "788918400")});
  disk.settings->set("com.quillmar.outbox.2",
                     Value::Data{"\xff\n" + record(0, "first", "788918400") + "{\"n\":1}\n\n{\"sent\":[7]}\n" +
                                 record(1, "old", "785807999") + record(2, "second", "788918400") + "{\"sent\":[0,"});
  Process next(disk);
  next.configure();
  next.send("new");
  next.advance(1min);
  EXPECT_THAT(next.eventNames(), ElementsAre("first", "second", "new"));
  EXPECT_EQ(next.countLines("error: Outbox - Skipped a damaged record in com.quillmar.outbox.2: "), 4u);
  EXPECT_EQ(next.quillmar->statistics().displaced, 1u);
  EXPECT_EQ(next.quillmar->statistics().unsent, 0u);
  next.offline = true;
  next.send("late");
  next.simulated.clock->setNow(startOfTests + days(36) + 1h);
  next.offline = false;
  next.activate();
  EXPECT_EQ(next.quillmar->statistics().expired, 2u);
  EXPECT_FALSE(next.accepted.contains("late"));
  Disk torn;
  torn.settings->set("com.quillmar.outbox", Value::Dictionary{{"first", std::int64_t{1}}, {"last", std::int64_t{1}}});
  torn.settings->set("com.quillmar.outbox.1", Value::Data{record(0, "good", "788918400") + "{\"n\":"});
  Process(torn).send("behind a line without its end");
  Process last(torn);
  last.configure();
  EXPECT_THAT(last.eventNames(), ElementsAre("good", "behind a line without its end"));
}

TEST_F(OutboxLife, aResetForgetsIt) {
  process.delay = 1s;
  process.send("on its way");
  process.offline = true;
  process.send("waits");
  process.quillmar->reset();
  process.offline = false;
  process.advance(1h);
  process.quillmar->setLogLevel(LogLevel::info);
  process.configure();
  process.send("after");
  process.advance(1h);
  EXPECT_FALSE(process.accepted.contains("waits"));
  EXPECT_THAT(process.tracked(), ElementsAre("after"));
  EXPECT_EQ(process.quillmar->statistics().unsent, 0u);
  EXPECT_EQ(disk.settings->object("com.quillmar.outbox.1"), std::nullopt);
}

TEST_F(OutboxLife, aBurstWaitsOnDiskAndGoesInItsOrderSixtyFourAtATime) {
  std::vector<std::string> names;
  process.delay = 1s;
  for (int i = 0; i < 1000; ++i) {
    process.quillmar->sendEvent(names.emplace_back("event " + std::to_string(i)));
  }
  process.settle();
  EXPECT_EQ(process.eventNames().size(), 64u);
  EXPECT_EQ(process.tracked(), names);
  process.advance(5s);
  EXPECT_EQ(process.quillmar->statistics().unsent, 1000u - 5 * 64);
  Process next(disk);
  next.configure();
  names.erase(names.begin(), names.begin() + 5 * 64);
  EXPECT_EQ(next.eventNames(), names);
  EXPECT_EQ(disk.settings->object("com.quillmar.outbox.3"), std::nullopt);
}

/// What the library did before there were options: each call of the settings store, each request, each line of the log.
TEST(RecordedLife, staysAsItWasToTheLastByteWhileAllOptionsAreOff) {
  Disk disk;
  Process process(disk, false);
  const auto live = [&process] {
    process.configStatus = 503;
    process.configure();
    process.send("parked", {{ASEventParam::revenue, "12.5"}});
    process.configStatus = 200;
    process.advance(5s);
    process.enable();
    for (const int status : {200, 429, 500}) {
      process.eventStatus = status;
      process.send("purchase", {{ASEventParam::revenue, 20}});
      process.post(subscriptionUpdate(1));
    }
    process.advance(80h);
    process.activate();
    process.eventStatus = 403;
    for (int i = 0; i < 11; ++i) {
      process.send("session");
    }
    process.quillmar->waitUntilDelivered(0ms);
  };
  live();
  process.quillmar->reset();
  process.quillmar->setLogLevel(LogLevel::info);
  process.eventStatus = 200;
  live();
  std::string life;
  for (const auto& part : {disk.told, process.log.messages(), process.printed, process.eventBodies()}) {
    for (const std::string& line : part) {
      life += line + '\n';
    }
  }
  life = std::regex_replace(life, std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"), "ID");
  std::uint64_t sum = 14695981039346656037U;  // FNV-1a
  for (const char c : life) {
    sum = (sum ^ static_cast<unsigned char>(c)) * 1099511628211U;
  }
  EXPECT_EQ(sum, 10427797175922832727U) << "Something has changed. If that is right, this is the new sum. The life:\n"
                                        << life;
}

}  // namespace
}  // namespace quillmar::test
