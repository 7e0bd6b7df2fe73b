#include "quillmar/Decision.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar {
namespace {

using namespace std::chrono_literals;

std::string text(const Decision& decision) {
  std::string line = fmt::format("{} {}", decision.event, rawValue(decision.outcome));
  for (const Decision::Rule& rule : decision.rules) {
    line += fmt::format(" | {} {}{}", rule.key, rule.fineComplete ? "f" : "-", rule.coarseComplete ? "c" : "-");
    line += rule.missing.empty() ? "" : fmt::format(" {}", fmt::join(rule.missing, ", "));
  }
  if (const auto& choice = decision.choice) {
    line += fmt::format(" | {}: {} {} {}{}{}", fmt::join(decision.ranking, " < "), choice->fineValue.value_or(-1),
                        choice->coarseValue ? rawValue(*choice->coarseValue) : "none",
                        choice->fineFilledIn || choice->coarseFilledIn ? "from " + choice->filledInFrom + " " : "",
                        choice->lockReason, choice->locksWindow ? "!" : "");
    line += fmt::format(" | {} {} {}", decision.interface, static_cast<int>(decision.answer), decision.error);
  }
  return line;
}

/// What happens in most ways to a few events; gives the last words on each.
std::vector<std::string> live(test::FacadeHarness& host, bool observed) {
  std::vector<std::string> records;
  if (observed) {
    host.quillmar->setDecisionObserver([&records](const Decision& decision) {
      records.push_back(text(decision));
      throw std::runtime_error("a bad observer");
    });
  }
  host.configBody = simulated::ConfigurationBuilder("app-1")
                        .rule("Buy", Window::window0, {{{40, {{"buy", 10, 50}}}}, {{CoarseValue::high, {{"buy"}}}}})
                        .rule("Stay", Window::window0, {{}, {{CoarseValue::low, {{"stay"}}}}})
                        .lockAtHigh(Window::window0)
                        .json();
  host.send("early");
  host.configure();
  host.send("buy", {{ASEventParam::revenue, 9.99}});
  host.send("buy", {{ASEventParam::revenue, 60}});
  host.simulated.adNetwork->setError("No {}");
  host.send("stay");
  host.simulated.adNetwork->setError(std::nullopt);
  host.delay = 1s;
  host.send("overtaken");
  host.quillmar->reset();
  host.quillmar->setLogLevel(LogLevel::info);
  host.advance(1s);
  host.delay = 0s;
  host.configure();
  host.quillmar->setConversionTrackingManager(nullptr);
  host.send("stay");
  host.simulated.files->removeItem("/documents/Quillmar/quill-mar-conv-val.json");
  host.send("stay");
  host.configBody = test::configuration(false).json();
  host.advance(2h);
  host.activate();
  host.send("off");
  host.configBody = test::configuration().json();
  host.advance(36 * 24h);
  host.activate();
  host.send("late");
  Quillmar::setIsVerificationKeyInvalid(true);
  host.send("invalid");
  return records;
}

TEST(Decisions, tellWhatBecameOfEachEventAndWhy) {
  test::FacadeHarness host;
  const std::vector<std::string> records = live(host, true);
  const std::vector<std::string> expected = {
      "early parked",
      "early nothingComplete | Buy -- buy: not seen, 10 to 50 wanted, buy: not seen | Stay -- stay: not seen",
      "buy sent | Buy -c buy: 9.99 seen, 10 to 50 wanted | Stay -- stay: not seen"
      " | Buy: 40 high the window locks at high! | skAdNetwork4 1 ",
      "buy sent | Buy -c buy: 9.99 and 60 seen, 10 to 50 wanted | Stay -- stay: not seen"
      " | Buy: 40 high the window locks at high! | skAdNetwork4 1 ",
      "stay sent | Buy -c buy: 9.99 and 60 seen, 10 to 50 wanted | Stay -c | Stay < Buy: 40 low from Buy "
      " | skAdNetwork4 2 No {}",
      "stay nothingCalled | Buy -- buy: not seen, 10 to 50 wanted, buy: not seen | Stay -c | Stay: -1 low "
      " |  0 ",
      "stay noConfiguration",
      "off switchedOff",
      "late windowOver",
      "invalid keyInvalid"};
  EXPECT_EQ(records, expected);
  EXPECT_EQ(host.countLines("a bad observer"), records.size());

  Quillmar::resetStaticState();  // the first life has left an invalid key
  test::FacadeHarness unobserved;
  EXPECT_TRUE(live(unobserved, false).empty());
  std::vector<std::string> lines = host.log.messages();
  std::erase_if(lines, [](const std::string& line) { return line.find("a bad observer") != std::string::npos; });
  EXPECT_EQ(lines, unobserved.log.messages()) << "nothing else changes";
}

}  // namespace
}  // namespace quillmar
