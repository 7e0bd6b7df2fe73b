#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/json.hpp>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "CountingTransport.h"
#include "Duration.h"
#include "InputLines.h"
#include "Options.h"
#include "RunCommand.h"
#include "ServeCommand.h"
#include "SimulateCommand.h"
#include "StopSignal.h"
#include "quillmar/simulated/InMemoryHttpTransport.h"
#include "quillmar/simulated/ManualClock.h"
#include "support/TemporaryFolder.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

std::string writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path) << content;
  return path;
}

std::vector<json::object> jsonLines(const std::string& text) {
  std::vector<json::object> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(json::parse(line).as_object());
  }
  return lines;
}

std::size_t lineCount(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Duration, readsAndWritesOneForm) {
  const struct {
    const char* text;
    std::optional<int> expected;
    const char* written;
  } rows[] = {
      {"3d2h", 266400, "3d2h"},
      {"-1h30m", -5400, "-1h30m"},
      {"+90s", 90, "1m30s"},
      {"0s", 0, "0s"},
      {"24h", 86400, "1d"},
      {"1d1h1m1s", 90061, nullptr},
      {"", {}, nullptr},
      {"-", {}, nullptr},
      {"5", {}, nullptr},
      {"d", {}, nullptr},
      {"2h3d", {}, nullptr},
      {"1h1h", {}, nullptr},
      {"1.5h", {}, nullptr},
      {"--1h", {}, nullptr},
      {"1h-2m", {}, nullptr},
      {" 1h", {}, nullptr},
      {"1H", {}, nullptr},
      {"36526d", {}, nullptr},
      {"99999999999s", {}, nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const auto duration = parseDuration(row.text);
    ASSERT_EQ(duration.has_value(), row.expected.has_value());
    if (duration) {
      EXPECT_EQ(duration->count(), *row.expected);
      EXPECT_EQ(formatDuration(*duration), row.written == nullptr ? row.text : row.written);
    }
  }
}

TEST(Options, refusesWhatCannotBeUsedAndNamesTheOption) {
  const struct {
    std::vector<std::string> arguments;
    const char* named;
  } rows[] = {
      {{}, "command is missing"},
      {{"walk"}, "walk"},
      {{"run"}, "--key: is missing"},
      {{"run", "--key", ""}, "--key"},
      {{"run", "--key"}, "--key: the value is missing"},
      {{"run", "--key", "k", "--colour=red"}, "--colour:"},
      {{"run", "--key", "k", "-x"}, "-x:"},
      {{"run", "--key", "k", "--mock=1"}, "--mock: takes no value"},
      {{"run", "--key", "k", "extra"}, "extra"},
      {{"run", "--key", "k", "--clock-offset", "3x"}, "--clock-offset"},
      {{"run", "--key", "k", "--drain-timeout", "-1"}, "--drain-timeout"},
      {{"run", "--key", "k", "--drain-timeout", "nan"}, "--drain-timeout"},
      {{"run", "--key", "k", "--os-version", "17."}, "--os-version"},
      {{"run", "--key", "k", "--os-version", "17..1"}, "--os-version"},
      {{"run", "--key", "k", "--os-version", "iOS"}, "--os-version"},
      {{"run", "--key", "k", "--log-level", "Debug"}, "--log-level"},
      {{"run", "--key", "k", "--events", "/nowhere/events"}, "--events"},
      {{"run", "--key", "k", "--ca-file", "/"}, "--ca-file"},
      {{"run", "--key", "k", "--data", "/dev/null"}, "--data"},
      {{"run", "--key", "k", "--service", "ftp://localhost"}, "--service"},
      {{"run", "--key", "k", "--service", "http://example.com"}, "--service"},
      {{"run", "--key", "k", "--service", "http://128.0.0.1"}, "--service"},
      {{"run", "--key", "k", "--service", "http://127.0.0.1.example.com"}, "--service"},
      {{"run", "--key", "k", "--service", "http://localhost@example.com"}, "--service"},
      {{"run", "--key", "k", "--service", "http://localhost:80@example.com"}, "--service"},
      {{"run", "--key", "k", "--service", "http://localhost:0"}, "--service"},
      {{"run", "--key", "k", "--service", "http://[::2]:80"}, "--service"},
      {{"run", "--key", "k", "--service", "http://[::1"}, "--service"},
      {{"run", "--key", "k", "--service", "https://"}, "--service"},
      {{"run", "--key", "k", "--service", "https://example.com/api"}, "--service"},
      {{"run", "--key", "k", "--attribution-service", "http://example.com"}, "--attribution-service"},
      {{"run", "--key", "k", "--attribution-token", ""}, "--attribution-token"},
      {{"serve", "--port", "65536"}, "--port"},
      {{"serve", "--attribution-status", "201"}, "--attribution-status"},
      {{"serve", "--status", "20x"}, "--status"},
      {{"serve", "--fail-first", "-1"}, "--fail-first"},
      {{"serve", "--tls-cert", "/dev/null"}, "--tls-key"},
      {{"simulate", "--config", "/dev/null"}, "--events"},
      {{"simulate", "--events", "-"}, "--config"},
      {{"simulate", "--config", "/dev/null", "--events", "-", "--days", "0"}, "--days"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    try {
      parseCommandLine(row.arguments);
      ADD_FAILURE() << "was accepted";
    } catch (const UsageError& error) {
      EXPECT_THAT(error.what(), HasSubstr(row.named));
      EXPECT_EQ(lineCount(error.what()), 0U);
    }
  }
}

TEST(Options, takesWhatIsMeant) {
  const auto run =
      std::get<RunOptions>(parseCommandLine({"run", "--key=k", "--service", "http://127.9.9.9:8080/", "--clock-offset",
                                             "-1h", "--drain-timeout", "0.25", "--log-level", "info", "--mock"}));
  EXPECT_EQ(run.service, "http://127.9.9.9:8080");
  EXPECT_EQ(run.clockOffset, seconds(-3600));
  EXPECT_EQ(run.drainTimeout, std::chrono::milliseconds(250));
  EXPECT_EQ(run.logLevel, LogLevel::info);
  EXPECT_TRUE(run.mock);
  for (const char* url : {"http://LOCALHOST:1", "http://[::1]:80", "https://example.com", "https://[2001:db8::1]"}) {
    EXPECT_EQ(std::get<RunOptions>(parseCommandLine({"run", "--key", "k", "--service", url})).service, url);
  }
  EXPECT_THAT(std::get<Information>(parseCommandLine({"serve", "--help"})).text, HasSubstr("no production service"));
}

TEST(InputLines, reportsBadLinesAndGoesOn) {
  const struct {
    InputTime time;
    const char* line;
    const char* wrong;
  } rows[] = {
      {InputTime::real, "{", "not JSON"},
      {InputTime::real, "{\"event\":\"a\"} x", "not JSON"},
      {InputTime::real, "[]", "an object is expected, not an array"},
      {InputTime::real, "{}", "one of \"event\""},
      {InputTime::real, R"({"event":1})", "$.event: a text is expected, not a number"},
      {InputTime::real, R"({"event":"a","colour":1})", "$.colour: unknown member"},
      {InputTime::real, R"({"event":"a","reset":true})", "$.reset: a line is one step"},
      {InputTime::real, R"({"reset":true,"params":{}})", "$.params: unknown member"},
      {InputTime::real, R"({"event":"a","params":[]})", "$.params: an object is expected"},
      {InputTime::real, R"({"event":"a","params":{"Revenue":1}})", "$.params.Revenue: unknown parameter"},
      {InputTime::real, R"({"event":"a","params":{"revenue":true}})", "$.params.revenue: a number or a text"},
      {InputTime::real, R"({"event":"a","params":{"revenue":1e999}})", "revenue"},
      {InputTime::real, R"({"activate":"window"})", "$.activate"},
      {InputTime::real, R"({"sleep":-1})", "$.sleep"},
      {InputTime::real, R"({"sleep":"1"})", "$.sleep"},
      {InputTime::real, R"({"reset":false})", "$.reset"},
      {InputTime::real, R"({"configure":""})", "$.configure"},
      {InputTime::real, R"({"attribution":true})", "$.attribution: a text is expected, not true"},
      {InputTime::real, R"({"attribution":"on"})", "$.attribution: \"enable\" or \"disable\" is expected"},
      {InputTime::real, R"({"subscription":1})", "$.subscription: an object is expected, not a number"},
      {InputTime::real, R"({"subscription":{"renewalInfo":{},"state":1}})", "$.subscription.transaction: is missing"},
      {InputTime::real, R"({"subscription":{"transaction":{},"renewalInfo":[],"state":1}})", "renewalInfo: an object"},
      {InputTime::real, R"({"subscription":{"transaction":{},"renewalInfo":{}}})", "$.subscription.state: is missing"},
      {InputTime::real, R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1.0}})", "a whole number"},
      {InputTime::real, R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1,"transactionVerified":0}})",
       "$.subscription.transactionVerified: true or false is expected"},
      {InputTime::real, R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1,"verified":true}})",
       "$.subscription.verified: unknown member"},
      {InputTime::script, R"({"attribution":"enable"})", "$.attribution: unknown member; only \"quillmar run\""},
      {InputTime::script, R"({"subscription":{}})", "$.subscription: unknown member; only"},
      {InputTime::real, R"({"at":"1d","event":"a"})", "$.at: unknown member"},
      {InputTime::script, R"({"sleep":1})", "$.sleep: unknown member"},
      {InputTime::script, R"({"at":"-1d","event":"a"})", "$.at"},
      {InputTime::script, R"({"at":1,"event":"a"})", "$.at: a text is expected"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    std::istringstream input(std::string("\n  \r\n") + row.line + "\r\n{\"event\":\"next\"}");
    std::ostringstream errors;
    InputLines lines(input, errors, "-", row.time);
    const auto line = lines.next();
    ASSERT_TRUE(line);
    EXPECT_EQ(std::get<EventStep>(line->step).name, "next");
    EXPECT_FALSE(lines.next());
    EXPECT_EQ(lines.badLines(), 1U);
    EXPECT_EQ(errors.str().rfind("quillmar: <stdin>:3: ", 0), 0U) << errors.str();
    EXPECT_THAT(errors.str(), HasSubstr(row.wrong));
  }
}

TEST(InputLines, keepsTheKindOfAValueAndBoundsALine) {
  std::istringstream input(R"({"event":"a","params":{"revenue":"9.90"}})"
                           "\n" +
                           std::string(2U << 20U, 'x') + "\n" + R"({"event":"b","params":{"revenue":7}})");
  std::ostringstream errors;
  InputLines lines(input, errors, "script", InputTime::real);
  EXPECT_EQ(std::get<EventStep>(lines.next()->step).params->at(ASEventParam::revenue), EventValue("9.90"));
  EXPECT_EQ(std::get<EventStep>(lines.next()->step).params->at(ASEventParam::revenue), EventValue(7));
  EXPECT_EQ(errors.str(), "quillmar: script:2: longer than 1 MiB\n");
}

TEST(InputLines, passesOnPurchasesLetterByLetter) {
  const struct {
    const char* line;
    const char* transaction;
    const char* renewalInfo;
    std::uint64_t identifier;
  } rows[] = {
      {R"({"subscription":{"transaction":{"transactionId":"7"},"renewalInfo":{},"state":1}})",
       R"({"transactionId":"7"})", "{}", 7},
      {R"( { "subscription" : {"state":1, "renewalInfo" : { "a" : "}\"{," } , "transaction":{"transactionId":18446744073709551615, "price":9.990} } } )",
       R"({"transactionId":18446744073709551615, "price":9.990})", R"({ "a" : "}\"{," })", 18446744073709551615U},
      {R"({"subscription":{"renewalInfo":{"transaction":{"no":1}},"state":1,"transact\u0069on":{"b":[1E2,{}],"b":"\/"}}})",
       R"({"b":[1E2,{}],"b":"\/"})", R"({"transaction":{"no":1}})", 0},
      {R"({"subscription":{"transaction":{"no":1},"renewalInfo":{},"state":1,"transaction":{"transactionId":"7x"}}})",
       R"({"transactionId":"7x"})", "{}", 0},
      {R"({"subscription":{"transaction":{"transactionId":-1},"renewalInfo":{},"state":1}})", R"({"transactionId":-1})",
       "{}", 0},
  };
  for (const auto& row : rows) {
    const InputLine line = parseInputLine(row.line, InputTime::real);
    const auto& update = std::get<SubscriptionStep>(line.step).update;
    EXPECT_EQ(update.transaction.jsonRepresentation, row.transaction);
    EXPECT_EQ(update.transaction.identifier, row.identifier) << row.transaction;
    EXPECT_EQ(update.renewalInfo.jsonRepresentation, row.renewalInfo);
    EXPECT_FALSE(update.transaction.verificationError || update.renewalInfo.verificationError);
    EXPECT_EQ(update.renewalState, 1);
  }
  const InputLine unverified = parseInputLine(
      R"({"subscription":{"transaction":{},"renewalInfo":{},"state":-2,"transactionVerified":false,"renewalInfoVerified":false}})",
      InputTime::real);
  const auto& update = std::get<SubscriptionStep>(unverified.step).update;
  EXPECT_EQ(update.transaction.verificationError.value().localizedDescription, "The transaction is not verified.");
  EXPECT_EQ(update.renewalInfo.verificationError.value().localizedDescription,
            "The renewal information is not verified.");
  EXPECT_EQ(update.renewalState, -2);
}

TEST(CountingTransport, countsByMethodAndPath) {
  const auto clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  CountingTransport transport(std::make_shared<simulated::InMemoryHttpTransport>(clock, nullptr));
  for (const char* url : {"http://h/a?x=/b", "http://h/a#f", "http://h/a", "http://h", "http://h?/a"}) {
    platform::HttpRequest request;
    request.url = url;
    transport.start(request, [](const platform::HttpResult&) {});
  }
  EXPECT_EQ(transport.counts(), (std::map<std::string, std::uint64_t>{{"GET /a", 3}, {"GET /", 2}}));
}

constexpr const char* configuration = R"({
  "values": [
    {"key": "Buy", "windows": {"window0": {
      "fineValue": {"value": 40, "requiredEvents": [{"name": "buy", "revenueMin": 5, "revenueMax": 10}]},
      "coarseValue": {"value": "high", "requiredEvents": [{"name": "buy"}]}}}},
    {"key": "Stay", "windows": {"window1": {"fineValue": {"value": 7, "requiredEvents": [{"name": "stay"}]}}}}],
  "lockWindows": {"window0": {"type": "time", "value": 48}}})";

class SimulateCommandTest : public testing::Test {
 protected:
  int simulate(const std::string& script, SimulateOptions options = {}) {
    options.config = writeFile(folder_ / "config.json", configuration);
    options.events = "script";
    std::istringstream input(script);
    output_.str("");
    errors_.str("");
    return SimulateCommand(options).run(input, output_, errors_);
  }

  test::TemporaryFolder folder_;
  std::ostringstream output_;
  std::ostringstream errors_;
};

TEST_F(SimulateCommandTest, livesALifeTheSameWayEachTime) {
  const std::string script = R"({"at":"1h","event":"buy","params":{"revenue":"7.5"}}
{"event":"other"}
{"at":"30m","event":"early"}
{"at":"4d","event":"stay"}
{"at":"36d","event":"late"}
{"at":"37d","event":"never"})";
  SimulateOptions options;
  options.json = true;
  EXPECT_EQ(simulate(script, options), 1);
  const std::string first = output_.str();
  EXPECT_EQ(simulate(script, options), 1);
  EXPECT_EQ(output_.str(), first);
  EXPECT_THAT(errors_.str(), HasSubstr("quillmar: script:3: $.at: 30m is earlier"));
  EXPECT_THAT(errors_.str(), HasSubstr("quillmar: script:6: $.at: 37d is behind the end"));

  std::vector<std::string> calls;
  for (const json::object& line : jsonLines(first)) {
    if (const json::value* made = line.if_contains("calls")) {
      for (const json::value& call : made->as_array()) {
        calls.push_back(std::string(line.at("at").as_string()) + " " + json::serialize(call));
      }
    }
  }
  const std::string kit = R"({"platform":"adAttributionKit","fineValue":)";
  EXPECT_THAT(calls, testing::ElementsAre(
                         "1h " + kit + R"(40,"coarseValue":"high","lockWindow":false,"at":"2026-01-01T10:00:00Z"})",
                         "1h " + kit + R"(40,"coarseValue":"high","lockWindow":false,"at":"2026-01-01T10:00:00Z"})",
                         "2d " + kit + R"(40,"coarseValue":"high","lockWindow":true,"at":"2026-01-03T09:00:00Z"})",
                         "4d " + kit + R"(7,"coarseValue":"high","lockWindow":false,"at":"2026-01-05T09:00:00Z"})"));
  const json::object final = jsonLines(first).back().at("final").as_object();
  EXPECT_EQ(final.at("windows").at_pointer("/0/lockedAt"), "2d");
  EXPECT_EQ(final.at("windows").at_pointer("/1/last/key"), "Stay");
  EXPECT_EQ(final.at("windows").at_pointer("/2/last"), nullptr);
  EXPECT_EQ(final.at("events").at("logged"), 4);
  EXPECT_EQ(final.at("requests").at("GET /ios/config"), 37);
  EXPECT_EQ(final.at("state").at("window"), nullptr);
}

TEST_F(SimulateCommandTest, ownActivationsTakeThePlaceOfTheDailyOnes) {
  EXPECT_EQ(simulate(R"({"at":"1h","event":"buy","params":{"revenue":7.5}}
{"at":"2d","activate":"scene"})"),
            0);
  EXPECT_THAT(output_.str(), HasSubstr("adAttributionKit: fine 40, coarse high, lock -> window 0 is locked"));
  EXPECT_THAT(output_.str(), HasSubstr("2 x GET /ios/config"));
}

TEST_F(SimulateCommandTest, eachSystemHasItsInterface) {
  for (const auto& [version, interface] :
       std::vector<std::pair<std::string, std::string>>{{"17.4", "skAdNetwork4: fine 40, coarse high"},
                                                        {"16.0", "skAdNetwork3: fine 40"},
                                                        {"14.5", "skAdNetwork2: fine 40"},
                                                        {"13.0", "registration"}}) {
    SCOPED_TRACE(version);
    SimulateOptions options;
    options.osVersion = version;
    EXPECT_EQ(simulate(R"({"event":"buy","params":{"revenue":7.5}})", options), 0);
    EXPECT_THAT(output_.str(), HasSubstr(interface));
  }
}

TEST_F(SimulateCommandTest, aConfigurationThatIsNotOneIsAnUnusableOption) {
  SimulateOptions options;
  options.config = writeFile(folder_ / "broken.json", R"({"values":[{}]})");
  std::istringstream input;
  try {
    SimulateCommand(options).run(input, output_, errors_);
    ADD_FAILURE() << "was accepted";
  } catch (const UsageError& error) {
    EXPECT_THAT(error.what(), HasSubstr("--config: " + options.config));
  }
}

class RunCommandTest : public testing::Test {
 protected:
  RunCommandTest() { Quillmar::resetStaticState(); }
  ~RunCommandTest() override { Quillmar::setUseMock(false); }

  int run(RunOptions options, const std::string& script) {
    options.key = "key";
    options.dataDirectory = folder_.path();
    std::istringstream input(script);
    output_.str("");
    const int status = RunCommand(options, stop_).run(input, output_, errors_);
    lines_ = jsonLines(output_.str());
    return status;
  }

  json::value summary(const char* pointer) const { return lines_.back().at("summary").at_pointer(pointer); }

  test::TemporaryFolder folder_;
  StopSignal stop_;
  std::ostringstream output_;
  std::ostringstream errors_;
  std::vector<json::object> lines_;
};

TEST_F(RunCommandTest, talksToTheEmbeddedServiceAndRemembersTheInstall) {
  EXPECT_EQ(run({}, "{\"event\":\"purchase\",\"params\":{\"revenue\":9.99}}\nnonsense\n{\"sleep\":0}\n"), 1);
  EXPECT_THAT(errors_.str(), HasSubstr("quillmar: <stdin>:2: not JSON"));
  ASSERT_EQ(lines_.size(), 2U) << output_.str();
  EXPECT_EQ(lines_[0].at("platform"), "adAttributionKit");
  EXPECT_EQ(lines_[0].at("fineValue"), 20);
  EXPECT_EQ(summary("/drained"), true);
  EXPECT_EQ(summary("/events/logged"), 1);
  EXPECT_EQ(summary("/requests/POST ~1ios~1events"), 1);
  EXPECT_EQ(summary("/state/window"), 0);

  RunOptions later;
  later.clockOffset = seconds(3 * 86400 + 60);
  later.osVersion = "14.0";
  EXPECT_EQ(run(later, "{\"event\":\"add_to_cart\"}"), 0);
  EXPECT_EQ(lines_[0].at("platform"), "skAdNetwork2");
  EXPECT_EQ(lines_[0].at("coarseValue"), nullptr);
  EXPECT_EQ(summary("/state/window"), 1);
}

TEST_F(RunCommandTest, mockModeAsksNobodyAndParksWhatComes) {
  RunOptions options;
  options.mock = true;
  EXPECT_EQ(run(options, "{\"event\":\"a\"}\n{\"event\":\"b\"}\n{\"configure\":\"other\"}\n"), 0);
  ASSERT_EQ(lines_.size(), 1U) << output_.str();
  EXPECT_EQ(summary("/events/sent"), 2);
  EXPECT_EQ(summary("/events/parked"), 2);
  EXPECT_EQ(summary("/requests"), json::object());
  EXPECT_EQ(summary("/state/appId"), nullptr);
}

std::string purchase(int identifier, bool verified = true) {
  return R"({"subscription":{"transaction":{"transactionId":)" + std::to_string(identifier) +
         R"(},"renewalInfo":{},"state":1,"renewalInfoVerified":)" + (verified ? "true}}\n" : "false}}\n");
}

TEST_F(RunCommandTest, reportsPurchasesWhileItListens) {
  EXPECT_EQ(run({}, purchase(1) + "{\"attribution\":\"enable\"}\n" + purchase(2) + purchase(3, false)), 0);
  EXPECT_EQ(json::serialize(summary("/purchases")), R"({"sent":1,"failed":0,"unverified":1,"skipped":0})");
  EXPECT_EQ(summary("/requests/POST ~1api~1v1"), 1);
  EXPECT_EQ(summary("/requests/POST ~1ios~1events"), 1);
  EXPECT_EQ(summary("/drained"), true);
  std::ifstream stored(folder_ / "documents/asa_attribution_data.json");
  EXPECT_EQ(json::parse(stored).at("campaignId"), "542370539");

  // It is stored, and so not fetched again, whatever the token.
  RunOptions later;
  later.attributionToken = "invalid-token";
  EXPECT_EQ(run(later, "{\"attribution\":\"enable\"}\n{\"attribution\":\"disable\"}\n" + purchase(4)), 0);
  EXPECT_EQ(json::serialize(summary("/purchases")), R"({"sent":0,"failed":0,"unverified":0,"skipped":0})");
  EXPECT_FALSE(lines_.back().at("summary").at("requests").as_object().contains("POST /api/v1"));
}

TEST_F(RunCommandTest, theWishToStopEndsTheInputButNotTheSummary) {
  std::thread interrupt([this] { stop_.raise(); });
  EXPECT_EQ(run({}, "{\"sleep\":86400}\n{\"event\":\"a\"}\n"), 0);
  interrupt.join();
  EXPECT_EQ(summary("/events/sent"), 0);
}

/// A stream whose first line can be waited for.
class WaitableOutput : public std::streambuf {
 public:
  std::string firstLine() {
    std::unique_lock lock(mutex_);
    written_.wait_for(lock, seconds(20), [&] { return text_.find('\n') != std::string::npos; });
    return text_.substr(0, text_.find('\n'));
  }

  std::string text() {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    const std::lock_guard lock(mutex_);
    text_.append(text, static_cast<std::size_t>(size));
    written_.notify_all();
    return size;
  }
  int_type overflow(int_type letter) override {
    const char text = traits_type::to_char_type(letter);
    return xsputn(&text, 1) == 1 ? letter : traits_type::eof();
  }

 private:
  std::mutex mutex_;
  std::condition_variable written_;
  std::string text_;
};

/// `serve` on a thread of its own. It ends with the test, however the test ends.
class Served {
 public:
  explicit Served(ServeOptions options)
      : thread_([this, options] { status_ = ServeCommand(options, stop_).run(output_, errors_); }) {}
  ~Served() { stop(); }

  std::string url() { return std::string(json::parse(buffer_.firstLine()).at("listening").as_string()); }
  std::string text() { return buffer_.text(); }

  int stop() {
    if (thread_.joinable()) {
      stop_.raise();
      thread_.join();
    }
    return status_;
  }

 private:
  StopSignal stop_;
  WaitableOutput buffer_;
  std::ostream output_{&buffer_};
  std::ostringstream errors_;
  int status_ = -1;
  std::thread thread_;
};

TEST_F(RunCommandTest, reportsToAServiceThatIsServed) {
  ServeOptions serve;
  serve.failFirst = 1;
  Served served(serve);
  RunOptions options;
  options.service = served.url();
  EXPECT_EQ(run(options, "{\"event\":\"a\"}\n"), 0);
  EXPECT_EQ(served.stop(), 0);
  // The fetch failed and will be tried again in some seconds; that is not waited for.
  EXPECT_EQ(summary("/events/parked"), 1);
  EXPECT_THAT(served.text(), HasSubstr(R"("path":"/ios/config","status":503)"));
}

TEST_F(RunCommandTest, asksTheUsersServiceForAttributionOnlyWithAToken) {
  ServeOptions serve;
  serve.attributionStatus = 404;
  Served served(serve);
  RunOptions options;
  options.service = served.url();
  const std::string script = "{\"attribution\":\"enable\"}\n" + purchase(1);
  EXPECT_EQ(run(options, script), 0);
  EXPECT_EQ(summary("/purchases/sent"), 1);
  EXPECT_THAT(served.text(), Not(HasSubstr("/api/v1")));
  options.attributionToken = "token";
  EXPECT_EQ(run(options, script), 0);
  EXPECT_EQ(summary("/purchases/sent"), 1);
  served.stop();
  EXPECT_THAT(served.text(), HasSubstr(R"("path":"/api/v1","status":404,"authorized":false,"bytes":5)"));
  EXPECT_THAT(served.text(), HasSubstr(R"("status":200,"event":"Purchase","authorized":true)"));
}

}  // namespace
}  // namespace quillmar::cli
