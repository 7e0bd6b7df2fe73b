#include "ServiceConfiguration.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Options.h"

namespace quillmar::cli {

service::ServiceLogic makeServiceLogic(const std::string& command, const std::string& path,
                                       service::ServiceOptions options) {
  std::ostringstream content;
  std::ifstream file(path, std::ios::binary);
  if (!file || !(content << file.rdbuf())) {
    throw UsageError(command + ": --config: cannot read " + path + ", or it is empty");
  }
  options.configuration = content.str();
  options.configurationName = path;
  try {
    return service::ServiceLogic(options);
  } catch (const std::invalid_argument& error) {
    throw UsageError(command + ": --config: " + error.what());
  }
}

}  // namespace quillmar::cli
