// Calls a target with every file of a folder, and with files that were cut off in the middle: fuzz_NAME FOLDER.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Promises.h"

constexpr std::size_t cutsAFile = 64;

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
    for (std::size_t cut = 0; cut <= cutsAFile; ++cut) {
      // A copy of exactly that size, so that a read past its end is seen.
      const std::vector<char> bytes(content.begin(),
                                    content.begin() + static_cast<std::ptrdiff_t>(content.size() * cut / cutsAFile));
      quillmar::fuzz::look({bytes.data(), bytes.size()});
    }
  }
  return 0;
}
