#pragma once

#include <kit/internal/file_system.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// A file system that counts its calls and lets some of them fail. A file that can't be made or
/// appended to is left half written. Waiting for the medium is left out, as no test can see its
/// effect.
class FaultyFileSystem final : public Kit::FileSystem {
 public:
  /// Lets the calls from number `first` on fail, `count` of them; the first call has number 1.
  void FailFrom(int first, int count = 1) {
    m_first = first;
    m_count = count;
  }
  /// Sets the error of the calls that fail.
  void FailWith(std::errc error) { m_error = std::make_error_code(error); }

  /// Says that there is a call to wait for all files at once.
  void OfferSyncMedium() { m_syncsMedium = std::error_code(); }

  int Calls() const { return static_cast<int>(m_calls.size()); }
  bool HasFailed() const { return m_first > 0 && Calls() >= m_first; }
  void Restart() { m_calls.clear(); }
  /// How many calls begin with that name.
  int CallsOf(const std::string& name) const {
    return static_cast<int>(std::count_if(m_calls.begin(), m_calls.end(), [&](const auto& call) {
      return call.compare(0, name.size(), name) == 0;
    }));
  }
  const std::vector<std::string>& Log() const { return m_calls; }

  std::error_code ReadFile(const Path& path, Buffer& bytes) override {
    return Fails("ReadFile", path) ? m_error : m_files->ReadFile(path, bytes);
  }
  std::error_code ReadFileFrom(const Path& path, std::uint64_t from, Buffer& bytes) override {
    return Fails("ReadFileFrom", path) ? m_error : m_files->ReadFileFrom(path, from, bytes);
  }
  std::error_code GetFileSize(const Path& path, std::uint64_t& size) override {
    return Fails("GetFileSize", path) ? m_error : m_files->GetFileSize(path, size);
  }
  bool IsLink(const Path& path) override { return m_files->IsLink(path); }
  std::error_code OpenFile(const Path& path, std::unique_ptr<Kit::OpenedFile>& file) override {
    if (Fails("OpenFile", path)) return m_error;
    std::unique_ptr<Kit::OpenedFile> opened;
    const std::error_code error = m_files->OpenFile(path, opened);
    if (!error) file = std::make_unique<FaultyFile>(*this, path, std::move(opened));
    return error;
  }
  std::error_code CreateFile(const Path& path, const Buffer& bytes) override {
    if (!Fails("CreateFile", path)) return m_files->CreateFile(path, bytes);
    const std::error_code error = m_files->CreateFile(path, HalfOf(bytes));
    return error ? error : m_error;
  }
  std::error_code AppendFile(const Path& path, const Buffer& bytes) override {
    if (!Fails("AppendFile", path)) return m_files->AppendFile(path, bytes);
    const std::error_code error = m_files->AppendFile(path, HalfOf(bytes));
    return error ? error : m_error;
  }
  std::error_code TruncateFile(const Path& path, std::uint64_t size) override {
    return Fails("TruncateFile", path) ? m_error : m_files->TruncateFile(path, size);
  }
  std::error_code SyncFile(const Path& path) override {
    return Fails("SyncFile", path) ? m_error : std::error_code();
  }
  std::error_code SyncFolder(const Path& path) override {
    return Fails("SyncFolder", path) ? m_error : std::error_code();
  }
  std::error_code SyncMedium(const Path& path) override {
    return Fails("SyncMedium", path) ? m_error : m_syncsMedium;
  }
  std::error_code Rename(const Path& from, const Path& to) override {
    return Fails("Rename", to) ? m_error : m_files->Rename(from, to);
  }
  std::error_code RemoveFile(const Path& path) override {
    return Fails("RemoveFile", path) ? m_error : m_files->RemoveFile(path);
  }
  std::error_code MakeFolder(const Path& path) override {
    return Fails("MakeFolder", path) ? m_error : m_files->MakeFolder(path);
  }
  std::error_code RemoveFolder(const Path& path) override {
    return Fails("RemoveFolder", path) ? m_error : m_files->RemoveFolder(path);
  }
  std::error_code ListFolder(const Path& path, std::vector<std::string>& names) override {
    return Fails("ListFolder", path) ? m_error : m_files->ListFolder(path, names);
  }
  std::error_code LockFile(const Path& path, Kit::LockKind kind, Kit::LockWait wait,
                           std::unique_ptr<Kit::FileLock>& lock) override {
    return Fails("LockFile", path) ? m_error : m_files->LockFile(path, kind, wait, lock);
  }

 private:
  /// Counts its calls among those of the file system, which outlives it.
  class FaultyFile final : public Kit::OpenedFile {
   public:
    FaultyFile(FaultyFileSystem& files, Path path, std::unique_ptr<Kit::OpenedFile> file)
        : m_files(files), m_path(std::move(path)), m_file(std::move(file)) {}

    std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                           std::size_t& count) override {
      if (!m_files.Fails("ReadAt", m_path)) return m_file->ReadAt(position, target, size, count);
      count = 0;
      return m_files.m_error;
    }
    std::error_code GetSize(std::uint64_t& size) override {
      return m_files.Fails("GetSize", m_path) ? m_files.m_error : m_file->GetSize(size);
    }

   private:
    FaultyFileSystem& m_files;
    Path m_path;
    std::unique_ptr<Kit::OpenedFile> m_file;
  };

  static Buffer HalfOf(const Buffer& bytes) {
    Buffer half;
    half.AppendRange(bytes, 0, bytes.GetSize() / 2);
    return half;
  }

  bool Fails(const char* name, const Path& path) {
    m_calls.push_back(std::string(name) + " " + path.filename().string());
    return m_first > 0 && Calls() >= m_first && Calls() - m_first < m_count;
  }

  std::shared_ptr<Kit::FileSystem> m_files = Kit::MakeNativeFileSystem();
  std::error_code m_error = std::make_error_code(std::errc::io_error);
  std::error_code m_syncsMedium = std::make_error_code(std::errc::function_not_supported);
  int m_first = 0;
  int m_count = 0;
  std::vector<std::string> m_calls;
};

}  // namespace TalVcs::Testing
