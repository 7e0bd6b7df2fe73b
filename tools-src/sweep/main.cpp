#include <fmt/format.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <tuple>

#include "Install.h"
#include "quillmar/Config.h"
#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"
#include "support/TemporaryFolder.h"

namespace quillmar::sweep {

namespace {

namespace fs = std::filesystem;

constexpr const char* preparingKey = "earlier-key";
constexpr const char* sweptKey = "swept-key";
constexpr const char* laterKey = "later-key";
constexpr const char* grantConsent = "{\"consent\":\"grant\"}\n";
constexpr const char* revokeConsent = "{\"consent\":\"revoke\"}\n";
constexpr const char* enable = "{\"attribution\":\"enable\"}\n";

std::string event(const std::string& name) {
  return "{\"event\":\"" + name + "\"}\n";
}

/// `count` events with `between` after each. With `enable`, which waits for what is in flight, they are stored one
/// after the other.
std::string events(const std::string& prefix, int count, const std::string& between = "") {
  std::string lines;
  for (int i = 1; i <= count; ++i) {
    lines += event(prefix + std::to_string(i)) + between;
  }
  return lines;
}

struct Path {
  const char* name;
  const char* folder;
  std::string script;
  bool resets = false;
  const char* option = nullptr;  ///< of the command
};

constexpr const char* liveAttribution = "--live-attribution";
constexpr const char* comparing = "--skip-repeated-updates";
constexpr const char* forgetting = "--history-days=36";

/// In a "long" folder, some more events let the store put segments together; in a "merged" one they have done so. In an
/// "aged" one, all events but the last are old. With `only`, those whose names have it.
std::vector<Path> paths(const char* longFolder, const std::string& only) {
  std::vector<Path> result{{"single events", longFolder, events("single-", 6, enable)},
                           {"history by age", "aged", event("session"), false, forgetting}};
  for (const char* folder : {"fresh", "used"}) {
    result.push_back({"start", folder, ""});
    result.push_back({"events", folder, events("plain-", 4)});
    result.push_back({"window value", folder, event("session") + event("view_item") + event("add_to_cart")});
    result.push_back({"attribution", folder, enable});
    result.push_back({"live attribution", folder, enable, false, liveAttribution});
    result.push_back({"window value, comparing", folder, event("session") + event("add_to_cart"), false, comparing});
    result.push_back(
        {"reset", folder,
         events("early-", 2) + enable + "{\"reset\":true}\n{\"configure\":\"" + sweptKey + "\"}\n" + events("late-", 2),
         true});
  }
  std::erase_if(result, [&only](const Path& path) { return std::string(path.name).find(only) == std::string::npos; });
  return result;
}

/// A service that outlives the runs and knows what it got from them.
class Service {
 public:
  Service() : service_({}, [this](const auto& request) { return answer(request); }) { service_.start(); }

  std::string url() const { return service_.url(); }
  /// The identifiers under which each event came since the last call.
  std::map<std::string, std::vector<std::string>> received() {
    const std::lock_guard lock(mutex_);
    return std::exchange(received_, {});
  }

  std::atomic<int> delay{0};  ///< of its answers to events, in milliseconds

 private:
  service::ServiceAnswer answer(const service::ServiceRequest& request) {
    service::ServiceAnswer answer = logic_.handle(request);
    if (answer.event && answer.status == 200) {
      const std::lock_guard lock(mutex_);
      received_[*answer.event].emplace_back(boost::json::parse(request.body).at("event_id").as_string());
      answer.delay = std::chrono::milliseconds(delay);
    }
    return answer;
  }

  std::mutex mutex_;
  std::map<std::string, std::vector<std::string>> received_;
  service::ServiceLogic logic_;
  service::DevelopmentService service_;
};

/// Ends or disturbs runs of the command in turn, each on a copy of a prepared data folder, and looks at what is stored
/// afterwards.
class Sweep {
 public:
  /// With `delay`, runs have the outbox, and the service takes so long for each of their answers.
  Sweep(std::string executable, std::size_t every, std::string only, std::optional<int> delay)
      : executable_(std::move(executable)), every_(every), only_(std::move(only)), delay_(delay) {
    fs::create_directory(folder_ / "fresh");
    const RunResult run = runQuillmar(sweptKey, enable);
    const Install whole(data_, copy_);
    if (!run.hasDrained() || whole.configuration.empty() || whole.attribution.empty()) {
      throw std::runtime_error("the command does not work: " + run.errors);
    }
    configuration_ = whole.configuration;
    attribution_ = whole.attribution;
  }

  void killAtEachCall() {
    for (const Path& path : paths("long", only_)) {
      hitEachCall(path, {.kind = Injection::kill}, "kill");
      hitEachCall(path, {.kind = Injection::tear}, "kill in mid-write");
    }
  }

  /// A life without consent must not touch its folder or open a socket, and an end of consent that was cut off must
  /// be made good by the next start, whatever the user wants by then.
  void killWhileConsentEnds() {
    const std::string prepared = preparedFolder("used");
    requiresConsent_ = true;
    useCopyOf(prepared);
    const Install before(data_, copy_);
    const RunResult quiet = runQuillmar(sweptKey, events("held-", 3) + enable + R"({"activate":"application"})" + "\n",
                                        {.kind = Injection::forbid, .first = 1, .reads = true, .folder = data_});
    tell("no consent", "the whole life",
         quiet.firstHit.empty() && quiet.hasDrained() ? std::vector<std::string>()
                                                      : std::vector{"touched: " + quiet.firstHit + quiet.errors},
         true, false);
    const std::string script = grantConsent + events("new-", 3) + enable + revokeConsent;
    for (const auto kind : {Injection::kill, Injection::tear}) {
      Injection injection{.kind = kind, .folder = data_};
      injection.first = 1 + tallies_.size() % every_;
      for (bool hit = true; hit; injection.first += every_) {
        useCopyOf(prepared);
        const RunResult run = runQuillmar(sweptKey, script, injection);
        hit = !run.firstHit.empty();
        const std::string cut = folder_ / "cut";
        fs::remove_all(cut);
        fs::copy(data_, cut, fs::copy_options::recursive);
        const RunResult denied = runQuillmar(laterKey, revokeConsent);
        std::vector<std::string> losses = leftAfterConsent(before);
        useCopyOf(cut);
        const RunResult granted = runQuillmar(laterKey, grantConsent + event("next"));
        if (!denied.hasDrained() || !granted.hasDrained()) {
          losses.push_back("the next start did not end well: " + denied.output + granted.output);
        }
        const Install now(data_, copy_);
        const bool isOld = now.settings.at(Config::quillMarId) == before.settings.at(Config::quillMarId);
        for (const std::string& name : before.history) {
          if (isOld != (std::count(now.history.begin(), now.history.end(), name) == 1)) {
            losses.push_back((isOld ? "lost: " : "has come back: ") + name);
          }
        }
        tell(kind == Injection::kill ? "kill: end of consent" : "kill in mid-write: end of consent",
             fmt::format("call {}, {}", injection.first, run.firstHit), losses, hit, false);
      }
    }
    requiresConsent_ = false;
  }

  void killAtRandom(std::size_t times, std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto load = [this](std::size_t i) {
      if (delay_) {
        return events(fmt::format("run-{}-", i), 300, "{\"sleep\":0.001}\n");
      }
      return events(fmt::format("run-{}-", i), 150) + enable + events(fmt::format("more-{}-", i), 150);
    };
    const auto begin = std::chrono::steady_clock::now();
    runQuillmar(sweptKey, load(times));
    const std::chrono::duration<double, std::micro> whole = std::chrono::steady_clock::now() - begin;
    std::uniform_real_distribution<double> moment(1, whole.count());
    useCopyOf(folder_ / "fresh");
    for (std::size_t i = 0; i < times; ++i) {
      const bool fresh = i < times / 2;
      if (fresh) {
        useCopyOf(folder_ / "fresh");
      }
      const Expectation expected = expectation(sweptKey);
      const std::chrono::microseconds longest(static_cast<std::int64_t>(moment(random)));
      const RunResult run = runQuillmar(sweptKey, load(i), {}, longest);
      const bool killed = run.wasEndedBy(SIGALRM);
      // The command does not wait for all answers of a slow service.
      const bool ended = run.hasDrained() || (delay_.value_or(0) > 0 && run.status == 0);
      judge(fmt::format("kill at random under load, {} folder", fresh ? "fresh" : "used"), fmt::format("run {}", i),
            expected, run, killed, killed || ended);
    }
  }

  void failEachCall() {
    constexpr std::tuple<const char*, std::size_t, std::size_t> spells[] = {
        {"once", 1, 0}, {"once, another error", 1, 1}, {"20 in a row", 20, 0}, {"from there on", ~std::size_t{0}, 0}};
    for (const Path& path : paths("merged", only_)) {
      for (const auto& [name, count, variant] : spells) {
        hitEachCall(path, {.kind = Injection::fail, .count = count, .variant = variant, .reads = true},
                    std::string("fail ") + name);
      }
    }
  }

  /// Prints the counts. True when nothing was lost.
  bool report() {
    constexpr const char* row = "{:<52} {:>6} {:>6} {:>9}\n";
    fmt::print(row, "path", "hits", "losses", "stand-in");
    for (const auto& [title, tally] : tallies_) {
      fmt::print(row, title, tally.hits, tally.losses, tally.standIns);
    }
    fmt::print("of {} kept events, {} came once more under the same identifier\n", keptEvents_, duplicates_);
    return tallies_["all"].losses == 0 && tallies_["all"].hits > 0;
  }

 private:
  struct Tally {
    std::size_t hits = 0;
    std::size_t losses = 0;
    std::size_t standIns = 0;  ///< runs that could not use the settings suite
  };

  RunResult runQuillmar(const std::string& key, const std::string& script, const Injection& injection = {},
                        std::chrono::microseconds longest = std::chrono::minutes(1), const char* option = nullptr) {
    service_.delay = key == sweptKey ? delay_.value_or(0) : 0;
    const std::string file = folder_ / "script";
    std::ofstream(file) << script;
    std::vector<std::string> command{executable_, "run",      "--key", key,           "--data",
                                     data_,       "--events", file,    "--log-level", "debug"};
    const bool isReliable = delay_ && key != preparingKey;  // for which each event takes a tenth of a second longer
    if (isReliable) {
      command.emplace_back("--reliable-delivery");
    }
    if (requiresConsent_) {
      command.insert(command.end(), {"--require-consent", "--hold-events", "10"});
    }
    if (isReliable || requiresConsent_) {
      command.insert(command.end(), {"--service", service_.url(), "--attribution-token", "token"});
    }
    if (option != nullptr) {
      command.emplace_back(option);
    }
    return run(command, folder_.path(), injection, longest);
  }

  /// What is left of an install whose user has said no.
  std::vector<std::string> leftAfterConsent(const Install& before) const {
    const Install now(data_, copy_);
    std::vector<std::string> left = now.problems;
    for (const auto& [key, value] : now.settings) {
      if (!value.empty()) {
        left.push_back("left: " + std::string(key));
      }
    }
    const std::string& identifier = before.settings.at(Config::quillMarId);
    for (const auto& file : fs::recursive_directory_iterator(data_)) {
      const std::string content = file.is_regular_file() ? readFile(file.path()) : "";
      for (const std::string& trace : {identifier.substr(identifier.size() - 36), std::string("old-1")}) {
        if (content.find(trace) != std::string::npos) {
          left.push_back(fmt::format("{} is in {}", trace, file.path().filename().string()));
        }
      }
    }
    if (!now.history.empty() || !now.configuration.empty() || !now.attribution.empty()) {
      left.emplace_back("left: events or a file");
    }
    return left;
  }

  void useCopyOf(const std::string& folder) const {
    fs::remove_all(data_);
    fs::copy(folder, data_, fs::copy_options::recursive);
  }

  /// A folder that each run gets a copy of; made when it is first wanted.
  std::string preparedFolder(const std::string& kind) {
    std::string folder = folder_ / kind;
    if (fs::exists(folder)) {
      return folder;
    }
    std::string script = events("old-", 3) + R"({"event":"purchase","params":{"revenue":9.99}})" + "\n";
    if (kind == "long") {
      script += events("older-", 251, enable);  // with those before, not yet as many segments as are put together
    } else if (kind == "merged") {
      script = events("merging-", 6, enable);
    }
    useCopyOf(kind == "merged" ? preparedFolder("long") : folder_ / "fresh");
    if (const RunResult run = runQuillmar(preparingKey, script); !run.hasDrained()) {
      throw std::runtime_error("a folder cannot be prepared: " + run.errors);
    }
    if (kind == "aged") {
      makeHistoryOld(data_);
    }
    std::ofstream(data_ + configurationPath) << R"({"values":[],"lockWindows":{}})";  // no later one equals it
    fs::rename(data_, folder);
    return folder;
  }

  Expectation expectation(const std::string& key) const {
    return {Install(data_, copy_), key, configuration_, attribution_};
  }

  /// Hits one call after the other, until a run ends without reaching its call.
  void hitEachCall(const Path& path, Injection injection, const std::string& what) {
    const std::string title = fmt::format("{}: {}, {} folder", what, path.name, path.folder);
    const std::string prepared = preparedFolder(path.folder);
    useCopyOf(prepared);
    Expectation expected = expectation(sweptKey);
    expected.resets = path.resets;
    expected.isAttributionWhole = path.option == liveAttribution;
    expected.windowIsKept = path.option == comparing;
    if (path.option == forgetting) {
      expected.old.assign(expected.before.history.begin(), expected.before.history.end() - 1);
    }
    expected.writesFailed = injection.kind == Injection::fail;
    injection.folder = data_;
    injection.first = 1 + tallies_.size() % every_;
    for (bool hit = true; hit; injection.first += every_) {
      useCopyOf(prepared);
      const RunResult run = runQuillmar(sweptKey, path.script, injection, std::chrono::minutes(1), path.option);
      hit = !run.firstHit.empty();
      judge(title, fmt::format("call {}, {}", injection.first, run.firstHit), expected, run, hit,
            hit && injection.kind != Injection::fail ? run.wasEndedBy(SIGKILL) : run.hasDrained());
    }
  }

  void judge(const std::string& title, const std::string& where, const Expectation& expected, const RunResult& run,
             bool hit, bool endedAsItShould) {
    const Acknowledged told(run);
    std::vector<std::string> losses = lossesAfterRun(expected, told, Install(data_, copy_));
    if (!endedAsItShould) {
      losses.push_back(fmt::format("the run ended with status {:#x}: {}", run.status, run.output));
    }
    if (!hit && !expected.old.empty() && !told.forgot) {
      losses.emplace_back("nothing was forgotten");
    }
    const Expectation restarted = expectation(laterKey);
    const std::string next = "after " + where;
    const RunResult restart = runQuillmar(laterKey, event(next));
    std::ranges::move(lossesAfterRestart(restarted, restart, next, Install(data_, copy_)), std::back_inserter(losses));
    // A reset that was begun may have forgotten what was kept.
    auto received = service_.received();
    if (delay_ && (told.cleared || !expected.resets)) {
      const std::vector<std::string> history = Install(data_, copy_).history;
      for (const std::string& kept : told.keptEvents) {
        const std::set identifiers(received[kept].begin(), received[kept].end());
        if (identifiers.size() != 1 || std::count(history.begin(), history.end(), kept) != 1) {
          losses.push_back(fmt::format("kept, and sent under {} identifiers: {}", identifiers.size(), kept));
        }
        duplicates_ += received[kept].size() - 1;
      }
      keptEvents_ += told.keptEvents.size();
    }
    if (!losses.empty() && tallies_["all"].losses < 20) {
      fmt::print(stderr, "{}", run.errors);
    }
    tell(title, where, losses, hit, told.standInStore);
  }

  void tell(const std::string& title, const std::string& where, const std::vector<std::string>& losses, bool hit,
            bool standsIn) {
    if (!losses.empty() && tallies_["all"].losses < 20) {
      fmt::print(stderr, "LOSS in {}, {}: {}\n", title, where, fmt::join(losses, "; "));
    }
    for (Tally* tally : {&tallies_[title], &tallies_["all"]}) {
      tally->hits += hit ? 1 : 0;
      tally->losses += losses.size();
      tally->standIns += standsIn ? 1 : 0;
    }
  }

  const std::string executable_;  ///< the command
  const std::size_t every_;       ///< only each n-th call
  const std::string only_;        ///< of the paths
  const std::optional<int> delay_;
  bool requiresConsent_ = false;
  Service service_;
  std::size_t keptEvents_ = 0;
  std::size_t duplicates_ = 0;
  const test::TemporaryFolder folder_;
  const std::string data_ = folder_ / "data";
  const std::string copy_ = folder_ / "copy";
  std::string configuration_;  ///< what the whole file looks like
  std::string attribution_;    ///< likewise
  std::map<std::string, Tally> tallies_;
};

}  // namespace

}  // namespace quillmar::sweep

int main(int argc, char** argv) {
  CLI::App app(
      "Runs the quillmar command many times and ends it with SIGKILL, or lets its calls fail, at each call that\n"
      "changes its data folder. After each time it looks at what is stored, starts the command once more and looks\n"
      "again. Exit status: 0 when nothing was lost.");
  std::string command;
  bool kills = false;
  bool consent = false;
  bool fails = false;
  std::size_t randomKills = 0;
  std::size_t every = 1;
  std::string only;
  std::uint32_t seed = 1;
  std::optional<int> delay;
  app.add_option("command", command, "the quillmar command")->required()->check(CLI::ExistingFile);
  app.add_flag("--kill", kills, "kill at each such call, and in the middle of each write");
  app.add_flag("--consent", consent, "a life without consent, and kills at each call while consent ends");
  app.add_flag("--fail", fails, "an error at each such call, and each that reads: once, for a while, from there on");
  app.add_option("--random", randomKills, "so many kills at random moments under load");
  app.add_option("--every", every, "only each n-th call")->check(CLI::PositiveNumber);
  app.add_option("--only", only, "only the paths whose names have this text");
  app.add_option("--seed", seed, "for the random moments");
  app.add_option("--reliable", delay,
                 "with --reliable-delivery; the service takes so many ms for a disturbed run's answers");
  CLI11_PARSE(app, argc, argv);
  try {
    quillmar::sweep::Sweep sweep(command, every, only, delay);
    if (kills) {
      sweep.killAtEachCall();
    }
    if (consent) {
      sweep.killWhileConsentEnds();
    }
    if (randomKills > 0) {
      sweep.killAtRandom(randomKills, seed);
    }
    if (fails) {
      sweep.failEachCall();
    }
    return sweep.report() ? 0 : 1;
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillmar_sweep: {}\n", error.what());
    return 2;
  }
}
