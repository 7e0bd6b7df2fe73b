#include "ServiceConfiguration.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "Options.h"

namespace quillmar::cli {

std::string readConfiguration(const std::string& option, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) {
    throw UsageError(option + ": cannot read " + path);
  }
  return content;
}

service::ServiceLogic makeServiceLogic(const std::string& command, const std::string& path,
                                       service::ServiceOptions options) {
  options.configuration = readConfiguration(command + ": --config", path);
  options.configurationName = path;
  try {
    return service::ServiceLogic(options);
  } catch (const std::invalid_argument& error) {
    throw UsageError(command + ": --config: " + error.what());
  }
}

}  // namespace quillmar::cli
