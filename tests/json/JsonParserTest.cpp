#include "Json/JsonParser.h"

#include <gmock/gmock.h>

#include <functional>
#include <limits>

#include "Json/CodingError.h"
#include "Json/JsonObjectText.h"
#include "Json/JsonReader.h"

using namespace quillmar;
using testing::HasSubstr;
using namespace std::string_literals;

namespace {

std::string nested(std::size_t depth, const std::string& inside = "") {
  return std::string(depth, '[') + inside + std::string(depth, ']');
}

std::string failure(const std::string& document, std::string_view read = "") {
  try {
    const boost::json::value value = parseJson(document);
    const JsonReader root(value);
    static_cast<void>(read.empty() ? 0 : root.required(read).number());
    return {};
  } catch (const DecodingError& error) {
    return textualDescription(error);
  }
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
    EXPECT_EQ(failure(document, "c"), "");
    EXPECT_EQ(failure(document, "a"),
              "typeMismatch: a: expected a number" + (text[0] == '[' ? ", found an array" : beyond));
    EXPECT_THROW(JsonObjectText::parse(document), DecodingError) << "whoever gets it reads all of it";
  }
  const std::function<void(const JsonReader&)> descend = [&](const JsonReader& reader) {
    reader.forEachElement(descend);
  };
  EXPECT_NO_THROW(descend(JsonReader(parseJson(nested(64)))));
  try {
    descend(JsonReader(parseJson(nested(65))));
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_THAT(error.detail(), HasSubstr("[0]: expected an array" + beyond));
  }
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

}  // namespace
