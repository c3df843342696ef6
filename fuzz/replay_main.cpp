// Runs a fuzz target without a fuzzer: over each file of a corpus folder, and over mutations of it
// that are the same in every run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int kMutationsPerFile = 300;
using Bytes = std::vector<std::uint8_t>;

Bytes Read(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void Mutate(Bytes& bytes, std::mt19937& random) {
  const int changes = 1 + static_cast<int>(random() % 4);
  for (int i = 0; i < changes && !bytes.empty(); ++i) {
    const std::size_t at = random() % bytes.size();
    switch (random() % 4) {
      case 0:
        bytes[at] = static_cast<std::uint8_t>(random());
        break;
      case 1:
        bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ (1u << (random() % 8)));
        break;
      case 2:
        bytes.resize(at);
        break;
      default:
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     static_cast<std::uint8_t>(random()));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
    return 2;
  }
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::fprintf(stderr, "no corpus in %s\n", argv[1]);
    return 1;
  }
  std::mt19937 random(20260101);
  int runs = 0;
  for (const auto& file : files) {
    const Bytes seed = Read(file);
    LLVMFuzzerTestOneInput(seed.data(), seed.size());
    for (int i = 0; i < kMutationsPerFile; ++i, ++runs) {
      Bytes mutated = seed;
      Mutate(mutated, random);
      LLVMFuzzerTestOneInput(mutated.data(), mutated.size());
    }
  }
  std::printf("%zu files and %d mutations\n", files.size(), runs);
  return 0;
}
