#pragma once

#include <cstdlib>
#include <mutex>
#include <stdexcept>

#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/TemporaryFolder.h"

namespace quillmar::test {

/// A certificate for one IP address, which is its own issuer, and its key, made on the spot in a temporary folder.
class Certificate {
 public:
  explicit Certificate(const std::string& address) {
    const std::string command = "openssl req -x509 -days 2 -subj /CN=" + address +
                                " -addext subjectAltName=IP:" + address +
                                " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout " + key() + " -out " +
                                file() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) {  // NOLINT(concurrency-mt-unsafe)
      throw std::runtime_error("failed: " + command);
    }
  }

  std::string file() const { return folder_ / "certificate.pem"; }
  std::string key() const { return folder_ / "key.pem"; }

 private:
  TemporaryFolder folder_;
};

/// The development service on a free port, and what it was asked.
class LoopbackService {
 public:
  explicit LoopbackService(const service::ServiceOptions& options = {}, const Certificate* certificate = nullptr)
      : logic_(options),
        service_({.certificateFile = certificate != nullptr ? certificate->file() : std::string(),
                  .keyFile = certificate != nullptr ? certificate->key() : std::string(),
                  .onRequest =
                      [this](const service::ServedRequest& request) {
                        const std::lock_guard lock(mutex_);
                        requests_.push_back(request);
                      }},
                 [this](const auto& request) { return logic_.handle(request); }) {
    service_.start();
  }

  std::string url() const { return service_.url(); }
  std::vector<service::ServedRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<service::ServedRequest> requests_;
  service::ServiceLogic logic_;
  service::DevelopmentService service_;
};

}  // namespace quillmar::test
