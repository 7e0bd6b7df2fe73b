#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>

#include "quillmar/platform/AttributionToken.h"

namespace quillmar::simulated {

/// Stands in for AdServices: answers each request at once, with the token or the error that it was given.
class SimulatedAttributionToken : public platform::AttributionTokenProvider {
 public:
  void requestToken(Completion completion) override;

  /// The token that is given from now on. Any thread.
  void setToken(std::string token);

  /// Lets the following requests fail with this description; nothing lets them succeed again.
  void setError(std::optional<std::string> localizedDescription);

  /// How many tokens were asked for.
  std::size_t requests() const;

 private:
  mutable std::mutex mutex_;
  std::string token_ = "simulated-attribution-token";
  std::optional<std::string> error_;
  std::size_t requests_ = 0;
};

}  // namespace quillmar::simulated
