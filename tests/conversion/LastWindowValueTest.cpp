#include "Conversion/LastWindowValue.h"

#include <gmock/gmock.h>

#include "Conversion/ConversionValueResolver.h"
#include "Json/CodingError.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/LogCapture.h"

using namespace quillmar;
using platform::PropertyListValue;
using testing::ElementsAre;

namespace {

const LastWindowValue whole{"k", 42, CoarseValue::medium, true, {"a", "b"}, 0.5, 9.0};
const LastWindowValue least{"", -1, {}, false, {}, {}, {}};

TEST(LastWindowValue, isTheSameAfterItsDictionaryAndItsJson) {
  for (const LastWindowValue& value : {whole, least}) {
    EXPECT_EQ(LastWindowValue::fromDictionary(value.toDictionary()), value);
    JsonWriter writer;
    value.encode(writer);
    const boost::json::value document = parseJson(writer.take());
    EXPECT_EQ(LastWindowValue::decode(JsonReader(document)), value);
  }
  LastWindowValue unlocked = least;
  unlocked.lockWindow.reset();
  EXPECT_EQ(unlocked.toDictionary().count("lockWindow"), 0u);
  EXPECT_FALSE(LastWindowValue::fromDictionary(unlocked.toDictionary())) << "required when it is read";
  EXPECT_EQ(least.toDictionary().size(), 4u) << "what is absent is left out";
  const boost::json::value unknown =
      parseJson(R"({"key":"k","fineValue":1,"coarseValue":"HIGH","completedEvents":[]})");
  EXPECT_THROW(LastWindowValue::decode(JsonReader(unknown)), DecodingError);
}

TEST(LastWindowValue, dictionaryMustHaveTheRequiredEntriesInTheirTypes) {
  const struct {
    const char* key;
    std::optional<PropertyListValue> entry;
    bool readable;
  } rows[] = {{"key", {}, false},
              {"key", std::int64_t{1}, false},
              {"fineValue", {}, false},
              {"fineValue", "42", false},
              {"lockWindow", {}, false},
              {"lockWindow", "true", false},
              {"completedEvents", {}, false},
              {"completedEvents", "a", false},
              {"completedEvents", PropertyListValue::Array{"a", true}, false},
              {"coarseValue", {}, true},
              {"coarseValue", "HIGH", true},
              {"coarseValue", 1.0, true},
              {"revenueMin", {}, true},
              {"revenueMin", "5", true},
              {"extra", true, true}};
  for (const auto& row : rows) {
    PropertyListValue::Dictionary dictionary = whole.toDictionary();
    dictionary.erase(row.key);
    if (row.entry) {
      dictionary.emplace(row.key, *row.entry);
    }
    const auto value = LastWindowValue::fromDictionary(dictionary);
    ASSERT_EQ(value.has_value(), row.readable) << row.key << " row " << &row - rows;
    if (value) {
      EXPECT_EQ(value->coarseValue.has_value(), std::string(row.key) != "coarseValue");
      EXPECT_EQ(value->revenueMin.has_value(), std::string(row.key) != "revenueMin");
    }
  }
  PropertyListValue::Dictionary integers = whole.toDictionary();
  integers.insert_or_assign("revenueMax", std::int64_t{9});
  EXPECT_EQ(LastWindowValue::fromDictionary(integers), whole) << "a store may turn 9.0 into 9";
}

using Value = ConversionValues::ConversionValue;
const ConversionValues::FineValue fine7{7, {{"a", {}, {}}}};
const ConversionValues::CoarseValueData low{CoarseValue::low, {{"b", 1.0, 2.0}}};

TEST(ConversionValueResolver, fillsOnlyWhatIsMissingFromTheLastUpdate) {
  const ConversionValues::FineValue filledFine{42, {}};
  const ConversionValues::CoarseValueData filledCoarse{CoarseValue::medium, {}};
  LastWindowValue withoutCoarse = whole;
  withoutCoarse.coarseValue.reset();
  PropertyListValue::Dictionary withoutLock = whole.toDictionary();
  withoutLock.erase("lockWindow");
  const struct {
    std::optional<PropertyListValue> last;
    ConversionValues::WindowValue value, expected;
    const char* text;
  } rows[] = {
      {whole.toDictionary(), {{}, low}, {filledFine, low}, "fine=42, coarse=low"},
      {whole.toDictionary(), {fine7, {}}, {fine7, filledCoarse}, "fine=7, coarse=medium"},
      {whole.toDictionary(), {{}, {}}, {filledFine, filledCoarse}, "fine=42, coarse=medium"},
      {whole.toDictionary(), {fine7, low}, {fine7, low}, "fine=7, coarse=low"},
      {withoutCoarse.toDictionary(), {fine7, {}}, {fine7, {}}, "fine=7, coarse=nil"},
      {withoutLock, {{}, low}, {{}, low}, "fine=0, coarse=low"},
      {"not a dictionary", {{}, low}, {{}, low}, "fine=0, coarse=low"},
      {std::nullopt, {fine7, {}}, {fine7, {}}, "fine=7, coarse=nil"},
  };
  for (const auto& row : rows) {
    const test::LogCapture log;
    const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
    if (row.last) {
      store->set("LastWindowValue", *row.last);
    }
    const Value value{"rule", {{"window0", {}}, {"window1", row.value}}};
    const Value expected{"rule", {{"window0", {}}, {"window1", row.expected}}};
    EXPECT_EQ(ConversionValueResolver(store).resolveConversionValue(value, Window::window1), expected) << row.text;
    EXPECT_THAT(log.messages(), ElementsAre("debug: ConversionValueResolver - Resolved conversion value: " +
                                            std::string(row.text) + ", key=rule"));
    EXPECT_EQ(store->object("LastWindowValue"), row.last) << "it never writes";
  }
}

TEST(ConversionValueResolver, valueWithoutTheWindowStaysAsItIs) {
  const test::LogCapture log;
  const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
  store->set("LastWindowValue", whole.toDictionary());
  const Value value{"rule", {{"window1", {}}}};
  EXPECT_EQ(ConversionValueResolver(store).resolveConversionValue(value, Window::window2), value);
  EXPECT_THAT(log.messages(), ElementsAre("error: ConversionValueResolver - No window value found for window window2"));
}

}  // namespace
