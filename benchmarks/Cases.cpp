#include "Cases.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "Async/Task.h"
#include "Fixtures.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Model/ConfigResponse.h"
#include "Network/EventServerLogApiClient.h"
#include "Network/NetworkManager.h"
#include "Persistence/ConversionValuesPersistence.h"
#include "Platform/Posix/PosixFileManager.h"
#include "Platform/Posix/SystemClock.h"
#include "Platform/Posix/ThreadPoolExecutor.h"
#include "Platform/Sqlite/SqliteDatabase.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::bench {

namespace {

using benchmark::State;
using Case = std::function<void(State&)>;

/// Keeps the medians; progress goes to standard error.
class Medians final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        throw std::runtime_error(run.benchmark_name() + ": " + run.error_message);
      }
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        timings[run.run_name.function_name] = run.GetAdjustedRealTime() * 1e-9;
      }
    }
  }
  Timings timings;
};

void add(const std::string& name, Case run) {
  benchmark::RegisterBenchmark(name.c_str(), std::move(run))
      ->MinTime(0.1)
      ->Repetitions(9)
      ->ReportAggregatesOnly()
      ->UseRealTime();
}

/// One prepared insert of an event of usual size, each a transaction of its own.
class PlainInserts {
 public:
  PlainInserts() {
    const std::string file = folder_.path() + "/plain.sqlite";
    std::ofstream(file).close();
    require(database_.open(file));
    require(
        database_.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                          "CREATE TABLE event(sequence INTEGER PRIMARY KEY, bytes BLOB NOT NULL)"));
    require(database_.prepare("INSERT INTO event(bytes) VALUES(?)", insert_));
  }
  void run() {
    static const std::string event =
        R"(,{"name":"purchase","parameters":{"revenue":9.99},"timestamp":784022400.123456}])";
    require(insert_.bind(platform::SqliteStatement::Blob{event}).run());
  }

 private:
  static void require(int result) {
    if (result != 0) {
      throw std::runtime_error("the plain database failed");
    }
  }
  Folder folder_;
  platform::SqliteDatabase database_;
  platform::SqliteStatement insert_;
};

/// The two lines that `sendEvent` writes.
void addLogLines() {
  add("compose the lines", [](State& state) {
    constexpr std::string_view timestamp = "Nov 21, 09:30:00:000+0000";
    const std::string name(eventName);
    for (auto _ : state) {
      fmt::memory_buffer enabled;
      fmt::format_to(std::back_inserter(enabled), "[Quillmar] - [{}] SDK enabled status: {}", timestamp, true);
      benchmark::DoNotOptimize(enabled.data());
      fmt::memory_buffer sending;
      fmt::format_to(std::back_inserter(sending), "[Quillmar] - [{}] Sending event: {} with params: [\"{}\": {}]",
                     timestamp, name, "revenue", 9.99);
      benchmark::DoNotOptimize(sending.data());
    }
  });
}

void addExecutor() {
  add("thread-pool post", [](State& state) {
    const auto executor = std::make_shared<platform::ThreadPoolExecutor>(1);
    for (auto _ : state) {
      executor->post([] {});
    }
  });
}

void addTracking() {
  add("insert", [plain = std::make_shared<PlainInserts>()](State& state) {
    for (auto _ : state) {
      plain->run();
    }
  });
  const auto document = std::make_shared<const ConversionValues>(rules());
  for (const std::size_t events : std::initializer_list<std::size_t>{0, 1'000, 10'000, 100'000}) {
    const auto history = std::make_shared<History>(events);
    add(fmt::format("track/{}", events), [history, events](State& state) {
      if (events == 0) {
        history->tracker.clearCompletedEvents();
      }
      const std::optional<NamedParameters> parameters = namedEventParameters();
      for (auto _ : state) {
        history->tracker.trackEvent(eventName, parameters);
      }
    });
    add(fmt::format("find/{}", events), [history, document, events](State& state) {
      if (events != 0 && !history->tracker.areEventsCompleted({eventName})) {
        state.SkipWithError("the history is gone");
      }
      for (auto _ : state) {
        benchmark::DoNotOptimize(history->tracker.followCompletedConversionValues(document, Window::window0));
      }
    });
  }
  for (const int count : {8, 512}) {
    const auto history = std::make_shared<History>(1'000);
    const auto few = std::make_shared<const ConversionValues>(rules(count));
    add(fmt::format("find/{} rules", count), [history, few](State& state) {
      for (auto _ : state) {
        benchmark::DoNotOptimize(history->tracker.followCompletedConversionValues(few, Window::window0));
      }
    });
  }
  // With a revenue that is new to the history before each look.
  add("find/512 rules, news", [](State& state) {
    const auto many = std::make_shared<const ConversionValues>(rules(512));
    RevenuesByName history;
    CompletedRules completed;
    for (double revenue = 1; auto _ : state) {
      revenue += 1e-9;
      if (addEvent(history, eventName, revenue)) {
        completed.noteNews(eventName);
      }
      benchmark::DoNotOptimize(completed.find(many, Window::window0, history));
    }
  });
  // What a required event costs at least: its name, looked up. As many as one call looks at.
  add("find/look-ups", [document](State& state) {
    const std::unordered_set<std::string> names{eventName, "view_item", "session"};
    std::vector<std::string> required;
    for (const auto& value : document->values) {
      for (const auto& event : value.windowValue(Window::window0)->fineValue->requiredEvents) {
        required.push_back(event.name);
      }
    }
    for (auto _ : state) {
      std::size_t found = 0;
      for (const std::string& name : required) {
        found += names.count(name);
      }
      benchmark::DoNotOptimize(found);
    }
  });
}

void addOpening() {
  for (const std::size_t events : std::initializer_list<std::size_t>{0, 100'000}) {
    const auto folder = std::make_shared<Folder>();
    const auto clock = std::make_shared<platform::SystemClock>(std::make_shared<platform::ThreadPoolExecutor>(1));
    {
      EventTracker tracker(openStore(folder->path()), clock);
      trackOneByOne(tracker, std::max<std::size_t>(events, 1));
    }
    // As it was left by the process that tracked the events.
    add(fmt::format("open/{}", events), [folder, clock, events](State& state) {
      const std::optional<NamedParameters> parameters = namedEventParameters();
      for (auto _ : state) {
        auto tracker = std::make_unique<EventTracker>(openStore(folder->path()), clock);
        tracker->trackEvent(eventName, parameters);
        state.PauseTiming();
        if (events == 0) {
          tracker->clearCompletedEvents();
        }
        tracker.reset();  // closes the store
        state.ResumeTiming();
      }
    });
  }
}

void addConfiguration() {
  const auto folder = std::make_shared<Folder>();
  const auto files = std::make_shared<platform::PosixFileManager>(folder->path());
  const auto item =
      std::make_shared<PersistenceItem<ConversionValues>>(files, std::string(ConversionValuesPersistence::filename));
  const auto persistence = std::make_shared<ConversionValuesPersistence>(item);
  persistence->save(rules());
  const std::string file = folder->path() + "/Quillmar/" + ConversionValuesPersistence::filename;
  add("configuration/read", [folder, persistence](State& state) {
    for (auto _ : state) {
      benchmark::DoNotOptimize(persistence->getAllConversionValues());
    }
  });
  add("configuration/stat", [folder, file](State& state) {
    for (auto _ : state) {
      struct stat status{};
      if (::stat(file.c_str(), &status) != 0) {
        state.SkipWithError("no file");
      }
      benchmark::DoNotOptimize(status);
    }
  });
  const auto response = std::make_shared<std::string>(configurationResponse());
  add("response/decode", [response](State& state) {
    for (auto _ : state) {
      const boost::json::value document = parseJson(*response);
      benchmark::DoNotOptimize(ConfigResponse::decode(JsonReader(document)));
    }
  });
  add("response/parse", [response](State& state) {
    for (auto _ : state) {
      benchmark::DoNotOptimize(boost::json::parse(*response));
    }
  });
}

/// The part of an event's way that no other case shows: its request built, and the answer to it decoded.
void addLogRequest() {
  const auto folder = std::make_shared<Folder>();
  add("log request", [folder, store = openStore(folder->path())](State& state) {
    const auto executor = std::make_shared<simulated::ManualExecutor>();
    const auto manager = std::make_shared<NetworkManager>(
        std::make_shared<NetworkGate>(std::make_shared<InstantTransport>(executor), executor));
    const auto client = std::make_shared<EventServerLogApiClient>(manager, "bench-key", store, "http://127.0.0.1:1");
    const auto log = [](std::shared_ptr<EventServerLogApiClient> api) -> Task<void> {
      static_cast<void>(co_await api->logEvent(eventName, ""));
    };
    for (auto _ : state) {
      spawn(executor, log(client));
      executor->runUntilIdle();
    }
  });
}

/// The whole way of an event on one thread, without the changes of threads that `throughput` has.
void addPipeline() {
  const auto folder = std::make_shared<Folder>();
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  platform::Platform platform = makePlatform(folder->path(), "");
  platform.executor = executor;
  platform.http = std::make_shared<InstantTransport>(executor);
  const auto quillmar = QuillmarFactory::createQuillmar(platform);
  setChosenOptions(*quillmar);
  quillmar->configure("bench-key");
  executor->runUntilIdle();
  add("pipeline", [folder, executor, quillmar](State& state) {
    const std::uint64_t before = quillmar->statistics().logged;
    for (auto _ : state) {
      quillmar->sendEvent(eventName, eventParameters());
      executor->runUntilIdle();
    }
    if (quillmar->statistics().logged - before != static_cast<std::uint64_t>(state.iterations())) {
      state.SkipWithError("events were lost");
    }
  });
}

}  // namespace

Timings runCases(const std::string& filter) {
  addLogLines();
  addExecutor();
  addTracking();
  addOpening();
  addConfiguration();
  addLogRequest();
  addPipeline();
  std::string program = "quillmar_bench";
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  char* arguments[] = {program.data(), interleave.data(), nullptr};
  int count = 2;
  benchmark::Initialize(&count, arguments);
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians, filter);
  benchmark::ClearRegisteredBenchmarks();
  return medians.timings;
}

}  // namespace quillmar::bench
