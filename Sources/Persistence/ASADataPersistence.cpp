#include "Persistence/ASADataPersistence.h"

#include <cstdint>
#include <system_error>
#include <utility>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Persistence/PersistenceFile.h"

namespace quillmar {

namespace {

/// A record is some hundred bytes, and each purchase takes it along.
constexpr std::uint64_t largestFile = 1U << 20U;

std::error_code errorOfSize(std::uint64_t bytes) {
  return bytes > largestFile ? std::make_error_code(std::errc::file_too_large) : std::error_code();
}

}  // namespace

ASADataPersistence::ASADataPersistence(std::shared_ptr<platform::FileManager> fileManager,
                                       std::optional<std::string> documentsDirectory, const QuillmarOptions& options)
    : fileManager_(std::move(fileManager)),
      documentsDirectory_(documentsDirectory ? std::move(documentsDirectory) : fileManager_->documentsDirectory()),
      options_(options) {
  if (!documentsDirectory_) {
    Log::error("ASADataPersistence - There is no documents directory, ASA data is not kept");
  }
}

void ASADataPersistence::saveASAData(const ASAAttributionResponse& data) {
  Log::debug("ASADataPersistence - Saving ASA attribution data to local storage");
  try {
    JsonWriter writer;
    data.encode(writer);
    const std::string file = path();
    write(file, writer.take());
    Log::debug("ASADataPersistence - Successfully saved ASA data to: {}", file);
  } catch (const std::exception& error) {
    Log::error("ASADataPersistence - Failed to save ASA data: {}", localizedDescription(error));
  }
}

std::optional<ASAAttributionResponse> ASADataPersistence::loadASAData() const {
  Log::debug("ASADataPersistence - Loading ASA attribution data from local storage");
  if (!fileExists()) {
    Log::debug("ASADataPersistence - No ASA data file found");
    return std::nullopt;
  }
  try {
    const boost::json::value document = parseJson(read());
    auto data = ASAAttributionResponse::decode(JsonReader(document));
    Log::debug("ASADataPersistence - Successfully loaded ASA data from local storage");
    return data;
  } catch (const std::exception& error) {
    Log::error("ASADataPersistence - Failed to load ASA data: {}", localizedDescription(error));
    return std::nullopt;
  }
}

std::optional<JsonObjectText> ASADataPersistence::loadASADataAsDictionary() const {
  Log::debug("ASADataPersistence - Loading ASA attribution data as dictionary from local storage");
  if (!fileExists()) {
    Log::debug("ASADataPersistence - No ASA data file found for dictionary loading");
    return std::nullopt;
  }
  try {
    auto dictionary = JsonObjectText::parse(read());
    if (dictionary) {
      Log::debug("ASADataPersistence - Successfully loaded ASA data as dictionary from local storage");
    } else {
      Log::error("ASADataPersistence - Failed to decode ASA data as dictionary");
    }
    return dictionary;
  } catch (const std::exception& error) {
    Log::error("ASADataPersistence - Failed to load ASA data as dictionary: {}", localizedDescription(error));
    return std::nullopt;
  }
}

void ASADataPersistence::clearASAData() {
  Log::debug("ASADataPersistence - Clearing ASA attribution data from local storage");
  if (!fileExists()) {
    Log::debug("ASADataPersistence - No ASA data file to clear");
    return;
  }
  if (const std::error_code error = fileManager_->removeItem(path())) {
    Log::error("ASADataPersistence - Failed to clear ASA data: {}", error.message());
    return;
  }
  Log::debug("ASADataPersistence - Successfully cleared ASA data");
}

bool ASADataPersistence::hasASAData() const {
  const bool exists = options_.liveAttribution ? loadASAData().has_value() : fileExists();
  Log::debug("ASADataPersistence - ASA data exists: {}", exists);
  return exists;
}

bool ASADataPersistence::fileExists() const {
  return documentsDirectory_ && fileManager_->fileExists(path());
}

std::string ASADataPersistence::path() const {
  if (!documentsDirectory_) {
    throw std::system_error(PersistenceItemError::invalidFilename);
  }
  return *documentsDirectory_ + "/" + std::string(asaDataFileName);
}

std::string ASADataPersistence::read() const {
  const std::string file = path();
  const std::optional<platform::FileStamp> stamp = fileManager_->stamp(file);
  throwIf(errorOfSize(stamp ? stamp->size : 0), file);
  std::string content;
  throwIf(fileManager_->readFile(file, content), file);
  return content;
}

void ASADataPersistence::write(const std::string& file, const std::string& content) const {
  throwIf(errorOfSize(content.size()), file);
  // The documents directory of a fresh installation may be there in name only.
  throwIf(fileManager_->createDirectory(*documentsDirectory_), *documentsDirectory_);
  const auto mode = options_.liveAttribution ? platform::WriteMode::atomic : platform::WriteMode::direct;
  throwIf(fileManager_->writeFile(file, content, mode), file);
}

}  // namespace quillmar
