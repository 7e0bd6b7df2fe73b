#include "quillmar/simulated/InMemoryFileManager.h"

namespace quillmar::simulated {

namespace {

std::error_code error(std::errc code) {
  return std::make_error_code(code);
}

/// The path without doubled and trailing slashes; "/" becomes "".
std::string normalized(const std::string& path) {
  std::string result;
  for (const char c : path) {
    if (c != '/' || result.empty() || result.back() != '/') {
      result.push_back(c);
    }
  }
  if (!result.empty() && result.back() == '/') {
    result.pop_back();
  }
  return result;
}

}  // namespace

InMemoryFileManager::InMemoryFileManager(std::optional<std::string> documentsDirectory)
    : documentsDirectory_(std::move(documentsDirectory)), directories_{""} {}

std::optional<std::string> InMemoryFileManager::documentsDirectory() const {
  return documentsDirectory_;
}

bool InMemoryFileManager::fileExists(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  return directories_.count(normalized(path)) != 0 || files_.count(normalized(path)) != 0;
}

std::optional<platform::FileStamp> InMemoryFileManager::stamp(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto found = files_.find(normalized(path));
  if (found == files_.end()) {
    return std::nullopt;
  }
  const File& file = found->second;
  return platform::FileStamp{1, file.identity, file.content.size(), file.changed, file.changed};
}

std::error_code InMemoryFileManager::createDirectory(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const std::string whole = normalized(path);
  std::set<std::string> missing;
  for (std::size_t end = whole.find('/', 1);; end = whole.find('/', end + 1)) {
    const std::string folder = whole.substr(0, end);
    if (files_.count(folder) != 0) {
      return error(end == std::string::npos ? std::errc::file_exists : std::errc::not_a_directory);
    }
    missing.insert(folder);
    if (end == std::string::npos) {
      break;
    }
  }
  directories_.merge(missing);
  return {};
}

std::error_code InMemoryFileManager::createFile(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const std::string name = normalized(path);
  if (const std::error_code failure = checkFile(name)) {
    return failure;
  }
  if (files_.count(name) == 0) {
    files_[name] = {{}, ++lastIdentity_, ++ticks_};
  }
  return {};
}

std::error_code InMemoryFileManager::removeItem(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const std::string item = normalized(path);
  if (const std::error_code failure = checkParent(item)) {
    return failure;
  }
  if (files_.erase(item) != 0) {
    return {};
  }
  if (directories_.count(item) == 0) {
    return error(std::errc::no_such_file_or_directory);
  }
  const auto isInside = [inside = item + "/"](const std::string& other) { return other.rfind(inside, 0) == 0; };
  const auto file = files_.upper_bound(item + "/");
  const auto folder = directories_.upper_bound(item + "/");
  if ((file != files_.end() && isInside(file->first)) || (folder != directories_.end() && isInside(*folder))) {
    return error(std::errc::directory_not_empty);
  }
  directories_.erase(item);
  return {};
}

std::error_code InMemoryFileManager::readFile(const std::string& path, std::string& content) const {
  const std::lock_guard lock(mutex_);
  const std::string name = normalized(path);
  if (const std::error_code failure = checkFile(name)) {
    return failure;
  }
  const auto found = files_.find(name);
  if (found == files_.end()) {
    return error(std::errc::no_such_file_or_directory);
  }
  content = found->second.content;
  return {};
}

std::error_code InMemoryFileManager::writeFile(const std::string& path, std::string_view content,
                                               platform::WriteMode mode) {
  const std::lock_guard lock(mutex_);
  const std::string name = normalized(path);
  if (const std::error_code failure = checkFile(name)) {
    return failure;
  }
  File& file = files_[name];
  if (file.identity == 0 || mode == platform::WriteMode::atomic) {
    file.identity = ++lastIdentity_;  // an atomic write puts a new file in the place of the old one
  }
  file.content = content;
  file.changed = ++ticks_;
  return {};
}

std::error_code InMemoryFileManager::checkFile(const std::string& path) const {
  const std::error_code failure = checkParent(path);
  return !failure && directories_.count(path) != 0 ? error(std::errc::is_a_directory) : failure;
}

std::error_code InMemoryFileManager::checkParent(const std::string& path) const {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return error(std::errc::no_such_file_or_directory);
  }
  for (std::size_t end = slash; end != 0; end = path.rfind('/', end - 1)) {
    const std::string folder = path.substr(0, end);
    if (files_.count(folder) != 0) {
      return error(std::errc::not_a_directory);
    }
  }
  return directories_.count(path.substr(0, slash)) == 0 ? error(std::errc::no_such_file_or_directory)
                                                        : std::error_code{};
}

}  // namespace quillmar::simulated
