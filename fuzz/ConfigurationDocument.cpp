// The configuration: the document that is stored, and the service's answer that it comes from.
#include <algorithm>

#include "Model/ConfigResponse.h"
#include "Model/ConversionValuesCoding.h"
#include "Promises.h"

using namespace quillmar;
using fuzz::require;

namespace {

constexpr std::size_t rankedValues = 20;  ///< each is compared with each

void requireOrder(const std::vector<ConversionValues::ConversionValue>& values) {
  const std::size_t count = std::min(values.size(), rankedValues);
  for (const Window window : allWindows) {
    for (std::size_t i = 0; i < count; ++i) {
      require((values[i].windowValue(window) != nullptr) == values[i].windowsDict().contains(window),
              "both ways to look up a window agree");
      for (std::size_t j = 0; j < count; ++j) {
        require(values[i].compareWindowValue(values[j], window) == -values[j].compareWindowValue(values[i], window),
                "the ranking is the same from both sides");
      }
    }
  }
}

}  // namespace

void fuzz::look(std::string_view text) {
  const auto document = fuzz::decoded<ConversionValues>(text);
  if (document) {
    fuzz::requireRoundTrip(*document);
    requireOrder(document->values);
  }
  if (const auto response = fuzz::decoded<ConfigResponse>(text)) {
    fuzz::requireRoundTrip(*response);
    require(response->conversionValues() == document, "a good answer is also a good document, with the same content");
  }
}
