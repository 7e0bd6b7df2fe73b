#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace quillmar::sweep {

/// What is done to the calls of a process that touch its data folder.
struct Injection {
  enum Kind {
    none,
    kill,    ///< SIGKILL in place of the call
    tear,    ///< half of a write, then SIGKILL; only writes count
    fail,    ///< the call is not done and gives an error that suits it
    forbid,  ///< SIGKILL in place of the call, or of one that makes a socket
  };
  int kind = none;
  std::size_t first = 0;    ///< the number of the first call that is hit, from 1
  std::size_t count = 1;    ///< how many calls in a row are hit
  std::size_t variant = 0;  ///< which of the two errors that suit the call
  bool reads = false;       ///< opening for reading, reading, looking and locking count, too
  std::string folder = {};  ///< the data folder

  /// In the environment of the process: the members in this order, with blanks between them.
  static constexpr const char* variable = "QUILLMAR_SWEEP_INJECTION";
  /// The interposer names the first call that is hit in a file beside the folder.
  static constexpr const char* reportSuffix = ".hit";
};

struct RunResult {
  int status = 0;        ///< as of `waitpid`
  std::string output;    ///< standard output
  std::string errors;    ///< standard error, which is the log
  std::string firstHit;  ///< the call that was hit first, and its file; empty: none

  bool wasEndedBy(int signal) const;
  bool hasDrained() const;  ///< ended well, with everything done
};

/// Runs the command; what is left of it after `longest` is ended by SIGALRM. Its output goes through files below the
/// folder `scratch`.
RunResult run(const std::vector<std::string>& command, const std::string& scratch, const Injection& injection,
              std::chrono::microseconds longest = std::chrono::minutes(1));

/// The content of the file; nothing when there is none.
std::string readFile(const std::string& path);

}  // namespace quillmar::sweep
