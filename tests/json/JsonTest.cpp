#include <gmock/gmock.h>

#include <functional>
#include <limits>
#include <map>

#include "Json/CodingError.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonObjectText.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Json/Utf8.h"
#include "support/FailureOf.h"

using namespace quillmar;
using testing::HasSubstr;
using namespace std::string_literals;

namespace {

std::string nested(std::size_t depth, const std::string& inside = "") {
  return std::string(depth, '[') + inside + std::string(depth, ']');
}

using Read = std::function<void(const JsonReader&)>;

std::string failure(const std::string& document, const Read& read = [](const JsonReader&) {}) {
  return test::failureOf([&] { read(JsonReader(parseJson(document))); });
}

TEST(JsonParser, refusesWhatIsNotStrictJson) {
  for (const std::string& document :
       {"\xEF\xBB\xBF\xEF\xBB\xBF[]"s, "[1,]"s, "NaN"s, "[1][2]"s, "/**/1"s, "\"\xC0\x80\""s, "\"\\ud800\""s,
        nested(64, "[1,]"), nested(65, "1 2"), nested(64, "{1:2}"), nested(64, "{[]:2}"), nested(200, "[}"),
        nested(65) + "]", "["s + nested(65), nested(200, "\""), nested(65, "1e+-99999999999"), "1e99999999999x"s,
        nested(65) + " x"}) {
    EXPECT_THAT(failure(document), HasSubstr("dataCorrupted: not valid JSON a")) << document;
  }
}

TEST(JsonParser, namesThePlaceOfAnError) {
  const std::pair<std::string, const char*> rows[] = {{"", "at line 1, column 1: the document is empty"},
                                                      {"\xEF\xBB\xBF", "at line 1, column 1: the document is empty"},
                                                      {"[1,\n 2,\n  oops]", "at line 3, column 3"},
                                                      {"[]\n]", "at line 2, column 1"},
                                                      {"\n" + nested(65) + "\n]", "after line 2, column 65"}};
  for (const auto& [document, place] : rows) {
    EXPECT_THAT(failure(document), HasSubstr(place)) << document;
  }
}

TEST(JsonParser, whatIsBeyondTheLimitsFailsWhereItIsReadOnly) {
  const std::string beyond = ", found a number too large for a double, or a value nested too deep";
  for (const std::string& text :
       {"1e400"s, "-1e400"s, "1e99999999999"s, std::string(400, '9'), nested(64), nested(100'000),
        nested(64, R"("]\"]", {"a":[{}, true]}, 1e0000000000099999999999)")}) {
    SCOPED_TRACE(text.substr(0, 100));
    const std::string document = "\xEF\xBB\xBF{\"b\":[" + text + "], \"a\":" + text + ",\"c\":63}";
    EXPECT_EQ(failure(document, [](const JsonReader& root) { root.required("c").number(); }), "");
    EXPECT_EQ(failure(document, [](const JsonReader& root) { root.required("a").number(); }),
              "typeMismatch: a: expected a number" + (text[0] == '[' ? ", found an array" : beyond));
    EXPECT_THROW(JsonObjectText::parse(document), DecodingError) << "whoever gets it reads all of it";
  }
  const Read descend = [&](const JsonReader& reader) { reader.forEachElement(descend); };
  EXPECT_EQ(failure(nested(64), descend), "");
  EXPECT_THAT(failure(nested(65), descend), HasSubstr("[0]: expected an array" + beyond));
  EXPECT_EQ(JsonObjectText::parse("\xEF\xBB\xBF{\"a\": 63.0}")->text(), "{\"a\": 63.0}");
}

TEST(JsonParser, numbersAreExactIntegersOrTheNearestDouble) {
  using Limits = std::numeric_limits<std::int64_t>;
  const auto integer = [](const char* text) { return JsonReader(parseJson(text)).integer(); };
  const auto number = [](const char* text) { return JsonReader(parseJson(text)).number(); };
  for (const char* text : {"9223372036854775807", "9223372036854775807.0", "922337203685477580.7E1"}) {
    EXPECT_EQ(integer(text), Limits::max()) << text;
  }
  for (const char* text : {"63", "63.0", "6300e-2", "0.0063e+04"}) {
    EXPECT_TRUE(integer(text) == 63 && number(text) == 63.0) << text;
  }
  EXPECT_EQ(integer("-9223372036854775808.000"), Limits::min());
  EXPECT_EQ(integer("9007199254740993.0"), 9007199254740993);
  EXPECT_EQ(integer("-0.0") + integer("0e99999999999"), 0);
  for (const char* text : {"63.00000000000000001", "6301e-2", "9223372036854775808", "9223372036854775808.0",
                           "-9223372036854775809.0", "1e300", "1e-99999999999"}) {
    EXPECT_THROW(integer(text), DecodingError) << text;
  }
  const std::pair<const char*, double> rows[] = {{"-0.3", -0.3},
                                                 {"18446744073709551615", 18446744073709551615.0},
                                                 {"1e-99999999999", 0},
                                                 {"123456789012345678901234567890", 123456789012345678901234567890.0},
                                                 {"2.2250738585072011e-308", 2.2250738585072011e-308}};
  for (const auto& [text, nearest] : rows) {
    EXPECT_EQ(number(text), nearest) << text;
  }
}

TEST(JsonReader, errorsNameTheirKindAndTheirPlace) {
  const Read deep = [](const JsonReader& root) {
    root.required("a").forEachElement([](const JsonReader& element) {
      element.forEachMember([](std::string_view, const JsonReader& member) { member.required("c").string(); });
    });
  };
  const Read text = [](const JsonReader& root) { root.required("a").string(); };
  const Read integer = [](const JsonReader& root) { root.required("a").integer(); };
  const Read boolean = [](const JsonReader& root) { root.required("a").boolean(); };
  const Read optionalText = [](const JsonReader& root) { root.optionalString("a"); };
  const std::tuple<const char*, Read, const char*> rows[] = {
      {"[]", text, "typeMismatch: the document: expected an object, found an array"},
      {R"({"A":"x"})", text, "keyNotFound: \"a\" is missing in the document"},
      {R"({"a":null})", text, "valueNotFound: a: a value is required, not null"},
      {R"({"a":1})", text, "typeMismatch: a: expected a string, found another number"},
      {R"({"a":1})", boolean, "typeMismatch: a: expected a Boolean, found another number"},
      {R"({"a":63.5})", integer, "typeMismatch: a: expected an integer, found another number"},
      {R"({"a":{}})", optionalText, "typeMismatch: a: expected a string, found an object"},
      {R"({"a":[{}, {"b":{"c":[]}}]})", deep, "typeMismatch: a[1].b.c: expected a string"},
      {R"({"a":[{"b":{}}]})", deep, "keyNotFound: \"c\" is missing in a[0].b"},
  };
  for (const auto& [document, read, error] : rows) {
    EXPECT_THAT(failure(document, read), testing::StartsWith(error));
  }
}

// The compact form: fuzz/AttributionRecord.cpp.
TEST(JsonWriter, prettyPrintsNestedAndEmptyValues) {
  JsonWriter writer(JsonWriter::Format::prettyPrinted);
  writer.beginObject().member("text", "a").key("list").beginArray().integer(-1).boolean(false);
  writer.beginObject().endObject().beginArray().endArray().endArray().optionalMember("none", std::optional<double>());
  EXPECT_EQ(writer.optionalMember("number", std::optional<double>(0.5)).endObject().take(),
            "{\n  \"text\": \"a\",\n  \"list\": [\n    -1,\n    false,\n    {},\n    []\n  ],\n  \"number\": 0.5\n}");
}

// That all texts and numbers read back unchanged: fuzz/ConfigurationDocument.cpp and fuzz/EventHistory.cpp.
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
