// What the library writes as text, and the texts that it reads outside of documents.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Json/CodingError.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Json/Utf8.h"

using namespace quillmar;

namespace {

void writeSample(JsonWriter& writer) {
  writer.beginObject().member("text", "a").key("list").beginArray().integer(-1).boolean(false);
  writer.beginObject().endObject().beginArray().endArray().endArray().optionalMember("none", std::optional<double>());
  writer.optionalMember("text2", std::optional<std::string>("b")).optionalMember("number", 0.5).endObject();
}

TEST(JsonWriter, writesCompactAndPrettyPrintedDocuments) {
  JsonWriter compact;
  writeSample(compact);
  EXPECT_EQ(compact.take(), R"({"text":"a","list":[-1,false,{},[]],"text2":"b","number":0.5})");
  JsonWriter pretty(JsonWriter::Format::prettyPrinted);
  writeSample(pretty);
  EXPECT_EQ(pretty.take(), R"({
  "text": "a",
  "list": [
    -1,
    false,
    {},
    []
  ],
  "text2": "b",
  "number": 0.5
})");
}

TEST(JsonWriter, textsAndKeysReadBackUnchanged) {
  std::string everything;
  for (char c = 0; c < 127; ++c) {
    everything += c;
  }
  everything += "\u00e9\U0001F600";
  JsonWriter writer;
  writer.beginObject().member(everything, everything).endObject();
  const std::string text = writer.take();
  EXPECT_EQ(text.find('\n'), std::string::npos);
  const boost::json::value document = parseJson(text);
  EXPECT_EQ(JsonReader(document).required(everything).string(), everything);
}

TEST(JsonWriter, numbersReadBackUnchangedAndInfiniteOnesAreRefused) {
  for (const double number : {0.1, 1.0 / 3, 9.99, 1e22, 1e300, 5e-324, -2.5, 123456789.125,
                              std::numeric_limits<double>::max(), std::numeric_limits<double>::min()}) {
    JsonWriter writer;
    const boost::json::value value = parseJson(writer.number(number).take());
    EXPECT_EQ(JsonReader(value).number(), number);
  }
  for (const double number : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    JsonWriter writer;
    try {
      writer.beginArray().number(number);
      ADD_FAILURE() << number;
    } catch (const EncodingError& error) {
      EXPECT_EQ(error.code(), EncodingErrorCode::invalidValue);
    }
  }
}

TEST(DecimalNumber, onlyWholeDecimalTextsAreNumbers) {
  const struct {
    std::string_view text;
    std::optional<double> value;
  } rows[] = {{"9.99", 9.99},
              {"-1e3", -1000},
              {".5", 0.5},
              {"5.", 5},
              {"+7", 7},
              {"007", 7},
              {"1E-2", 0.01},
              {"", std::nullopt},
              {".", std::nullopt},
              {"-", std::nullopt},
              {"1e", std::nullopt},
              {"1e+", std::nullopt},
              {" 1", std::nullopt},
              {"1 ", std::nullopt},
              {"1,5", std::nullopt},
              {"0x10", std::nullopt},
              {"inf", std::nullopt},
              {"nan", std::nullopt},
              {"1e999", std::nullopt},
              {"9.99 EUR", std::nullopt},
              {std::string_view("1\0", 2), std::nullopt}};
  for (const auto& row : rows) {
    EXPECT_EQ(parseDecimal(row.text), row.value) << row.text;
  }
  EXPECT_EQ(decimalText(0.1), "0.1");
  EXPECT_EQ(decimalText(2), "2");
}

TEST(Utf8, brokenBytesAreReplacedOneByOne) {
  const std::string mark = "\uFFFD";
  const struct {
    std::string text;
    std::string repaired;
  } rows[] = {{"plain \u00e9 \u20AC \U0001F600 \U0010FFFF", "plain \u00e9 \u20AC \U0001F600 \U0010FFFF"},
              {"a\xFF"
               "b",
               "a" + mark + "b"},
              {"\x80", mark},
              {"\xC3", mark},             // cut off
              {"\xE2\x82", mark + mark},  // cut off after two
              {"\xE2\x82"
               "c",
               mark + mark + "c"},
              {"\xC0\x80", mark + mark},                        // overlong
              {"\xE0\x9F\xBF", mark + mark + mark},             // overlong
              {"\xED\xA0\x80", mark + mark + mark},             // surrogate
              {"\xF0\x8F\xBF\xBF", mark + mark + mark + mark},  // overlong
              {"\xF4\x90\x80\x80", mark + mark + mark + mark},  // past the last code point
              {"\xF5\x80\x80\x80", mark + mark + mark + mark}};
  for (const auto& row : rows) {
    EXPECT_EQ(repairedUtf8(row.text), row.repaired) << testing::PrintToString(row.text);
    EXPECT_EQ(validUtf8Prefix(row.text) == row.text.size(), row.text == row.repaired);
  }
  EXPECT_EQ(validUtf8Prefix("ok\u00e9\xFF"), 4u);
}

}  // namespace
