#include <gmock/gmock.h>
#include <sys/stat.h>

#include <boost/json.hpp>
#include <fstream>
#include <sstream>
#include <thread>

#include "Duration.h"
#include "InputLines.h"
#include "Options.h"
#include "RunCommand.h"
#include "ServeCommand.h"
#include "SimulateCommand.h"
#include "StopSignal.h"
#include "support/TemporaryFolder.h"

namespace quillmar::cli {
namespace {

namespace json = boost::json;
using std::chrono::seconds;
using namespace ::testing;

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

TEST(Duration, readsAndWritesOneForm) {
  const std::tuple<const char*, int, const char*> rows[] = {{"3d2h", 266400, "3d2h"}, {"-1h30m", -5400, "-1h30m"},
                                                            {"+90s", 90, "1m30s"},    {"0s", 0, "0s"},
                                                            {"24h", 86400, "1d"},     {"1d1h1m1s", 90061, "1d1h1m1s"}};
  for (const auto& [text, length, written] : rows) {
    ASSERT_EQ(parseDuration(text), seconds(length)) << text;
    EXPECT_EQ(formatDuration(seconds(length)), written);
  }
  for (const char* text : {"", "-", "5", "d", "2h3d", "1h1h", "1.5h", "--1h", "1h-2m", " 1h", "1H", "36526d"}) {
    EXPECT_FALSE(parseDuration(text)) << text;
  }
}

using Arguments = std::vector<std::string>;

TEST(Options, refusesWhatCannotBeUsedAndNamesTheOption) {
  const std::pair<Arguments, const char*> rows[] = {
      {{}, "a command is missing: "},
      {{"walk"}, "walk: "},
      {{"run"}, "run: --key: is missing"},
      {{"run", "--key", ""}, "run: --key: "},
      {{"run", "--key"}, "run: --key: the value is missing"},
      {{"run", "--colour=red"}, "run: --colour: "},
      {{"run", "-x"}, "run: -x: "},
      {{"run", "--mock=1"}, "run: --mock: takes no value"},
      {{"run", "extra"}, "run: extra: "},
      {{"serve", "--tls-cert", "/dev/null"}, "serve: --tls-key: is missing"},
      {{"simulate", "--config", "/dev/null"}, "simulate: --events: is missing"},
  };
  for (const auto& [arguments, start] : rows) {
    EXPECT_THAT([&] { parseCommandLine(arguments); }, ThrowsMessage<UsageError>(StartsWith(start)));
  }
  const std::tuple<std::string, std::string, Arguments> options[] = {
      {"run", "--clock-offset", {"3x"}},
      {"run", "--drain-timeout", {"-1", "nan"}},
      {"run", "--os-version", {"17.", "17..1", "iOS"}},
      {"run", "--log-level", {"Debug"}},
      {"run", "--events", {"/nowhere/events"}},
      {"run", "--ca-file", {"/"}},
      {"run", "--data", {"", "/dev/null"}},
      {"run",
       "--service",
       {"ftp://localhost", "http://example.com", "http://128.0.0.1", "http://127.0.0.1.example.com",
        "http://localhost@example.com", "http://localhost:80@example.com", "http://localhost:0", "http://[::2]:80",
        "http://[::1", "https://", "https://example.com/api"}},
      {"run", "--attribution-service", {"http://example.com"}},
      {"run", "--attribution-token", {""}},
      {"serve", "--port", {"65536"}},
      {"serve", "--attribution-status", {"201"}},
      {"serve", "--status", {"20x"}},
      {"serve", "--fail-first", {"-1"}},
      {"simulate", "--days", {"0"}},
  };
  for (const auto& [command, option, values] : options) {
    for (const std::string& value : values) {
      EXPECT_THAT([&] { parseCommandLine({command, option, value}); },
                  ThrowsMessage<UsageError>(AllOf(StartsWith(command + ": " + option + ": "), Not(HasSubstr("\n")))))
          << value;
    }
  }
}

TEST(Options, takesWhatIsMeant) {
  const auto run = [](Arguments more) {
    more.insert(more.begin(), {"run", "--key=k"});
    return std::get<RunOptions>(parseCommandLine(more));
  };
  EXPECT_EQ(run({"--service", "http://127.9.9.9:8080/"}).service, "http://127.9.9.9:8080");
  for (const char* url : {"http://LOCALHOST:1", "http://[::1]:80", "https://example.com", "https://[2001:db8::1]"}) {
    EXPECT_EQ(run({"--service", url}).service, url);
  }
  EXPECT_EQ(run({"--drain-timeout", "0.25"}).drainTimeout, std::chrono::milliseconds(250));
  EXPECT_EQ(run({"--log-level", "info"}).logLevel, LogLevel::info);
  EXPECT_TRUE(run({"--mock"}).mock);
  EXPECT_THAT(std::get<Information>(parseCommandLine({"serve", "--help"})).text, HasSubstr("no production service"));
}

TEST(InputLines, reportsBadLinesAndGoesOnWithTheKindsOfValuesKept) {
  const struct {
    std::string line;
    const char* wrong;
    InputTime time = InputTime::real;
  } rows[] = {
      {R"({"event":"a"} x)", "not JSON"},
      {std::string(2U << 20U, 'x'), "longer than 1 MiB"},
      {"[]", "an object is expected, not an array"},
      {"{}", "one of \"event\""},
      {R"({"event":1})", "$.event: a text is expected, not a number"},
      {R"({"event":"a","colour":1})", "$.colour: unknown member"},
      {R"({"event":"a","reset":true})", "$.reset: a line is one step"},
      {R"({"reset":true,"params":{}})", "$.params: unknown member"},
      {R"({"event":"a","params":[]})", "$.params: an object is expected"},
      {R"({"event":"a","params":{"Revenue":1}})", "$.params.Revenue: unknown parameter"},
      {R"({"event":"a","params":{"revenue":true}})", "$.params.revenue: a number or a text"},
      {R"({"activate":"window"})", "$.activate"},
      {R"({"reset":false})", "$.reset"},
      {R"({"attribution":"on"})", "$.attribution: \"enable\" or \"disable\" is expected"},
      {R"({"subscription":1})", "$.subscription: an object is expected, not a number"},
      {R"({"subscription":{"renewalInfo":{},"state":1}})", "$.subscription.transaction: is missing"},
      {R"({"subscription":{"transaction":{},"renewalInfo":[],"state":1}})", "renewalInfo: an object"},
      {R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1.0}})", "a whole number"},
      {R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1,"transactionVerified":0}})", "true or false"},
      {R"({"subscription":{"verified":true}})", "$.subscription.verified: unknown member"},
      {R"({"at":"1d","event":"a"})", "$.at: unknown member"},
      {R"({"subscription":{}})", "$.subscription: unknown member; only \"quillmar run\"", InputTime::script},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wrong);
    std::istringstream input("\n  \r\n" + row.line + R"(
{"event":"a","params":{"revenue":"9.90"}}
{"event":"a","params":{"revenue":7}})");
    std::ostringstream errors;
    InputLines lines(input, errors, "-", row.time);
    for (const EventValue& revenue : {EventValue("9.90"), EventValue(7)}) {
      const auto line = lines.next();
      ASSERT_TRUE(line);
      EXPECT_EQ(std::get<EventStep>(line->step).params->at(ASEventParam::revenue), revenue);
    }
    EXPECT_FALSE(lines.next());
    EXPECT_EQ(lines.badLines(), 1U);
    EXPECT_THAT(errors.str(), AllOf(StartsWith("quillmar: <stdin>:3: "), HasSubstr(row.wrong)));
  }
}

TEST(InputLines, passesOnPurchasesLetterByLetter) {
  const struct {
    const char* line;
    const char* transaction;
    const char* renewalInfo;
    std::uint64_t identifier;
    bool verified = true;
  } rows[] = {
      {R"({"subscription":{"transaction":{"transactionId":"7"},"renewalInfo":{},"state":-2,"transactionVerified":false,"renewalInfoVerified":false}})",
       R"({"transactionId":"7"})", "{}", 7, false},
      {R"( { "subscription" : {"state":-2, "renewalInfo" : { "a" : "}\"{," } , "transaction":{"transactionId":18446744073709551615, "price":9.990} } } )",
       R"({"transactionId":18446744073709551615, "price":9.990})", R"({ "a" : "}\"{," })", 18446744073709551615U},
      {R"({"subscription":{"renewalInfo":{"transaction":{"no":1}},"state":-2,"transact\u0069on":{"b":[1E2,{}],"transactionId":-1,"b":"\/"}}})",
       R"({"b":[1E2,{}],"transactionId":-1,"b":"\/"})", R"({"transaction":{"no":1}})", 0},
      {R"({"subscription":{"transaction":{"no":1},"renewalInfo":{},"state":-2,"transaction":{"transactionId":"7x"}}})",
       R"({"transactionId":"7x"})", "{}", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.transaction);
    const InputLine line = parseInputLine(row.line, InputTime::real);
    const auto& [transaction, renewalInfo, state] = std::get<SubscriptionStep>(line.step).update;
    EXPECT_EQ(transaction.jsonRepresentation, row.transaction);
    EXPECT_EQ(transaction.identifier, row.identifier);
    EXPECT_EQ(renewalInfo.jsonRepresentation, row.renewalInfo);
    EXPECT_NE(transaction.verificationError.has_value(), row.verified);
    EXPECT_NE(renewalInfo.verificationError.has_value(), row.verified);
    EXPECT_EQ(state, -2);
  }
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
    if (const json::value* made = line.if_contains("calls"); made != nullptr && !made->as_array().empty()) {
      calls.push_back(json::serialize(line.at("at")) + json::serialize(*made));
    }
  }
  const std::string kit = R"({"platform":"adAttributionKit","fineValue":)";
  const std::string bought = kit + R"(40,"coarseValue":"high","lockWindow":false,"at":"2026-01-01T10:00:00Z"})";
  EXPECT_THAT(
      calls,
      ElementsAre("\"1h\"[" + bought + "]", "\"1h\"[" + bought + "]",
                  "\"2d\"[" + kit + R"(40,"coarseValue":"high","lockWindow":true,"at":"2026-01-03T09:00:00Z"}])",
                  "\"4d\"[" + kit + R"(7,"coarseValue":"high","lockWindow":false,"at":"2026-01-05T09:00:00Z"}])"));
  const json::object final = jsonLines(first).back().at("final").as_object();
  EXPECT_EQ(final.at("windows").at_pointer("/0/lockedAt"), "2d");
  EXPECT_EQ(final.at("windows").at_pointer("/1/last/key"), "Stay");
  EXPECT_EQ(final.at("windows").at_pointer("/2/last"), nullptr);
  EXPECT_EQ(final.at("events").at("logged"), 4);
  EXPECT_EQ(final.at("requests").at("GET /ios/config"), 37);
  EXPECT_EQ(final.at("state").at("window"), nullptr);
}

TEST_F(SimulateCommandTest, theTableTellsWhatEachSystemWasToldAtOwnActivationsOnly) {
  const std::pair<const char*, const char*> rows[] = {
      {"18.0", "adAttributionKit: fine 40, coarse high, lock -> window 0 is locked"},
      {"16.0", "skAdNetwork3: fine 40"},
      {"13.0", "registration"}};
  for (const auto& [version, told] : rows) {
    SimulateOptions options;
    options.osVersion = version;
    EXPECT_EQ(simulate(R"({"event":"buy","params":{"revenue":7.5}}
{"at":"2d","activate":"scene"})",
                       options),
              0);
    EXPECT_THAT(output_.str(), AllOf(HasSubstr(told), HasSubstr("2 x GET /ios/config"))) << version;
  }
}

TEST_F(SimulateCommandTest, aConfigurationThatIsNotOneIsAnUnusableOption) {
  SimulateOptions options;
  options.config = writeFile(folder_ / "broken.json", R"({"values":[{}]})");
  std::istringstream input;
  EXPECT_THAT([&] { SimulateCommand(options).run(input, output_, errors_); },
              ThrowsMessage<UsageError>(HasSubstr("--config: " + options.config)));
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

  // It is stored, and so not fetched again.
  EXPECT_EQ(run({}, "{\"attribution\":\"enable\"}\n{\"attribution\":\"disable\"}\n" + purchase(4)), 0);
  EXPECT_EQ(json::serialize(summary("/purchases")), R"({"sent":0,"failed":0,"unverified":0,"skipped":0})");
  EXPECT_FALSE(summary("/requests").as_object().contains("POST /api/v1"));
}

TEST_F(RunCommandTest, theWishToStopEndsTheInputButNotTheSummary) {
  std::thread interrupt([this] { stop_.raise(); });
  EXPECT_EQ(run({}, "{\"sleep\":86400}\n{\"event\":\"a\"}\n"), 0);
  interrupt.join();
  EXPECT_EQ(summary("/events/sent"), 0);
}

TEST_F(RunCommandTest, reportsToAServiceThatIsServedAndAsksItForAttributionOnlyWithAToken) {
  ServeOptions serve;
  serve.failFirst = 1;
  serve.attributionStatus = 404;
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  StopSignal end;
  std::thread serving([&] {
    std::ofstream output(pipe);
    EXPECT_EQ(ServeCommand(serve, end).run(output, errors_), 0);
  });
  std::ifstream served(pipe);
  std::string listening;
  std::getline(served, listening);
  RunOptions options;
  options.service = json::parse(listening).at("listening").as_string();

  const std::string script = "{\"event\":\"a\"}\n{\"attribution\":\"enable\"}\n" + purchase(1);
  EXPECT_EQ(run(options, script), 0);
  // The fetch failed and will be tried again in some seconds; that is not waited for.
  EXPECT_EQ(summary("/events/parked"), 1);
  EXPECT_FALSE(summary("/requests").as_object().contains("POST /api/v1"));
  options.attributionToken = "token";
  EXPECT_EQ(run(options, script), 0);
  EXPECT_EQ(summary("/purchases/sent"), 1);
  end.raise();
  serving.join();
  EXPECT_THAT((std::ostringstream() << served.rdbuf()).str(),
              AllOf(HasSubstr(R"("path":"/ios/config","status":503)"),
                    HasSubstr(R"("path":"/api/v1","status":404,"authorized":false,"bytes":5)"),
                    HasSubstr(R"("status":200,"event":"Purchase","authorized":true)")));
}

}  // namespace
}  // namespace quillmar::cli
