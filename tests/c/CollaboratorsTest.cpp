#include <gmock/gmock.h>

#include "C/Bytes.h"
#include "C/InstanceHandle.h"
#include "support/FacadeHarness.h"
#include "support/ThroughC.h"

namespace quillmar::test {
namespace {

/// Tables that note what they are told. What is to be reported goes on to the library's own.
struct Collaborators : testing::Test, protected FacadeHarness {
  Collaborators() {
    instance.object = quillmar;
    configure();
    std::ranges::generate(own, [this, kind = 0]() mutable { return present(kind++); });
    document = text(quillmar_collaborator_copy_document, own[0]);
    EXPECT_EQ(quillmar_set_conversion_values_repository(&instance, &values), QUILLMAR_OK);
    EXPECT_EQ(quillmar_set_verification_key_repository(&instance, &key), QUILLMAR_OK);
    EXPECT_EQ(quillmar_set_event_server_log_repository(&instance, &logs), QUILLMAR_OK);
    EXPECT_EQ(quillmar_set_conversion_tracking_manager(&instance, &manager), QUILLMAR_OK);
  }
  ~Collaborators() override { std::ranges::for_each(own, quillmar_collaborator_release); }

  quillmar_collaborator* present(int kind) { return quillmar_get_collaborator(&instance, kind); }
  static Collaborators& self(void* context) { return *static_cast<Collaborators*>(context); }
  static void released(void* context) { ++self(context).releases; }
  static void logged(void* c, bool, const char* error) { self(c).told.push_back(fmt::format("({})", orEmpty(error))); }
  static std::string text(size_t (*copy)(const quillmar_collaborator*, char*, size_t), quillmar_collaborator* from) {
    char buffer[4096];
    return {buffer, copy(from, buffer, sizeof buffer)};
  }

  quillmar_conversion_values_repository values{
      sizeof values, this, released, [](void* c, quillmar_fetch_completion* done) { self(c).fetching = done; },
      [](void* c, quillmar_bytes* b) { b->content = self(c).document; }};
  quillmar_verification_key_repository key{
      sizeof key, this, released, [](void*, quillmar_bytes* b) { quillmar_bytes_set(b, "a key", 5); },
      [](void* c, const char* saved) { self(c).told.push_back(fmt::format("save {}", saved)); }};
  quillmar_event_server_log_repository logs{
      sizeof logs, this, released, [](void* c, const char* event, const char* id, quillmar_log_completion* done) {
        self(c).logging = done;
        self(c).told.push_back(fmt::format("log {} {}", event, orEmpty(id)));
      }};
  quillmar_conversion_tracking_manager manager{
      sizeof manager, this, released, [](void* c, const char* rule, int32_t window, bool lock) {
        self(c).told.push_back(fmt::format("send {} {} {}", std::string_view(rule).substr(0, 16), window, lock));
        EXPECT_EQ(quillmar_collaborator_send(self(c).own[3], rule, window, lock), QUILLMAR_OK);
      }};
  quillmar_instance instance;
  std::array<quillmar_collaborator*, 4> own;
  std::optional<std::string> document;
  quillmar_fetch_completion* fetching = nullptr;
  quillmar_log_completion* logging = nullptr;
  std::vector<std::string> told;
  int releases = 0;
};

TEST_F(Collaborators, tablesStandInForTheLibrarysOwnUntilTheseArePutBack) {
  const auto shown = present(QUILLMAR_VERIFICATION_KEY_REPOSITORY);
  EXPECT_TRUE(!quillmar_collaborator_save_key(shown, "new") && !quillmar_collaborator_save_key(own[1], "own"));
  EXPECT_EQ(text(quillmar_collaborator_copy_key, shown) + text(quillmar_collaborator_copy_key, own[1]), "a keyown");
  EXPECT_EQ(quillmar_collaborator_context(shown, released), this);
  EXPECT_TRUE(!quillmar_collaborator_context(shown, [](void*) {}) && !quillmar_collaborator_context(own[0], released));
  quillmar_collaborator_release(shown);
  send("purchase", {{ASEventParam::revenue, 30}});
  quillmar_log_completion_call(logging, true, nullptr);
  settle();
  quillmar->eventServerLogRepository()->logEventAs("again", "id-1", [](const EventLogResult&) {});
  quillmar_log_completion_drop(logging);
  EXPECT_THAT(told,
              testing::ElementsAre("save new", "log purchase ", R"(send {"key":"Purchase 0 false)", "log again id-1"));
  EXPECT_TRUE(calls().size() == 1 && calls()[0].fineValue == 40 && quillmar->statistics().logged == 1);
  std::ranges::for_each(own, [&](auto* each) { EXPECT_EQ(quillmar_set_collaborator(&instance, each), QUILLMAR_OK); });
  send("session");
  EXPECT_TRUE(calls().size() == 2 && told.size() == 4 && releases == 4);
}

TEST_F(Collaborators, whatFailsIsNeverAnsweredOrIsNoDocumentCountsAsInCpp) {
  advance(std::chrono::hours(2));
  activate();
  quillmar_fetch_completion_call(fetching, "out of order");
  advance(std::chrono::seconds(5));
  EXPECT_EQ(countLines("Failed to fetch conversion values: out of order. Attempt: 1"), 1u);
  quillmar_fetch_completion_drop(std::exchange(fetching, nullptr));
  advance(std::chrono::minutes(1));
  EXPECT_TRUE(fetching == nullptr && quillmar->drain({}));
  std::size_t attempts = 0;
  const auto good = document;
  for (const auto& bad : std::vector<std::optional<std::string>>{"", R"({"values":[],"lockWindows":1})", {}}) {
    document = bad;
    send(fmt::format("event {}", attempts));
    quillmar_log_completion_call(logging, true, "out of order");
    settle();
    EXPECT_EQ(countLines("Could not obtain conversion values."), ++attempts);
  }
  EXPECT_EQ(countLines("error: quillmar_conversion_values_repository - fetch_all gave no document: "), 2u);
  document = good;
  send("session");
  quillmar_log_completion_drop(logging);
  quillmar_fetch_completion_drop(fetching);
  settle();
  EXPECT_TRUE(calls().empty() && quillmar->statistics().failed == 3 && quillmar->drain({}));
}

TEST_F(Collaborators, refuseWhatTheyCannotTakeAndAnswerOnce) {
  struct Odd final : EventServerLogRepositoryProtocol {
    void logEvent(std::string name, Completion completion) override {
      std::ranges::for_each(name, [&](char) { completion({}); });
      throw 1;
    }
  };
  quillmar->setEventServerLogRepository(std::make_shared<Odd>());
  const auto odd = present(QUILLMAR_EVENT_SERVER_LOG_REPOSITORY);
  for (const char* name : {"", "1", "22"}) {
    EXPECT_EQ(quillmar_collaborator_log_event(odd, name, nullptr, this, logged), QUILLMAR_OK);
    EXPECT_EQ(quillmar_collaborator_log_event(own[3], name, nullptr, this, logged), invalid) << "of another kind";
  }
  EXPECT_EQ(quillmar_collaborator_log_event(odd, nullptr, nullptr, this, logged), invalid);
  EXPECT_THAT(told, testing::ElementsAre("(It ended without an answer.)", "()", "()"));
  quillmar_collaborator_release(odd);
  logs.log_event = nullptr;
  EXPECT_EQ(quillmar_set_event_server_log_repository(&instance, &logs), invalid);
  EXPECT_EQ(quillmar_set_event_server_log_repository(nullptr, nullptr), invalid);
  EXPECT_EQ(quillmar_set_collaborator(&instance, nullptr), invalid);
  EXPECT_TRUE(present(4) == nullptr && quillmar_get_collaborator(nullptr, 0) == nullptr && releases == 1);
  EXPECT_EQ(quillmar_collaborator_send(own[3], R"({"key":"k","windows":{}})", 3, false), invalid);
  EXPECT_EQ(quillmar_collaborator_send(own[3], "{}", 0, false), invalid);
}

}  // namespace
}  // namespace quillmar::test
