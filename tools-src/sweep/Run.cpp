#include "Run.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace quillmar::sweep {

namespace {

/// In the child.
void redirect(int descriptor, const std::string& file) {
  const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (opened == -1 || ::dup2(opened, descriptor) == -1) {
    ::_exit(127);
  }
}

}  // namespace

bool RunResult::wasEndedBy(int signal) const {
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

bool RunResult::hasDrained() const {
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 && output.find(R"("drained":true)") != std::string::npos;
}

std::string readFile(const std::string& path) {
  return (std::ostringstream() << std::ifstream(path).rdbuf()).str();
}

RunResult run(const std::vector<std::string>& command, const std::string& scratch, const Injection& injection,
              std::chrono::microseconds longest) {
  const std::string plan = fmt::format("{} {} {} {} {:d} {}", static_cast<int>(injection.kind), injection.first,
                                       injection.count, injection.variant, injection.reads, injection.folder);
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    redirect(STDOUT_FILENO, scratch + "/output");
    redirect(STDERR_FILENO, scratch + "/errors");
    if (injection.kind != Injection::none) {
      ::setenv("LD_PRELOAD", QUILLMAR_INTERPOSER, 1);
      ::setenv(Injection::variable, plan.c_str(), 1);
    }
    itimerval timer{};  // goes on in the command
    timer.it_value.tv_sec = longest / std::chrono::seconds(1);
    timer.it_value.tv_usec = longest % std::chrono::seconds(1) / std::chrono::microseconds(1);
    ::setitimer(ITIMER_REAL, &timer, nullptr);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  RunResult result;
  ::waitpid(child, &result.status, 0);
  result.output = readFile(scratch + "/output");
  result.errors = readFile(scratch + "/errors");
  if (injection.kind != Injection::none) {
    const std::string report = injection.folder + Injection::reportSuffix;
    result.firstHit = readFile(report);
    std::filesystem::remove(report);
  }
  return result;
}

}  // namespace quillmar::sweep
