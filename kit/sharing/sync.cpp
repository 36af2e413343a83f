// The local branch moves before the remote's one:
//
//     A---B---C          remote/master        A---B---C          remote/master
//      \                                               \                          and then
//       X---Y            master                         X'--Y'   master           a push of Y'
//
// If the push fails, or its answer is lost, nothing is lost and nothing is there twice: the next
// attempt finds Y' in the remote's history, or makes it again on top of what is there then.

#include <kit/open/internal/reporter.h>
#include <kit/sharing/internal/branch_lock.h>
#include <kit/sharing/remote.h>
#include <kit/workspace/workspace.h>

#include <algorithm>
#include <optional>
#include <random>
#include <thread>
#include <utility>

namespace TalVcs::Kit {

namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr std::uint64_t kLossesBeforeLock = 5;
constexpr Milliseconds kLongestPause(250);

void SleepInThread(Milliseconds time) { std::this_thread::sleep_for(time); }

/// Makes a branch of a workspace and one of a remote equal, also while others move the latter.
class Synchronisation {
 public:
  Synchronisation(Workspace& workspace, Remote& remote, const SyncOptions& options)
      : m_workspace(workspace),
        m_remote(remote),
        m_options(options),
        m_reporter(options.progress),
        m_sleep(options.sleep ? options.sleep : BranchLock::Sleep(SleepInThread)) {}

  Result<SyncReport> Run() {
    for (;;) {
      Result<SyncReport> pulled = m_workspace.Pull(m_remote, m_options);
      if (!pulled) return pulled;
      m_report.remoteHead = pulled->remoteHead;
      m_report.replayedVersions = pulled->replayedVersions;
      m_report.fetchedObjects += pulled->fetchedObjects;
      m_report.undecided = std::move(pulled->undecided);
      if (m_report.undecided) return m_report;
      const Result<bool> pushed = Push();
      if (!pushed) return pushed.error();
      if (*pushed) return m_report;
      const Status status = PrepareAnotherAttempt();
      if (!status) return status.error();
    }
  }

 private:
  /// Returns false if somebody else was faster.
  Result<bool> Push() {
    const Result<std::optional<Version>> head = m_workspace.GetHead();
    if (!head) return head.error();
    if (!*head) return true;  // neither side has a version
    const Result<PushReport> pushed = m_workspace.Push(m_remote, {.progress = m_options.progress});
    if (pushed) {
      m_report.remoteHead = pushed->head;
      m_report.pushedObjects += pushed->writtenObjects;
      return true;
    }
    const ErrorCode code = pushed.error().code;
    // After a lost answer, the next fetch shows whether the push has happened.
    const bool is_race =
        code == ErrorCode::Conflict || code == ErrorCode::Unknown || code == ErrorCode::Busy;
    if (!is_race || m_report.lostRaces >= m_options.mostLosses) return pushed.error();
    ++m_report.lostRaces;
    return false;
  }

  Status PrepareAnotherAttempt() {
    Status status = m_reporter.Begin("wait");
    if (!status) return status;
    if (!m_lock) {
      m_lock.emplace(m_remote.GetStore(), m_workspace.GetBranch(), m_sleep, m_reporter);
    }
    m_sleep(Pause());
    status = m_report.lostRaces < kLossesBeforeLock ? m_lock->WaitUntilFree() : m_lock->Take();
    return status ? m_reporter.End() : status;
  }

  /// Returns a random time from a span that doubles with each lost race.
  Milliseconds Pause() {
    const std::uint64_t doublings = std::min<std::uint64_t>(m_report.lostRaces, 8);
    const Milliseconds longest =
        std::min(kLongestPause, Milliseconds(std::int64_t{1} << doublings));
    return Milliseconds(std::uniform_int_distribution<std::int64_t>(0, longest.count())(m_random));
  }

  Workspace& m_workspace;
  Remote& m_remote;
  const SyncOptions& m_options;
  Reporter m_reporter;
  BranchLock::Sleep m_sleep;
  std::mt19937 m_random{std::random_device()()};
  std::optional<BranchLock> m_lock;
  SyncReport m_report;
};

}  // namespace

Result<SyncReport> Workspace::Sync(Remote& remote, const SyncOptions& options) {
  return Synchronisation(*this, remote, options).Run();
}

Result<SyncReport> Remote::Sync(Workspace& workspace, const SyncOptions& options) {
  return workspace.Sync(*this, options);
}

}  // namespace TalVcs::Kit
