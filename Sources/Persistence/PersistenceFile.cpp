#include "Persistence/PersistenceFile.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Platform/ErrorCategory.h"

namespace quillmar {

void throwIf(std::error_code error, const std::string& path) {
  if (error) {
    throw DescribedError(error, path);
  }
}

std::error_code make_error_code(PersistenceItemError error) noexcept {
  static const std::error_category& category = makeErrorCategory(
      "PersistenceItemError",
      {{"invalidFilename", "The file has no place to be stored in."}, {"notFile", "The file could not be created."}});
  return {static_cast<int>(error), category};
}

PersistenceFile::PersistenceFile(std::shared_ptr<platform::FileManager> fileManager, std::string filename)
    : fileManager_(std::move(fileManager)), filename_(std::move(filename)) {}

std::optional<std::string> PersistenceFile::folder() const {
  std::optional<std::string> documents = fileManager_->documentsDirectory();
  if (documents) {
    *documents += "/Quillmar";
  }
  return documents;
}

std::optional<std::string> PersistenceFile::makeUrl() const {
  const std::optional<std::string> path = folder();
  if (!path) {
    return std::nullopt;
  }
  if (!fileManager_->fileExists(*path)) {
    if (const std::error_code error = fileManager_->createDirectory(*path)) {
      Log::error("PersistenceItem - Failed to create directory: {}", error.message());
      return std::nullopt;
    }
  }
  return *path + "/" + filename_;
}

std::string PersistenceFile::usualPath() const {
  const std::optional<std::string> path = folder();
  return path ? *path + "/" + filename_ : std::string();
}

bool PersistenceFile::exists() const {
  const std::optional<std::string> path = makeUrl();
  return path && fileManager_->fileExists(*path);
}

std::string PersistenceFile::existingPath() const {
  std::optional<std::string> path = makeUrl();
  if (!path) {
    throw std::system_error(PersistenceItemError::invalidFilename);
  }
  if (!fileManager_->fileExists(*path) && fileManager_->createFile(*path)) {
    throw std::system_error(PersistenceItemError::notFile);
  }
  return std::move(*path);
}

std::string PersistenceFile::read(const std::string& path) const {
  std::string content;
  throwIf(fileManager_->readFile(path, content), path);
  return content;
}

void PersistenceFile::write(const std::string& path, std::string_view content) const {
  throwIf(fileManager_->writeFile(path, content, platform::WriteMode::atomic), path);
}

void PersistenceFile::remove(const std::string& path) const {
  throwIf(fileManager_->removeItem(path), path);
}

}  // namespace quillmar
