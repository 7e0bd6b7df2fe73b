#pragma once

#include <fstream>
#include <string>

namespace quillmar::cli {

/// The file of the option --html.
class PageFile {
 public:
  /// `command` is the one that has the option. Throws `UsageError` when the file cannot be written.
  PageFile(const std::string& command, const std::string& path);

  std::ostream& output() noexcept { return file_; }

  /// Throws `std::runtime_error` when not all could be written.
  void finish();

 private:
  const std::string complaint_;
  std::ofstream file_;
};

}  // namespace quillmar::cli
