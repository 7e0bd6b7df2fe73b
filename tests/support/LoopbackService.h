#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/Certificate.h"

namespace quillmar::test {

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
