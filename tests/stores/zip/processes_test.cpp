// Several processes on one document, and processes that end during a save.

#ifndef _WIN32

#include <gtest/gtest.h>
#include <signal.h>
#include <stores/zip/zip_store.h>
#include <sys/wait.h>
#include <tests/kit/temporary_folder.h>
#include <tests/kit/store/document_states.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

constexpr int kSaves = 40;

ZipStore Open(const std::filesystem::path& path) {
  // The end of a process loses nothing that the system was given.
  return ZipStore::Open(path, {.durable = false}).value();
}

/// Runs `work` in another process, which ends with success if it returns true.
pid_t Start(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work() ? 0 : 1);
  return child;
}

bool EndsWell(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Moves "count" to the object of the next number, again if another process was faster.
bool CountOn(ZipStore& store) {
  for (;;) {
    const Result<std::vector<Head>> heads = store.Heads();
    if (!heads) return false;
    const Id before = heads->empty() ? Id() : heads->front().id;
    const int number = before == Id() ? 0 : std::stoi(DescribeObject(store, before));
    const StoredObject next = ObjectOf(std::to_string(number + 1));
    const Status status = Save(store, {next}, {{"count", before, next.id}});
    if (status) return true;
    if (status.error().code != ErrorCode::Conflict) return false;
  }
}

TEST(ZipProcesses, SavesOfTwoProcessesAllCount) {
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.Path() / "document.zip";
  const auto work = [&] {
    ZipStore store = Open(path);
    for (int save = 0; save < kSaves; ++save) {
      if (!CountOn(store)) return false;
    }
    return true;
  };
  const std::vector<pid_t> children = {Start(work), Start(work)};
  for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
  ZipStore store = Open(path);
  EXPECT_EQ(DescribeStore(store), "count: " + std::to_string(2 * kSaves) + "\n");
}

/// Goes back from the new state to the old one.
Status SaveOldStateAgain(ZipStore& store) {
  return Save(
      store, {kShared, kOld},
      {{"master", kNew.id, kOld.id}, {"large", kLarge.id, Id()}, {"topic", Id(), kShared.id}});
}

/// Saves the two states in turn until it is killed.
bool SaveForEver(const std::filesystem::path& path) {
  ZipStore store = Open(path);
  while (SaveNewState(store).ok() && SaveOldStateAgain(store).ok()) {
  }
  return false;
}

TEST(ZipProcesses, OldStateOrNewStateIsLeftWhenAProcessIsKilled) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.Path() / "document.zip";
  {
    ZipStore store = Open(path);
    ASSERT_TRUE(SaveOldState(store).ok());
  }
  for (int round = 0; round < 60; ++round) {
    const pid_t child = Start([&] { return SaveForEver(path); });
    ASSERT_GT(child, 0);
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<>(0, 10000)(random)));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a save failed in round " << round;
    ZipStore store = Open(path);
    const std::string state = DescribeStore(store);
    ASSERT_TRUE(state == kOldState || state == kNewState) << round << ": " << state;
    if (state == kNewState) {
      ASSERT_TRUE(SaveOldStateAgain(store).ok());
    }
  }
}

TEST(ZipProcesses, ProcessesThatMakeADocumentAtOnceShareIt) {
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.Path() / "document.zip";
  std::vector<pid_t> children;
  for (const std::string name : {"a", "b", "c", "d"}) {
    children.push_back(Start([&] {
      ZipStore store = Open(path);
      return Save(store, {kOld}, {{name, Id(), kOld.id}}).ok();
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(EndsWell(child));
  ZipStore store = Open(path);
  EXPECT_EQ(store.Heads().value().size(), 4U);
}

}  // namespace
}  // namespace TalVcs::Kit

#endif
