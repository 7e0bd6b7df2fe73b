#include "Delivery/OutboxStore.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

using platform::PropertyListValue;

namespace {

constexpr const char* firstMember = "first";
constexpr const char* lastMember = "last";
constexpr const char* untrackedMember = "firstUntracked";
constexpr const char* clearingMember = "clearing";

/// Chunks are numbered from 1, one for 256 events: no install gets there.
constexpr std::int64_t highestChunk = 1'000'000'000;

/// More are never looked for: an outbox is bounded well below.
constexpr std::int64_t mostChunks = 4096;

}  // namespace

std::string OutboxStore::keyOf(std::int64_t chunk) const {
  return key_ + "." + std::to_string(chunk);
}

void OutboxStore::open() {
  if (isOpen_) {
    return;
  }
  const bool wasClearing = readIndex();
  isOpen_ = true;
  if (wasClearing) {
    clear();
  }
  if (first_ <= last_) {
    try {
      static_cast<void>(read(last_));  // the next records go there
      if (!userDefaults_->data(keyOf(last_))) {
        storeSetting(*userDefaults_, keyOf(last_), PropertyListValue::Data{});  // a kill came before it was made
      }
    } catch (const std::system_error& error) {
      Log::error("Outbox - {} cannot be read now: {}", keyOf(last_), error.code().message());
    }
  }
  removeDone();
  if (const auto only = chunks_.find(first_); first_ == last_ && only != chunks_.end() && only->second.isDone()) {
    removeChunk();
    writeIndex();
  }
}

bool OutboxStore::readIndex() {
  const auto value = userDefaults_->object(key_);
  const auto* const index = value ? value->as<PropertyListValue::Dictionary>() : nullptr;
  const auto member = [index](const char* name, std::int64_t otherwise) {
    const auto found = index == nullptr ? PropertyListValue::Dictionary::const_iterator() : index->find(name);
    const auto* const number = index == nullptr || found == index->end() ? nullptr : found->second.as<std::int64_t>();
    return number == nullptr ? otherwise : std::clamp<std::int64_t>(*number, 0, highestChunk);
  };
  last_ = member(lastMember, 0);
  first_ = std::max(member(firstMember, 1), std::max<std::int64_t>(last_ - mostChunks, 0) + 1);
  last_ = std::max(last_, first_ - 1);
  firstUntracked_ = std::max(member(untrackedMember, first_), first_);
  return member(clearingMember, 0) != 0;
}

void OutboxStore::writeIndex(bool clearing) {
  PropertyListValue::Dictionary index{
      {firstMember, first_}, {lastMember, last_}, {untrackedMember, std::max(firstUntracked_, first_)}};
  if (clearing) {
    index.emplace(clearingMember, std::int64_t{1});
  }
  storeSetting(*userDefaults_, key_, std::move(index));
}

std::error_code OutboxStore::write(Change& change, const std::function<std::error_code(const Tails&)>& write) {
  std::map<std::int64_t, std::string> texts;
  if (!change.records.empty()) {
    const auto tail = chunks_.find(last_);
    if (tail == chunks_.end() || tail->second.next >= chunkSize) {
      beginChunk("");
    }
    texts[last_] = place(change.records, last_, chunks_.at(last_).next);
  }
  const auto addMarks = [&](const std::vector<Place>& places, auto lineOf) {
    std::map<std::int64_t, std::vector<std::int64_t>> numbers;
    for (const Place& marked : places) {
      if (chunks_.contains(marked.chunk)) {
        numbers[marked.chunk].push_back(marked.number);
      }
    }
    for (const auto& [chunk, marked] : numbers) {
      texts[chunk] += lineOf(marked);
    }
  };
  addMarks(change.tracked, OutboxChunk::trackedLine);
  addMarks(change.sent, OutboxChunk::sentLine);
  Tails tails;
  for (auto& [chunk, text] : texts) {
    if (chunks_.at(chunk).isTorn) {
      text.insert(0, 1, '\n');
    }
    tails.push_back({keyOf(chunk), chunks_.at(chunk).length, text});
  }
  if (const std::error_code error = tails.empty() ? std::error_code{} : write(tails)) {
    return error;
  }
  // Nothing may throw from here on: the next write must not cut off this one.
  for (const auto& [chunk, text] : texts) {
    Chunk& written = chunks_.find(chunk)->second;
    written.length += text.size();
    written.isTorn = false;
  }
  count(change.records);
  for (const auto& [places, open] : {std::pair(&change.sent, &Chunk::unsent), {&change.tracked, &Chunk::untracked}}) {
    for (const Place& marked : *places) {
      if (const auto chunk = chunks_.find(marked.chunk); chunk != chunks_.end()) {
        --(chunk->second.*open);
      }
    }
  }
  return {};
}

void OutboxStore::holdOnTo(std::vector<OutboxRecord>& records) {
  beginChunk(place(records, last_ + 1, 0));  // of their own, which is set as a whole
  count(records);
}

std::string OutboxStore::place(std::vector<OutboxRecord>& records, std::int64_t chunk, std::int64_t number) {
  std::string text;
  for (OutboxRecord& record : records) {
    record.place = {chunk, number++};
    text += OutboxChunk::line(record);
  }
  return text;
}

void OutboxStore::count(const std::vector<OutboxRecord>& records) noexcept {
  for (const OutboxRecord& record : records) {
    Chunk& chunk = chunks_.find(record.place.chunk)->second;
    chunk.next = record.place.number + 1;
    ++chunk.unsent;
    chunk.untracked += record.tracked ? 0 : 1;
  }
}

void OutboxStore::beginChunk(std::string text) {
  chunks_[++last_].length = text.size();
  writeIndex();
  storeSetting(*userDefaults_, keyOf(last_), PropertyListValue::Data{std::move(text)});
}

std::vector<OutboxRecord> OutboxStore::read(std::int64_t chunk) {
  const std::string key = keyOf(chunk);
  const std::string text = userDefaults_->data(key).value_or("");
  OutboxChunk parsed = OutboxChunk::parse(text, chunk);
  std::vector<OutboxRecord> open;
  Chunk state{text.size(), parsed.next, 0, 0, !parsed.whole};
  for (OutboxRecord& record : parsed.records) {
    state.unsent += record.sent ? 0 : 1;
    state.untracked += record.tracked ? 0 : 1;
    if (!record.sent || !record.tracked) {
      open.push_back(std::move(record));
    }
  }
  if (chunks_.try_emplace(chunk, state).second) {
    for (const std::string& problem : parsed.problems) {
      Log::error("Outbox - Skipped a damaged record in {}: {}", key, problem);
    }
  }
  return open;
}

void OutboxStore::removeChunk() {
  removeData(*userDefaults_, keyOf(first_));
  chunks_.erase(first_++);
}

void OutboxStore::removeDone() {
  const std::int64_t before = first_;
  for (auto chunk = chunks_.find(first_); first_ < last_ && chunk != chunks_.end() && chunk->second.isDone();
       chunk = chunks_.find(first_)) {
    removeChunk();
  }
  if (first_ != before) {
    writeIndex();
  }
}

OutboxStore::Place OutboxStore::next() const {
  const auto tail = chunks_.find(last_);
  return tail == chunks_.end() ? Place{last_ + 1, 0} : Place{last_, tail->second.next};
}

std::vector<OutboxRecord> OutboxStore::removeFirst() {
  std::vector<OutboxRecord> dropped = read(first_);
  std::erase_if(dropped, [](const OutboxRecord& record) { return record.sent; });
  removeChunk();
  writeIndex();
  return dropped;
}

void OutboxStore::clear() {
  if (!isOpen_) {
    static_cast<void>(readIndex());
    isOpen_ = true;
  }
  if (first_ > last_) {
    return;
  }
  writeIndex(true);
  while (first_ <= last_) {
    removeChunk();
  }
  chunks_.clear();
  writeIndex();
}

std::uint64_t OutboxStore::unsent() const noexcept {
  std::int64_t count =
      std::max<std::int64_t>(last_ - first_ + 1 - static_cast<std::int64_t>(chunks_.size()), 0) * chunkSize;
  for (const auto& [number, chunk] : chunks_) {
    count += chunk.unsent;
  }
  return static_cast<std::uint64_t>(count);
}

std::optional<std::int64_t> OutboxStore::firstUntracked() {
  firstUntracked_ = std::max(firstUntracked_, first_);
  for (auto chunk = chunks_.find(firstUntracked_); chunk != chunks_.end() && chunk->second.untracked == 0;
       chunk = chunks_.find(firstUntracked_)) {
    if (firstUntracked_ == last_) {
      return std::nullopt;
    }
    ++firstUntracked_;
  }
  return firstUntracked_ > last_ ? std::nullopt : std::optional(firstUntracked_);
}

}  // namespace quillmar
