#include "Insight/Reachability.h"

#include <gmock/gmock.h>

#include <bit>
#include <set>

#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/RandomRules.h"

using namespace quillmar;
using namespace quillmar::insight;
using Verdict = Reachability::Verdict;

namespace {

const std::vector<SampleEvent> allEvents{{"a", {}}, {"a", 1.0}, {"a", 1.5}, {"a", 2.0}, {"b", {}}};

/// An app, and which rule the library sends after each event.
class App {
 public:
  explicit App(const simulated::ConfigurationBuilder& configuration)
      : simulated_(platform::Clock::TimePoint(std::chrono::hours(500'000))) {
    simulated_.setConfiguration(configuration.json());
    store_ = simulated_.userDefaults->openSuite("tech.quill-mar.quillmaruserdefaults");
    quillmar_ = QuillmarFactory::createQuillmar(simulated_.platform());
    quillmar_->configure("key");
    simulated_.settle();
  }

  void forgetEvents() { quillmar_->clearTrackedEvents(); }

  /// The key of the rule; empty when none is sent.
  std::string send(const SampleEvent& event) {
    store_->remove("LastWindowValue");
    event.revenue ? quillmar_->sendEvent(event.name, {{ASEventParam::revenue, *event.revenue}})
                  : quillmar_->sendEvent(event.name);
    simulated_.settle();
    const auto sent = store_->object("LastWindowValue");
    return sent ? *sent->as<platform::PropertyListValue::Dictionary>()->at("key").as<std::string>() : "";
  }

  std::string sendAll(const std::vector<SampleEvent>& events) {
    forgetEvents();
    std::string last;
    for (const SampleEvent& event : events) {
      last = send(event);
    }
    return last;
  }

  /// All that is sent after any of the events, in any combination.
  std::set<std::string> sendEachCombination() {
    std::set<std::string> sent{sendAll({{"unknown", {}}})};
    std::vector<bool> seen(1U << allEvents.size());
    for (unsigned wanted = 1; wanted < seen.size(); ++wanted) {
      if (seen[wanted]) {
        continue;
      }
      forgetEvents();
      unsigned now = 0;
      const auto add = [&](std::size_t i) {
        sent.insert(send(allEvents[i]));
        now |= 1U << i;
        seen[now] = true;
      };
      for (std::size_t i = 0; i < allEvents.size(); ++i) {
        if ((wanted >> i & 1U) != 0) {
          add(i);
        }
      }
      for (std::size_t i = 0; i < allEvents.size(); ++i) {  // goes on as long as that is new
        if (!seen[now | 1U << i]) {
          add(i);
        }
      }
    }
    return sent;
  }

 private:
  simulated::SimulatedPlatform simulated_;
  std::shared_ptr<platform::UserDefaults> store_;
  std::shared_ptr<Quillmar> quillmar_;
};

TEST(Reachability, agreesWithThePipelineOnRandomConfigurations) {
  Quillmar::resetStaticState();
  test::RandomRules random(18);
  std::map<Verdict, int> verdicts;
  int inconsistent = 0;
  for (int i = 0; i < QUILLMAR_RANDOM_CONFIGURATIONS; ++i) {
    const simulated::ConfigurationBuilder configuration = random.next();
    SCOPED_TRACE(configuration.json());
    std::vector<const ConversionValues::ConversionValue*> rules;
    for (const auto& rule : configuration.values().values) {
      rules.push_back(&rule);
    }
    const ReachabilityAnalysis analysis(rules, Window::window0);
    App app(configuration);
    const std::set<std::string> sent = app.sendEachCombination();
    for (std::size_t index = 0; index < rules.size(); ++index) {
      Effort effort;
      const Reachability found = analysis.decide(index, effort);
      ASSERT_EQ(found.verdict == Verdict::sent, sent.contains(rules[index]->key)) << rules[index]->key;
      if (found.verdict != Verdict::neverComplete) {
        const auto* const last = found.verdict == Verdict::sent ? rules[index] : found.sentInstead;
        ASSERT_EQ(app.sendAll(found.events), last->key) << rules[index]->key << " after " << describe(found.events);
      }
      ++verdicts[found.verdict];
    }
    inconsistent += analysis.inconsistency() ? 1 : 0;
  }
  EXPECT_GT(verdicts[Verdict::dead], QUILLMAR_RANDOM_CONFIGURATIONS / 10);
  EXPECT_GT(verdicts[Verdict::neverComplete], QUILLMAR_RANDOM_CONFIGURATIONS / 100);
  EXPECT_GT(inconsistent, QUILLMAR_RANDOM_CONFIGURATIONS / 20);
}

TEST(Reachability, givesUpWithoutAVerdict) {
  // Each way to meet the requirements of the last rule completes others, and there are 3 to the power of 30.
  simulated::ConfigurationBuilder builder;
  std::vector<ConversionValues::RequiredEvent> all;
  for (int i = 0; i < 30; ++i) {
    const std::string name = "e" + std::to_string(i);
    all.push_back({name, 0, 10});
    builder.rule("before " + std::to_string(i), Window::window0, {{{1, {{name, 0, 6}, {"last", 0, 9}}}}, {}});
    builder.rule("too " + std::to_string(i), Window::window0, {{{1, {{name, 6, 10}, {"last", 0, 9}}}}, {}});
  }
  all.push_back({"last", 0, 9});
  builder.rule("hard", Window::window0, {{{2, all}}, {}});
  std::vector<const ConversionValues::ConversionValue*> rules;
  for (const auto& rule : builder.values().values) {
    rules.push_back(&rule);
  }
  const ReachabilityAnalysis analysis(rules, Window::window0);
  Effort effort{100'000, 50'000};
  EXPECT_EQ(analysis.decide(rules.size() - 1, effort).verdict, Verdict::undecided);
  EXPECT_EQ(analysis.decide(0, effort).verdict, Verdict::sent) << "an easy one has effort left";
}

}  // namespace
