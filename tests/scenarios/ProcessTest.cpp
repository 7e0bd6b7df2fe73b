#include <dlfcn.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "Settings/QuillMarDefaults.h"
#include "quillmar/Config.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/InProcessNotificationCenter.h"
#include "support/LogCapture.h"
#include "support/LoopbackService.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using service::ServedRequest;
using namespace ::testing;

/// 0, or how the child ended instead, as the system counts.
int endOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return status;
}

/// Calls everything in a forked child; true when all of it did nothing.
bool nothingHappens(std::shared_ptr<Quillmar> quillmar, std::shared_ptr<QuillmarASAAttribution> attribution,
                    platform::Platform platform) {
  bool nothing = quillmar->quillmarVerificationKey().empty() && !quillmar->drain(1h) && !attribution->drain(1h) &&
                 !quillmar->state().appId && quillmar->conversionValuesRepository() == nullptr;
  for (const auto& instance : {quillmar, Quillmar::shared(), QuillmarFactory::createQuillmar(platform)}) {
    instance->setLogLevel(LogLevel::info);
    instance->configure("child-key");
    instance->sendEvent("child", {{ASEventParam::revenue, 1}});
    instance->applicationDidBecomeActive();
    instance->reset();
    nothing = nothing && !instance->drain(1h);
  }
  attribution->enableASAAttributionTracking();
  QuillmarASAAttribution::shared()->disableASAAttributionTracking();
  Quillmar::setIsVerificationKeyInvalid(true);
  Quillmar::resetStaticState();
  std::dynamic_pointer_cast<platform::InProcessNotificationCenter>(platform.notifications)
      ->post(platform::Notification::applicationDidBecomeActive);
  return nothing && !Quillmar::isVerificationKeyInvalid();  // what was handed over is destroyed now
}

// At exit, the search for leaks takes for lost what only the threads hold that stayed behind in the parent.
constexpr const char* exitIfPossible = __has_feature(address_sanitizer) ? "_exit" : "exit";

TEST(Fork, callsInAChildDoNothingAndEndWhateverTheParentIsDoing) {
  const TemporaryFolder folder;
  const LoopbackService service({.delay = 2ms});  // so that there is always something in flight
  const LogCapture log;
  platform::Platform platform = platform::makeDefaultPlatform({folder.path(), service.url(), {}, service.url()});
  platform.logSink = log.sink();
  auto quillmar = QuillmarFactory::createQuillmar(platform);
  auto attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
  Quillmar::setShared(quillmar);
  quillmar->setLogLevel(LogLevel::info);
  quillmar->configure("the-key");

  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        if (quillmar->statistics().sent < quillmar->statistics().logged + 100) {
          quillmar->sendEvent("session", {{ASEventParam::revenue, 1}});
        }
        static_cast<void>(quillmar->quillmarVerificationKey());
        static_cast<void>(Quillmar::shared()->state());
      }
    });
  }
  for (int round = 0; round < 10; ++round) {
    for (const std::string_view ending : {"_exit", exitIfPossible, "exec"}) {
      std::fflush(nullptr);
      const pid_t child = ::fork();
      ASSERT_NE(child, -1);
      if (child == 0) {
        ::alarm(60);  // a hang ends by a signal
        const int status = nothingHappens(std::move(quillmar), std::move(attribution), std::move(platform)) ? 0 : 1;
        if (ending == "exec") {
          ::execl(status == 0 ? "/bin/true" : "/bin/false", "exec", nullptr);
        }
        ending == "exit" ? std::exit(status) : ::_exit(status);  // NOLINT(concurrency-mt-unsafe)
      }
      EXPECT_EQ(endOf(child), 0) << ending << ", round " << round;
    }
  }
  threads.clear();
  EXPECT_TRUE(quillmar->drain(60s));
  EXPECT_EQ(quillmar->statistics().logged, quillmar->statistics().sent);
  EXPECT_EQ(quillMarDefaults(platform.userDefaults)->string(Config::quillmarVerificationKey), "the-key");
  EXPECT_EQ(quillmar->state().appId, "development-app");
  EXPECT_THAT(service.requests(), Not(Contains(Field(&ServedRequest::event, "child"))));
  Quillmar::setShared(nullptr);
  Quillmar::resetStaticState();
}

TEST(Exit, inTheMiddleOfEverythingIsCleanAndLeavesTheStoreGood) {
  const char* const wanted = std::getenv("QUILLMAR_EXITS");  // NOLINT(concurrency-mt-unsafe)
  const int exits = wanted != nullptr ? std::atoi(wanted) : 21;
  const TemporaryFolder folder;
  const Certificate certificate("127.0.0.1");
  const LoopbackService plain({.delay = 2ms});
  const LoopbackService secure({.delay = 2ms}, &certificate);
  const std::pair<std::string, const char*> ways[] = {
      {"local", "return"},  {"shared", "exit"},     {"static", "exit on a thread"},
      {"TLS user", "exit"}, {"TLS user", "return"}, {"late TLS user", "exit"},
      {"local", "exec"}};
  const std::string urls[] = {plain.url(), secure.url(), "http://127.0.0.1:1"};
  for (int i = 0; i < exits; ++i) {
    const auto& [owner, ending] = ways[i % 7];
    // Another program is begun only once the transport stands: libcurl opens its wake-up pair in two steps.
    const bool stands = std::string_view(ending) == "exec";
    const std::string& url = owner.ends_with("TLS user") ? urls[1] : urls[i / 7 % (stands ? 2 : 3)];
    const int sent = i * 379 % 4001;
    const int logged = url == urls[2] ? 0 : std::max(i * 7 % 20 - 8, stands ? 1 : 0);
    std::string arguments[] = {QUILLMAR_EXITING_HOST, folder.path(),         url, certificate.file(), owner, ending,
                               std::to_string(sent),  std::to_string(logged)};
    char* pointers[std::size(arguments) + 1] = {};
    std::ranges::transform(arguments, pointers, [](std::string& argument) { return argument.data(); });
    pid_t child = 0;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);  // the services' sockets
    ASSERT_EQ(::posix_spawn(&child, QUILLMAR_EXITING_HOST, &actions, nullptr, pointers, environ), 0);
    ::posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(endOf(child), 0) << i << ": " << owner << ", " << ending << ", " << url;
  }
  EXPECT_EQ(std::filesystem::file_size(folder / "secrets"), 0U);
  const LogCapture log;
  auto platform = platform::makeDefaultPlatform({folder.path(), plain.url(), {}, {}});
  platform.logSink = log.sink();
  const auto quillmar = QuillmarFactory::createQuillmar(platform);
  quillmar->setLogLevel(LogLevel::error);
  quillmar->configure("the-key");
  quillmar->sendEvent("session");
  EXPECT_TRUE(quillmar->drain(60s));
  EXPECT_EQ(quillmar->statistics().logged, 1U);
  EXPECT_THAT(log.messages(), IsEmpty());
  Quillmar::resetStaticState();
}

/// Whether what a plugin has begun goes on when it is closed.
bool libraryOutlivesPlugin() {
  const TemporaryFolder folder;
  const LoopbackService service({.delay = 2ms});
  void* const plugin = ::dlopen(QUILLMAR_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<void (*)(const char*, const char*)>(::dlsym(plugin, "report"))(folder.path().c_str(),
                                                                                  service.url().c_str());
  ::dlclose(plugin);
  const auto end = std::chrono::steady_clock::now() + 60s;
  while (service.requests().size() <= 200 && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  return service.requests().size() == 201;
}

TEST(Unloading, ofAPluginLeavesTheLibraryAtWork) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a process of its own
  EXPECT_EXIT(std::exit(libraryOutlivesPlugin() ? 0 : 1), ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quillmar::test
