#include "support/ThroughC.h"

#include <gtest/gtest.h>

#include "C/PlatformHandle.h"
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

/// The library's adapter over a table.
template <auto Set, class Seam, class Table>
std::shared_ptr<Seam> over(const Table& table, std::shared_ptr<Seam> Platform::* member) {
  quillmar_platform platform;
  EXPECT_EQ(Set(&platform, &table), QUILLMAR_OK);
  return platform.members.*member;
}

/// A transport, and its names for the requests that the library names itself.
struct Requests {
  std::shared_ptr<HttpTransport> transport;
  std::mutex mutex;
  std::map<std::uint64_t, HttpTransport::RequestId> names;
};

}  // namespace

std::shared_ptr<HttpTransport> throughC(const std::shared_ptr<HttpTransport>& adapter) {
  auto requests = std::make_shared<Requests>();
  requests->transport = adapter;
  auto http = tableFor<quillmar_http>(requests);
  http.start = [](void* c, uint64_t identifier, const quillmar_http_request* request, quillmar_http_completion* done) {
    HttpRequest made{request->url, request->method, {}, {}, {}, static_cast<CachePolicy>(request->cache_policy)};
    made.timeout = std::chrono::duration<double>(request->timeout_seconds);
    for (std::size_t i = 0; i < request->header_count; ++i) {
      made.headers.emplace(request->headers[i].name, request->headers[i].value);
    }
    made.body.assign(static_cast<const char*>(request->body), request->body_size);
    const std::shared_ptr<quillmar_http_completion*> owned(new quillmar_http_completion*(done), [](auto* completion) {
      quillmar_http_completion_drop(*completion);
      delete completion;
    });
    auto complete = [owned](const HttpResult& result) {
      const quillmar_http_result given{
          sizeof given,       result.error.value(), result.statusCode.value_or(-1), result.url.c_str(),
          result.body.data(), result.body.size(),   result.retryAfter.c_str()};
      quillmar_http_completion_call(std::exchange(*owned, nullptr), &given);
    };
    auto& requests = seam<Requests>(c);
    const std::lock_guard lock(requests.mutex);
    requests.names[identifier] = requests.transport->start(std::move(made), std::move(complete));
  };
  http.cancel = [](void* c, uint64_t identifier) {
    auto& requests = seam<Requests>(c);
    const std::lock_guard lock(requests.mutex);
    requests.transport->cancel(requests.names[identifier]);
  };
  return over<quillmar_platform_set_http>(http, &Platform::http);
}

/// Settings of the provider, each as the bytes that the library hands over.
std::shared_ptr<UserDefaultsProvider> throughC(const std::shared_ptr<UserDefaultsProvider>& adapter) {
  auto defaults = tableFor<quillmar_user_defaults>(adapter);
  static const auto store = [](void* c, const char* suite) {
    auto& provider = seam<UserDefaultsProvider>(c);
    return *suite == '\0' ? provider.standard() : provider.openSuite(suite);
  };
  defaults.get = [](void* c, const char* suite, const char* key, quillmar_bytes* value) {
    const auto bytes = store(c, suite)->data(key);
    return bytes ? quillmar_bytes_set(value, bytes->data(), bytes->size()) : 0;
  };
  defaults.set = [](void* c, const char* suite, const char* key, const void* value, size_t size) {
    const PropertyListValue::Data bytes{std::string(static_cast<const char*>(value), size)};
    return store(c, suite)->set(key, bytes).value();
  };
  defaults.remove = [](void* c, const char* suite, const char* key) { return store(c, suite)->remove(key).value(); };
  defaults.replace_tail = [](void* c, const char* suite, const char* key, size_t keep, const void* tail, size_t size) {
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
  return over<quillmar_platform_set_user_defaults>(defaults, &Platform::userDefaults);
}

std::shared_ptr<FileManager> throughC(const std::shared_ptr<FileManager>& adapter) {
  auto files = tableFor<quillmar_files>(adapter);
  static const auto manager = [](void* c) -> FileManager& { return seam<FileManager>(c); };
  files.documents_directory = [](void* c, quillmar_bytes* path) {
    const std::string directory = manager(c).documentsDirectory().value();
    EXPECT_EQ(quillmar_bytes_set(path, directory.data(), directory.size()), QUILLMAR_OK);
  };
  files.file_exists = [](void* c, const char* path) { return manager(c).fileExists(path); };
  files.stamp = [](void* c, const char* path, quillmar_file_stamp* result) {
    const auto stamp = manager(c).stamp(path);
    if (stamp) {
      *result = {sizeof *result, stamp->volume, stamp->file, stamp->size, stamp->modified, stamp->changed};
    }
    return stamp.has_value();
  };
  files.create_directory = [](void* c, const char* path) { return manager(c).createDirectory(path).value(); };
  files.create_file = [](void* c, const char* path) { return manager(c).createFile(path).value(); };
  files.remove_item = [](void* c, const char* path) { return manager(c).removeItem(path).value(); };
  files.read_file = [](void* c, const char* path, quillmar_bytes* content) {
    std::string bytes;
    const auto failure = manager(c).readFile(path, bytes);
    EXPECT_EQ(quillmar_bytes_set(content, bytes.data(), bytes.size()), QUILLMAR_OK);
    return failure.value();
  };
  files.write_file = [](void* c, const char* path, const void* content, size_t size, quillmar_write_mode mode) {
    const std::string_view bytes(static_cast<const char*>(content), size);
    return manager(c).writeFile(path, bytes, static_cast<WriteMode>(mode)).value();
  };
  return over<quillmar_platform_set_files>(files, &Platform::files);
}

}  // namespace quillmar::test
