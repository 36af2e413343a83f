// Runs a fuzz target on files, without a fuzzer.

#include "target.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw std::runtime_error("cannot be read");
  // Memory of just that size, so that a read after the end is noticed.
  const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  LLVMFuzzerTestOneInput(exact.get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: " << argv[0] << " FILE-OR-FOLDER...\n";
    return 2;
  }
  std::size_t count = 0;
  for (const fs::path argument : std::vector<const char*>(argv + 1, argv + argc)) {
    const std::vector<fs::path> files = FilesOf(argument);
    if (files.empty()) {
      std::cerr << argument << " holds no input\n";
      return 1;
    }
    for (const fs::path& path : files) {
      // Named first, for a target that ends the program.
      std::cout << path.string() << std::endl;
      try {
        Replay(path);
      } catch (const std::exception& error) {
        std::cerr << path.string() << ": " << error.what() << '\n';
        return 1;
      }
      ++count;
    }
  }
  std::cout << count << " inputs\n";
  return 0;
}
