// A part of the stored outbox: lines of JSON, which are appended to and of which damaged ones are skipped.
#include <algorithm>

#include "Delivery/OutboxStore.h"
#include "Promises.h"

using namespace quillmar;

void fuzz::look(std::string_view bytes) {
  const std::string input(bytes);
  const OutboxChunk chunk = OutboxChunk::parse(input, 3);
  std::string good;
  for (const OutboxRecord& record : chunk.records) {
    require(record.place.chunk == 3 && record.place.number < chunk.next, "the next number is free");
    good += OutboxChunk::line(record) + (record.sent ? OutboxChunk::sentLine({record.place.number}) : "");
  }
  const OutboxChunk again = OutboxChunk::parse(good, 3);
  require(again.records == chunk.records && again.problems.empty(), "what was read can be written and read again");
  if (chunk.next >= OutboxStore::chunkSize) {
    return;  // no more is added to it
  }
  OutboxRecord added;
  added.place = {3, chunk.next};
  added.id = "ID";
  added.event.name = "added";
  const OutboxChunk longer =
      OutboxChunk::parse(input + (chunk.whole ? "" : "\n") + OutboxChunk::line(added) + OutboxChunk::sentLine({}), 3);
  require(std::count(longer.records.begin(), longer.records.end(), added) == 1, "damage does not swallow what follows");
}
