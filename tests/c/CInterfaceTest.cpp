#include "quillmar/c/quillmar.h"

#include <gmock/gmock.h>

#include "C/PlatformHandle.h"
#include "quillmar/platform/URLError.h"
#include "support/FacadeHarness.h"
#include "support/ThroughC.h"

namespace quillmar::test {
namespace {

constexpr auto invalid = QUILLMAR_ERROR_INVALID_ARGUMENT;

/// Handles over the simulated platform behind tables, except for its clock.
class CInterface : public testing::Test, protected FacadeHarness {
 protected:
  CInterface() {
    EXPECT_EQ(quillmar_platform_create(nullptr, &platform), QUILLMAR_OK);
    platform->members = throughC(simulated.platform());
    EXPECT_EQ(quillmar_create(platform, &instance), QUILLMAR_OK);
    EXPECT_EQ(quillmar_attribution_create(platform, &attribution), QUILLMAR_OK);
  }
  ~CInterface() override {
    quillmar_attribution_release(attribution);
    quillmar_release(instance);
    quillmar_platform_release(platform);
  }

  quillmar_state state() const {
    quillmar_state result{};
    result.size = sizeof result;
    EXPECT_EQ(quillmar_get_state(instance, &result), QUILLMAR_OK);
    return result;
  }

  quillmar_platform* platform = nullptr;
  quillmar_instance* instance = nullptr;
  quillmar_attribution* attribution = nullptr;
  std::error_code error;
};

TEST_F(CInterface, livesAnInstallsLifeOnTables) {
  EXPECT_EQ(quillmar_set_log_level(instance, QUILLMAR_LOG_INFO), QUILLMAR_OK);
  EXPECT_EQ(quillmar_configure(instance, "the-key"), QUILLMAR_OK);
  settle();
  const quillmar_parameter revenue{"revenue", QUILLMAR_VALUE_TEXT, {.text = "30"}};
  EXPECT_EQ(quillmar_send_event(instance, "purchase", &revenue, 1), QUILLMAR_OK);
  settle();
  ASSERT_EQ(calls().size(), 1u);
  EXPECT_EQ(calls()[0].fineValue, 40);
  EXPECT_EQ(calls()[0].coarseValue, "high");
  simulated.device->setSystemVersion("18.0");
  advance(std::chrono::days(3));
  EXPECT_EQ(quillmar_scene_did_activate(instance), QUILLMAR_OK);
  EXPECT_EQ(quillmar_send_event(instance, "session", nullptr, 0), QUILLMAR_OK);
  settle();
  EXPECT_EQ(calls().size(), 2u) << "by AdAttributionKit";
  EXPECT_TRUE(state().window == 1 && state().initialized && state().enabled && state().verification_key_valid);
  EXPECT_EQ(configRequests(), 2u);
  char text[4] = "???";
  EXPECT_EQ(quillmar_copy_app_id(instance, text, sizeof text), 5u);
  EXPECT_STREQ(text, "app") << "as much as there is room for";
  EXPECT_EQ(quillmar_copy_verification_key(instance, nullptr, 0), 7u);

  EXPECT_EQ(quillmar_attribution_enable(attribution), QUILLMAR_OK);
  settle();
  platform::SubscriptionStatusUpdate update;
  simulated.subscriptionUpdates->post(update);
  update.transaction.verificationError = platform::PlatformError{"not signed"};
  simulated.subscriptionUpdates->post(update);
  settle();
  quillmar_attribution_statistics purchases{};
  purchases.size = sizeof purchases;
  EXPECT_EQ(quillmar_attribution_get_statistics(attribution, &purchases), QUILLMAR_OK);
  EXPECT_TRUE(purchases.sent == 1 && purchases.unverified == 1) << purchases.sent << purchases.failed;
  EXPECT_TRUE(simulated.files->fileExists("/documents/asa_attribution_data.json"));
  EXPECT_TRUE(logged("info: Successfully fetched and stored ASA attribution data"));
  EXPECT_EQ(quillmar_attribution_disable(attribution), QUILLMAR_OK);
  settle();
  EXPECT_EQ(simulated.subscriptionUpdates->listeners(), 0u);

  EXPECT_EQ(quillmar_reset(instance), QUILLMAR_OK);
  EXPECT_FALSE(state().initialized);
  EXPECT_EQ(quillmar_copy_app_id(instance, text, sizeof text), 0u);
}

TEST_F(CInterface, refusesWhatItCannotTakeAndDoesNothingThen) {
  const auto sent = [this](const char* name, quillmar_value_type type, std::size_t count = 1) {
    const quillmar_parameter twice[] = {{name, type, {.text = "1"}}, {name, type, {.text = "1"}}};
    return quillmar_send_event(instance, "event", twice, count);
  };
  EXPECT_EQ(sent("Revenue", QUILLMAR_VALUE_TEXT), invalid);
  EXPECT_EQ(sent(nullptr, QUILLMAR_VALUE_TEXT), invalid);
  EXPECT_EQ(sent("revenue", 4), invalid);
  EXPECT_EQ(sent("revenue", QUILLMAR_VALUE_TEXT, 2), invalid) << "twice";
  EXPECT_EQ(quillmar_send_event(instance, nullptr, nullptr, 0), invalid);
  EXPECT_EQ(quillmar_send_event(instance, "event", nullptr, 1), invalid);
  EXPECT_EQ(quillmar_send_event(nullptr, "event", nullptr, 0), invalid);
  quillmar_statistics statistics{};
  EXPECT_EQ(quillmar_get_statistics(instance, &statistics), invalid) << "without a size";
  statistics.size = sizeof statistics;
  EXPECT_EQ(quillmar_get_statistics(instance, &statistics), QUILLMAR_OK);
  EXPECT_EQ(statistics.sent, 0u);
  EXPECT_EQ(quillmar_set_log_level(instance, 4), invalid);
  EXPECT_EQ(quillmar_logger_set_level(-1), invalid);
  EXPECT_EQ(quillmar_configure(instance, nullptr), invalid);
  EXPECT_EQ(quillmar_platform_create(nullptr, nullptr), invalid);
  EXPECT_EQ(quillmar_create(nullptr, &instance), invalid);
  EXPECT_EQ(quillmar_bytes_set(nullptr, "", 0), invalid);
  EXPECT_EQ(quillmar_subscription_listener_post(nullptr, nullptr), invalid);
  for (const auto call : {quillmar_application_did_become_active, quillmar_scene_did_activate, quillmar_reset,
                          quillmar_clear_tracked_events}) {
    EXPECT_EQ(call(nullptr), invalid);
  }
  EXPECT_FALSE(quillmar_drain(nullptr, 1) || quillmar_attribution_drain(nullptr, 1));
  EXPECT_EQ(quillmar_copy_app_id(nullptr, nullptr, 9), 0u);
  quillmar_retain(nullptr);
  quillmar_release(nullptr);
  quillmar_work_run(nullptr);
  quillmar_http_completion_call(nullptr, nullptr);
  quillmar_ad_network_completion_call(nullptr, nullptr);
  quillmar_token_completion_call(nullptr, nullptr, nullptr);
}

TEST_F(CInterface, tablesAndStructuresOfOtherVersionsAreTakenAsFarAsTheyGo) {
  static int released = 0;
  static int posted = 0;
  struct {
    quillmar_executor known;
    void (*added)();
  } newer{{sizeof newer, nullptr, [](void*) { ++released; },
           [](void*, quillmar_work* work) { quillmar_work_drop(work), ++posted; }},
          nullptr};
  EXPECT_EQ(quillmar_platform_set_executor(platform, &newer.known), QUILLMAR_OK);
  platform->members.executor->post([] { FAIL(); });
  EXPECT_EQ(posted, 1);
  newer.known.size = offsetof(quillmar_executor, post);  // from a time without
  EXPECT_EQ(quillmar_platform_set_executor(platform, &newer.known), invalid);
  EXPECT_EQ(quillmar_platform_set_executor(nullptr, &newer.known), invalid);
  EXPECT_EQ(released, 0) << "a table that is refused is the host's";
  EXPECT_EQ(quillmar_platform_set_executor(platform, nullptr), invalid);
  const quillmar_ad_network unsized{};
  EXPECT_EQ(quillmar_platform_set_ad_network(platform, &unsized), invalid) << "nothing in it is required but its size";
  platform->members.executor = nullptr;
  EXPECT_EQ(released, 1);

  quillmar_statistics older{offsetof(quillmar_statistics, parked), 7, 7, 7, 7, 7, 7, 7, 7, 7, 7};
  EXPECT_EQ(quillmar_get_statistics(instance, &older), QUILLMAR_OK);
  EXPECT_TRUE(older.dropped == 0 && older.parked == 7 && older.size == offsetof(quillmar_statistics, parked));
}

TEST_F(CInterface, completionsThatOutliveTheirTransportDoNothing) {
  static quillmar_http_completion* kept = nullptr;
  quillmar_http http{};
  http.size = sizeof http;
  http.start = [](void*, uint64_t, const quillmar_http_request*, quillmar_http_completion* done) { kept = done; };
  http.cancel = [](void*, uint64_t) {};
  EXPECT_EQ(quillmar_platform_set_http(platform, &http), QUILLMAR_OK);
  const auto alive = std::make_shared<int>();
  const auto start = [&] {
    platform->members.http->start({}, [this, alive](const platform::HttpResult& result) { error = result.error; });
  };
  start();
  quillmar_http_result result{sizeof result, 99, 200, nullptr, nullptr, 0, nullptr};
  quillmar_http_completion_call(kept, &result);
  EXPECT_EQ(error, platform::URLError::unknown);
  start();
  platform->members.http = simulated.http;
  EXPECT_EQ(alive.use_count(), 1);
  quillmar_http_completion_call(kept, &result);
}

}  // namespace
}  // namespace quillmar::test
