#include "quillmar/c/quillmar.h"

#include <gmock/gmock.h>

#include "C/PlatformHandle.h"
#include "quillmar/platform/URLError.h"
#include "support/FacadeHarness.h"
#include "support/ThroughC.h"

namespace quillmar::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;

/// An ad network that notes what it is told.
void report(void* told, int32_t fine, quillmar_coarse_value coarse, bool lock, quillmar_ad_network_completion* done) {
  static_cast<std::vector<std::string>*>(told)->push_back(fmt::format("{} {} {}", fine, coarse, lock));
  quillmar_ad_network_completion_call(done, nullptr);
}

/// Handles over the simulated platform, much of it behind tables.
class CInterface : public testing::Test, protected FacadeHarness {
 protected:
  CInterface() {
    EXPECT_EQ(quillmar_platform_create(nullptr, &platform), QUILLMAR_OK);
    platform->members = simulated.platform();
    platform->members.http = throughC(platform->members.http);
    platform->members.files = throughC(platform->members.files);
    platform->members.userDefaults = throughC(platform->members.userDefaults);
    const quillmar_ad_network network{sizeof network, &postbacks, nullptr, nullptr, nullptr, nullptr, report};
    EXPECT_EQ(quillmar_platform_set_ad_network(platform, &network), QUILLMAR_OK);
    const quillmar_ad_attribution_kit kit{sizeof kit, &postbacks, nullptr, report};
    EXPECT_EQ(quillmar_platform_set_ad_attribution_kit(platform, &kit), QUILLMAR_OK);
    const quillmar_attribution_token token{sizeof token, nullptr, nullptr, [](void*, quillmar_token_completion* done) {
                                             quillmar_token_completion_call(done, "token", nullptr);
                                           }};
    EXPECT_EQ(quillmar_platform_set_attribution_token(platform, &token), QUILLMAR_OK);
    const quillmar_subscription_updates updates{
        sizeof updates, &listener, nullptr,
        [](void* kept, quillmar_subscription_listener* listener) -> void* {
          return *static_cast<quillmar_subscription_listener**>(kept) = listener;
        },
        [](void* kept, void* listener) {
          quillmar_subscription_listener_release(static_cast<quillmar_subscription_listener*>(listener));
          *static_cast<quillmar_subscription_listener**>(kept) = nullptr;
        }};
    EXPECT_EQ(quillmar_platform_set_subscription_updates(platform, &updates), QUILLMAR_OK);
    const quillmar_log_sink sink{
        sizeof sink, &lines, nullptr,
        [](void* lines, const char*, const char*, quillmar_log_severity severity, const char* line) {
          static_cast<std::vector<std::string>*>(lines)->push_back(fmt::format("{} {}", severity, line));
        }};
    EXPECT_EQ(quillmar_platform_set_log_sink(platform, &sink), QUILLMAR_OK);
    EXPECT_EQ(quillmar_create(platform, &instance), QUILLMAR_OK);
    EXPECT_EQ(quillmar_attribution_create(platform, &attribution), QUILLMAR_OK);
  }
  ~CInterface() override {
    quillmar_attribution_release(attribution);
    quillmar_release(instance);
    quillmar_platform_release(platform);
    quillmar_logger_set_level(QUILLMAR_LOG_OFF);  // the lines go
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
  quillmar_subscription_listener* listener = nullptr;
  std::vector<std::string> postbacks;
  std::vector<std::string> lines;
  std::error_code error;
};

TEST_F(CInterface, livesAnInstallsLifeOnTables) {
  EXPECT_EQ(quillmar_set_log_level(instance, QUILLMAR_LOG_INFO), QUILLMAR_OK);
  static int told = 0;
  const quillmar_health_observer observer{sizeof observer, nullptr, [](void*) { told = -1; },
                                          [](void*, const quillmar_health* now) { told += now->size == sizeof *now; }};
  EXPECT_EQ(quillmar_set_health_observer(instance, &observer), QUILLMAR_OK);
  EXPECT_EQ(quillmar_configure(instance, "the-key"), QUILLMAR_OK);
  EXPECT_EQ(quillmar_set_network_paused(instance, true), QUILLMAR_OK);
  settle();
  EXPECT_EQ(configRequests(), 0u);
  EXPECT_EQ(quillmar_set_network_paused(instance, false), QUILLMAR_OK);
  settle();
  const quillmar_parameter oddlyTrue{"revenue", QUILLMAR_VALUE_BOOLEAN, {.integer = 2}};
  EXPECT_EQ(quillmar_send_event(instance, "start", &oddlyTrue, 1), QUILLMAR_OK);
  const quillmar_parameter revenue{"revenue", QUILLMAR_VALUE_TEXT, {.text = "30"}};
  EXPECT_EQ(quillmar_send_event(instance, "purchase", &revenue, 1), QUILLMAR_OK);
  settle();
  simulated.device->setSystemVersion("18.0");
  advance(std::chrono::days(3));
  EXPECT_EQ(quillmar_scene_did_activate(instance), QUILLMAR_OK);
  EXPECT_EQ(quillmar_send_event(instance, "session", nullptr, 0), QUILLMAR_OK);
  settle();
  EXPECT_THAT(postbacks, ElementsAre("40 0 false", "1 2 false")) << "the second one by AdAttributionKit";
  EXPECT_TRUE(state().window == 1 && state().initialized && state().enabled && state().verification_key_valid);
  EXPECT_EQ(configRequests(), 2u);
  EXPECT_TRUE(state().has_fetched_conversion_values);
  EXPECT_EQ(quillmar_set_has_fetched_conversion_values(instance, false), QUILLMAR_OK);
  EXPECT_FALSE(state().has_fetched_conversion_values);
  char text[4] = "???";
  EXPECT_EQ(quillmar_copy_app_id(instance, text, sizeof text), 5u);
  EXPECT_STREQ(text, "app") << "as much as there is room for";
  EXPECT_EQ(quillmar_copy_verification_key(instance, nullptr, 0), 7u);
  quillmar_health health{};
  health.size = sizeof health;
  EXPECT_EQ(quillmar_get_health(instance, &health), QUILLMAR_OK);
  EXPECT_TRUE(health.sent == 3 && health.logged == 3 && health.last_platform_answer == QUILLMAR_ANSWER_SUCCESS);
  EXPECT_EQ(quillmar_copy_health_text(instance, QUILLMAR_HEALTH_LOGGED_EVENT, nullptr, 0), 7u) << "session";
  EXPECT_TRUE(told > 0 && quillmar_set_health_observer(instance, nullptr) == QUILLMAR_OK && told == -1) << "released";

  EXPECT_EQ(quillmar_attribution_enable(attribution), QUILLMAR_OK);
  settle();
  EXPECT_THAT(lines, Contains(EndsWith("] Successfully fetched and stored ASA attribution data")));
  quillmar_subscription_update update{sizeof update, 7, "{}", nullptr, "{}", nullptr, 1};
  EXPECT_EQ(quillmar_subscription_listener_post(listener, &update), QUILLMAR_OK);
  update.transaction_error = "not signed";
  EXPECT_EQ(quillmar_subscription_listener_post(listener, &update), QUILLMAR_OK);
  settle();
  quillmar_attribution_health stored{sizeof stored, 0, false};
  EXPECT_EQ(quillmar_attribution_get_health(attribution, &stored), QUILLMAR_OK);
  EXPECT_TRUE(stored.status == QUILLMAR_ATTRIBUTION_STORED && stored.listening);
  quillmar_attribution_statistics purchases{};
  purchases.size = sizeof purchases;
  EXPECT_EQ(quillmar_attribution_get_statistics(attribution, &purchases), QUILLMAR_OK);
  EXPECT_TRUE(purchases.sent == 1 && purchases.unverified == 1) << purchases.sent << purchases.failed;
  EXPECT_EQ(quillmar_attribution_disable(attribution), QUILLMAR_OK);
  settle();
  EXPECT_EQ(listener, nullptr) << "it wants no more";

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
  quillmar_options options{};
  options.size = sizeof options;
  options.drop = 2;
  EXPECT_EQ(quillmar_set_options(instance, &options), invalid);
  const quillmar_health_observer deaf{sizeof deaf, nullptr, nullptr, nullptr};
  EXPECT_EQ(quillmar_set_health_observer(instance, &deaf), invalid);
  EXPECT_EQ(quillmar_platform_create(nullptr, nullptr), invalid);
  EXPECT_EQ(quillmar_create(nullptr, &instance), invalid);
  platform->members.clock = nullptr;
  EXPECT_EQ(quillmar_create(platform, &instance), invalid) << "a member is missing";
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
           [](void*, quillmar_work* work) { posted++ == 0 ? quillmar_work_drop(work) : quillmar_work_run(work); }},
          nullptr};
  EXPECT_EQ(quillmar_platform_set_executor(platform, &newer.known), QUILLMAR_OK);
  platform->members.executor->post([] { FAIL(); });
  platform->members.executor->post([] { ++posted; });
  EXPECT_EQ(posted, 3);
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
