#include "Sweep.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <utility>

namespace quillmar::sweep {

namespace {

namespace fs = std::filesystem;

constexpr const char* earlierKey = "earlier-key";
constexpr const char* sweptKey = "swept-key";
constexpr const char* laterKey = "later-key";
/// A document of an earlier fetch that no later one equals.
constexpr const char* earlierConfiguration = R"({"values":[],"lockWindows":{}})";
/// With the events before, a little less than the number of segments that the store puts together.
constexpr int longHistory = 251;

std::string event(const std::string& name) {
  return R"({"event":")" + name + "\"}\n";
}

std::string events(const std::string& prefix, int count) {
  std::string lines;
  for (int i = 1; i <= count; ++i) {
    lines += event(prefix + std::to_string(i));
  }
  return lines;
}

/// Events that are stored one after the other: enabling waits for what is in flight.
std::string singleEvents(const std::string& prefix, int count) {
  std::string lines;
  for (int i = 1; i <= count; ++i) {
    lines += event(prefix + std::to_string(i)) + "{\"attribution\":\"enable\"}\n";
  }
  return lines;
}

std::string makeFolder() {
  std::string name = (fs::temp_directory_path() / "quillmar-sweep-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
  return name;
}

}  // namespace

struct Sweep::Path {
  const char* name;
  std::string script;
  bool resets = false;

  static const std::vector<Path>& all() {
    static const std::vector<Path> paths = {
        {"start", ""},
        {"events", events("plain-", 4)},
        {"window value", event("session") + event("view_item") + event("add_to_cart")},
        {"attribution", "{\"attribution\":\"enable\"}\n"},
        {"reset",
         events("early-", 2) + "{\"attribution\":\"enable\"}\n{\"reset\":true}\n{\"configure\":\"" + sweptKey +
             "\"}\n" + events("late-", 2),
         true},
    };
    return paths;
  }

  /// Each path on a fresh and on a used folder, and one on a folder with a long history.
  static std::vector<std::pair<Path, std::string>> withFolders(const std::string& longKind) {
    std::vector<std::pair<Path, std::string>> result;
    for (const Path& path : all()) {
      result.emplace_back(path, "fresh");
      result.emplace_back(path, "used");
    }
    result.emplace_back(Path{"single events", singleEvents("single-", 6)}, longKind);
    return result;
  }
};

Sweep::Sweep(SweepOptions options) : options_(std::move(options)), folder_(makeFolder()), data_(folder_ + "/data") {
  fs::create_directory(folder_ + "/fresh");
  fs::create_directory(folder_ + "/scratch");
  // What whole files look like.
  const RunResult run = runFreely(command(sweptKey, "{\"attribution\":\"enable\"}\n"), folder_ + "/scratch");
  const DataFolder made = readDataFolder(data_, folder_ + "/copy");
  if (!run.endedWell() || !made.configuration || !made.attribution) {
    throw std::runtime_error("the command does not work: " + run.errors);
  }
  configuration_ = *made.configuration;
  attribution_ = *made.attribution;
}

Sweep::~Sweep() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

std::vector<std::string> Sweep::command(const std::string& key, const std::string& script) const {
  std::ofstream(folder_ + "/script") << script;
  return {options_.executable, "run",         "--key", key, "--data", data_, "--events",
          folder_ + "/script", "--log-level", "debug"};
}

/// A folder that each run gets a copy of; made when it is first wanted. In "long", some more events let the store put
/// segments together; in "merged" they have done so.
std::string Sweep::preparedFolder(const std::string& kind) {
  std::string folder = folder_ + "/" + kind;
  if (fs::exists(folder)) {
    return folder;
  }
  fs::remove_all(data_);
  if (kind == "merged") {
    fs::copy(preparedFolder("long"), data_, fs::copy_options::recursive);
  }
  const std::string script = kind == "merged"
                                 ? singleEvents("merging-", 6)
                                 : events("old-", 3) + R"({"event":"purchase","params":{"revenue":9.99}})" + "\n";
  const RunResult run = runFreely(command(earlierKey, script), folder_ + "/scratch");
  if (kind == "long") {
    appendEvents(data_, "older-", longHistory);
  }
  const DataFolder made = readDataFolder(data_, folder_ + "/copy");
  if (!run.endedWell() || made.history.size() < (kind == "used" ? 4 : longHistory)) {
    throw std::runtime_error("a folder cannot be prepared: " + run.errors);
  }
  std::ofstream(data_ + configurationPath) << earlierConfiguration;
  fs::rename(data_, folder);
  return folder;
}

void Sweep::lose(const std::string& title, const std::string& where, const std::string& what, const RunResult& run) {
  ++tallies_[title].losses;
  constexpr std::size_t mostShown = 20;
  if (++shownLosses_ <= mostShown) {
    fmt::print(stderr, "LOSS in {}, {}: {}\n", title, where, what);
    if (shownLosses_ == 1) {
      fmt::print(stderr, "The log of that run:\n{}", run.errors);
    }
  }
}

void Sweep::judge(const std::string& title, const std::string& where, const Expectation& expected, const RunResult& run,
                  const std::string& nextEvent) {
  Tally& tally = tallies_[title];
  ++tally.runs;
  const std::string copy = folder_ + "/copy";
  const DataFolder now = readDataFolder(data_, copy);
  std::vector<std::string> losses = lossesAfterRun(expected, now);
  tally.standIns += expected.acknowledged.standInStore ? 1 : 0;
  tally.cutAttributions += now.attribution && *now.attribution != expected.attribution ? 1 : 0;
  tally.emptyConfigurations +=
      now.configuration ? now.configuration->empty() : expected.before.configuration.has_value();
  tally.temporaryFiles += now.temporaryFiles > expected.before.temporaryFiles ? 1 : 0;

  const RunResult restart = runFreely(command(laterKey, event(nextEvent)), folder_ + "/scratch");
  const DataFolder later = readDataFolder(data_, copy);
  for (std::string& loss : lossesAfterRestart(now, later, restart, nextEvent, laterKey, configuration_)) {
    losses.push_back(std::move(loss));
  }
  for (const std::string& loss : losses) {
    lose(title, where, loss, run);
  }
}

/// Hits one point after the other, until a run ends without reaching its point.
void Sweep::sweep(const Path& path, const std::string& kind, const Injection& injection, const std::string& title) {
  const std::string prepared = preparedFolder(kind);
  Expectation expected{readDataFolder(prepared, folder_ + "/copy"), Acknowledged({}), sweptKey,    path.resets,
                       injection.kind == Injection::Kind::fail,     configuration_,   attribution_};
  const std::size_t first = options_.every == 1 ? 1 : 1 + tallies_.size() % options_.every;
  for (std::size_t point = first;; point += options_.every) {
    fs::remove_all(data_);
    fs::copy(prepared, data_, fs::copy_options::recursive);
    Injection now = injection;
    now.first = point;
    const RunResult run = runTraced(command(sweptKey, path.script), data_, folder_ + "/scratch", now);
    expected.acknowledged = Acknowledged(run);
    if (expected.acknowledged.standInStore) {
      expected.acknowledged.events.clear();  // these are in the other store, or were in memory
      expected.acknowledged.cleared = false;
    }
    const std::string where = fmt::format("point {}, {}", point, run.firstHit);
    const bool isKill = injection.kind != Injection::Kind::fail;
    if (run.timedOut) {
      lose(title, where, "the run hangs", run);
    } else if (isKill && run.hits > 0 && !run.wasKilled()) {
      lose(title, where, "the run was not killed", run);
    } else if ((!isKill || run.hits == 0) &&
               (!run.endedWell() || run.output.find(R"("drained":true)") == std::string::npos)) {
      lose(title, where, fmt::format("the run ended with status {:#x}: {}", run.status, run.output), run);
    }
    judge(title, where, expected, run, "after");
    if (run.hits == 0) {
      return;
    }
    ++tallies_[title].points;
  }
}

void Sweep::killAtEachPoint() {
  for (const auto& [path, kind] : Path::withFolders("long")) {
    const std::string title = fmt::format("kill: {}, {} folder", path.name, kind);
    Injection injection;
    injection.kind = Injection::Kind::kill;
    sweep(path, kind, injection, title);
    injection.kind = Injection::Kind::tear;
    sweep(path, kind, injection, title + ", torn writes");
  }
}

void Sweep::killAtRandom() {
  constexpr int load = 300;
  std::mt19937 random(options_.seed);
  const auto upTo = [&random](std::size_t most) { return std::uniform_int_distribution<std::size_t>(1, most)(random); };
  const std::string life = folder_ + "/life";
  fs::create_directory(life);
  for (std::size_t i = 0; i < options_.randomKills; ++i) {
    const bool goesOn = i % 2 == 1;
    fs::remove_all(data_);
    fs::rename(goesOn ? life : folder_ + "/fresh", data_);
    Expectation expected{readDataFolder(data_, folder_ + "/copy"),
                         Acknowledged({}),
                         sweptKey,
                         false,
                         false,
                         configuration_,
                         attribution_};
    const bool byEvents = upTo(2) == 1;
    const std::size_t lines = upTo(byEvents ? load : 1000);
    const std::chrono::microseconds delay(upTo(3000));
    const std::string script = events(fmt::format("run-{}-", i), load / 2) + "{\"attribution\":\"enable\"}\n" +
                               events(fmt::format("more-{}-", i), load / 2);
    const RunResult run = runAndKill(command(sweptKey, script), folder_ + "/scratch",
                                     byEvents ? "EventTracker - Tracked event" : "", lines, delay);
    const std::string title = fmt::format("kill: at random under load, {} folder", goesOn ? "used" : "fresh");
    const std::string where = fmt::format("run {}", i);
    expected.acknowledged = Acknowledged(run);
    if (run.timedOut || !(run.wasKilled() || run.endedWell())) {
      lose(title, where, "the run hangs or fails", run);
    }
    tallies_[title].points += run.wasKilled() ? 1 : 0;
    judge(title, where, expected, run, fmt::format("after-{}", i));
    if (goesOn) {
      fs::rename(data_, life);
    }
    fs::create_directory(folder_ + "/fresh");
  }
}

void Sweep::failEachCall() {
  struct Spell {
    const char* name;
    std::size_t count;
    std::size_t variant;
  };
  const Spell spells[] = {
      {"once", 1, 0}, {"once, another error", 1, 1}, {"20 in a row", 20, 0}, {"from there on", ~std::size_t{0}, 0}};
  for (const auto& [path, kind] : Path::withFolders("merged")) {
    for (const Spell& spell : spells) {
      Injection injection;
      injection.kind = Injection::Kind::fail;
      injection.count = spell.count;
      injection.variant = spell.variant;
      injection.reads = true;
      sweep(path, kind, injection, fmt::format("fail {}: {}, {} folder", spell.name, path.name, kind));
    }
  }
}

bool Sweep::report() const {
  Tally sum;
  fmt::print("{:<52} {:>6} {:>6} {:>9} {:>7} {:>7} {:>8}\n", "path", "hits", "losses", "stand-in", "empty", "cut",
             "left");
  const auto print = [](const std::string& name, const Tally& tally) {
    fmt::print("{:<52} {:>6} {:>6} {:>9} {:>7} {:>7} {:>8}\n", name, tally.points, tally.losses, tally.standIns,
               tally.emptyConfigurations, tally.cutAttributions, tally.temporaryFiles);
  };
  for (const auto& [name, tally] : tallies_) {
    print(name, tally);
    sum.points += tally.points;
    sum.losses += tally.losses;
    sum.standIns += tally.standIns;
    sum.emptyConfigurations += tally.emptyConfigurations;
    sum.cutAttributions += tally.cutAttributions;
    sum.temporaryFiles += tally.temporaryFiles;
  }
  print("all", sum);
  return sum.losses == 0 && sum.points > 0;
}

}  // namespace quillmar::sweep
