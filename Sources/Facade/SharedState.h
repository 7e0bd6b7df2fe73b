#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quillmar {

/// What all instances in the process share. Any thread.
class SharedState {
 public:
  /// The one object; never destroyed.
  static SharedState& instance() noexcept;

  /// Adds one failure and returns the new number.
  std::int64_t incrementConsecutiveAPIFailures();
  void resetConsecutiveAPIFailures() { setConsecutiveAPIFailures(0); }
  std::int64_t getConsecutiveAPIFailures() const;
  void setConsecutiveAPIFailures(std::int64_t failures);

  bool getVerificationKeyInvalid() const;
  void setVerificationKeyInvalid(bool invalid);

  /// How often in a row the configuration could not be read for an event of that name; 0 for an unknown one.
  std::int64_t getEventRetryCount(std::string_view name) const;
  void setEventRetryCount(std::int64_t count, std::string_view name);

  /// Sets the counters and the flag back.
  void reset();

 private:
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
  };

  mutable std::mutex sharedStateQueue_;  // com.quillmar.sharedState
  std::int64_t consecutiveAPIFailures_ = 0;
  bool isVerificationKeyInvalid_ = false;
  /// Names with a count of 0 are left out, so that the map does not grow with every name ever sent.
  std::unordered_map<std::string, std::int64_t, TextHash, std::equal_to<>> eventRetryCount_;
};

}  // namespace quillmar
