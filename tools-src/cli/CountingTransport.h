#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "quillmar/platform/HttpTransport.h"

namespace quillmar::cli {

/// Hands requests on to another transport and counts them by endpoint.
class CountingTransport : public platform::HttpTransport {
 public:
  explicit CountingTransport(std::shared_ptr<platform::HttpTransport> transport);

  RequestId start(platform::HttpRequest request, Completion completion) override;
  void cancel(RequestId request) noexcept override;

  /// How often each endpoint ("GET /ios/config") was asked so far.
  std::map<std::string, std::uint64_t> counts() const;

 private:
  std::shared_ptr<platform::HttpTransport> transport_;
  mutable std::mutex mutex_;
  std::map<std::string, std::uint64_t> counts_;
};

}  // namespace quillmar::cli
