#include "Platform/Curl/CurlExchange.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Ascii.h"
#include "quillmar/platform/URLError.h"

namespace quillmar::platform {

namespace {

using namespace std::chrono_literals;

constexpr int kMaxRedirects = 20;
constexpr int kOverallTimeoutFactor = 10;
constexpr std::chrono::duration<double> kLongestTimeout = std::chrono::hours(24 * 365);  // keeps sums in range

/// Methods and header names are such.
bool isToken(std::string_view text) noexcept {
  return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

bool isHeaderValue(std::string_view text) noexcept {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool isBlank(std::string_view text) noexcept {
  return text.find_first_not_of(" \t") == std::string_view::npos;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) noexcept {
  return equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::error_code toError(CURLcode code) noexcept {
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
      return URLError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_INTERFACE_FAILED:
      return URLError::cannotConnectToHost;
    case CURLE_PROXY:  // one that speaks SOCKS
      return URLError::proxyRefusedConnection;
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

void addHeader(HeaderList& list, const std::string& line) {
  curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(list.release());
  list.reset(longer);
}

/// As libcurl does it, except that children of the host do not inherit the connection.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

int beforeResolving(void*, void*, void* resolves) noexcept {
  *static_cast<bool*>(resolves) = true;
  return 0;
}

/// libcurl writes the secrets of each connection into the file that SSLKEYLOGFILE names. Not those of ours. Looked up,
/// so that the library need not be linked with what libcurl is linked with.
CURLcode keepTlsSecrets(CURL* easy, void* context, void*) noexcept {
  using SetCallback = void (*)(void*, void (*)(const void*, const char*));
  static const auto set = reinterpret_cast<SetCallback>(::dlsym(RTLD_DEFAULT, "SSL_CTX_set_keylog_callback"));
  curl_tlssessioninfo* tls = nullptr;
  curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &tls);
  if (set != nullptr && tls != nullptr && tls->backend == CURLSSLBACKEND_OPENSSL) {
    set(context, nullptr);
  }
  return CURLE_OK;
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

/// True when libcurl sends the length of the body.
bool setMethod(Options& options, const HttpRequest& request) {
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

}  // namespace

EasyHandle CurlExchange::makeHandle(const CurlHttpTransportOptions& chosen, bool& resolves) {
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
  if (!chosen.caFile.empty()) {
    options.set(CURLOPT_CAINFO, chosen.caFile.c_str());
    options.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  options.set(CURLOPT_PROXY, chosen.proxy.c_str());  // "" is none, whatever the environment says
  options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy.get(), CURLOPT_SSL_CTX_FUNCTION, &keepTlsSecrets);  // refused where TLS is not OpenSSL's
  options.set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  options.set(CURLOPT_RESOLVER_START_FUNCTION, &beforeResolving);
  options.set(CURLOPT_RESOLVER_START_DATA, static_cast<void*>(&resolves));
  options.set(CURLOPT_HEADERFUNCTION, &receiveHeadLine);
  options.set(CURLOPT_WRITEFUNCTION, &receiveBody);
  options.set(CURLOPT_SOCKOPTFUNCTION, &beforeConnecting);
  options.set(CURLOPT_PREREQFUNCTION, &beforeSending);
  return easy;
}

std::error_code CurlExchange::begin(OriginReader& origins, std::size_t maxBodyBytes) {
  if (const std::error_code error = origins.read(request_.url, origin_)) {
    return error;
  }
  const bool headersFit = std::ranges::all_of(
      request_.headers, [](const auto& header) { return isToken(header.first) && isHeaderValue(header.second); });
  if (!isToken(request_.method) || !headersFit) {
    return URLError::badURL;
  }
  const auto timeout = request_.timeout.count() > 0 ? std::min(request_.timeout, kLongestTimeout) : 0s;
  timeout_ = std::chrono::ceil<std::chrono::milliseconds>(timeout);
  deadline_ = Clock::now() + kOverallTimeoutFactor * timeout_;
  maxBodyBytes_ = maxBodyBytes;
  return {};
}

/// Each option here is set each time: a handle keeps them from transfer to transfer.
void CurlExchange::prepare(CURL* easy, const CurlHttpTransportOptions& chosen, bool isShared) {
  body_.clear();
  headEnded_ = false;
  begun_ = false;
  sent_ = false;
  bytesMoved_ = 0;
  lastActivity_ = Clock::now();

  Options options(easy);
  for (const CURLoption context : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_SOCKOPTDATA, CURLOPT_PREREQDATA}) {
    options.set(context, static_cast<void*>(this));
  }
  options.set(CURLOPT_URL, request_.url.c_str());
  // Wait to learn whether a connection can be shared, rather than open one each. Only TLS tells before an answer.
  options.set(CURLOPT_PIPEWAIT, origin_.scheme == "https" ? 1L : 0L);
  // Without TLS a proxy would read the credentials. An empty text, too, keeps libcurl from asking the environment.
  options.set(CURLOPT_NOPROXY, origin_.scheme == "https" ? chosen.noProxy.c_str() : "*");
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - lastActivity_);
  options.set(CURLOPT_CONNECTTIMEOUT_MS, std::max(static_cast<long>(timeout_.count()), 1L));
  options.set(CURLOPT_TIMEOUT_MS, std::max(static_cast<long>(left.count()), 1L));
  const bool hasBody = setMethod(options, request_);
  // Where this is set, libcurl takes the end of a kept connection for an error, and sends again only those streams that
  // a server of HTTP/2 has refused, or has left behind a GOAWAY. It means nothing else to HTTP.
  const bool isSet =
      curl_easy_setopt(easy, CURLOPT_RTSP_REQUEST,
                       static_cast<long>(isHarmless() ? CURL_RTSPREQ_OPTIONS : CURL_RTSPREQ_RECEIVE)) == CURLE_OK;
  onlyRefused_ = isShared && isSet;
  headers_ = headerList(hasBody);
  options.set(CURLOPT_HTTPHEADER, headers_.get());
}

HeaderList CurlExchange::headerList(bool hasBody) const {
  HeaderList list;
  std::vector<std::string_view> unwanted{"Accept", "Content-Type", "Expect"};  // libcurl would add its own
  for (const auto& [name, value] : request_.headers) {
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
  return list;
}

/// What a proxy has to say comes before the transfer, and libcurl has no codes of its own for it.
std::error_code CurlExchange::errorOf(CURL* easy, CURLcode code,
                                      const CurlHttpTransportOptions& options) const noexcept {
  long answer = 0;  // the proxy's, to the last request for a tunnel of this transfer
  curl_easy_getinfo(easy, CURLINFO_HTTP_CONNECTCODE, &answer);
  if (!sent_ && answer >= 300) {
    const bool isAboutUser = answer == 407 || answer == 401;  // what some proxies say of a wrong password
    return isAboutUser ? URLError::proxyAuthenticationRequired : URLError::proxyRefusedConnection;
  }
  // With exceptions, it may as well have been the host that was not there.
  const bool isProxyCalled = !options.proxy.empty() && options.noProxy.empty() && origin_.scheme == "https";
  if (code == CURLE_COULDNT_RESOLVE_PROXY || (code == CURLE_COULDNT_CONNECT && isProxyCalled)) {
    return URLError::cannotConnectToProxy;
  }
  return toError(code);
}

std::optional<HttpResult> CurlExchange::conclude(CURL* easy, CURLcode code, const CurlHttpTransportOptions& options) {
  if (code == CURLE_OUT_OF_MEMORY && !headEnded_ && hasAnswered(easy)) {
    return failure(URLError::badServerResponse);  // libcurl's word for a head with too long a line
  }
  if (code != CURLE_OK) {
    return failure(bodyError_ ? bodyError_ : errorOf(easy, code, options));
  }
  if (!headEnded_) {
    return failure(URLError::networkConnectionLost);
  }
  long status = 0;
  char* location = nullptr;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
  if (location != nullptr && (status == 301 || status == 302 || status == 303 || status == 307 || status == 308)) {
    const std::error_code error = redirect(status, location);
    return error ? std::optional(failure(error)) : std::nullopt;
  }
  HttpResult result{{}, std::move(request_.url), std::nullopt, std::move(body_)};
  if (status != 0) {
    result.statusCode = static_cast<int>(status);
    result.retryAfter.assign(retryAfter_.data(), retryAfterSize_);
  }
  return result;
}

std::error_code CurlExchange::redirect(long status, std::string location) {
  if (++redirects_ > kMaxRedirects) {
    return URLError::httpTooManyRedirects;
  }
  Origin origin;
  if (const std::error_code error = Origin::read(location, origin)) {
    return error == URLError::unsupportedURL ? URLError::redirectToInsecureLocation : URLError::badServerResponse;
  }
  if (origin_.scheme == "https" && origin.scheme != "https") {
    return URLError::redirectToInsecureLocation;
  }
  if (Clock::now() >= deadline_) {
    return URLError::timedOut;
  }
  const auto dropHeaders = [&](auto&& drop) {
    std::erase_if(request_.headers, [&](const auto& header) { return drop(std::string_view(header.first)); });
  };
  if (origin != origin_) {
    dropHeaders([](std::string_view name) {
      return equalsIgnoringCase(name, "Authorization") || equalsIgnoringCase(name, "Proxy-Authorization") ||
             equalsIgnoringCase(name, "Cookie") || equalsIgnoringCase(name, "Host");
    });
  }
  if ((status == 303 && request_.method != "HEAD") || (status <= 302 && request_.method == "POST")) {
    request_.method = "GET";
    request_.body.clear();
    dropHeaders([](std::string_view name) {
      return startsWithIgnoringCase(name, "Content-") || equalsIgnoringCase(name, "Transfer-Encoding");
    });
  }
  origin_ = std::move(origin);
  request_.url = std::move(location);
  return {};
}

HttpResult CurlExchange::failure(std::error_code error) noexcept {
  return {error, std::move(request_.url), std::nullopt, {}};
}

void CurlExchange::watch(CURL* easy, Clock::time_point now) noexcept {
  const curl_off_t bytes = bytesMoved(easy);
  if (bytes != bytesMoved_ ||
      !begun_) {  // before, it waits for a connection; libcurl watches over the look-up of names
    bytesMoved_ = bytes;
    lastActivity_ = now;
  }
}

/// It changes nothing at the server.
bool CurlExchange::isHarmless() const noexcept {
  return request_.body.empty() && (request_.method == "GET" || request_.method == "HEAD");
}

/// libcurl sends a request again by itself when a kept connection dies before an answer. The server may have taken it
/// by then, so only what is harmless may go twice, and what the server has certainly not looked at.
bool CurlExchange::maySend() const noexcept {
  return !sent_ || isHarmless() || onlyRefused_;
}

int CurlExchange::beforeConnecting(void* context, curl_socket_t, curlsocktype) noexcept {
  auto& exchange = *static_cast<CurlExchange*>(context);
  exchange.begun_ = true;
  return exchange.maySend() ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
}

int CurlExchange::beforeSending(void* context, char*, char*, int, int) noexcept {
  auto& exchange = *static_cast<CurlExchange*>(context);
  const bool granted = exchange.maySend();
  exchange.begun_ = true;
  exchange.sent_ = true;
  return granted ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

/// libcurl is content with a head that is cut short; we are not.
std::size_t CurlExchange::receiveHeadLine(char* data, std::size_t, std::size_t size, void* context) noexcept {
  auto& exchange = *static_cast<CurlExchange*>(context);
  const std::string_view line(data, size);
  constexpr std::string_view retryAfter = "Retry-After:";
  if (line.starts_with("HTTP/")) {
    exchange.headEnded_ = false;
    exchange.retryAfterSize_ = 0;
  } else if (startsWithIgnoringCase(line, retryAfter)) {
    std::string_view value = line.substr(retryAfter.size());
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    value = value.substr(0, value.find_last_not_of(" \t\r\n") + 1);
    exchange.retryAfterSize_ = value.copy(exchange.retryAfter_.data(), exchange.retryAfter_.size());
  } else if (line == "\r\n" || line == "\n") {
    exchange.headEnded_ = true;
  }
  return size;
}

std::size_t CurlExchange::receiveBody(char* data, std::size_t, std::size_t size, void* context) noexcept {
  auto& exchange = *static_cast<CurlExchange*>(context);
  if (size > exchange.maxBodyBytes_ - exchange.body_.size()) {
    exchange.bodyError_ = URLError::dataLengthExceedsMaximum;
    return 0;
  }
  try {
    exchange.body_.append(data, size);
  } catch (const std::exception&) {
    exchange.bodyError_ = std::make_error_code(std::errc::not_enough_memory);
    return 0;
  }
  return size;
}

}  // namespace quillmar::platform
