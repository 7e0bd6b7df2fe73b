#include "Delivery/OutboxRecord.h"

#include <algorithm>
#include <set>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"

namespace quillmar {

namespace {

constexpr std::int64_t highestNumber = 1'000'000;  // far beyond what a chunk ever holds

std::int64_t numberOf(const JsonReader& reader) {
  const std::int64_t number = reader.integer();
  if (number < 0 || number > highestNumber) {
    reader.fail(DecodingErrorCode::dataCorrupted, "no number of a record");
  }
  return number;
}

OutboxRecord decode(const JsonReader& reader, std::int64_t chunk) {
  OutboxRecord record;
  record.place = {chunk, numberOf(reader.required("n"))};
  record.id = reader.required("id").string();
  record.event = TrackedEvent::decode(reader.required("event"));
  record.document = reader.optionalString("document").value_or("");
  record.tracked = reader.optionalBoolean("tracked").value_or(false);
  return record;
}

std::string markLine(const char* mark, const std::vector<std::int64_t>& numbers) {
  JsonWriter writer;
  writer.beginObject().key(mark).beginArray();
  for (const std::int64_t number : numbers) {
    writer.integer(number);
  }
  writer.endArray().endObject();
  return writer.take() + '\n';
}

}  // namespace

OutboxChunk OutboxChunk::parse(std::string_view text, std::int64_t chunk) {
  OutboxChunk result;
  std::set<std::int64_t> sent;
  std::set<std::int64_t> tracked;
  result.whole = text.empty() || text.back() == '\n';
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    try {
      const boost::json::value document = parseJson(line);
      const JsonReader reader(document);
      bool isMark = false;
      for (const auto& [mark, numbers] : {std::pair("sent", &sent), {"tracked", &tracked}}) {
        if (const auto marked = reader.optional(mark); marked && !reader.optional("n")) {
          marked->forEachElement([&result, numbers](const JsonReader& element) {
            const std::int64_t number = *numbers->insert(numberOf(element)).first;
            result.next = std::max(result.next, number + 1);  // what is damaged may have had it
          });
          isMark = true;
        }
      }
      if (!isMark) {
        result.records.push_back(decode(reader, chunk));
        result.next = std::max(result.next, result.records.back().place.number + 1);
      }
    } catch (const DecodingError& error) {
      result.problems.push_back(textualDescription(error));
    }
  }
  for (OutboxRecord& record : result.records) {
    record.sent = sent.contains(record.place.number);
    record.tracked = record.tracked || tracked.contains(record.place.number);
  }
  return result;
}

std::string OutboxChunk::line(const OutboxRecord& record) {
  JsonWriter writer;
  writer.beginObject().key("n").integer(record.place.number).member("id", record.id).key("event");
  record.event.encode(writer);
  if (!record.document.empty()) {
    writer.member("document", record.document);
  }
  if (record.tracked) {
    writer.key("tracked").boolean(true);
  }
  writer.endObject();
  return writer.take() + '\n';
}

std::string OutboxChunk::sentLine(const std::vector<std::int64_t>& numbers) {
  return markLine("sent", numbers);
}

std::string OutboxChunk::trackedLine(const std::vector<std::int64_t>& numbers) {
  return markLine("tracked", numbers);
}

}  // namespace quillmar
