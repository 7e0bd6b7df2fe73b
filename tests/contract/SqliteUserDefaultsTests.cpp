#include "Platform/Sqlite/SqliteUserDefaults.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Platform/Sqlite/SqliteDatabase.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using Value = PropertyListValue;
using Data = Value::Data;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

const std::error_code tryAgain = std::make_error_code(std::errc::resource_unavailable_try_again);

/// Runs statements as somebody else, until it is closed.
class Intruder : private SqliteDatabase {
 public:
  explicit Intruder(const std::string& file) { EXPECT_EQ(open(file, std::chrono::seconds(2)), SQLITE_OK); }
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
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  const std::string large(300'000, 'x');
  for (const bool isFull : {false, true}) {
    SCOPED_TRACE(isFull ? "a full disk" : "a locked file");
    const std::error_code error = isFull ? std::make_error_code(std::errc::io_error) : tryAgain;
    std::filesystem::remove(file_);
    auto store = open();
    ASSERT_FALSE(store->set("list", Data{"[1]"}) || store->set("removed", true));
    Intruder intruder(file_);
    const auto obstruct = [&](bool on) {
      // A process that may not write large files meets the same errors as one on a full disk.
      limit.rlim_cur = isFull && on ? 64 << 10 : before;
      ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
      intruder.run(isFull ? "" : on ? "BEGIN IMMEDIATE" : "COMMIT");
    };
    obstruct(true);
    EXPECT_EQ(store->replaceDataTail("list", 2, large), error);
    EXPECT_EQ(store->data("list"), "[1]");
    EXPECT_EQ(store->set("data", Data{large}), error);
    EXPECT_EQ(store->remove("removed"), error) << "goes together with the large one";
    EXPECT_EQ(store->replaceDataTail("data", 4, "not"), error);
    EXPECT_EQ(store->data("data"), large);
    EXPECT_EQ(store->object("removed"), std::nullopt);
    obstruct(false);
    ASSERT_FALSE(store->replaceDataTail("data", large.size(), " too"));
    obstruct(true);
    EXPECT_EQ(store->set("last", true), error);
    obstruct(false);
    store.reset();  // its last chance to write
    store = open();
    EXPECT_EQ(store->data("list"), "[1]");
    EXPECT_EQ(store->data("data"), large + " too");
    EXPECT_EQ(store->object("removed"), std::nullopt);
    EXPECT_TRUE(store->boolean("last"));
  }
  ::signal(SIGXFSZ, handler);
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
  }
  Intruder intruder(file_);
  EXPECT_LT(intruder.countSegments(), 300) << "a write for each would be 2000";
  store.reset();
  EXPECT_EQ(open()->data("list"), expected);
}

TEST_F(SqliteUserDefaultsTest, changesOfAnotherProcessAreNoticedAtTheNextWrite) {
  const auto store = open();
  const auto other = open();
  ASSERT_FALSE(store->set("list", Data{"[1,2,3]"}));
  ASSERT_FALSE(store->set("mine", "mine"));
  ASSERT_FALSE(other->set("list", Data{"[]"}));
  ASSERT_FALSE(other->remove("mine"));
  const auto revision = store->revision("list");
  EXPECT_EQ(store->replaceDataTail("list", 6, ",4]"), tryAgain);
  EXPECT_NE(store->revision("list"), revision);
  EXPECT_EQ(store->data("list"), "[]");
  EXPECT_EQ(store->object("mine"), std::nullopt);
  ASSERT_FALSE(store->replaceDataTail("list", 1, "4]"));
  EXPECT_EQ(open()->data("list"), "[4]");
}

}  // namespace
}  // namespace quillmar::platform
