#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar::sweep {

/// What is stored in a data folder.
struct DataFolder {
  std::map<std::string, platform::PropertyListValue> settings;
  std::vector<std::string> history;  ///< the names of the tracked events, oldest first
  bool historyIsDecodable = true;
  std::optional<std::string> configuration;  ///< the content of the file
  std::optional<std::string> attribution;
  std::size_t temporaryFiles = 0;     ///< left behind by writes that did not end
  std::vector<std::string> problems;  ///< what SQLite or the settings store say about damage

  const platform::PropertyListValue* setting(const std::string& key) const;
};

/// Reads a copy of the folder, made at `copy`, so that the folder itself is left for the next start to mend.
DataFolder readDataFolder(const std::string& folder, const std::string& copy);

/// Adds events to the history, each as a segment of its own. There must be a history.
void appendEvents(const std::string& folder, const std::string& prefix, int count);

constexpr const char* configurationPath = "/documents/Quillmar/quill-mar-conv-val.json";
constexpr const char* attributionPath = "/documents/asa_attribution_data.json";

}  // namespace quillmar::sweep
