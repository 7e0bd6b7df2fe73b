#include "Insight/Reachability.h"

#include <gmock/gmock.h>

#include <set>

#include "Conversion/LastWindowValue.h"
#include "quillmar/Config.h"
#include "support/FacadeHarness.h"
#include "support/RandomRules.h"

using namespace quillmar;
using namespace quillmar::insight;
using Verdict = Reachability::Verdict;

namespace {

const std::vector<SampleEvent> allEvents{{"a", {}}, {"a", 1.0}, {"a", 1.5}, {"a", 2.0}, {"b", {}}};

/// An app, and which rule the library sends after each event.
class App : private test::FacadeHarness {
 public:
  explicit App(const simulated::ConfigurationBuilder& rules) {
    quillmar->setLogLevel(LogLevel::off);
    configBody = rules.json();
    configure();
  }

  void forgetEvents() { quillmar->clearTrackedEvents(); }

  /// The key of the rule; empty when none is sent.
  std::string sentAfter(const SampleEvent& event) {
    defaults->remove(Config::lastWindowValue);
    send(event.name, event.revenue ? EventParameters{{ASEventParam::revenue, *event.revenue}} : EventParameters());
    const auto sent = readLastWindowValue(*defaults);
    return sent ? sent->key : "";
  }

  std::string sendAll(const std::vector<SampleEvent>& events) {
    forgetEvents();
    std::string last;
    for (const SampleEvent& event : events) {
      last = sentAfter(event);
    }
    return last;
  }

  /// All that is sent after any of the events, in any combination: on the way to those with the last event are all
  /// others.
  std::set<std::string> sendEachCombination() {
    std::set<std::string> sent{sendAll({{"unknown", {}}})};
    const unsigned last = 1U << (allEvents.size() - 1);
    for (unsigned wanted = last; wanted < 2 * last; ++wanted) {
      forgetEvents();
      for (std::size_t i = 0; i < allEvents.size(); ++i) {
        if ((wanted >> i & 1U) != 0) {
          sent.insert(sentAfter(allEvents[i]));
        }
      }
    }
    return sent;
  }
};

TEST(Reachability, agreesWithThePipelineOnRandomConfigurations) {
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
