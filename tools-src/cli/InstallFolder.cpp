#include "InstallFolder.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

namespace quillmar::cli {
namespace {

namespace fs = std::filesystem;

/// What the library writes, from the folder of its data on. SQLite keeps an index of the log beside it, which is made
/// anew from the log.
constexpr const char* names[] = {"settings/tech.quill-mar.quillmaruserdefaults.sqlite",
                                 "settings/tech.quill-mar.quillmaruserdefaults.sqlite-wal",
                                 "settings/standard.sqlite",
                                 "settings/standard.sqlite-wal",
                                 InstallFolder::configurationFile,
                                 InstallFolder::attributionFile};

/// How often the files are read until they are the same twice.
constexpr int attempts = 10;

using Contents = std::map<std::string, std::string>;

std::optional<std::string> contentOf(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(path, error);
  if (status.type() == fs::file_type::not_found) {
    return std::nullopt;
  }
  std::ifstream file;
  if (fs::is_regular_file(status)) {  // neither follows a link nor waits for a pipe
    file.open(path, std::ios::binary);
  }
  std::string content{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return content;
}

Contents contentsOf(const fs::path& folder) {
  Contents contents;
  for (const char* const name : names) {
    if (auto content = contentOf(folder / name)) {
      contents.emplace(name, *std::move(content));
    }
  }
  return contents;
}

/// A database and its log belong together. When two readings in a row are the same, nothing was written between the end
/// of the first and the beginning of the second.
Contents contentsAtOneMoment(const fs::path& folder) {
  Contents contents = contentsOf(folder);
  for (int i = 0; i < attempts; ++i) {
    Contents again = contentsOf(folder);
    if (again == contents) {
      return contents;
    }
    contents = std::move(again);
  }
  throw std::runtime_error("the files below " + folder.string() + " change all the time; stop the app that uses them");
}

}  // namespace

InstallFolder::InstallFolder() {
  std::string name = (fs::temp_directory_path() / "quillmar-inspect-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {  // for this user alone
    throw std::system_error(errno, std::generic_category(), name);
  }
  copy_ = name;
}

InstallFolder::InstallFolder(const fs::path& original) : InstallFolder() {  // from here on the folder goes in any case
  original_ = original;
  for (const auto& [name, content] : contentsAtOneMoment(original)) {
    fs::create_directories((copy_ / name).parent_path());
    std::ofstream file(copy_ / name, std::ios::binary);
    if (!(file << content << std::flush)) {
      throw std::runtime_error("cannot write " + (copy_ / name).string());
    }
  }
}

InstallFolder::~InstallFolder() {
  std::error_code ignored;
  fs::remove_all(copy_, ignored);
}

std::optional<std::string> InstallFolder::read(const std::string& name) const {
  return contentOf(copy_ / name);
}

std::string InstallFolder::inOriginalNames(std::string text) const {
  for (std::size_t at = text.find(copy_.string()); at != text.npos; at = text.find(copy_.string(), at)) {
    text.replace(at, copy_.string().size(), original_.string());
    at += original_.string().size();
  }
  return text;
}

}  // namespace quillmar::cli
