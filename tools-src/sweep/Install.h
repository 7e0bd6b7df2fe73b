#pragma once

#include <set>
#include <string>
#include <vector>

#include "DataFolder.h"
#include "TracedRun.h"

namespace quillmar::sweep {

/// What a run has said that it stored, before it ended or was killed.
struct Acknowledged {
  explicit Acknowledged(const RunResult& run);

  std::vector<std::string> events;      ///< tracked since the history was last cleared
  std::set<std::string> clearedEvents;  ///< tracked before that
  bool cleared = false;
  std::size_t windowValues = 0;            ///< how many last window values were saved
  std::vector<std::string> platformCalls;  ///< fine and coarse value of each call to the ad network, in order
  bool standInStore = false;               ///< the settings suite could not be opened
};

/// What may be in a folder after a run.
struct Expectation {
  DataFolder before;
  Acknowledged acknowledged;
  std::string key;            ///< the verification key of the run
  bool resets = false;        ///< the run forgets what the service sent and the events
  bool writesFailed = false;  ///< settings that could not be written may be the old ones
  std::string configuration;  ///< the content of the file when it is written
  std::string attribution;    ///< likewise
};

/// What is wrong with the folder after the run; one text for each loss.
std::vector<std::string> lossesAfterRun(const Expectation& expected, const DataFolder& now);

/// What is wrong after a further, undisturbed start that tracked the event `event` with the key `key`.
std::vector<std::string> lossesAfterRestart(const DataFolder& before, const DataFolder& now, const RunResult& restart,
                                            const std::string& event, const std::string& key,
                                            const std::string& configuration);

}  // namespace quillmar::sweep
