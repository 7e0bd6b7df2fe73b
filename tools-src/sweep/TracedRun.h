#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace quillmar::sweep {

/// What is done to the calls of a process that touch its data folder.
struct Injection {
  enum class Kind {
    none,
    kill,  ///< SIGKILL in place of the call
    tear,  ///< half of a write, then SIGKILL; only writes count
    fail,  ///< the call is not done and gives an error that suits it
  };
  Kind kind = Kind::none;
  std::size_t first = 0;    ///< the number of the first call that is hit, from 1
  std::size_t count = 1;    ///< how many calls in a row are hit
  std::size_t variant = 0;  ///< which of the errors that suit the call
  bool reads = false;       ///< opening for reading, reading and locking count, too
};

struct RunResult {
  int status = 0;         ///< as of `waitpid`
  bool timedOut = false;  ///< was ended by us after a minute
  std::string output;     ///< standard output
  std::string errors;     ///< standard error, which is the log
  std::size_t hits = 0;   ///< how many calls were hit
  std::string firstHit;   ///< the first of them
  /// The counted calls: the name of the call and that of the file.
  std::vector<std::string> calls;

  bool wasKilled() const;
  bool endedWell() const;
};

/// Whether this process may trace its children. Containers can forbid that.
bool isTracingPermitted();

/// Runs the command to its end under a tracer. All threads are counted together, so that the n-th call is the n-th of
/// the process. Calls count when they change something below `folder`. `scratch` is a folder for the output.
RunResult runTraced(const std::vector<std::string>& command, const std::string& folder, const std::string& scratch,
                    const Injection& injection);

/// Runs the command without a tracer, and kills it `delay` after the log has had `lines` lines with `text` in them.
/// Without such lines it runs to its end.
RunResult runAndKill(const std::vector<std::string>& command, const std::string& scratch, const std::string& text,
                     std::size_t lines, std::chrono::microseconds delay);

/// Runs the command to its end.
RunResult runFreely(const std::vector<std::string>& command, const std::string& scratch);

}  // namespace quillmar::sweep
