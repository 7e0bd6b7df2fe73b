#include "Json/JsonParser.h"

#include <gmock/gmock.h>

#include <limits>

#include "Json/CodingError.h"
#include "Json/JsonReader.h"

using namespace quillmar;
using testing::HasSubstr;

namespace {

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JsonParser, refusesWhatIsNotStrictJson) {
  const std::string documents[] = {"",
                                   " ",
                                   "{",
                                   "[1,]",
                                   "{\"a\":1,}",
                                   "{a:1}",
                                   "nul",
                                   "01",
                                   "1.",
                                   ".5",
                                   "+1",
                                   "NaN",
                                   "'a'",
                                   "[1] x",
                                   "[1][2]",
                                   "/**/1",
                                   "\"\n\"",
                                   "\"\\x\"",
                                   "\"\xFF\"",
                                   "\"\xC0\x80\"",
                                   "\"\\ud800\"",
                                   "\"\xED\xA0\x80\"",
                                   "\xEF\xBB\xBF[]",
                                   nested(65)};
  for (const std::string& document : documents) {
    EXPECT_THROW(parseJson(document), DecodingError) << document;
  }
  EXPECT_NO_THROW(parseJson(nested(64)));
}

TEST(JsonParser, namesThePlaceOfAnError) {
  const struct {
    const char* document;
    const char* place;
  } rows[] = {{"", "line 1, column 1: the document is empty"},
              {"{\"a\": x}", "line 1, column 7"},
              {"[1,\n 2,\n  oops]", "line 3, column 3"},
              {"[]\n]", "line 2, column 1"}};
  for (const auto& row : rows) {
    try {
      parseJson(row.document);
      ADD_FAILURE() << row.document;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.code(), DecodingErrorCode::dataCorrupted);
      EXPECT_THAT(error.detail(), HasSubstr(row.place)) << row.document;
    }
  }
}

TEST(JsonParser, numbersAreExactIntegersOrTheNearestDouble) {
  const struct {
    const char* text;
    double value;
  } rows[] = {{"9.99", 9.99},
              {"0.1", 0.1},
              {"-0.3", -0.3},
              {"1E3", 1000},
              {"123456789012345678901234567890", 123456789012345678901234567890.0},
              {"9007199254740993.0", 9007199254740992.0},
              {"2.2250738585072011e-308", 2.2250738585072011e-308},
              {"179769313486231570000000000000000000000e270", std::numeric_limits<double>::max()},
              {"5e-324", std::numeric_limits<double>::denorm_min()},
              {"1e-400", 0}};
  for (const auto& row : rows) {
    const boost::json::value value = parseJson(row.text);
    EXPECT_EQ(JsonReader(value).number(), row.value) << row.text;
  }
  const boost::json::value largest = parseJson("9223372036854775807");
  EXPECT_EQ(JsonReader(largest).integer(), 9223372036854775807);
  EXPECT_THROW(parseJson("[1e400]"), DecodingError) << "no double is near";
}

TEST(JsonParser, textsKeepTheirCharacters) {
  const boost::json::value value = parseJson(R"( "a\u00e9\ud83d\ude00\u0000\"\\\/\n" )");
  EXPECT_EQ(JsonReader(value).string(), std::string("a\u00e9\U0001F600\0\"\\/\n", 12));
}

}  // namespace
