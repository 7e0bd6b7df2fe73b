#include "quillmar/platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <set>

#include "Platform/Sqlite/SqliteUserDefaultsProvider.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/FaultyStores.h"
#include "support/TemporaryFolder.h"
#include "support/ThroughC.h"

namespace quillmar::platform {
#ifdef QUILLMAR_FOUNDATION  // built once more for the adapter of Apple systems
std::shared_ptr<UserDefaultsProvider> openFoundation(const std::string& folder);
constexpr const char* adapters[] = {"Foundation"};
#else
static std::shared_ptr<UserDefaultsProvider> openFoundation(const std::string&) {
  return nullptr;
}
constexpr const char* adapters[] = {"InMemory", "Sqlite", "Minimal", "C"};
#endif

namespace {

using Value = PropertyListValue;
using Data = Value::Data;
using std::chrono::nanoseconds;

class UserDefaultsContract : public testing::TestWithParam<const char*> {
 protected:
  UserDefaultsContract() { reopen(); }

  /// Reads everything from the disk again if the adapter keeps it there.
  void reopen() {
    if (kind_ == "Sqlite") {
      provider_ = std::make_shared<SqliteUserDefaultsProvider>(folder_ / "a/b",
                                                               [](std::string_view text) { ADD_FAILURE() << text; });
    }
    if (kind_ == "C") {
      provider_ = test::throughC(stored_);
    }
    if (kind_ == "Foundation") {
      provider_ = openFoundation(folder_.path());
    }
    store_ = provider_->openSuite("suite");
    if (kind_ == "Minimal") {
      store_ = std::make_shared<test::MinimalUserDefaults>(store_);
    }
  }

  const std::string kind_ = GetParam();
  test::TemporaryFolder folder_;
  const std::shared_ptr<UserDefaultsProvider> stored_ = std::make_shared<simulated::InMemoryUserDefaultsProvider>();
  std::shared_ptr<UserDefaultsProvider> provider_ = stored_;
  std::shared_ptr<UserDefaults> store_;
};

INSTANTIATE_TEST_SUITE_P(Adapters, UserDefaultsContract, testing::ValuesIn(adapters));

TEST_P(UserDefaultsContract, everyTypeComesBackAsItWas) {
  const std::string oddBytes("\0\xff\xfe\x80'\"%s\0", 9);
  const Value::Date date(std::chrono::floor<Value::Date::duration>(nanoseconds(1'795'000'000'123'456'789)));
  const std::map<std::string, Value> values{
      {"false", false},
      {"integer", std::numeric_limits<std::int64_t>::min()},
      {"double", -0.1},
      {"text", std::string("a\0b \xe2\x82\xac", 7)},
      {"data", Data{oddBytes}},
      {"empty data", Data{}},
      {"large data", Data{std::string(1'000'000, '\xfe')}},
      {"early date", Value::Date(Value::Date::duration(-1))},
      {"array", Value::Array{true, Value::Array{}, Data{oddBytes}, std::int64_t{-1}}},
      {"dictionary", Value::Dictionary{{"", date}, {oddBytes, Value::Dictionary{}}, {"array", Value::Array{"x"}}}},
      {"", "the empty key"},
      {kind_ == "C" ? oddBytes.substr(1, 7) : oddBytes, "a key of odd bytes"},  // a zero would end it in C
  };
  for (const auto& [key, value] : values) {
    ASSERT_FALSE(store_->set(key, "to be replaced")) << key;
    ASSERT_FALSE(store_->set(key, value)) << key;
  }
  ASSERT_FALSE(store_->set("removed", Data{"data"}));
  EXPECT_FALSE(store_->remove("removed"));
  EXPECT_FALSE(store_->remove("absent"));
  for (int round = 0; round < 2; ++round) {
    for (const auto& [key, value] : values) {
      EXPECT_TRUE(store_->object(key) == value) << key << ", round " << round;
    }
    EXPECT_EQ(store_->object("removed"), std::nullopt);
    EXPECT_EQ(store_->string("data"), std::nullopt) << "data is not text";
    reopen();
  }
}

TEST_P(UserDefaultsContract, tailsAreReplacedInDataThatIsLongEnoughTogetherOrNotAtAll) {
  for (const auto& [key, value] :
       {std::pair<const char*, Value>("text", "text"), {"a", Data{"a1"}}, {"list", Data{"old"}}}) {
    ASSERT_FALSE(store_->set(key, value));
  }
  const std::pair<std::size_t, std::string> tails[] = {{0, ""}, {0, "[1]"}, {2, std::string(",\0]", 3)}, {4, ",3]"}};
  for (const auto& [keep, tail] : tails) {
    ASSERT_FALSE(store_->replaceDataTail("list", keep, tail));
  }
  ASSERT_FALSE(store_->replaceDataTails({{"a", 1, "2"}, {"list", 5, std::string("\0]", 2)}}));
  ASSERT_FALSE(store_->replaceDataTails({}));
  const auto revision = store_->revision("list");
  const std::pair<const char*, std::size_t> refused[] = {{"list", 8}, {"text", 0}, {"absent", 0}};
  for (const auto& [key, keep] : refused) {
    EXPECT_EQ(store_->replaceDataTail(key, keep, "x"), std::errc::invalid_argument) << key;
    EXPECT_EQ(store_->replaceDataTails({{"a", 2, "3"}, {key, keep, "x"}}), std::errc::invalid_argument) << key;
  }
  EXPECT_EQ(store_->revision("list"), revision);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(store_->data("a"), kind_ == "Minimal" ? "a23" : "a2")
        << "one after the other in a store that has no more";
    EXPECT_EQ(store_->data("list"), std::string("[1,\0,\0]", 7));
    EXPECT_EQ(store_->dataTail("list", 4), std::string(",\0]", 3));
    EXPECT_EQ(store_->dataTail("list", 7), "");
    for (const auto& [key, skip] : refused) {
      EXPECT_EQ(store_->dataTail(key, skip), std::nullopt) << key;
    }
    EXPECT_EQ(store_->string("text"), "text");
    EXPECT_EQ(store_->object("absent"), std::nullopt);
    reopen();
  }
}

TEST_P(UserDefaultsContract, revisionIsANewOneAfterEachChange) {
  const auto other = store_->revision("other");
  const std::function<std::error_code()> changes[] = {
      [&] { return store_->set("key", Data{"a"}); }, [&] { return store_->set("key", Data{"a"}); },
      [&] { return store_->replaceDataTail("key", 1, "b"); }, [&] { return store_->remove("key"); },
      [&] { return store_->set("key", "text"); }};
  std::set<std::optional<std::uint64_t>> seen{store_->revision("key")};
  for (const auto& change : changes) {
    ASSERT_FALSE(change());
    seen.insert(store_->revision("key"));
    EXPECT_TRUE(seen.contains(store_->revision("key"))) << "reading is no change";
  }
  EXPECT_EQ(seen.size(), kind_ == "Minimal" ? 1U : std::size(changes) + 1);
  EXPECT_EQ(seen.contains(std::nullopt), kind_ == "Minimal" || kind_ == "Foundation") << "or the text there";
  EXPECT_EQ(store_->revision("other"), other);
}

TEST_P(UserDefaultsContract, suitesDoNotMix) {
  ASSERT_FALSE(provider_->openSuite("other/../suite")->set("key", "other"));
  ASSERT_FALSE(provider_->standard()->set("key", "standard"));
  EXPECT_EQ(store_->object("key"), std::nullopt);
  ASSERT_FALSE(store_->set("key", "suite"));
  EXPECT_EQ(provider_->openSuite("suite")->string("key"), "suite");
  EXPECT_EQ(provider_->openSuite("other/../suite")->string("key"), "other");
  EXPECT_EQ(provider_->standard()->string("key"), "standard");
}

}  // namespace
}  // namespace quillmar::platform
