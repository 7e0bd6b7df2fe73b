#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Install.h"

namespace quillmar::sweep {

struct SweepOptions {
  std::string executable;  ///< the quillmar command
  std::size_t every = 1;   ///< only each n-th point
  std::size_t randomKills = 0;
  std::uint32_t seed = 1;
};

/// Ends or disturbs runs of the quillmar command in turn, each on a copy of a prepared data folder, and looks at what
/// is stored afterwards.
class Sweep {
 public:
  explicit Sweep(SweepOptions options);
  ~Sweep();
  Sweep(const Sweep&) = delete;
  Sweep& operator=(const Sweep&) = delete;

  /// Kills at each call that changes the data folder, and in the middle of each write.
  void killAtEachPoint();

  /// Kills under load, at random moments; half of the runs go on with one folder.
  void killAtRandom();

  /// Lets each call fail: once, for a while, and from there on.
  void failEachCall();

  /// Prints the counts. True when nothing was lost.
  bool report() const;

 private:
  struct Path;
  struct Tally {
    std::size_t runs = 0;
    std::size_t points = 0;
    std::size_t losses = 0;
    std::size_t standIns = 0;
    std::size_t cutAttributions = 0;
    std::size_t emptyConfigurations = 0;
    std::size_t temporaryFiles = 0;
  };

  std::vector<std::string> command(const std::string& key, const std::string& script) const;
  std::string preparedFolder(const std::string& kind);
  void sweep(const Path& path, const std::string& kind, const Injection& injection, const std::string& title);
  void judge(const std::string& title, const std::string& where, const Expectation& expected, const RunResult& run,
             const std::string& nextEvent);
  void lose(const std::string& title, const std::string& where, const std::string& what, const RunResult& run);

  const SweepOptions options_;
  const std::string folder_;
  const std::string data_;
  std::string configuration_;
  std::string attribution_;
  std::map<std::string, Tally> tallies_;
  std::size_t shownLosses_ = 0;
};

}  // namespace quillmar::sweep
