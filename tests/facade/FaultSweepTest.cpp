#include <gmock/gmock.h>

#include "Conversion/EventTracker.h"
#include "Conversion/LastWindowValue.h"
#include "support/FacadeHarness.h"
#include "support/FaultySeams.h"

namespace quillmar::test {
namespace {

using std::chrono::seconds;
using ::testing::Contains;
using ::testing::Not;

constexpr const char* configurationFile = "/documents/Quillmar/quill-mar-conv-val.json";

/// Lives through start, fetch, events, reset and a second start, while the seams fail as the plan wants it. Returns
/// how many calls the plan was asked for.
std::size_t live(FaultPlan plan) {
  FacadeHarness host;
  const auto disk = std::make_shared<simulated::InMemoryUserDefaults>();
  const auto newProcess = [&] {
    host.quillmar.reset();
    auto platform = host.simulated.platform();
    platform.files = std::make_shared<FaultyFileManager>(host.simulated.files, plan);
    platform.userDefaults = std::make_shared<OneStoreProvider>(std::make_shared<FaultyUserDefaults>(disk, plan));
    host.quillmar = QuillmarFactory::createQuillmar(platform);
    host.quillmar->setLogLevel(LogLevel::info);
  };
  const auto history = [&] {
    std::vector<std::string> names;
    for (const TrackedEvent& event : EventTracker(disk, host.simulated.clock).getAllTrackedEvents()) {
      names.push_back(event.name);
    }
    return names;
  };

  newProcess();
  host.configure();
  host.send("session");
  host.send("purchase", EventParameters{{ASEventParam::revenue, 20}});
  host.send("early");
  host.quillmar->reset();
  host.quillmar->setLogLevel(LogLevel::info);
  host.configure();
  host.send("session");
  host.send("late-1");
  host.send("late-2");
  host.advance(seconds(20));  // the fetch may be at its second or third attempt
  EXPECT_TRUE(host.quillmar->drain(std::chrono::milliseconds(0)));
  const std::size_t calls = plan.calls;

  plan.first = 0;  // all is well again
  host.activate();
  host.advance(seconds(20));
  host.send("last-1");
  host.send("last-2");
  EXPECT_TRUE(host.quillmar->drain(std::chrono::milliseconds(0)));
  EXPECT_FALSE(host.logged("unexpected error"));
  EXPECT_EQ(host.quillmar->statistics().parked, 0U);

  // What was tracked since the history was last cleared, is on the disk, in its order. The last event is, in any case.
  std::vector<std::string> tracked;
  for (const std::string& line : host.log.messages()) {
    const std::string start = "debug: EventTracker - Tracked event: ";
    if (line.rfind(start, 0) == 0) {
      tracked.push_back(line.substr(start.size(), line.find(" with parameters") - start.size()));
    } else if (line.find("Cleared all tracked events") != std::string::npos) {
      tracked.clear();
    }
  }
  const std::vector<std::string> stored = history();
  auto next = tracked.begin();
  for (const std::string& name : stored) {
    next += next != tracked.end() && *next == name ? 1 : 0;
  }
  EXPECT_EQ(next, tracked.end()) << ::testing::PrintToString(stored) << " and " << ::testing::PrintToString(tracked);
  EXPECT_THAT(stored, Contains("last-2"));
  EXPECT_THAT(stored, Not(Contains("early")));
  EXPECT_EQ(readLastWindowValue(*disk).value().fineValue, 1);
  EXPECT_EQ(disk->string(Config::serverAppId), "app-1");
  const auto identifier = disk->string(Config::quillMarId);
  EXPECT_TRUE(identifier && disk->date(Config::firstRunDateKey));
  std::string document;
  EXPECT_FALSE(host.simulated.files->readFile(configurationFile, document));
  EXPECT_NE(document.find("Purchase"), std::string::npos);

  newProcess();
  host.configure();
  host.send("next");
  EXPECT_EQ(disk->string(Config::quillMarId), identifier);
  EXPECT_EQ(history().size(), stored.size() + 1);
  return calls;
}

TEST(FaultSweep, eachSeamCallMayFailAndTheLibraryGoesOn) {
  const std::size_t calls = live({});
  ASSERT_GT(calls, 40U);
  const std::errc errors[] = {std::errc::no_space_on_device, std::errc::io_error, std::errc::permission_denied,
                              std::errc::read_only_file_system, std::errc::resource_unavailable_try_again};
  for (const std::size_t spell : {std::size_t{1}, std::size_t{4}, ~std::size_t{0}}) {
    for (const std::errc error : errors) {
      for (std::size_t first = 1; first <= calls; ++first) {
        SCOPED_TRACE(testing::Message() << std::make_error_code(error).message() << " from call " << first << ", "
                                        << spell << " times");
        live({std::make_error_code(error), first, spell});
        if (testing::Test::HasFailure()) {
          return;
        }
      }
    }
  }
  RecordProperty("lives", std::to_string(calls * std::size(errors) * 3));
}

}  // namespace
}  // namespace quillmar::test
