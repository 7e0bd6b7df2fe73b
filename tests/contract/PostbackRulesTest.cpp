#include "quillmar/simulated/PostbackRules.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "quillmar/simulated/SimulatedPlatform.h"

namespace quillmar::simulated {
namespace {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

struct Call {
  double hour;
  std::optional<int> fine;
  std::optional<std::string> coarse = {};
  bool lock = false;
  const char* verdict = "accepted";
  const char* interface = nullptr;  // null: the ad's own
};

struct Life {
  const char* what;
  SignedAd ad;
  std::vector<Call> calls;
  Strings postbacks;
  PostbackRules::WindowLengths lengths = PostbackRules::usualLengths;
};

constexpr auto three = SignedAd::skAdNetwork3, four = SignedAd::skAdNetwork4, kit = SignedAd::adAttributionKit;
constexpr const char* partly = "accepted coarseHalfOnly";
constexpr const char* locked = "ignored windowLocked";

/// A text for each postback: "0 lock 34-58: - low 9 9" has the hours, and the values by tier.
Strings received(const PostbackRules& rules) {
  const auto hours = [](auto time) { return std::chrono::duration<double, std::ratio<3600>>(time).count(); };
  Strings texts;
  int index = -1;
  for (const Postback& postback : rules.postbacks()) {
    if (std::exchange(index, postback.index) != postback.index) {
      texts.push_back(fmt::format("{} {} {}-{}:", index, rawValue(postback.finalizedBy), hours(postback.earliest),
                                  hours(postback.latest)));
    }
    const std::string fine = postback.fineValue ? std::to_string(*postback.fineValue) : "";
    texts.back() += " " + fine + postback.coarseValue.value_or(fine.empty() ? "-" : "");
  }
  return texts;
}

TEST(PostbackRules, judgeEachCallAndTellWhatIsReceived) {
  const Life rows[] = {
      {"nothing was called", four, {}, {}},
      {"up and down until the window ends, then the next",
       four,
       {{1, 9, "high"}, {47.9, 3, "low"}, {48, 63, "medium", false, partly}, {167.9, 0, "low", false, partly}},
       {"0 window 72-96: - low 3 3", "1 window 192-312: low low low"}},
      {"a lock ends its window only",
       kit,
       {{10, 9, "low", true},
        {11, 8, "high", false, locked},
        {47, 8, "high", true, locked},
        {50, 1, "high", true, partly},
        {51, 1, "low", false, locked}},
       {"0 lock 34-58: - low 9 9", "1 lock 74-194: high high high"}},
      {"a later window hears of no fine value",
       kit,
       {{50, 5, {}, false, "ignored coarseHalfOnly"},
        {170, 5, {}, true, partly},
        {171, 5, "low", false, locked},
        {840, 1, "low", false, "ignored windowsOver"}},
       {}},
      {"a first update after 60 days is none",
       four,
       {{1440, 1, "low", false, partly}},
       {"1 window 1644-1764: low low low"},
       {720h, 900h, 672h}},
      {"and a moment later", four, {{1440.1, 1, "low", false, "ignored firstUpdateLate"}}, {}, {720h, 900h, 672h}},
      {"refused, or for others",
       four,
       {{1, 64, "low", true, "refused valueOutOfRange"},
        {1, -1, "low", false, "refused valueOutOfRange"},
        {1, 5, "low", true, "ignored otherFramework", "adAttributionKit"},
        {1, {}, {}, false, "ignored noValue", "registration"}},
       {}},
      {"greater values start the timer again",
       three,
       {{0, {}, {}, false, "accepted", "registration"},
        {23, 0},
        {24, 0, {}, false, "ignored notGreater"},
        {46.5, 7, "high", true, "accepted fineHalfOnly", "skAdNetwork4"},
        {47, 5, {}, false, "ignored notGreater"},
        {48, 64, {}, false, "refused valueOutOfRange"},
        {70.5, 9, {}, false, "ignored timerOver"}},
       {"0 timer 70.5-94.5: - - 7 7"}},
  };
  for (const Life& row : rows) {
    SCOPED_TRACE(row.what);
    const platform::Clock::TimePoint start{1'795'000'000s};
    PostbackRules rules(row.ad, start, row.lengths);
    for (const Call& call : row.calls) {
      const std::string own = row.ad == kit ? "adAttributionKit" : row.ad == four ? "skAdNetwork4" : "skAdNetwork2";
      const auto at = start + std::chrono::minutes(static_cast<int>(call.hour * 60));
      const std::string interface = call.interface ? call.interface : own;
      const Verdict verdict = rules.judge({interface, call.fine, call.coarse, call.lock, at}, "18.0");
      EXPECT_EQ(fmt::format("{} {}", rawValue(verdict.outcome), rawValue(verdict.reason)),
                std::string(call.verdict) + (verdict.reason == Verdict::Reason::none ? " " : ""))
          << call.hour;
    }
    EXPECT_EQ(received(rules), row.postbacks);
  }
}

TEST(SimulatedAdNetwork, refusesWhatThePlatformRefuses) {
  SimulatedPlatform simulated(platform::Clock::TimePoint{1'795'000'000s}, "17.4");
  Strings answers;
  const auto update = [&](int fine) {
    simulated.adNetwork->updatePostbackConversionValue(
        fine, platform::SKAdNetworkCoarseConversionValue::low, false,
        [&](const auto& error) { answers.push_back(error ? error->localizedDescription : "good"); });
  };
  update(64);
  update(63);
  simulated.device->setSystemVersion("16.0");
  update(63);
  EXPECT_THAT(answers, testing::ElementsAre("a fine value is 0 to 63", "good", "this system has no such interface"));
  EXPECT_EQ(simulated.adNetwork->rules().postbacks().size(), 4U);
}

}  // namespace
}  // namespace quillmar::simulated
