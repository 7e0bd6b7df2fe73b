#include "Facade/Erasure.h"

#include <string>
#include <system_error>
#include <utility>

#include "Conversion/ConversionTrackingManager.h"
#include "Conversion/EventTracker.h"
#include "Delivery/OutboxStore.h"
#include "Logging/Log.h"
#include "Persistence/ASADataPersistence.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/StoreSetting.h"
#include "quillmar/Config.h"

namespace quillmar {

Erasure::Erasure(const platform::Platform& platform, std::shared_ptr<platform::UserDefaults> userDefaults)
    : files_(platform.files),
      clock_(platform.clock),
      userDefaults_(std::move(userDefaults)),
      suite_(quillMarDefaults(platform.userDefaults)) {}

void Erasure::begin() const {
  storeSetting(*userDefaults_, markKey, true);
}

void Erasure::finish() const {
  if (userDefaults_->boolean(markKey)) {
    run();
  }
}

void Erasure::run() const {
  const bool areFilesGone = removeFiles();
  const bool areKeptGone = removeKept();
  removeSettings();
  if (areFilesGone && areKeptGone) {
    removeSetting(*userDefaults_, markKey);
    Log::debug("Quillmar - Erased everything that was stored");
  }
}

bool Erasure::removeFiles() const {
  const std::string configuration = PersistenceFile(files_, ConversionValuesPersistence::filename).usualPath();
  const std::optional<std::string> documents = files_->documentsDirectory();
  bool areGone = true;
  for (const std::string& path :
       {configuration, documents ? *documents + "/" + std::string(ASADataPersistence::asaDataFileName) : ""}) {
    if (path.empty() || !files_->fileExists(path)) {
      continue;
    }
    if (const std::error_code error = files_->removeItem(path)) {
      Log::error("Quillmar - Failed to erase {}: {}", path, error.message());
      areGone = false;
    }
  }
  return areGone;
}

bool Erasure::removeKept() const {
  try {
    for (const char* const key : {OutboxStore::eventsKey, OutboxStore::purchasesKey}) {
      OutboxStore(userDefaults_, key).clear();
      removeSetting(*userDefaults_, key);
    }
    return true;
  } catch (const std::system_error& error) {
    Log::error("Quillmar - Failed to erase what is kept: {}", error.code().message());
    return false;
  }
}

void Erasure::removeSettings() const {
  removeSetting(*suite_, Config::quillmarVerificationKey);
  for (const std::string_view key :
       {Config::quillmarVerificationKey, Config::serverAppId, Config::sdkEnabled,
        Config::lastConversionValuesFetchTimestamp, Config::firstRunDateKey, Config::quillMarId,
        Config::lastWindowValue, ConversionTrackingManager::adNetworkRegisteredKey}) {
    removeSetting(*userDefaults_, key);
  }
  // The last: with the history, a store takes the bytes of all that was removed off the disk.
  EventTracker(userDefaults_, clock_).clearCompletedEvents();
}

}  // namespace quillmar
