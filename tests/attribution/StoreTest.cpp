#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Persistence/ASADataPersistence.h"
#include "quillmar/simulated/InMemoryFileManager.h"
#include "support/LogCapture.h"

namespace quillmar::test {
namespace {

using ::testing::ElementsAre;

const std::string path = "/documents/asa_attribution_data.json";
const std::string prefix = "ASADataPersistence - ";

TEST(ASADataPersistence, unusableFilesAreToldFromMissingOnes) {
  struct Case {
    const char* content;
    const char* record;      // the end of the lines of the two ways to load
    const char* dictionary;  // likewise
  };
  const char* const empty =
      "The data is not in the correct format: not valid JSON at line 1, column 1: the document is empty";
  const std::string emptyRecord = std::string("error: ") + prefix + "Failed to load ASA data: " + empty;
  const std::string emptyDictionary =
      std::string("error: ") + prefix + "Failed to load ASA data as dictionary: " + empty;
  const Case cases[] = {
      {nullptr, "debug: ASADataPersistence - No ASA data file found",
       "debug: ASADataPersistence - No ASA data file found for dictionary loading"},
      {"", emptyRecord.c_str(), emptyDictionary.c_str()},
      {"[]",
       "error: ASADataPersistence - Failed to load ASA data: A value has the wrong type: the document: expected an "
       "object, found an array",
       "error: ASADataPersistence - Failed to decode ASA data as dictionary"},
      {"12",
       "error: ASADataPersistence - Failed to load ASA data: A value has the wrong type: the document: expected an "
       "object, found another number",
       "error: ASADataPersistence - Failed to load ASA data as dictionary: The data is not in the correct format: the "
       "document is neither an object nor an array"},
      {R"({"orgId":1,"foreign":[1.10]})",
       "error: ASADataPersistence - Failed to load ASA data: A value has the wrong type: orgId: expected a string, "
       "found another number",
       "debug: ASADataPersistence - Successfully loaded ASA data as dictionary from local storage"},
      {R"({"attribution":true,"orgId":"1","claimType":null})",
       "debug: ASADataPersistence - Successfully loaded ASA data from local storage",
       "debug: ASADataPersistence - Successfully loaded ASA data as dictionary from local storage"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.content == nullptr ? "missing" : test.content);
    const auto files = std::make_shared<simulated::InMemoryFileManager>();
    if (test.content != nullptr) {
      files->createDirectory("/documents");
      files->writeFile(path, test.content, platform::WriteMode::direct);
    }
    const ASADataPersistence persistence(files);
    LogCapture log;
    const auto record = persistence.loadASAData();
    const auto dictionary = persistence.loadASADataAsDictionary();
    EXPECT_THAT(log.messages(),
                ElementsAre("debug: ASADataPersistence - Loading ASA attribution data from local storage", test.record,
                            "debug: ASADataPersistence - Loading ASA attribution data as dictionary from local storage",
                            test.dictionary));
    EXPECT_EQ(record.has_value(), std::string(test.record).starts_with("debug: ASADataPersistence - Succ"));
    ASSERT_EQ(dictionary.has_value(), std::string(test.dictionary).starts_with("debug: ASADataPersistence - Succ"));
    if (dictionary) {
      EXPECT_EQ(dictionary->text(), test.content);
    }
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
  LogCapture log;
  persistence.clearASAData();
  persistence.clearASAData();
  EXPECT_THAT(log.messages(),
              ElementsAre("debug: ASADataPersistence - Clearing ASA attribution data from local storage",
                          "debug: ASADataPersistence - Successfully cleared ASA data",
                          "debug: ASADataPersistence - Clearing ASA attribution data from local storage",
                          "debug: ASADataPersistence - No ASA data file to clear"));
  EXPECT_FALSE(persistence.hasASAData());
}

TEST(ASADataPersistence, placesThatCannotBeWrittenAreLoggedOnly) {
  LogCapture log(LogLevel::error);
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  files->createDirectory("/documents");
  files->createDirectory(path);  // in the way
  ASADataPersistence blocked(files);
  blocked.saveASAData({});
  ASADataPersistence homeless(std::make_shared<simulated::InMemoryFileManager>(std::nullopt));
  homeless.saveASAData({});
  homeless.clearASAData();
  EXPECT_FALSE(homeless.hasASAData());
  EXPECT_EQ(homeless.loadASAData(), std::nullopt);
  EXPECT_THAT(
      log.messages(),
      ElementsAre("error: ASADataPersistence - Failed to save ASA data: Is a directory: " + path,
                  "error: ASADataPersistence - There is no documents directory, ASA data is not kept",
                  "error: ASADataPersistence - Failed to save ASA data: The file has no place to be stored in."));
}

}  // namespace
}  // namespace quillmar::test
