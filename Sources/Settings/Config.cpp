#include "Settings/Config.h"

namespace quillmar {

const std::string_view Config::urlString = QUILLMAR_SERVICE_URL;

}  // namespace quillmar
