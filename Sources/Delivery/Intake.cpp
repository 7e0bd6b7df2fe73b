#include "Delivery/Intake.h"

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>
#include <variant>

namespace quillmar {

namespace {

constexpr std::size_t blockSize = std::size_t{32} * 1024;
constexpr std::uint8_t noParameters = 0xff;
using Size = std::uint32_t;  // of an event, in front of it

// The bytes never leave the process, so numbers are as they lie in memory.
class Writer {
 public:
  explicit Writer(std::string& bytes) noexcept : bytes_(bytes) {}

  template <class Number>
  void number(Number value) {
    static_assert(std::is_trivially_copyable_v<Number>);
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void text(const std::string& value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes_.append(value);
  }
  void value(const EventValue& value) {
    number(static_cast<std::uint8_t>(value.storage().index()));
    std::visit(*this, value.storage());
  }
  void operator()(const std::string& value) { text(value); }
  template <class Number>
  void operator()(Number value) {
    number(value);
  }

 private:
  std::string& bytes_;
};

class Reader {
 public:
  Reader(const std::string& bytes, std::size_t& at) noexcept : bytes_(bytes), at_(at) {}

  template <class Number>
  Number number() {
    Number value{};
    std::memcpy(&value, bytes_.data() + at_, sizeof value);
    at_ += sizeof value;
    return value;
  }
  std::string text() {
    const auto size = number<std::uint32_t>();
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }
  EventValue value() {
    switch (number<std::uint8_t>()) {
      case 0:
        return number<bool>();
      case 1:
        return number<std::int64_t>();
      case 2:
        return number<double>();
      default:
        return text();
    }
  }

 private:
  const std::string& bytes_;
  std::size_t& at_;
};

static_assert(std::is_same_v<EventValue::Storage, std::variant<bool, std::int64_t, double, std::string>>);

}  // namespace

bool Intake::put(const Event& event, const QuillmarLimits& limits) {
  const std::lock_guard lock(mutex_);
  const bool isFull = limits.queuedEvents > 0 && incomingCount_ >= limits.queuedEvents;
  if (isFull && limits.drop == QuillmarLimits::Drop::newest) {
    return false;
  }
  if (incoming_.empty() || incoming_.back().size() >= blockSize) {
    std::string fresh;
    fresh.reserve(blockSize + 1024);
    incoming_.push_back(std::move(fresh));
  }
  std::string& block = incoming_.back();
  const std::size_t before = block.size();
  try {
    Writer writer(block);
    writer.number(Size{0});
    writer.number(event.at);
    writer.number(event.accepted);
    writer.text(event.name);
    writer.number(event.parameters ? static_cast<std::uint8_t>(event.parameters->size()) : noParameters);
    for (const auto& [name, value] : event.parameters.value_or(NamedParameters())) {
      writer.text(name);
      writer.value(value);
    }
  } catch (...) {  // out of memory
    block.resize(before);
    if (before == 0) {
      incoming_.pop_back();  // the taker does not expect an empty one
    }
    throw;
  }
  const auto size = static_cast<Size>(block.size() - before);
  std::memcpy(block.data() + before, &size, sizeof size);
  ++incomingCount_;
  if (isFull) {
    dropOldest();
  }
  return !isFull;
}

void Intake::dropOldest() noexcept {
  std::size_t at = droppedUpTo_;
  droppedUpTo_ += Reader(incoming_.front(), at).number<Size>();
  --incomingCount_;
  if (droppedUpTo_ == incoming_.front().size()) {
    incoming_.pop_front();
    droppedUpTo_ = 0;
  }
}

std::optional<Intake::Event> Intake::take() {
  if (empty()) {
    return std::nullopt;
  }
  std::size_t at = readUpTo_;  // stays where it is when memory runs out
  Reader reader(taken_.front(), at);
  static_cast<void>(reader.number<Size>());
  Event event;
  event.at = reader.number<platform::Clock::TimePoint>();
  event.accepted = reader.number<bool>();
  event.name = reader.text();
  if (const auto count = reader.number<std::uint8_t>(); count != noParameters) {
    event.parameters.emplace();
    for (int i = 0; i < count; ++i) {
      std::string name = reader.text();
      event.parameters->insert_or_assign(std::move(name), reader.value());
    }
  }
  readUpTo_ = at;
  --takenCount_;
  if (readUpTo_ == taken_.front().size()) {
    taken_.pop_front();
    readUpTo_ = 0;
  }
  return event;
}

bool Intake::empty() {
  if (taken_.empty()) {
    const std::lock_guard lock(mutex_);
    taken_.swap(incoming_);
    readUpTo_ = std::exchange(droppedUpTo_, 0);
    takenCount_ = std::exchange(incomingCount_, 0);
  }
  return taken_.empty();
}

std::uint64_t Intake::clear() {
  taken_.clear();
  readUpTo_ = 0;
  const std::lock_guard lock(mutex_);
  incoming_.clear();
  droppedUpTo_ = 0;
  return std::exchange(takenCount_, 0) + std::exchange(incomingCount_, 0);
}

}  // namespace quillmar
