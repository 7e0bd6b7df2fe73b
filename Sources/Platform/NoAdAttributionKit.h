#pragma once

#include "quillmar/platform/AdAttributionKit.h"

namespace quillmar::platform {

/// For a system without AdAttributionKit: does nothing and never completes.
class NoAdAttributionKit : public AdAttributionKit {
 public:
  void updateConversionValue(const PostbackUpdate&, AdNetworkCompletion) override {}
};

}  // namespace quillmar::platform
