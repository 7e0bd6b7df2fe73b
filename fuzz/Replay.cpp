// Calls a target with every file of a folder, and with files that were cut off in the middle: fuzz_NAME FOLDER.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "Target.h"

namespace {

constexpr std::size_t cutsAFile = 64;

void call(std::string_view input) {
  // A copy of exactly that size, so that a read behind its end is seen.
  const std::vector<std::uint8_t> bytes(input.begin(), input.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  if (argc == 2) {
    std::copy(std::filesystem::directory_iterator(argv[1]), {}, std::back_inserter(files));
  }
  if (files.empty()) {
    std::fputs("usage: fuzz_NAME FOLDER, which has files in it\n", stderr);
    return 2;
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // the name is there when the process ends in the call
    std::ifstream stream(file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    call(content);
    for (std::size_t cut = 0; cut < cutsAFile; ++cut) {
      call(std::string_view(content).substr(0, content.size() * cut / cutsAFile));
    }
  }
  return 0;
}
