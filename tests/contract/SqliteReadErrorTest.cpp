#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Platform/Posix/SqliteUserDefaults.h"
#include "support/TemporaryFolder.h"

namespace {
thread_local int readsUntilFailure = 0;  ///< 0 for none
thread_local int failuresInARow = 0;
}  // namespace

/// SQLite reads through this one.
extern "C" __attribute__((visibility("default"))) ssize_t pread64(int file, void* buffer, size_t size, off64_t offset) {
  if (readsUntilFailure > 0 && --readsUntilFailure < failuresInARow) {
    errno = EIO;
    return -1;
  }
  return ::syscall(SYS_pread64, file, buffer, size, offset);
}

namespace quillmar::platform {
namespace {

/// SQLite calls a page that cannot be read corrupt, and what is corrupt is written over.
TEST(SqliteUserDefaults, aValueThatTheDiskDoesNotGiveIsNotTakenForDamaged) {
  const test::TemporaryFolder folder;
  const std::string history(20'000, 'x');
  const auto open = [&](const std::string& name) {
    return SqliteUserDefaults::open(folder / name, [](std::string_view) {});
  };
  ASSERT_FALSE(open("base.sqlite")->set("history", PropertyListValue::Data{history}));
  for (const int inARow : {1, 20}) {
    int failures = 0;
    for (int read = 1;; ++read) {
      SCOPED_TRACE(testing::Message() << inARow << " from read " << read);
      std::filesystem::copy_file(folder / "base.sqlite", folder / "copy.sqlite",
                                 std::filesystem::copy_options::overwrite_existing);
      const auto store = open("copy.sqlite");
      ASSERT_TRUE(store);
      failuresInARow = inARow;
      readsUntilFailure = read + inARow - 1;
      bool failed = false;
      try {
        EXPECT_EQ(store->data("history"), history);
      } catch (const std::system_error&) {
        failed = true;
      }
      readsUntilFailure = 0;
      EXPECT_EQ(store->data("history"), history);
      if (!failed) {
        break;
      }
      ++failures;
    }
    EXPECT_GT(failures, 3);
  }
}

}  // namespace
}  // namespace quillmar::platform
