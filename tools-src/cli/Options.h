#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "quillmar/LogLevel.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/simulated/PostbackRules.h"

namespace quillmar::cli {

/// Options that cannot be used. The message is one line and names the option.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RunOptions {
  std::string key = {};
  std::string service = {};             ///< an origin; empty: the embedded development service
  std::string attributionService = {};  ///< an origin; empty: the event service's
  std::string attributionToken = {};    ///< empty: a made-up one for the embedded service, none for another
  std::string dataDirectory = {};       ///< absolute; empty: the platform's default
  std::string events = "-";             ///< a path, or "-" for standard input
  std::string osVersion = "18.0";
  std::chrono::seconds clockOffset{0};
  LogLevel logLevel = LogLevel::off;
  std::string caFile = {};
  std::string proxy = {};
  bool proxyFromEnvironment = false;
  std::chrono::milliseconds drainTimeout{30'000};
  bool mock = false;
  bool explain = false;
  bool health = false;
  QuillmarOptions library = {};
};

struct ServeOptions {
  std::uint16_t port = 0;   ///< 0: a free one
  std::string config = {};  ///< empty: the built-in configuration
  std::string tlsCertificate = {};
  std::string tlsKey = {};
  std::optional<int> status = {};
  std::optional<int> attributionStatus = {};
  std::chrono::milliseconds delay{0};
  std::uint32_t failFirst = 0;
};

struct SimulateOptions {
  std::string config = {};
  std::string events = {};
  std::string osVersion = "18.0";
  int days = 36;
  std::optional<simulated::SignedAd> ad = {};  ///< nothing: the one that the library's calls count for
  simulated::PostbackRules::WindowLengths windowHours = simulated::PostbackRules::usualLengths;
  std::chrono::seconds serviceDown{0};  ///< from the first launch on
  QuillmarOptions library = {};
  bool json = false;
  std::string html = {};  ///< a file; empty: no page
  bool explain = false;
  bool health = false;
};

struct CheckOptions {
  std::string config = {};  ///< a path, or "-" for standard input
  bool json = false;
};

struct InspectOptions {
  std::string dataDirectory = {};  ///< absolute
  bool json = false;
  std::string html = {};  ///< a file; empty: no page
};

/// A text to print on standard output, and nothing else: --help, --version.
struct Information {
  std::string text = {};
};

using Command = std::variant<RunOptions, ServeOptions, SimulateOptions, CheckOptions, InspectOptions, Information>;

/// Reads the arguments that follow the program's name. Throws `UsageError`.
Command parseCommandLine(std::vector<std::string> arguments);

}  // namespace quillmar::cli
