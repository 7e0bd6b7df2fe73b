#include <gtest/gtest.h>

#include <functional>

#include "Logging/ErrorDescription.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Persistence/ConversionValuesRepository.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "support/FaultyStores.h"

namespace quillmar::test {
namespace {

using platform::WriteMode;

const std::string path = "/documents/Quillmar/quill-mar-conv-val.json";

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

  std::shared_ptr<FaultyFiles> makeFiles() {
    return std::make_shared<FaultyFiles>([this](std::string_view call) {
      return call == failing ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
    });
  }

  std::string failing;  ///< the calls that do
  std::shared_ptr<FaultyFiles> files = makeFiles();
  std::shared_ptr<PersistenceItem<ConversionValues>> item =
      std::make_shared<PersistenceItem<ConversionValues>>(files, ConversionValuesPersistence::filename);
  ConversionValuesPersistence persistence{item};
};

TEST_F(Persistence, readingBeforeSavingCreatesAnEmptyFileThatDoesNotDecode) {
  EXPECT_FALSE(item->exists());
  EXPECT_EQ(failure([this] { persistence.getAllConversionValues(); }),
            "dataCorrupted: not valid JSON at line 1, column 1: the document is empty");
  EXPECT_TRUE(item->exists());
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
  failing = "removeItem";
  EXPECT_EQ(failure([this] { persistence.save(document("new")); }), "No space left on device: " + path);
  EXPECT_EQ(*item->read(), document("kept")) << "nothing is written when the deletion fails";
  files = makeFiles();
  PersistenceItem<ConversionValues> fresh(files, "x");
  failing = "createDirectory";
  EXPECT_EQ(failure([&] { fresh.read(); }), "invalidFilename");
  failing = "createFile";
  EXPECT_EQ(failure([&] { fresh.delete_(); }), "notFile");
  PersistenceItem<ConversionValues> nowhere(std::make_shared<simulated::InMemoryFileManager>(std::nullopt), "x");
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
  const auto repository = std::make_shared<ConversionValuesRepository>(
      std::make_shared<ScriptedConfigClient>(), std::make_shared<ConversionValuesPersistence>(item), defaults, executor,
      std::make_shared<Epoch>());
  failing = "writeFile";
  std::string failure;
  repository->fetchAndSaveConversionValues(
      [&](const std::exception_ptr& error) { failure = textualDescription(error); });
  executor->runUntilIdle();
  EXPECT_EQ(failure, "No space left on device: " + path);
  EXPECT_EQ(defaults->string("ServerAppId"), "app-1");
  EXPECT_EQ(defaults->object("SdkEnabled"), platform::PropertyListValue(false));
}

}  // namespace
}  // namespace quillmar::test
