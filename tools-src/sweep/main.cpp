#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Sweep.h"

namespace {

constexpr const char* usage =
    "Usage: quillmar_sweep [kill] [fail] [random N] [every N] [seed N] COMMAND\n"
    "\n"
    "Runs COMMAND (the quillmar command) many times and ends it with SIGKILL, or lets its calls fail, at each call "
    "that\n"
    "changes its data folder. After each time it looks at what is stored, starts the command once more and looks "
    "again.\n"
    "Exit status: 0 when nothing was lost.\n"
    "\n"
    "  kill      at each such call, and in the middle of each write\n"
    "  fail      each such call, and each that reads, with an error\n"
    "  random N  N times at random moments under load\n"
    "  every N   only at each N-th call\n"
    "  seed N    for the random moments\n";

std::size_t number(std::string_view text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || value == 0) {
    throw std::invalid_argument(fmt::format("{} is no number", text));
  }
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace quillmar::sweep;
  try {
    SweepOptions options;
    bool kills = false;
    bool fails = false;
    for (int i = 1; i < argc; ++i) {
      const std::string_view word = argv[i];
      if (word == "kill") {
        kills = true;
      } else if (word == "fail") {
        fails = true;
      } else if (word == "random" && i + 1 < argc) {
        options.randomKills = number(argv[++i]);
      } else if (word == "every" && i + 1 < argc) {
        options.every = number(argv[++i]);
      } else if (word == "seed" && i + 1 < argc) {
        options.seed = static_cast<std::uint32_t>(number(argv[++i]));
      } else if (i + 1 == argc) {
        options.executable = word;
      } else {
        throw std::invalid_argument(fmt::format("unknown: {}", word));
      }
    }
    if (options.executable.empty() || !(kills || fails || options.randomKills > 0)) {
      fmt::print(stderr, "{}", usage);
      return 2;
    }
    const bool traces = isTracingPermitted();
    if (!traces && (kills || fails)) {
      constexpr std::size_t instead = 30;
      options.randomKills = std::max(options.randomKills, instead);
      fmt::print(stderr, "Tracing is not permitted here: {} random kills take the place of those at each call.\n",
                 options.randomKills);
    }
    Sweep sweep(options);
    if (kills && traces) {
      sweep.killAtEachPoint();
    }
    sweep.killAtRandom();
    if (fails && traces) {
      sweep.failEachCall();
    }
    return sweep.report() ? 0 : 1;
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillmar_sweep: {}\n", error.what());
    return 2;
  }
}
