#include "DataFolder.h"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Conversion/EventTracker.h"
#include "Conversion/TrackedEvent.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Platform/Sqlite/SqliteUserDefaults.h"
#include "Settings/Config.h"
#include "Settings/QuillMarDefaults.h"

namespace quillmar::sweep {

namespace {

namespace fs = std::filesystem;

std::string settingsFile(const std::string& folder) {
  return folder + "/settings/" + std::string(quillMarDefaultsSuite) + ".sqlite";
}

std::optional<std::string> contentOf(const std::string& path) {
  if (!fs::exists(path)) {
    return std::nullopt;
  }
  return (std::ostringstream() << std::ifstream(path).rdbuf()).str();
}

/// SQLite's own opinion: nothing, or what is wrong.
std::optional<std::string> integrityProblem(const std::string& file) {
  sqlite3* database = nullptr;
  std::string answer;
  const auto read = [](void* target, int, char** columns, char**) {
    *static_cast<std::string*>(target) += columns[0];
    return 0;
  };
  if (sqlite3_open(file.c_str(), &database) != SQLITE_OK ||
      sqlite3_exec(database, "PRAGMA integrity_check", read, &answer, nullptr) != SQLITE_OK) {
    answer = sqlite3_errmsg(database);
  }
  sqlite3_close(database);
  return answer == "ok" ? std::nullopt : std::optional(answer);
}

void readHistory(const std::string& json, DataFolder& result) {
  try {
    const boost::json::value document = parseJson(json);
    JsonReader(document).forEachElement(
        [&](const JsonReader& element) { result.history.push_back(TrackedEvent::decode(element).name); });
  } catch (const std::exception&) {
    result.historyIsDecodable = false;
  }
}

}  // namespace

const platform::PropertyListValue* DataFolder::setting(const std::string& key) const {
  const auto found = settings.find(key);
  return found == settings.end() ? nullptr : &found->second;
}

DataFolder readDataFolder(const std::string& folder, const std::string& copy) {
  DataFolder result;
  fs::remove_all(copy);
  fs::copy(folder, copy, fs::copy_options::recursive);
  result.configuration = contentOf(copy + configurationPath);
  result.attribution = contentOf(copy + attributionPath);
  for (const auto& entry : fs::recursive_directory_iterator(copy)) {
    result.temporaryFiles += entry.path().extension() == ".tmp" ? 1 : 0;
  }
  const std::string file = settingsFile(copy);
  if (!fs::exists(file)) {
    return result;
  }
  if (const auto problem = integrityProblem(file)) {
    result.problems.push_back(*problem);
  }
  const auto store = platform::SqliteUserDefaults::open(
      file, [&result](std::string_view text) { result.problems.emplace_back(text); });
  if (!store) {
    return result;
  }
  for (const std::string_view key :
       {std::string_view(Config::quillMarId), std::string_view(Config::firstRunDateKey),
        std::string_view(Config::quillmarVerificationKey), std::string_view(Config::serverAppId),
        std::string_view(Config::sdkEnabled), std::string_view(Config::lastConversionValuesFetchTimestamp),
        std::string_view(Config::lastWindowValue)}) {
    if (auto value = store->object(key)) {
      result.settings.emplace(key, std::move(*value));
    }
  }
  if (const auto json = store->data(EventTracker::completedEventsKey)) {
    readHistory(*json, result);
  }
  return result;
}

void appendEvents(const std::string& folder, const std::string& prefix, int count) {
  const auto store = platform::SqliteUserDefaults::open(settingsFile(folder), [](std::string_view) {});
  std::size_t size = store ? store->data(EventTracker::completedEventsKey).value_or("").size() : 0;
  for (int i = 1; i <= count; ++i) {
    const std::string tail = R"(,{"name":")" + prefix + std::to_string(i) + R"(","parameters":{},"timestamp":0}])";
    if (size == 0 || store->replaceDataTail(EventTracker::completedEventsKey, size - 1, tail)) {
      throw std::runtime_error("the history cannot be made longer");
    }
    size += tail.size() - 1;
  }
}

}  // namespace quillmar::sweep
