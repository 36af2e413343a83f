#ifndef _WIN32

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <signal.h>
#include <sys/wait.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// The end of a process loses nothing that was passed to the system, so nothing waits for the
/// medium.
DirectoryStore Open(const std::filesystem::path& folder) {
  DirectoryStoreOptions options;
  options.durable = false;
  return DirectoryStore(folder, options);
}

/// Saves the two states in turn for ever, in a process of its own.
pid_t StartSaving(const std::filesystem::path& folder, Repository& first, Repository& second) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  DirectoryStore store = Open(folder);
  for (bool turn = false;; turn = !turn) {
    if (!Save(turn ? first : second, store) || !store.Commit()) ::_exit(1);
  }
}

TEST(DirectoryStoreKill, OldStateOrNewStateIsLeft) {
  const unsigned seed = std::random_device()();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TemporaryFolder folder;
  Repository first = OldState();
  Repository second = NewState();
  const std::string texts[] = {Describe(first), Describe(second)};
  DirectoryStore initial = Open(folder.Path());
  ASSERT_TRUE(Save(first, initial) && initial.Commit());
  initial.Refresh();

  for (int round = 0; round < 40; ++round) {
    const pid_t child = StartSaving(folder.Path(), first, second);
    ASSERT_GT(child, 0);
    const auto pause = std::chrono::microseconds(std::uniform_int_distribution<>(0, 10000)(random));
    std::this_thread::sleep_for(pause);
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the save failed in round " << round;
    DirectoryStore store = Open(folder.Path());
    const std::string found = Load(store);
    ASSERT_TRUE(found == texts[0] || found == texts[1]) << round << ": " << found;
    ASSERT_TRUE(store.FindDamage().empty()) << round;
  }
  ASSERT_TRUE(Save(second, initial) && initial.Commit()) << initial.LastError();
  EXPECT_EQ(
      CountFiles(folder.Path() / ".vcs" / "objects"),
      static_cast<int>(second.GetCommitCount() + second.GetTreeCount() + second.GetBlobCount()));
}

TEST(DirectoryStoreKill, OtherProcessIsRefusedWhileThisOneWrites) {
  const TemporaryFolder folder;
  Repository first = OldState();
  Repository second = NewState();
  DirectoryStore store = Open(folder.Path());
  ASSERT_TRUE(Save(first, store));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    DirectoryStore other = Open(folder.Path());
    const bool refused = !Save(second, other) && !other.Commit() &&
                         other.LastError().find("another writer") != std::string::npos;
    ::_exit(refused ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_TRUE(store.Commit());
  EXPECT_EQ(Load(store), Describe(first));
}

}  // namespace
}  // namespace TalVcs::Kit

#endif
