#pragma once

#include "quillmar/platform/AttributionToken.h"

namespace quillmar::platform {

/// The token of AdServices, from 14.3 on; before that each request fails.
class AdServicesToken : public AttributionTokenProvider {
 public:
  void requestToken(Completion completion) override;
};

}  // namespace quillmar::platform
