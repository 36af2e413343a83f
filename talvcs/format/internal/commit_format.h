#pragma once

#include <talvcs/foundation/names.h>

#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace TalVcs {

// text      := "tree " id? LF parent? "author " info LF "committer " info LF LF description LF
// parent    := "parent " id LF
// info      := name " <" e-mail "> " seconds SP zone      the same in both lines
// zone      := ("+" | "-") hours minutes                  two digits each, more for long hours
//
// All of it is UTF-8 without zero bytes; a surrogate without its other half has the generalised
// form of three bytes. `seconds` are decimal and have 32 bits with a sign. The sign of a zone
// belongs to its hours, so "-00" never occurs.
//
// Name, e-mail and description are free texts: each may hold line breaks and the separators. Texts
// with separators can be split in several ways, all of which give the same bytes when written. The
// reader takes this one: the shortest info that both lines share and that ends with a time and a
// zone; in it, the name up to the first " <" and the time after the last "> ". The description is
// the rest without the last line end.

/// What a commit's text is written from.
struct CommitContent {
  TalStringViewT<WideChar> treeId;  // empty for a commit without a root
  bool hasParent = false;
  TalStringViewT<WideChar> parentId;
  TalStringViewT<WideChar> authorName;
  TalStringViewT<WideChar> authorEmail;
  TalStringViewT<WideChar> description;
  Time time;
  TimeDelta bias;
};

/// The bytes of a commit's text. A zero ends the name, the e-mail and the description.
///
/// Allocates nothing for a text of common length, because an id alone needs the bytes only while
/// they are hashed. Throws the `std::length_error` of a text whose bytes exceed an `int`.
class CommitText {
 public:
  explicit CommitText(const CommitContent& content);
  CommitText(const CommitText&) = delete;
  CommitText& operator=(const CommitText&) = delete;

  std::string_view Get() const noexcept { return m_bytes; }

 private:
  std::array<char, 2048> m_onStack;
  std::vector<char> m_onHeap;
  std::string_view m_bytes;
};

/// Returns the text of a commit in a buffer.
Buffer WriteCommitText(const CommitContent& content);

/// Returns the line of "author" or "committer", without its line end.
TalStringT<WideChar> WriteInfoLine(TalStringViewT<WideChar> role, TalStringViewT<WideChar> name,
                                   TalStringViewT<WideChar> email, Time time, TimeDelta bias);

/// The fields of a commit's text, as views of its bytes.
struct CommitFields {
  std::string_view treeId;    // empty for a commit without a root
  std::string_view parentId;  // empty for a commit without a parent
  std::string_view authorName;
  std::string_view authorEmail;
  std::string_view description;
  Time time;
  TimeDelta bias;
};

/// Splits `text` into its fields, which are valid as long as its bytes. Returns nothing unless it
/// has exactly the form above, so that its fields give the same bytes when written. Cost: linear in
/// the length of the text.
std::optional<CommitFields> ReadCommitText(std::string_view text);

/// Reads a text that may be damaged. Returns nothing only if there is no "tree "; other fields that
/// are missing are empty or zero. Of a description it takes the first line, of a name the part
/// before "<", of an e-mail the part before ">".
std::optional<CommitFields> ReadLooseCommitText(TalStringViewT<char> text);

/// Returns the rest of the line after the first `key` from `position` on, and moves `position` to
/// the line's end. Returns nothing, with `position` unchanged, if there is no `key`. Without a line
/// end the value is empty and `position` becomes -1.
std::optional<TalStringViewT<char>> FindCommitValue(TalStringViewT<char> text,
                                                    TalStringViewT<char> key, int& position);

}  // namespace TalVcs
