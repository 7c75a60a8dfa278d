// Runs every file of the seed corpora through every target: run_corpus DIRECTORY, which holds one folder per target.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "targets.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  const std::filesystem::path root = argv[1];
  std::size_t files = 0;
  for (const auto& own : cfm::fuzz::Targets()) {
    // A target without seeds is an error here, and so is a folder that cannot be read.
    std::size_t seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root / own.name)) {
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::vector<char> content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
      const std::vector<std::uint8_t> octets(content.begin(), content.end());
      for (const auto& target : cfm::fuzz::Targets()) target.run(octets);
      ++seeds;
    }
    if (seeds == 0) {
      std::fprintf(stderr, "no seeds for %s\n", own.name);
      return 1;
    }
    files += seeds;
  }
  std::printf("%zu files through %zu targets\n", files, cfm::fuzz::Targets().size());
  return 0;
}
