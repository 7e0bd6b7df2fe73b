#include "Platform/Posix/CurlHttpTransport.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/OwnProcess.h"
#include "quillmar/platform/URLError.h"

namespace quillmar::platform {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr int kMaxRedirects = 20;
constexpr int kOverallTimeoutFactor = 10;
constexpr std::size_t kMostConnections = 1000;
constexpr auto kPatienceAtExit = 2s;
constexpr std::chrono::duration<double> kLongestTimeout = std::chrono::hours(24 * 365);  // keeps sums in range

template <auto release>
struct Release {
  template <class T>
  void operator()(T* handle) const noexcept {
    release(handle);
  }
};
using EasyHandle = std::unique_ptr<CURL, Release<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, Release<curl_multi_cleanup>>;
using UrlHandle = std::unique_ptr<CURLU, Release<curl_url_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;
using CurlText = std::unique_ptr<char, Release<curl_free>>;

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

/// Methods and header names are such tokens; anything else could end the line or the name early.
bool isToken(std::string_view text) noexcept {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::ranges::all_of(text, [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           kMarks.find(c) != std::string_view::npos;
  });
}

bool isHeaderValue(std::string_view text) noexcept {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool isBlank(std::string_view text) noexcept {
  return text.find_first_not_of(" \t") == std::string_view::npos;
}

struct Origin {
  std::string scheme;
  std::string host;
  std::string port;

  friend bool operator==(const Origin&, const Origin&) = default;
};

/// The origin of a URL, or why there is none.
std::error_code parseOrigin(const std::string& url, Origin& origin) {
  if (url.empty()) {
    return URLError::unsupportedURL;
  }
  if (url.find('\0') != std::string::npos) {
    return URLError::badURL;
  }
  const UrlHandle handle(curl_url());
  if (!handle) {
    throw std::bad_alloc();
  }
  switch (curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0)) {
    case CURLUE_OK:
      break;
    case CURLUE_OUT_OF_MEMORY:
      throw std::bad_alloc();
    case CURLUE_BAD_SCHEME:
    case CURLUE_UNSUPPORTED_SCHEME:
      return URLError::unsupportedURL;
    default:
      return URLError::badURL;
  }
  const auto part = [&](CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(handle.get(), which, &text, CURLU_DEFAULT_PORT) == CURLUE_OUT_OF_MEMORY) {
      throw std::bad_alloc();
    }
    const CurlText owner(text);
    return std::string(text == nullptr ? "" : text);
  };
  origin = {part(CURLUPART_SCHEME), part(CURLUPART_HOST), part(CURLUPART_PORT)};
  for (std::string* text : {&origin.scheme, &origin.host}) {
    std::ranges::transform(*text, text->begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  }
  if (origin.scheme != "http" && origin.scheme != "https") {
    return URLError::unsupportedURL;
  }
  return {};
}

/// `sent`: the request had begun to go out.
std::error_code toError(CURLcode code, bool sent) noexcept {
  switch (code) {
    case CURLE_OK:
      return {};
    case CURLE_OUT_OF_MEMORY:
      return std::make_error_code(std::errc::not_enough_memory);
    case CURLE_OPERATION_TIMEDOUT:
      return URLError::timedOut;
    case CURLE_URL_MALFORMAT:
      return URLError::badURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return sent ? URLError::networkConnectionLost : URLError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
      return sent ? URLError::networkConnectionLost : URLError::cannotConnectToHost;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_ABORTED_BY_CALLBACK:  // `maySend` has said no
      return URLError::networkConnectionLost;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CLIENTCERT:
      return URLError::secureConnectionFailed;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_UNSUPPORTED_PROTOCOL:  // the URL's scheme was checked before: the server spoke something older than 1.0
      return URLError::badServerResponse;
    default:
      return URLError::unknown;
  }
}

/// OpenSSL takes itself down when the process exits, under the feet of threads that use it. It can be told not to, as
/// long as nobody has used it yet; a libcurl on another library needs nothing. Looked up, so that the library need not
/// be linked with what libcurl is linked with.
void keepTlsUntilTheEnd() noexcept {
  constexpr std::uint64_t kNoAtExit = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT
  using Initialize = int (*)(std::uint64_t, const void*);
  if (const auto initialize = reinterpret_cast<Initialize>(::dlsym(RTLD_DEFAULT, "OPENSSL_init_crypto"))) {
    initialize(kNoAtExit, nullptr);
  }
}

/// What `keepTlsUntilTheEnd` cannot do when the host has used OpenSSL before: keeps the transports' threads out of
/// libcurl, but for its waiting, from the moment that the process exits. Never destroyed.
class ExitGate {
 public:
  /// The first call must come before libcurl is initialized.
  static ExitGate& instance() {
    static ExitGate& gate = *new ExitGate;
    return gate;
  }

  /// A stay in libcurl; false, and none, once the process exits.
  class Stay {
   public:
    explicit Stay(ExitGate& gate) noexcept : gate_(gate), isGranted_(gate.enter()) {}
    ~Stay() {
      if (isGranted_) {
        gate_.leave();
      }
    }
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

    explicit operator bool() const noexcept { return isGranted_; }

   private:
    ExitGate& gate_;
    const bool isGranted_;
  };

  bool isClosed() noexcept {
    const std::lock_guard lock(mutex_);
    return closed_;
  }

 private:
  ExitGate() {
    // Exit handlers run in the reverse order: this one before that of whoever was there first.
    static_cast<void>(std::atexit([] { instance().close(); }));
  }

  bool enter() noexcept {
    const std::lock_guard lock(mutex_);
    inside_ += closed_ ? 0 : 1;
    insideHere_ += closed_ ? 0 : 1;
    return !closed_;
  }
  void leave() noexcept {
    const std::lock_guard lock(mutex_);
    --inside_;
    --insideHere_;
    left_.notify_all();
  }
  void close() noexcept {
    if (::getpid() != process_) {
      return;  // a forked child has none of the threads, and perhaps a lock that nobody will give back
    }
    std::unique_lock lock(mutex_);
    closed_ = true;
    // A completion may take its time, or may be the one that exits.
    left_.wait_for(lock, kPatienceAtExit, [this] { return inside_ == insideHere_; });
  }

  static inline thread_local int insideHere_ = 0;
  const pid_t process_ = ::getpid();
  std::mutex mutex_;
  std::condition_variable left_;
  int inside_ = 0;
  bool closed_ = false;
};

void initializeCurl() {
  static const CURLcode result = (ExitGate::instance(), keepTlsUntilTheEnd(), curl_global_init(CURL_GLOBAL_DEFAULT));
  if (result != CURLE_OK) {
    throw std::runtime_error(curl_easy_strerror(result));
  }
}

MultiHandle makeMulti(long connections) {
  MultiHandle multi(curl_multi_init());
  // Idle connections count, too: one to another server is closed when room is needed.
  if (!multi || curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, connections) != CURLM_OK ||
      curl_multi_setopt(multi.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, connections) != CURLM_OK) {
    throw std::bad_alloc();
  }
  return multi;
}

/// A request on its way. Only `cancelRequested` is looked at by more than one thread; the engine's mutex guards it.
struct Exchange {
  Exchange(HttpRequest request_, HttpTransport::Completion completion_)
      : request(std::move(request_)), completion(std::move(completion_)) {}

  HttpRequest request;  ///< redirects change it
  HttpTransport::Completion completion;
  bool cancelRequested = false;

  HttpTransport::RequestId id = 0;
  EasyHandle easy;
  bool transferring = false;
  bool sent = false;  ///< this transfer has begun to send
  HeaderList headers;
  Origin origin;
  std::chrono::milliseconds timeout{0};
  SteadyClock::time_point deadline;      ///< of the whole exchange
  SteadyClock::time_point lastActivity;  ///< when the last byte went or came
  curl_off_t bytesMoved = 0;             ///< as of then
  int redirects = 0;
  std::size_t maxBodyBytes = 0;
  std::string body;
  bool headEnded = false;     ///< the final response's head is complete
  std::error_code bodyError;  ///< why the body was refused
};

/// libcurl is content with a head that is cut short; we are not.
std::size_t receiveHeadLine(char* data, std::size_t, std::size_t size, void* context) noexcept {
  auto& exchange = *static_cast<Exchange*>(context);
  const std::string_view line(data, size);
  if (line.starts_with("HTTP/")) {
    exchange.headEnded = false;
  } else if (line == "\r\n" || line == "\n") {
    exchange.headEnded = true;
  }
  return size;
}

/// libcurl sends a request again by itself when a kept connection dies before an answer. The server may have taken it
/// by then, so only what changes nothing there may go twice.
bool maySend(const Exchange& exchange) noexcept {
  const HttpRequest& request = exchange.request;
  return !exchange.sent || (request.body.empty() && (request.method == "GET" || request.method == "HEAD"));
}

int beforeConnecting(void* context, curl_socket_t, curlsocktype) noexcept {
  return maySend(*static_cast<Exchange*>(context)) ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
}

int beforeSending(void* context, char*, char*, int, int) noexcept {
  auto& exchange = *static_cast<Exchange*>(context);
  const bool granted = maySend(exchange);
  exchange.sent = true;
  return granted ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

/// The bytes that this transfer has sent and received so far.
curl_off_t bytesMoved(CURL* easy) noexcept {
  curl_off_t sent = 0;
  curl_off_t received = 0;
  long head = 0;
  curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &sent);
  curl_easy_getinfo(easy, CURLINFO_SIZE_DOWNLOAD_T, &received);
  curl_easy_getinfo(easy, CURLINFO_HEADER_SIZE, &head);
  return sent + received + head;
}

/// Whether the first byte of an answer has come.
bool hasAnswered(CURL* easy) noexcept {
  curl_off_t microseconds = 0;
  curl_easy_getinfo(easy, CURLINFO_STARTTRANSFER_TIME_T, &microseconds);
  return microseconds > 0;
}

std::size_t receiveBody(char* data, std::size_t, std::size_t size, void* context) noexcept {
  auto& exchange = *static_cast<Exchange*>(context);
  if (size > exchange.maxBodyBytes - exchange.body.size()) {
    exchange.bodyError = URLError::dataLengthExceedsMaximum;
    return 0;
  }
  try {
    exchange.body.append(data, size);
  } catch (const std::exception&) {
    exchange.bodyError = std::make_error_code(std::errc::not_enough_memory);
    return 0;
  }
  return size;
}

void addHeader(HeaderList& list, const std::string& line) {
  curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(list.release());
  list.reset(longer);
}

/// Puts libcurl's refusals of options into one place.
class Options {
 public:
  explicit Options(CURL* easy) noexcept : easy_(easy) {}

  template <class Value>
  void set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(easy_, option, value);
    if (code == CURLE_OUT_OF_MEMORY) {
      throw std::bad_alloc();
    }
    if (code != CURLE_OK) {
      throw std::runtime_error(curl_easy_strerror(code));
    }
  }

 private:
  CURL* easy_;
};

}  // namespace

/// What the transport and its thread share. The thread holds it, too, so that the transport may be destroyed by one of
/// its own completions.
class CurlHttpTransport::Engine : public std::enable_shared_from_this<Engine> {
 public:
  explicit Engine(CurlHttpTransportOptions options) : options_(std::move(options)) {
    options_.maxConnections = std::clamp<std::size_t>(options_.maxConnections, 1, kMostConnections);
  }

  RequestId start(HttpRequest request, Completion completion) {
    Exchanges added;
    auto node = added.extract(added.emplace(0, Exchange(std::move(request), std::move(completion))).first);
    const std::lock_guard lock(mutex_);
    if (!thread_.joinable()) {
      launch();
    }
    const RequestId id = ++lastId_;
    node.key() = id;
    node.mapped().id = id;
    waiting_.insert(waiting_.end(), std::move(node));
    if (running_.size() < options_.maxConnections) {
      wake();
    }
    return id;
  }

  void cancel(RequestId id) noexcept {
    const std::lock_guard lock(mutex_);
    if (auto node = waiting_.extract(id)) {
      ending_.insert(std::move(node));
    } else if (const auto found = running_.find(id); found != running_.end()) {
      found->second.cancelRequested = true;
    } else {
      return;
    }
    wake();
  }

  void stop() noexcept {
    std::thread thread;
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
      thread = std::move(thread_);
      wake();
    }
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();
    } else if (thread.joinable()) {
      thread.join();
    }
  }

 private:
  /// Called with the mutex held. Does nothing when the process exits: the requests wait for ever then.
  void launch() {
    if (const ExitGate::Stay stay(ExitGate::instance()); stay) {
      initializeCurl();
      multi_ = makeMulti(static_cast<long>(options_.maxConnections));
      thread_ = std::thread([self = shared_from_this()] { self->run(); });
    }
  }

  using Exchanges = std::map<RequestId, Exchange>;  // the oldest first; nodes move between maps without allocating

  /// Called with the mutex held. One wake-up is enough until the thread looks at the queue again.
  void wake() noexcept {
    if (std::exchange(blocked_, false)) {
      curl_multi_wakeup(multi_.get());
    }
  }

  void run() noexcept {
    ExitGate& gate = ExitGate::instance();
    bool broken = false;
    while (!isStopping()) {
      {
        const ExitGate::Stay stay(gate);
        if (!stay) {
          break;
        }
        broken = !work(broken);
      }
      broken = broken || !block();
    }
    if (const ExitGate::Stay stay(gate); stay) {
      end();
    } else {
      OwnProcess::abandon(shared_from_this());  // to clean up is to use TLS
      const std::lock_guard lock(mutex_);
      if (thread_.joinable()) {
        thread_.detach();  // nobody will wait for it
      }
    }
  }

  /// Everything but waiting. False when libcurl cannot go on.
  bool work(bool broken) noexcept {
    if (broken) {
      abandonAll();
    }
    endCancelled();
    while (Exchange* exchange = admit()) {
      begin(*exchange);
    }
    int active = 0;
    const CURLMcode code = curl_multi_perform(multi_.get(), &active);
    reapFinished();
    watchActivity();
    return code == CURLM_OK;
  }

  void endCancelled() noexcept {
    while (Exchanges::node_type node = nextEnding()) {
      node.mapped().completion(failure(node.mapped(), URLError::cancelled));
    }
    const auto cancelled = [](const Exchange& exchange) { return exchange.cancelRequested; };
    while (Exchange* exchange = findRunning(cancelled)) {
      finish(*exchange, failure(*exchange, URLError::cancelled));
    }
  }

  Exchanges::node_type nextEnding() noexcept {
    const std::lock_guard lock(mutex_);
    return stopping_ || ending_.empty() ? Exchanges::node_type() : ending_.extract(ending_.begin());
  }

  /// An exchange that is running and fits; none when the transport is gone.
  template <class Predicate>
  Exchange* findRunning(Predicate predicate) noexcept {
    const std::lock_guard lock(mutex_);
    if (!stopping_) {
      for (auto& [id, exchange] : running_) {
        if (predicate(exchange)) {
          return &exchange;
        }
      }
    }
    return nullptr;
  }

  /// Moves the oldest request out of the queue if there is room for it.
  Exchange* admit() noexcept {
    const std::lock_guard lock(mutex_);
    blocked_ = false;
    if (stopping_ || waiting_.empty() || running_.size() >= options_.maxConnections) {
      return nullptr;
    }
    return &running_.insert(waiting_.extract(waiting_.begin())).position->second;
  }

  /// Notes which exchanges have moved and ends those that were silent for too long.
  void watchActivity() noexcept {
    const auto now = SteadyClock::now();
    const auto silent = [now](Exchange& exchange) {
      if (!exchange.transferring) {
        return false;
      }
      const curl_off_t bytes = bytesMoved(exchange.easy.get());
      if (bytes != exchange.bytesMoved) {
        exchange.bytesMoved = bytes;
        exchange.lastActivity = now;
      }
      return now - exchange.lastActivity >= exchange.timeout;
    };
    while (Exchange* exchange = findRunning(silent)) {
      finish(*exchange, failure(*exchange, URLError::timedOut));
    }
  }

  /// Waits for the network, a wake-up or the next exchange that has been silent for too long.
  bool block() noexcept {
    auto wait = std::chrono::milliseconds(std::numeric_limits<int>::max());
    {
      const std::lock_guard lock(mutex_);
      const bool idle = ending_.empty() && (waiting_.empty() || running_.size() >= options_.maxConnections) &&
                        std::ranges::none_of(running_, [](auto& entry) { return entry.second.cancelRequested; });
      if (stopping_ || !idle) {
        return true;
      }
      const auto now = SteadyClock::now();
      for (const auto& [id, exchange] : running_) {
        const auto left = exchange.lastActivity + exchange.timeout - now;
        wait = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(0), wait);
      }
      blocked_ = true;
    }
    // libcurl shortens the wait to its own next timer.
    return curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(wait.count()), nullptr) == CURLM_OK;
  }

  void begin(Exchange& exchange) noexcept {
    try {
      const HttpRequest& request = exchange.request;
      const bool headersFit = std::ranges::all_of(
          request.headers, [](const auto& header) { return isToken(header.first) && isHeaderValue(header.second); });
      std::error_code error;
      if (request.url.empty() || request.url != lastUrl_) {  // most requests go where the last one went
        lastUrl_.clear();
        error = parseOrigin(request.url, lastOrigin_);
        lastUrl_ = error ? std::string() : request.url;
      }
      exchange.origin = lastOrigin_;
      if (!error && !(isToken(request.method) && headersFit)) {
        error = URLError::badURL;
      }
      if (error) {
        finish(exchange, failure(exchange, error));
        return;
      }
      const auto timeout = request.timeout.count() > 0 ? std::min(request.timeout, kLongestTimeout) : 0s;
      exchange.timeout = std::chrono::ceil<std::chrono::milliseconds>(timeout);
      exchange.deadline = SteadyClock::now() + kOverallTimeoutFactor * exchange.timeout;
      exchange.maxBodyBytes = options_.maxBodyBytes;
      transfer(exchange);
    } catch (const std::bad_alloc&) {
      finish(exchange, failure(exchange, std::make_error_code(std::errc::not_enough_memory)));
    } catch (const std::exception&) {
      finish(exchange, failure(exchange, URLError::unknown));
    }
  }

  /// Hands the request as it now is to libcurl.
  void transfer(Exchange& exchange) {
    if (!exchange.easy) {
      if (!spare_.empty()) {
        exchange.easy = std::move(spare_.back());
        spare_.pop_back();
      } else {
        spare_.reserve(handles_ + 1);  // so that giving the handle back cannot fail
        exchange.easy = makeEasy();
        ++handles_;
      }
    }
    exchange.body.clear();
    exchange.headEnded = false;
    exchange.sent = false;
    exchange.bytesMoved = 0;
    exchange.lastActivity = SteadyClock::now();
    configure(exchange);
    const CURLMcode code = curl_multi_add_handle(multi_.get(), exchange.easy.get());
    if (code != CURLM_OK) {
      throw std::runtime_error(curl_multi_strerror(code));
    }
    exchange.transferring = true;
  }

  /// A handle with the options that are the same for every request. It keeps them from transfer to transfer.
  EasyHandle makeEasy() {
    EasyHandle easy(curl_easy_init());
    if (!easy) {
      throw std::bad_alloc();
    }
    Options options(easy.get());
    options.set(CURLOPT_PATH_AS_IS, 1L);
    options.set(CURLOPT_PROTOCOLS_STR, "http,https");
    options.set(CURLOPT_FOLLOWLOCATION, 0L);  // `redirect` does that: it knows which headers may go along
    options.set(CURLOPT_HTTP09_ALLOWED, 0L);
    options.set(CURLOPT_NOSIGNAL, 1L);
    options.set(CURLOPT_QUICK_EXIT, 1L);  // do not wait for the name resolver when cancelled
    options.set(CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
    options.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    options.set(CURLOPT_SSL_VERIFYPEER, 1L);
    options.set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options_.caFile.empty()) {
      options.set(CURLOPT_CAINFO, options_.caFile.c_str());
      options.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    options.set(CURLOPT_HEADERFUNCTION, &receiveHeadLine);
    options.set(CURLOPT_WRITEFUNCTION, &receiveBody);
    options.set(CURLOPT_SOCKOPTFUNCTION, &beforeConnecting);
    options.set(CURLOPT_PREREQFUNCTION, &beforeSending);
    return easy;
  }

  /// Sets what differs from request to request: each option here is set each time.
  void configure(Exchange& exchange) {
    Options options(exchange.easy.get());
    options.set(CURLOPT_PRIVATE, &exchange);
    options.set(CURLOPT_HEADERDATA, static_cast<void*>(&exchange));
    options.set(CURLOPT_WRITEDATA, static_cast<void*>(&exchange));
    options.set(CURLOPT_SOCKOPTDATA, static_cast<void*>(&exchange));
    options.set(CURLOPT_PREREQDATA, static_cast<void*>(&exchange));
    options.set(CURLOPT_URL, exchange.request.url.c_str());

    const auto left = std::chrono::ceil<std::chrono::milliseconds>(exchange.deadline - exchange.lastActivity);
    options.set(CURLOPT_CONNECTTIMEOUT_MS, std::max(static_cast<long>(exchange.timeout.count()), 1L));
    options.set(CURLOPT_TIMEOUT_MS, std::max(static_cast<long>(left.count()), 1L));

    const bool hasBody = configureMethod(options, exchange.request);
    configureHeaders(exchange, hasBody);
    options.set(CURLOPT_HTTPHEADER, exchange.headers.get());
  }

  /// True when libcurl sends the length of the body.
  static bool configureMethod(Options& options, const HttpRequest& request) {
    const std::string& method = request.method;
    const bool hasBody =
        method == "POST" || method == "PUT" || method == "PATCH" || (!request.body.empty() && method != "HEAD");
    if (hasBody) {
      options.set(CURLOPT_POST, 1L);
      options.set(CURLOPT_POSTFIELDS, request.body.data());  // not copied: the exchange outlives the transfer
      options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    } else if (method == "HEAD") {
      options.set(CURLOPT_NOBODY, 1L);
    } else {
      options.set(CURLOPT_HTTPGET, 1L);
    }
    const bool isUsual = method == "HEAD" || method == (hasBody ? "POST" : "GET");
    options.set(CURLOPT_CUSTOMREQUEST, isUsual ? nullptr : method.c_str());
    return hasBody;
  }

  static void configureHeaders(Exchange& exchange, bool hasBody) {
    HeaderList list;
    std::vector<std::string_view> unwanted{"Accept", "Content-Type", "Expect"};  // libcurl would add its own
    for (const auto& [name, value] : exchange.request.headers) {
      std::erase_if(unwanted, [&](std::string_view other) { return equalsIgnoringCase(name, other); });
      if (equalsIgnoringCase(name, "Content-Length")) {
        if (!hasBody) {
          addHeader(list, name + ": 0");
        }
      } else if (isBlank(value)) {
        addHeader(list, name + ";");  // how libcurl is told to send an empty value
      } else {
        addHeader(list, fmt::format("{}: {}", name, value));
      }
    }
    for (const std::string_view name : unwanted) {
      addHeader(list, std::string(name) + ":");
    }
    exchange.headers = std::move(list);
  }

  void reapFinished() noexcept {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
      if (message->msg != CURLMSG_DONE) {
        continue;
      }
      const CURLcode code = message->data.result;
      Exchange* exchange = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &exchange);
      detach(*exchange);
      conclude(*exchange, code);
      if (isStopping()) {
        break;
      }
    }
  }

  void conclude(Exchange& exchange, CURLcode code) noexcept {
    if (code != CURLE_OK) {
      std::error_code error = exchange.bodyError ? exchange.bodyError : toError(code, exchange.sent);
      if (code == CURLE_OUT_OF_MEMORY && !exchange.headEnded && hasAnswered(exchange.easy.get())) {
        error = URLError::badServerResponse;  // libcurl's word for a head with too long a line
      }
      finish(exchange, failure(exchange, error));
      return;
    }
    if (!exchange.headEnded) {
      finish(exchange, failure(exchange, URLError::networkConnectionLost));
      return;
    }
    try {
      long status = 0;
      char* location = nullptr;
      curl_easy_getinfo(exchange.easy.get(), CURLINFO_RESPONSE_CODE, &status);
      curl_easy_getinfo(exchange.easy.get(), CURLINFO_REDIRECT_URL, &location);
      if (location != nullptr && (status == 301 || status == 302 || status == 303 || status == 307 || status == 308)) {
        if (const std::error_code error = redirect(exchange, status, location)) {
          finish(exchange, failure(exchange, error));
        }
        return;
      }
      HttpResult result{{}, std::move(exchange.request.url), std::nullopt, std::move(exchange.body)};
      if (status != 0) {
        result.statusCode = static_cast<int>(status);
      }
      finish(exchange, std::move(result));
    } catch (const std::bad_alloc&) {
      finish(exchange, failure(exchange, std::make_error_code(std::errc::not_enough_memory)));
    } catch (const std::exception&) {
      finish(exchange, failure(exchange, URLError::unknown));
    }
  }

  std::error_code redirect(Exchange& exchange, long status, std::string location) {
    if (++exchange.redirects > kMaxRedirects) {
      return URLError::httpTooManyRedirects;
    }
    Origin origin;
    if (const std::error_code error = parseOrigin(location, origin)) {
      return error == URLError::unsupportedURL ? URLError::redirectToInsecureLocation : URLError::badServerResponse;
    }
    if (exchange.origin.scheme == "https" && origin.scheme != "https") {
      return URLError::redirectToInsecureLocation;
    }
    if (SteadyClock::now() >= exchange.deadline) {
      return URLError::timedOut;
    }
    HttpRequest& request = exchange.request;
    const auto dropHeaders = [&](auto&& drop) {
      std::erase_if(request.headers, [&](const auto& header) { return drop(std::string_view(header.first)); });
    };
    if (origin != exchange.origin) {
      dropHeaders([](std::string_view name) {
        return equalsIgnoringCase(name, "Authorization") || equalsIgnoringCase(name, "Proxy-Authorization") ||
               equalsIgnoringCase(name, "Cookie") || equalsIgnoringCase(name, "Host");
      });
    }
    if ((status == 303 && request.method != "HEAD") || (status <= 302 && request.method == "POST")) {
      request.method = "GET";
      request.body.clear();
      dropHeaders([](std::string_view name) {
        return startsWithIgnoringCase(name, "Content-") || equalsIgnoringCase(name, "Transfer-Encoding");
      });
    }
    exchange.origin = std::move(origin);
    request.url = std::move(location);
    transfer(exchange);
    return {};
  }

  static HttpResult failure(Exchange& exchange, std::error_code error) noexcept {
    return {error, std::move(exchange.request.url), std::nullopt, {}};
  }

  void detach(Exchange& exchange) noexcept {
    if (std::exchange(exchange.transferring, false)) {
      curl_multi_remove_handle(multi_.get(), exchange.easy.get());
    }
  }

  /// Takes the exchange out and calls its completion, unless the transport is gone: `end` destroys it then.
  void finish(Exchange& exchange, HttpResult result) noexcept {
    detach(exchange);
    if (exchange.easy) {
      spare_.push_back(std::move(exchange.easy));
    }
    Exchanges::node_type node;
    {
      const std::lock_guard lock(mutex_);
      if (stopping_) {
        return;
      }
      node = running_.extract(exchange.id);
      if (exchange.cancelRequested && result.error != URLError::cancelled) {
        result = {URLError::cancelled, std::move(result.url), std::nullopt, {}};
      }
    }
    exchange.completion(std::move(result));
  }

  /// libcurl cannot go on, for want of memory or file descriptors: everything in flight fails, what waits gets a
  /// chance.
  void abandonAll() noexcept {
    const auto any = [](const Exchange&) { return true; };
    while (Exchange* exchange = findRunning(any)) {
      finish(*exchange, failure(*exchange, URLError::unknown));
    }
  }

  /// Lets go of everything on the thread's way out; the completions' destructors may be anybody's code.
  void end() noexcept {
    Exchanges waiting;
    Exchanges running;
    Exchanges ending;
    {
      const std::lock_guard lock(mutex_);
      waiting.swap(waiting_);
      running.swap(running_);
      ending.swap(ending_);
    }
    for (auto& [id, exchange] : running) {
      detach(exchange);
    }
  }

  bool isStopping() noexcept {
    const std::lock_guard lock(mutex_);
    return stopping_;
  }

  CurlHttpTransportOptions options_;

  std::mutex mutex_;
  Exchanges waiting_;
  Exchanges running_;
  Exchanges ending_;  // cancelled before they began
  bool blocked_ = false;
  bool stopping_ = false;
  RequestId lastId_ = 0;
  std::thread thread_;

  MultiHandle multi_;              // made before the thread starts; else the thread's, but for `curl_multi_wakeup`
  std::vector<EasyHandle> spare_;  // the thread's
  std::size_t handles_ = 0;        // the thread's
  std::string lastUrl_;            // the thread's: the address that was last taken apart,
  Origin lastOrigin_;              // and its origin
};

CurlHttpTransport::CurlHttpTransport(CurlHttpTransportOptions options)
    : engine_(std::make_shared<Engine>(std::move(options))) {}

CurlHttpTransport::~CurlHttpTransport() {
  engine_->stop();
  if (ExitGate::instance().isClosed()) {
    OwnProcess::abandon(std::move(engine_));
  }
}

HttpTransport::RequestId CurlHttpTransport::start(HttpRequest request, Completion completion) {
  return engine_->start(std::move(request), std::move(completion));
}

void CurlHttpTransport::cancel(RequestId request) noexcept {
  engine_->cancel(request);
}

}  // namespace quillmar::platform
