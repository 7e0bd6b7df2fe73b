#include <gtest/gtest.h>

#include "support/FacadeHarness.h"
#include "support/FaultyStores.h"

namespace quillmar::test {
namespace {

/// Makes calls fail: so many in a row of all that count.
struct Spell {
  int failing = 0;
  std::errc error{};
  int inARow = 1;
  int calls = 0;

  std::error_code next() {
    const int since = calls++ - failing;
    return failing >= 0 && since >= 0 && since < inARow ? std::make_error_code(error) : std::error_code{};
  }
};

/// Tells whether a fault was met.
bool liveWith(Spell& spell) {
  FacadeHarness host;
  const Fault fault = [&spell](std::string_view) { return spell.next(); };
  host.simulated.files = std::make_shared<FaultyFiles>(fault);
  host.simulated.userDefaults = std::make_shared<OneStoreProvider>(std::make_shared<FaultyDefaults>(fault));
  host.restart();
  const auto expectNothingAcknowledgedIsLost = [&host, &spell] {
    const Spell now = std::exchange(spell, {-1});  // this look at the history is none of the library's
    EventTracker history(host.simulated.userDefaults->openSuite(""), host.simulated.clock);
    for (const std::string name : {"session", "purchase", "after"}) {
      EXPECT_TRUE(!host.logged("EventTracker - Tracked event: " + name) || history.areEventsCompleted({name})) << name;
    }
    EXPECT_FALSE(host.logged("nexpected error"));
    spell = now;
  };
  const auto live = [&] {
    host.configure();
    host.advance(std::chrono::seconds(30));  // the attempts to fetch
    host.send("session");
    host.send("purchase", {{ASEventParam::revenue, 20}});
    expectNothingAcknowledgedIsLost();
  };
  live();
  host.restart();  // the history is read anew
  live();
  host.quillmar->reset();
  host.quillmar->setLogLevel(LogLevel::info);
  host.log.clear();
  live();
  const bool met = spell.calls > spell.failing;
  // The faults are over, and two hours later so is all that they caused.
  spell.failing = -1;
  host.advance(std::chrono::hours(2));
  host.activate();
  host.send("after");
  host.send("session");
  EXPECT_TRUE(host.quillmar->drain(std::chrono::seconds(0)));
  expectNothingAcknowledgedIsLost();
  EXPECT_TRUE(host.core().eventTracker()->areEventsCompleted({"after", "session"}));
  EXPECT_NO_THROW(host.quillmar->conversionValuesRepository()->fetchAllConversionValues());
  EXPECT_GT(host.calls().size(), 0u);
  return met;
}

TEST(FaultSweep, eachCallFailsAndTheLibraryGoesOn) {
  int faults = 0;
  for (const std::errc error : {std::errc::no_space_on_device, std::errc::io_error, std::errc::permission_denied,
                                std::errc::read_only_file_system, std::errc::resource_unavailable_try_again}) {
    for (const int inARow : {1, 5, 1'000'000}) {
      for (int call = 0;; ++call, ++faults) {
        SCOPED_TRACE(testing::Message() << inARow << " from call " << call << ": "
                                        << std::make_error_code(error).message());
        Spell spell{call, error, inARow};
        if (!liveWith(spell) || HasFailure()) {
          break;
        }
      }
    }
  }
  EXPECT_GT(faults, 100);
}

}  // namespace
}  // namespace quillmar::test
