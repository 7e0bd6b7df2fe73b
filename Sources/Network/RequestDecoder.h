#pragma once

#include "Json/Codable.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Network/NetworkManagerProtocol.h"

namespace quillmar {

/// Decodes the body of a response; its status and headers are not looked at.
struct RequestDecoder {
  /// Throws `DecodingError`.
  template <class Decodable>
  static Decodable decode(const NetworkResponse& response) {
    const boost::json::value document = parseJson(response.data);
    return Codable<Decodable>::decode(JsonReader(document));
  }
};

}  // namespace quillmar
