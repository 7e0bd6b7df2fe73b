#include "Platform/Posix/SqliteUserDefaults.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "Platform/Posix/PropertyListCoding.h"
#include "Platform/Posix/SqliteUserDefaultsProvider.h"
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
class Intruder {
 public:
  explicit Intruder(const std::string& file) {
    EXPECT_EQ(sqlite3_open(file.c_str(), &handle_), SQLITE_OK);
    sqlite3_busy_timeout(handle_, 2000);
  }
  ~Intruder() { sqlite3_close(handle_); }

  /// Gives the number that the statement selects, if it does.
  std::int64_t run(const std::string& sql) {
    std::int64_t result = -1;
    const auto read = [](void* target, int, char** columns, char**) {
      *static_cast<std::int64_t*>(target) = std::stoll(columns[0]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle_, sql.c_str(), read, &result, nullptr), SQLITE_OK) << sql << sqlite3_errmsg(handle_);
    return result;
  }

 private:
  sqlite3* handle_ = nullptr;
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

TEST_F(SqliteUserDefaultsTest, filesOfOthersAndLockedOnesAreLeftAlone) {
  const struct {
    const char* sql;
    const char* reason;
  } rows[] = {{"", "not a database"},
              {"CREATE TABLE t(a); PRAGMA user_version = 2", "newer version"},
              {"CREATE TABLE t(a)", "another program"},
              {"PRAGMA user_version = 1", "another program"},
              {"BEGIN EXCLUSIVE", "locked"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sql);
    std::filesystem::remove(file_);
    reports_.clear();
    Intruder intruder(file_);
    if (*row.sql != 0) {
      intruder.run(row.sql);
    } else {
      std::ofstream(file_) << std::string(5000, 'x');
    }
    const auto content = [this] { return (std::ostringstream() << std::ifstream(file_).rdbuf()).str(); };
    const std::string before = content();
    EXPECT_EQ(open(), nullptr);
    EXPECT_THAT(reports_, ElementsAre(AllOf(HasSubstr(file_), HasSubstr(row.reason))));
    EXPECT_TRUE(content() == before);
  }
}

TEST_F(SqliteUserDefaultsTest, truncatedFileIsRefused) {
  ASSERT_FALSE(open()->set("key", std::string(200'000, 'x')));
  std::filesystem::resize_file(file_, 20'000);
  EXPECT_EQ(open(), nullptr);
  EXPECT_THAT(reports_, ElementsAre(HasSubstr("malformed")));
}

TEST_F(SqliteUserDefaultsTest, filesAreTheUsersOwn) {
  const mode_t mask = ::umask(0);
  SqliteUserDefaultsProvider provider(folder_ / "new/settings", [](std::string_view text) { ADD_FAILURE() << text; });
  ASSERT_FALSE(provider.openSuite("../a b")->set("key", true));
  ::umask(mask);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
    EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << entry;
  }
  EXPECT_TRUE(std::filesystem::exists(folder_ / "new/settings/%2E.%2Fa%20b.sqlite-wal"));
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

TEST_F(SqliteUserDefaultsTest, cutOrTooDeepValuesAreRefused) {
  const Value value(Value::Dictionary{{"a", Value::Array{true, std::int64_t{1}, 2.5, "x", Data{"y"}, Value::Date{}}}});
  const std::string bytes = encodePropertyList(value).value();
  EXPECT_TRUE(decodePropertyList(bytes) == value);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_EQ(decodePropertyList(std::string_view(bytes).substr(0, size)), std::nullopt) << size;
  }
  std::string encoded;
  for (int depth = 0; depth < 100'000; ++depth) {
    encoded += std::string("a\1\0\0\0\0\0\0\0", 9);
  }
  EXPECT_EQ(decodePropertyList(encoded + "b1"), std::nullopt) << "must not exhaust the stack either";
  Value nested(true);
  for (int depth = 0; depth < 200; ++depth) {
    nested = Value(Value::Array{nested});
  }
  EXPECT_EQ(open()->set("key", nested), std::errc::invalid_argument);
}

TEST_F(SqliteUserDefaultsTest, lockedStoreKeepsValuesAndWritesThemWithTheNextOne) {
  auto store = open();
  ASSERT_FALSE(store->set("list", Data{"[1]"}));
  ASSERT_FALSE(store->set("removed", true));
  Intruder intruder(file_);
  intruder.run("BEGIN IMMEDIATE");
  EXPECT_EQ(store->replaceDataTail("list", 2, ",2]"), tryAgain);
  EXPECT_EQ(store->data("list"), "[1]");
  EXPECT_EQ(store->set("data", Data{"kept"}), tryAgain);
  EXPECT_EQ(store->remove("removed"), tryAgain);
  EXPECT_EQ(store->replaceDataTail("data", 4, "not"), tryAgain);
  EXPECT_EQ(store->data("data"), "kept");
  EXPECT_EQ(store->object("removed"), std::nullopt);
  intruder.run("COMMIT");
  ASSERT_FALSE(store->replaceDataTail("data", 4, " too"));
  intruder.run("BEGIN IMMEDIATE");
  EXPECT_EQ(store->set("last", true), tryAgain);
  intruder.run("COMMIT");
  store.reset();  // its last chance to write
  store = open();
  EXPECT_EQ(store->data("data"), "kept too");
  EXPECT_EQ(store->object("removed"), std::nullopt);
  EXPECT_TRUE(store->boolean("last"));
}

TEST_F(SqliteUserDefaultsTest, fullDiskLosesNothing) {
  auto store = open();
  ASSERT_FALSE(store->set("list", Data{"[1]"}));
  // A process that may not write large files meets the same errors as one on a full disk.
  struct rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit tiny{64 << 10, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tiny), 0);
  const std::string large(300'000, 'x');
  EXPECT_EQ(store->set("large", Data{large}), std::errc::io_error);
  EXPECT_EQ(store->replaceDataTail("list", 2, large), std::errc::io_error);
  EXPECT_EQ(store->set("small", true), std::errc::io_error) << "goes together with the large one";
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  ::signal(SIGXFSZ, handler);

  ASSERT_FALSE(store->replaceDataTail("list", 2, ",2]"));
  store.reset();
  store = open();
  EXPECT_EQ(store->data("list"), "[1,2]");
  EXPECT_EQ(store->data("large"), large);
  EXPECT_TRUE(store->boolean("small"));
}

TEST_F(SqliteUserDefaultsTest, segmentsArePutTogetherInRunsAndAtOpening) {
  auto store = open();
  ASSERT_FALSE(store->set("list", Data{}));
  ASSERT_FALSE(store->set("other", Data{"other"}));
  std::string expected;
  for (int i = 0; i < 2'000; ++i) {
    expected.resize(i % 5 == 0 ? expected.size() / 2 : expected.size());  // now and then it gets shorter
    ASSERT_FALSE(store->replaceDataTail("list", expected.size(), std::to_string(i)));
    expected += std::to_string(i);
    ASSERT_TRUE(i % 50 != 0 || store->data("list") == expected) << i;
  }
  Intruder intruder(file_);
  EXPECT_LT(intruder.run("SELECT count(*) FROM segment"), 300) << "a write for each would be 2000";
  store.reset();
  EXPECT_EQ(open()->data("list"), expected);
  intruder.run(
      "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 1099) INSERT INTO segment(key, "
      "offset, bytes) SELECT 'list', i + " +
      std::to_string(expected.size()) + ", x'78' FROM n RETURNING 1");
  EXPECT_EQ(open()->data("list"), expected + std::string(1100, 'x'));
  EXPECT_EQ(intruder.run("SELECT count(*) FROM segment"), 2);
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

TEST_F(SqliteUserDefaultsTest, whatWasWrittenSurvivesAKill) {
  const auto writeAndDie = [this] {
    const auto store = open();
    static_cast<void>(store->set("list", Data{"[1]"}) || store->replaceDataTail("list", 2, ",2]"));
    ::raise(SIGKILL);
  };
  EXPECT_EXIT(writeAndDie(), testing::KilledBySignal(SIGKILL), "");
  EXPECT_EQ(open()->data("list"), "[1,2]");
}

}  // namespace
}  // namespace quillmar::platform
