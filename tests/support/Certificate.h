#pragma once

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/TemporaryFolder.h"

namespace quillmar::test {

/// A certificate for one IP address and its key, made on the spot in a temporary folder.
class Certificate {
 public:
  /// One that is its own issuer.
  explicit Certificate(const std::string& address) {
    run("openssl req -x509 -days 2 " + subject(address) + newKey() + " -out " + file());
  }

  /// One that `issuer` signs for the time from `start` to `end`, both as YYYYMMDDHHMMSSZ.
  Certificate(const Certificate& issuer, const std::string& address, const std::string& start, const std::string& end) {
    std::ofstream(folder_ / "ca.cnf") << "[ca]\ndefault_ca=d\n[d]\nnew_certs_dir=" << folder_.path()
                                      << "\ndatabase=" << folder_.path() << "/index\nserial=" << folder_.path()
                                      << "/serial\ndefault_md=sha256\npolicy=p\ncopy_extensions=copy\n[p]\n"
                                      << "commonName=supplied\n";
    std::ofstream(folder_ / "index").close();
    std::ofstream(folder_ / "serial") << "1000";
    run("openssl req -new " + subject(address) + newKey() + " -out " + (folder_ / "request.pem"));
    run("openssl ca -batch -notext -config " + (folder_ / "ca.cnf") + " -cert " + issuer.file() + " -keyfile " +
        issuer.key() + " -in " + (folder_ / "request.pem") + " -out " + file() + " -startdate " + start + " -enddate " +
        end);
  }

  std::string file() const { return folder_ / "certificate.pem"; }
  std::string key() const { return folder_ / "key.pem"; }

 private:
  static std::string subject(const std::string& address) {
    return "-subj /CN=" + address + " -addext subjectAltName=IP:" + address;
  }
  std::string newKey() const { return " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout " + key(); }
  static void run(const std::string& command) {
    if (std::system((command + " 2>/dev/null").c_str()) != 0) {  // NOLINT(concurrency-mt-unsafe)
      throw std::runtime_error("failed: " + command);
    }
  }

  TemporaryFolder folder_;
};

}  // namespace quillmar::test
