#pragma once

#include <string>
#include <utility>

#include "Json/Codable.h"
#include "Json/JsonWriter.h"
#include "Network/RequestBodyContainerProtocol.h"

namespace quillmar {

/// Bytes as they are. They are labelled "application/json" whatever they hold: callers pass serialised JSON.
struct DataBodyContainer final : RequestBodyContainerProtocol {
  explicit DataBodyContainer(std::string bytes) : data(std::move(bytes)) {}
  void add(platform::HttpRequest& request) const override { setBody(request, data, "application/json"); }

  std::string data;
};

/// A value with `encode(JsonWriter&)`, as compact JSON.
template <class Encodable>
struct JSONBodyContainer final : RequestBodyContainerProtocol {
  explicit JSONBodyContainer(Encodable value) : jsonBody(std::move(value)) {}
  void add(platform::HttpRequest& request) const override {
    JsonWriter writer;
    Codable<Encodable>::encode(writer, jsonBody);
    setBody(request, writer.take(), "application/json");
  }

  Encodable jsonBody;
};

/// A text in UTF-8.
struct PlainTextBodyContainer final : RequestBodyContainerProtocol {
  explicit PlainTextBodyContainer(std::string body) : text(std::move(body)) {}
  void add(platform::HttpRequest& request) const override { setBody(request, text, "text/plain"); }

  std::string text;
};

}  // namespace quillmar
