#include "PageFile.h"

#include <stdexcept>

#include "Options.h"

namespace quillmar::cli {

PageFile::PageFile(const std::string& command, const std::string& path)
    : complaint_(command + ": --html: cannot write " + path), file_(path) {
  if (!file_) {
    throw UsageError(complaint_);
  }
}

void PageFile::finish() {
  if (!file_.flush()) {
    throw std::runtime_error(complaint_);
  }
}

}  // namespace quillmar::cli
