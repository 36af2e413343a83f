#pragma once

#include <kit/internal/file_system.h>
#include <kit/internal/store_state.h>
#include <kit/text/error.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// A state with the digest that its file ends with, by which two states are distinguished. The
/// digest is empty for an empty store, whether its file is there or not.
struct StoredState {
  StoreState state;
  std::string digest;
};

/// The files of a directory store: single steps of reading and saving, without the order in which
/// they keep the store whole.
///
/// Every step that fails notes why in `LastError` and `LastFailure`.
class StoreFolder {
 public:
  using Path = std::filesystem::path;
  enum class Replaced { No, ButNotKept, Yes };

  StoreFolder(const Path& folder, bool durable, std::shared_ptr<FileSystem> files);

  /// Makes the folders that are missing.
  bool Make();

  Path StatePath() const { return m_store / "state"; }

  /// Reads the file "state"; an empty state if there is neither that nor an object, null if it
  /// can't be read or is missing.
  std::shared_ptr<const StoredState> ReadState();

  /// Makes an empty file "state" if there is none, which has to be done before any object is
  /// written: objects without it belong to a store that has lost its state.
  bool MakeState();

  /// Puts a state in place of the file "state", and sets its digest.
  Replaced ReplaceState(StoredState& stored);
  /// Puts these bytes in place of the file "state".
  Replaced ReplaceStateFile(const Buffer& bytes);

  /// True if the folder of the objects holds a file of one, or if there is a pack.
  bool HasObjectFiles();

  /// Returns the absolute path, which stays right when the process changes its working folder, and
  /// without the "/" at its end, with which a folder would be its own parent.
  static Path AbsolutePath(const Path& folder);
  /// Returns the path for a message, in UTF-8: other bytes of its names are U+FFFD.
  static std::string TextOf(const Path& path);

  Path FolderOf(const ObjectKey& key) const;
  Path FileOf(const ObjectKey& key) const;
  const Path& StorePath() const noexcept { return m_store; }
  const Path& ObjectsPath() const noexcept { return m_objects; }
  bool IsDurable() const noexcept { return m_durable; }
  FileSystem& Files() const noexcept { return *m_files; }

  bool ReadObject(const ObjectKey& key, Buffer& bytes);
  /// True if the object's file has that size or, with `compare`, those bytes.
  bool HoldsObject(const ObjectKey& key, const Buffer& bytes, bool compare);
  /// Writes the object's file, in place of one that may be there.
  bool WriteObject(const ObjectKey& key, const Buffer& bytes);

  /// Waits until the medium keeps what was written since `ForgetWritten`.
  bool SyncWritten();
  /// Removes the files that `WriteObject` made since then where there was none.
  void RemoveWritten();
  void ForgetWritten();

  /// Removes all files of objects that `state` doesn't hold. What can't be removed stays.
  void RemoveUnused(const StoreState& state);

  /// Lock out other writers, or removals of objects that this reader may need. Null if that fails,
  /// which only the lock of a writer notes as an error.
  std::unique_ptr<FileLock> LockWriter();
  std::unique_ptr<FileLock> LockReader();
  /// Locks the file of the readers without waiting, and notes an error.
  std::unique_ptr<FileLock> TryLockReaders(LockKind kind);
  /// Makes sure that nobody reads; null if somebody does.
  std::unique_ptr<FileLock> LockOutReaders();

  const std::string& LastError() const noexcept { return m_lastError; }
  void ClearError() noexcept { m_lastError.clear(); }
  /// The same as an error of the kit.
  const Error& LastFailure() const noexcept { return m_lastFailure; }

  /// Note an error and return false.
  bool Fail(std::string_view what, const Path& path, std::string_view why,
            ErrorCode code = ErrorCode::Damaged);
  bool Fail(std::string_view what, const Path& path, const std::error_code& error);

  /// Makes one folder if it is missing.
  bool MakeFolder(const Path& path);
  /// Waits until the names in these folders are kept; one that is gone needs no wait.
  bool SyncFolders(const std::set<Path>& folders);

  /// Returns the key of the object whose file has that name in the folder of `prefix`; `complete`
  /// distinguishes a file from one that was to replace it.
  static std::optional<ObjectKey> KeyFromFile(const std::string& prefix, std::string_view name,
                                              bool& complete);
  /// Returns the name under which a file is written that is to take the place of `path`.
  static Path ParkedPath(const Path& path);

  /// From how many files on one call for the whole medium is used: a thousand new objects took
  /// 7.5 s with a call for each and 0.02 s with the one, and the one alone never took much longer
  /// than ten others.
  static constexpr std::size_t kManyFiles = 8;

 private:
  struct Written {
    ObjectKey key;
    bool isNew;  // no file had the name
  };

  bool ReplaceFile(const Path& path, const Buffer& bytes);
  bool CheckFolders();
  bool SyncEach();
  void RemoveUnusedIn(const Path& folder, const std::string& prefix, const StoreState& state);

  std::shared_ptr<FileSystem> m_files;
  Path m_folder;
  Path m_store;
  Path m_objects;
  bool m_durable;
  std::vector<Written> m_written;
  std::set<Path> m_touched;  // folders that got a name since the last commit
  std::string m_lastError;
  Error m_lastFailure;
};

}  // namespace TalVcs::Kit
