#include <gmock/gmock.h>

#include "Persistence/ASADataPersistence.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Persistence/ConversionValuesRepository.h"
#include "support/FailureOf.h"
#include "support/FaultyStores.h"
#include "support/LogCapture.h"

namespace quillmar::test {
namespace {

using platform::WriteMode;

const std::string path = "/documents/Quillmar/quill-mar-conv-val.json";

class Persistence : public ::testing::Test {
 protected:
  static ConversionValues document(const char* key) {
    return {{{key, {}}}, std::map<Window, ConversionValues::LockWindowConfiguration>()};
  }

  std::string failing;  ///< the calls that do
  const std::shared_ptr<FaultyFiles> files = std::make_shared<FaultyFiles>([this](std::string_view call) {
    return call == failing ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
  });
  std::shared_ptr<PersistenceItem<ConversionValues>> item =
      std::make_shared<PersistenceItem<ConversionValues>>(files, ConversionValuesPersistence::filename);
  ConversionValuesPersistence persistence{item};
};

TEST_F(Persistence, unchangedFileIsDecodedOnceAndAChangedOneAgain) {
  EXPECT_FALSE(item->exists());
  EXPECT_THAT(failureOf([this] { persistence.getAllConversionValues(); }),
              ::testing::EndsWith("the document is empty"));
  EXPECT_TRUE(item->exists()) << "reading has made an empty one";
  persistence.save(document("one"));
  const auto first = persistence.getAllConversionValues();
  EXPECT_EQ(persistence.getAllConversionValues(), first) << "the very same object";
  files->writeFile(path, R"({"values":[],"lockWindows":{}})", WriteMode::direct);
  EXPECT_TRUE(persistence.getAllConversionValues()->values.empty()) << "somebody else wrote the file";
  files->writeFile(path, "{", WriteMode::atomic);
  EXPECT_NE(failureOf([this] { persistence.getAllConversionValues(); }), "");
}

TEST_F(Persistence, failuresAreToldApart) {
  failing = "createDirectory";
  EXPECT_EQ(failureOf([this] { item->read(); }), "invalidFilename");
  failing = "createFile";
  EXPECT_EQ(failureOf([this] { item->delete_(); }), "notFile");
  failing = "removeItem";
  EXPECT_EQ(failureOf([this] { persistence.save(document("new")); }), "No space left on device: " + path);
  failing = "";
  EXPECT_NE(failureOf([this] { item->read(); }), "") << "nothing was written when the deletion failed";
  PersistenceItem<ConversionValues> nowhere(std::make_shared<simulated::InMemoryFileManager>(std::nullopt), "x");
  EXPECT_FALSE(nowhere.exists());
  EXPECT_EQ(failureOf([&] { nowhere.save(document("x")); }), "invalidFilename");
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

const std::string asaPath = "/documents/asa_attribution_data.json";
const std::string error = "error: ASADataPersistence - ";

class ASADataPersistenceTest : public ::testing::Test {
 protected:
  ASADataPersistenceTest() { files->createDirectory("/documents"); }

  const std::shared_ptr<simulated::InMemoryFileManager> files = std::make_shared<simulated::InMemoryFileManager>();
  ASADataPersistence persistence{files};
  LogCapture log;
};

// What else may be in the file, or no file: fuzz/AttributionRecord.cpp.
TEST_F(ASADataPersistenceTest, recordAndDictionaryAreReadFromTheFilesThatHoldThem) {
  const std::string record = R"({"orgId":"1"})";
  const std::tuple<std::string, bool, bool> rows[] = {
      {record + std::string(1U << 20U, ' '), false, false}, {R"({"orgId":1})", false, true}, {record, true, true}};
  for (const auto& [content, isRecord, isDictionary] : rows) {
    files->writeFile(asaPath, content, platform::WriteMode::direct);
    EXPECT_EQ(persistence.loadASAData().has_value(), isRecord);
    EXPECT_EQ(persistence.loadASADataAsDictionary().has_value(), isDictionary);
  }
  EXPECT_THAT(log.messages(), ::testing::Contains(::testing::HasSubstr("A value has the wrong type: orgId")));
}

TEST_F(ASADataPersistenceTest, savesEveryField) {
  persistence.saveASAData({true, "1", "2", "3", "4", "5", "6", "7", "8", "9", "\"10\""});
  std::string content;
  ASSERT_FALSE(files->readFile(asaPath, content));
  EXPECT_EQ(
      content,
      R"({"attribution":true,"campaignId":"1","adGroupId":"2","keywordId":"3","countryOrRegion":"4",)"
      R"("conversionType":"5","clickDate":"6","impressionDate":"7","adId":"8","orgId":"9","claimType":"\"10\""})");
}

TEST_F(ASADataPersistenceTest, placesThatCannotBeWrittenAreLoggedOnly) {
  Log::setLogLevel(LogLevel::error);
  persistence.saveASAData({true, std::string(1U << 20U, '1'), {}, {}, {}, {}, {}, {}, {}, {}, {}});
  files->createDirectory(asaPath);  // in the way
  persistence.saveASAData({});
  ASADataPersistence homeless(std::make_shared<simulated::InMemoryFileManager>(std::nullopt));
  homeless.saveASAData({});
  homeless.clearASAData();
  EXPECT_EQ(homeless.loadASAData(), std::nullopt);
  EXPECT_THAT(log.messages(),
              ::testing::ElementsAre(error + "Failed to save ASA data: File too large: " + asaPath,
                                     error + "Failed to save ASA data: Is a directory: " + asaPath,
                                     error + "There is no documents directory, ASA data is not kept",
                                     error + "Failed to save ASA data: The file has no place to be stored in."));
}

}  // namespace
}  // namespace quillmar::test
