#include <cstdio>
#include <cstdlib>
#include <cstring>

// A process that does nothing, to compare an idle one with: prints its own memory.
int main() {
  std::FILE* const status = std::fopen("/proc/self/status", "r");
  if (status == nullptr) {
    return EXIT_FAILURE;
  }
  char line[256];
  while (std::fgets(line, sizeof(line), status) != nullptr) {
    if (std::strncmp(line, "VmRSS:", 6) == 0) {
      std::printf("MiB=%f\n", std::strtod(line + 6, nullptr) / 1024);
    } else if (std::strncmp(line, "RssAnon:", 8) == 0) {
      std::printf("private MiB=%f\n", std::strtod(line + 8, nullptr) / 1024);
    }
  }
  std::fclose(status);
  return EXIT_SUCCESS;
}
