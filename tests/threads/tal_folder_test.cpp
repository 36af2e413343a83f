#include <examples/tal/failure.h>
#include <examples/tal/hash_files.h>
#include <gtest/gtest.h>
#include <tests/kit/temporary_folder.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace Tal {
namespace {

namespace fs = std::filesystem;

// SHA-256 of "blob 5", a zero and "hello", and of "blob 0" and a zero.
constexpr const char* kHello = "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60";
constexpr const char* kEmpty = "473a0f4c3be8a93681a267e3b1e9a7dcda1185436fe141f7749120a303721813";

class ThreadsOfListFolder : public testing::Test {
 protected:
  // As many folders as several threads take, three deep, with two files each.
  ThreadsOfListFolder() {
    for (int number = 0; number < 90; ++number) {
      const std::string folder = "d" + std::to_string(number / 30) + "/e" +
                                 std::to_string(number / 3) + "/f" + std::to_string(number);
      fs::create_directories(m_scratch.Path() / folder);
      for (const char* name : {"/a", "/b.log"}) {
        std::ofstream(m_scratch.Path() / (folder + name)) << "text";
        m_paths.push_back(folder + name);
      }
    }
    // Sorts between the folder "d1" and what is in it.
    std::ofstream(m_scratch.Path() / "d1.txt") << "text";
    m_paths.emplace_back("d1.txt");
    std::sort(m_paths.begin(), m_paths.end());
  }

  std::vector<std::string> List(const Folder::IsTracked& isTracked) const {
    std::vector<std::string> paths;
    for (const FolderContents::File& file : Folder(m_scratch.Path()).List(isTracked).files)
      paths.push_back(file.path);
    return paths;
  }

  TalVcs::Testing::TemporaryFolder m_scratch;
  std::vector<std::string> m_paths;
};

TEST_F(ThreadsOfListFolder, FilesComeInTheOrderOfTheirPaths) {
  EXPECT_EQ(List([](const std::string&) { return false; }), m_paths);
}

TEST_F(ThreadsOfListFolder, OnlyOneThreadAtATimeAsksWhatIsTracked) {
  std::ofstream(m_scratch.Path() / Folder::kIgnoreName) << "*.log\n";
  std::size_t count = 0;  // not atomic
  const std::vector<std::string> paths = List([&count](const std::string& path) {
    ++count;
    return path.ends_with("f7/b.log");
  });
  EXPECT_EQ(count, 90U);
  EXPECT_EQ(paths.size(), 90U + 1U + 2U);
  EXPECT_EQ(std::count(paths.begin(), paths.end(), "d0/e2/f7/b.log"), 1);
}

TEST_F(ThreadsOfListFolder, FailureOfOneThreadFailsTheListing) {
  std::ofstream(m_scratch.Path() / Folder::kIgnoreName) << "*.log\n";
  EXPECT_THROW(List([](const std::string& path) -> bool { throw Failure(path); }), Failure);
}

class ThreadsOfHashFiles : public testing::Test {
 protected:
  // As many files as several threads take, a third of them each: "hello", empty, a link to "hello".
  ThreadsOfHashFiles() {
    fs::create_directory(Top() / Folder::kStoreName);
    for (std::size_t number = 0; number < 240; ++number) {
      const std::string path = "d" + std::to_string(number % 7) + "/" + std::to_string(number);
      fs::create_directories((Top() / path).parent_path());
      if (number % 3 == 2) {
        fs::create_symlink("hello", Top() / path);
      } else {
        Write(path, number % 3 == 0 ? "hello" : "");
      }
      m_paths.push_back(path);
    }
  }

  fs::path Top() const { return m_scratch.Path(); }
  void Write(const std::string& path, const std::string& text) const {
    std::ofstream(Top() / path, std::ios::binary) << text;
  }

  TalVcs::Testing::TemporaryFolder m_scratch;
  std::vector<std::string> m_paths;
};

TEST_F(ThreadsOfHashFiles, EachFileHasItsIdAndKind) {
  const Folder folder(Top());
  const auto hashed = HashFiles(folder, m_paths);
  ASSERT_EQ(hashed.size(), m_paths.size());
  for (std::size_t number = 0; number < hashed.size(); ++number) {
    ASSERT_TRUE(hashed[number]) << m_paths[number];
    EXPECT_EQ(ToUtf8(hashed[number]->id), number % 3 == 1 ? kEmpty : kHello) << m_paths[number];
    EXPECT_EQ(hashed[number]->stat.kind, number % 3 == 2 ? FileKind::Link : FileKind::File);
  }
}

TEST_F(ThreadsOfHashFiles, FileThatIsGoneHasNoId) {
  m_paths.insert(m_paths.begin() + 120, "d0/nothing");
  m_paths.emplace_back("d1");
  const auto hashed = HashFiles(Folder(Top()), m_paths);
  EXPECT_FALSE(hashed[120]);
  EXPECT_FALSE(hashed.back());
  EXPECT_EQ(ToUtf8(hashed[121]->id), kHello);
}

TEST_F(ThreadsOfHashFiles, FileThatIsReplacedMeanwhileHasOneOfItsTwoIds) {
  const Folder folder(Top());
  std::thread writer([this] {
    const Folder same(Top());
    for (std::size_t number = 0; number < m_paths.size(); number += 3)
      same.Write(m_paths[number], TalVcs::Buffer(), FileKind::File);
  });
  const auto hashed = HashFiles(folder, m_paths);
  writer.join();
  for (std::size_t number = 0; number < hashed.size(); number += 3) {
    ASSERT_TRUE(hashed[number]) << m_paths[number];
    const std::string id = ToUtf8(hashed[number]->id);
    EXPECT_TRUE(id == kHello || id == kEmpty) << id;
  }
}

}  // namespace
}  // namespace Tal
