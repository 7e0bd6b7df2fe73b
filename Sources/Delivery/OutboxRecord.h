#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Conversion/TrackedEvent.h"

namespace quillmar {

/// One event, or one purchase, in an outbox.
struct OutboxRecord {
  /// Where it lies. Places are in the order of the events.
  struct Place {
    std::int64_t chunk = 0;
    std::int64_t number = 0;  ///< in the chunk
    auto operator<=>(const Place&) const = default;
  };

  Place place;
  std::string id;        ///< its "event_id" at each attempt
  TrackedEvent event;    ///< with the time when it happened
  std::string document;  ///< what is sent of a purchase; empty for an event, which is sent by its name
  bool tracked = false;  ///< it is in the history, or need not be there
  bool sent = false;     ///< the service has accepted it, or nothing more is sent

  bool operator==(const OutboxRecord&) const = default;
};

/// The stored form of a part of an outbox: lines of JSON. A line is a record, or names records of this chunk that were
/// sent or tracked.
struct OutboxChunk {
  std::vector<OutboxRecord> records;
  std::int64_t next = 0;              ///< the number of the next record
  std::vector<std::string> problems;  ///< what is wrong with lines that were skipped
  bool whole = true;                  ///< the last line has its end, so that another may follow

  /// Reads every line that can be read.
  static OutboxChunk parse(std::string_view text, std::int64_t chunk);

  /// Lines, with their ends. The first throws `EncodingError` for a parameter that is not finite.
  static std::string line(const OutboxRecord& record);
  static std::string sentLine(const std::vector<std::int64_t>& numbers);
  static std::string trackedLine(const std::vector<std::int64_t>& numbers);
};

}  // namespace quillmar
