#include "quillmar/platform/FileManager.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "Platform/Posix/PosixFileManager.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "support/TemporaryFolder.h"

namespace quillmar::platform {
namespace {

class FileManagerContract : public testing::TestWithParam<bool> {
 protected:
  FileManagerContract() { EXPECT_FALSE(files_->createDirectory(root_)); }

  std::string content(const std::string& path) const {
    std::string result = "left alone";
    EXPECT_FALSE(files_->readFile(path, result)) << path;
    return result;
  }

  test::TemporaryFolder folder_;
  const std::string root_ = folder_ / "documents";
  const std::string file_ = root_ + "/file";
  std::shared_ptr<FileManager> files_ =
      GetParam() ? std::shared_ptr<FileManager>(std::make_shared<simulated::InMemoryFileManager>(root_))
                 : std::make_shared<PosixFileManager>(root_);
};

INSTANTIATE_TEST_SUITE_P(PosixAndInMemory, FileManagerContract, testing::Bool());

TEST_P(FileManagerContract, contentComesBackInBothModes) {
  EXPECT_EQ(files_->documentsDirectory(), root_);
  for (const WriteMode mode : {WriteMode::direct, WriteMode::atomic}) {
    for (const std::string& text : {std::string(3'000'001, 'x'), std::string("\0\xff\r\n", 4), std::string()}) {
      EXPECT_FALSE(files_->writeFile(file_, text, mode));
      EXPECT_TRUE(content(file_) == text);
    }
  }
  ASSERT_FALSE(files_->writeFile(file_, "x", WriteMode::atomic));
  EXPECT_FALSE(files_->createFile(file_));
  EXPECT_EQ(content(file_), "") << "an existing file is emptied";
  EXPECT_FALSE(files_->removeItem(file_));
  EXPECT_FALSE(files_->fileExists(file_));
}

TEST_P(FileManagerContract, foldersAreCreatedWithThoseAbove) {
  for (const std::string path : {"/a/b/c", "/a/b/c", "/a/b/d/", "//a//e"}) {
    EXPECT_FALSE(files_->createDirectory(root_ + path)) << path;
    EXPECT_TRUE(files_->fileExists(root_ + path)) << path;
  }
  EXPECT_EQ(files_->removeItem(root_ + "/a/b"), std::errc::directory_not_empty);
  EXPECT_FALSE(files_->removeItem(root_ + "/a/e"));
}

TEST_P(FileManagerContract, errorsAreThoseOfTheSystem) {
  ASSERT_FALSE(files_->createFile(file_));
  ASSERT_FALSE(files_->createDirectory(root_ + "/folder"));
  constexpr auto absent = std::errc::no_such_file_or_directory;
  constexpr auto below = std::errc::not_a_directory;
  const struct {
    std::string path;
    std::errc create, write, remove;
  } rows[] = {
      {root_ + "/absent/file", std::errc(), absent, absent},
      {file_ + "/below", below, below, below},
      {root_ + "/folder", std::errc(), std::errc::is_a_directory, std::errc()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    std::string text = "left alone";
    EXPECT_EQ(files_->createFile(row.path), row.write);
    EXPECT_EQ(files_->writeFile(row.path, "x", WriteMode::direct), row.write);
    EXPECT_EQ(files_->writeFile(row.path, "x", WriteMode::atomic), row.write);
    EXPECT_EQ(files_->readFile(row.path, text), row.write);
    EXPECT_EQ(text, "left alone");
    EXPECT_EQ(files_->stamp(row.path), std::nullopt);
    EXPECT_EQ(files_->removeItem(row.path), row.remove);
    EXPECT_EQ(files_->createDirectory(row.path), row.create);
  }
  EXPECT_EQ(files_->createDirectory(file_), std::errc::file_exists);
}

TEST_P(FileManagerContract, stampTellsChangesApart) {
  ASSERT_FALSE(files_->writeFile(file_, "a", WriteMode::atomic));
  const auto first = files_->stamp(file_);
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
  std::vector<std::jthread> writers;
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
}

class PosixFileManagerTest : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
  PosixFileManager files_{std::nullopt};
};

TEST_F(PosixFileManagerTest, whatIsCreatedIsTheUsersOwn) {
  const mode_t mask = ::umask(0);
  EXPECT_FALSE(files_.createDirectory(folder_ / "a/b"));
  EXPECT_FALSE(files_.createFile(folder_ / "a/created"));
  EXPECT_FALSE(files_.writeFile(folder_ / "a/direct", "x", WriteMode::direct));
  EXPECT_FALSE(files_.writeFile(folder_ / "a/atomic", "x", WriteMode::atomic));
  ::umask(mask);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
    EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), entry.is_directory() ? 0700U : 0600U) << entry;
  }
}

TEST_F(PosixFileManagerTest, failedAtomicWriteLeavesTheOldContentAndNothingElse) {
  ASSERT_FALSE(files_.writeFile(folder_ / "file", "old", WriteMode::atomic));
  const auto writeTooMuch = [this] {
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit tiny{1000, 1000};
    ::setrlimit(RLIMIT_FSIZE, &tiny);
    const std::string large(5000, 'x');
    ::_exit(files_.writeFile(folder_ / "file", large, WriteMode::atomic) == std::errc::file_too_large ? 42 : 1);
  };
  EXPECT_EXIT(writeTooMuch(), testing::ExitedWithCode(42), "");
  std::string content;
  EXPECT_FALSE(files_.readFile(folder_ / "file", content));
  EXPECT_EQ(content, "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
}

TEST_F(PosixFileManagerTest, hugeFilesAreNotRead) {
  ASSERT_FALSE(files_.createFile(folder_ / "file"));
  std::filesystem::resize_file(folder_ / "file", (std::uintmax_t{64} << 20) + 1);  // sparse: takes no room on the disk
  std::string content = "left alone";
  EXPECT_EQ(files_.readFile(folder_ / "file", content), std::errc::file_too_large);
  EXPECT_EQ(content, "left alone");
}

}  // namespace
}  // namespace quillmar::platform
