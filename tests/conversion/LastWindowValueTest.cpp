#include "Conversion/LastWindowValue.h"

#include <gtest/gtest.h>

#include "Conversion/ConversionValueResolver.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"

using namespace quillmar;
using platform::PropertyListValue;
using Value = ConversionValues::ConversionValue;

namespace {

const LastWindowValue whole{"k", 42, CoarseValue::medium, true, {"a", "b"}, 0.5, 9.0};
const LastWindowValue least{"", -1, {}, false, {}, {}, {}};
constexpr const char* wholeJson = R"({"key":"k","fineValue":42,"coarseValue":"medium","lockWindow":true,)"
                                  R"("completedEvents":["a","b"],"revenueMin":0.5,"revenueMax":9})";

TEST(LastWindowValue, isTheSameInItsDictionaryAndItsJson) {
  EXPECT_EQ(LastWindowValue::decode(JsonReader(parseJson(wholeJson))), whole);
  EXPECT_EQ(LastWindowValue::fromDictionary(whole.toDictionary()), whole);
  EXPECT_EQ(LastWindowValue::fromDictionary(least.toDictionary()), least);
  EXPECT_EQ(least.toDictionary().size(), 4u) << "what is absent is left out";
  PropertyListValue::Dictionary integers = whole.toDictionary();
  integers.insert_or_assign("revenueMax", std::int64_t{9});
  EXPECT_EQ(LastWindowValue::fromDictionary(integers), whole) << "a store may turn 9.0 into 9";
}

TEST(LastWindowValue, dictionaryMustHaveTheRequiredEntriesInTheirTypes) {
  for (const auto& [key, entry] : whole.toDictionary()) {
    PropertyListValue::Dictionary dictionary = whole.toDictionary();
    dictionary.erase(key);
    const auto without = LastWindowValue::fromDictionary(dictionary);
    dictionary.emplace(key, PropertyListValue::Array{"a", true});  // wrong for every one of them
    EXPECT_EQ(LastWindowValue::fromDictionary(dictionary), without) << key;
    const bool optional = key == "coarseValue" || key == "revenueMin" || key == "revenueMax";
    EXPECT_EQ(without.has_value(), optional) << key;
  }
  PropertyListValue::Dictionary unknown = whole.toDictionary();
  unknown.insert_or_assign("coarseValue", "HIGH");
  EXPECT_FALSE(LastWindowValue::fromDictionary(unknown)->coarseValue);
}

TEST(ConversionValueResolver, fillsOnlyWhatIsMissingFromTheLastUpdate) {
  const ConversionValues::FineValue fine7{7, {{"a", {}, {}}}}, filledFine{42, {}};
  const ConversionValues::CoarseValueData low{CoarseValue::low, {{"b", 1.0, 2.0}}}, filled{CoarseValue::medium, {}};
  PropertyListValue::Dictionary all = whole.toDictionary(), withoutCoarse = all, withoutLock = all;
  withoutCoarse.erase("coarseValue");
  withoutLock.erase("lockWindow");
  using WindowValue = ConversionValues::WindowValue;
  const std::tuple<const char*, std::optional<PropertyListValue>, WindowValue, WindowValue> rows[] = {
      {"fine", all, {{}, low}, {filledFine, low}},
      {"coarse", all, {fine7, {}}, {fine7, filled}},
      {"no coarse", withoutCoarse, {fine7, {}}, {fine7, {}}},
      {"unreadable", withoutLock, {{}, low}, {{}, low}},
      {"nothing", {}, {fine7, {}}, {fine7, {}}}};
  for (const auto& [what, last, given, resolved] : rows) {
    const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
    if (last) {
      store->set("LastWindowValue", *last);
    }
    ConversionValueResolver resolver(store);
    const Value value{"rule", {{"window0", {}}, {"window1", given}}};
    const Value expected{"rule", {{"window0", {}}, {"window1", resolved}}};
    EXPECT_EQ(resolver.resolveConversionValue(value, Window::window1), expected) << what;
    EXPECT_EQ(resolver.resolveConversionValue(value, Window::window2), value) << "it has none there";
  }
}

}  // namespace
