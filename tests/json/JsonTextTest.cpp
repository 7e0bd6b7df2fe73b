// What the library writes as text, and the texts that it reads outside of documents.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

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
  writer.optionalMember("text2", std::optional<std::string>("b"))
      .optionalMember("number", std::optional<double>(0.5))
      .endObject();
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
  const std::map<std::string, double> numbers{{"9.99", 9.99}, {"-1e3", -1000}, {".5", 0.5},   {"5.", 5},
                                              {"+7", 7},      {"007", 7},      {"1E-2", 0.01}};
  for (const auto& [text, value] : numbers) {
    EXPECT_EQ(parseDecimal(text), value) << text;
  }
  for (const std::string_view text :
       {"", ".", "-", "1e", "1e+", " 1", "1 ", "1,5", "0x10", "inf", "nan", "1e999", "9.99 EUR"}) {
    EXPECT_EQ(parseDecimal(text), std::nullopt) << text;
  }
  EXPECT_FALSE(parseDecimal(std::string_view("1\0", 2)));
  EXPECT_EQ(decimalText(0.1), "0.1");
  EXPECT_EQ(decimalText(2), "2");
}

TEST(Utf8, brokenBytesAreReplacedOneByOne) {
  const std::string mark = "\uFFFD";
  const std::string fine = "plain \u00e9 \u20AC \U0001F600 \U0010FFFF";
  EXPECT_EQ(repairedUtf8(fine), fine);
  EXPECT_EQ(validUtf8Prefix(fine), fine.size());
  // Cut off, overlong, a surrogate, and past the last code point.
  const std::string broken[] = {"\x80",
                                "\xFF",
                                "\xC3",
                                "\xE2\x82",
                                "\xC0\x80",
                                "\xE0\x9F\xBF",
                                "\xED\xA0\x80",
                                "\xF0\x8F\xBF\xBF",
                                "\xF4\x90\x80\x80",
                                "\xF5\x80\x80\x80"};
  for (const std::string& bytes : broken) {
    std::string expected = "a";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      expected += mark;
    }
    EXPECT_EQ(repairedUtf8("a" + bytes + "\u00e9"), expected + "\u00e9") << testing::PrintToString(bytes);
    EXPECT_EQ(validUtf8Prefix("a" + bytes), 1u) << testing::PrintToString(bytes);
  }
}

}  // namespace
