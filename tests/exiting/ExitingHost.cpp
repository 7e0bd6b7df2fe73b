// A host that ends while its threads report events and the library works:
//   quillmar_exiting_host DATA SERVICE CA-FILE OWNER ENDING SENT LOGGED
// The last two say how many events must have been sent, and logged by the service, before.
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarASAAttribution.h"
#include "quillmar/QuillmarFactory.h"

/// Leak checkers ask for this. What the transport's thread holds when the process exits is left alone: OpenSSL, which
/// is down by then, is not touched any more. What pointed there is gone with OpenSSL, so it would be taken for lost.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return 1;
}

namespace {

/// Lets go of the library with the other static objects.
std::shared_ptr<quillmar::Quillmar> staticOwner;

void report(const std::weak_ptr<quillmar::Quillmar>& weak) {
  for (int i = 0; i < 20'000; ++i) {
    if (const auto quillmar = weak.lock()) {
      quillmar->sendEvent("session");
      quillmar->sendEvent("purchase", {{quillmar::ASEventParam::revenue, i}});
      quillmar->applicationDidBecomeActive();
    }
  }
}

/// Uses OpenSSL before the library does. Exit handlers run in the reverse order: OpenSSL takes itself down before this
/// last moment, in which the library's threads go on.
void useTls() {
  std::atexit([] { quillmar::Quillmar::shared()->drain(std::chrono::milliseconds(20)); });
  static SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_default_verify_paths(context);
}

}  // namespace

int main(int, char** arguments) {
  ::alarm(60);  // a hang is an error, too
  const std::string owner = arguments[4];
  const std::string ending = arguments[5];
  const std::uint64_t sent = std::stoull(arguments[6]);
  const std::uint64_t logged = std::stoull(arguments[7]);

  for (const char* variable : {"http_proxy", "https_proxy", "ALL_PROXY"}) {
    ::setenv(variable, "http://127.0.0.1:1", 1);  // NOLINT(concurrency-mt-unsafe): so early, nobody else is there
  }
  int own[2];
  if (ending == "exec") {
    ::socketpair(AF_UNIX, SOCK_STREAM, 0, own);
  } else {  // libcurl opens the file, and leaves it to children
    ::setenv("SSLKEYLOGFILE", (std::string(arguments[1]) + "/secrets").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
  owner == "TLS user" ? useTls() : void();
  quillmar::platform::setSharedPlatform(
      quillmar::platform::makeDefaultPlatform({arguments[1], arguments[2], arguments[3], arguments[2]}));
  owner == "late TLS user" ? useTls() : void();
  auto quillmar = owner == "local" || owner == "static"
                      ? quillmar::QuillmarFactory::createQuillmar(quillmar::platform::sharedPlatform())
                      : quillmar::Quillmar::shared();
  if (owner == "static") {
    staticOwner = quillmar;
  }
  quillmar->configure("the-key");
  quillmar::QuillmarASAAttribution::shared()->enableASAAttributionTracking();
  for (int i = 0; i < 3; ++i) {
    std::thread(report, std::weak_ptr(quillmar)).detach();
  }
  while (quillmar->statistics().sent < sent || quillmar->statistics().logged < logged) {
    std::this_thread::yield();
  }
  if (owner == "static") {
    quillmar.reset();
  }
  if (ending == "exit on a thread") {
    std::thread([] { std::exit(0); }).join();  // NOLINT(concurrency-mt-unsafe): that is what it is here for
  }
  if (ending == "exec") {  // succeeds when the new program has the host's own pair, and nothing of the library's
    const char* const inherited = R"(test $(ls -l /proc/self/fd </dev/null 2>&1 | grep -c "socket:\|$0") = 2)";
    ::execl("/bin/sh", "sh", "-c", inherited, arguments[1], nullptr);
  }
  if (ending == "exit") {
    std::exit(0);  // NOLINT(concurrency-mt-unsafe)
  }
  return 0;
}
