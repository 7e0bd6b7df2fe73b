#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillmar::cli {

/// A copy of the files of an install, in a folder of its own, for this user alone. The original is only read, so that
/// it may be that of a running host. The copy goes with the object.
class InstallFolder {
 public:
  /// Throws `std::runtime_error` when the folder cannot be read, or changes all the time.
  explicit InstallFolder(const std::filesystem::path& original);
  ~InstallFolder();
  InstallFolder(const InstallFolder&) = delete;
  InstallFolder& operator=(const InstallFolder&) = delete;

  /// Files of the library, from the folder on.
  static constexpr const char* configurationFile = "documents/Quillmar/quill-mar-conv-val.json";
  static constexpr const char* attributionFile = "documents/asa_attribution_data.json";

  const std::filesystem::path& path() const noexcept { return copy_; }

  /// The content of one of the files, by its name from the folder on; nothing when it is not there.
  std::optional<std::string> read(const std::string& name) const;
  bool has(const std::string& name) const { return std::filesystem::exists(copy_ / name); }

  /// The text with the names of original files in place of copies'.
  std::string inOriginalNames(std::string text) const;

 private:
  /// An empty folder for the copies.
  InstallFolder();

  std::filesystem::path original_;
  std::filesystem::path copy_;
};

}  // namespace quillmar::cli
