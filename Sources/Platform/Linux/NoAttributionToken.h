#pragma once

#include "quillmar/platform/AttributionToken.h"

namespace quillmar::platform {

/// For a system without AdServices: each request fails.
class NoAttributionToken : public AttributionTokenProvider {
 public:
  void requestToken(Completion completion) override {
    completion(PlatformError{"The attribution token is not available on this platform."});
  }
};

}  // namespace quillmar::platform
