#include "Model/ConversionValuesCoding.h"

#include <gtest/gtest.h>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

using namespace quillmar;
using Value = ConversionValues::ConversionValue;
using WindowValue = ConversionValues::WindowValue;
using Lock = ConversionValues::LockWindowConfiguration;
using LockType = ConversionValues::LockWindowType;

namespace {

ConversionValues decode(std::string_view text) {
  return Codable<ConversionValues>::decode(JsonReader(parseJson(text)));
}

std::string encode(const ConversionValues& document) {
  JsonWriter writer;
  Codable<ConversionValues>::encode(writer, document);
  return writer.take();
}

/// A document with one value that has one window value.
std::string withWindow(const std::string& windowValue) {
  return R"({"values":[{"key":"k","windows":{"window1":)" + windowValue + R"(}}],"lockWindows":{}})";
}

constexpr const char* sample = R"({
  "values": [
    {"key": "Purchase", "extra": [1], "windows": {
      "window1": {"fineValue": {"value": 63.0, "requiredEvents":
                     [{"name": "subscription", "revenueMin": null, "revenueMax": null}, {"name": "p", "revenueMin": 5}]},
                  "coarseValue": {"value": "high", "requiredEvents": [{"name": "p", "revenueMin": 0.1, "revenueMax": 9}]}},
      "window3": {}}},
    {"key": "Session", "windows": {}}],
  "lockWindows": {"window1": {"type": "high"}, "window2": {"type": "time", "value": 168}, "window9": {"type": "time"}}})";

TEST(ConversionValues, readsTheDocumentAndWritesItWithoutNulls) {
  const ConversionValues document = decode(sample);
  ASSERT_EQ(document.values.size(), 2u);
  const Value& purchase = document.values[0];
  const ConversionValues::FineValue fine{63, {{"subscription", {}, {}}, {"p", 5.0, {}}}};
  const ConversionValues::CoarseValueData coarse{CoarseValue::high, {{"p", 0.1, 9.0}}};
  EXPECT_EQ(purchase.windowsDict(), (std::map<Window, WindowValue>{{Window::window1, {fine, coarse}}}))
      << "unknown windows are dropped";
  EXPECT_EQ(purchase.windows.count("window3"), 1u) << "and kept in the document";
  const std::map<Window, Lock> locks{{Window::window1, {LockType::high, {}}}, {Window::window2, {LockType::time, 168}}};
  EXPECT_EQ(document.lockWindowConfigurations(), locks);
  EXPECT_EQ(ConversionValues(document.values, locks).lockWindowConfigurations(), locks);
  const std::string text = encode(document);
  EXPECT_EQ(decode(text), document);
  EXPECT_EQ(text.find("null"), std::string::npos);
  EXPECT_EQ(encode(decode(withWindow("{}"))), withWindow("{}")) << "neither fine nor coarse";
}

TEST(ConversionValues, oneFaultRefusesTheWholeDocument) {
  const auto withLock = [](const std::string& lock) {
    return R"({"values":[],"lockWindows":{"window9":)" + lock + "}}";
  };
  for (const std::string& document :
       {std::string(R"({"values":[]})"), std::string(R"({"values":null,"lockWindows":{}})"),
        withLock(R"({"type":"HIGH"})"), withLock("{}"), withLock(R"({"type":"time","value":1.5})"),
        std::string(R"({"values":[{"windows":{}}],"lockWindows":{}})"), withWindow("null"),
        withWindow(R"({"fineValue":{"value":63.5,"requiredEvents":[]}})"), withWindow(R"({"fineValue":{"value":63}})"),
        withWindow(R"({"fineValue":{"value":63,"requiredEvents":[{"name":"p","revenueMin":"5"}]}})"),
        withWindow(R"({"coarseValue":{"value":"HIGH","requiredEvents":[]}})")}) {
    EXPECT_THROW(decode(document), DecodingError) << document;
  }
}

// That both sides agree: fuzz/ConfigurationDocument.cpp.
TEST(ConversionValues, ranksByFineThenByCoarseWithNoneOnTop) {
  const auto ranked = [](std::optional<std::int64_t> fine, std::optional<CoarseValue> coarse) {
    return WindowValue{fine ? std::optional(ConversionValues::FineValue{*fine, {}}) : std::nullopt,
                       coarse ? std::optional(ConversionValues::CoarseValueData{*coarse, {}}) : std::nullopt};
  };
  const auto low = CoarseValue::low, medium = CoarseValue::medium, high = CoarseValue::high;
  const WindowValue ascending[] = {ranked(-1, {}),   ranked(10, low), ranked(10, medium),
                                   ranked(10, high), ranked(10, {}),  ranked(11, low)};
  const auto compared = [](const WindowValue& mine, const WindowValue& theirs) {
    return Value{"a", {{"window1", mine}}}.compareWindowValue(Value{"b", {{"window1", theirs}, {"window0", {}}}},
                                                              Window::window1);
  };
  for (const auto& mine : ascending) {
    for (const auto& theirs : ascending) {
      EXPECT_EQ(compared(mine, theirs), (&mine > &theirs) - (&mine < &theirs))
          << &mine - ascending << &theirs - ascending;
    }
  }
  EXPECT_EQ(compared(ranked({}, low), ranked(63, high)), -1) << "one fine value does not count";
  const Value one{"a", {{"window1", ascending[0]}}}, other{"b", {{"window0", ascending[1]}}};
  EXPECT_EQ(one.compareWindowValue(other, Window::window0) + one.compareWindowValue(other, Window::window1), 0)
      << "only one has a value there";
}

}  // namespace
