// The service's answer to the configuration request.
#include "Model/ConfigResponse.h"
#include "Promises.h"
#include "Target.h"

using namespace quillmar;
using fuzz::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto response = fuzz::decoded<ConfigResponse>(text)) {
    fuzz::requireRoundTrip(*response);
    fuzz::requireRoundTrip(response->conversionValues());
    require(fuzz::decoded<ConversionValues>(text) == response->conversionValues(),
            "a good answer is also a good document, with the same content");
  }
  return 0;
}
