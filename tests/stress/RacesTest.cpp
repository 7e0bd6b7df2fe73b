#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "Platform/Posix/PosixFileManager.h"
#include "Platform/Posix/SystemClock.h"
#include "Platform/Sqlite/SqliteUserDefaultsProvider.h"
#include "quillmar/Config.h"
#include "support/AttributionHarness.h"
#include "support/TemporaryFolder.h"

// Everything at once, from many threads: what this test is for shows under ThreadSanitizer.

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;

constexpr int threadCount = 8;
constexpr auto patience = 100s;

/// QUILLMAR_STRESS_ROUNDS: how much each thread does.
int rounds() {
  const char* const chosen = std::getenv("QUILLMAR_STRESS_ROUNDS");
  return chosen != nullptr ? std::atoi(chosen) : 1000;
}

/// Counts the lines that no race may cause.
class SuspiciousLines final : public platform::LogSink {
 public:
  void write(std::string_view, std::string_view, platform::LogSeverity, std::string_view line) noexcept override {
    for (const std::string_view mark : {"nexpected error", " failed: ", "Dropped", "cannot be"}) {
      count += line.find(mark) != std::string_view::npos && line.find("update failed") == std::string_view::npos &&
               line.find("are only counted") == std::string_view::npos;
    }
  }
  std::atomic<int> count{0};
};

simulated::InMemoryAnswer goodAnswer(const platform::HttpRequest& request) {
  simulated::InMemoryAnswer answer;
  answer.result.statusCode = 200;
  answer.result.body = request.method == "GET" ? configuration().json() : R"({"status":"success","message":"ok"})";
  return answer;
}

/// A service that is now and then slow, down or out of its mind.
simulated::InMemoryAnswer moodyAnswer(const platform::HttpRequest& request) {
  thread_local std::mt19937 random(1);
  simulated::InMemoryAnswer answer = goodAnswer(request);
  answer.delay = std::chrono::microseconds(random() % 4 == 0 ? random() % 2000 : 0);
  answer.result.statusCode = random() % 10 == 0 ? 503 : 200;
  answer.result.body.resize(answer.result.body.size() / (random() % 20 == 0 ? 2 : 1));
  return answer;
}

constexpr QuillmarLimits limits{.parkedEvents = 3, .queuedEvents = 3, .historyDays = 1, .eventBytes = 45};
constexpr QuillmarOptions limitsOnly{.limits = limits};
constexpr QuillmarOptions allOptions{true, true, true, true, true, true, true, true,
                                     true, true, true, true, true, true, 100,  limits};

struct Choice {
  const char* name;
  QuillmarOptions options;

  friend void PrintTo(const Choice& choice, std::ostream* stream) { *stream << choice.name; }
};

class Races : public testing::TestWithParam<Choice> {
 protected:
  Races() {
    Quillmar::resetStaticState();
    const auto pool = std::make_shared<platform::ThreadPoolExecutor>(4);
    platform_ = simulated_.platform();
    platform_.executor = pool;
    platform_.mainExecutor = nullptr;
    platform_.clock = std::make_shared<platform::SystemClock>(pool);
    platform_.http = http_ = std::make_shared<simulated::InMemoryHttpTransport>(platform_.clock, moodyAnswer);
    platform_.files = std::make_shared<platform::PosixFileManager>(folder_.path());
    platform_.userDefaults = std::make_shared<platform::SqliteUserDefaultsProvider>(
        folder_ / "settings", [](std::string_view problem) { ADD_FAILURE() << problem; });
    platform_.standardOutput = [](std::string_view) {};
    platform_.logSink = lines_;
    quillmar_ = make();
    attribution_ = QuillmarFactory::createQuillmarASAAttribution(platform_);
    attribution_->setOptions(GetParam().options);
  }
  ~Races() override {
    Log::setSink(nullptr, platform_.clock);
    Quillmar::resetStaticState();
  }

  std::shared_ptr<Quillmar> make() const {
    auto quillmar = QuillmarFactory::createQuillmar(platform_);
    quillmar->setLogLevel(LogLevel::info);
    quillmar->setOptions(GetParam().options);
    return quillmar;
  }

  void act(std::mt19937& random, int round) {
    const std::function<void()> actions[] = {
        [&] { quillmar_->configure(random() % 2 == 0 ? "key one" : "key two"); },
        [&] { round % 100 == 7 ? quillmar_->reset() : quillmar_->clearTrackedEvents(); },  // a reset ends what goes on
        [&] { simulated_.notifications->post(platform::Notification::applicationDidBecomeActive); },
        [&] { quillmar_->sceneDidActivate(); },
        [&] {
          if (GetParam().options.requireConsent) {
            round % 50 == 9 ? quillmar_->revokeConsent() : quillmar_->grantConsent();
          }
        },
        [&] { attribution_->enableASAAttributionTracking(); },
        [&] { attribution_->disableASAAttributionTracking(); },
        [&] { simulated_.subscriptionUpdates->post(subscriptionUpdate(static_cast<std::uint64_t>(round))); },
        [&] {  // gone before what it started is done
          const auto passing = make();
          passing->setNetworkPaused(random() % 2 == 0);
          passing->sendEvent("before configure");
          passing->configure("key three");
          passing->sendEvent("session");
        },
        [&] {
          const auto observe = [seen = decided_](const Decision& decision) { *seen += decision.rules.size(); };
          quillmar_->setDecisionObserver(random() % 4 == 0 ? DecisionObserver() : observe);
        },
        [&] {
          const auto observe = [](const QuillmarHealth& health) {
            EXPECT_LE(sumOf(health), health.sent + health.inherited);
          };
          quillmar_->setHealthObserver(random() % 2 == 0 ? QuillmarHealthObserver() : observe);
          const QuillmarHealth health = quillmar_->health();
          EXPECT_LE(sumOf(health), health.sent + health.inherited);
          static_cast<void>(attribution_->health());
        },
        [&] { QuillmarFactory::createQuillmarASAAttribution(platform_)->enableASAAttributionTracking(); },
        [&] {
          quillmar_->setNetworkPaused(random() % 2 == 0);
          attribution_->setNetworkPaused(random() % 2 == 0);
        },
        [&] {
          quillmar_->setLogLevel(random() % 2 == 0 ? LogLevel::info : LogLevel::error);
          static_cast<void>(quillmar_->state());
          static_cast<void>(attribution_->statistics());
        }};
    if (const std::size_t chosen = random() % 16; chosen < std::size(actions)) {
      actions[chosen]();
    } else {
      quillmar_->sendEvent(random() % 2 == 0 ? "purchase" : "session", {{ASEventParam::revenue, 12.5}});
    }
  }

  TemporaryFolder folder_;
  simulated::SimulatedPlatform simulated_{startOfTests, "18.0"};
  platform::Platform platform_;
  std::shared_ptr<simulated::InMemoryHttpTransport> http_;
  std::shared_ptr<SuspiciousLines> lines_ = std::make_shared<SuspiciousLines>();
  std::shared_ptr<Quillmar> quillmar_;
  std::shared_ptr<QuillmarASAAttribution> attribution_;
  std::shared_ptr<std::atomic<std::size_t>> decided_ = std::make_shared<std::atomic<std::size_t>>(0);
};

INSTANTIATE_TEST_SUITE_P(Options, Races,
                         testing::Values(Choice{"none", {}}, Choice{"limits", limitsOnly}, Choice{"all", allOptions}));

TEST_P(Races, nothingBreaksAndTheLibraryWorksAfterwards) {
  std::vector<std::jthread> threads;
  for (unsigned seed = 0; seed < threadCount; ++seed) {
    threads.emplace_back([this, seed] {
      std::mt19937 random(seed);
      for (int round = 0; round < rounds(); ++round) {
        act(random, round);
      }
    });
  }
  threads.clear();
  quillmar_->setNetworkPaused(false);
  attribution_->setNetworkPaused(false);
  attribution_->disableASAAttributionTracking();
  ASSERT_TRUE(quillmar_->drain(patience));
  ASSERT_TRUE(attribution_->drain(patience));
  EXPECT_EQ(lines_->count, 0);
  const QuillmarHealth health = quillmar_->health();
  EXPECT_EQ(sumOf(health), health.sent + health.inherited) << "each event is in one count";
  EXPECT_EQ(health.queued + health.underWay + health.count(EventEnd::lost), 0u);

  // The store is whole: another tracker reads what this one knows.
  EventTracker other(quillMarDefaults(platform_.userDefaults), platform_.clock);
  std::set<std::string> names;
  for (const TrackedEvent& event : other.getAllTrackedEvents()) {
    names.insert(event.name);
  }
  EXPECT_EQ(other.getTrackedEventNames(), names);

  // And after a quiet moment all goes on as if nothing had been.
  http_->setService([](const platform::HttpRequest& request) { return goodAnswer(request); });
  quillmar_->grantConsent();
  ASSERT_TRUE(quillmar_->drain(patience));
  quillmar_->reset();
  quillmar_->sendEvent("session");  // parked
  quillmar_->configure("the last key");
  ASSERT_TRUE(quillmar_->drain(patience));
  const auto before = quillmar_->statistics().logged;
  quillmar_->sendEvent("session");
  ASSERT_TRUE(quillmar_->drain(patience));
  EXPECT_EQ(quillmar_->statistics().logged, before + 1);
  EXPECT_TRUE(other.areEventsCompleted({"session"}));

  // What goes on while consent ends leaves nothing behind.
  const std::jthread sender([this] {
    for (int round = 0; round < rounds() / 10; ++round) {
      quillmar_->configure("a key");
      quillmar_->sendEvent("session");
      attribution_->enableASAAttributionTracking();
    }
  });
  quillmar_->revokeConsent();
  ASSERT_TRUE(quillmar_->drain(patience));
  ASSERT_TRUE(attribution_->drain(patience));
  EXPECT_TRUE(other.getTrackedEventNames().empty());
  EXPECT_EQ(quillMarDefaults(platform_.userDefaults)->object(Config::quillMarId), std::nullopt);
}

}  // namespace
}  // namespace quillmar::test
