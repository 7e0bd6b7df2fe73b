#include "Json/JsonParser.h"

#include <gmock/gmock.h>

#include <limits>

#include "Json/CodingError.h"
#include "Json/JsonReader.h"

using namespace quillmar;
using testing::HasSubstr;
using namespace std::string_literals;

namespace {

TEST(JsonParser, refusesWhatIsNotStrictJson) {
  const std::string nested = std::string(64, '[') + std::string(64, ']');
  for (const std::string& document :
       {"["s + nested + "]", "\xEF\xBB\xBF[]"s, "[1,]"s, "{\"a\":1,}"s, "{a:1}"s, "01"s, ".5"s, "NaN"s, "'a'"s,
        "[1][2]"s, "/**/1"s, "\"\n\""s, "\"\\x\""s, "\"\xC0\x80\""s, "\"\\ud800\""s, "\"\xED\xA0\x80\""s}) {
    EXPECT_THROW(parseJson(document), DecodingError) << document;
  }
  EXPECT_NO_THROW(parseJson(nested));
}

TEST(JsonParser, namesThePlaceOfAnError) {
  const std::pair<const char*, const char*> rows[] = {{"", "line 1, column 1: the document is empty"},
                                                      {"[1,\n 2,\n  oops]", "line 3, column 3"},
                                                      {"[]\n]", "line 2, column 1"}};
  for (const auto& [document, place] : rows) {
    try {
      parseJson(document);
      ADD_FAILURE() << document;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.code(), DecodingErrorCode::dataCorrupted);
      EXPECT_THAT(error.detail(), HasSubstr(place)) << document;
    }
  }
}

TEST(JsonParser, numbersAreExactIntegersOrTheNearestDouble) {
  const std::map<const char*, double> rows{{"-0.3", -0.3},
                                           {"123456789012345678901234567890", 123456789012345678901234567890.0},
                                           {"2.2250738585072011e-308", 2.2250738585072011e-308},
                                           {"5e-324", std::numeric_limits<double>::denorm_min()},
                                           {"1e-400", 0}};
  for (const auto& [text, number] : rows) {
    EXPECT_EQ(JsonReader(parseJson(text)).number(), number) << text;
  }
  EXPECT_EQ(JsonReader(parseJson("9223372036854775807")).integer(), 9223372036854775807);
  EXPECT_THROW(parseJson("[1e400]"), DecodingError) << "no double is near";
}

TEST(JsonParser, textsKeepTheirCharacters) {
  EXPECT_EQ(JsonReader(parseJson(R"( "a\u00e9\ud83d\ude00\u0000\"\\\/\n" )")).string(),
            std::string("a\u00e9\U0001F600\0\"\\/\n", 12));
}

}  // namespace
