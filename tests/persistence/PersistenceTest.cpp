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
  EXPECT_THAT(log.messages(), ElementsAre("debug: ConversionValuesPersistence - Reading conversion values",
                                          "debug: PersistenceItem - Reading data from file: quill-mar-conv-val.json"));
}

TEST_F(Persistence, secondSaveReplacesTheFirst) {
  item->delete_();  // a missing file
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
  files->failing = "directory";
  EXPECT_EQ(failure([this] { item->read(); }), "invalidFilename");
  EXPECT_THAT(log.messages(),
              ElementsAre(::testing::StartsWith("error: PersistenceItem - Failed to create directory: ")));
  files->failing = "create";
  EXPECT_EQ(failure([this] { item->delete_(); }), "notFile");
  files->failing.clear();
  persistence.save(document("kept"));
  files->failing = "remove";
  EXPECT_EQ(failure([this] { persistence.save(document("new")); }), "No space left on device: " + path);
  EXPECT_EQ(*item->read(), document("kept")) << "nothing is written when the deletion fails";

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
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  const auto epoch = std::make_shared<Epoch>();
  const auto repository = std::make_shared<ConversionValuesRepository>(
      std::make_shared<ScriptedConfigClient>(), std::make_shared<ConversionValuesPersistence>(item), defaults, executor,
      epoch);
  const auto fetchFailure = [&] {
    std::string failure = "no end";
    repository->fetchAndSaveConversionValues(
        [&](const std::exception_ptr& error) { failure = error ? textualDescription(error) : ""; });
    executor->runUntilIdle();
    return failure;
  };
  files->failing = "write";
  EXPECT_EQ(fetchFailure(), "No space left on device: " + path);
  EXPECT_EQ(defaults->string("ServerAppId"), "app-1");
  EXPECT_EQ(defaults->object("SdkEnabled"), platform::PropertyListValue(false));
  EXPECT_EQ(log.messages().back(), "error: ConversionValuesRepository - Failed to fetch and save conversion values: " +
                                       ("No space left on device: " + path));
  files->failing.clear();
  EXPECT_EQ(fetchFailure(), "");
  EXPECT_EQ(*repository->fetchAllConversionValues(), ConversionValues()) << "a disabled library keeps its document";
  EXPECT_EQ(log.messages().back(), "debug: ConversionValuesRepository - Fetched conversion values: []");
}

struct ScriptedEventClient : EventServerLogApiClientProtocol, EventsApiClientProtocol {
  Task<EventServerLogResponse> logEvent(std::string) override { return reply(); }
  Task<EventServerLogResponse> sendEvent(std::string) override { return reply(); }
  Task<EventServerLogResponse> reply() {
    if (!response) {
      throw std::system_error(std::make_error_code(std::errc::timed_out));
    }
    co_return *response;
  }
  std::optional<EventServerLogResponse> response;
};

TEST_F(Persistence, onlyTheExactWordSuccessIsOneAndADisabledLibraryAsksNothing) {
  const std::string name = "EventServerLogRepository - ";
  const std::string failed = "error: " + name + "Error logging event: ";
  const struct {
    std::optional<EventServerLogResponse> response;
    std::string logFailure, sendFailure, line;
  } cases[] = {{{{"success", "fine", {}}}, "", "", "debug: " + name + "Event logged successfully: fine"},
               {{{"Success", {}, {}}}, "failedToLogEvent", "error", failed + "failedToLogEvent"},
               {EventServerLogResponse{}, "failedToLogEvent", "error", failed + "failedToLogEvent"},
               {std::nullopt, "failedToLogEvent", "Connection timed out", failed + "Connection timed out"}};
  const auto client = std::make_shared<ScriptedEventClient>();
  const auto defaults = std::make_shared<simulated::InMemoryUserDefaults>();
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  const auto logs = std::make_shared<EventServerLogRepository>(client, defaults, executor);
  EventLogResult result;
  const auto logFailure = [&] {
    logs->logEvent("a", [&result](EventLogResult end) { result = std::move(end); });
    executor->runUntilIdle();
    return result.failure ? textualDescription(result.failure) : "";
  };
  EventsRepository events(client);
  for (const auto& test : cases) {
    client->response = test.response;
    EXPECT_EQ(logFailure(), test.logFailure);
    EXPECT_EQ(log.messages().back(), test.line);
    EXPECT_EQ(failureOf(withResult(events.send("{}"))), test.sendFailure) << test.line;
    EXPECT_EQ(log.messages().back(), "debug: ProductSubscriptionStatusRepository - Sending event to server");
  }
  defaults->set("SdkEnabled", false);
  log.clear();
  EXPECT_EQ(logFailure(), "");
  EXPECT_FALSE(result.accepted);
  EXPECT_THAT(log.messages(),
              ElementsAre("debug: " + name + "SDK enabled status: false",
                          "debug: " + name + "SDK is disabled by server configuration, skipping event: a"));
}

}  // namespace
}  // namespace quillmar::test
