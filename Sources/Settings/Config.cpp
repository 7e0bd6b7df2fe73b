#include "quillmar/Config.h"

namespace quillmar {

const std::string_view Config::urlString = QUILLMAR_SERVICE_URL;
const std::string_view Config::attributionUrlString = QUILLMAR_ATTRIBUTION_URL;

}  // namespace quillmar
