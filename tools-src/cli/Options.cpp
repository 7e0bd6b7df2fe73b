#include "Options.h"

#include <arpa/inet.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <functional>

#include "Duration.h"

namespace quillmar::cli {
namespace {

constexpr const char* generalHelp = R"(quillmar - a host app in a box for the Quillmar library

Usage:
  quillmar run --key KEY [options]                      report events, in real time, to a real service
  quillmar simulate --config FILE --events FILE [...]   a whole install's life on a virtual clock
  quillmar serve [options]                              a development service to report events to
  quillmar COMMAND --help | --help | --version

Exit status: 0 done; 1 done, but some input lines were bad or something failed; 2 the options cannot be used.
)";

constexpr const char* runHelp = R"(Usage: quillmar run --key KEY [options]

Configures the library with KEY, reports the events of the input and prints, as JSON Lines, each call that the library
makes to the platform's ad attribution and a summary at the end. Time, HTTP and files are real; the device and its ad
network are simulated. Log lines and bad input lines go to standard error. An interrupt (SIGINT, SIGTERM) ends the
input; a second one ends the program.

  --key KEY             the verification key; not empty
  --service URL         the event service: https://..., or http:// to this machine
                        (without it: an embedded development service on a free port)
  --attribution-service URL
                        where the attribution token is exchanged, in the same form (default: the event service)
  --attribution-token T the token (default: development-token when the embedded service is asked, else none: then the
                        platform has no token to give)
  --data DIR            the folder for settings and documents (default: a folder of the user's own)
  --events FILE|-       where the input comes from (default: -, standard input)
  --os-version V        the system version of the device (default: 18.0)
  --clock-offset D      shifts the clock, for example 3d2h or -1h30m, so that a later day can be tried on the same
                        --data folder
  --log-level LEVEL     off, error, debug or info, the most verbose (default: off)
  --ca-file FILE        trusted certificates (PEM) in place of the system's
  --drain-timeout S     how long to wait, at the end, for what is in flight, in seconds (default: 30)
  --mock                the library's mock mode: no service is asked, so events wait for a configuration

Input, one JSON object a line; blank lines are skipped:
  {"event":"purchase","params":{"revenue":9.99}}     report an event; revenue is a number or a text
  {"activate":"application"}  {"activate":"scene"}   the app, or one of its scenes, becomes active
  {"sleep":0.5}                                      wait, in seconds
  {"reset":true}                                     back to the unconfigured state
  {"configure":"KEY"}                                configure again
  {"attribution":"enable"}                           fetch the search-ads attribution, unless it is stored, and listen
                                                     for purchases; waits until both is done
  {"attribution":"disable"}                          listen no more
  {"subscription":{"transaction":{...},"renewalInfo":{...},"state":1}}
                                                     the platform reports a purchase: to the library when it listens,
                                                     else to nobody; "transactionVerified":false or
                                                     "renewalInfoVerified":false make it one with a bad signature
)";

constexpr const char* serveHelp = R"(Usage: quillmar serve [options]

A development service for trying the library out. It is no production service: it takes every key, keeps nothing and
listens on the loopback interface only. Prints {"listening":URL} first, then each request as a JSON line, until SIGINT
or SIGTERM.

  --port N                          the port (default: 0, a free one)
  --config FILE                     the conversion values, as JSON (default: built in)
  --tls-cert FILE --tls-key FILE    serve HTTPS with this certificate and key (PEM)
  --status N                        answer each request with this HTTP status
  --attribution-status N            answer attribution tokens with 200, 400, 404 or 500, whatever the token
                                    (default: 200, or 400 for none and for "invalid-token")
  --delay SECONDS                   wait before each answer
  --fail-first N                    answer the first N requests with status 503
)";

constexpr const char* simulateHelp = R"(Usage: quillmar simulate --config FILE --events FILE [options]

Lives an install's whole life in milliseconds: the same library, on a virtual clock, with a service in the same
process. Two runs give the same output. The first launch, with the configuration of the library, is at
2026-01-01T09:00:00Z. The app becomes active again at the start of each later day (24, 48, ... hours after the first
launch) before that moment's lines, so that the configuration is refreshed and lock times are checked; not so when the
input has "activate" lines of its own.

  --config FILE      the conversion values that the service delivers, as JSON
  --events FILE|-    what happens
  --os-version V     the system version of the device (default: 18.0)
  --days N           how long the life is (default: 36); later lines are errors
  --json             print JSON Lines in place of the table

Input, one JSON object a line, as for "quillmar run" but without "sleep", "attribution" and "subscription". Each may
say when it happens, as the time since the first launch:
  {"at":"2d4h30m","event":"purchase","params":{"revenue":9.99}}
Without "at" it happens at the time of the line before. A line that is earlier than the one before is an error; it
is left out. Automatic activations are listed only when they made the library call the platform. Of several completed
values the library sends the lowest-ranked one, as it does in an app.
)";

struct Option {
  const char* name;
  bool takesValue;
  std::function<void(const std::string&)> apply;
};

/// Thrown by an option's `apply`; the option's name is put in front.
class BadValue : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// True when --help was among the options.
bool readOptions(const std::vector<std::string>& arguments, const std::vector<Option>& options) {
  std::vector<std::string> copies = arguments;  // getopt wants them writable
  std::vector<char*> argv;
  for (std::string& copy : copies) {
    argv.push_back(copy.data());
  }
  argv.push_back(nullptr);
  constexpr int firstOption = 1000;
  constexpr int help = 999;
  std::vector<option> table;
  for (std::size_t index = 0; index < options.size(); ++index) {
    table.push_back({options[index].name, options[index].takesValue ? required_argument : no_argument, nullptr,
                     firstOption + static_cast<int>(index)});
  }
  table.push_back({"help", no_argument, nullptr, help});
  table.push_back({nullptr, 0, nullptr, 0});

  const int argc = static_cast<int>(copies.size());
  const std::string& command = arguments.front();
  const auto nameOf = [&](int value) {
    return value == help ? std::string("--help")
                         : std::string("--") + options[static_cast<std::size_t>(value - firstOption)].name;
  };
  optind = 0;  // GNU: start over
  for (;;) {
    const int found = getopt_long(argc, argv.data(), "+:", table.data(), nullptr);
    if (found == -1) {
      break;
    }
    if (found == help) {
      return true;
    }
    if (found == ':') {
      throw UsageError(command + ": " + nameOf(optopt) + ": the value is missing");
    }
    if (found == '?') {
      if (optopt >= help) {
        throw UsageError(command + ": " + nameOf(optopt) + ": takes no value");
      }
      const std::string unknown =
          optopt != 0 ? std::string("-") + static_cast<char>(optopt) : argv[static_cast<std::size_t>(optind) - 1];
      throw UsageError(command + ": " + unknown.substr(0, unknown.find('=')) + ": no such option, or not a clear one");
    }
    const Option& chosen = options[static_cast<std::size_t>(found - firstOption)];
    try {
      chosen.apply(optarg == nullptr ? std::string() : optarg);
    } catch (const BadValue& error) {
      throw UsageError(command + ": --" + chosen.name + ": " + error.what());
    }
  }
  if (optind < argc) {
    throw UsageError(command + ": " + argv[static_cast<std::size_t>(optind)] + ": an option was expected");
  }
  return false;
}

template <class Number>
Number wholeNumber(const std::string& text, Number least, Number most) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc{} || stop != end || number < least || number > most) {
    throw BadValue("a whole number from " + std::to_string(least) + " to " + std::to_string(most) +
                   " is expected, not \"" + text + "\"");
  }
  return number;
}

std::chrono::milliseconds seconds(const std::string& text) {
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  // The comparison refuses what is not a number, too.
  if (text.empty() || error != std::errc{} || stop != end || !(number >= 0 && number <= 86400)) {
    throw BadValue("a number of seconds from 0 to 86400 is expected, not \"" + text + "\"");
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(number * 1000));
}

std::string readableFile(const std::string& path) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
    throw BadValue("cannot read " + path + ": " + std::strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) {
    throw BadValue("cannot read " + path + ": it is a folder");
  }
  return path;
}

std::string inputFile(const std::string& path) {
  return path == "-" ? path : readableFile(path);
}

std::string dataDirectory(const std::string& path) {
  std::error_code error;
  if (path.empty()) {
    throw BadValue("the name of a folder is expected");
  }
  if (std::filesystem::exists(path, error) && !std::filesystem::is_directory(path, error)) {
    throw BadValue(path + " is not a folder");
  }
  return std::filesystem::absolute(path).lexically_normal().string();
}

std::string version(const std::string& text) {
  bool digitBefore = false;
  const bool valid = std::all_of(text.begin(), text.end(), [&](char letter) {
    const bool dotBetweenDigits = letter == '.' && digitBefore;
    digitBefore = letter >= '0' && letter <= '9';
    return digitBefore || dotBetweenDigits;
  });
  if (!valid || !digitBefore || text.size() > 20) {
    throw BadValue("a version such as 17.4.1 is expected, not \"" + text + "\"");
  }
  return text;
}

LogLevel level(const std::string& text) {
  constexpr std::pair<const char*, LogLevel> levels[] = {
      {"off", LogLevel::off}, {"error", LogLevel::error}, {"debug", LogLevel::debug}, {"info", LogLevel::info}};
  for (const auto& [name, value] : levels) {
    if (text == name) {
      return value;
    }
  }
  throw BadValue("off, error, debug or info is expected, not \"" + text + "\"");
}

std::chrono::seconds offset(const std::string& text) {
  const auto duration = parseDuration(text);
  if (!duration) {
    throw BadValue("a duration such as 3d2h or -1h30m is expected, not \"" + text + "\"");
  }
  return *duration;
}

bool isThisMachine(std::string host) {
  std::transform(host.begin(), host.end(), host.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  in_addr address{};
  return host == "localhost" || host == "[::1]" ||
         (inet_pton(AF_INET, host.c_str(), &address) == 1 && (ntohl(address.s_addr) >> 24U) == 127);
}

/// Key and token are secrets, so they go over plain HTTP only when they do not leave the machine.
std::string serviceUrl(const std::string& text) {
  const BadValue unusable("https://HOST[:PORT], or http://127.0.0.1[:PORT], is expected, not \"" + text + "\"");
  const bool secure = text.rfind("https://", 0) == 0;
  if (!secure && text.rfind("http://", 0) != 0) {
    throw unusable;
  }
  const std::string url = text.back() == '/' ? text.substr(0, text.size() - 1) : text;
  const std::string authority = url.substr(std::min(url.size(), url.find("//") + 2));
  const std::size_t hostEnd =
      authority.find(':', authority.rfind('[', 0) == 0 ? std::min(authority.size(), authority.find(']')) : 0);
  const std::string host = authority.substr(0, hostEnd);
  // A user name, a path, a query or a blank would make another part of the text the host.
  const bool plain = std::all_of(host.begin(), host.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || std::strchr(".-[]:", letter) != nullptr;
  });
  if (host.empty() || !plain || (host.front() == '[') != (host.back() == ']')) {
    throw unusable;
  }
  if (hostEnd != std::string::npos) {
    wholeNumber<std::uint16_t>(authority.substr(hostEnd + 1), 1, 65535);
  }
  if (!secure && !isThisMachine(host)) {
    throw BadValue("plain http:// goes to this machine only (127.0.0.0/8, [::1], localhost), not to \"" + host + "\"");
  }
  return url;
}

std::string attributionToken(const std::string& text) {
  if (text.empty()) {
    throw BadValue("must not be empty");
  }
  return text;
}

int attributionStatus(const std::string& text) {
  for (const int status : {200, 400, 404, 500}) {
    if (text == std::to_string(status)) {
      return status;
    }
  }
  throw BadValue("200, 400, 404 or 500 is expected, not \"" + text + "\"");
}

Command parseRun(const std::vector<std::string>& arguments) {
  RunOptions run;
  std::optional<std::string> key;
  const std::vector<Option> options = {
      {"key", true, [&](const auto& value) { key = value; }},
      {"service", true, [&](const auto& value) { run.service = serviceUrl(value); }},
      {"attribution-service", true, [&](const auto& value) { run.attributionService = serviceUrl(value); }},
      {"attribution-token", true, [&](const auto& value) { run.attributionToken = attributionToken(value); }},
      {"data", true, [&](const auto& value) { run.dataDirectory = dataDirectory(value); }},
      {"events", true, [&](const auto& value) { run.events = inputFile(value); }},
      {"os-version", true, [&](const auto& value) { run.osVersion = version(value); }},
      {"clock-offset", true, [&](const auto& value) { run.clockOffset = offset(value); }},
      {"log-level", true, [&](const auto& value) { run.logLevel = level(value); }},
      {"ca-file", true, [&](const auto& value) { run.caFile = readableFile(value); }},
      {"drain-timeout", true, [&](const auto& value) { run.drainTimeout = seconds(value); }},
      {"mock", false, [&](const auto&) { run.mock = true; }},
  };
  if (readOptions(arguments, options)) {
    return Information{runHelp};
  }
  if (!key) {
    throw UsageError("run: --key: is missing");
  }
  if (key->empty()) {
    throw UsageError("run: --key: must not be empty");
  }
  run.key = *key;
  return run;
}

Command parseServe(const std::vector<std::string>& arguments) {
  ServeOptions serve;
  const std::vector<Option> options = {
      {"port", true, [&](const auto& value) { serve.port = wholeNumber<std::uint16_t>(value, 0, 65535); }},
      {"config", true, [&](const auto& value) { serve.config = readableFile(value); }},
      {"tls-cert", true, [&](const auto& value) { serve.tlsCertificate = readableFile(value); }},
      {"tls-key", true, [&](const auto& value) { serve.tlsKey = readableFile(value); }},
      {"status", true, [&](const auto& value) { serve.status = wholeNumber(value, 200, 599); }},
      {"attribution-status", true, [&](const auto& value) { serve.attributionStatus = attributionStatus(value); }},
      {"delay", true, [&](const auto& value) { serve.delay = seconds(value); }},
      {"fail-first", true, [&](const auto& value) { serve.failFirst = wholeNumber<std::uint32_t>(value, 0, 1000000); }},
  };
  if (readOptions(arguments, options)) {
    return Information{serveHelp};
  }
  if (serve.tlsCertificate.empty() != serve.tlsKey.empty()) {
    throw UsageError(std::string("serve: ") + (serve.tlsKey.empty() ? "--tls-key" : "--tls-cert") +
                     ": is missing; a certificate and its key go together");
  }
  return serve;
}

Command parseSimulate(const std::vector<std::string>& arguments) {
  SimulateOptions simulate;
  const std::vector<Option> options = {
      {"config", true, [&](const auto& value) { simulate.config = readableFile(value); }},
      {"events", true, [&](const auto& value) { simulate.events = inputFile(value); }},
      {"os-version", true, [&](const auto& value) { simulate.osVersion = version(value); }},
      {"days", true, [&](const auto& value) { simulate.days = wholeNumber(value, 1, 3650); }},
      {"json", false, [&](const auto&) { simulate.json = true; }},
  };
  if (readOptions(arguments, options)) {
    return Information{simulateHelp};
  }
  for (const auto& [name, value] : {std::pair("--config", simulate.config), std::pair("--events", simulate.events)}) {
    if (value.empty()) {
      throw UsageError(std::string("simulate: ") + name + ": is missing");
    }
  }
  return simulate;
}

}  // namespace

Command parseCommandLine(const std::vector<std::string>& arguments) {
  const std::string command = arguments.empty() ? "" : arguments.front();
  if (command == "run") {
    return parseRun(arguments);
  }
  if (command == "serve") {
    return parseServe(arguments);
  }
  if (command == "simulate") {
    return parseSimulate(arguments);
  }
  if (command == "--help" || command == "-h") {
    return Information{generalHelp};
  }
  if (command == "--version") {
    return Information{"quillmar " QUILLMAR_VERSION "\n"};
  }
  throw UsageError(command.empty() ? "a command is missing: run, simulate or serve (see quillmar --help)"
                                   : command + ": run, simulate or serve is expected (see quillmar --help)");
}

}  // namespace quillmar::cli
