#include "Json/JsonReader.h"

#include <gmock/gmock.h>

#include <functional>

#include "Json/JsonParser.h"

using namespace quillmar;
using testing::HasSubstr;

namespace {

TEST(JsonReader, errorsNameTheirKindAndTheirPlace) {
  using Read = std::function<void(const JsonReader&)>;
  const Read deep = [](const JsonReader& root) {
    root.required("a").forEachElement([](const JsonReader& element) {
      element.forEachMember([](std::string_view, const JsonReader& member) { member.required("c").string(); });
    });
  };
  const Read text = [](const JsonReader& root) { root.required("a").string(); };
  const Read integer = [](const JsonReader& root) { root.required("a").integer(); };
  const Read optionalText = [](const JsonReader& root) { root.optionalString("a"); };
  constexpr auto mismatch = DecodingErrorCode::typeMismatch;
  const struct {
    const char* document;
    Read read;
    DecodingErrorCode code;
    const char* detail;
  } rows[] = {
      {"[]", text, mismatch, "the document: expected an object, found an array"},
      {R"({"A":"x"})", text, DecodingErrorCode::keyNotFound, "\"a\" is missing in the document"},
      {R"({"a":null})", text, DecodingErrorCode::valueNotFound, "a: a value is required, not null"},
      {R"({"a":1})", text, mismatch, "a: expected a string, found another number"},
      {R"({"a":63.5})", integer, mismatch, "expected an integer, found another number"},
      {R"({"a":9223372036854775808})", integer, mismatch, "expected an integer"},
      {R"({"a":9.3e18})", integer, mismatch, "expected an integer"},
      {R"({"a":{}})", optionalText, mismatch, "expected a string, found an object"},
      {R"({"a":[{}, {"b":{"c":[]}}]})", deep, mismatch, "a[1].b.c: expected a string"},
      {R"({"a":[{"b":{}}]})", deep, DecodingErrorCode::keyNotFound, "\"c\" is missing in a[0].b"},
  };
  for (const auto& row : rows) {
    const boost::json::value document = parseJson(row.document);
    try {
      row.read(JsonReader(document));
      ADD_FAILURE() << row.document;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.code(), row.code) << row.document;
      EXPECT_THAT(error.detail(), HasSubstr(row.detail)) << row.document;
    }
  }
}

TEST(JsonReader, wholeDoublesAreIntegersAndNullIsAbsent) {
  const boost::json::value document = parseJson(R"({"a": 63.0, "b": -9223372036854775808, "n": null})");
  const JsonReader root(document);
  EXPECT_EQ(root.required("a").integer(), 63);
  EXPECT_EQ(root.required("b").integer(), std::numeric_limits<std::int64_t>::min());
  EXPECT_FALSE(root.optional("n"));
  EXPECT_FALSE(root.optionalString("absent"));
}

}  // namespace
