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
/// The thread ends when nothing more waits. If the system refuses a thread, the owner's thread
/// writes. Only the owner's thread calls functions of this class. A failure or an exception of a
/// write stays until `Finish` or `Drop`; nothing more is written meanwhile.
class BackgroundWrites {
 public:
  using Write = std::function<Status(std::span<const StoredObject> objects)>;

  /// `write` is called for each list, from one thread at a time: between `Begin` and the end of the
  /// next `Wait`, `Finish` or `Drop`, or of this object.
  explicit BackgroundWrites(Write write) : m_write(std::move(write)) {}
  BackgroundWrites(const BackgroundWrites&) = delete;
  BackgroundWrites& operator=(const BackgroundWrites&) = delete;
  /// Does what `Drop` does.
  ~BackgroundWrites();

  /// Takes a list, after waiting for room. Fails as `Wait` does, without the list, if one before
  /// has failed.
  Status Begin(std::vector<StoredObject> objects);

  /// Waits until all is written. Returns the first failure, or throws what the write has thrown.
  Status Wait();

  /// Does what `Wait` does, and forgets the failure or the exception.
  Status Finish();

  /// Drops the lists that wait, waits for the one that is being written, and forgets a failure.
  void Drop() noexcept;

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
