#include "support/ThroughC.h"

#include <gtest/gtest.h>

#include "C/PlatformHandle.h"
#include "Platform/PropertyListCoding.h"
#include "quillmar/platform/URLError.h"

namespace quillmar::test {

namespace {

using namespace platform;

template <class Seam>
Seam& seam(void* context) {
  return **static_cast<std::shared_ptr<Seam>*>(context);
}

/// A table for a seam, with its context.
template <class Table, class Seam>
Table tableFor(const std::shared_ptr<Seam>& seam) {
  Table table{};
  table.size = sizeof table;
  table.context = new std::shared_ptr<Seam>(seam);
  table.release = [](void* context) { delete static_cast<std::shared_ptr<Seam>*>(context); };
  return table;
}

AdNetworkCompletion completionOf(quillmar_ad_network_completion* handle) {
  const std::shared_ptr<quillmar_ad_network_completion*> owned(new quillmar_ad_network_completion*(handle),
                                                               [](quillmar_ad_network_completion** completion) {
                                                                 quillmar_ad_network_completion_drop(*completion);
                                                                 delete completion;
                                                               });
  return [owned](const std::optional<PlatformError>& error) {
    quillmar_ad_network_completion_call(std::exchange(*owned, nullptr),
                                        error ? error->localizedDescription.c_str() : nullptr);
  };
}

void setAdNetworks(quillmar_platform* target, const Platform& from) {
  auto network = tableFor<quillmar_ad_network>(from.storeKitAdNetwork);
  network.register_app = [](void* c) { seam<StoreKitAdNetwork>(c).registerAppForAdNetworkAttribution(); };
  network.update_conversion_value = [](void* c, int32_t fine) {
    seam<StoreKitAdNetwork>(c).updateConversionValue(fine);
  };
  network.update_postback = [](void* c, int32_t fine, quillmar_ad_network_completion* done) {
    seam<StoreKitAdNetwork>(c).updatePostbackConversionValue(fine, completionOf(done));
  };
  network.update_coarse_postback = [](void* c, int32_t fine, quillmar_coarse_value coarse, bool lock,
                                      quillmar_ad_network_completion* done) {
    seam<StoreKitAdNetwork>(c).updatePostbackConversionValue(
        fine, static_cast<SKAdNetworkCoarseConversionValue>(coarse), lock, completionOf(done));
  };
  EXPECT_EQ(quillmar_platform_set_ad_network(target, &network), QUILLMAR_OK);
  auto kit = tableFor<quillmar_ad_attribution_kit>(from.adAttributionKit);
  kit.update_conversion_value = [](void* c, int32_t fine, quillmar_coarse_value coarse, bool lock,
                                   quillmar_ad_network_completion* done) {
    PostbackUpdate update{fine, lock, {}};
    if (coarse != QUILLMAR_COARSE_NONE) {
      update.coarseConversionValue = static_cast<AttributionKitCoarseValue>(coarse);
    }
    seam<AdAttributionKit>(c).updateConversionValue(update, completionOf(done));
  };
  EXPECT_EQ(quillmar_platform_set_ad_attribution_kit(target, &kit), QUILLMAR_OK);
}

void setToken(quillmar_platform* target, const Platform& from) {
  auto token = tableFor<quillmar_attribution_token>(from.attributionToken);
  token.request = [](void* c, quillmar_token_completion* done) {
    seam<AttributionTokenProvider>(c).requestToken([done](const AttributionTokenResult& result) {
      const auto* const text = std::get_if<std::string>(&result);
      const auto* const error = std::get_if<PlatformError>(&result);
      quillmar_token_completion_call(done, text != nullptr ? text->c_str() : nullptr,
                                     error != nullptr ? error->localizedDescription.c_str() : nullptr);
    });
  };
  EXPECT_EQ(quillmar_platform_set_attribution_token(target, &token), QUILLMAR_OK);
}

/// Hands on what a stream gives until its listener has gone.
void listen(const std::shared_ptr<SubscriptionStatusSubscription>& from,
            const std::shared_ptr<quillmar_subscription_listener>& to) {
  from->next([weak = std::weak_ptr(from), to](const std::optional<SubscriptionStatusUpdate>& update) {
    if (!update) {
      quillmar_subscription_listener_end(to.get());
      return;
    }
    const auto text = [](const std::optional<PlatformError>& error) {
      return error ? error->localizedDescription.c_str() : nullptr;
    };
    const quillmar_subscription_update given{sizeof given,
                                             update->transaction.identifier,
                                             update->transaction.jsonRepresentation.c_str(),
                                             text(update->transaction.verificationError),
                                             update->renewalInfo.jsonRepresentation.c_str(),
                                             text(update->renewalInfo.verificationError),
                                             update->renewalState};
    EXPECT_EQ(quillmar_subscription_listener_post(to.get(), &given), QUILLMAR_OK);
    if (const auto next = weak.lock()) {
      listen(next, to);
    }
  });
}

void setUpdates(quillmar_platform* target, const Platform& from) {
  using Subscription = std::shared_ptr<SubscriptionStatusSubscription>;
  auto updates = tableFor<quillmar_subscription_updates>(from.subscriptionUpdates);
  updates.subscribe = [](void* c, quillmar_subscription_listener* listener) -> void* {
    auto subscription = std::make_unique<Subscription>(seam<SubscriptionStatusUpdates>(c).subscribe());
    listen(*subscription, {listener, quillmar_subscription_listener_release});
    return subscription.release();
  };
  updates.unsubscribe = [](void*, void* subscription) {
    const std::unique_ptr<Subscription> owned(static_cast<Subscription*>(subscription));
    (*owned)->cancel();
  };
  EXPECT_EQ(quillmar_platform_set_subscription_updates(target, &updates), QUILLMAR_OK);
}

/// A transport, and its names for the requests that the library names itself.
struct Requests {
  std::shared_ptr<HttpTransport> transport;
  std::mutex mutex;
  std::map<std::uint64_t, HttpTransport::RequestId> names;
};

void setHttp(quillmar_platform* target, const Platform& from) {
  auto requests = std::make_shared<Requests>();
  requests->transport = from.http;
  auto http = tableFor<quillmar_http>(requests);
  http.start = [](void* c, uint64_t identifier, const quillmar_http_request* request, quillmar_http_completion* done) {
    HttpRequest made{request->url,
                     request->method,
                     {},
                     {},
                     std::chrono::duration<double>(request->timeout_seconds),
                     static_cast<CachePolicy>(request->cache_policy)};
    for (std::size_t i = 0; i < request->header_count; ++i) {
      made.headers.emplace(request->headers[i].name, request->headers[i].value);
    }
    made.body.assign(static_cast<const char*>(request->body), request->body_size);
    const std::shared_ptr<quillmar_http_completion*> owned(new quillmar_http_completion*(done), [](auto* completion) {
      quillmar_http_completion_drop(*completion);
      delete completion;
    });
    auto& requests = seam<Requests>(c);
    const std::lock_guard lock(requests.mutex);
    requests.names[identifier] = requests.transport->start(std::move(made), [owned](const HttpResult& result) {
      const bool isUrlError = result.error.category() == urlErrorCategory();
      const quillmar_http_result given{sizeof given,
                                       result.error ? (isUrlError ? result.error.value() : QUILLMAR_HTTP_UNKNOWN) : 0,
                                       result.statusCode.value_or(-1),
                                       result.url.c_str(),
                                       result.body.data(),
                                       result.body.size(),
                                       result.retryAfter.c_str()};
      quillmar_http_completion_call(std::exchange(*owned, nullptr), &given);
    });
  };
  http.cancel = [](void* c, uint64_t identifier) {
    auto& requests = seam<Requests>(c);
    const std::lock_guard lock(requests.mutex);
    requests.transport->cancel(requests.names[identifier]);
  };
  EXPECT_EQ(quillmar_platform_set_http(target, &http), QUILLMAR_OK);
}

/// Settings of the provider, each as the bytes that the library hands over.
void setDefaults(quillmar_platform* target, const Platform& from) {
  auto defaults = tableFor<quillmar_user_defaults>(from.userDefaults);
  static const auto store = [](void* c, const char* suite) {
    auto& provider = seam<UserDefaultsProvider>(c);
    return *suite == '\0' ? provider.standard() : provider.openSuite(suite);
  };
  defaults.open = [](void* c, const char* suite) -> int32_t { return store(c, suite) ? 0 : EACCES; };
  defaults.get = [](void* c, const char* suite, const char* key, quillmar_bytes* value) -> int32_t {
    const auto bytes = store(c, suite)->data(key);
    return bytes ? quillmar_bytes_set(value, bytes->data(), bytes->size()) : 0;
  };
  defaults.set = [](void* c, const char* suite, const char* key, const void* value, size_t size) -> int32_t {
    const PropertyListValue::Data bytes{std::string(static_cast<const char*>(value), size)};
    return store(c, suite)->set(key, bytes).value();
  };
  defaults.remove = [](void* c, const char* suite, const char* key) -> int32_t {
    return store(c, suite)->remove(key).value();
  };
  defaults.replace_tail = [](void* c, const char* suite, const char* key, size_t keep, const void* tail,
                             size_t size) -> int32_t {
    return store(c, suite)->replaceDataTail(key, keep, {static_cast<const char*>(tail), size}).value();
  };
  defaults.replace_tails = [](void* c, const char* suite, const quillmar_data_tail* tails, size_t count) -> int32_t {
    std::vector<UserDefaults::DataTail> taken;
    for (size_t i = 0; i < count; ++i) {
      taken.push_back({tails[i].key, tails[i].keep, {static_cast<const char*>(tails[i].tail), tails[i].size}});
    }
    return store(c, suite)->replaceDataTails(taken).value();
  };
  defaults.revision = [](void* c, const char* suite, const char* key) {
    return store(c, suite)->revision(key).value_or(0);
  };
  EXPECT_EQ(quillmar_platform_set_user_defaults(target, &defaults), QUILLMAR_OK);
}

void setFiles(quillmar_platform* target, const Platform& from) {
  auto files = tableFor<quillmar_files>(from.files);
  files.documents_directory = [](void* c, quillmar_bytes* path) {
    if (const auto directory = seam<FileManager>(c).documentsDirectory()) {
      EXPECT_EQ(quillmar_bytes_set(path, directory->data(), directory->size()), QUILLMAR_OK);
    }
  };
  files.file_exists = [](void* c, const char* path) { return seam<FileManager>(c).fileExists(path); };
  files.stamp = [](void* c, const char* path, quillmar_file_stamp* result) {
    const auto stamp = seam<FileManager>(c).stamp(path).value_or(FileStamp{0, 0, 0, -1, -1});
    *result = {sizeof *result, stamp.volume, stamp.file, stamp.size, stamp.modified, stamp.changed};
    return stamp.changed != -1;
  };
  files.create_directory = [](void* c, const char* path) {
    return int32_t{seam<FileManager>(c).createDirectory(path).value()};
  };
  files.create_file = [](void* c, const char* path) { return int32_t{seam<FileManager>(c).createFile(path).value()}; };
  files.remove_item = [](void* c, const char* path) { return int32_t{seam<FileManager>(c).removeItem(path).value()}; };
  files.read_file = [](void* c, const char* path, quillmar_bytes* content) {
    std::string bytes;
    const auto failure = seam<FileManager>(c).readFile(path, bytes);
    EXPECT_EQ(quillmar_bytes_set(content, bytes.data(), bytes.size()), QUILLMAR_OK);
    return int32_t{failure.value()};
  };
  files.write_file = [](void* c, const char* path, const void* content, size_t size, quillmar_write_mode mode) {
    const std::string_view bytes(static_cast<const char*>(content), size);
    return int32_t{seam<FileManager>(c).writeFile(path, bytes, static_cast<WriteMode>(mode)).value()};
  };
  EXPECT_EQ(quillmar_platform_set_files(target, &files), QUILLMAR_OK);
}

void setLogAndExecutor(quillmar_platform* target, const Platform& from) {
  auto sink = tableFor<quillmar_log_sink>(from.logSink);
  sink.write = [](void* c, const char* subsystem, const char* category, quillmar_log_severity severity,
                  const char* line) {
    seam<LogSink>(c).write(subsystem, category, static_cast<LogSeverity>(severity), line);
  };
  EXPECT_EQ(quillmar_platform_set_log_sink(target, &sink), QUILLMAR_OK);
  auto executor = tableFor<quillmar_executor>(from.executor);
  executor.post = [](void* c, quillmar_work* work) {
    const std::shared_ptr<quillmar_work*> owned(new quillmar_work*(work), [](quillmar_work** handle) {
      quillmar_work_drop(*handle);
      delete handle;
    });
    seam<Executor>(c).post([owned] { quillmar_work_run(std::exchange(*owned, nullptr)); });
  };
  EXPECT_EQ(quillmar_platform_set_executor(target, &executor), QUILLMAR_OK);
}

}  // namespace

Platform throughC(const Platform& platform) {
  quillmar_platform* handle = nullptr;
  EXPECT_EQ(quillmar_platform_create(nullptr, &handle), QUILLMAR_OK);
  handle->members = platform;
  for (const auto& set : {setAdNetworks, setToken, setUpdates, setHttp, setDefaults, setFiles, setLogAndExecutor}) {
    set(handle, platform);
  }
  Platform members = handle->members;
  quillmar_platform_release(handle);
  return members;
}

}  // namespace quillmar::test
