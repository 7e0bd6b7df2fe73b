#include "Processes.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "FastServer.h"
#include "Fixtures.h"
#include "quillmar/QuillmarFactory.h"

namespace quillmar::bench {

namespace {

constexpr auto patience = std::chrono::minutes(5);

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A field of /proc/PROCESS/status, a number: kB for memory.
double statusField(const std::string& file, const std::string& field) {
  std::ifstream status(file);
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field + ":")) {
      return std::strtod(line.c_str() + field.size() + 1, nullptr);
    }
  }
  throw std::runtime_error(file + ": no " + field);
}

double ownMiB(const std::string& field) {
  return statusField("/proc/self/status", field) / 1024;
}

void forgetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

double threadCount() {
  return statusField("/proc/self/status", "Threads");
}

void drain(Quillmar& quillmar) {
  if (!quillmar.drain(patience)) {
    throw std::runtime_error("the events were not done in time");
  }
}

/// Microseconds of each of `calls` calls, shared out among so many threads that start together.
std::vector<double> timeCalls(int threads, std::size_t calls, const std::function<void()>& call) {
  std::vector<std::vector<double>> times(static_cast<std::size_t>(threads));
  std::barrier start(threads);
  std::vector<std::thread> workers;
  for (std::vector<double>& own : times) {
    workers.emplace_back([&start, &own, &call, share = calls / static_cast<std::size_t>(threads)] {
      own.resize(share);
      start.arrive_and_wait();
      for (double& time : own) {
        const auto begin = SteadyClock::now();
        call();
        time = 1e6 * secondsSince(begin);
      }
    });
  }
  std::vector<double> all;
  for (std::size_t i = 0; i < workers.size(); ++i) {
    workers[i].join();
    all.insert(all.end(), times[i].begin(), times[i].end());
  }
  return all;
}

/// The cheapest way to hand an event to another thread that one would write without much thought.
class PlainQueue {
 public:
  PlainQueue()
      : consumer_([this] {
          std::unique_lock lock(mutex_);
          while (!closed_) {
            wakeUp_.wait(lock, [this] { return closed_ || !events_.empty(); });
            while (!events_.empty()) {
              const Event event = std::move(events_.front());
              events_.pop_front();
              lock.unlock();
              lock.lock();
            }
          }
        }) {}
  ~PlainQueue() {
    {
      const std::lock_guard lock(mutex_);
      closed_ = true;
    }
    wakeUp_.notify_one();
    consumer_.join();
  }
  void push(std::string_view name, EventParameters parameters) {
    {
      const std::lock_guard lock(mutex_);
      events_.push_back({std::string(name), std::move(parameters)});
    }
    wakeUp_.notify_one();
  }

 private:
  struct Event {
    std::string name;
    EventParameters parameters;
  };
  std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::deque<Event> events_;
  bool closed_ = false;
  std::thread consumer_;
};

/// What `sendEvent` costs its caller while the events are being handled. "level": the log threshold.
Figures caller(int threads, LogLevel level) {
  constexpr std::size_t calls = 100'000;
  const Folder folder;
  const auto quillmar = makeReady(makePlatform(folder.path(), ""));
  quillmar->setLogLevel(level);
  quillmar->configure("bench-key");
  drain(*quillmar);
  std::vector<double> ours =
      timeCalls(threads, calls, [&quillmar] { quillmar->sendEvent(eventName, eventParameters()); });
  drain(*quillmar);
  requireAllLogged(*quillmar, calls);
  PlainQueue queue;
  std::vector<double> plain = timeCalls(threads, calls, [&queue] { queue.push(eventName, eventParameters()); });
  return {{"p50", quantileOf(ours, 0.5)},
          {"p99", quantileOf(ours, 0.99)},
          {"max", quantileOf(ours, 1)},
          {"push p50", quantileOf(plain, 0.5)},
          {"push p99", quantileOf(plain, 0.99)}};
}

/// The first calls of a process, in microseconds, over the store in `folder`.
Figures start(const std::string& folder) {
  platform::DefaultPlatformOptions options;
  options.dataDirectory = folder;
  options.serviceUrl = "http://127.0.0.1:1";  // nobody there
  const auto begin = SteadyClock::now();
  platform::setSharedPlatform(platform::makeDefaultPlatform(options));
  const std::shared_ptr<Quillmar> shared = Quillmar::shared();
  const double first = secondsSince(begin);
  const auto beginConfigure = SteadyClock::now();
  shared->configure("bench-key");
  const double configure = secondsSince(beginConfigure);
  drain(*shared);
  return {{"shared", 1e6 * first}, {"configure", 1e6 * configure}};
}

/// What the first call that needs a thread cannot do without.
Figures firstThread() {
  const auto begin = SteadyClock::now();
  std::thread thread([] {});
  const double seconds = secondsSince(begin);
  thread.join();
  return {{"start", 1e6 * seconds}};
}

/// Fills the store of a data folder with tracked events, through the library.
Figures fill(const std::string& folder, std::size_t events) {
  const auto quillmar = makeReady(makePlatform(folder, ""));
  for (std::size_t i = 0; i < events; ++i) {
    quillmar->sendEvent(eventName, eventParameters());
  }
  drain(*quillmar);
  requireAllLogged(*quillmar, events);
  return {};
}

/// Events from the call to the last of what they cause, in microseconds an event.
Figures throughput(const std::string& serviceUrl, std::size_t events) {
  const Folder folder;
  const auto quillmar = makeReady(makePlatform(folder.path(), serviceUrl));
  const double cpu = cpuSeconds();
  const auto begin = SteadyClock::now();
  for (std::size_t i = 0; i < events; ++i) {
    quillmar->sendEvent(eventName, eventParameters());
  }
  drain(*quillmar);
  const double seconds = secondsSince(begin);
  const double used = cpuSeconds() - cpu;
  requireAllLogged(*quillmar, events);
  const double each = 1e6 / static_cast<double>(events);
  return {{"wall", each * seconds}, {"cpu", each * used}, {"seconds", seconds}};
}

Figures delivery(std::size_t events) {
  const FastServer server;
  return throughput(server.url(), events);
}

/// The same requests by libcurl alone: so many transfers at a time, each handle used again.
Figures bareDelivery(std::size_t events, std::size_t inFlight) {
  const FastServer server;
  const std::string url = server.url() + "/ios/events";
  const std::string body =
      R"({"event_id":"6F9619FF-8B86-4011-B42D-00C04FC964FF","event_name":"purchase","quillmar_id":)"
      R"("7F9619FF-8B86-4011-B42D-00C04FC964FF","app_id":"bench-app","event_type":"MANUAL","sdk_version":"2.0.0"})";
  curl_slist* headers = curl_slist_append(nullptr, "Authorization: bench-key");
  headers = curl_slist_append(headers, "Content-Type: application/json");
  CURLM* const multi = curl_multi_init();
  const double cpu = cpuSeconds();
  const auto begin = SteadyClock::now();
  std::size_t started = 0;
  std::size_t done = 0;
  const auto add = [&](CURL* easy) {
    curl_multi_add_handle(multi, easy);
    ++started;
  };
  std::vector<CURL*> handles;
  for (std::size_t i = 0; i < inFlight; ++i) {
    CURL* const easy = handles.emplace_back(curl_easy_init());
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    using Write = std::size_t (*)(char*, std::size_t, std::size_t, void*);
    const Write discard = [](char*, std::size_t size, std::size_t count, void*) { return size * count; };
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, discard);
    add(easy);
  }
  while (done < events) {
    int running = 0;
    curl_multi_perform(multi, &running);
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) {
        continue;
      }
      if (message->data.result != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(message->data.result));
      }
      CURL* const easy = message->easy_handle;
      curl_multi_remove_handle(multi, easy);
      ++done;
      if (started < events) {
        add(easy);
      }
    }
    if (done < events) {
      curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
  }
  const double seconds = secondsSince(begin);
  const double used = cpuSeconds() - cpu;
  for (CURL* const easy : handles) {
    curl_easy_cleanup(easy);
  }
  curl_multi_cleanup(multi);
  curl_slist_free_all(headers);
  const double each = 1e6 / static_cast<double>(events);
  return {{"wall", each * seconds}, {"cpu", each * used}, {"seconds", seconds}};
}

/// 100,000 events at once while the service takes a second for each answer.
Figures burst(std::size_t events) {
  const FastServer server(std::chrono::seconds(1));
  const Folder folder;
  const auto quillmar = makeReady(makePlatform(folder.path(), server.url()));
  const double idle = ownMiB("VmRSS");
  forgetPeak();
  for (std::size_t i = 0; i < events; ++i) {
    quillmar->sendEvent(eventName, eventParameters());
  }
  static_cast<void>(quillmar->drain(std::chrono::seconds(5)));  // the service needs hours for all of them
  const Figures figures{{"MiB", ownMiB("VmHWM") - idle}, {"threads", threadCount()}};
  if (quillmar->statistics().logged == 0) {
    throw std::runtime_error("no event arrived");
  }
  printFigures(figures);
  std::fflush(stdout);
  std::_Exit(0);  // the rest is not waited for
}

/// Holds back the configuration, then checks that the events come in the order in which they were sent.
class GatedTransport final : public platform::HttpTransport {
 public:
  explicit GatedTransport(std::shared_ptr<platform::HttpTransport> transport) : transport_(std::move(transport)) {}

  RequestId start(platform::HttpRequest request, Completion completion) override {
    if (request.method == "GET") {
      held_ = [this, request = std::move(request), completion = std::move(completion)]() mutable {
        transport_->start(std::move(request), std::move(completion));
      };
      isHeld = true;
      return 1;
    }
    const std::string expected = fmt::format(R"("event_name":"event-{}")", arrived++);
    if (request.body.find(expected) == std::string::npos) {
      ++outOfOrder;
    }
    return transport_->start(std::move(request), std::move(completion));
  }
  void cancel(RequestId) noexcept override {}
  void open() { held_(); }

  std::atomic<bool> isHeld{false};
  std::atomic<std::size_t> arrived{0};
  std::atomic<std::size_t> outOfOrder{0};

 private:
  const std::shared_ptr<platform::HttpTransport> transport_;
  std::function<void()> held_;
};

/// The same burst before the first configuration, which comes when all events are parked.
Figures parked(std::size_t events) {
  const Folder folder;
  platform::Platform platform = makePlatform(folder.path(), "");
  const auto gate = std::make_shared<GatedTransport>(platform.http);
  platform.http = gate;
  platform::setSharedPlatform(platform);
  const auto quillmar = QuillmarFactory::createQuillmar(platform);
  setChosenOptions(*quillmar);
  quillmar->configure("bench-key");
  const auto deadline = SteadyClock::now() + patience;
  const auto waitFor = [deadline](const std::function<bool()>& reached) {
    while (!reached()) {
      if (SteadyClock::now() > deadline) {
        throw std::runtime_error("the events were not parked in time");
      }
      std::this_thread::yield();
    }
  };
  waitFor([&gate] { return gate->isHeld.load(); });
  const double idle = ownMiB("VmRSS");
  forgetPeak();
  for (std::size_t i = 0; i < events; ++i) {
    quillmar->sendEvent(fmt::format("event-{}", i), eventParameters());
  }
  waitFor([&] { return quillmar->statistics().parked + quillmar->statistics().kept == events; });
  const double parkedPeak = ownMiB("VmHWM") - idle;
  gate->open();
  drain(*quillmar);
  requireAllLogged(*quillmar, events);
  return {{"parked MiB", parkedPeak},
          {"MiB", ownMiB("VmHWM") - idle},
          {"out of order", static_cast<double>(gate->outOfOrder)},
          {"threads", threadCount()}};
}

/// What an earlier process has left in the outbox, from the start to the last answer.
Figures leftOver(std::size_t events) {
  const FastServer server;
  const Folder folder;
  platform::Platform platform = makePlatform(folder.path(), "http://127.0.0.1:1");  // nobody there
  {
    const auto offline = QuillmarFactory::createQuillmar(platform);
    offline->setOptions({true});
    for (std::size_t i = 0; i < events; ++i) {
      offline->sendEvent(eventName, eventParameters());
    }
    drain(*offline);
  }
  platform.serviceUrl = server.url();
  const double cpu = cpuSeconds();
  const auto begin = SteadyClock::now();
  const auto quillmar = makeReady(platform);
  drain(*quillmar);
  const double seconds = secondsSince(begin);
  requireAllLogged(*quillmar, events);
  return {{"seconds", seconds}, {"cpu", 1e6 * (cpuSeconds() - cpu) / static_cast<double>(events)}};
}

/// A host that has reported an event and has nothing more to do: its memory, and how often its threads woke up.
Figures idle(std::chrono::seconds time) {
  const FastServer server;
  const Folder folder;
  return runProgram(fmt::format("{}_idle '{}' {} {}", std::filesystem::read_symlink("/proc/self/exe").string(),
                                folder.path(), server.url(), time.count()));
}

}  // namespace

Figures driver(const std::vector<std::string>& arguments) {
  const std::string& name = arguments.at(0);
  const auto number = [&arguments](std::size_t index) { return std::stoul(arguments.at(index)); };
  if (name == "caller") {
    return caller(static_cast<int>(number(1)), arguments.at(2) == "info" ? LogLevel::info : LogLevel::off);
  }
  if (name == "start") {
    return start(arguments.at(1));
  }
  if (name == "first-thread") {
    return firstThread();
  }
  if (name == "fill") {
    return fill(arguments.at(1), number(2));
  }
  if (name == "pipeline") {
    return throughput("", number(1));
  }
  if (name == "delivery") {
    return delivery(number(1));
  }
  if (name == "bare-delivery") {
    return bareDelivery(number(1), number(2));
  }
  if (name == "burst") {
    return burst(number(1));
  }
  if (name == "parked") {
    return parked(number(1));
  }
  if (name == "left-over") {
    return leftOver(number(1));
  }
  if (name == "idle") {
    return idle(std::chrono::seconds(number(1)));
  }
  throw std::runtime_error("there is no driver " + name);
}

void printFigures(const Figures& figures) {
  for (const auto& [name, value] : figures) {
    fmt::print("{}={}\n", name, value);
  }
}

Figures runDriver(const std::vector<std::string>& arguments) {
  std::string command = "'" + std::filesystem::read_symlink("/proc/self/exe").string() + "' --driver";
  for (const std::string& argument : arguments) {
    command += " '" + argument + "'";
  }
  return runProgram(command);
}

Figures runProgram(const std::string& command) {
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    throw std::runtime_error("cannot start " + command);
  }
  Figures figures;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
    const std::string text(line.data());
    if (const std::size_t sign = text.find('='); sign != std::string::npos) {
      figures[text.substr(0, sign)] = std::stod(text.substr(sign + 1));
    }
  }
  if (::pclose(pipe) != 0) {
    throw std::runtime_error(command + " failed");
  }
  return figures;
}

}  // namespace quillmar::bench
