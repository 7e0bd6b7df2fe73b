#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarASAAttribution.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"

namespace quillmar::cli {

/// Writes JSON Lines. From any thread; each line is written whole, and flushed.
class JsonLineWriter {
 public:
  /// `output` must outlive the object, or the call of `close`.
  explicit JsonLineWriter(std::ostream& output);

  void write(const boost::json::object& line);

  /// Drops further lines: the library's threads may still come with one when waiting for them was given up.
  void close();

 private:
  std::mutex mutex_;
  std::ostream* output_;
};

template <class Value>
boost::json::value orNull(const std::optional<Value>& value) {
  return value ? boost::json::value(*value) : boost::json::value(nullptr);
}
boost::json::value orNull(const std::optional<CoarseValue>& value);
/// An empty text is null.
boost::json::value orNull(const std::string& text);

/// "2026-11-21T09:30:00Z".
std::string timestamp(platform::Clock::TimePoint instant);

/// A call to the platform; what its interface does not take is null.
boost::json::object toJson(const simulated::PlatformCall& call);
/// What became of an event; the line is {"decision":{...}}.
boost::json::object toJson(const Decision& decision);
boost::json::object toJson(const QuillmarStatistics& statistics);
/// What is counted with `QuillmarOptions::reliableDelivery`.
boost::json::object outboxToJson(const QuillmarStatistics& statistics);
boost::json::object toJson(const QuillmarASAAttributionStatistics& statistics);
boost::json::object toJson(const QuillmarState& state);
/// Where each event is, and what is wrong; the line is {"health":{...}}.
boost::json::object toJson(const QuillmarHealth& health);
boost::json::object toJson(const std::map<std::string, std::uint64_t>& counts);

}  // namespace quillmar::cli
