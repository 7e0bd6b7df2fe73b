#include "quillmar/platform/UserDefaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "Platform/Posix/SqliteUserDefaultsProvider.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

using Value = PropertyListValue;
using Data = Value::Data;
using std::chrono::nanoseconds;

const std::error_code invalidArgument = std::make_error_code(std::errc::invalid_argument);

/// The minimum that a host's own store implements; the rest is the interface's standard implementation.
class MinimalUserDefaults : public UserDefaults {
 public:
  std::optional<Value> object(std::string_view key) const override { return store_.object(key); }
  std::error_code set(std::string_view key, Value value) override { return store_.set(key, std::move(value)); }
  std::error_code remove(std::string_view key) override { return store_.remove(key); }

 private:
  simulated::InMemoryUserDefaults store_;
};

class MinimalProvider : public UserDefaultsProvider {
 public:
  std::shared_ptr<UserDefaults> openSuite(const std::string& name) override {
    auto& suite = suites_[name];
    suite = suite ? suite : std::make_shared<MinimalUserDefaults>();
    return suite;
  }
  std::shared_ptr<UserDefaults> standard() override { return openSuite(""); }

 private:
  std::map<std::string, std::shared_ptr<UserDefaults>> suites_;
};

struct Adapter {
  const char* name;
  std::function<std::shared_ptr<UserDefaultsProvider>(const std::string& folder)> open;
  bool keepsFiles = false;
  bool hasRevisions = true;
};

class UserDefaultsContract : public testing::TestWithParam<Adapter> {
 protected:
  void SetUp() override { reopen(); }

  void reopen() {
    store_.reset();
    provider_.reset();
    provider_ = GetParam().open(folder_.path());
    store_ = provider_->openSuite("suite");
    ASSERT_TRUE(store_);
  }

  test::TemporaryFolder folder_;
  std::shared_ptr<UserDefaultsProvider> provider_;
  std::shared_ptr<UserDefaults> store_;
};

TEST_P(UserDefaultsContract, everyTypeComesBackAsItWas) {
  const std::string oddBytes("\0\xff\xfe\x80'\"%s\0", 9);
  std::string large(std::size_t{1} << 20, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) {
    large[i] = static_cast<char>(i * i >> 3);
  }
  const Value::Date date(nanoseconds(1'795'000'000'123'456'789));
  Value nested(7.5);
  for (int depth = 0; depth < 50; ++depth) {
    nested = Value(Value::Array{nested});
  }
  const std::map<std::string, Value> values{
      {"true", true},
      {"false", false},
      {"integer", std::numeric_limits<std::int64_t>::min()},
      {"double", -0.1},
      {"infinity", std::numeric_limits<double>::infinity()},
      {"text", std::string("a\0b \xe2\x82\xac", 7)},
      {"empty text", ""},
      {"data", Data{oddBytes}},
      {"empty data", Data{}},
      {"large data", Data{large}},
      {"large text", large},
      {"date", date},
      {"early date", Value::Date(nanoseconds(-1))},
      {"array", Value::Array{true, Value::Array{}, Data{oddBytes}, std::int64_t{-1}}},
      {"dictionary", Value::Dictionary{{"", date}, {oddBytes, Value::Dictionary{}}, {"array", Value::Array{"x"}}}},
      {"deep", nested},
      {"", "the empty key"},
      {oddBytes, "a key of odd bytes"},
  };
  for (const auto& [key, value] : values) {
    ASSERT_FALSE(store_->set(key, "to be replaced")) << key;
    ASSERT_FALSE(store_->set(key, value)) << key;
  }
  for (int round = 0; round < (GetParam().keepsFiles ? 2 : 1); ++round) {
    for (const auto& [key, value] : values) {
      EXPECT_TRUE(store_->object(key) == value) << key << ", round " << round;
    }
    EXPECT_EQ(store_->object("tru"), std::nullopt);
    EXPECT_EQ(store_->date("date"), date);
    EXPECT_EQ(store_->string("data"), std::nullopt) << "data is not text";
    if (GetParam().keepsFiles) {
      reopen();
    }
  }
}

TEST_P(UserDefaultsContract, booleansAreReadFromNumbersAndTexts) {
  const std::vector<std::pair<Value, bool>> rows{
      {true, true},   {false, false}, {std::int64_t{2}, true}, {0.0, false},      {0.5, true}, {"YES", true},
      {"true", true}, {"1", true},    {"yes", false},          {Data{"1"}, false}};
  for (std::size_t row = 0; row < rows.size(); ++row) {
    ASSERT_FALSE(store_->set("key", rows[row].first));
    EXPECT_EQ(store_->boolean("key"), rows[row].second) << "row " << row;
  }
  EXPECT_FALSE(store_->boolean("absent"));
}

TEST_P(UserDefaultsContract, tailOfDataIsReplaced) {
  ASSERT_FALSE(store_->set("list", Data{"[1]"}));
  ASSERT_FALSE(store_->set("other", Data{"other"}));
  ASSERT_FALSE(store_->replaceDataTail("list", 2, std::string_view(",\0]", 3)));
  ASSERT_FALSE(store_->replaceDataTail("list", 4, ",3]"));
  EXPECT_EQ(store_->data("list"), std::string("[1,\0,3]", 7));
  ASSERT_FALSE(store_->replaceDataTail("list", 1, ""));
  EXPECT_EQ(store_->data("list"), "[");
  ASSERT_FALSE(store_->replaceDataTail("list", 0, ""));
  EXPECT_EQ(store_->data("list"), "");
  ASSERT_FALSE(store_->replaceDataTail("list", 0, "[2]"));
  if (GetParam().keepsFiles) {
    reopen();
  }
  EXPECT_EQ(store_->data("list"), "[2]");
  EXPECT_EQ(store_->data("other"), "other");
}

TEST_P(UserDefaultsContract, tailIsReplacedOnlyInDataThatIsLongEnough) {
  ASSERT_FALSE(store_->set("text", "text"));
  ASSERT_FALSE(store_->set("data", Data{"data"}));
  const auto revision = store_->revision("data");
  EXPECT_EQ(store_->replaceDataTail("data", 5, "x"), invalidArgument);
  EXPECT_EQ(store_->replaceDataTail("text", 0, "x"), invalidArgument);
  EXPECT_EQ(store_->replaceDataTail("absent", 0, "x"), invalidArgument);
  EXPECT_EQ(store_->data("data"), "data");
  EXPECT_EQ(store_->string("text"), "text");
  EXPECT_EQ(store_->object("absent"), std::nullopt);
  EXPECT_EQ(store_->revision("data"), revision);
}

TEST_P(UserDefaultsContract, revisionIsANewOneAfterEachChange) {
  if (!GetParam().hasRevisions) {
    EXPECT_EQ(store_->revision("key"), std::nullopt);
    return;
  }
  ASSERT_FALSE(store_->set("other", true));
  std::vector<std::optional<std::uint64_t>> seen{store_->revision("key")};
  const std::function<std::error_code()> changes[] = {[&] { return store_->set("key", Data{"a"}); },
                                                      [&] { return store_->set("key", Data{"a"}); },
                                                      [&] { return store_->replaceDataTail("key", 1, "b"); },
                                                      [&] { return store_->remove("key"); },
                                                      [&] { return store_->set("key", "text"); },
                                                      [&] { return store_->remove("key"); },
                                                      [&] { return store_->set("key", Data{"a"}); }};
  const auto other = store_->revision("other");
  for (const auto& change : changes) {
    ASSERT_FALSE(change());
    const auto revision = store_->revision("key");
    ASSERT_TRUE(revision);
    EXPECT_THAT(seen, testing::Not(testing::Contains(revision)));
    seen.push_back(revision);
    EXPECT_EQ(store_->revision("key"), revision) << "reading is no change";
  }
  EXPECT_EQ(store_->revision("other"), other);
}

TEST_P(UserDefaultsContract, removedKeysStayAway) {
  ASSERT_FALSE(store_->set("text", "text"));
  ASSERT_FALSE(store_->set("data", Data{"data"}));
  ASSERT_FALSE(store_->replaceDataTail("data", 4, "more"));
  for (const char* key : {"text", "data", "absent", "text"}) {
    EXPECT_FALSE(store_->remove(key)) << key;
  }
  for (int round = 0; round < (GetParam().keepsFiles ? 2 : 1); ++round) {
    EXPECT_EQ(store_->object("text"), std::nullopt);
    EXPECT_EQ(store_->object("data"), std::nullopt);
    EXPECT_EQ(store_->replaceDataTail("data", 0, "x"), invalidArgument);
    if (GetParam().keepsFiles) {
      reopen();
    }
  }
}

TEST_P(UserDefaultsContract, suitesDoNotMix) {
  const auto other = provider_->openSuite("other/../suite");
  const auto standard = provider_->standard();
  ASSERT_TRUE(other && standard);
  ASSERT_FALSE(other->set("key", "other"));
  ASSERT_FALSE(standard->set("key", "standard"));
  EXPECT_EQ(store_->object("key"), std::nullopt);
  ASSERT_FALSE(store_->set("key", "suite"));
  EXPECT_EQ(provider_->openSuite("suite")->string("key"), "suite");
  EXPECT_EQ(provider_->openSuite("other/../suite")->string("key"), "other");
  EXPECT_EQ(provider_->standard()->string("key"), "standard");
}

TEST_P(UserDefaultsContract, threadsMayWriteAndReadAtOnce) {
  constexpr int rounds = 100;
  ASSERT_FALSE(store_->set("list", Data{}));
  ASSERT_FALSE(store_->set("toggled", Data{"data"}));
  std::vector<std::thread> threads;
  for (const std::string name : {"a", "b", "c"}) {
    threads.emplace_back([this, name] {
      for (std::int64_t i = 0; i < rounds; ++i) {
        EXPECT_FALSE(store_->set(name, i));
        EXPECT_TRUE(store_->object(name) == Value(i));
        const Value toggled = i % 2 == 0 ? Value(name) : Value(Data{"data"});
        EXPECT_FALSE(store_->set("toggled", toggled));
        EXPECT_TRUE(store_->object("toggled"));
      }
    });
  }
  threads.emplace_back([this] {
    for (std::size_t i = 0; i < rounds; ++i) {
      EXPECT_FALSE(store_->replaceDataTail("list", i, "x"));
      EXPECT_GE(store_->data("list").value_or("").size(), i + 1);
    }
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(store_->data("list"), std::string(rounds, 'x'));
  EXPECT_TRUE(store_->object("b") == Value(std::int64_t{rounds - 1}));
}

INSTANTIATE_TEST_SUITE_P(
    Adapters, UserDefaultsContract,
    testing::Values(
        Adapter{"InMemory",
                [](const std::string&) { return std::make_shared<simulated::InMemoryUserDefaultsProvider>(); }},
        Adapter{"Sqlite",
                [](const std::string& folder) {
                  return std::make_shared<SqliteUserDefaultsProvider>(
                      folder + "/a/b", [](std::string_view text) { ADD_FAILURE() << text; });
                },
                true},
        Adapter{"Minimal", [](const std::string&) { return std::make_shared<MinimalProvider>(); }, false, false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillmar::platform
