#pragma once

#include <kit/internal/journal.h>
#include <kit/internal/store_folder.h>
#include <kit/text/result.h>

#include <optional>
#include <string>

namespace TalVcs::Kit {

/// The file "state" of an object store in a folder: a journal, or a state that a `DirectoryStore`
/// wrote.
class StateFile {
 public:
  /// Works in `folder`, which outlives this object. `rootPath` is that of the `DirectoryStore`.
  StateFile(StoreFolder& folder, std::string rootPath)
      : m_folder(folder), m_rootPath(std::move(rootPath)) {}

  /// Reads what is new in the file. Fails with `NotFound` if there is no store.
  Status Refresh();

  /// What the last successful `Refresh` or change has found.
  const JournalState& Get() const noexcept { return m_former ? m_state : m_journal.GetState(); }

  /// The objects of a state that isn't a journal yet; null for a journal.
  const StoreState* Former() const noexcept { return m_former ? &*m_former : nullptr; }

  /// Makes changes to the journal that `Refresh` has found, by a record or a new checkpoint. Fails
  /// with `Unknown` if the changes are in the file but may not be kept. One writer at a time.
  Status Record(const JournalChanges& changes);

  /// Replaces the file by a journal with that state.
  Status Replace(const JournalState& state);

 private:
  Status ReadWhole();
  Status TakeFormer(StoreState state, const Buffer& bytes);
  Status Append(const std::string& record);
  Status Refuse(JournalProblem problem);

  StoreFolder& m_folder;
  std::string m_rootPath;
  Journal m_journal;
  bool m_hasJournal = false;
  std::optional<StoreState> m_former;
  JournalState m_state;  // of m_former
};

}  // namespace TalVcs::Kit
