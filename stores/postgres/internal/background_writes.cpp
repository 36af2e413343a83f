#include <stores/postgres/internal/background_writes.h>

#include <cstddef>
#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

constexpr std::size_t kMostWaiting = 2;

}  // namespace

BackgroundWrites::~BackgroundWrites() {
  Drop();
  if (m_thread.joinable()) m_thread.join();
}

Status BackgroundWrites::Begin(std::vector<StoredObject> objects) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return m_waiting.size() < kMostWaiting || HasFailed(); });
  if (HasFailed()) {
    lock.unlock();
    return Wait();
  }
  m_waiting.push_back(std::move(objects));
  if (m_isRunning) return {};
  lock.unlock();
  if (m_thread.joinable()) m_thread.join();
  m_isRunning = true;
  try {
    m_thread = std::thread([this] { Run(); });
  } catch (const std::exception&) {
    // The system refuses a thread, or has no memory for one.
    Run();
    return Wait();
  }
  return {};
}

Status BackgroundWrites::Wait() {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return !m_isRunning; });
  if (m_exception) std::rethrow_exception(m_exception);
  return m_status;
}

Status BackgroundWrites::Finish() {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return !m_isRunning; });
  if (std::exception_ptr exception = std::exchange(m_exception, nullptr)) {
    std::rethrow_exception(std::move(exception));
  }
  return std::exchange(m_status, Status());
}

void BackgroundWrites::Drop() noexcept {
  std::unique_lock lock(m_mutex);
  m_waiting.clear();
  m_changed.wait(lock, [this] { return !m_isRunning; });
  m_exception = nullptr;
  m_status = Status();
}

void BackgroundWrites::Run() noexcept {
  std::unique_lock lock(m_mutex);
  while (!m_waiting.empty() && !HasFailed()) WriteNext(lock);
  m_waiting.clear();
  m_isRunning = false;
  m_changed.notify_all();
}

void BackgroundWrites::WriteNext(std::unique_lock<std::mutex>& lock) {
  std::vector<StoredObject> objects = std::move(m_waiting.front());
  m_waiting.pop_front();
  m_changed.notify_all();
  lock.unlock();
  Status status;
  std::exception_ptr exception;
  try {
    status = m_write(objects);
  } catch (...) {
    exception = std::current_exception();
  }
  objects.clear();
  lock.lock();
  m_status = std::move(status);
  m_exception = std::move(exception);
}

}  // namespace TalVcs::Kit::Postgres
