#pragma once

#include <map>
#include <string>
#include <vector>

#include "Run.h"

namespace quillmar::sweep {

/// What is stored in a data folder; what is absent is empty.
struct Install {
  std::map<std::string_view, std::string> settings;  ///< as they are encoded; the last window value as a text
  std::vector<std::string> history;                  ///< the names of the tracked events, oldest first
  std::string configuration;                         ///< the content of the file
  std::string attribution;                           ///< likewise
  bool hasWindow = false;                            ///< the last window value tells its window
  std::vector<std::string> problems;                 ///< damage

  /// Reads a copy of the folder, made at `copy`, so that the folder itself is left for the next start to mend.
  Install(const std::string& folder, const std::string& copy);
};

/// Makes all events but the last older than any that can matter.
void makeHistoryOld(const std::string& folder);

constexpr const char* configurationPath = "/documents/Quillmar/quill-mar-conv-val.json";

/// What a run has said that it stored, before it ended or was killed.
struct Acknowledged {
  explicit Acknowledged(const RunResult& run);

  std::vector<std::string> events;         ///< tracked since the history was last cleared
  std::vector<std::string> clearedEvents;  ///< tracked before that
  std::vector<std::string> keptEvents;     ///< in the outbox, since the history was last cleared
  bool cleared = false;
  bool forgot = false;                     ///< what was old
  std::size_t windowValues = 0;            ///< how many last window values were saved
  std::vector<std::string> platformCalls;  ///< fine and coarse value of each call to the ad network, in order
  bool standInStore = false;               ///< the settings suite could not be opened
};

/// What may be in a folder after a run.
struct Expectation {
  Install before;
  std::string key;                  ///< the verification key of the run
  std::string configuration;        ///< the content of the file when it is written
  std::string attribution;          ///< likewise
  bool resets = false;              ///< the run forgets what the service sent and the events
  bool writesFailed = false;        ///< settings that could not be written may be the old ones
  bool isAttributionWhole = false;  ///< it is replaced in one step
  bool windowIsKept = false;        ///< a new last window value tells its window
  std::vector<std::string> old{};   ///< the first events, which the run forgets in one step
};

/// What is wrong with the folder after the run; one text for each loss.
std::vector<std::string> lossesAfterRun(const Expectation& expected, const Acknowledged& told, const Install& now);

/// What is wrong after a further, undisturbed run that tracked `event`.
std::vector<std::string> lossesAfterRestart(const Expectation& expected, const RunResult& restart,
                                            const std::string& event, const Install& now);

}  // namespace quillmar::sweep
