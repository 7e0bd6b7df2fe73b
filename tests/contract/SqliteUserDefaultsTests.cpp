#include "Platform/Sqlite/SqliteUserDefaults.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Conversion/EventTracker.h"
#include "Platform/Sqlite/SqliteDatabase.h"
#include "quillmar/simulated/ManualClock.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using Value = PropertyListValue;
using Data = Value::Data;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// Runs statements as somebody else, until it is closed.
class Intruder : private SqliteDatabase {
 public:
  explicit Intruder(const std::string& file) { EXPECT_EQ(open(file), SQLITE_OK); }
  void run(const std::string& sql) { EXPECT_EQ(execute(sql.c_str()), SQLITE_OK) << sql << lastMessage(); }
  std::int64_t countSegments() {
    std::int64_t count = -1;
    EXPECT_EQ(readInteger("SELECT count(*) FROM segment", count), SQLITE_OK);
    return count;
  }
};

class SqliteUserDefaultsTest : public testing::Test {
 protected:
  std::shared_ptr<SqliteUserDefaults> open() {
    return SqliteUserDefaults::open(
        file_, [this](std::string_view text) { reports_.emplace_back(text); }, std::chrono::milliseconds(1));
  }

  test::TemporaryFolder folder_;
  const std::string file_ = folder_ / "suite.sqlite";
  std::vector<std::string> reports_;
};

TEST_F(SqliteUserDefaultsTest, filesThatCannotBeUsedAreLeftAlone) {
  const std::pair<const char*, const char*> rows[] = {{"CREATE TABLE t(a); PRAGMA user_version = 2", "newer version"},
                                                      {"CREATE TABLE t(a)", "another program"},
                                                      {"PRAGMA user_version = 1", "another program"},
                                                      {"CREATE TABLE value(key, content AS (zeroblob(900000000)));"
                                                       "CREATE TABLE segment(a); PRAGMA user_version = 1",
                                                       "another program"},
                                                      {"BEGIN EXCLUSIVE", "locked"},
                                                      {"CREATE TABLE t(a)", "malformed"}};
  for (const auto& [sql, reason] : rows) {
    SCOPED_TRACE(reason);
    std::ofstream(file_).close();  // empty
    reports_.clear();
    Intruder intruder(file_);
    intruder.run(sql);
    if (reason == std::string_view("malformed")) {
      std::filesystem::resize_file(file_, 4096);  // the table's page is gone
    }
    const auto content = [this] { return (std::ostringstream() << std::ifstream(file_).rdbuf()).str(); };
    const std::string before = content();
    EXPECT_EQ(open(), nullptr);
    EXPECT_THAT(reports_, ElementsAre(AllOf(HasSubstr(file_), HasSubstr(reason))));
    EXPECT_TRUE(content() == before);
  }
  // A pipe would be waited for, a link followed.
  for (const std::string suffix : {"", "-wal", "-journal", "-shm"}) {
    const std::string path = file_ + suffix;
    for (const bool isPipe : {true, false}) {
      std::filesystem::remove(path);
      ASSERT_EQ(isPipe ? ::mkfifo(path.c_str(), 0600) : ::symlink((folder_ / "elsewhere").c_str(), path.c_str()), 0);
      reports_.clear();
      EXPECT_EQ(open(), nullptr);
      EXPECT_THAT(reports_, ElementsAre(HasSubstr(path + " is not a regular file")));
    }
    std::filesystem::remove(path);
  }
  EXPECT_FALSE(std::filesystem::exists(folder_ / "elsewhere"));
}

TEST_F(SqliteUserDefaultsTest, removedDataLeavesTheDisk) {
  const auto store = open();
  EventTracker tracker(store, std::make_shared<simulated::ManualClock>(Clock::TimePoint()));
  for (int i = 0; i < 300; ++i) {
    tracker.trackEvent("secret", std::nullopt);
  }
  EXPECT_NE(store->object(HistoryDigest::key), std::nullopt);
  const auto isOnDisk = [this] {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      all += (std::ostringstream() << std::ifstream(entry.path()).rdbuf()).str();
    }
    return all.find("secret") != std::string::npos;
  };
  EXPECT_TRUE(isOnDisk());
  tracker.clearCompletedEvents();
  EXPECT_FALSE(isOnDisk());
}

// The store goes through the segments from a key's first one on. SQLite gives numbers of deleted rows again.
TEST_F(SqliteUserDefaultsTest, dataIsRemovedWholeWhereItsSegmentsTookThePlacesOfOthers) {
  for (const char* key : {"first", "removed", "data"}) {
    ASSERT_FALSE(open()->set(key, Data{"x"}));
  }
  auto store = open();
  store->remove("removed");
  for (std::size_t length = 1; length < 300; ++length) {  // until small segments are put together
    ASSERT_FALSE(store->replaceDataTail("data", length, "y"));
  }
  EXPECT_EQ(store->data("data"), "x" + std::string(299, 'y'));
  store->remove("data");
  store.reset();
  EXPECT_EQ(Intruder(file_).countSegments(), 1);
  EXPECT_EQ(open()->data("first"), "x");
  EXPECT_EQ(open()->object("data"), std::nullopt);
}

TEST_F(SqliteUserDefaultsTest, aFileHasOneStoreInAProcess) {
  auto store = open();
  EXPECT_EQ(open(), store);
  EXPECT_FALSE(std::filesystem::exists(file_ + "-shm")) << "mapped files can be cut off by others";
  const std::weak_ptr<SqliteUserDefaults> gone = store;
  store.reset();
  EXPECT_TRUE(gone.expired());
  EXPECT_NE(open(), nullptr);
}

TEST_F(SqliteUserDefaultsTest, damagedRowsAreSkippedUntilTheyAreWritten) {
  auto store = open();
  for (const char* key : {"good", "hole", "text segment", "negative"}) {
    ASSERT_FALSE(store->set(key, Data{"data"}));
  }
  store.reset();
  Intruder(file_).run(
      "INSERT INTO value VALUES('torn', x'73ff00000000000000'), ('number', 5), ('empty', x''), ('tag', x'00'),"
      "  ('more', x'620100'), ('huge', x'61ffffffffffffff7f');"
      "INSERT INTO segment(key, offset, bytes) VALUES('hole', 5, x'00'), ('text segment', 4, 'text'),"
      "  ('negative', -1, x'00'), ('good', 4, x'21')");
  store = open();
  const char* const damaged[] = {"torn", "number", "empty", "tag", "more", "huge", "hole", "text segment", "negative"};
  EXPECT_EQ(reports_.size(), std::size(damaged));
  EXPECT_EQ(store->data("good"), "data!");
  for (const char* key : damaged) {
    EXPECT_EQ(store->object(key), std::nullopt) << key;
    EXPECT_EQ(store->replaceDataTail(key, 0, "x"), std::errc::invalid_argument) << key;
    EXPECT_FALSE(store->set(key, key)) << key;
  }
  store.reset();
  reports_.clear();
  EXPECT_EQ(open()->string("hole"), "hole");
  EXPECT_THAT(reports_, testing::IsEmpty());
}

TEST_F(SqliteUserDefaultsTest, whatCannotBeWrittenIsKeptAndGoesWithTheNextWrite) {
  struct rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlim_t before = limit.rlim_cur;
  const std::error_code error = std::make_error_code(std::errc::io_error);
  const std::string large(300'000, 'x');
  auto store = open();
  ASSERT_FALSE(store->set("list", Data{"[1]"}) || store->set("removed", true));
  // A process that may not write large files meets the same errors as one on a full disk. It must not meet a signal.
  const auto fillDisk = [&](bool on) {
    limit.rlim_cur = on ? 64 << 10 : before;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  };
  fillDisk(true);
  EXPECT_EQ(store->replaceDataTail("list", 2, large), error);
  EXPECT_EQ(store->data("list"), "[1]");
  EXPECT_EQ(store->set("data", Data{large}), error);
  EXPECT_EQ(store->remove("removed"), error) << "goes together with the large one";
  EXPECT_EQ(store->replaceDataTail("data", 4, "not"), error);
  EXPECT_EQ(store->data("data"), large);
  EXPECT_EQ(store->object("removed"), std::nullopt);
  fillDisk(false);
  ASSERT_FALSE(store->replaceDataTail("data", large.size(), " too"));
  fillDisk(true);
  EXPECT_EQ(store->set("last", true), error);
  fillDisk(false);
  store.reset();  // its last chance to write
  store = open();
  EXPECT_EQ(store->data("list"), "[1]");
  EXPECT_EQ(store->data("data"), large + " too");
  EXPECT_EQ(store->object("removed"), std::nullopt);
  EXPECT_TRUE(store->boolean("last"));
}

TEST_F(SqliteUserDefaultsTest, segmentsAreMergedInRuns) {
  auto store = open();
  ASSERT_FALSE(store->set("list", Data{}));
  std::string expected;
  for (int i = 0; i < 2'000; ++i) {
    expected.resize(i % 5 == 0 ? expected.size() / 2 : expected.size());  // now and then it gets shorter
    ASSERT_FALSE(store->replaceDataTail("list", expected.size(), std::to_string(i)));
    expected += std::to_string(i);
    ASSERT_TRUE(i % 50 != 0 || store->data("list") == expected) << i;
    const std::size_t skip = expected.size() * static_cast<std::size_t>(i % 7) / 7;
    ASSERT_EQ(store->dataTail("list", skip), expected.substr(skip)) << i;
  }
  store.reset();
  EXPECT_LT(Intruder(file_).countSegments(), 300) << "a write for each would be 2000";
  EXPECT_EQ(open()->data("list"), expected);
}

}  // namespace
}  // namespace quillmar::platform
