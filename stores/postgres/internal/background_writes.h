#pragma once

#include <kit/store/object_store.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <span>
#include <thread>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// Writes lists of objects one after the other, on another thread while its owner goes on.
///
/// The thread ends when nothing more waits. Where the system refuses a thread, the owner's writes.
/// All functions belong to the owner's thread.
class BackgroundWrites {
 public:
  using Write = std::function<Status(std::span<const StoredObject> objects)>;

  /// `write` is called for each list, from one thread at a time: from `Begin` to the end of the
  /// next `Finish`, or of this object.
  explicit BackgroundWrites(Write write) : m_write(std::move(write)) {}
  BackgroundWrites(const BackgroundWrites&) = delete;
  BackgroundWrites& operator=(const BackgroundWrites&) = delete;
  /// Waits for the list that is being written, and drops those that wait.
  ~BackgroundWrites();

  /// Takes a list, after waiting for room. Fails as `Finish` does if a list before has failed, and
  /// drops this one then.
  Status Begin(std::vector<StoredObject> objects);

  /// Waits until all is written. Fails with the first failure, after which no more was written, or
  /// throws what the write has thrown. The next list begins anew.
  Status Finish();

 private:
  void Run() noexcept;
  // Under the lock.
  bool HasFailed() const noexcept { return !m_status || m_exception; }
  void WriteNext(std::unique_lock<std::mutex>& lock);

  const Write m_write;
  std::thread m_thread;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::vector<StoredObject>> m_waiting;
  bool m_isRunning = false;
  Status m_status;
  std::exception_ptr m_exception;
};

}  // namespace TalVcs::Kit::Postgres
