#include "Json/JsonWriter.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

#include "Json/CodingError.h"
#include "Json/DecimalNumber.h"
#include "Json/JsonToken.h"

namespace quillmar {

namespace {

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  std::size_t plainFrom = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\') {
      continue;
    }
    out += text.substr(plainFrom, i - plainFrom);
    plainFrom = i + 1;
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(c));
    }
  }
  out += text.substr(plainFrom);
  out += '"';
}

}  // namespace

JsonWriter& JsonWriter::key(std::string_view name) {
  beforeValue();
  appendQuoted(text_, name);
  afterKey();
  return *this;
}

JsonWriter& JsonWriter::string(std::string_view text) {
  beforeValue();
  appendQuoted(text_, text);
  return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
  beforeValue();
  text_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::integer(std::int64_t value) {
  beforeValue();
  fmt::format_to(std::back_inserter(text_), "{}", value);
  return *this;
}

JsonWriter& JsonWriter::number(double value) {
  if (!std::isfinite(value)) {
    throw EncodingError(EncodingErrorCode::invalidValue, fmt::format("{} is not a JSON number", value));
  }
  beforeValue();
  text_ += decimalText(value);
  return *this;
}

JsonWriter& JsonWriter::optionalMember(std::string_view name, const std::optional<std::string>& text) {
  return text ? key(name).string(*text) : *this;
}

JsonWriter& JsonWriter::optionalMember(std::string_view name, std::optional<double> value) {
  return value ? key(name).number(*value) : *this;
}

JsonWriter& JsonWriter::optionalMember(std::string_view name, std::optional<bool> value) {
  return value ? key(name).boolean(*value) : *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
  for (std::string_view token = takeJsonToken(json); !token.empty(); token = takeJsonToken(json)) {
    switch (token.front()) {
      case '{':
      case '[':
        open(token.front());
        break;
      case '}':
      case ']':
        close(token.front());
        break;
      case ',':
        break;  // comes with the next value
      case ':':
        afterKey();
        break;
      default:
        beforeValue();
        text_ += token;
    }
  }
  return *this;
}

JsonWriter& JsonWriter::open(char bracket) {
  beforeValue();
  text_ += bracket;
  ++depth_;
  first_ = true;
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  --depth_;
  if (!first_) {
    newLine();
  }
  text_ += bracket;
  first_ = false;
  return *this;
}

void JsonWriter::beforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!first_) {
    text_ += ',';
  }
  if (depth_ > 0) {
    newLine();
  }
  first_ = false;
}

void JsonWriter::afterKey() {
  text_ += format_ == Format::prettyPrinted ? ": " : ":";
  afterKey_ = true;
}

void JsonWriter::newLine() {
  if (format_ == Format::prettyPrinted) {
    text_ += '\n';
    text_.append(2 * depth_, ' ');
  }
}

}  // namespace quillmar
