#include <gmock/gmock.h>

#include <functional>

#include "Persistence/ConversionValuesPersistence.h"
#include "Persistence/ConversionValuesRepository.h"
#include "Persistence/EventServerLogRepository.h"
#include "Persistence/EventsRepository.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/LogCapture.h"
#include "support/RunTask.h"

namespace quillmar::test {
namespace {

using platform::WriteMode;
using ::testing::ElementsAre;

const std::string path = "/documents/Quillmar/quill-mar-conv-val.json";

/// A file system in which the chosen operations fail.
class FailingFileManager : public simulated::InMemoryFileManager {
 public:
  using InMemoryFileManager::InMemoryFileManager;

  std::error_code createDirectory(const std::string& directory) override {
    return failing == "directory" ? full : InMemoryFileManager::createDirectory(directory);
  }
  std::error_code createFile(const std::string& file) override {
    if (meanwhile) {
      meanwhile();
    }
    return failing == "create" ? full : InMemoryFileManager::createFile(file);
  }
  std::error_code removeItem(const std::string& file) override {
    return failing == "remove" ? full : InMemoryFileManager::removeItem(file);
  }
  std::error_code writeFile(const std::string& file, std::string_view content, WriteMode mode) override {
    const bool fails = failing == "write" && mode == WriteMode::atomic;
    return fails ? full : InMemoryFileManager::writeFile(file, content, mode);
  }

  std::string failing;
  std::function<void()> meanwhile;  ///< what others do between the look for a file and its creation
  const std::error_code full = std::make_error_code(std::errc::no_space_on_device);
};

class Persistence : public ::testing::Test {
 protected:
  static ConversionValues document(const char* key) {
    return {{{key, {}}}, std::map<Window, ConversionValues::LockWindowConfiguration>()};
  }

  static std::string failure(const std::function<void()>& operation) {
    try {
      operation();
      return {};
    } catch (const std::exception& error) {
      return textualDescription(error);
    }
  }

  std::shared_ptr<FailingFileManager> files = std::make_shared<FailingFileManager>();
  std::shared_ptr<PersistenceItem<ConversionValues>> item =
      std::make_shared<PersistenceItem<ConversionValues>>(files, ConversionValuesPersistence::filename);
  ConversionValuesPersistence persistence{item};
  LogCapture log;
};

TEST_F(Persistence, readingBeforeSavingCreatesAnEmptyFileThatDoesNotDecode) {
  EXPECT_FALSE(item->exists());
  EXPECT_TRUE(files->fileExists("/documents/Quillmar"));
  EXPECT_EQ(failure([this] { persistence.getAllConversionValues(); }),
            "dataCorrupted: not valid JSON at line 1, column 1: the document is empty");
  EXPECT_TRUE(item->exists());
  item->delete_();
  files->meanwhile = [this] { files->writeFile(path, R"({"values":[],"lockWindows":{}})", WriteMode::atomic); };
  EXPECT_EQ(*item->read(), ConversionValues()) << "saved meanwhile, and not emptied";
}

TEST_F(Persistence, secondSaveReplacesTheFirst) {
  persistence.save(document("one"));
  log.clear();
  persistence.save(document("two"));
  EXPECT_THAT(log.messages(), ElementsAre("debug: ConversionValuesPersistence - Saving conversion values",
                                          "debug: PersistenceItem - Deleting file: quill-mar-conv-val.json",
                                          "debug: PersistenceItem - Saving data to file: quill-mar-conv-val.json",
                                          "debug: ConversionValuesPersistence - Conversion values saved successfully"));
  EXPECT_EQ(*persistence.getAllConversionValues(), document("two"));
}

TEST_F(Persistence, unchangedFileIsDecodedOnceAndAChangedOneAgain) {
  persistence.save(document("one"));
  const auto first = persistence.getAllConversionValues();
  EXPECT_EQ(persistence.getAllConversionValues(), first) << "the very same object";
  files->writeFile(path, R"({"values":[],"lockWindows":{}})", WriteMode::direct);
  EXPECT_TRUE(persistence.getAllConversionValues()->values.empty()) << "somebody else wrote the file";
  files->writeFile(path, "{", WriteMode::atomic);
  EXPECT_NE(failure([this] { persistence.getAllConversionValues(); }), "");
}

TEST_F(Persistence, failuresAreToldApart) {
  persistence.save(document("kept"));
  files->failing = "remove";
  EXPECT_EQ(failure([this] { persistence.save(document("new")); }), "No space left on device: " + path);
  EXPECT_EQ(*item->read(), document("kept")) << "nothing is written when the deletion fails";
  files = std::make_shared<FailingFileManager>();
  PersistenceItem<ConversionValues> fresh(files, "x");
  files->failing = "directory";
  EXPECT_EQ(failure([&] { fresh.read(); }), "invalidFilename");
  EXPECT_THAT(log.messages().back(), ::testing::StartsWith("error: PersistenceItem - Failed to create directory: "));
  files->failing = "create";
  EXPECT_EQ(failure([&] { fresh.delete_(); }), "notFile");
  PersistenceItem<ConversionValues> nowhere(std::make_shared<FailingFileManager>(std::nullopt), "x");
  EXPECT_FALSE(nowhere.exists());
  EXPECT_EQ(failure([&] { nowhere.save(document("x")); }), "invalidFilename");
}

struct ScriptedConfigClient : ConfigApiClientProtocol {
  Task<ConfigResponse> fetchConfig() override { co_return response; }
  ConfigResponse response{"app-1", false, {}, {}};
};

TEST_F(Persistence, verdictOfTheServiceIsStoredBeforeTheDocument) {
  const auto defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  ConversionValuesRepository repository(std::make_shared<ScriptedConfigClient>(),
                                        std::make_shared<ConversionValuesPersistence>(item), defaults);
  files->failing = "write";
  EXPECT_EQ(failureOf(withResult(repository.fetchAndSaveConversionValues())), "No space left on device: " + path);
  EXPECT_EQ(defaults->string("ServerAppId"), "app-1");
  EXPECT_EQ(defaults->object("SdkEnabled"), platform::PropertyListValue(false));
  files->failing.clear();
  EXPECT_EQ(failureOf(withResult(repository.fetchAndSaveConversionValues())), "");
  EXPECT_EQ(*repository.fetchAllConversionValues(), ConversionValues()) << "a disabled library keeps its document";
}

struct ScriptedEventClient : EventServerLogApiClientProtocol, EventsApiClientProtocol {
  Task<EventServerLogResponse> logEvent(std::string) override { co_return response; }
  Task<EventServerLogResponse> sendEvent(std::string) override { co_return response; }
  EventServerLogResponse response;
};

TEST_F(Persistence, onlyTheExactWordSuccessIsOneAndADisabledLibraryAsksNothing) {
  const auto client = std::make_shared<ScriptedEventClient>();
  const auto defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  EventServerLogRepository logs(client, defaults);
  EventsRepository events(client);
  for (const auto& status : {std::optional<std::string>("success"), {"Success"}, {}}) {
    client->response.status = status;
    const bool good = status == "success";
    EXPECT_EQ(failureOf(logs.logEvent("a")), good ? "" : "failedToLogEvent");
    EXPECT_EQ(failureOf(withResult(events.send("{}"))), good ? "" : "error");
  }
  defaults->set("SdkEnabled", false);
  EXPECT_FALSE(runTask(logs.logEvent("a")));
}

}  // namespace
}  // namespace quillmar::test
