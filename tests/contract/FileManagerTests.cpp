#include "quillmar/platform/FileManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Posix/PosixFileManager.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

struct Adapter {
  const char* name;
  std::shared_ptr<FileManager> (*make)(const std::string& documents);
};

class FileManagerContract : public testing::TestWithParam<Adapter> {
 protected:
  FileManagerContract() : files_(GetParam().make(root_)) { EXPECT_FALSE(files_->createDirectory(root_)); }

  std::string content(const std::string& path) const {
    std::string result = "left alone";
    EXPECT_FALSE(files_->readFile(path, result)) << path;
    return result;
  }

  test::TemporaryFolder folder_;
  const std::string root_ = folder_ / "documents";
  const std::string file_ = root_ + "/file";
  std::shared_ptr<FileManager> files_;
};

TEST_P(FileManagerContract, contentComesBackInBothModes) {
  EXPECT_EQ(files_->documentsDirectory(), root_);
  const std::string odd("\0\xff\r\n", 4);
  const std::string large(3'000'001, 'x');
  for (const WriteMode mode : {WriteMode::direct, WriteMode::atomic}) {
    for (const std::string& text : {large, odd, std::string(), odd}) {
      EXPECT_FALSE(files_->writeFile(file_, text, mode));
      EXPECT_TRUE(content(file_) == text);
    }
  }
  EXPECT_FALSE(files_->createFile(file_));
  EXPECT_EQ(content(file_), "") << "an existing file is emptied";
  EXPECT_TRUE(files_->fileExists(file_));
  EXPECT_FALSE(files_->removeItem(file_));
  EXPECT_FALSE(files_->fileExists(file_));
}

TEST_P(FileManagerContract, foldersAreCreatedWithThoseAbove) {
  for (const std::string path : {"/a/b/c", "/a/b/c", "/a/b/d/", "//a//e"}) {
    EXPECT_FALSE(files_->createDirectory(root_ + path)) << path;
    EXPECT_TRUE(files_->fileExists(root_ + path)) << path;
  }
  EXPECT_FALSE(files_->writeFile(root_ + "/a/b/c/file", "text", WriteMode::atomic));
  EXPECT_EQ(files_->removeItem(root_ + "/a/b"), std::errc::directory_not_empty);
  EXPECT_FALSE(files_->removeItem(root_ + "/a/e"));
  EXPECT_EQ(content(root_ + "/a/b/c/file"), "text");
  EXPECT_TRUE(files_->fileExists("/"));
}

TEST_P(FileManagerContract, errorsAreThoseOfTheSystem) {
  ASSERT_FALSE(files_->createFile(file_));
  ASSERT_FALSE(files_->createDirectory(root_ + "/folder"));
  const struct {
    std::string path;
    std::errc create, write, read, remove;
  } rows[] = {
      {root_ + "/absent/file", std::errc(), std::errc::no_such_file_or_directory, std::errc::no_such_file_or_directory,
       std::errc::no_such_file_or_directory},
      {file_ + "/below", std::errc::not_a_directory, std::errc::not_a_directory, std::errc::not_a_directory,
       std::errc::not_a_directory},
      {root_ + "/folder", std::errc(), std::errc::is_a_directory, std::errc::is_a_directory, std::errc()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    std::string text = "left alone";
    EXPECT_EQ(files_->createFile(row.path), row.write);
    EXPECT_EQ(files_->writeFile(row.path, "x", WriteMode::direct), row.write);
    EXPECT_EQ(files_->writeFile(row.path, "x", WriteMode::atomic), row.write);
    EXPECT_EQ(files_->readFile(row.path, text), row.read);
    EXPECT_EQ(text, "left alone");
    EXPECT_EQ(files_->stamp(row.path), std::nullopt);
    EXPECT_EQ(files_->removeItem(row.path), row.remove);
    EXPECT_EQ(files_->createDirectory(row.path), row.create);
  }
  EXPECT_EQ(files_->createDirectory(file_), std::errc::file_exists);
  EXPECT_EQ(content(file_), "");
}

TEST_P(FileManagerContract, stampTellsChangesApart) {
  EXPECT_EQ(files_->stamp(file_), std::nullopt);
  ASSERT_FALSE(files_->writeFile(file_, "a", WriteMode::atomic));
  const auto first = files_->stamp(file_);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size, 1U);
  EXPECT_EQ(content(file_), "a");
  EXPECT_EQ(files_->stamp(file_), first) << "reading is no change";
  ASSERT_FALSE(files_->writeFile(file_, "b", WriteMode::atomic));
  const auto second = files_->stamp(file_);
  EXPECT_FALSE(second == first);
  ASSERT_FALSE(files_->writeFile(file_, "bb", WriteMode::direct));
  EXPECT_FALSE(files_->stamp(file_) == second);
  EXPECT_EQ(files_->stamp(file_)->file, second->file) << "written in place";
}

TEST_P(FileManagerContract, readersOfAnAtomicWriteSeeOneContentOrTheOther) {
  const std::string contents[] = {std::string(50'000, 'a'), std::string(20'000, 'b')};
  ASSERT_FALSE(files_->writeFile(file_, contents[0], WriteMode::atomic));
  std::vector<std::thread> writers;
  for (const std::string& text : contents) {
    writers.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(files_->writeFile(file_, text, WriteMode::atomic));
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    const std::string seen = content(file_);
    EXPECT_TRUE(seen == contents[0] || seen == contents[1]) << seen.size();
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
}

INSTANTIATE_TEST_SUITE_P(Adapters, FileManagerContract,
                         testing::Values(Adapter{"InMemory",
                                                 [](const std::string& documents) -> std::shared_ptr<FileManager> {
                                                   return std::make_shared<simulated::InMemoryFileManager>(documents);
                                                 }},
                                         Adapter{"Posix",
                                                 [](const std::string& documents) -> std::shared_ptr<FileManager> {
                                                   return std::make_shared<PosixFileManager>(documents);
                                                 }}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PosixFileManager, whatIsCreatedIsTheUsersOwn) {
  const test::TemporaryFolder folder;
  PosixFileManager files(std::nullopt);
  EXPECT_EQ(files.documentsDirectory(), std::nullopt);
  const mode_t mask = ::umask(0);
  EXPECT_FALSE(files.createDirectory(folder / "a/b"));
  EXPECT_FALSE(files.createFile(folder / "a/created"));
  EXPECT_FALSE(files.writeFile(folder / "a/direct", "x", WriteMode::direct));
  EXPECT_FALSE(files.writeFile(folder / "a/atomic", "x", WriteMode::atomic));
  ::umask(mask);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << entry;
  }
}

TEST(PosixFileManager, failedAtomicWriteLeavesTheOldContentAndNothingElse) {
  const test::TemporaryFolder folder;
  PosixFileManager files(std::nullopt);
  ASSERT_FALSE(files.writeFile(folder / "file", "old", WriteMode::atomic));
  struct rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit tiny{1000, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tiny), 0);
  const std::error_code error = files.writeFile(folder / "file", std::string(5000, 'x'), WriteMode::atomic);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  ::signal(SIGXFSZ, handler);
  EXPECT_EQ(error, std::errc::file_too_large);
  std::string content;
  EXPECT_FALSE(files.readFile(folder / "file", content));
  EXPECT_EQ(content, "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(PosixFileManager, hugeFilesAreNotRead) {
  const test::TemporaryFolder folder;
  PosixFileManager files(std::nullopt);
  ASSERT_FALSE(files.createFile(folder / "file"));
  constexpr std::uintmax_t limit = std::uintmax_t{64} << 20;
  std::string content;
  std::filesystem::resize_file(folder / "file", limit);  // sparse: takes no room on the disk
  EXPECT_FALSE(files.readFile(folder / "file", content));
  EXPECT_EQ(content.size(), limit);
  std::filesystem::resize_file(folder / "file", limit + 1);
  content = "left alone";
  EXPECT_EQ(files.readFile(folder / "file", content), std::errc::file_too_large);
  EXPECT_EQ(content, "left alone");
}

}  // namespace
}  // namespace quillmar::platform
