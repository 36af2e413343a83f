#pragma once

#include <talvcs/format/object_type.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <string_view>
#include <vector>

namespace TalVcs {

// tree   := record*                      ascending by name, in 16-bit code units, each name once
// record := mode SP type SP name NUL id  mode and type: "100644 blob" or "40000 tree"
// name                                   in UTF-8, not empty, without "/"
// id                                     64 hexadecimal digits, letters in lower case
//
// A surrogate without its other half has the generalised form of three bytes in UTF-8.

/// The kinds of entries in a tree. A blob comes before a subtree of the same name.
enum class EntryKind { Blob, Tree };

/// Returns the most bytes that a record with this name and id takes.
std::size_t MostRecordBytes(TalStringViewT<WideChar> name, TalStringViewT<WideChar> id) noexcept;

/// Writes a record to `out`, which has room for `MostRecordBytes`. Returns the end. A zero ends the
/// name and the id where it is written, and neither is checked.
char* PutRecord(EntryKind kind, TalStringViewT<WideChar> name, TalStringViewT<WideChar> id,
                char* out) noexcept;

/// Writes a record that begins with `start`, which takes as many bytes more, likewise.
char* PutRecord(std::string_view start, TalStringViewT<WideChar> name, TalStringViewT<WideChar> id,
                char* out) noexcept;

/// One record of a tree, as views of its bytes.
struct TreeRecord {
  EntryKind kind;
  TalStringViewT<WideChar> name;
  std::string_view id;
  std::string_view bytes;  // the whole record
};

/// Reads the records of a tree in exactly the form above.
///
/// No record is read beyond the first that has another form. Cost: about one pass over the bytes;
/// memory is allocated for the longest name alone.
class TreeReader {
 public:
  /// Starts before the first of `records`, which must outlive the reader.
  explicit TreeReader(std::string_view records) noexcept : m_rest(records) {}

  /// Reads the next record. Returns false at the end and at a record of another form.
  ///
  /// The name is valid until the next but one call, the other views as long as the bytes.
  bool Next(TreeRecord& record);

  /// Returns what hasn't been read yet.
  std::string_view Rest() const noexcept { return m_rest; }
  /// Returns the name of the last record, valid like those of `Next`; empty before the first.
  TalStringViewT<WideChar> LastName() const noexcept { return m_lastName; }
  /// Passes over records that are known to have the form and to ascend from the last name on.
  /// `lastName` is the name of the last of them and must outlive the reader.
  void Skip(std::size_t size, TalStringViewT<WideChar> lastName) noexcept {
    m_rest.remove_prefix(size);
    m_lastName = lastName;
  }

  /// True if a record of another form was found. After `Next` has returned false, this is the
  /// difference between the end of the records and a mistake.
  bool HasFailed() const noexcept { return m_failed; }

 private:
  bool TakeRecord(TreeRecord& record);
  TalStringViewT<WideChar> DecodeName(std::string_view name);

  std::string_view m_rest;
  bool m_failed = false;
  TalStringViewT<WideChar> m_lastName;
  // The last two names. Each vector only grows.
  std::vector<WideChar> m_names;
  std::vector<WideChar> m_lastNames;
};

/// Returns true if `records` has exactly the form above. No records are a tree without entries.
bool IsTreeList(std::string_view records);

/// One record as a load takes it, as views of its bytes.
struct LooseTreeRecord {
  TalStringViewT<char> type;
  TalStringViewT<char> name;
  TalStringViewT<char> id;
};

/// Reads a record of a list that may be damaged, and moves `position` after it. Nothing is
/// checked: the mode and the type end with a blank, the name with a zero byte, the id after 64
/// bytes, and each at the end of the list if that comes first.
LooseTreeRecord ReadLooseRecord(TalStringViewT<char> list, int& position) noexcept;

}  // namespace TalVcs
