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

std::string written(JsonWriter writer) {
  writer.beginObject().member("text", "a").key("list").beginArray().integer(-1).boolean(false);
  writer.beginObject().endObject().beginArray().endArray().endArray().optionalMember("none", std::optional<double>());
  return writer.optionalMember("number", std::optional<double>(0.5)).endObject().take();
}

TEST(JsonWriter, writesCompactAndPrettyPrintedDocuments) {
  EXPECT_EQ(written(JsonWriter()), R"({"text":"a","list":[-1,false,{},[]],"number":0.5})");
  EXPECT_EQ(written(JsonWriter(JsonWriter::Format::prettyPrinted)),
            "{\n  \"text\": \"a\",\n  \"list\": [\n    -1,\n    false,\n    {},\n    []\n  ],\n  \"number\": 0.5\n}");
}

TEST(JsonWriter, textsAndNumbersReadBackUnchangedAndInfiniteOnesAreRefused) {
  std::string everything = "\u00e9\U0001F600";
  for (char c = 0; c < 127; ++c) {
    everything += c;
  }
  for (const double number : {0.1, 1e22, 5e-324, -2.5, 123456789.125, std::numeric_limits<double>::max()}) {
    const auto document = parseJson(JsonWriter().beginObject().key(everything).number(number).endObject().take());
    EXPECT_EQ(JsonReader(document).required(everything).number(), number);
  }
  for (const double number : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    EXPECT_THROW(JsonWriter().number(number), EncodingError);
  }
}

TEST(DecimalNumber, onlyWholeDecimalTextsAreNumbers) {
  const std::map<std::string, double> numbers{{"-1e3", -1000}, {".5", 0.5}, {"5.", 5}, {"+7", 7}, {"007", 7}};
  for (const auto& [text, value] : numbers) {
    EXPECT_EQ(parseDecimal(text), value) << text;
  }
  for (const std::string_view text : {"", ".", "1e+", " 1", "1 ", "1,5", "0x10", "inf", "nan", "1e999"}) {
    EXPECT_EQ(parseDecimal(text), std::nullopt) << text;
  }
}

TEST(Utf8, brokenBytesAreReplacedOneByOne) {
  const std::string fine = "plain \u00e9 \u20AC \U0001F600 \U0010FFFF";
  EXPECT_EQ(repairedUtf8(fine), fine);
  EXPECT_EQ(validUtf8Prefix(fine), fine.size());
  // Cut off, overlong, a surrogate, and past the last code point.
  for (const std::string bytes : {"\x80", "\xFF", "\xE2\x82", "\xC0\x80", "\xE0\x9F\xBF", "\xED\xA0\x80",
                                  "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80"}) {
    const std::string marks = std::string("\uFFFD\uFFFD\uFFFD\uFFFD").substr(0, 3 * bytes.size());
    EXPECT_EQ(repairedUtf8("a" + bytes + "\u00e9"), "a" + marks + "\u00e9") << testing::PrintToString(bytes);
    EXPECT_EQ(validUtf8Prefix("a" + bytes), 1u) << testing::PrintToString(bytes);
  }
}

}  // namespace
