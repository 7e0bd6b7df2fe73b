// The address of a request, next to the opinion of Boost.URL.
#define BOOST_DISABLE_ASSERTS  // Boost.URL 1.81 fails one of its own for "a:" and a form feed
#include <boost/url/src.hpp>

#include "Network/Url.h"
#include "Promises.h"

using namespace quillmar;

void fuzz::look(std::string_view text) {
  const auto uri = boost::urls::parse_uri(text);
  const bool hasHost = uri && uri->has_authority() && !uri->host().empty();
  if (isUrl(text)) {
    // An address in brackets is only roughly looked at.
    require(hasHost || text.find("://[") != text.npos || text.find("@[") != text.npos, "a URL is a URI with a host");
  } else {
    // Boost.URL 1.81 takes letters after a port for a path.
    const bool isWrong = hasHost && !uri->encoded_path().empty() && uri->encoded_path().front() != '/';
    require(!hasHost || isWrong || uri->host_type() == boost::urls::host_type::ipvfuture, "a URI with a host is a URL");
  }
}
