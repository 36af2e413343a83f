#pragma once

#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <stores/sqlite/sqlite_store.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <system_error>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Calls the host's progress callback, not too often.
class CopyProgress {
 public:
  CopyProgress(const Progress& progress, std::string_view phase, std::uint64_t total)
      : m_progress(progress) {
    m_step.phase = phase;
    m_step.total = total;
  }

  /// Returns false if the host has cancelled.
  bool Call() {
    m_called = Clock::now();
    return !m_progress || m_progress(m_step);
  }
  bool Add(std::uint64_t sizeBytes) {
    ++m_step.done;
    m_step.sizeBytes += sizeBytes;
    return CallIfDue();
  }
  /// For work without a result.
  bool CallIfDue() { return Clock::now() - m_called < std::chrono::milliseconds(20) || Call(); }

 private:
  using Clock = std::chrono::steady_clock;

  const Progress& m_progress;
  ProgressStep m_step;
  Clock::time_point m_called;
};

/// The file beside a new document in which it is made. Removed at the end unless it got its final
/// name.
class CopyFile {
 public:
  /// Removes a copy that a program left when it was killed.
  explicit CopyFile(const std::filesystem::path& target);
  CopyFile(const CopyFile&) = delete;
  CopyFile& operator=(const CopyFile&) = delete;
  ~CopyFile();

  const std::filesystem::path& Path() const noexcept { return m_path; }

  /// Makes a document in the file, which `fill` fills within one transaction.
  Status Make(SqliteOptions options, const std::function<Status(Database&)>& fill) const;

  /// Gives the copy the name of a file that isn't there. With `durable` the name is on the medium
  /// then. After a failure there is no such file.
  std::error_code MoveToNew(const std::filesystem::path& target, bool durable);

 private:
  std::filesystem::path m_path;
};

/// Returns the name of the file in which the document `target` is made.
std::filesystem::path CopyNameOf(std::filesystem::path target);

/// Fails with `Denied` if there is a file of that name, or one that SQLite would take for its
/// journal or log. A link is one too, also if it leads to nothing.
Status CheckFree(const std::filesystem::path& file);

/// Fails with `Denied` if the copy of `source` that is made for `target` would take its name.
Status CheckNotItsCopy(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace TalVcs::Kit::Sqlite
