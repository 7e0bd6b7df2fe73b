#include "quillmar/platform/FileManager.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "Platform/Apple/AppleFileManager.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "support/TemporaryFolder.h"
#include "support/ThroughC.h"

namespace quillmar::platform {
namespace {

#ifdef QUILLMAR_FOUNDATION  // built once more for the adapter of Apple systems
using SystemFileManager = AppleFileManager;
#else
using SystemFileManager = PosixFileManager;
#endif

class FileManagerContract : public testing::TestWithParam<const char*> {
 protected:
  FileManagerContract() {
    if (kind_ == "C") {
      files_ = test::throughC(files_);
    }
    EXPECT_FALSE(files_->createDirectory(root_));
  }

  const std::string kind_ = GetParam();
  test::TemporaryFolder folder_;
  const std::string root_ = folder_ / "documents";
  const std::string file_ = root_ + "/file";
  std::shared_ptr<FileManager> files_ =
      kind_ == "InMemory" ? std::shared_ptr<FileManager>(std::make_shared<simulated::InMemoryFileManager>(root_))
                          : std::make_shared<SystemFileManager>(root_);
};

INSTANTIATE_TEST_SUITE_P(Adapters, FileManagerContract, testing::Values("Posix", "InMemory", "C"));

TEST_P(FileManagerContract, contentComesBackAndEachWriteChangesTheStamp) {
  EXPECT_EQ(files_->documentsDirectory(), root_);
  std::optional<FileStamp> last;
  const std::string large(3'000'001, 'x'), odd("\0\xff\r\n", 4);
  const std::pair<std::string, WriteMode> writes[] = {{large, WriteMode::direct},
                                                      {odd, WriteMode::direct},
                                                      {large, WriteMode::atomic},
                                                      {odd, WriteMode::atomic},
                                                      {"of 4", WriteMode::atomic}};
  for (const auto& [text, mode] : writes) {
    EXPECT_FALSE(files_->writeFile(file_, text, mode));
    const auto stamp = files_->stamp(file_);
    EXPECT_FALSE(stamp == std::exchange(last, stamp)) << text.size();
    EXPECT_FALSE(files_->createFile(file_));
    std::string content;
    EXPECT_FALSE(files_->readFile(file_, content));
    EXPECT_TRUE(content == text) << "an existing file is left alone";
    EXPECT_EQ(files_->stamp(file_), stamp) << "reading is no change";
  }
  EXPECT_FALSE(files_->removeItem(file_));
  EXPECT_FALSE(files_->fileExists(file_));
}

TEST_P(FileManagerContract, foldersAreCreatedWithThoseAboveAndErrorsAreThoseOfTheSystem) {
  ASSERT_FALSE(files_->createFile(file_));
  for (const std::string path : {"/folder/a/b", "/folder/a/b", "/folder/a/c/", "//d//e"}) {
    EXPECT_FALSE(files_->createDirectory(root_ + path)) << path;
    EXPECT_TRUE(files_->fileExists(root_ + path)) << path;
  }
  constexpr auto absent = std::errc::no_such_file_or_directory;
  constexpr auto below = std::errc::not_a_directory;
  const std::tuple<std::string, std::errc, std::errc, std::errc> rows[] = {
      {root_ + "/absent/file", std::errc(), absent, absent},
      {file_ + "/below", below, below, below},
      {root_ + "/folder", std::errc(), std::errc::is_a_directory, std::errc::directory_not_empty},
      {root_ + "/d/e", std::errc(), std::errc::is_a_directory, std::errc()},
  };
  for (const auto& [path, create, write, remove] : rows) {
    SCOPED_TRACE(path);
    std::string text = "left alone";
    EXPECT_EQ(files_->createFile(path), write);
    EXPECT_EQ(files_->writeFile(path, "x", WriteMode::direct), write);
    EXPECT_EQ(files_->writeFile(path, "x", WriteMode::atomic), write);
    EXPECT_EQ(files_->readFile(path, text), write);
    EXPECT_EQ(text, "left alone");
    EXPECT_EQ(files_->stamp(path), std::nullopt);
    EXPECT_EQ(files_->removeItem(path), remove);
    EXPECT_EQ(files_->createDirectory(path), create);
  }
  EXPECT_EQ(files_->createDirectory(file_), std::errc::file_exists);
}

// What is left of writes that fail: tools/sweep.
TEST(PosixFileManager, hugeFilesAreNeitherReadNorWritten) {
  const test::TemporaryFolder folder;
  PosixFileManager files(std::nullopt);
  ASSERT_FALSE(files.writeFile(folder / "file", "x", WriteMode::atomic));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1) << "nothing temporary is left";
  std::filesystem::resize_file(folder / "file", (std::uintmax_t{64} << 20) + 1);  // sparse: takes no room on the disk
  std::string content = "left alone";
  EXPECT_EQ(files.readFile(folder / "file", content), std::errc::file_too_large);
  EXPECT_EQ(files.writeFile(folder / "file", std::string((64 << 20) + 1, 'x'), WriteMode::atomic),
            std::errc::file_too_large)
      << "the good one stays";
  EXPECT_EQ(content, "left alone");
}

TEST(PosixFileManager, linksAndPipesAreNoFilesOfOurs) {
  const test::TemporaryFolder folder;
  PosixFileManager files(std::nullopt);
  std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  for (const char* name : {"link", "pipe"}) {
    std::string content;
    EXPECT_FALSE(files.createFile(folder / name)) << "it is there";
    EXPECT_TRUE(files.readFile(folder / name, content)) << name;
    EXPECT_TRUE(files.writeFile(folder / name, "x", WriteMode::direct)) << name;
    EXPECT_EQ(files.stamp(folder / name), std::nullopt) << name;
    EXPECT_FALSE(files.writeFile(folder / name, "x", WriteMode::atomic)) << "takes its place";
    EXPECT_FALSE(files.readFile(folder / name, content)) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

}  // namespace
}  // namespace quillmar::platform
