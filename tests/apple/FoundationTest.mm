#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "Platform/Apple/AppleFileManager.h"
#include "Platform/Apple/FirstUnlock.h"
#include "Platform/Apple/FoundationDevice.h"
#include "Platform/Apple/FoundationUserDefaults.h"
#include "Platform/Apple/FoundationUserDefaultsProvider.h"
#include "Platform/Apple/HeldExecutor.h"
#include "quillmar/Config.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/SimulatedPlatform.h"
#include "support/FaultyStores.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {

std::shared_ptr<UserDefaultsProvider> openFoundation(const std::string& folder) {
  ::setenv("SUITES", folder.c_str(), 1);
  return std::make_shared<FoundationUserDefaultsProvider>(
      folder + "/beside", [](std::string_view text) { ADD_FAILURE() << text; }, [] { return true; });
}

namespace {

using Value = PropertyListValue;
using Data = Value::Data;
using namespace std::chrono_literals;

const std::string history = "com.quillmar.completedEvents";

/// The user defaults as an app without this adapter sees them.
NSUserDefaults* native(const test::TemporaryFolder& folder, NSString* suite = @"suite") {
  ::setenv("SUITES", folder.path().c_str(), 1);
  return autoreleased([[NSUserDefaults alloc] initWithSuiteName:suite]);
}

void setNatively(NSUserDefaults* defaults, const std::string& key, id value) {
  [defaults setObject:value forKey:foundationText(key)];
  [defaults synchronize];
}

NSData* bytes(const std::string& text) {
  return [NSData dataWithBytes:text.data() length:text.size()];
}

TEST(FoundationUserDefaults, smallValuesHaveTheirNativeTypesBothWays) {
  @autoreleasepool {
    const test::TemporaryFolder folder;
    const Value::Date date(std::chrono::microseconds(1'795'000'000'000'000));
    // In whole seconds, as GNUstep writes them to files.
    NSDate* const nativeDate = [NSDate dateWithTimeIntervalSinceReferenceDate:816'692'800];
    const Value events = Value::Dictionary{{"events", Value::Array{"e"}}};
    const std::pair<id, Value> rows[] = {
        {nativeDate, date},
        {@"text", "text"},
        {[NSNumber numberWithBool:NO], false},
        {[NSNumber numberWithInt : 1], std::int64_t { 1 }},
        {[NSNumber numberWithDouble:10], 10.0},
        {[NSDictionary dictionaryWithObject:[NSArray arrayWithObject:@"e"] forKey:@"events"], events},
    };
    for (const auto& [object, value] : rows) {
      setNatively(native(folder), "earlier", object);
      EXPECT_TRUE(openFoundation(folder.path())->openSuite("suite")->object("earlier") == value)
          << value.storage().index();
      ASSERT_FALSE(openFoundation(folder.path())->openSuite("suite")->set("ours", value));
      EXPECT_TRUE([[native(folder) objectForKey:@"ours"] isEqual:object]) << value.storage().index();
    }
  }
}

/// Takes so many writes and refuses the next one: whoever stops there leaves what a kill would.
class Dying : public test::MinimalUserDefaults {
 public:
  Dying(std::shared_ptr<UserDefaults> store, int writes) : MinimalUserDefaults(std::move(store)), writes_(writes) {}
  std::error_code set(std::string_view key, Value value) override {
    return writes_-- == 0 ? std::make_error_code(std::errc::no_space_on_device)
                          : MinimalUserDefaults::set(key, std::move(value));
  }

 private:
  int writes_;
};

TEST(FoundationUserDefaults, historyOfAnEarlierVersionMovesOverOnceWhereverAKillComes) {
  for (const int writes : {0, 1, 2}) {
    @autoreleasepool {
      SCOPED_TRACE(writes);
      const test::TemporaryFolder folder;
      simulated::InMemoryUserDefaultsProvider provider;
      const auto beside = provider.openSuite("suite");
      const auto restarted = [&] { return std::make_shared<FoundationUserDefaults>(native(folder), beside); };
      setNatively(native(folder), history, bytes("[1,2]"));
      static_cast<void>(
          FoundationUserDefaults(native(folder), std::make_shared<Dying>(beside, writes)).object(history));
      EXPECT_EQ(restarted()->data(history), "[1,2]");
      EXPECT_EQ([native(folder) objectForKey:@"com.quillmar.completedEvents"], nil) << "it has moved";
      ASSERT_FALSE(restarted()->replaceDataTail(history, 4, ",3]"));
      setNatively(native(folder), history, bytes("[1,2]"));  // the removal did not reach the disk
      EXPECT_EQ(restarted()->data(history), "[1,2,3]");
      setNatively(native(folder), history, bytes("[7]"));  // by an earlier version that was in use for a while
      EXPECT_EQ(restarted()->data(history), "[1,2,3,7]");
      ASSERT_FALSE(restarted()->remove(history));
      setNatively(native(folder), history, bytes("[6]"));
      ASSERT_FALSE(restarted()->remove(history));
      setNatively(native(folder), history, bytes("[6]"));
      EXPECT_EQ(restarted()->data(history), std::nullopt) << "what was cleared stays away";
      setNatively(native(folder), history, bytes("[8]"));
      ASSERT_FALSE(restarted()->set(history, Data{"[9]"}));
      setNatively(native(folder), history, bytes("[8]"));
      EXPECT_EQ(restarted()->data(history), "[9]") << "so does what was replaced";
    }
  }
}

// Before the first unlock the user defaults look empty; here they are in another folder then.
TEST(FirstUnlock, nothingTakesTheAppForANewOneBeforeAndNothingIsLost) {
  @autoreleasepool {
    const test::TemporaryFolder folder;
    const auto start = Clock::TimePoint(1'795'000'000s);
    const auto earlier = [&] { return native(folder, @"tech.quill-mar.quillmaruserdefaults"); };
    setNatively(earlier(), std::string(Config::quillMarId), @"earlier");
    setNatively(earlier(), std::string(Config::firstRunDateKey),
                [NSDate dateWithTimeIntervalSinceReferenceDate:816'692'800 - 5 * 86'400]);
    ::setenv("SUITES", (folder / "locked").c_str(), 1);
    bool unlocked = false;
    simulated::SimulatedPlatform simulated(start);
    Platform platform = simulated.platform();
    platform.executor = std::make_shared<HeldExecutor>(simulated.executor, simulated.clock, [&] { return unlocked; });
    platform.userDefaults = std::make_shared<FoundationUserDefaultsProvider>(
        folder / "beside", [](std::string_view text) { ADD_FAILURE() << text; }, [&] { return unlocked; });
    const auto quillmar = QuillmarFactory::createQuillmar(platform);
    quillmar->configure("the-key");
    quillmar->sendEvent("session");
    simulated.advance(10s);
    EXPECT_EQ(quillmar->state().window, std::nullopt);
    EXPECT_FALSE(quillmar->isInitialized());
    unlocked = true;
    ::setenv("SUITES", folder.path().c_str(), 1);
    simulated.advance(HeldExecutor::interval);
    EXPECT_EQ(quillmar->state().window, 1) << "five days after the first run";
    EXPECT_EQ(quillmar->statistics().logged, 1U);
    EXPECT_TRUE([[earlier() objectForKey:@"QuillmarId"] isEqual:@"earlier"]);
    EXPECT_TRUE(FirstUnlock(folder / "new/folder").hasHappened());
  }
}

TEST(AppleFileManager, whatIsWrittenIsReadableWhileLockedAndLeftOutOfBackups) {
  const test::TemporaryFolder folder;
  ::setenv("SUITES", folder.path().c_str(), 1);
  AppleFileManager files(folder.path());
  ASSERT_FALSE(files.createDirectory(folder / "new"));
  ASSERT_FALSE(files.createDirectory(folder / "new"));
  ASSERT_FALSE(files.writeFile(folder / "new/file", "x", WriteMode::atomic));
  std::ifstream marks(folder / "marks");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(marks), {}),
            "UntilFirstUserAuthentication new\nNSURLIsExcludedFromBackupKey new\n"
            "UntilFirstUserAuthentication file\nNSURLIsExcludedFromBackupKey file\n");
}

TEST(FoundationDevice, versionIsSpelledAsTheSystemDoes) {
  EXPECT_EQ(FoundationDevice().systemVersion(), "17.4");
}

}  // namespace
}  // namespace quillmar::platform
