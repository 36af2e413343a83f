#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

namespace TalVcs::Testing {

/// A new folder, removed with all it holds at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    static std::atomic<unsigned> count = 0;
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "." + test->name();
    for (char& character : name) {
      if (character == '/') character = '_';
    }
    m_path = std::filesystem::path(testing::TempDir()) /
             ("talvcs-" + name + "-" + std::to_string(std::random_device()()) + "-" +
              std::to_string(++count));
    std::filesystem::create_directories(m_path);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  const std::filesystem::path& Path() const noexcept { return m_path; }

 private:
  std::filesystem::path m_path;
};

inline std::string ReadWhole(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// Writes a new file. Some file systems wait for the medium when one is overwritten.
inline void WriteWhole(const std::filesystem::path& path, std::string_view bytes) {
  std::filesystem::remove(path);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// Number of files below `folder`, folders not counted.
inline int CountFiles(const std::filesystem::path& folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) ++count;
  }
  return count;
}

}  // namespace TalVcs::Testing
