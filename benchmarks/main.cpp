#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Cases.h"
#include "Fixtures.h"
#include "Processes.h"
#include "Report.h"

namespace quillmar::bench {

namespace {

constexpr double micro = 1e6;

/// The median of several runs of a driver, figure by figure.
Figures medians(int runs, const std::vector<std::string>& arguments) {
  std::map<std::string, std::vector<double>> values;
  for (int i = 0; i < runs; ++i) {
    for (const auto& [name, value] : runDriver(arguments)) {
      values[name].push_back(value);
    }
  }
  Figures figures;
  for (auto& [name, all] : values) {
    figures[name] = quantileOf(all, 0.5);
  }
  return figures;
}

void addCaller(Report& report, const Timings& timings) {
  for (const std::string threads : {"1", "4"}) {
    const Figures off = medians(3, {"caller", threads, "off"});
    const std::string name = fmt::format("sendEvent, {} thread(s), log off", threads);
    report.add(name + ": p50", off.at("p50"), "us", off.at("push p50"), {.ratioAtMost = 3, .valueAtMost = 0.5});
    report.add(name + ": p99", off.at("p99"), "us", off.at("push p99"), {.valueAtMost = 5});
  }
  const Figures info = medians(3, {"caller", "1", "info"});
  report.add("sendEvent, 1 thread, log at info: p50", info.at("p50"), "us", micro * timings.at("compose the lines"),
             {.ratioAtMost = 2});
  report.add("starting the first thread of a process", medians(15, {"first-thread"}).at("start"), "us", std::nullopt);
  for (const std::string events : {"0", "100000"}) {
    const Folder folder;
    runDriver({"fill", folder.path(), events});
    const Figures start = medians(15, {"start", folder.path()});
    const double post = micro * timings.at("thread-pool post");
    report.add(fmt::format("first shared, {} events stored", events), start.at("shared"), "us", post,
               {.valueAtMost = 50});
    report.add(fmt::format("configure, {} events stored", events), start.at("configure"), "us", post,
               {.valueAtMost = 50});
  }
}

void addTracking(Report& report, const Timings& timings) {
  const double insert = timings.at("insert");
  const auto track = [&timings](const std::string& events) { return timings.at("track/" + events); };
  for (const std::string events : {"0", "1000", "10000", "100000"}) {
    report.add(fmt::format("trackEvent, {} events stored", events), micro * track(events), "us", micro * insert,
               {.ratioAtMost = 1.5});
  }
  report.add("trackEvent, 100000 events stored against 0", micro * track("100000"), "us", micro * track("0"),
             {.ratioAtMost = 1.1});
  report.add("opening a store of 100000 events and the first trackEvent, against none",
             1000 * timings.at("open/100000"), "ms", 1000 * timings.at("open/0"), {.ratioAtMost = 2});
  for (const std::string events : {"0", "1000", "100000"}) {
    report.add(fmt::format("findCompletedConversionValues, {} events stored", events),
               micro * timings.at("find/" + events), "us", micro * timings.at("find/look-ups"), {.valueAtMost = 50});
  }
  for (const std::string count : {"8", "512"}) {
    report.add(fmt::format("findCompletedConversionValues, {} rules", count),
               micro * timings.at(fmt::format("find/{} rules", count)), "us", std::nullopt);
  }
  report.add("matching 512 rules after an event that is news to them", micro * timings.at("find/512 rules, news"), "us",
             std::nullopt, {.valueAtMost = 3});
}

void addConfiguration(Report& report, const Timings& timings) {
  report.add("the stored configuration, unchanged", micro * timings.at("configuration/read"), "us",
             micro * timings.at("configuration/stat"), {.ratioAtMost = 5});
  report.add("decoding a configuration response", micro * timings.at("response/decode"), "us",
             micro * timings.at("response/parse"), {.ratioAtMost = 1.6});
}

void addPipeline(Report& report, const Timings& timings) {
  const Figures whole = medians(5, {"pipeline", "10000"});
  const double request = micro * timings.at("log request");
  report.add("the log request of an event, built, and its answer decoded", request, "us", std::nullopt);
  const double parts = medians(3, {"caller", "1", "off"}).at("p50") + request +
                       micro * (timings.at("configuration/read") + timings.at("track/10000") + timings.at("find/1000"));
  report.add("an event through the whole pipeline, on one thread", micro * timings.at("pipeline"), "us", parts,
             {.ratioAtMost = 1.3});
  report.add("an event through the whole pipeline, on the library's threads", whole.at("wall"), "us", parts,
             {.ratioAtMost = 1.3});
  report.add("the same for 100000 events in a row, against 10000", medians(3, {"pipeline", "100000"}).at("wall"), "us",
             whole.at("wall"), {.ratioAtMost = 1.2});
  const Figures bare = medians(5, {"bare-delivery", "10000", "8"});
  const Figures ours = medians(5, {"delivery", "10000"});
  report.add("10000 events over loopback HTTP: wall", ours.at("seconds"), "s", bare.at("seconds"),
             {.ratioAtMost = 1.5, .valueAtMost = 0.3});
  report.add("10000 events over loopback HTTP: CPU an event", ours.at("cpu"), "us", bare.at("cpu"));
}

void addMemory(Report& report, const std::string& bareProgram) {
  for (const std::string events : {"1000", "10000"}) {
    report.add(fmt::format("burst of {}, answers after 1 s: peak above idle", events),
               runDriver({"burst", events}).at("MiB"), "MiB", std::nullopt);
  }
  const Figures burst = runDriver({"burst", "100000"});
  report.add("burst of 100000, answers after 1 s: peak above idle", burst.at("MiB"), "MiB", std::nullopt,
             {.valueAtMost = 64});
  report.add("burst of 100000, answers after 1 s: threads", burst.at("threads"), "", std::nullopt, {.valueAtMost = 4});
  const Figures parked = runDriver({"parked", "100000"});
  report.add("100000 parked: peak above idle", parked.at("parked MiB"), "MiB", std::nullopt, {.valueAtMost = 64});
  report.add("100000 parked, then replayed: peak above idle", parked.at("MiB"), "MiB", std::nullopt,
             {.valueAtMost = 64});
  report.add("100000 parked, then replayed: out of order", parked.at("out of order"), "", std::nullopt,
             {.valueAtMost = 0});
  const Figures idle = runDriver({"idle", "60"});
  const auto bare = [&bareProgram](const std::string& variant) { return runProgram(bareProgram + variant); };
  report.add("idle: resident memory above a bare main", idle.at("MiB") - bare("").at("MiB"), "MiB", std::nullopt,
             {.valueAtMost = 4});
  report.add("idle: resident memory above a main linked with libcurl and SQLite",
             idle.at("MiB") - bare("_linked").at("MiB"), "MiB", std::nullopt);
  report.add("idle: memory of its own above a bare main", idle.at("private MiB") - bare("").at("private MiB"), "MiB",
             std::nullopt);
  report.add("idle: wake-ups a minute", idle.at("wake-ups a minute"), "", std::nullopt, {.valueAtMost = 0});
}

int run(const std::vector<std::string>& arguments) {
  if (!arguments.empty() && arguments[0] == "--driver") {
    printFigures(driver({arguments.begin() + 1, arguments.end()}));
    return 0;
  }
  if (arguments.size() == 2 && arguments[0] == "--cases") {  // the operations whose names match, alone
    for (const auto& [name, seconds] : runCases(arguments[1])) {
      fmt::print("{}={}\n", name, micro * seconds);
    }
    return 0;
  }
  std::string json;
  std::string library;
  for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) {
    if (arguments[i] == "--json") {
      json = arguments[i + 1];
    } else if (arguments[i] == "--library") {
      library = arguments[i + 1];
    } else {
      throw std::runtime_error("unknown option " + arguments[i]);
    }
  }
  Report report;
  const Timings timings = runCases();
  addCaller(report, timings);
  addTracking(report, timings);
  addConfiguration(report, timings);
  addPipeline(report, timings);
  addMemory(report, std::filesystem::read_symlink("/proc/self/exe").string() + "_bare");
  if (!library.empty()) {
    report.add("shared library, -Os, stripped", static_cast<double>(std::filesystem::file_size(library)) / 1000, "KB",
               std::nullopt, {.valueAtMost = 650});
  }
  report.print();
  if (!json.empty()) {
    report.writeJson(json);
  }
  return 0;
}

}  // namespace

}  // namespace quillmar::bench

int main(int count, char** values) {
  try {
    return quillmar::bench::run({values + 1, values + count});
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillmar_bench: {}\n", error.what());
    return 1;
  }
}
