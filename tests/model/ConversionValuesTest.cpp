#include "Model/ConversionValues.h"

#include <gmock/gmock.h>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Model/ConfigResponse.h"

using namespace quillmar;
using Value = ConversionValues::ConversionValue;
using WindowValue = ConversionValues::WindowValue;
using Lock = ConversionValues::LockWindowConfiguration;
using LockType = ConversionValues::LockWindowType;

namespace {

ConversionValues decode(std::string_view text) {
  const boost::json::value document = parseJson(text);
  return ConversionValues::decode(JsonReader(document));
}

template <class Document>
std::string encode(const Document& document) {
  JsonWriter writer;
  document.encode(writer);
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

TEST(ConversionValues, readsTheDocument) {
  const ConversionValues document = decode(sample);
  ASSERT_EQ(document.values.size(), 2u);
  const Value& purchase = document.values[0];
  EXPECT_EQ(purchase.key, "Purchase");
  const ConversionValues::FineValue fine{63, {{"subscription", {}, {}}, {"p", 5.0, {}}}};
  const ConversionValues::CoarseValueData coarse{CoarseValue::high, {{"p", 0.1, 9.0}}};
  EXPECT_EQ(purchase.windowsDict(), (std::map<Window, WindowValue>{{Window::window1, {fine, coarse}}}))
      << "unknown windows are dropped";
  EXPECT_EQ(purchase.windows.count("window3"), 1u) << "and kept in the document";
  EXPECT_EQ(document.values[1].windowValue(Window::window1), nullptr);
  const std::map<Window, Lock> locks{{Window::window1, {LockType::high, {}}}, {Window::window2, {LockType::time, 168}}};
  EXPECT_EQ(document.lockWindowConfigurations(), locks);
  const ConversionValues rebuilt(document.values, locks);
  EXPECT_EQ(rebuilt.lockWindowConfigurations(), locks);
}

TEST(ConversionValues, writtenDocumentReadsBackEqualWithoutNulls) {
  const ConversionValues document = decode(sample);
  const std::string text = encode(document);
  EXPECT_EQ(decode(text), document);
  EXPECT_EQ(text.find("null"), std::string::npos);
  EXPECT_EQ(encode(decode(withWindow("{}"))), withWindow("{}")) << "neither fine nor coarse";
}

TEST(ConversionValues, oneFaultRefusesTheWholeDocument) {
  const std::string documents[] = {
      R"({"values":[]})",
      R"({"lockWindows":{}})",
      R"({"values":null,"lockWindows":{}})",
      R"({"values":{},"lockWindows":{}})",
      R"({"values":[],"lockWindows":{"window1":{"type":"HIGH"}}})",
      R"({"values":[],"lockWindows":{"window9":{}}})",
      R"({"values":[],"lockWindows":{"window1":{"type":"time","value":1.5}}})",
      R"({"values":[{"windows":{}}],"lockWindows":{}})",
      R"({"values":[{"key":"k"}],"lockWindows":{}})",
      withWindow("null"),
      withWindow(R"({"fineValue":{"value":"63","requiredEvents":[]}})"),
      withWindow(R"({"fineValue":{"value":63.5,"requiredEvents":[]}})"),
      withWindow(R"({"fineValue":{"value":63}})"),
      withWindow(R"({"fineValue":{"value":63,"requiredEvents":[{}]}})"),
      withWindow(R"({"fineValue":{"value":63,"requiredEvents":[{"name":"p","revenueMin":"5"}]}})"),
      withWindow(R"({"coarseValue":{"value":"HIGH","requiredEvents":[]}})"),
      withWindow(R"({"coarseValue":{"value":"none","requiredEvents":[]}})"),
  };
  for (const std::string& document : documents) {
    EXPECT_THROW(decode(document), DecodingError) << document;
  }
  EXPECT_EQ(decode(R"({"values":[],"lockWindows":{}})"), ConversionValues());
}

WindowValue windowValue(std::optional<int> fine, std::optional<CoarseValue> coarse) {
  WindowValue value;
  if (fine) {
    value.fineValue = {*fine, {}};
  }
  if (coarse) {
    value.coarseValue = {*coarse, {}};
  }
  return value;
}

TEST(ConversionValues, ranksByFineThenByCoarseWithNoneOnTop) {
  const std::optional<CoarseValue> none;
  const auto low = CoarseValue::low;
  const auto medium = CoarseValue::medium;
  const auto high = CoarseValue::high;
  const struct {
    WindowValue mine, theirs;
    int expected;
  } rows[] = {
      {windowValue(10, high), windowValue(11, low), -1},
      {windowValue(12, low), windowValue(11, high), 1},
      {windowValue(10, none), windowValue(10, high), 1},
      {windowValue(10, low), windowValue(10, medium), -1},
      {windowValue(10, medium), windowValue(10, high), -1},
      {windowValue(10, high), windowValue(10, high), 0},
      {windowValue({}, low), windowValue(63, high), -1},
      {windowValue(63, low), windowValue({}, high), -1},
      {windowValue({}, none), windowValue({}, none), 0},
      {windowValue({}, high), windowValue({}, none), -1},
      {windowValue(std::numeric_limits<int>::min(), low), windowValue(std::numeric_limits<int>::max(), low), -1},
  };
  for (const auto& row : rows) {
    const Value mine{"a", {{"window1", row.mine}, {"window0", row.mine}}};
    const Value theirs{"b", {{"window1", row.theirs}}};
    const auto label = &row - rows;
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window1), row.expected) << "row " << label;
    EXPECT_EQ(theirs.compareWindowValue(mine, Window::window1), -row.expected) << "row " << label;
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window0), 0) << "only one has a value there";
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window2), 0);
  }
}

TEST(ConversionValues, rawValuesAndPlatformValuesBelongTogether) {
  for (const auto* name : {"window0", "window1", "window2"}) {
    EXPECT_EQ(rawValue(windowFromRawValue(name).value()), name);
  }
  for (const auto* name : {"", "window", "window3", "Window1", "window1 "}) {
    EXPECT_FALSE(windowFromRawValue(name)) << name;
  }
  const struct {
    const char* name;
    CoarseValue value;
    platform::SKAdNetworkCoarseConversionValue storeKit;
    platform::AttributionKitCoarseValue attributionKit;
  } rows[] = {{"high", CoarseValue::high, platform::SKAdNetworkCoarseConversionValue::high,
               platform::AttributionKitCoarseValue::high},
              {"medium", CoarseValue::medium, platform::SKAdNetworkCoarseConversionValue::medium,
               platform::AttributionKitCoarseValue::medium},
              {"low", CoarseValue::low, platform::SKAdNetworkCoarseConversionValue::low,
               platform::AttributionKitCoarseValue::low}};
  for (const auto& row : rows) {
    EXPECT_EQ(coarseValueFromRawValue(row.name), row.value);
    EXPECT_EQ(rawValue(row.value), row.name);
    EXPECT_EQ(toSKAdNetworkCoarseConversionValue(row.value), row.storeKit);
    EXPECT_EQ(toAttributionKitCoarseValue(row.value), row.attributionKit);
  }
  EXPECT_FALSE(coarseValueFromRawValue("High"));
  EXPECT_EQ(lockWindowTypeFromRawValue("time"), LockType::time);
  EXPECT_FALSE(lockWindowTypeFromRawValue("TIME"));
}

TEST(ConversionValues, descriptionShowsEveryField) {
  EXPECT_EQ(description(ConversionValues()), "ConversionValues(values: [], lockWindows: [:])");
  const std::string text = description(decode(sample));
  for (const char* part :
       {"key: \"Purchase\"", "value: 63", "name: \"p\", revenueMin: 5, revenueMax: nil", "value: high",
        "revenueMin: 0.1, revenueMax: 9", "key: \"Session\"", "type: time, value: 168"}) {
    EXPECT_THAT(text, testing::HasSubstr(part));
  }
}

TEST(ConfigResponse, mixesTheKeyStylesAndNeedsAllOfThem) {
  const std::string whole =
      R"({"app_id":"42","sdk_enabled":false,"values":[],"lockWindows":{"window1":{"type":"high"}}})";
  const boost::json::value document = parseJson(whole);
  const ConfigResponse response = ConfigResponse::decode(JsonReader(document));
  EXPECT_EQ(response.appId, "42");
  EXPECT_FALSE(response.sdkEnabled);
  EXPECT_EQ(response.conversionValues(), decode(whole));
  EXPECT_EQ(encode(response), whole);
  for (const char* broken : {R"({"app_id":42,"sdk_enabled":true,"values":[],"lockWindows":{}})",
                             R"({"app_id":"42","sdk_enabled":1,"values":[],"lockWindows":{}})",
                             R"({"appId":"42","sdkEnabled":true,"values":[],"lockWindows":{}})",
                             R"({"app_id":"42","sdk_enabled":true,"values":[]})"}) {
    const boost::json::value value = parseJson(broken);
    EXPECT_THROW(ConfigResponse::decode(JsonReader(value)), DecodingError) << broken;
  }
}

}  // namespace
