#include "Json/JsonReader.h"

#include <gmock/gmock.h>

#include <functional>

#include "Json/JsonParser.h"
#include "Logging/ErrorDescription.h"

using namespace quillmar;
using testing::StartsWith;

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
  const std::tuple<const char*, Read, const char*> rows[] = {
      {"[]", text, "typeMismatch: the document: expected an object, found an array"},
      {R"({"A":"x"})", text, "keyNotFound: \"a\" is missing in the document"},
      {R"({"a":null})", text, "valueNotFound: a: a value is required, not null"},
      {R"({"a":1})", text, "typeMismatch: a: expected a string, found another number"},
      {R"({"a":63.5})", integer, "typeMismatch: a: expected an integer, found another number"},
      {R"({"a":{}})", optionalText, "typeMismatch: a: expected a string, found an object"},
      {R"({"a":[{}, {"b":{"c":[]}}]})", deep, "typeMismatch: a[1].b.c: expected a string"},
      {R"({"a":[{"b":{}}]})", deep, "keyNotFound: \"c\" is missing in a[0].b"},
  };
  for (const auto& [document, read, error] : rows) {
    try {
      read(JsonReader(parseJson(document)));
      ADD_FAILURE() << document;
    } catch (const DecodingError& thrown) {
      EXPECT_THAT(textualDescription(thrown), StartsWith(error)) << document;
    }
  }
}

}  // namespace
