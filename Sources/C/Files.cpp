#include "C/Bytes.h"
#include "C/PlatformHandle.h"

namespace quillmar {

namespace {

using platform::WriteMode;

static_assert(static_cast<int>(WriteMode::direct) == QUILLMAR_WRITE_DIRECT &&
              static_cast<int>(WriteMode::atomic) == QUILLMAR_WRITE_ATOMIC);

class TableFiles final : public platform::FileManager {
 public:
  std::optional<std::string> documentsDirectory() const override {
    quillmar_bytes path;
    table->call<&quillmar_files::documents_directory>(&path);
    return path.content;
  }
  bool fileExists(const std::string& path) const override {
    return table->call<&quillmar_files::file_exists>(path.c_str());
  }
  std::optional<platform::FileStamp> stamp(const std::string& path) const override {
    quillmar_file_stamp given{sizeof given, 0, 0, 0, 0, 0};
    if (!table->call<&quillmar_files::stamp>(path.c_str(), &given)) {
      return std::nullopt;
    }
    return platform::FileStamp{given.volume, given.file, given.length, given.modified, given.changed};
  }
  std::error_code createDirectory(const std::string& path) override {
    return errorOf(table->call<&quillmar_files::create_directory>(path.c_str()));
  }
  std::error_code createFile(const std::string& path) override {
    return errorOf(table->call<&quillmar_files::create_file>(path.c_str()));
  }
  std::error_code removeItem(const std::string& path) override {
    return errorOf(table->call<&quillmar_files::remove_item>(path.c_str()));
  }
  std::error_code readFile(const std::string& path, std::string& content) const override {
    quillmar_bytes bytes;
    const std::error_code failure = errorOf(table->call<&quillmar_files::read_file>(path.c_str(), &bytes));
    if (!failure) {
      content = std::move(bytes.content).value_or("");
    }
    return failure;
  }
  std::error_code writeFile(const std::string& path, std::string_view content, WriteMode mode) override {
    return errorOf(table->call<&quillmar_files::write_file>(path.c_str(), static_cast<const void*>(content.data()),
                                                            content.size(), static_cast<quillmar_write_mode>(mode)));
  }

  std::shared_ptr<const Table<quillmar_files>> table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

quillmar_status quillmar_bytes_set(quillmar_bytes* bytes, const void* data, size_t size) {
  if (bytes == nullptr || (data == nullptr && size > 0)) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    bytes->content.emplace(static_cast<const char*>(data), size);
    return QUILLMAR_OK;
  });
}

quillmar_status quillmar_platform_set_files(quillmar_platform* platform, const quillmar_files* files) {
  return setMember<TableFiles>(platform, &platform::Platform::files, files, &quillmar_files::documents_directory,
                               &quillmar_files::file_exists, &quillmar_files::stamp, &quillmar_files::create_directory,
                               &quillmar_files::create_file, &quillmar_files::remove_item, &quillmar_files::read_file,
                               &quillmar_files::write_file);
}
