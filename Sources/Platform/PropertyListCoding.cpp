#include "Platform/PropertyListCoding.h"

#include <bit>
#include <chrono>
#include <cstdint>
#include <utility>

namespace quillmar::platform {

namespace {

using Value = PropertyListValue;

constexpr int deepestNesting = 100;  ///< bounds the stack whatever a damaged or foreign row holds

void putInteger(std::string& out, std::uint64_t value) {
  for (int shift = 0; shift < 64; shift += 8) {
    out.push_back(static_cast<char>(static_cast<unsigned char>(value >> shift)));
  }
}

void putBytes(std::string& out, std::string_view bytes) {
  putInteger(out, bytes.size());
  out.append(bytes);
}

bool encode(const Value& value, std::string& out, int depth);

struct Encoder {
  std::string& out;
  int depth;

  bool operator()(bool value) const {
    out.push_back('b');
    out.push_back(value ? 1 : 0);
    return true;
  }
  bool operator()(std::int64_t value) const { return number('i', static_cast<std::uint64_t>(value)); }
  bool operator()(double value) const { return number('f', std::bit_cast<std::uint64_t>(value)); }
  bool operator()(Value::Date value) const {
    const auto count = std::chrono::duration_cast<std::chrono::nanoseconds>(value.time_since_epoch()).count();
    return number('t', static_cast<std::uint64_t>(count));
  }
  bool operator()(const std::string& value) const {
    out.push_back('s');
    putBytes(out, value);
    return true;
  }
  bool operator()(const Value::Data& value) const {
    out.push_back('d');
    putBytes(out, value.bytes);
    return true;
  }
  bool operator()(const Value::Array& value) const {
    number('a', value.size());
    for (const Value& element : value) {
      if (!encode(element, out, depth + 1)) {
        return false;
      }
    }
    return true;
  }
  bool operator()(const Value::Dictionary& value) const {
    number('m', value.size());
    for (const auto& [key, element] : value) {
      putBytes(out, key);
      if (!encode(element, out, depth + 1)) {
        return false;
      }
    }
    return true;
  }

  bool number(char tag, std::uint64_t value) const {
    out.push_back(tag);
    putInteger(out, value);
    return true;
  }
};

bool encode(const Value& value, std::string& out, int depth) {
  return depth <= deepestNesting && std::visit(Encoder{out, depth}, value.storage());
}

class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : rest_(bytes) {}

  bool atEnd() const noexcept { return rest_.empty(); }

  std::optional<Value> value(int depth = 0) {
    const std::optional<std::string_view> tag = take(1);
    if (!tag || depth > deepestNesting) {
      return std::nullopt;
    }
    switch (tag->front()) {
      case 'b':
        return boolean();
      case 's': {
        const auto text = bytes();
        return text ? std::optional<Value>(std::string(*text)) : std::nullopt;
      }
      case 'd': {
        const auto data = bytes();
        return data ? std::optional<Value>(Value::Data{std::string(*data)}) : std::nullopt;
      }
      default:
        break;
    }
    // All others begin with a number.
    const std::optional<std::uint64_t> number = integer();
    if (!number) {
      return std::nullopt;
    }
    switch (tag->front()) {
      case 'i':
        return Value(static_cast<std::int64_t>(*number));
      case 'f':
        return Value(std::bit_cast<double>(*number));
      case 't': {
        const std::chrono::nanoseconds sinceEpoch{static_cast<std::int64_t>(*number)};
        return Value(Value::Date(std::chrono::duration_cast<Value::Date::duration>(sinceEpoch)));
      }
      case 'a':
        return array(*number, depth);
      case 'm':
        return dictionary(*number, depth);
      default:
        return std::nullopt;
    }
  }

 private:
  std::optional<std::string_view> take(std::uint64_t count) {
    if (count > rest_.size()) {
      return std::nullopt;
    }
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  std::optional<std::uint64_t> integer() {
    const auto bytes = take(8);
    if (!bytes) {
      return std::nullopt;
    }
    std::uint64_t result = 0;
    for (std::size_t i = 8; i-- > 0;) {
      result = result << 8 | static_cast<unsigned char>((*bytes)[i]);
    }
    return result;
  }

  std::optional<std::string_view> bytes() {
    const auto size = integer();
    return size ? take(*size) : std::nullopt;
  }

  std::optional<Value> boolean() {
    const auto flag = take(1);
    return flag && static_cast<unsigned char>(flag->front()) <= 1 ? std::optional<Value>(flag->front() == 1)
                                                                  : std::nullopt;
  }

  // The counts are not trusted: nothing is reserved for them, and each element takes at least one byte.
  std::optional<Value> array(std::uint64_t count, int depth) {
    Value::Array elements;
    for (; count > 0; --count) {
      std::optional<Value> element = value(depth + 1);
      if (!element) {
        return std::nullopt;
      }
      elements.push_back(std::move(*element));
    }
    return Value(std::move(elements));
  }

  std::optional<Value> dictionary(std::uint64_t count, int depth) {
    Value::Dictionary elements;
    for (; count > 0; --count) {
      const auto key = bytes();
      std::optional<Value> element = key ? value(depth + 1) : std::nullopt;
      if (!element) {
        return std::nullopt;
      }
      elements.insert_or_assign(std::string(*key), std::move(*element));
    }
    return Value(std::move(elements));
  }

  std::string_view rest_;
};

}  // namespace

std::optional<std::string> encodePropertyList(const PropertyListValue& value) {
  std::string bytes;
  return encode(value, bytes, 0) ? std::optional(std::move(bytes)) : std::nullopt;
}

std::optional<PropertyListValue> decodePropertyList(std::string_view bytes) {
  Decoder decoder(bytes);
  std::optional<PropertyListValue> value = decoder.value();
  return decoder.atEnd() ? std::move(value) : std::nullopt;
}

}  // namespace quillmar::platform
