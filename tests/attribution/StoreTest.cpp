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

TEST(ASADataPersistence, unusableFilesAreToldFromMissingOnes) {
  const std::string record = error + "Failed to load ASA data: ";
  const std::string noRecord = record + "A value has the wrong type: ";
  const std::string dictionary =
      error + "Failed to load ASA data as dictionary: The data is not in the correct format: ";
  const std::string loaded = debug + "Successfully loaded ASA data";
  const std::string empty = "not valid JSON at line 1, column 1: the document is empty";
  const struct {
    const char* content;
    std::string record, dictionary;  // what the two ways to load log in the end
  } cases[] = {
      {nullptr, debug + "No ASA data file found", debug + "No ASA data file found for dictionary loading"},
      {"", record + "The data is not in the correct format: " + empty, dictionary + empty},
      {"[]", noRecord + "the document: expected an object, found an array",
       error + "Failed to decode ASA data as dictionary"},
      {R"({"orgId":1,"foreign":[1.10]})", noRecord + "orgId: expected a string, found another number",
       loaded + " as dictionary from local storage"},
      {R"({"attribution":true,"orgId":"1","claimType":null})", loaded + " from local storage",
       loaded + " as dictionary from local storage"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.record);
    const auto files = std::make_shared<simulated::InMemoryFileManager>();
    if (test.content != nullptr) {
      files->createDirectory("/documents");
      files->writeFile(path, test.content, platform::WriteMode::direct);
    }
    const ASADataPersistence persistence(files);
    const LogCapture log;
    EXPECT_EQ(persistence.loadASAData().has_value(), test.record.starts_with(loaded));
    const auto text = persistence.loadASADataAsDictionary();
    ASSERT_EQ(text.has_value(), test.dictionary.starts_with(loaded));
    EXPECT_TRUE(!text || text->text() == test.content);
    EXPECT_THAT(log.messages(),
                ElementsAre(debug + "Loading ASA attribution data from local storage", test.record,
                            debug + "Loading ASA attribution data as dictionary from local storage", test.dictionary));
    EXPECT_EQ(persistence.hasASAData(), test.content != nullptr);
  }
}

TEST(ASADataPersistence, savesEveryFieldAndClears) {
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  ASADataPersistence persistence(files);
  const ASAAttributionResponse record{true, "1", "2", "3", "4", "5", "6", "7", "8", "9", "\"10\""};
  persistence.saveASAData(record);
  std::string content;
  ASSERT_FALSE(files->readFile(path, content));
  EXPECT_EQ(
      content,
      R"({"attribution":true,"campaignId":"1","adGroupId":"2","keywordId":"3","countryOrRegion":"4",)"
      R"("conversionType":"5","clickDate":"6","impressionDate":"7","adId":"8","orgId":"9","claimType":"\"10\""})");
  EXPECT_EQ(persistence.loadASAData(), record);
  const LogCapture log;
  persistence.clearASAData();
  EXPECT_FALSE(persistence.hasASAData());
  persistence.clearASAData();
  EXPECT_EQ(log.messages().back(), debug + "No ASA data file to clear");
}

TEST(ASADataPersistence, placesThatCannotBeWrittenAreLoggedOnly) {
  const LogCapture log(LogLevel::error);
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  files->createDirectory("/documents");
  files->createDirectory(path);  // in the way
  ASADataPersistence(files).saveASAData({});
  ASADataPersistence homeless(std::make_shared<simulated::InMemoryFileManager>(std::nullopt));
  homeless.saveASAData({});
  homeless.clearASAData();
  EXPECT_FALSE(homeless.hasASAData());
  EXPECT_EQ(homeless.loadASAData(), std::nullopt);
  EXPECT_THAT(log.messages(), ElementsAre(error + "Failed to save ASA data: Is a directory: " + path,
                                          error + "There is no documents directory, ASA data is not kept",
                                          error + "Failed to save ASA data: The file has no place to be stored in."));
}

}  // namespace
}  // namespace quillmar::test
