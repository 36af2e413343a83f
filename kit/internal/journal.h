#pragma once

#include <kit/internal/store_state.h>
#include <kit/store/head_table.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// What an object store in a folder keeps besides its objects.
struct JournalState {
  HeadTable heads;
  std::map<std::string, std::string, std::less<>> values;
  /// How many times objects were removed.
  std::uint64_t removals = 0;
  /// The packs, each with a size up to which the medium has it.
  std::map<std::uint32_t, std::uint64_t> packs;
  /// Objects whose files are no objects any more, although they may be there.
  std::set<ObjectKey> removedFiles;
};

/// Changes of the state that are made together: the payload of one record.
class JournalChanges {
 public:
  void Move(std::span<const HeadMove> moves);
  void SetValue(std::string_view name, std::string_view value);
  void RemoveValue(std::string_view name);
  void SetRemovals(std::uint64_t removals);
  void SetPack(std::uint32_t number, std::uint64_t sizeBytes);

  bool IsEmpty() const noexcept { return m_payload.empty(); }

  const std::string& GetPayload() const noexcept { return m_payload; }

 private:
  friend class Journal;
  void SetHead(std::string_view name, const Id& id);
  void RemoveHead(std::string_view name);
  void RemoveFile(const ObjectKey& key);
  void Put(char kind, std::string_view name);

  std::string m_payload;
  bool m_needsPacks = false;
};

enum class JournalProblem { None, Damaged, Unsupported };

/// The state of a store as a journal: a header and records, each of which continues the one before.
///
/// The first record holds the state of a checkpoint, the others what has changed since. A journal
/// is made as a whole and grows by one record at a time, so that at most its last record can be
/// incomplete. Such a torn tail is no part of the journal: the step it was to record never
/// happened. Anything else that isn't a journal is damage.
class Journal {
 public:
  /// Reads a whole journal. After a problem, what this journal holds has no meaning.
  JournalProblem Read(std::string_view bytes);
  /// Reads what follows this journal without a torn tail.
  JournalProblem ReadOn(std::string_view bytes);

  const JournalState& GetState() const noexcept { return m_state; }
  /// Number of bytes without a torn tail.
  std::uint64_t GetSize() const noexcept { return m_size; }
  /// The last bytes, `kDigestSize` of them, which no other journal ends with.
  const std::string& GetEnd() const noexcept { return m_end; }
  bool HasTornTail() const noexcept { return m_hasTornTail; }

  /// Whether the records after the checkpoint take so much room that a new checkpoint saves some.
  bool HasOutgrownCheckpoint() const noexcept;

  /// Returns the record with these changes that continues this journal. Nothing if they are too
  /// many for one, or if the header of this journal doesn't say that there are packs and they need
  /// it.
  std::string MakeRecord(const JournalChanges& changes) const;

  /// Returns a journal whose checkpoint is `state`.
  static std::string Write(const JournalState& state);

  /// Makes the changes; false, with some of them made, if `payload` isn't what `JournalChanges`
  /// writes.
  static bool Apply(std::string_view payload, JournalState& state);

  /// True for the first line of a journal of any version, false for that of a `StoreState`.
  static bool IsJournal(std::string_view bytes);

  static constexpr std::size_t kDigestSize = 32;

 private:
  JournalProblem ReadRecords(std::string_view bytes);

  JournalState m_state;
  std::uint64_t m_size = 0;
  std::uint64_t m_checkpointSize = 0;
  std::string m_end;
  bool m_hasTornTail = false;
  bool m_allowsPacks = false;
};

}  // namespace TalVcs::Kit
