#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Conversion/TrackedEvent.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// What matching needs of the beginning of a long history, kept beside it: of the events that were news there the name
/// and the revenue. With it a start reads only what came since.
///
/// Stored is a JSON array of these events, and behind it a mark: how many bytes of the history it stands for, and the
/// last of these bytes. A history grows at its end only. So a digest stays true whoever adds to the history, and
/// however long it was not written. A history that began anew has other bytes there, with another time in them.
///
/// Only in stores that tell revisions; others are read as a whole at each use.
class HistoryDigest {
 public:
  static constexpr std::string_view key = "com.quillmar.completedEvents.digest";

  /// It is written when so many bytes have come since.
  static constexpr std::size_t step = 8192;
  /// Beyond this many bytes it is not written; then a start reads what came since the last time.
  static constexpr std::size_t limit = 65536;

  HistoryDigest(std::shared_ptr<platform::UserDefaults> userDefaults, std::string_view historyKey) noexcept
      : userDefaults_(std::move(userDefaults)), historyKey_(historyKey) {}

  /// A shorter history, with the same answers.
  struct Shortened {
    std::string history;
    std::size_t bytesLeftOut = 0;  ///< counted from its end, it has each byte where the stored one has it
  };

  /// The stored history with the digest in place of its beginning; nothing without a digest of this history. Removes
  /// one of another history. Begins anew.
  std::optional<Shortened> read();

  /// From here on `add` is told of the events of the history, from the first one on.
  void begin() noexcept;

  /// An event is news to the history.
  void add(const TrackedEvent& event);

  /// `length` bytes of the history are stored, and will stay as they are. Writes the digest when it is time.
  void keepUp(std::size_t length) noexcept;

  /// Removes the digest.
  void clear();

 private:
  std::optional<Shortened> shortened(std::string stored);

  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::string_view historyKey_;
  std::string events_;      ///< the elements of the array; more than the limit: not all
  std::size_t length_ = 0;  ///< so many bytes of the history have a digest
};

}  // namespace quillmar
