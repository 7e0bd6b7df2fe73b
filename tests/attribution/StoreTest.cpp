#include <gmock/gmock.h>

#include "Persistence/ASADataPersistence.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "support/LogCapture.h"

namespace quillmar::test {
namespace {

using ::testing::ElementsAre;

const std::string path = "/documents/asa_attribution_data.json";
const std::string debug = "debug: ASADataPersistence - ";
const std::string error = "error: ASADataPersistence - ";

class ASADataPersistenceTest : public ::testing::Test {
 protected:
  ASADataPersistenceTest() { files->createDirectory("/documents"); }

  const std::shared_ptr<simulated::InMemoryFileManager> files = std::make_shared<simulated::InMemoryFileManager>();
  ASADataPersistence persistence{files};
  LogCapture log;
};

TEST_F(ASADataPersistenceTest, unusableFilesAreToldFromMissingOnes) {
  const std::string record = error + "Failed to load ASA data: ";
  const std::string asDictionary = debug + "Successfully loaded ASA data as dictionary from local storage";
  const std::string large = R"({"orgId":"1"})" + std::string(1U << 20U, ' ');
  const std::tuple<const char*, std::string, std::string> rows[] = {
      {nullptr, debug + "No ASA data file found", debug + "No ASA data file found for dictionary loading"},
      {"", record, error + "Failed to load ASA data as dictionary: "},
      {"[]", record, error + "Failed to decode ASA data as dictionary"},
      {large.c_str(), record + "File too large: ", error + "Failed to load ASA data as dictionary: File too large: "},
      {R"({"orgId":1})", record + "A value has the wrong type: orgId", asDictionary},
      {R"({"orgId":"1"})", debug + "Successfully loaded ASA data from local storage", asDictionary}};
  for (const auto& [content, asRecord, dictionary] : rows) {
    if (content != nullptr) {
      files->writeFile(path, content, platform::WriteMode::direct);
    }
    persistence.loadASAData();
    EXPECT_THAT(log.messages().back(), ::testing::StartsWith(asRecord));
    persistence.loadASADataAsDictionary();
    EXPECT_THAT(log.messages().back(), ::testing::StartsWith(dictionary));
  }
}

TEST_F(ASADataPersistenceTest, savesEveryFieldAndClears) {
  persistence.saveASAData({true, "1", "2", "3", "4", "5", "6", "7", "8", "9", "\"10\""});
  std::string content;
  ASSERT_FALSE(files->readFile(path, content));
  EXPECT_EQ(
      content,
      R"({"attribution":true,"campaignId":"1","adGroupId":"2","keywordId":"3","countryOrRegion":"4",)"
      R"("conversionType":"5","clickDate":"6","impressionDate":"7","adId":"8","orgId":"9","claimType":"\"10\""})");
  persistence.clearASAData();
  persistence.clearASAData();
  EXPECT_EQ(log.messages().back(), debug + "No ASA data file to clear");
}

TEST_F(ASADataPersistenceTest, placesThatCannotBeWrittenAreLoggedOnly) {
  Log::setLogLevel(LogLevel::error);
  persistence.saveASAData({true, std::string(1U << 20U, '1'), {}, {}, {}, {}, {}, {}, {}, {}, {}});
  files->createDirectory(path);  // in the way
  persistence.saveASAData({});
  ASADataPersistence homeless(std::make_shared<simulated::InMemoryFileManager>(std::nullopt));
  homeless.saveASAData({});
  homeless.clearASAData();
  EXPECT_EQ(homeless.loadASAData(), std::nullopt);
  EXPECT_THAT(log.messages(), ElementsAre(error + "Failed to save ASA data: File too large: " + path,
                                          error + "Failed to save ASA data: Is a directory: " + path,
                                          error + "There is no documents directory, ASA data is not kept",
                                          error + "Failed to save ASA data: The file has no place to be stored in."));
}

}  // namespace
}  // namespace quillmar::test
