#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <tests/kit/store/document_states.h>
#include <tests/kit/temporary_folder.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

/// Several processes on one document, and processes that end during a save. A store in one file
/// joins with a line:
///
///     INSTANTIATE_TYPED_TEST_SUITE_P(Sqlite, DocumentProcesses, SqliteStore);
namespace TalVcs::Kit {

/// Processes that work on one document of a store.
template <class Store>
class DocumentProcesses : public testing::Test {
 protected:
  static constexpr int kSaves = 40;

  Store Open() const {
    // The end of a process loses nothing that the system was given.
    return Store::Open(m_path, {.durable = false}).value();
  }

  /// Runs `work` in another process, which ends with success if it returns true.
  static pid_t Start(const std::function<bool()>& work) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work() ? 0 : 1);
    return child;
  }

  static bool EndsWell(pid_t child) {
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  /// Moves "count" to the object of the next number, again if another process was faster.
  static bool CountOn(IObjectStore& store) {
    for (;;) {
      const Result<std::vector<Head>> heads = store.Heads();
      if (!heads) return false;
      const Id before = heads->empty() ? Id() : heads->front().id;
      const int number = before == Id() ? 0 : std::stoi(Testing::DescribeObject(store, before));
      const StoredObject next = Testing::ObjectOf(std::to_string(number + 1));
      const Status status = Testing::Save(store, {next}, {{"count", before, next.id}});
      if (status) return true;
      if (status.error().code != ErrorCode::Conflict) return false;
    }
  }

  /// Goes back from the new state to the old one.
  static Status SaveOldStateAgain(IObjectStore& store) {
    return Testing::Save(store, {Testing::kShared, Testing::kOld},
                         {{"master", Testing::kNew.id, Testing::kOld.id},
                          {"large", Testing::kLarge.id, Id()},
                          {"topic", Id(), Testing::kShared.id}});
  }

  /// Saves the two states in turn until it is killed.
  bool SaveForEver() const {
    Store store = Open();
    while (Testing::SaveNewState(store).ok() && SaveOldStateAgain(store).ok()) {
    }
    return false;
  }

 private:
  const Testing::TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "document.tal";
};

TYPED_TEST_SUITE_P(DocumentProcesses);

TYPED_TEST_P(DocumentProcesses, SavesOfTwoProcessesAllCount) {
  const auto work = [this] {
    TypeParam store = this->Open();
    for (int save = 0; save < this->kSaves; ++save) {
      if (!this->CountOn(store)) return false;
    }
    return true;
  };
  const std::vector<pid_t> children = {this->Start(work), this->Start(work)};
  for (const pid_t child : children) EXPECT_TRUE(this->EndsWell(child));
  TypeParam store = this->Open();
  EXPECT_EQ(Testing::DescribeStore(store), "count: " + std::to_string(2 * this->kSaves) + "\n");
}

TYPED_TEST_P(DocumentProcesses, OldStateOrNewStateIsLeftWhenAProcessIsKilled) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  {
    TypeParam store = this->Open();
    ASSERT_TRUE(Testing::SaveOldState(store).ok());
  }
  for (int round = 0; round < 60; ++round) {
    const pid_t child = this->Start([this] { return this->SaveForEver(); });
    ASSERT_GT(child, 0);
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<>(0, 10000)(random)));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a save failed in round " << round;
    TypeParam store = this->Open();
    const std::string state = Testing::DescribeStore(store);
    ASSERT_TRUE(state == Testing::kOldState || state == Testing::kNewState)
        << round << ": " << state;
    if (state == Testing::kNewState) {
      ASSERT_TRUE(this->SaveOldStateAgain(store).ok());
    }
  }
}

TYPED_TEST_P(DocumentProcesses, ProcessesThatMakeADocumentAtOnceShareIt) {
  std::vector<pid_t> children;
  for (const std::string name : {"a", "b", "c", "d"}) {
    children.push_back(this->Start([this, name] {
      TypeParam store = this->Open();
      return Testing::Save(store, {Testing::kOld}, {{name, Id(), Testing::kOld.id}}).ok();
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(this->EndsWell(child));
  TypeParam store = this->Open();
  EXPECT_EQ(store.Heads().value().size(), 4U);
}

REGISTER_TYPED_TEST_SUITE_P(DocumentProcesses, SavesOfTwoProcessesAllCount,
                            OldStateOrNewStateIsLeftWhenAProcessIsKilled,
                            ProcessesThatMakeADocumentAtOnceShareIt);

}  // namespace TalVcs::Kit
