#include "Conversion/HistoryDigest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <system_error>

#include "Json/JsonWriter.h"
#include "Platform/Fnv1a.h"
#include "Settings/StoreSetting.h"

namespace quillmar {

namespace {

/// The mark is two numbers with leading zeros: a length, and a sum over the digest's array and these last bytes before.
constexpr std::size_t numberSize = 20;
constexpr std::size_t sampleSize = 64;

std::string markOf(std::size_t length, const std::string& array, std::string_view sample) {
  return fmt::format("{:020}{:020}", length, fnv1a(sample, fnv1a(array)));
}

}  // namespace

std::optional<HistoryDigest::Shortened> HistoryDigest::read() {
  begin();
  try {
    std::optional<std::string> stored = userDefaults_->data(key);
    if (!stored) {
      return std::nullopt;
    }
    std::optional<Shortened> result = shortened(std::move(*stored));
    if (!result) {
      clear();
    }
    return result;
  } catch (const std::system_error&) {
    return std::nullopt;  // cannot be read for the moment
  }
}

std::optional<HistoryDigest::Shortened> HistoryDigest::shortened(std::string stored) {
  constexpr std::size_t markSize = 2 * numberSize;
  if (stored.size() <= markSize) {
    return std::nullopt;
  }
  const std::string mark = stored.substr(stored.size() - markSize);
  stored.resize(stored.size() - markSize);
  std::size_t length = 0;
  const char* const end = mark.data() + numberSize;
  if (std::from_chars(mark.data(), end, length).ptr != end || length < sampleSize) {
    return std::nullopt;
  }
  const std::optional<std::string> tail = userDefaults_->dataTail(historyKey_, length - sampleSize);
  if (!tail || mark != markOf(length, stored, std::string_view(*tail).substr(0, sampleSize))) {
    return std::nullopt;
  }
  stored.pop_back();  // the bracket
  const std::size_t bytesLeftOut = length - stored.size();
  stored.append(*tail, std::min(tail->size(), sampleSize));
  length_ = length;
  return Shortened{std::move(stored), bytesLeftOut};
}

void HistoryDigest::begin() noexcept {
  events_.clear();
  length_ = 0;
}

void HistoryDigest::add(const TrackedEvent& event) {
  if (events_.size() > limit) {
    return;
  }
  TrackedEvent news{event.name, {}, event.timestamp};
  if (const std::optional<double> revenue = event.revenue()) {
    news.parameters.emplace("revenue", *revenue);
  }
  JsonWriter writer;
  news.encode(writer);
  events_ += events_.empty() ? "" : ",";
  events_ += writer.take();
}

void HistoryDigest::keepUp(std::size_t length) noexcept {
  if (length < length_ + step || events_.size() > limit) {
    return;
  }
  length_ = length;  // also when this fails: not each event should try
  try {
    const std::optional<std::string> sample = userDefaults_->dataTail(historyKey_, length - sampleSize);
    if (!sample || sample->size() < sampleSize) {
      return;
    }
    std::string text = "[" + events_ + "]";
    text += markOf(length, text, std::string_view(*sample).substr(0, sampleSize));
    if (userDefaults_->set(key, platform::PropertyListValue::Data{std::move(text)})) {
      // The store would write it together with the next event, which may have room without it.
      static_cast<void>(userDefaults_->remove(key));
    }
  } catch (...) {  // cannot be read for the moment, or out of memory
  }
}

void HistoryDigest::clear() {
  begin();
  if (userDefaults_->revision(key).value_or(0) != 0) {
    removeData(*userDefaults_, key);
  }
}

}  // namespace quillmar
