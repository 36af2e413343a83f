#pragma once

#include <kit/internal/file_system.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Fuzz {

/// A file system in memory that holds a directory store to what it may touch.
///
/// A call with a path that isn't one of the store's own ends the program. In the folders of the
/// store stand files of a host, which have to stay as they are.
class MemoryFileSystem final : public TalVcs::Kit::FileSystem {
 public:
  /// Works for a store in "/host/store", and has "/host".
  MemoryFileSystem();

  static Path StoreFolder() { return "/host/store"; }

  /// Lets the call number `n` from now on fail, counted from 1; 0 for none.
  void FailAt(int n) { m_untilFailure = n; }
  /// How many calls have failed so.
  int Failures() const { return m_failures; }

  /// Everything that stands in files.
  struct Content {
    std::map<std::string, std::string> files;
    std::set<std::string> folders;
  };
  const Content& GetContent() const { return m_content; }
  void SetContent(const Content& content) { m_content = content; }

  /// The bytes of the store's state, empty if there is no such file.
  std::string State() const;
  /// Replaces them.
  void PutState(const std::string& bytes);

  /// Requires that the host's files are as they were.
  void CheckHostFiles() const;

  std::error_code ReadFile(const Path& path, TalVcs::Buffer& bytes) override;
  std::error_code ReadFileFrom(const Path& path, std::uint64_t from,
                               TalVcs::Buffer& bytes) override;
  std::error_code GetFileSize(const Path& path, std::uint64_t& size) override;
  std::error_code OpenFile(const Path& path,
                           std::unique_ptr<TalVcs::Kit::OpenedFile>& file) override;
  std::error_code CreateFile(const Path& path, const TalVcs::Buffer& bytes) override;
  std::error_code AppendFile(const Path& path, const TalVcs::Buffer& bytes) override;
  std::error_code TruncateFile(const Path& path, std::uint64_t size) override;
  std::error_code SyncFile(const Path& path) override;
  std::error_code SyncFolder(const Path& path) override;
  std::error_code SyncMedium(const Path& path) override;
  std::error_code Rename(const Path& from, const Path& to) override;
  std::error_code RemoveFile(const Path& path) override;
  std::error_code MakeFolder(const Path& path) override;
  std::error_code RemoveFolder(const Path& path) override;
  std::error_code ListFolder(const Path& path, std::vector<std::string>& names) override;
  std::error_code LockFile(const Path& path, TalVcs::Kit::LockKind kind, TalVcs::Kit::LockWait wait,
                           std::unique_ptr<TalVcs::Kit::FileLock>& lock) override;

 private:
  struct LockState {
    int shared = 0;
    bool exclusive = false;
  };
  class Lock;
  class File;

  bool Fails();
  void PutHostFile(const std::string& path);

  Content m_content;
  std::set<std::string> m_hostFiles;
  std::map<std::string, std::shared_ptr<LockState>> m_locks;
  int m_untilFailure = 0;
  int m_failures = 0;
};

}  // namespace Fuzz
