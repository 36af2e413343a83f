#ifndef _WIN32

#include <gtest/gtest.h>
#include <kit/store/directory_object_store.h>
#include <signal.h>
#include <sys/wait.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/text.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Ascii;
using Testing::TemporaryFolder;
using Testing::Wide;

/// The end of a process loses nothing that was passed to the system, so nothing waits for the
/// medium.
DirectoryObjectStore Open(const std::filesystem::path& folder) {
  return DirectoryObjectStore::Open(folder, {.durable = false}).value();
}

Id HeadOf(DirectoryObjectStore& store) {
  const std::vector<Head> heads = store.Heads().value();
  return heads.empty() ? Id() : heads.front().id;
}

/// Puts an object with the id of the head before and a text on top of "master".
Status Save(DirectoryObjectStore& store, const Id& before, const std::string& text) {
  const Buffer packed = Testing::BufferOf(Ascii(before) + "\n" + text);
  const StoredObject object{Id(packed), packed};
  if (Status status = store.Write({&object, 1}); !status) return status;
  const HeadMove move{"master", before, object.id};
  return store.MoveHeads({&move, 1});
}

/// Returns the texts from the first to the last.
std::vector<std::string> TextsOf(DirectoryObjectStore& store) {
  std::vector<std::string> texts;
  Id id = HeadOf(store);
  while (!id.View().IsEmpty()) {
    std::string bytes;
    const Status status = store.Read({&id, 1}, [&](const Id& found, Result<Buffer> packed) {
      if (packed && Id(*packed) == found) bytes = Testing::Bytes(*packed);
    });
    const std::size_t end = bytes.find('\n');
    if (!status || end == std::string::npos) return {"damaged"};
    texts.insert(texts.begin(), bytes.substr(end + 1));
    id = Id(Wide(bytes.substr(0, end)));
  }
  return texts;
}

/// Saves until `count` saves have succeeded, in a process of its own.
pid_t StartSaving(const std::filesystem::path& folder, const std::string& name, int count) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  DirectoryObjectStore store = Open(folder);
  for (int number = 0; number < count;) {
    const Status status = Save(store, HeadOf(store), name + std::to_string(number));
    if (status) {
      ++number;
    } else if (status.error().code != ErrorCode::Conflict &&
               status.error().code != ErrorCode::Busy) {
      ::_exit(1);
    }
  }
  ::_exit(0);
}

TEST(DirectoryObjectStoreProcesses, NoSaveOfTwoProcessesIsLost) {
  constexpr int kSaves = 60;
  const TemporaryFolder folder;
  DirectoryObjectStore store =
      DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value();
  const pid_t children[] = {StartSaving(folder.Path(), "a", kSaves),
                            StartSaving(folder.Path(), "b", kSaves)};
  for (const pid_t child : children) {
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  int next[] = {0, 0};
  for (const std::string& text : TextsOf(store)) {
    int& number = next[text.front() - 'a'];
    ASSERT_EQ(text.substr(1), std::to_string(number++));
  }
  EXPECT_EQ(next[0], kSaves);
  EXPECT_EQ(next[1], kSaves);
}

TEST(DirectoryObjectStoreProcesses, KilledSaveLeavesTheSavesBefore) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TemporaryFolder folder;
  DirectoryObjectStore store =
      DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value();
  std::size_t saves = 0;
  for (int round = 0; round < 40; ++round) {
    const pid_t child = StartSaving(folder.Path(), "x", 1000000);
    ASSERT_GT(child, 0);
    const auto pause = std::chrono::microseconds(std::uniform_int_distribution<>(0, 10000)(random));
    std::this_thread::sleep_for(pause);
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the save failed in round " << round;
    const std::vector<std::string> texts = TextsOf(store);
    ASSERT_GE(texts.size(), saves) << round;
    saves = texts.size();
    ASSERT_TRUE(Save(store, HeadOf(store), "after round " + std::to_string(round)).ok());
    ++saves;
  }
  EXPECT_EQ(TextsOf(store).size(), saves);
}

TEST(DirectoryObjectStoreProcesses, RemovalKeepsWhatAnotherProcessReads) {
  const TemporaryFolder folder;
  DirectoryObjectStore store =
      DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value();
  ASSERT_TRUE(Save(store, Id(), "text").ok());
  ASSERT_FALSE(HeadOf(store).View().IsEmpty());
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    DirectoryObjectStore other = Open(folder.Path());
    const Result<RemovedObjects> removed =
        other.RemoveUnmarked([](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
          return std::vector<Id>();
        });
    ::_exit(!removed && removed.error().code == ErrorCode::Busy ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(TextsOf(store), std::vector<std::string>{"text"});
}

}  // namespace
}  // namespace TalVcs::Kit

#endif
