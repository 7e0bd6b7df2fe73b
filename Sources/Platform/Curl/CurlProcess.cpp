#include "Platform/Curl/CurlProcess.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace quillmar::platform {

namespace {

constexpr auto kPatienceAtExit = std::chrono::seconds(2);

/// OpenSSL takes itself down when the process exits, under the feet of threads that use it. It can be told not to, as
/// long as nobody has used it yet; if somebody has, its exit handler runs after ours. Looked up, so that the library
/// need not be linked with what libcurl is linked with.
void keepTlsUntilTheEnd() noexcept {
  constexpr std::uint64_t kNoAtExit = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
  using Initialize = int (*)(std::uint64_t, const void*);
  if (const auto initialize = reinterpret_cast<Initialize>(::dlsym(RTLD_DEFAULT, "OPENSSL_init_crypto"))) {
    initialize(kNoAtExit, nullptr);
  }
}

}  // namespace

CurlProcess& CurlProcess::instance() {
  static CurlProcess& process = *new CurlProcess;
  return process;
}

CurlProcess::CurlProcess() : process_(::getpid()) {
  keepTlsUntilTheEnd();
  closeAtExit();
}

/// Exit handlers run in the reverse order: this one before that of whoever was there first.
void CurlProcess::closeAtExit() noexcept {
  static_cast<void>(std::atexit([] { instance().close(); }));
}

void CurlProcess::initialize() {
  static const CURLcode result = [] {
    const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
    closeAtExit();  // once more: TLS may have come only now, with an exit handler, where `dlsym` does not see it
    return code;
  }();
  if (result != CURLE_OK) {
    throw std::runtime_error(curl_easy_strerror(result));
  }
}

bool CurlProcess::isExiting() noexcept {
  const std::lock_guard lock(mutex_);
  return closed_;
}

bool CurlProcess::enter() noexcept {
  const std::lock_guard lock(mutex_);
  inside_ += closed_ ? 0 : 1;
  insideHere_ += closed_ ? 0 : 1;
  return !closed_;
}

void CurlProcess::leave() noexcept {
  const std::lock_guard lock(mutex_);
  --inside_;
  --insideHere_;
  left_.notify_all();
}

void CurlProcess::close() noexcept {
  if (::getpid() != process_) {
    return;  // a forked child has none of the threads, and perhaps a lock that nobody will give back
  }
  std::unique_lock lock(mutex_);
  closed_ = true;
  // A completion may take its time, or may be the one that exits.
  left_.wait_for(lock, kPatienceAtExit, [this] { return inside_ == insideHere_; });
}

}  // namespace quillmar::platform
