#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "quillmar/Quillmar.h"
#include "quillmar/platform/Platform.h"

// A host that reports one event and then does nothing. Prints its memory, and how often its threads woke up meanwhile.
// Arguments: data folder, service URL, seconds.

namespace {

/// A number in a status file of /proc; 0 when it is not there.
double field(const std::string& file, const char* name) {
  double value = 0;
  if (std::FILE* const status = std::fopen(file.c_str(), "r")) {
    char line[256];
    while (std::fgets(line, sizeof(line), status) != nullptr) {
      if (std::strncmp(line, name, std::strlen(name)) == 0) {
        value = std::strtod(line + std::strlen(name), nullptr);
      }
    }
    std::fclose(status);
  }
  return value;
}

/// Of all threads but this one, which sleeps by itself.
double contextSwitches() {
  double sum = 0;
  if (DIR* const tasks = ::opendir("/proc/self/task")) {
    while (const dirent* const task = ::readdir(tasks)) {
      const int thread = std::atoi(task->d_name);  // 0 for "." and ".."
      if (thread == 0 || thread == ::getpid()) {
        continue;
      }
      const std::string status = std::string("/proc/self/task/") + task->d_name + "/status";
      sum += field(status, "voluntary_ctxt_switches:") + field(status, "nonvoluntary_ctxt_switches:");
    }
    ::closedir(tasks);
  }
  return sum;
}

}  // namespace

int main(int count, char** values) {
  if (count != 4) {
    return EXIT_FAILURE;
  }
  quillmar::platform::DefaultPlatformOptions options;
  options.dataDirectory = values[1];
  options.serviceUrl = values[2];
  quillmar::platform::setSharedPlatform(quillmar::platform::makeDefaultPlatform(options));
  const auto quillmar = quillmar::Quillmar::shared();
  quillmar->configure("bench-key");
  quillmar->sendEvent("session");
  if (!quillmar->drain(std::chrono::seconds(30)) || quillmar->statistics().logged != 1) {
    return EXIT_FAILURE;
  }
  const std::chrono::seconds time(std::atoi(values[3]));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double before = contextSwitches();
  std::this_thread::sleep_for(time);
  const double woken = contextSwitches() - before;
  std::printf("MiB=%f\nprivate MiB=%f\nwake-ups a minute=%f\nthreads=%f\n", field("/proc/self/status", "VmRSS:") / 1024,
              field("/proc/self/status", "RssAnon:") / 1024, woken * 60 / static_cast<double>(time.count()),
              field("/proc/self/status", "Threads:"));
  return EXIT_SUCCESS;
}
