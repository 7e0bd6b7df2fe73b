#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "CheckCommand.h"
#include "HtmlPage.h"
#include "InputLines.h"
#include "InspectCommand.h"
#include "Options.h"
#include "RunCommand.h"
#include "ServeCommand.h"
#include "SimulateCommand.h"
#include "StopSignal.h"
#include "support/TemporaryFolder.h"

namespace quillmar::cli {
namespace {

using namespace ::testing;

std::string refusal(const std::vector<std::string>& arguments) try {
  parseCommandLine(arguments);
  return "taken";
} catch (const UsageError& error) {
  return error.what();
}

TEST(Options, refusesWhatCannotBeUsedAndNamesTheOptionAndTheValue) {
  EXPECT_THAT(refusal({}), StartsWith("a command is expected"));
  ::unsetenv("QUILLMAR_KEY");
  EXPECT_THAT(refusal({"run"}), StartsWith("run: a key is expected"));
  EXPECT_EQ(refusal({"run", "--key=k", "--key-file=-"}), "run: --key excludes --key-file");
  EXPECT_THAT(refusal({"run", "--key-file=-"}), StartsWith("run: --key-file: standard input has the events"));
  EXPECT_THAT(refusal({"run", "--key=k", "--colour=red"}), HasSubstr("--colour=red"));
  EXPECT_THAT(refusal({"serve", "--tls-cert", "/dev/null"}), HasSubstr("--tls-key"));
  const std::tuple<std::string, std::string, std::vector<std::string>> rows[] = {
      {"run", "--clock-offset", {"", "-", "5", "2h3d", "1h1h", "1.5h", "--1h", "1h-2m", " 1h", "1H", "36526d"}},
      {"run", "--drain-timeout", {"-1", "nan", "1s"}},
      {"run", "--os-version", {"17.", "17..1", "iOS"}},
      {"simulate", "--window-hours", {"48", "48,120", "0,1,1", "1,2,3,4", "-1,2,3"}},
      {"run", "--events", {"/nowhere/events", "/"}},
      {"run", "--data", {"", "/dev/null"}},
      {"run", "--key", {""}},
      {"run", "--key-file", {"/nowhere/key", "/dev/null", "/"}},
      {"run", "--service", {"ftp://localhost", "http://example.com", "http://127.0.0.1.example.com", "https://"}},
      {"run", "--service", {"http://localhost@example.com", "http://localhost:80@example.com", "https://a.b/api"}},
      {"run", "--service", {"http://128.0.0.1", "http://localhost:0", "http://localhost:65536", "http://[::2]:80"}},
      {"run", "--max-queued", {"0", "-1", "x"}},
      {"run", "--drop", {"old"}},
      {"serve", "--port", {"65536", "-1", "80x"}},
  };
  for (const auto& [command, option, values] : rows) {
    for (const std::string& value : values) {
      EXPECT_THAT(refusal({command, option, value}),
                  AllOf(StartsWith(command + ": " + option + ": "), HasSubstr(value), Not(HasSubstr("\n"))));
    }
  }
}

TEST(Options, takesWhatIsMeant) {
  const auto run = [](const std::string& option, const std::string& value) {
    return std::get<RunOptions>(parseCommandLine({"run", "--key=k", option, value}));
  };
  for (const std::string url : {"http://LOCALHOST:1", "http://127.9.9.9", "http://[::1]:80", "https://[2001:db8::1]"}) {
    EXPECT_EQ(run("--service", url + "/").service, url);
  }
  const test::TemporaryFolder folder;
  std::ofstream(folder / "key") << "of file\r\nmore";
  const auto keyOf = [](const std::string& option) {
    return std::get<RunOptions>(parseCommandLine({"run", option})).key;
  };
  ::setenv("QUILLMAR_KEY", "of environment", 1);
  EXPECT_EQ(keyOf("--mock"), "of environment");
  EXPECT_EQ(keyOf("--key-file=" + (folder / "key")), "of file");
  EXPECT_EQ(keyOf("--key=k"), "k");
  ::unsetenv("QUILLMAR_KEY");
  EXPECT_EQ(run("--drop", "newest").library.limits.drop, QuillmarLimits::Drop::newest);
  EXPECT_EQ(run("--max-event-bytes", "7").library.limits.eventBytes, 7u);
  EXPECT_EQ(run("--drain-timeout", "0.25").drainTimeout, std::chrono::milliseconds(250));
  for (const auto& [text, length] : {std::pair("3d2h", 266400), {"-1h30m", -5400}, {"+90s", 90}, {"1d1h1m1s", 90061}}) {
    EXPECT_EQ(run("--clock-offset", text).clockOffset, std::chrono::seconds(length));
  }
  EXPECT_THAT(std::get<Information>(parseCommandLine({"run", "--help"})).text,
              AllOf(HasSubstr("--clock-offset"), HasSubstr("{\"sleep\":0.5}")));
}

TEST(InputLines, reportsBadLinesAndKeepsTheGoodOnes) {
  const struct {
    std::string line;
    const char* wrong;
    InputTime time = InputTime::real;
  } rows[] = {
      {R"({"event":"a"} x)", "not JSON"},
      {std::string(2U << 20U, 'x'), "longer than 1 MiB"},
      {"{\"event\":\"a\",\"\\u001b\\n\":1}", "$.\\u001b\\n: unknown member"},
      {R"({"event":"a","reset":true})", "$.reset: a line is one step"},
      {R"({"event":"a","params":{"revenue":true}})", "$.params.revenue: a number or a text"},
      {R"({"subscription":{"renewalInfo":{},"state":1}})", "$.subscription.transaction: is missing"},
      {R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1.0}})", "a whole number"},
      {R"({"at":"1d","event":"a"})", "$.at: unknown member"},
      {R"({"subscription":{}})", "$.subscription: unknown member; only \"quillmar run\"", InputTime::script},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wrong);
    std::istringstream input("\n  \r\n" + row.line + "\n{\"event\":\"a\",\"params\":{\"revenue\":\"9.90\"}}");
    std::ostringstream errors;
    InputLines lines(input, errors, "-", row.time);
    const auto line = lines.next();
    ASSERT_TRUE(line);
    EXPECT_EQ(std::get<EventStep>(line->step).params->at(ASEventParam::revenue), EventValue("9.90"));
    EXPECT_FALSE(lines.next());
    EXPECT_EQ(lines.badLines(), 1U);
    EXPECT_THAT(errors.str(), AllOf(StartsWith("quillmar: <stdin>:3: "), HasSubstr(row.wrong)));
  }
}

const std::string suiteName = "tech.quill-mar.quillmaruserdefaults";

constexpr const char* configuration = R"({
  "values": [
    {"key": "Buy", "windows": {"window0": {
      "fineValue": {"value": 40, "requiredEvents": [{"name": "buy", "revenueMin": 5, "revenueMax": 10}]},
      "coarseValue": {"value": "high", "requiredEvents": [{"name": "buy"}]}}}},
    {"key": "Stay", "windows": {"window1": {"fineValue": {"value": 7, "requiredEvents": [{"name": "stay"}]}}}}],
  "lockWindows": {"window0": {"type": "time", "value": 48}}})";

TEST(SimulateCommand, livesALifeTheSameWayEachTime) {
  const test::TemporaryFolder folder;
  SimulateOptions options{.config = folder / "config.json", .events = "script"};
  options.health = true;
  std::ofstream(options.config) << configuration;
  std::ostringstream errors;
  const auto simulate = [&] {
    std::istringstream input(R"({"at":"1h","event":"buy","params":{"revenue":"7.5"}}
{"at":"30m","event":"early"}
{"at":"4d","event":"stay"}
{"at":"4d","event":"\n\u001b"}
{"at":"36d","event":"late"}
{"at":"37d","event":"never"})");
    std::ostringstream output;
    EXPECT_EQ(SimulateCommand(options).run(input, output, errors), 1);
    return output.str();
  };
  const auto table = [](auto... lines) { return AllOf(ContainsRegex(lines)...); };
  EXPECT_THAT(
      simulate(),
      table("2d +0 \\(1\\) +.app becomes active. +adAttributionKit: fine 40, coarse high, lock +accepted, locks "
            "window 1: only a coarse value counts here\n",
            "4d +1 +stay +Stay +adAttributionKit: fine 7, coarse high +ignored: the window is locked\n",
            "4d +1 +.n.u001b", "1 +window at 2d +3d and 4d +no value +coarse high +fine 40 +fine 40\n",
            "2 +lock at 2d +3d and 8d +- +coarse high +coarse high +coarse high\n",
            "Events ended +4 logged\nLast logged +late at 2026-02-06T09:00:00Z\n"));
  EXPECT_THAT(errors.str(), AllOf(HasSubstr("quillmar: script:2: $.at: 30m is earlier"),
                                  HasSubstr("quillmar: script:6: $.at: 37d is after the end")));
  options.json = true;
  const std::string lines = simulate();
  EXPECT_EQ(simulate(), lines);
  const std::string kit = R"([{"platform":"adAttributionKit","fineValue":)";
  EXPECT_THAT(lines,
              AllOf(HasSubstr(kit + R"(40,"coarseValue":"high","lockWindow":false,"at":"2026-01-01T10:00:00Z",)" +
                              R"("verdict":"accepted","reason":null}])"),
                    HasSubstr(kit + R"(40,"coarseValue":"high","lockWindow":true,"at":"2026-01-03T09:00:00Z",)" +
                              R"("verdict":"accepted","reason":"coarseHalfOnly"}])"),
                    HasSubstr(kit + R"(7,"coarseValue":"high","lockWindow":false,"at":"2026-01-05T09:00:00Z",)" +
                              R"("verdict":"ignored","reason":"windowLocked"}])"),
                    HasSubstr(R"({"postback":{"ad":"aak","index":0,"tier":2,"fineValue":40,"coarseValue":null,)"
                              R"("finalizedBy":"window","earliest":"3d","latest":"4d"}})")));
  EXPECT_THAT(lines.substr(lines.find("{\"final\":")),
              AllOf(HasSubstr(R"("lockedAt":"2d")"), HasSubstr(R"("key":"Stay")"), HasSubstr(R"("last":null)"),
                    HasSubstr(R"("logged":4)"), HasSubstr(R"("GET /ios/config":37)"), HasSubstr("\n{\"health\":{"),
                    HasSubstr(R"("lastLogged":{"event":"late",)")));
  std::ofstream(options.config) << R"({"values":[{}]})";
  EXPECT_THAT(simulate, ThrowsMessage<UsageError>(HasSubstr("--config: " + options.config)));
}

TEST(CheckCommand, tellsByItsStatusAndInBothForms) {
  const auto check = [](const std::string& text, bool json = false) {
    std::istringstream input(text);
    std::ostringstream output;
    const int status = CheckCommand({.config = "-", .json = json}).run(input, output);
    return std::to_string(status) + "\n" + output.str();
  };
  EXPECT_EQ(check(R"({"values":[],"lockWindows":{}})"), "0\n0 errors, 0 warnings, 0 notes\n");
  EXPECT_THAT(check(configuration),
              AllOf(StartsWith("1\n"), HasSubstr("\n<stdin>:3: warning: The fine and the coarse "),
                    HasSubstr(" [half-complete]\n    $.values[0].windows.window0: Let both ")));
  EXPECT_THAT(check("{\n", true), StartsWith(R"(2
{"finding":{"code":"unusable","severity":"error","path":"$","line":2,"message":"The library refuses the whole )"));
  EXPECT_THAT(check(R"({"lockWindows":{},"values":[{"key":"a","windows":{"\u001b[1m":{}}}]})"),
              AllOf(HasSubstr("\\u001b[1m"), Not(HasSubstr("\x1b"))));
  const std::string rule =
      R"({"key":"first","windows":{"window1":{"coarseValue":{"value":"low","requiredEvents":[]}}}})";
  EXPECT_THAT(
      check("{\"lockWindows\":{},\"values\":[" + rule + "," + rule + "]}", true),
      AllOf(HasSubstr(R"("code":"unreachable","severity":"error","path":"$.values[1].windows.window1","line":1,)"),
            HasSubstr(R"("shadowedBy":"first"}})"),
            EndsWith("{\"summary\":{\"errors\":1,\"warnings\":3,\"notes\":3}}\n")));
}

TEST(SimulateCommand, tellsWhyInWordsAsJsonAndOnAPageWhereNamesStayNames) {
  const test::TemporaryFolder folder;
  SimulateOptions options{.config = folder / "config.json", .events = "-", .days = 4};
  options.explain = true;
  options.html = folder / "life.html";
  std::string hostile = configuration;
  hostile.replace(hostile.find("Buy"), 3, "</script><img onerror>");
  std::ofstream(options.config) << hostile;
  const auto simulate = [&] {
    std::istringstream input(R"({"at":"1h","event":"buy","params":{"revenue":4}})");
    std::ostringstream output;
    EXPECT_EQ(SimulateCommand(options).run(input, output, output), 0);
    return output.str();
  };
  const std::string words =
      "rule </script><img onerror> (fine 40, coarse high) is complete by its coarse half; buy: 4 seen, 5 to 10 wanted";
  EXPECT_THAT(simulate(), AllOf(HasSubstr("| " + words + "\n"), HasSubstr("| chosen: </script><img onerror>\n"),
                                HasSubstr("| sent through adAttributionKit; the platform answered with success\n")));
  std::ostringstream page;
  page << std::ifstream(options.html).rdbuf();
  EXPECT_THAT(page.str(), AllOf(HasSubstr(escaped(words)), HasSubstr("<td>3d and 4d</td>"), Not(HasSubstr("<img"))));
  options.json = true;
  EXPECT_THAT(simulate(), HasSubstr(R"({"decision":{"event":"buy","window":0,"rules":[{"key":"</script><img onerror>",)"
                                    R"("complete":true,"fineValue":40,"fineComplete":false,"coarseValue":"high",)"
                                    R"("coarseComplete":true,"missing":["buy: 4 seen, 5 to 10 wanted"]}],)"));
  options.html = "/nowhere/page";
  EXPECT_THAT(simulate, ThrowsMessage<UsageError>(HasSubstr("--html: cannot write /nowhere/page")));
  writeConfiguration(page, {{insight::Severity::error, "code", "$", 2, "\"<\"", "&", {}}}, "a\r\n<b\t>");
  EXPECT_THAT(page.str(), AllOf(HasSubstr("error [code]: &quot;&lt;&quot; &amp; <a href=\"#line-2\">line 2</a>"),
                                HasSubstr("<span id=\"line-2\">&lt;b &gt;</span>")));
}

TEST(RunCommand, livesWithAServiceOfItsOwnAndWithOneThatIsServed) {
  Quillmar::resetStaticState();
  const test::TemporaryFolder folder;
  std::ostringstream errors;
  StopSignal stop;
  RunOptions options{.key = "key", .dataDirectory = folder.path(), .explain = true};
  const auto run = [&](const std::string& script, int status = 0) {
    std::istringstream input(script);
    std::ostringstream output;
    EXPECT_EQ(RunCommand(options, stop).run(input, output, errors), status);
    return output.str();
  };
  EXPECT_THAT(run("{\"event\":\"purchase\",\"params\":{\"revenue\":9.99}}\nnonsense\n{\"sleep\":0}\n", 1),
              AllOf(HasSubstr(R"({"platform":"adAttributionKit","fineValue":20,"coarseValue":"medium",)"),
                    HasSubstr("}\n{\"summary\":{\"drained\":true,\"events\":{\"sent\":1,\"dropped\":0,\"parked\":0,"
                              "\"logged\":1,\"failed\":0},"),
                    HasSubstr(R"("requests":{"GET /ios/config":1,"POST /ios/events":1},"state":{"window":0,)"),
                    HasSubstr(R"("interface":"adAttributionKit","answer":"success","error":null,"outcome":"sent"}})"),
                    HasSubstr(R"("badLines":1}})")));
  EXPECT_THAT(errors.str(), HasSubstr("quillmar: <stdin>:2: not JSON"));

  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  StopSignal end;
  std::ostringstream warnings;
  std::ofstream(options.dataDirectory + "/config") << configuration;
  std::thread serving([&] {
    std::ofstream output(pipe);
    ServeCommand({.config = options.dataDirectory + "/config", .failFirst = 1}, end).run(output, warnings);
  });
  // Not a stream, which waits for a whole buffer in some standard libraries.
  const std::unique_ptr<FILE, int (*)(FILE*)> served(std::fopen(pipe.c_str(), "r"), std::fclose);
  char line[100];
  ASSERT_NE(std::fgets(line, sizeof line, served.get()), nullptr);
  options.service = std::string(line + 14, std::strlen(line) - 17);
  options.clockOffset = std::chrono::hours(73);
  const std::string purchase = R"({"subscription":{"transaction":{},"renewalInfo":{},"state":1)";
  const std::string script = purchase + "}}\n{\"attribution\":\"enable\"}\n" + purchase + "}}\n" + purchase +
                             ",\"transactionVerified\":false}}\n";
  // The fetch failed and will be tried again in some seconds; that is not waited for. Nor is there a token.
  EXPECT_THAT(run("{\"event\":\"a\"}\n" + script),
              AllOf(HasSubstr(R"("parked":1)"), HasSubstr(R"("window":1)"), Not(HasSubstr("POST /api/v1"))));
  options.attributionToken = "token";
  EXPECT_THAT(run(script), HasSubstr(R"("purchases":{"sent":1,"failed":0,"unverified":1,"skipped":0})"));

  std::thread interrupt([&] { stop.raise(); });
  EXPECT_THAT(run("{\"sleep\":86400}\n{\"event\":\"a\"}"), HasSubstr(R"("events":{"sent":0,)"));
  interrupt.join();
  end.raise();
  serving.join();
  EXPECT_THAT(warnings.str(), AllOf(HasSubstr("/config:3: warning: "), Not(HasSubstr(": note: "))));
  std::string rest;
  while (std::fgets(line, sizeof line, served.get()) != nullptr) {
    rest += line;
  }
  EXPECT_THAT(rest, AllOf(HasSubstr(R"("path":"/ios/config","status":503)"),
                          HasSubstr(R"("path":"/api/v1","status":200,"authorized":false,"bytes":5)"),
                          HasSubstr(R"("status":200,"event":"Purchase","authorized":true)")));
}

std::map<std::string, std::string> contents(const std::string& folder) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::ifstream file(entry.path());
    contents[entry.path()] = entry.is_regular_file() ? std::string(std::istreambuf_iterator<char>(file), {}) : "";
  }
  return contents;
}

TEST(InspectCommand, tellsOfAnInstallWithoutTouchingIt) {
  const test::TemporaryFolder folder;
  const test::TemporaryFolder pages;
  const std::string page = pages / "page";
  const auto inspect = [&](int status, bool json = false) {
    const auto before = contents(folder.path());
    std::ostringstream output;
    EXPECT_EQ(InspectCommand({.dataDirectory = folder.path(), .json = json, .html = page}).run(output), status);
    EXPECT_EQ(contents(folder.path()), before);
    return output.str();
  };
  EXPECT_THAT(inspect(1), HasSubstr("problem: There is no settings file"));
  platform::DefaultPlatformOptions options;
  options.dataDirectory = folder.path();
  {
    // Of a running host: what was written last is in the log beside the file.
    const auto settings = platform::makeDefaultPlatform(options).userDefaults->openSuite(suiteName);
    ASSERT_FALSE(settings->set("QuillmarId", "the-\x1b-<b>"));
    ASSERT_FALSE(settings->set("QuillmarFirstRunDate", std::chrono::system_clock::now()));
    std::filesystem::create_directories(folder / "documents/Quillmar");
    std::ofstream(folder / "documents/Quillmar/quill-mar-conv-val.json") << configuration;
    EXPECT_THAT(inspect(0),
                AllOf(HasSubstr("Install          the-\\u001b-<b>\n"), HasSubstr("2 rules, fetched never"),
                      HasSubstr(":3: warning: The fine and"), HasSubstr("Next event       any other: nothing"),
                      HasSubstr("\"buy\": rule \"Buy\", fine 40, coarse high")));
    EXPECT_THAT(contents(pages.path())[page],
                AllOf(HasSubstr("An install on day 0"), HasSubstr("the-\\u001b-&lt;b&gt;"), Not(HasSubstr("<b>")),
                      HasSubstr("&quot;buy&quot;</th><td>rule &quot;Buy&quot;, fine 40, coarse high</td>"),
                      HasSubstr("fetched never"), HasSubstr(">now</text>"), HasSubstr("#line-3\">line 3</a>")));
    EXPECT_THAT(inspect(0, true), AllOf(StartsWith("{\"install\":{\"identifier\":\"the-\\u001b-<b>\","),
                                        HasSubstr("\"code\":\"half-complete\""), HasSubstr("\"problems\":[]")));
  }
  const std::string file = folder / ("settings/" + suiteName + ".sqlite");
  std::filesystem::remove(file + "-wal");
  std::ofstream(file) << std::string(4096, 'x');
  EXPECT_THAT(inspect(1), HasSubstr("problem: The settings file " + file + " cannot be used: file is not a database."));
  EXPECT_THAT(contents(pages.path())[page], HasSubstr("cannot be used: file is not a database.</li>"));
}

}  // namespace
}  // namespace quillmar::cli
