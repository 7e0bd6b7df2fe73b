#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using std::chrono::days;

TEST(StartUp, firstConfigurationRecordsTheInstallOnceAndStoresTheKeyInTheSuite) {
  FacadeHarness host;
  host.configure();
  const auto id = host.defaults->string("QuillmarId");
  ASSERT_TRUE(id);
  EXPECT_EQ(id->size(), 36u);
  EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
  EXPECT_EQ(host.defaults->string("QuillmarVerificationKey"), "the-key");
  EXPECT_TRUE(host.quillmar->isInitialized());
  EXPECT_TRUE(host.logged("info: First run date saved: 2026-01-01 00:00:00 +0000"));

  host.advance(days(1));
  host.restart();
  host.configure();
  EXPECT_EQ(host.defaults->string("QuillmarId"), id);
  EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
  EXPECT_TRUE(host.logged("info: First run date: 2026-01-01 00:00:00 +0000. Days since first run: 1."));
}

TEST(StartUp, identifierWithoutDateIsKeptAndDateOfAnotherTypeIsReplaced) {
  FacadeHarness host;
  host.defaults->set("QuillmarId", "kept");
  host.defaults->set("QuillmarFirstRunDate", "yesterday");
  host.configure();
  EXPECT_EQ(host.defaults->string("QuillmarId"), "kept");
  EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
}

TEST(StartUp, dayLimitsOfTheTwoPathsDifferOnPurpose) {
  struct Case {
    bool mock;
    int daysAgo;
    bool starts;
    const char* line;
  };
  const Case cases[] = {
      {false, 37, true, "Days since first run: 37."},
      {false, 38, false, "SDK not initialized. More than 37 days have passed since the first run."},
      {true, 35, true, "Less than 35 days since first run. Continuing with initialization."},
      {true, 36, false, "More than 35 days have passed since first run. SDK will not be initialized."},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.line);
    FacadeHarness host;
    Quillmar::setUseMock(test.mock);
    host.defaults->set("QuillmarFirstRunDate", startOfTests - days(test.daysAgo));
    host.configure();
    EXPECT_EQ(host.quillmar->isInitialized(), test.starts);
    EXPECT_TRUE(host.logged(test.line));
    EXPECT_EQ(host.quillmar->conversionValuesRepository() != nullptr, test.starts);
    EXPECT_EQ(host.logged("Quillmar initialized with appId: the-key"), test.starts);
    EXPECT_EQ(host.configRequests(), test.starts && !test.mock ? 1u : 0u);
  }
}

TEST(StartUp, mockPathConfiguresOnTheCallersThreadWithoutKeyOrFetch) {
  FacadeHarness host;
  Quillmar::setUseMock(true);
  host.quillmar->configure("the-key");
  EXPECT_TRUE(host.quillmar->isInitialized());
  EXPECT_FALSE(host.quillmar->hasFetchedConversionValues());
  EXPECT_EQ(host.quillmar->verificationKeyRepository(), nullptr);
  EXPECT_FALSE(host.logged("Starting configuration"));
  host.activate();  // its first activation fetches, and the mock's document is no configuration response
  EXPECT_TRUE(host.logged("Failed to fetch conversion values: keyNotFound: \"app_id\" is missing in the document"));
  EXPECT_TRUE(host.simulated.http->requests().empty());
}

TEST(StartUp, requestsCarryTheKeyAndGoToThePlatformsService) {
  FacadeHarness host;
  auto platform = host.simulated.platform();
  platform.serviceUrl = "https://staging.example";
  host.quillmar = QuillmarFactory::createQuillmar(platform);
  host.configure();
  host.send("session");
  const auto requests = host.simulated.http->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].url, "https://staging.example/ios/config");
  EXPECT_EQ(requests[1].url, "https://staging.example/ios/events");
  for (const auto& request : requests) {
    EXPECT_EQ(request.headers.at("Authorization"), "the-key");
  }
  EXPECT_NE(requests[1].body.find("\"app_id\":\"app-1\""), std::string::npos);
}

TEST(StartUp, configuringTwiceObservesTwiceAndResetRemovesBoth) {
  FacadeHarness host;
  host.configure();
  host.configure();
  host.activate();
  EXPECT_EQ(host.countLines("Application did become active"), 2u);
  host.quillmar->reset();
  host.log.clear();
  host.activate();
  EXPECT_FALSE(host.logged("Application did become active"));
}

}  // namespace
}  // namespace quillmar::test
