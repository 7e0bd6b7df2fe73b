// The rows of the settings file.
#include <boost/json/parse.hpp>

#include "Attribution/PropertyListJson.h"
#include "Platform/PropertyListCoding.h"
#include "Promises.h"

using namespace quillmar;

void fuzz::look(std::string_view bytes) {
  const auto value = platform::decodePropertyList(bytes);
  if (!value) {
    return;
  }
  const auto encoded = platform::encodePropertyList(*value);
  require(encoded.has_value(), "what can be read can be written");
  require(encoded->size() <= bytes.size(), "nothing is added");  // entries of one key become one
  const auto again = platform::decodePropertyList(*encoded);
  // The bytes are compared, since a number that is none is not equal to itself.
  require(again && platform::encodePropertyList(*again) == encoded, "what was written reads back as the same");
  require(!platform::decodePropertyList(*encoded + '\0'), "nothing may follow");
  require(!platform::decodePropertyList(encoded->substr(0, encoded->size() - 1)), "nothing may be missing");
  if (const auto json = propertyListJson(*value)) {
    boost::json::parse_options options;
    options.max_depth = 120;
    boost::json::error_code error;
    boost::json::parse(*json, error, {}, options);
    require(!error, "a value that has a JSON form has a valid one");
  }
}
