#pragma once

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/open/verify.h>
#include <tests/kit/open/histories.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace TalVcs::Testing {

/// Opens the store of one place, again and again.
using OpenSharedStore = std::function<std::shared_ptr<Kit::IObjectStore>()>;

/// Clean-ups, readers and one writer on one place, each on a thread and with store objects of its
/// own. What they share is the store alone.
class CleanUpBeside {
 public:
  explicit CleanUpBeside(OpenSharedStore open) : m_open(std::move(open)) {}

  /// Saves `saves` commits, each with a branch that goes again, beside clean-ups and readers.
  /// Requires that every reader finds branches whole that are where it saw them, and that nothing
  /// of the writer gets lost.
  void Run(int saves) {
    {
      Repository repository = SmallHistory();
      Kit::Save(repository, *m_open()).value();
    }
    std::thread cleaner([this] { CleanUpAgain(); });
    std::thread reader([this] { ReadAgain(); });
    for (int save = 0; save < saves; ++save) SaveOne(save);
    while (m_cleanUps == 0 || m_reads == 0) std::this_thread::yield();
    m_ended = true;
    cleaner.join();
    reader.join();
    EXPECT_EQ(Kit::Open(m_open()).value()->GetHead(Wide("master"))->GetBlob(Wide("count"))->GetId(),
              SharedBlob(std::to_string(saves - 1))->GetId());
    Kit::CleanUp(*m_open()).value();
    const Kit::VerifyReport report = Kit::Verify(*m_open()).value();
    EXPECT_TRUE(report.IsWhole());
    EXPECT_EQ(report.unreferencedObjects, 0u);
    EXPECT_EQ(report.branches.front().commits, 3u + static_cast<unsigned>(saves));
  }

 private:
  static bool IsBusy(const Kit::Error& error) { return error.code == Kit::ErrorCode::Busy; }

  void SaveOne(int number) {
    Kit::OpenedRepository opened = Kit::Open(m_open()).value();
    Repository& repository = opened.GetRepository();
    AddCommit(repository, "master", {{"count", std::to_string(number)}});
    const auto name = Wide("passing");
    if (number % 2 == 0) {
      repository.CreateBranch(name, repository.GetHead(Wide("topic")));
      AddCommit(repository, "passing", {{"passing", std::to_string(number)}});
    } else {
      EXPECT_TRUE(repository.RemoveBranch(name));
    }
    for (;;) {
      const Kit::Result<Kit::SaveReport> saved = Kit::Save(opened);
      if (saved) return;
      ASSERT_TRUE(IsBusy(saved.error())) << Kit::Describe(saved.error());
    }
  }

  void CleanUpAgain() {
    while (!m_ended) {
      const Kit::Result<Kit::RemovedObjects> removed = Kit::CleanUp(*m_open());
      if (removed) {
        ++m_cleanUps;
      } else {
        EXPECT_TRUE(IsBusy(removed.error())) << Kit::Describe(removed.error());
      }
      std::this_thread::yield();
    }
  }

  void ReadAgain() {
    while (!m_ended) {
      const Kit::Result<Kit::VerifyReport> report = Kit::Verify(*m_open());
      if (report) {
        ++m_reads;
        for (const Kit::Damage& damage : report->damages) ExpectGone(*report, damage);
      } else {
        EXPECT_TRUE(IsBusy(report.error())) << Kit::Describe(report.error());
      }
      std::this_thread::yield();
    }
  }

  /// A store may remove what a branch reached that was removed or moved after a reader saw it.
  void ExpectGone(const Kit::VerifyReport& report, const Kit::Damage& damage) {
    const Kit::BranchReport* branch = Kit::FindBranch(report, damage.branch);
    ASSERT_NE(branch, nullptr) << Kit::Describe(damage);
    for (const Kit::Head& head : m_open()->Heads().value()) {
      EXPECT_FALSE(head.name == branch->name && head.id == branch->head) << Kit::Describe(damage);
    }
  }

  OpenSharedStore m_open;
  std::atomic<bool> m_ended = false;
  std::atomic<int> m_cleanUps = 0;
  std::atomic<int> m_reads = 0;
};

}  // namespace TalVcs::Testing
