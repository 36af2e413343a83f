#pragma once

#include <kit/internal/file_system.h>
#include <kit/internal/store_state.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// A state with the digest that its file ends with, by which two states are told apart; empty for
/// an empty store, whether it is there or not.
struct StoredState {
  StoreState state;
  std::string digest;
};

/// The files of a directory store: single steps of reading and saving, without the order in which
/// they keep the store whole.
///
/// Every step that fails notes why in `LastError`.
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
  /// Makes sure that nobody reads; null if somebody does.
  std::unique_ptr<FileLock> LockOutReaders();

  const std::string& LastError() const noexcept { return m_lastError; }
  void ClearError() noexcept { m_lastError.clear(); }
  /// Notes an error and returns false.
  bool Fail(std::string_view what, const Path& path, std::string_view why);

 private:
  struct Written {
    ObjectKey key;
    bool isNew;  // no file had the name
  };

  bool Fail(std::string_view what, const Path& path, const std::error_code& error);
  bool MakeFolder(const Path& path);
  Path FolderOf(const ObjectKey& key) const;
  Path FileOf(const ObjectKey& key) const;
  bool ReplaceFile(const Path& path, const Buffer& bytes);
  bool HasObjectFiles();
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
};

}  // namespace TalVcs::Kit
