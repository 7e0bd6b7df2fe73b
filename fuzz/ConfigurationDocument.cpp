// The stored configuration: a file of JSON in the library's folder.
#include <algorithm>

#include "Model/ConversionValuesCoding.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Promises.h"
#include "Target.h"
#include "quillmar/simulated/InMemoryFileManager.h"

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

/// The file as the library reads it, is replaced by what was read, and is read again.
void requireSameFromFile(std::string_view text, const std::optional<ConversionValues>& expected) {
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  files->createDirectory("/documents/Quillmar");
  files->writeFile("/documents/Quillmar/quill-mar-conv-val.json", text, platform::WriteMode::direct);
  ConversionValuesPersistence persistence(
      std::make_shared<PersistenceItem<ConversionValues>>(files, ConversionValuesPersistence::filename));
  try {
    const ConversionValues found = *persistence.getAllConversionValues();
    require(expected == found, "the file holds what the document says");
    persistence.save(found);
    require(*persistence.getAllConversionValues() == found, "the saved file reads back as the same value");
  } catch (const DecodingError&) {
    require(!expected, "a good file is read");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::composeLogLines();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto document = fuzz::decoded<ConversionValues>(text);
  if (document) {
    fuzz::requireRoundTrip(*document);
    requireOrder(document->values);
  }
  requireSameFromFile(text, document);
  return 0;
}
