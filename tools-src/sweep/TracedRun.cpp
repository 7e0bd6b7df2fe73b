#include "TracedRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>
#include <thread>

namespace quillmar::sweep {

namespace {

constexpr unsigned longestRun = 60;  // seconds

enum class Group { open, write, sync, names, size, read, status, lock };

struct KnownCall {
  std::uint64_t number;
  const char* name;
  Group group;
  int descriptor;  ///< the argument that is a file descriptor, or -1
  int path;        ///< the argument that is a path, or -1
};

constexpr KnownCall knownCalls[] = {
    {SYS_open, "open", Group::open, -1, 0},
    {SYS_openat, "openat", Group::open, -1, 1},
    {SYS_write, "write", Group::write, 0, -1},
    {SYS_pwrite64, "pwrite64", Group::write, 0, -1},
    {SYS_writev, "writev", Group::size, 0, -1},
    {SYS_fsync, "fsync", Group::sync, 0, -1},
    {SYS_fdatasync, "fdatasync", Group::sync, 0, -1},
    {SYS_ftruncate, "ftruncate", Group::size, 0, -1},
    {SYS_fallocate, "fallocate", Group::size, 0, -1},
    {SYS_rename, "rename", Group::names, -1, 0},
    {SYS_renameat, "renameat", Group::names, -1, 1},
    {SYS_renameat2, "renameat2", Group::names, -1, 1},
    {SYS_unlink, "unlink", Group::names, -1, 0},
    {SYS_unlinkat, "unlinkat", Group::names, -1, 1},
    {SYS_rmdir, "rmdir", Group::names, -1, 0},
    {SYS_mkdir, "mkdir", Group::names, -1, 0},
    {SYS_mkdirat, "mkdirat", Group::names, -1, 1},
    {SYS_read, "read", Group::read, 0, -1},
    {SYS_pread64, "pread64", Group::read, 0, -1},
    {SYS_stat, "stat", Group::status, -1, 0},
    {SYS_newfstatat, "newfstatat", Group::status, -1, 1},
    {SYS_access, "access", Group::status, -1, 0},
    {SYS_fcntl, "fcntl", Group::lock, 0, -1},
};

int errorFor(Group group, std::size_t variant) {
  static const std::map<Group, std::vector<int>> errors = {
      {Group::open, {ENOSPC, EACCES, EROFS, EMFILE}},
      {Group::write, {ENOSPC, EIO}},
      {Group::sync, {EIO, ENOSPC}},
      {Group::names, {EACCES, ENOSPC, EROFS, EIO}},
      {Group::size, {ENOSPC, EIO}},
      {Group::read, {EIO}},
      {Group::status, {EIO}},
      {Group::lock, {EAGAIN}},
  };
  const std::vector<int>& suitable = errors.at(group);
  return suitable[variant % suitable.size()];
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// Starts the command; it waits until something is written to `go`, unless that is null.
pid_t start(const std::vector<std::string>& command, int output, int errors, int* go) {
  std::array<int, 2> gate{-1, -1};
  if (go != nullptr && ::pipe2(gate.data(), O_CLOEXEC) != 0) {
    fail("pipe2");
  }
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == -1) {
    fail("fork");
  }
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    char letter = 0;
    if (go != nullptr && ::read(gate[0], &letter, 1) != 1) {
      ::_exit(127);
    }
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  if (go != nullptr) {
    ::close(gate[0]);
    *go = gate[1];
  }
  return child;
}

/// Ends waits for children that hang: a wait is interrupted by the alarm.
class Watchdog {
 public:
  Watchdog() {
    struct sigaction action{};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    ::alarm(longestRun);
  }
  ~Watchdog() { ::alarm(0); }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
};

class File {
 public:
  explicit File(const std::string& path)
      : value_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    if (value_ == -1) {
      fail("open");
    }
  }
  ~File() { ::close(value_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int get() const noexcept { return value_; }

 private:
  int value_;
};

class Tracer {
 public:
  Tracer(pid_t child, const std::string& folder, const Injection& injection, RunResult& result)
      : child_(child), below_(folder + '/'), injection_(injection), result_(result) {}

  /// False when tracing is forbidden.
  bool attach() const {
    constexpr unsigned long options =
        PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    return ::ptrace(PTRACE_SEIZE, child_, nullptr, options) == 0;
  }

  void trace() {
    const Watchdog watchdog;
    for (;;) {
      int status = 0;
      const pid_t thread = ::waitpid(-1, &status, __WALL);
      if (thread == -1 && errno == EINTR) {
        result_.timedOut = true;
        ::kill(child_, SIGKILL);
        continue;
      }
      if (thread == -1) {
        fail("waitpid");
      }
      if (!WIFSTOPPED(status)) {
        if (thread == child_) {
          result_.status = status;
          return;
        }
        continue;
      }
      const int signal = WSTOPSIG(status);
      const bool isEvent = (status >> 16) != 0;
      if (signal == (SIGTRAP | 0x80)) {
        handleCall(thread);
      }
      const int passedOn = isEvent || signal == (SIGTRAP | 0x80) ? 0 : signal;
      ::ptrace(PTRACE_SYSCALL, thread, nullptr, passedOn);  // fails when the thread was killed meanwhile
    }
  }

 private:
  void handleCall(pid_t thread) {
    struct __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) <= 0) {
      return;
    }
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      enter(thread, info.entry.nr, info.entry.args);
    } else if (const auto found = atExit_.find(thread); found != atExit_.end()) {
      if (found->second == 0) {
        ::kill(child_, SIGKILL);
      } else {
        changeRegisters(thread, [error = found->second](user_regs_struct& registers) {
          registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
        });
      }
      atExit_.erase(found);
    }
  }

  template <class Arguments>
  void enter(pid_t thread, std::uint64_t number, const Arguments& arguments) {
    for (const KnownCall& call : knownCalls) {
      if (call.number != number) {
        continue;
      }
      const std::string path = call.path >= 0 ? readString(thread, arguments[call.path])
                                              : descriptorPath(thread, static_cast<int>(arguments[call.descriptor]));
      if (path.compare(0, below_.size(), below_) != 0 || !counts(thread, call, arguments)) {
        return;
      }
      result_.calls.push_back(call.name + std::string(" ") + path.substr(path.rfind('/') + 1));
      const std::size_t point = result_.calls.size();
      if (injection_.kind != Injection::Kind::none && point >= injection_.first &&
          point - injection_.first < injection_.count) {
        hit(thread, call);
      }
      return;
    }
  }

  template <class Arguments>
  bool counts(pid_t thread, const KnownCall& call, const Arguments& arguments) const {
    if (injection_.kind == Injection::Kind::tear) {
      return call.group == Group::write && arguments[2] > 1;
    }
    if (call.group == Group::open) {
      return injection_.reads || (arguments[call.path + 1] & (O_CREAT | O_TRUNC)) != 0;
    }
    if (call.group == Group::lock) {
      errno = 0;
      const long lock = arguments[1] == F_SETLK ? ::ptrace(PTRACE_PEEKDATA, thread, arguments[2], nullptr) : F_UNLCK;
      // A lock that is never to be had costs the whole wait for it at each write.
      return injection_.reads && injection_.count == 1 && (lock & 0xffff) != F_UNLCK;
    }
    return injection_.reads || (call.group != Group::read && call.group != Group::status);
  }

  void hit(pid_t thread, const KnownCall& call) {
    if (++result_.hits == 1) {
      result_.firstHit = result_.calls.back();
    }
    if (injection_.kind == Injection::Kind::fail) {
      changeRegisters(thread, [](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
      atExit_[thread] = errorFor(call.group, injection_.variant);
    } else if (injection_.kind == Injection::Kind::tear) {
      changeRegisters(thread, [](user_regs_struct& registers) { registers.rdx /= 2; });
      atExit_[thread] = 0;
    } else {
      ::kill(child_, SIGKILL);  // a call that is stopped at its entry is not done any more
    }
  }

  template <class Change>
  static void changeRegisters(pid_t thread, Change change) {
    user_regs_struct registers{};
    if (::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) == 0) {
      change(registers);
      ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
    }
  }

  static std::string readString(pid_t thread, std::uint64_t address) {
    std::string text;
    for (errno = 0; text.size() < 4096; address += sizeof(long)) {
      const long word = ::ptrace(PTRACE_PEEKDATA, thread, address, nullptr);
      if (errno != 0) {
        return {};
      }
      for (unsigned i = 0; i < sizeof(long); ++i) {
        const char letter = static_cast<char>(static_cast<unsigned long>(word) >> (8 * i));
        if (letter == '\0') {
          return text;
        }
        text.push_back(letter);
      }
    }
    return text;
  }

  static std::string descriptorPath(pid_t thread, int descriptor) {
    std::array<char, 4096> target{};
    const std::string link = "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(descriptor);
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    return length < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
  }

  const pid_t child_;
  const std::string below_;  ///< how the paths begin that count
  const Injection injection_;
  RunResult& result_;
  std::map<pid_t, int> atExit_;  ///< the error that a thread's call is to give; 0: the end of the process
};

}  // namespace

bool RunResult::wasKilled() const {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && !timedOut;
}

bool RunResult::endedWell() const {
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool isTracingPermitted() {
  int go = -1;
  const pid_t child = start({"/bin/true"}, STDOUT_FILENO, STDERR_FILENO, &go);
  RunResult ignored;
  const bool permitted = Tracer(child, "", {}, ignored).attach();
  ::kill(child, SIGKILL);
  ::close(go);
  int status = 0;
  while (::waitpid(child, &status, __WALL) == child && WIFSTOPPED(status)) {
  }
  return permitted;
}

RunResult runTraced(const std::vector<std::string>& command, const std::string& folder, const std::string& scratch,
                    const Injection& injection) {
  RunResult result;
  {
    const File output(scratch + "/output");
    const File errors(scratch + "/errors");
    int go = -1;
    const pid_t child = start(command, output.get(), errors.get(), &go);
    Tracer tracer(child, folder, injection, result);
    if (!tracer.attach()) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
      fail("ptrace");
    }
    const bool started = ::write(go, "", 1) == 1;
    ::close(go);
    if (!started) {
      fail("write");
    }
    tracer.trace();
  }
  result.output = readFile(scratch + "/output");
  result.errors = readFile(scratch + "/errors");
  return result;
}

RunResult runAndKill(const std::vector<std::string>& command, const std::string& scratch, const std::string& text,
                     std::size_t lines, std::chrono::microseconds delay) {
  RunResult result;
  std::array<int, 2> log{};
  if (::pipe2(log.data(), O_CLOEXEC) != 0) {
    fail("pipe2");
  }
  {
    const File output(scratch + "/output");
    const pid_t child = start(command, output.get(), log[1], nullptr);
    ::close(log[1]);
    const Watchdog watchdog;
    std::array<char, 4096> piece{};
    std::size_t seen = 0;
    std::size_t from = 0;
    for (;;) {
      const ssize_t count = ::read(log[0], piece.data(), piece.size());
      if (count == -1 && errno == EINTR) {
        result.timedOut = true;
        ::kill(child, SIGKILL);
        continue;
      }
      if (count <= 0) {
        break;
      }
      result.errors.append(piece.data(), static_cast<std::size_t>(count));
      for (std::size_t end = 0; (end = result.errors.find('\n', from)) != std::string::npos; from = end + 1) {
        const std::string_view line = std::string_view(result.errors).substr(from, end - from);
        if (line.find(text) != std::string_view::npos && ++seen == lines) {
          std::this_thread::sleep_for(delay);
          ::kill(child, SIGKILL);
        }
      }
    }
    while (::waitpid(child, &result.status, 0) == -1 && errno == EINTR) {
      result.timedOut = true;
      ::kill(child, SIGKILL);
    }
    ::close(log[0]);
  }
  result.output = readFile(scratch + "/output");
  return result;
}

RunResult runFreely(const std::vector<std::string>& command, const std::string& scratch) {
  return runAndKill(command, scratch, "", 0, std::chrono::microseconds(0));
}

}  // namespace quillmar::sweep
