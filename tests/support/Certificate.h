#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "support/TemporaryFolder.h"

namespace quillmar::test {

/// A certificate for one IP address, which is its own issuer, and its key, made on the spot in a temporary folder.
class Certificate {
 public:
  explicit Certificate(const std::string& address) {
    const std::string command = "openssl req -x509 -days 2 -subj /CN=" + address +
                                " -addext subjectAltName=IP:" + address +
                                " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout " + key() + " -out " +
                                file() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) {  // NOLINT(concurrency-mt-unsafe)
      throw std::runtime_error("failed: " + command);
    }
  }

  std::string file() const { return folder_ / "certificate.pem"; }
  std::string key() const { return folder_ / "key.pem"; }

 private:
  TemporaryFolder folder_;
};

}  // namespace quillmar::test
