#pragma once

#include <kit/internal/file_system.h>
#include <kit/text.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// A file system in memory that loses, with its power, anything that nobody has waited for.
///
/// The bytes of a file are kept by `SyncFile`, the names in a folder by `SyncFolder`. Of other
/// bytes and names a loss of power keeps some: of each folder its first changes, of each file its
/// bytes as far as they go, the old ones, or zeros in place of new ones. New bytes needn't come in
/// their order: pieces of them may be zeros although later ones are kept.
class VolatileFileSystem final : public Kit::FileSystem {
 public:
  VolatileFileSystem() {
    m_folders[""] = {};
    m_kept[""] = {};
  }

  /// Lets the power go before call number `call`, counted from 1 at the last loss; 0 for never. All
  /// calls from then on fail.
  void LosePowerAt(int call) {
    m_lossAt = call;
    m_calls = 0;
  }
  bool HasLostPower() const { return m_lossAt > 0 && m_calls >= m_lossAt; }

  /// Comes back with what a loss of power leaves, as `random` decides.
  void Restart(std::mt19937& random) {
    std::map<std::string, Entries> folders = m_kept;
    for (const auto& [folder, changes] : m_pending) {
      const std::size_t kept = random() % (changes.size() + 1);
      for (std::size_t index = 0; index < kept; ++index) Make(folders, folder, changes[index]);
    }
    std::map<std::string, Entries> reached;
    Reach(folders, "", reached);
    for (auto& [folder, entries] : reached) {
      for (auto& [name, entry] : entries) {
        if (entry) entry = std::make_shared<File>(Leave(*entry, random));
      }
    }
    m_folders = m_kept = reached;
    m_pending.clear();
    LosePowerAt(0);
  }

  std::error_code ReadFile(const Path& path, Buffer& bytes) override {
    return ReadFileFrom(path, 0, bytes);
  }
  std::error_code ReadFileFrom(const Path& path, std::uint64_t from, Buffer& bytes) override {
    if (Lost()) return Failure();
    const File* file = Find(path);
    if (file == nullptr) return NotThere();
    const std::size_t skipped = std::min<std::size_t>(from, file->bytes.size());
    bytes.Append(file->bytes.data() + skipped, file->bytes.size() - skipped);
    return {};
  }
  std::error_code GetFileSize(const Path& path, std::uint64_t& size) override {
    if (Lost()) return Failure();
    const File* file = Find(path);
    if (file == nullptr) return NotThere();
    size = file->bytes.size();
    return {};
  }
  std::error_code OpenFile(const Path& path, std::unique_ptr<Kit::OpenedFile>& file) override {
    if (Lost()) return Failure();
    const auto folder = m_folders.find(FolderOf(path));
    if (folder == m_folders.end() || Find(path) == nullptr) return NotThere();
    file = std::make_unique<VolatileFile>(*this, folder->second[NameOf(path)]);
    return {};
  }
  std::error_code CreateFile(const Path& path, const Buffer& bytes) override {
    if (Lost()) return Failure();
    const auto folder = m_folders.find(FolderOf(path));
    if (folder == m_folders.end()) return NotThere();
    if (folder->second.contains(NameOf(path))) return Taken();
    const auto file = std::make_shared<File>();
    file->bytes = Kit::BytesFromBuffer(bytes);
    Change(FolderOf(path), {NameOf(path), true, file, {}});
    return {};
  }
  std::error_code AppendFile(const Path& path, const Buffer& bytes) override {
    if (Lost()) return Failure();
    File* file = Find(path);
    if (file == nullptr) return NotThere();
    file->bytes += Kit::BytesFromBuffer(bytes);
    return {};
  }
  std::error_code TruncateFile(const Path& path, std::uint64_t size) override {
    if (Lost()) return Failure();
    File* file = Find(path);
    if (file == nullptr) return NotThere();
    file->bytes.resize(static_cast<std::size_t>(size));
    return {};
  }
  std::error_code SyncFile(const Path& path) override {
    if (Lost()) return Failure();
    File* file = Find(path);
    if (file == nullptr) return NotThere();
    file->kept = file->bytes;
    return {};
  }
  std::error_code SyncFolder(const Path& path) override {
    if (Lost()) return Failure();
    const std::string folder = path == "." ? std::string() : path.generic_string();
    for (const NameChange& change : m_pending[folder]) Make(m_kept, folder, change);
    m_pending.erase(folder);
    return {};
  }
  std::error_code SyncMedium(const Path& /*path*/) override {
    if (Lost()) return Failure();
    for (const auto& [folder, entries] : m_folders) {
      for (const auto& [name, file] : entries) {
        if (file) file->kept = file->bytes;
      }
    }
    m_kept = m_folders;
    m_pending.clear();
    return {};
  }
  std::error_code Rename(const Path& from, const Path& to) override {
    if (Lost()) return Failure();
    const auto folder = m_folders.find(FolderOf(from));
    if (folder == m_folders.end() || Find(from) == nullptr) return NotThere();
    Change(FolderOf(from), {NameOf(to), true, folder->second[NameOf(from)], NameOf(from)});
    return {};
  }
  std::error_code RemoveFile(const Path& path) override {
    if (Lost()) return Failure();
    if (Find(path) == nullptr) return NotThere();
    Change(FolderOf(path), {NameOf(path), false, nullptr, {}});
    return {};
  }
  std::error_code MakeFolder(const Path& path) override {
    if (Lost()) return Failure();
    const auto parent = m_folders.find(FolderOf(path));
    if (parent == m_folders.end()) return NotThere();
    if (parent->second.contains(NameOf(path))) return Taken();
    Change(FolderOf(path), {NameOf(path), true, nullptr, {}});
    m_folders[path.generic_string()];
    m_kept[path.generic_string()];
    return {};
  }
  std::error_code RemoveFolder(const Path& path) override {
    if (Lost()) return Failure();
    const auto folder = m_folders.find(path.generic_string());
    if (folder == m_folders.end()) return NotThere();
    if (!folder->second.empty()) return std::make_error_code(std::errc::directory_not_empty);
    m_folders.erase(folder);
    Change(FolderOf(path), {NameOf(path), false, nullptr, {}});
    return {};
  }
  std::error_code ListFolder(const Path& path, std::vector<std::string>& names) override {
    if (Lost()) return Failure();
    const auto folder = m_folders.find(path.generic_string());
    if (folder == m_folders.end()) return NotThere();
    for (const auto& [name, file] : folder->second) names.push_back(name);
    return {};
  }
  std::error_code LockFile(const Path& /*path*/, Kit::LockKind /*kind*/, Kit::LockWait /*wait*/,
                           std::unique_ptr<Kit::FileLock>& lock) override {
    if (Lost()) return Failure();
    lock = std::make_unique<Kit::FileLock>();
    return {};
  }

 private:
  struct File {
    std::string bytes;
    std::string kept;
  };
  class VolatileFile final : public Kit::OpenedFile {
   public:
    VolatileFile(VolatileFileSystem& files, std::shared_ptr<File> file)
        : m_files(files), m_file(std::move(file)) {}

    std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                           std::size_t& count) override {
      count = 0;
      if (m_files.Lost()) return Failure();
      if (position < m_file->bytes.size()) count = m_file->bytes.copy(target, size, position);
      return {};
    }
    std::error_code GetSize(std::uint64_t& size) override {
      if (m_files.Lost()) return Failure();
      size = m_file->bytes.size();
      return {};
    }

   private:
    VolatileFileSystem& m_files;
    std::shared_ptr<File> m_file;
  };

  /// Names with their files, and null for folders.
  using Entries = std::map<std::string, std::shared_ptr<File>>;
  struct NameChange {
    std::string name;
    bool isThere;
    std::shared_ptr<File> file;
    std::string formerName;  // of a renamed file
  };

  static std::string FolderOf(const Path& path) { return path.parent_path().generic_string(); }
  static std::string NameOf(const Path& path) { return path.filename().generic_string(); }
  static std::error_code Failure() { return std::make_error_code(std::errc::io_error); }
  static std::error_code NotThere() {
    return std::make_error_code(std::errc::no_such_file_or_directory);
  }
  static std::error_code Taken() { return std::make_error_code(std::errc::file_exists); }

  bool Lost() {
    ++m_calls;
    return HasLostPower();
  }

  File* Find(const Path& path) {
    const auto folder = m_folders.find(FolderOf(path));
    if (folder == m_folders.end()) return nullptr;
    const auto file = folder->second.find(NameOf(path));
    return file == folder->second.end() ? nullptr : file->second.get();
  }

  static void Make(std::map<std::string, Entries>& folders, const std::string& folder,
                   const NameChange& change) {
    Entries& entries = folders[folder];
    if (!change.formerName.empty()) entries.erase(change.formerName);
    if (change.isThere) {
      entries[change.name] = change.file;
    } else {
      entries.erase(change.name);
    }
  }
  void Change(const std::string& folder, NameChange change) {
    Make(m_folders, folder, change);
    m_pending[folder].push_back(std::move(change));
  }

  /// Takes over the folders that names lead to.
  static void Reach(const std::map<std::string, Entries>& folders, const std::string& folder,
                    std::map<std::string, Entries>& reached) {
    const auto found = folders.find(folder);
    reached[folder] = found == folders.end() ? Entries() : found->second;
    for (const auto& [name, file] : Entries(reached[folder])) {
      if (!file) Reach(folders, (Path(folder) / name).generic_string(), reached);
    }
  }

  static std::string Reordered(std::string bytes, std::size_t from, std::mt19937& random) {
    constexpr std::size_t kPiece = 24;
    for (; from < bytes.size(); from += kPiece) {
      const std::size_t size = std::min(kPiece, bytes.size() - from);
      if (random() % 2 == 0) bytes.replace(from, size, size, '\0');
    }
    return bytes;
  }

  static File Leave(const File& file, std::mt19937& random) {
    const std::string& bytes = file.bytes;
    std::string left = file.kept;
    if (bytes != file.kept) {
      const std::size_t from = bytes.starts_with(file.kept) ? file.kept.size() : 0;
      const std::size_t size = from + random() % (bytes.size() - from + 1);
      const int kind = static_cast<int>(random() % 5);
      if (kind == 1) left = bytes.substr(0, size);
      if (kind == 2) left = bytes.substr(0, size) + std::string(bytes.size() - size, '\0');
      if (kind == 3) left = bytes;
      if (kind == 4) left = Reordered(bytes, from, random);
    }
    return {left, left};
  }

  std::map<std::string, Entries> m_folders;
  std::map<std::string, Entries> m_kept;
  std::map<std::string, std::vector<NameChange>> m_pending;
  int m_lossAt = 0;
  int m_calls = 0;
};

}  // namespace TalVcs::Testing
