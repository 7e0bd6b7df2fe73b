#include "Network/UserAgent.h"

#include <fmt/format.h>

#include "Platform/Ascii.h"
#include "quillmar/Config.h"

namespace quillmar {

namespace {

/// Bytes as a token of HTTP. The escape's own sign is escaped, too.
std::string asToken(std::string_view text) {
  std::string token;
  for (const char c : text) {
    if (isTokenCharacter(c) && c != '%') {
      token += c;
    } else {
      token += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return token;
}

}  // namespace

std::string userAgentOf(const platform::Bundle& bundle) {
  std::string products;
  if (!bundle.name.empty()) {
    products = asToken(bundle.name) + (bundle.version.empty() ? "" : "/" + asToken(bundle.version)) + " ";
  }
  return products + "quillmar/" + std::string(Config::sdkVersionNumber);
}

}  // namespace quillmar
