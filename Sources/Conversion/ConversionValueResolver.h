#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "quillmar/ConversionValues.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Completes a conversion value before it is sent: an update that carries only a fine or only a coarse value would make
/// the platform forget the other part.
class ConversionValueResolver {
 public:
  explicit ConversionValueResolver(std::shared_ptr<platform::UserDefaults> userDefaults) noexcept;

  /// `value` with the missing part of its window value filled from the last update that succeeded, whichever value and
  /// window that was for; unchanged when it has no value for the window. With `lastKey`, the key of that update is put
  /// there, if there was one. Any thread; blocks.
  ConversionValues::ConversionValue resolveConversionValue(ConversionValues::ConversionValue value, Window window,
                                                           std::string* lastKey = nullptr);

 private:
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  std::mutex resolverQueue_;
};

}  // namespace quillmar
