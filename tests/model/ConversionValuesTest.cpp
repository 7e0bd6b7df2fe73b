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

std::string encode(const auto& document) {
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

TEST(ConversionValues, readsTheDocumentAndWritesItWithoutNulls) {
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
  EXPECT_EQ(ConversionValues(document.values, locks).lockWindowConfigurations(), locks);
  const std::string text = encode(document);
  EXPECT_EQ(decode(text), document);
  EXPECT_EQ(text.find("null"), std::string::npos);
  EXPECT_EQ(encode(decode(withWindow("{}"))), withWindow("{}")) << "neither fine nor coarse";
  EXPECT_EQ(decode(R"({"values":[],"lockWindows":{}})"), ConversionValues());
}

TEST(ConversionValues, oneFaultRefusesTheWholeDocument) {
  for (const std::string& document :
       {std::string(R"({"values":[]})"), std::string(R"({"values":null,"lockWindows":{}})"),
        std::string(R"({"values":[],"lockWindows":{"window1":{"type":"HIGH"}}})"),
        std::string(R"({"values":[],"lockWindows":{"window9":{}}})"),
        std::string(R"({"values":[],"lockWindows":{"window1":{"type":"time","value":1.5}}})"),
        std::string(R"({"values":[{"windows":{}}],"lockWindows":{}})"), withWindow("null"),
        withWindow(R"({"fineValue":{"value":63.5,"requiredEvents":[]}})"), withWindow(R"({"fineValue":{"value":63}})"),
        withWindow(R"({"fineValue":{"value":63,"requiredEvents":[{"name":"p","revenueMin":"5"}]}})"),
        withWindow(R"({"coarseValue":{"value":"HIGH","requiredEvents":[]}})")}) {
    EXPECT_THROW(decode(document), DecodingError) << document;
  }
}

TEST(ConversionValues, ranksByFineThenByCoarseWithNoneOnTop) {
  using Rank = std::pair<std::optional<int>, std::optional<CoarseValue>>;
  const auto value = [](const Rank& rank) {
    WindowValue windowValue;
    if (rank.first) {
      windowValue.fineValue = {*rank.first, {}};
    }
    if (rank.second) {
      windowValue.coarseValue = {*rank.second, {}};
    }
    return windowValue;
  };
  const auto low = CoarseValue::low, medium = CoarseValue::medium, high = CoarseValue::high;
  using Limits = std::numeric_limits<int>;
  const struct {
    Rank mine, theirs;
    int expected;
  } rows[] = {{{10, high}, {11, low}, -1},   {{10, {}}, {10, high}, 1},
              {{10, low}, {10, medium}, -1}, {{10, medium}, {10, high}, -1},
              {{10, high}, {10, high}, 0},   {{{}, low}, {63, high}, -1},
              {{63, low}, {{}, high}, -1},   {{{}, {}}, {{}, {}}, 0},
              {{{}, high}, {{}, {}}, -1},    {{Limits::min(), low}, {Limits::max(), low}, -1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const Value mine{"a", {{"window1", value(row.mine)}, {"window0", value(row.mine)}}};
    const Value theirs{"b", {{"window1", value(row.theirs)}}};
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window1), row.expected);
    EXPECT_EQ(theirs.compareWindowValue(mine, Window::window1), -row.expected);
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window0), 0) << "only one has a value there";
    EXPECT_EQ(mine.compareWindowValue(theirs, Window::window2), 0);
  }
}

TEST(ConversionValues, platformValuesAndDescriptionsShowTheSame) {
  using StoreKit = platform::SKAdNetworkCoarseConversionValue;
  using AttributionKit = platform::AttributionKitCoarseValue;
  EXPECT_EQ(toSKAdNetworkCoarseConversionValue(CoarseValue::high), StoreKit::high);
  EXPECT_EQ(toSKAdNetworkCoarseConversionValue(CoarseValue::medium), StoreKit::medium);
  EXPECT_EQ(toSKAdNetworkCoarseConversionValue(CoarseValue::low), StoreKit::low);
  EXPECT_EQ(toAttributionKitCoarseValue(CoarseValue::high), AttributionKit::high);
  EXPECT_EQ(toAttributionKitCoarseValue(CoarseValue::medium), AttributionKit::medium);
  EXPECT_EQ(toAttributionKitCoarseValue(CoarseValue::low), AttributionKit::low);
  EXPECT_EQ(description(ConversionValues()), "ConversionValues(values: [], lockWindows: [:])");
  for (const char* part :
       {"key: \"Purchase\"", "value: 63", "name: \"p\", revenueMin: 5, revenueMax: nil", "value: high",
        "revenueMin: 0.1, revenueMax: 9", "key: \"Session\"", "type: time, value: 168"}) {
    EXPECT_THAT(description(decode(sample)), testing::HasSubstr(part));
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
