#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <tuple>

#include "Install.h"
#include "support/TemporaryFolder.h"

namespace quillmar::sweep {

namespace {

namespace fs = std::filesystem;

constexpr const char* sweptKey = "swept-key";
constexpr const char* laterKey = "later-key";
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
};

/// In a "long" folder, some more events let the store put segments together; in a "merged" one they have done so.
std::vector<Path> paths(const char* longFolder) {
  std::vector<Path> result{{"single events", longFolder, events("single-", 6, enable)}};
  for (const char* folder : {"fresh", "used"}) {
    result.push_back({"start", folder, ""});
    result.push_back({"events", folder, events("plain-", 4)});
    result.push_back({"window value", folder, event("session") + event("view_item") + event("add_to_cart")});
    result.push_back({"attribution", folder, enable});
    result.push_back(
        {"reset", folder,
         events("early-", 2) + enable + "{\"reset\":true}\n{\"configure\":\"" + sweptKey + "\"}\n" + events("late-", 2),
         true});
  }
  return result;
}

/// Ends or disturbs runs of the command in turn, each on a copy of a prepared data folder, and looks at what is stored
/// afterwards.
class Sweep {
 public:
  Sweep(std::string executable, std::size_t every) : executable_(std::move(executable)), every_(every) {
    fs::create_directory(folder_ + "/fresh");
    const RunResult run = runQuillmar(sweptKey, enable);
    const Install whole(data_, copy_);
    if (!run.hasDrained() || whole.configuration.empty() || whole.attribution.empty()) {
      throw std::runtime_error("the command does not work: " + run.errors);
    }
    configuration_ = whole.configuration;
    attribution_ = whole.attribution;
  }

  void killAtEachCall() {
    for (const Path& path : paths("long")) {
      hitEachCall(path, {.kind = Injection::kill}, "kill", every_);
      hitEachCall(path, {.kind = Injection::tear}, "kill in mid-write", every_);
    }
    // The calls differ from run to run, so more of them are hit.
    const Path load{"load", "used", events("run-", 150) + enable + events("more-", 150)};
    hitEachCall(load, {.kind = Injection::kill}, "kill", 1 + every_ / 10);
  }

  void failEachCall() {
    constexpr std::tuple<const char*, std::size_t, std::size_t> spells[] = {
        {"once", 1, 0}, {"once, another error", 1, 1}, {"20 in a row", 20, 0}, {"from there on", ~std::size_t{0}, 0}};
    for (const Path& path : paths("merged")) {
      for (const auto& [name, count, variant] : spells) {
        hitEachCall(path, {.kind = Injection::fail, .count = count, .variant = variant, .reads = true},
                    std::string("fail ") + name, every_);
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
    return tallies_["all"].losses == 0 && tallies_["all"].hits > 0;
  }

 private:
  struct Tally {
    std::size_t hits = 0;
    std::size_t losses = 0;
    std::size_t standIns = 0;  ///< runs that could not use the settings suite
  };

  RunResult runQuillmar(const std::string& key, const std::string& script, const Injection& injection = {}) const {
    const std::string file = folder_ + "/script";
    std::ofstream(file) << script;
    return run({executable_, "run", "--key", key, "--data", data_, "--events", file, "--log-level", "debug"}, folder_,
               injection);
  }

  void useCopyOf(const std::string& folder) const {
    fs::remove_all(data_);
    fs::copy(folder, data_, fs::copy_options::recursive);
  }

  /// A folder that each run gets a copy of; made when it is first wanted.
  std::string preparedFolder(const std::string& kind) const {
    std::string folder = folder_ + "/" + kind;
    if (fs::exists(folder)) {
      return folder;
    }
    std::string script = events("old-", 3) + R"({"event":"purchase","params":{"revenue":9.99}})" + "\n";
    if (kind == "long") {
      script += events("older-", 251, enable);  // with those before, not yet as many segments as are put together
    } else if (kind == "merged") {
      script = events("merging-", 6, enable);
    }
    useCopyOf(kind == "merged" ? preparedFolder("long") : folder_ + "/fresh");
    if (const RunResult run = runQuillmar("earlier-key", script); !run.hasDrained()) {
      throw std::runtime_error("a folder cannot be prepared: " + run.errors);
    }
    std::ofstream(data_ + configurationPath) << R"({"values":[],"lockWindows":{}})";  // no later one equals it
    fs::rename(data_, folder);
    return folder;
  }

  Expectation expectation(const std::string& key) const {
    return {Install(data_, copy_), key, configuration_, attribution_};
  }

  /// Hits one call after the other, until a run ends without reaching its call.
  void hitEachCall(const Path& path, Injection injection, const std::string& what, std::size_t every) {
    const std::string title = fmt::format("{}: {}, {} folder", what, path.name, path.folder);
    const std::string prepared = preparedFolder(path.folder);
    useCopyOf(prepared);
    Expectation expected = expectation(sweptKey);
    expected.resets = path.resets;
    expected.writesFailed = injection.kind == Injection::fail;
    injection.folder = data_;
    injection.first = 1 + tallies_.size() % every;
    for (bool hit = true; hit; injection.first += every) {
      useCopyOf(prepared);
      const RunResult run = runQuillmar(sweptKey, path.script, injection);
      hit = !run.firstHit.empty();
      const bool isKilled = hit && injection.kind != Injection::fail;
      const std::string where = fmt::format("call {}, {}", injection.first, run.firstHit);
      const Acknowledged told(run);
      std::vector<std::string> losses = lossesAfter(expected, told, Install(data_, copy_));
      if (isKilled ? !run.wasKilled() : !run.hasDrained()) {
        losses.push_back(fmt::format("the run ended with status {:#x}: {}", run.status, run.output));
      }
      for (const std::string& loss : lossesAfterRestart("after " + where)) {
        losses.push_back("at the next start: " + loss);
      }
      if (!losses.empty() && tallies_["all"].losses < 20) {
        fmt::print(stderr, "LOSS in {}, {}: {}\n{}", title, where, fmt::join(losses, "; "), run.errors);
      }
      for (Tally* tally : {&tallies_[title], &tallies_["all"]}) {
        tally->hits += hit ? 1 : 0;
        tally->losses += losses.size();
        tally->standIns += told.standInStore ? 1 : 0;
      }
    }
  }

  /// Of a further run, which tracks that event.
  std::vector<std::string> lossesAfterRestart(const std::string& name) const {
    Expectation expected = expectation(laterKey);
    expected.undisturbed = true;
    const RunResult run = runQuillmar(laterKey, event(name));
    const Acknowledged told(run);
    std::vector<std::string> losses = lossesAfter(expected, told, Install(data_, copy_));
    if (!run.hasDrained() || told.events != std::vector{name}) {
      losses.push_back("it did not end well: " + run.output);
    }
    return losses;
  }

  const std::string executable_;  ///< the command
  const std::size_t every_;       ///< only each n-th call
  const test::TemporaryFolder scratch_;
  const std::string folder_ = scratch_.path();
  const std::string data_ = folder_ + "/data";
  const std::string copy_ = folder_ + "/copy";
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
  bool fails = false;
  std::size_t every = 1;
  app.add_option("command", command, "the quillmar command")->required()->check(CLI::ExistingFile);
  app.add_flag("--kill", kills, "kill at each such call, and in the middle of each write");
  app.add_flag("--fail", fails, "an error at each such call, and each that reads: once, for a while, from there on");
  app.add_option("--every", every, "only each n-th call")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, argc, argv);
  try {
    quillmar::sweep::Sweep sweep(command, every);
    if (kills) {
      sweep.killAtEachCall();
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
